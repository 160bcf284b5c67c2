"""Device commands that really run: sent to the daemon, carried out by the demo's device
handler (`cds handler`, another process on the same store) and their results fetched back;
and the handler's own answers to what it does not know. The device model and each refusal
are the unit tests' (tests/unit/device_tree_test.cc, command_queue_test.cc and others)."""

import unittest

from wsgate_testlib import NS, Gateway, GatewayTestCase, wait_until


def basic(name, param):
    return ("<cmdBasic><name>%s</name><param>%s</param><num>1</num><psswd>0</psswd></cmdBasic>"
            % (name, param))


class DeviceCommandTest(GatewayTestCase):
    @classmethod
    def setUpClass(cls):
        super().setUpClass()
        try:
            cls.gw.start_handler()
        except BaseException:
            cls.gw.close()
            raise

    def fetch(self, device, handle):
        return self.gw.call("<nsc3:getDeviceCmdResult><options/><devPath>%s</devPath>"
                            "<cmdHandle>%d</cmdHandle></nsc3:getDeviceCmdResult>" % (device, handle))

    def round_trip(self, device, command):
        """(handle, getDeviceCmdResult answer) once the handler has answered."""
        sent = self.gw.call("<nsc3:sendDeviceCmd><options/><devPath>%s</devPath><cmd><cmdVersion>"
                            "1</cmdVersion>%s</cmd></nsc3:sendDeviceCmd>" % (device, command),
                            user="operator")
        self.assertEqual(sent.findtext("result"), "")
        handle = int(sent.findtext("cmdHandle"))

        def answered():
            # The demo handler makes the result's node before it writes the result: until
            # then the daemon finds no result (cmdFailHandle) or cannot read it (cmdFailOther).
            response = self.fetch(device, handle)
            return response if response.findtext("numericStatus") not in ("cmdFailHandle",
                                                                         "cmdFailOther") else None
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
        self.assertEqual(self.fetch("/AHU1", 0).findtext("cmdResults/resText"), "self test: passed")

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
