"""The value operations through the real daemon on the demo gateway. The reading, array and
writing cores have their cases in the unit tests; here is what only the daemon shows: the
callers' rights by REMOTE_USER, what the operations' glue adds (relative paths, the range's
64-bit fields, the list checks) and a write seen by another process with its writer."""

import re
import unittest

from wsgate_testlib import NS, GatewayTestCase, fault_of, text_element

NSC1 = "{%s}" % NS["nsc1"]
NOT_FOUND = "? 9 Node Not Found : CDS access failed"
UNAUTHORIZED = "? 2 Not Authorized : Unauthorized read"


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


class ValuesTest(GatewayTestCase):
    @classmethod
    def setUpClass(cls):
        super().setUpClass()
        # Everyone but operator and admin is denied /System.
        cls.gw.cds("rights", "grant", "*", "/System", "-")

    def results(self, operation, user=None, addr="127.0.0.1", **fields):
        """The result texts of a call (an empty element reads as "")."""
        answer = self.gw.call(body(operation, **fields), user=user, addr=addr)
        return [e.text or "" for e in answer.findall(NSC1 + operation + "Result")]

    def test_reads_follow_the_callers_rights(self):
        for user, location in ((None, UNAUTHORIZED), ("guest", UNAUTHORIZED),
                               ("operator", "Plant room B"), ("admin", "Plant room B")):
            with self.subTest(user=user):
                # Metadata needs no read right; an item refused in a list leaves the others.
                self.assertEqual(self.results("getValues", user=user, paths=(
                    "/System/Location", "/System/Location.AttribType", "/Meter1/Voltage")),
                                 [location, "String", "230.4"])
                self.assertEqual(self.results("getValue", user=user, path="/System/Location"),
                                 [location])

    def test_what_the_operations_add_to_the_shared_reads(self):
        cases = [
            # The base path and each relative path are joined without a separator.
            (("getRelativeValues", {"basePath": "/Meter", "paths": ["1/Voltage", "1/Nothing"]}),
             ["230.4", NOT_FOUND]),
            (("getRelativeValues", {"paths": ["/Meter1/Voltage"]}),
             ["? 17 No Paths Provided : No paths"]),
            (("getValues", {}), ["? 17 No Paths Provided : No Paths provided"]),
            (("getValue", {"options": "errorPrefix=E:"}),
             ["E:? 8 Bad Path Syntax : No Path provided"]),
            # Only the low 32 bits of the index and the count count.
            (("getArrayRange", {"path": "/AHU1/Mode/PossibleValues", "index": 2 ** 32 + 1,
                                "count": 2 ** 33 + 2}), ["Heat", "Cool"]),
            (("getArraySize", {"path": "/AHU1/Mode/PossibleValues"}), ["4"]),
            (("setValues", {"user": "operator", "paths": ["/A", "/B"], "values": ["1", "2", "3"]}),
             ["? 14 Index Out of Range : Mismatched array sizes"]),
        ]
        for (operation, fields), expected in cases:
            with self.subTest(operation=operation, fields=fields):
                self.assertEqual(self.results(operation, **fields), expected)

    def test_writes_need_the_write_right(self):
        for user in (None, "guest"):
            for operation, fields in (("setValue", {"path": "/AHU1/Setpoint", "value": "11"}),
                                      ("setValues", {"paths": ["/AHU1/Setpoint"],
                                                     "values": ["11"]})):
                with self.subTest(user=user, operation=operation):
                    response = self.gw.request(body(operation, **fields), user=user)
                    self.assertEqual(response.status, 401)
                    self.assertIn("401", fault_of(response)[1])
        self.assertNotEqual(self.gw.get("/AHU1/Setpoint/Value"), "11")
        # The daemon goes on serving after a refusal.
        self.assertEqual(self.results("setValues", user="admin",
                                      paths=["/AHU1/Setpoint", "/Meter1/Status"],
                                      values=["12", "Fault"]),
                         ["12", "? 15 Not Writable : Value is not Writable"])
        self.assertEqual(self.gw.get("/AHU1/Setpoint/Value"), "12")

    def test_writer_is_recorded_and_seen_by_other_processes(self):
        self.assertEqual(self.results("setValue", user="operator", addr="10.1.2.3",
                                      options="persist", path="/AHU1/Setpoint", value="23.5"),
                         ["23.5"])
        listing = self.gw.cds("get", "-l", "/AHU1/Setpoint/Value").stdout
        self.assertRegex(listing, r"value:\s+23.5\n")
        self.assertRegex(listing, r"storage:\s+Persistent\n")
        self.assertRegex(listing, r"source:\s+Web-Services:operator@10.1.2.3\n")
        self.assertIn("pcd_setValue: /AHU1/Setpoint/Value had type = 4 \n", self.gw.stderr_text())
        self.assertEqual(self.results("setValue", user="admin", addr=None,
                                      path="/System/Location", value="Cellar"), ["Cellar"])
        self.assertTrue(re.search(r"source:\s+Web-Services:admin@\n", self.gw.cds(
            "get", "-l", "/System/Location/Value").stdout))


if __name__ == "__main__":
    unittest.main()
