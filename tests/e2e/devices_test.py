"""The device model and device commands through the real daemon on the demo gateway: the
answers as a client reads them, a hostile search that leaves the daemon serving, each
refusal, and commands that really run: carried out by the demo's device handler (`cds
handler`, another process on the same store) and their results fetched back; and the
handler's own answers to what it does not know. The rules behind each answer are the unit
tests' (tests/unit/device_tree_test.cc, command_queue_test.cc and others)."""

import unittest

from wsgate_testlib import NS, Gateway, GatewayTestCase, wait_until


def basic(name, param):
    return ("<cmdBasic><name>%s</name><param>%s</param><num>1</num><psswd>0</psswd></cmdBasic>"
            % (name, param))


def texts(element, name):
    return [child.text or "" for child in element if child.tag.rpartition("}")[2] == name]


def descriptors(response):
    return [{field.tag: field.text or "" for field in d} for d in response if d.tag == "descriptors"]


def send(gw, device, command, version=1):
    """(result, handle) of a sendDeviceCmd of `command` (the XML of the choice)."""
    response = gw.call("<nsc3:sendDeviceCmd><options/><devPath>%s</devPath><cmd><cmdVersion>%d"
                       "</cmdVersion>%s</cmd></nsc3:sendDeviceCmd>" % (device, version, command),
                       user="operator")
    return response.findtext("result"), int(response.findtext("cmdHandle"))


def fetch(gw, device, handle):
    return gw.call("<nsc3:getDeviceCmdResult><options/><devPath>%s</devPath>"
                   "<cmdHandle>%d</cmdHandle></nsc3:getDeviceCmdResult>" % (device, handle))


class DeviceModelTest(GatewayTestCase):
    def tree(self, prefix, recursive):
        response = self.gw.call("<nsqv:getDeviceTree><options/><startingPath>%s</startingPath>"
                                "<bRecursive>%s</bRecursive></nsqv:getDeviceTree>"
                                % (prefix, str(recursive).lower()), user="guest")
        self.assertEqual(response.findtext("result"), "")
        return descriptors(response)

    def search(self, start, attribute, pattern):
        response = self.gw.call(
            "<nsqv:findAttributeMatches><options/><startingPath>%s</startingPath><bRecursive>true"
            "</bRecursive><attribMatch>%s</attribMatch><regexMatchPattern>%s</regexMatchPattern>"
            "</nsqv:findAttributeMatches>" % (start, attribute, pattern))
        return (response.findtext("result"), texts(response.find("nodes"), "string"),
                texts(response.find("data"), "string"))

    def test_the_demo_gateways_tree(self):
        everything = self.tree("/", True)
        self.assertEqual([d["devPath"] for d in everything],
                         ["/", "/AHU1", "/Meter1", "/Meter1/Submeter", "/Meter10"])
        self.assertEqual(everything[3], {
            "devPath": "/Meter1/Submeter", "devType": "Device", "devDisplayName": "Lighting Submeter",
            "devQuality": "192", "devChangeCount": "1",
            "devChangeTime": self.gw.get("/Meter1/Submeter/sDevChangeCount/Value.Time")})
        self.assertEqual([d["devPath"] for d in self.tree("/Meter1", False)],
                         ["/Meter1", "/Meter1/Submeter", "/Meter10"])
        self.assertEqual(self.tree("/Nothing", True), [])

    def test_descriptors_of_good_missing_and_automatic_leaves(self):
        response = self.gw.call(
            "<nsqv:getLeafDescriptors><options/><basePath>/Meter1/</basePath><leafPaths>"
            "<string>Voltage</string><string>Missing</string><string>Submeter:Children</string>"
            "</leafPaths></nsqv:getLeafDescriptors>", user="guest")
        self.assertEqual(response.findtext("result"), "OK")
        self.assertEqual(descriptors(response), [
            {"result": "230.4", "leafType": "LeafTypeNormal",
             "leafChangeTime": self.gw.get("/Meter1/Voltage/Value.Time")},
            {"result": "? 9 Node Not Found : CDS access failed", "leafChangeTime": "0",
             "leafType": "LeafTypeNormal"},
            {"result": "Online;Power;sDevChangeCount", "leafType": "LeafTypeAuto",
             "leafChangeTime": descriptors(response)[2]["leafChangeTime"]}])

    def test_searches_and_a_catastrophic_pattern(self):
        self.gw.cds("mkdir", "/Hostile/long", "/Hostile/short")
        self.gw.cds("set", "/Hostile/long/Text", "String", "a" * 40 + "b")
        self.gw.cds("set", "/Hostile/short/Text", "String", "aaaa")
        for start, attribute, pattern, expected in [
                ("/", "Units", "^k?W$", ("", ["/Meter1/DemandLimit", "/Meter1/Power",
                                              "/Meter1/Submeter/Power"], ["kW"] * 3)),
                ("/AHU1", "", "Off|Auto", ("", ["/AHU1/Fan", "/AHU1/Mode"], ["Off", "Auto"])),
                ("/", "Units", "parsecs", ("", [], [])),
                ("/", "Units", "(k", ("", [], [])),
                # Exponential for a backtracking matcher on the long text, which the library
                # abandons; the short text still matches, and the daemon serves on.
                ("/Hostile", "Text", "^(a+)+$", ("", ["/Hostile/short"], ["aaaa"]))]:
            with self.subTest(pattern=pattern):
                self.assertEqual(self.search(start, attribute, pattern), expected)
        self.assertEqual(self.gw.call("<nsqv:whoAmI/>", user="guest").findtext("result"), "guest")


