"""The value operations through the real daemon on the demo gateway: reading, arrays and
writing, their error texts under the options, and the callers' rights."""

import re
import unittest

from wsgate_testlib import NS, GatewayTestCase, fault_of, text_element

NSC1 = "{%s}" % NS["nsc1"]
NOT_FOUND = "? 9 Node Not Found : CDS access failed"


def body(operation, options=None, **fields):
    """An nsc1 request: options first, then the fields in order (a list repeats the element,
    a tuple becomes one nsc1:ArrayOfString)."""
    parts = [text_element("nsc1:options", options)]
    for name, value in fields.items():
        if isinstance(value, tuple):
            items = "".join(text_element("nsc1:string", v) for v in value)
            parts.append("<nsc1:%s>%s</nsc1:%s>" % (name, items, name))
        elif isinstance(value, list):
            parts.extend(text_element("nsc1:" + name, v) for v in value)
        elif value is not None:
            parts.append(text_element("nsc1:" + name, str(value)))
    return "<nsc1:%s>%s</nsc1:%s>" % (operation, "".join(parts), operation)


class ValuesTestCase(GatewayTestCase):
    def results(self, operation, user=None, addr="127.0.0.1", **fields):
        """The result texts of a call (an empty element reads as "")."""
        answer = self.gw.call(body(operation, **fields), user=user, addr=addr)
        return [e.text or "" for e in answer.findall(NSC1 + operation + "Result")]

    def value(self, path, options=None, user=None):
        return self.results("getValue", path=path, options=options, user=user)[0]

    def refused(self, operation, user, **fields):
        """True when the call ended in the runtime's 401 fault."""
        response = self.gw.request(body(operation, **fields), user=user)
        fault = fault_of(response)
        return response.status == 401 and fault is not None and "401" in fault[1]

    def stored_time(self, path):
        return re.search(r"\((-?\d+)\)", self.gw.cds("get", "-l", path).stdout).group(1)