class DeviceCommandRefusalTest(GatewayTestCase):
    """Refusals through the daemon, with no handler: queued commands stay queued."""

    def test_each_refusal_a_full_queue_and_an_unknown_handle(self):
        next_handle = self.gw.get("/Software/Commands/nextCommandID")
        unsupported = "? 29 Command Not Supported : No command support for this type"
        line = "<cmdLine>reset demand</cmdLine>"
        for device, command, version, expected in [
                ("/Meter10", line, 1, "? 29 Command Not Supported : /Meter10"),
                ("/Meter1/Submeter", line, 1, "? 30 Wrong Version : Wrong WSDL Version requested"),
                ("/Meter1", "<cmdLine>reboot</cmdLine>", 1, unsupported),
                ("/Meter1", "<cmdText><name>relay</name><param>open</param><num>1</num>"
                 "<psswd>0</psswd><text>x</text></cmdText>", 1, unsupported),
                ("/Meter1", "", 1, unsupported),
                ("", line, 1, "? 8 Bad Path Syntax : No device path given")]:
            with self.subTest(device=device, command=command):
                self.assertEqual(send(self.gw, device, command, version), (expected, 0))
        self.assertEqual(self.gw.get("/Software/Commands/nextCommandID"), next_handle)
        # /Meter1 takes two commands; nobody consumes them here.
        self.assertEqual(send(self.gw, "/Meter1", line), ("", 1))
        self.assertEqual(send(self.gw, "/Meter1", basic("relay", "open")), ("", 2))
        self.assertEqual(send(self.gw, "/Meter1", basic("relay", "close")),
                         ("? 31 Device Busy or Not Available : Input Queue already full", 0))
        response = fetch(self.gw, "/Meter1", 1)
        self.assertEqual([response.findtext(f) for f in ("result", "numericStatus", "cmdStatus")],
                         ["? 32 Handle Invalid or Expired : /Meter1 for cmd #1", "cmdFailHandle",
                          "No such cmdHandle exists, or its results were aged out"])


class DeviceCommandTest(GatewayTestCase):
    @classmethod
    def setUpClass(cls):
        super().setUpClass()
        try:
            cls.gw.start_handler()
        except BaseException:
            cls.gw.close()
            raise

    def round_trip(self, device, command):
        """(handle, getDeviceCmdResult answer) once the handler has answered."""
        result, handle = send(self.gw, device, command)
        self.assertEqual(result, "")

        def answered():
            # The demo handler writes the result whole: until then there is none.
            response = fetch(self.gw, device, handle)
            return response if response.findtext("numericStatus") != "cmdFailHandle" else None
        return handle, wait_until(answered, what="the handler's answer to #%d" % handle)

    def test_commands_run_on_the_devices_under_consecutive_handles(self):
        first, response = self.round_trip("/Meter1", "<cmdLine>reset demand</cmdLine>")
        self.assertEqual([response.findtext(f) for f in ("result", "cmdHandle", "numericStatus",
                                                         "cmdResults/resText")],
                         ["", str(first), "cmdSuccess", "reset demand: done"])
        # The handler consumed the command: only the capacity is left in the queue.
        self.assertEqual(self.gw.get("/Software/Commands/Meter1/inpQueue:Children"), "maxCount")
        second, response = self.round_trip("/Meter1", "<cmdIval><name>demandLimit</name><param>kW"
                                           "</param><num>1</num><psswd>0</psswd><iValue>300"
                                           "</iValue></cmdIval>")
        self.assertEqual(response.findtext("cmdResults/resText"), "demandLimit kW set to 300")
        third, response = self.round_trip("/AHU1", basic("fan", "start"))
        self.assertEqual([second, third], [first + 1, first + 2])
        self.assertEqual(int(self.gw.get("/Software/Commands/nextCommandID")), third + 1)
        # The demo's stored result is read as a handler writes it, without XML declaration.
        self.assertEqual(fetch(self.gw, "/AHU1", 0).findtext("cmdResults/resText"), "self test: passed")

    def test_a_meter_answers_its_harmonics(self):
        _, response = self.round_trip("/Meter1", basic("harmonics", "voltage"))
        harms = response.find("cmdResults/resHarms")
        self.assertEqual([harms.findtext("cdsName"), harms.findtext("displayName")],
                         ["/Meter1/Voltage", "Main Meter Voltage harmonics"])
        self.assertEqual([h.findtext("frequency") for h in harms.findall("hData")],
                         ["50", "150", "250", "350", "450", "550", "650"])
        self.assertAlmostEqual(float(harms.find("hData").findtext("magnitude")), 230.4, places=4)


class DemoHandlerTest(unittest.TestCase):
    """`cds handler --once` on a store holding hand-made queue entries, without a daemon."""

    def setUp(self):
        self.gw = Gateway()
        self.addCleanup(self.gw.close)

    def result(self, device_node, handle):
        return self.gw.get("/Software/Commands/%s/outQueue/%d" % (device_node, handle))

    def test_what_the_handler_does_not_know_is_invalid(self):
        command = ('<nsc3:sendCmd-s xmlns:nsc3="%s"><cmdVersion>%%d</cmdVersion>%%s</nsc3:sendCmd-s>'
                   % NS["nsc3"])
        for device_node, handle, text in [
                ("AHU1", 5, "not a command"),
                ("AHU1", 6, command % (2, "<cmdLine>self test</cmdLine>")),
                ("AHU1", 7, command % (1, "<cmdText><name>x</name><param>y</param><num>1</num>"
                                          "<psswd>0</psswd><text>z</text></cmdText>")),
                ("AHU1", 8, command % (1, basic("harmonics", "voltage"))),
                ("Meter1", 9, command % (1, basic("harmonics", "frequency"))),
                ("Meter1", 10, command % (1, "<cmdLine>clear energy</cmdLine>"))]:
            node = "/Software/Commands/%s/inpQueue/%d" % (device_node, handle)
            self.gw.cds("mkdir", node)
            self.gw.cds("set", node, "String", text)
        self.assertEqual(self.gw.cds("handler", "--once").stdout.splitlines(), [
            "#5 /AHU1: Unreadable command", "#6 /AHU1: Unknown command version 2",
            "#7 /AHU1: Unknown command", "#8 /AHU1: No Voltage to measure",
            "#9 /Meter1: Unknown command", "#10 /Meter1: Done"])
        for device_node, handle, status in [("AHU1", 5, "cmdFailInvalid"), ("AHU1", 7, "cmdFailInvalid"),
                                            ("AHU1", 8, "cmdFailUnable"), ("Meter1", 9, "cmdFailInvalid"),
                                            ("Meter1", 10, "cmdSuccess")]:
            self.assertIn("<cmdHandle>%d</cmdHandle><numericStatus>%s</numericStatus>"
                          % (handle, status), self.result(device_node, handle))
        self.assertEqual(self.gw.get("/Software/Commands/AHU1/inpQueue:Children"), "maxCount")

    def test_answers_are_aged_out(self):
        self.gw.cds("handler", "--once")
        self.assertIn("self test: passed", self.result("AHU1", 0))
        self.gw.set_clock_offset(3601)
        self.gw.cds("handler", "--once")
        self.assertEqual(self.gw.get("/Software/Commands/AHU1/outQueue:Children"), "")


if __name__ == "__main__":
    unittest.main()