class ReadTest(ValuesTestCase):
    @classmethod
    def setUpClass(cls):
        super().setUpClass()
        # Everyone but operator and admin is denied /System; a one-item array for the sizes.
        cls.gw.cds("rights", "grant", "*", "/System", "-")
        cls.gw.cds("mkdir", "/Test/One")
        cls.gw.cds("set", "/Test/One/PossibleValues", "String", "single")

    def test_values_of_every_type(self):
        self.assertEqual(self.value("/Meter1/Voltage"), "230.4")
        self.assertEqual(self.value("/Meter1/DemandLimit/Value"), "250")
        self.assertEqual(self.value("/AHU1/FanSpeedOffset"), "-5")
        self.assertEqual(self.value("/Meter1/SerialNumber"), "EM-1-00042")
        self.assertEqual(self.value("/Meter1/Energy"), "5000000000")
        self.assertEqual(self.value("/Meter1/Voltage:.HiCriticalLimit"), "253")
        self.assertEqual(self.value("/Meter1/Voltage/Minimum"), "0")

    def test_boolean_and_multistate_texts(self):
        self.assertEqual(self.value("/Meter1/Breaker"), "Closed")
        self.assertEqual(self.value("/Meter1/Breaker", "canonical"), "true")
        self.assertEqual(self.value("/AHU1/Fan"), "Off")
        self.assertEqual(self.value("/Meter10/Online"), "false")
        self.assertEqual(self.value("/Meter1/Mode"), "Auto")
        self.assertEqual(self.value("/Meter1/Mode", "canonical"), "Auto")
        self.assertEqual(self.value("/Meter1/Status"), "Warning")
        self.assertEqual(self.value("/Meter1/Breaker/Writable"), "true")

    def test_sub_attributes(self):
        self.assertEqual(self.value("/Meter1/Voltage/Value.Time"),
                         self.stored_time("/Meter1/Voltage/Value"))
        self.assertEqual(self.value("/Alarms/1001/SourcePath.Timestamp"), "1700000000000")
        self.assertEqual(self.value("/Meter1/Voltage.Source"), "Normal")
        self.assertEqual(self.value("/Meter1:Children.Source"), "Automatic")
        self.assertEqual(self.value("/Meter1/Voltage.AttribType"), "Real")
        self.assertEqual(self.value("/Meter1/Mode.AttribType"), "Multistate")
        self.assertEqual(self.value("/Meter1/Breaker.AttribType"), "Boolean")
        self.assertEqual(self.value("/Meter1/Energy.AttribType"), "Unsigned64")
        self.assertEqual(self.value("/Meter1/Voltage/Value.Foo"),
                         "? 11 Illegal Attribute : Unknown sub-Attribute .Foo")

    def test_error_texts_under_the_options(self):
        self.assertEqual(self.value("/Meter1/Nothing"), NOT_FOUND)
        self.assertEqual(self.value("Meter1"), "? 8 Bad Path Syntax : CDS Error in supplied path")
        self.assertEqual(self.results("getValue")[0], "? 8 Bad Path Syntax : No Path provided")
        self.assertEqual(self.value("/Nothing", "errorPrefix=ERR"), "ERR" + NOT_FOUND)
        self.assertEqual(self.value("/Nothing", "errorString=BAD;errorPrefix=E:"), "E:BAD")
        self.assertEqual(self.value("/Nothing", "errorPrefix=? ;errorString=BAD"), "BAD")
        self.assertEqual(self.value("/Nothing", "errorString"), "")
        self.assertEqual(self.value("/Meter1/Voltage", "errorString"), "230.4")

    def test_reads_need_the_read_right_but_metadata_does_not(self):
        refused = "? 2 Not Authorized : Unauthorized read"
        for user in (None, "guest"):
            self.assertEqual(self.value("/System/Location", user=user), refused)
            self.assertEqual(self.value("/System/Location.AttribType", user=user), "String")
            self.assertEqual(self.value("/Meter1/Voltage", user=user), "230.4")
        for user in ("operator", "admin"):
            self.assertEqual(self.value("/System/Location", user=user), "Plant room B")
        self.assertEqual(self.results("getValues", user="guest",
                                      paths=("/System/CpuLoad", "/System/CpuLoad.Time"))[0],
                         refused)

    def test_bulk_reads_report_each_item(self):
        paths = ("/Meter1/Voltage", "/Meter1/Nothing/Value", "/AHU1/Mode", "Meter1",
                 "/Meter1:Children", "/AHU1/Fan")
        self.assertEqual(self.results("getValues", paths=paths, options="canonical"),
                         ["230.4", NOT_FOUND, "Auto", "? 8 Bad Path Syntax : CDS access failed",
                          "Breaker;Current;DemandLimit;Energy;Frequency;LastReset;Mode;Power;"
                          "ReactiveEnergy;SerialNumber;Status;Submeter;Voltage;sDevChangeCount",
                          "false"])
        self.assertEqual(self.results("getValues", paths=()), ["? 17 No Paths Provided : No paths"])
        self.assertEqual(self.results("getValues"),
                         ["? 17 No Paths Provided : No Paths provided"])

    def test_relative_values_append_without_separator(self):
        self.assertEqual(self.results("getRelativeValues", basePath="/Meter1/",
                                      paths=["Voltage", "Mode/Value", "Nothing"]),
                         ["230.4", "Auto", NOT_FOUND])
        self.assertEqual(self.results("getRelativeValues", basePath="/Meter",
                                      paths=["1/Voltage", "10/Voltage"]), ["230.4", "0"])
        self.assertEqual(self.results("getRelativeValues", paths=["/Meter1/Voltage"]),
                         ["? 17 No Paths Provided : No paths"])

    def test_arrays(self):
        mode = "/AHU1/Mode/PossibleValues"
        self.assertEqual(self.results("getArray", path=mode), ["Off", "Heat", "Cool", "Auto"])
        self.assertEqual(self.results("getArray", path="/Meter1/Voltage:Minimum"),
                         ["? 24 Not an Array : Invalid attribute for array"])
        self.assertEqual(self.results("getArray", path="/Nothing:Children"), [NOT_FOUND])

        def array_range(index, count, path=mode):
            return self.results("getArrayRange", path=path, index=index, count=count)
        self.assertEqual(array_range(1, 2), ["Heat", "Cool"])
        self.assertEqual(array_range(0, 0), ["Off", "Heat", "Cool", "Auto"])
        self.assertEqual(array_range(2, 0), ["Off", "Heat"])
        self.assertEqual(array_range(4, 1), ["? 14 Index Out of Range"])
        self.assertEqual(array_range(2 ** 32 + 1, 1), ["Heat"])  # only the low 32 bits count
        self.assertEqual(array_range(7, 1, "/Test/One:PossibleValues"), ["single"])

        self.assertEqual(self.results("getArraySize", path=mode), ["4"])
        self.assertEqual(self.results("getArraySize", path="/Test/One:PossibleValues"),
                         ["single"])
        self.assertEqual(self.results("getArraySize", path="/Test/One:PossibleValues",
                                      options="errorPrefix=E:"), ["1"])
        self.assertEqual(self.results("getArraySize"), ["? 8 Bad Path Syntax : No Path provided"])


class WriteTest(ValuesTestCase):
    @classmethod
    def setUpClass(cls):
        super().setUpClass()
        cls.gw.cds("set", "/Meter10/Online/Writable", "Boolean", "true")

    def write(self, path, value, user="operator", options=None, addr="127.0.0.1"):
        return self.results("setValue", path=path, value=value, options=options, user=user,
                            addr=addr)[0]

    def test_writes_of_every_type(self):
        self.assertEqual(self.write("/AHU1/Setpoint", "22.5"), "22.5")
        self.assertEqual(self.gw.get("/AHU1/Setpoint/Value"), "22.5")
        self.assertIn("pcd_setValue: /AHU1/Setpoint/Value had type = 4 \n",
                      self.gw.stderr_text())
        self.assertEqual(self.write("/System/Location", "Roof", user="admin"), "Roof")
        self.assertEqual(self.write("/AHU1/FanSpeedOffset", ""), "0")
        self.assertEqual(self.write("/Meter10/Online", "TRUE"), "true")
        self.assertEqual(self.write("/AHU1/Fan", "On"), "On")
        self.assertEqual(self.gw.get("/AHU1/Fan/Value"), "true")
        self.assertEqual(self.write("/Meter1/Mode", "manual"), "manual")
        self.assertEqual(self.value("/Meter1/Mode"), "Manual")
        self.assertEqual(self.write("/Meter1/Voltage:.HiCriticalLimit", "260"), "260")

    def test_conversions_at_their_limits(self):
        def refused(text):
            return "? 12 Bad Value Format : Could not transform " + text
        self.assertEqual(self.write("/Meter1/DemandLimit", "2147483647"), refused("2147483647"))
        self.assertEqual(self.write("/Meter1/DemandLimit", "-2147483648"), "-2147483648")
        self.assertEqual(self.write("/Meter1/DemandLimit", "12kW"), refused("12kW"))
        self.assertEqual(self.write("/AHU1/Setpoint", "nan"), refused("nan"))
        self.assertEqual(self.write("/AHU1/Setpoint", "1e309"), refused("1e309"))
        self.assertEqual(self.write("/AHU1/Setpoint", "-inf"), "-inf")
        self.assertEqual(self.write("/Meter10/Online", "1"), refused("1"))
        self.assertEqual(self.write("/AHU1/Mode", "Turbo"),
                         "? 12 Bad Value Format : Cannot find PossibleValue match to write")
        self.assertEqual(self.gw.get("/AHU1/Mode/Value"), "3")

    def test_refused_writes(self):
        self.assertEqual(self.write("/Meter1/Status", "Fault"),
                         "? 15 Not Writable : Value is not Writable")
        self.assertEqual(self.write("/Meter1/Voltage/Minimum", "1"),
                         "? 11 Illegal Attribute : Attribute Minimum is not Writable")
        self.assertEqual(self.write("/Meter1/Nothing/Value", "1"),
                         "? 9 Node Not Found : Node does not exist")
        self.assertEqual(self.write("/Meter1/Nothing/Value", "1", options="errorString=NO"), "NO")
        self.assertEqual(self.results("setValue", path="/AHU1/Setpoint", user="admin")[0],
                         "? 12 Bad Value Format : No Value provided")

    def test_writes_need_the_write_right(self):
        for user in (None, "guest"):
            self.assertTrue(self.refused("setValue", user, path="/AHU1/Setpoint", value="11"))
            self.assertTrue(self.refused("setValues", user, paths=["/AHU1/Setpoint"],
                                         values=["11"]))
        self.assertNotEqual(self.gw.get("/AHU1/Setpoint/Value"), "11")
        self.assertEqual(self.write("/AHU1/Setpoint", "12", user="admin"), "12")
        # The daemon goes on serving after a refusal.
        self.assertEqual(self.value("/AHU1/Setpoint"), "12")

    def test_list_with_failing_items_among_good_ones(self):
        results = self.results("setValues", user="operator",
                               paths=["/AHU1/Mode", "/Meter1/Status", "/AHU1/Setpoint",
                                      "/Nothing/Value", "/Meter1/Breaker", "/Meter1/DemandLimit"],
                               values=["Heat", "Fault", "abc", "1", "Open", "300"])
        self.assertEqual(results, ["Heat", "? 15 Not Writable : Value is not Writable",
                                   "? 12 Bad Value Format : Could not transform abc",
                                   "? 9 Node Not Found : Node does not exist", "Open", "300"])
        self.assertEqual(self.gw.get("/AHU1/Mode/Value"), "1")
        self.assertEqual(self.gw.get("/Meter1/Breaker/Value"), "false")
        self.assertEqual(self.gw.get("/Meter1/DemandLimit/Value"), "300")
        # Unlike setValue, a boolean without texts takes the store's own texts.
        self.assertEqual(self.results("setValues", user="operator", paths=["/Meter10/Online"],
                                      values=["0"]), ["0"])
        self.assertEqual(self.results("setValues", user="operator", paths=["/A", "/B"],
                                      values=["1", "2", "3"]),
                         ["? 14 Index Out of Range : Mismatched array sizes"])
        self.assertEqual(self.results("setValues", user="operator", values=["1"]),
                         ["? 17 No Paths Provided : No Paths provided"])
        self.assertEqual(self.results("setValues", user="operator", paths=["/A"]),
                         ["? 23 Empty Array : No Values provided"])

    def test_writer_is_recorded_and_seen_by_other_processes(self):
        self.assertEqual(self.write("/AHU1/Setpoint", "23.5", user="operator", addr="10.1.2.3",
                                    options="persist"), "23.5")
        listing = self.gw.cds("get", "-l", "/AHU1/Setpoint/Value").stdout
        self.assertRegex(listing, r"value:\s+23.5\n")
        self.assertRegex(listing, r"storage:\s+Persistent\n")
        self.assertRegex(listing, r"source:\s+Web-Services:operator@10.1.2.3\n")
        self.assertEqual(self.results("setValues", user="admin", addr=None,
                                      paths=["/System/Location"], values=["Cellar"]), ["Cellar"])
        listing = self.gw.cds("get", "-l", "/System/Location/Value").stdout
        self.assertRegex(listing, r"source:\s+Web-Services:admin@\n")


if __name__ == "__main__":
    unittest.main()
