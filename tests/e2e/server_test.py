"""The daemon as a whole: start-up and stop, the command line, dispatch, faults and the
operations that need no store data."""

import os
import signal
import socket
import subprocess
import time
import unittest

from wsgate_testlib import (NS, SOAP12, Gateway, GatewayTestCase, binary, body_of,
                            envelope, fault_of, fcgi_request, wait_until)

APP = "/Software/Data Servers/BACnet WebServices"


class DispatchTest(GatewayTestCase):
    demo = False

    def test_who_am_i_is_the_remote_user_and_empty_without_one(self):
        self.assertEqual(self.gw.call("<nsqv:whoAmI><options/></nsqv:whoAmI>", user="alice")
                         .findtext("result"), "alice")
        # The variable is gone again after the request: an anonymous call sees nothing.
        self.assertEqual(self.gw.call("<nsqv:whoAmI/>").findtext("result"), "")

    def test_local_and_utc_time(self):
        before = int(time.time() * 1000)
        answer = self.gw.call("<nsqv:getLocalAndUtcTime><options/></nsqv:getLocalAndUtcTime>")
        after = int(time.time() * 1000)
        self.assertEqual(answer.tag, "{%s}getLocalAndUtcTimeResponse" % NS["nsqv"])
        self.assertEqual([c.tag for c in answer], ["result", "utcTime", "localTime", "timezone"])
        self.assertEqual(answer.findtext("result") or "", "")
        self.assertTrue(before <= int(answer.findtext("utcTime")) <= after)
        offset = int(answer.findtext("localTime")) - int(answer.findtext("utcTime"))
        self.assertLess(abs(offset), 15 * 3600 * 1000)
        self.assertTrue(answer.findtext("timezone"))

    def test_locales(self):
        default = self.gw.call("<nsc1:getDefaultLocale><nsc1:options>locale=fr</nsc1:options>"
                               "</nsc1:getDefaultLocale>")
        self.assertEqual(default.findtext("{%s}getDefaultLocaleResult" % NS["nsc1"]), "en-US")
        supported = self.gw.call("<nsc1:getSupportedLocales/>")
        items = supported.findall("{%(nsc1)s}getSupportedLocalesResult/{%(nsc1)s}string" % NS)
        self.assertEqual([i.text for i in items], ["en-US"])

    def test_min_avg_max_is_always_a_server_fault(self):
        for body in ("<nsqv:getMinAvgMaxValues/>",
                     "<nsqv:getMinAvgMaxValues><options/><paths><string>/A</string></paths>"
                     "<startTime>1</startTime><endTime>2</endTime>"
                     "<ratePeriod>RatePeriodA</ratePeriod></nsqv:getMinAvgMaxValues>"):
            response = self.gw.request(body)
            _, text = fault_of(response)
            self.assertEqual(text, "Server fault")
            self.assertEqual(response.status, 500)

    def test_any_prefix_bound_to_a_namespace_reaches_its_operation(self):
        body = '<x:getDefaultLocale xmlns:x="%s"/>' % NS["nsc1"]
        answer = self.gw.call(body)
        self.assertEqual(answer.findtext("{%s}getDefaultLocaleResult" % NS["nsc1"]), "en-US")

    def test_soap_12_envelope_is_accepted(self):
        response = self.gw.request("<nsqv:whoAmI/>", user="bob", version=SOAP12)
        self.assertIsNone(fault_of(response))
        answer = list(body_of(response.xml()))[0]
        self.assertEqual(answer.findtext("result"), "bob")

    def test_unknown_operations_are_faults_and_the_daemon_goes_on(self):
        for body in ("<nsc1:noSuchOperation/>", "<nsqv:getValue/>", "<nsc1:getvalue/>"):
            code, text = fault_of(self.gw.request(body))
            self.assertIn("Client", code)
            self.assertRegex(text, r"Method '.*' not implemented")
        self.assertIn("Failed in soap processing; ", self.gw.stderr_text())
        self.assertEqual(self.gw.call("<nsqv:whoAmI/>", user="u").findtext("result"), "u")

    def test_malformed_messages_are_faults(self):
        bad = [b"", b"not xml at all", b"<a><b></a>",
               envelope("<nsqv:whoAmI>")[:-30],
               b'<Envelope xmlns="urn:not-soap"><Body><whoAmI/></Body></Envelope>']
        for data in bad:
            response = self.gw.request(data, raw=True)
            self.assertIsNotNone(fault_of(response), data)
        self.assertEqual(self.gw.call("<nsqv:whoAmI/>", user="u").findtext("result"), "u")

    def test_every_response_declares_all_nine_prefixes(self):
        for body in ("<nsqv:whoAmI/>", "<nsc1:getDefaultLocale/>", "<nsc1:nothing/>"):
            raw = self.gw.request(body).body.decode()
            for prefix in ("SOAP-ENV", "SOAP-ENC", "xsi", "xsd", "nst1", "nss1", "nsqv", "nsc3",
                           "nsc1"):
                self.assertIn('xmlns:%s="' % prefix, raw)
            self.assertLess(raw.index("xmlns:nst1"), raw.index("xmlns:nsc1"))

    def test_operations_not_built_yet_answer_not_implemented(self):
        _, text = fault_of(self.gw.request("<nsc3:sendDeviceCmd/>"))
        self.assertEqual(text, "Method 'nsc3:sendDeviceCmd' not implemented: method name or "
                         "namespace not recognized")

    def test_responses_are_cgi_style(self):
        response = self.gw.request("<nsqv:whoAmI/>")
        self.assertTrue(response.raw.startswith(b"Status: 200 OK\r\n"), response.raw[:80])
        self.assertIn("text/xml", response.headers["content-type"])


class HostileConnectionTest(GatewayTestCase):
    """Callers on the socket that do not speak FastCGI properly never stop the daemon."""

    demo = False

    def whoami(self):
        return self.gw.call("<nsqv:whoAmI/>", user="next").findtext("result")

    def test_callers_that_leave_or_send_garbage_are_dropped(self):
        for payload in (b"", b"GET / HTTP/1.0\r\n\r\n", b"\x01\x01\x00\x01\x00\x08\x00\x00"):
            with socket.socket(socket.AF_UNIX) as s:
                s.connect(self.gw.socket)
                s.sendall(payload)
            self.assertEqual(self.whoami(), "next")

    def test_a_caller_that_stalls_mid_request_is_dropped_after_a_bounded_wait(self):
        with socket.socket(socket.AF_UNIX) as staller:
            staller.connect(self.gw.socket)
            staller.sendall(b"\x01\x01\x00\x01\x00\x08\x00\x00")  # a header, no content
            start = time.monotonic()
            self.assertEqual(self.whoami(), "next")
            self.assertLess(time.monotonic() - start, 25)


class LifecycleTest(unittest.TestCase):
    def setUp(self):
        self.gw = Gateway(demo=False)

    def tearDown(self):
        self.gw.close()

    def test_status_is_published_and_sigterm_stops_cleanly(self):
        self.gw.start()
        self.assertEqual(self.gw.get(APP + "/AppStatus"), "4")
        self.assertEqual(self.gw.get(APP + "/AppError"), "0")
        self.assertIn("FCGI app listening at socket %s [0] \n" % self.gw.socket,
                      self.gw.stderr_text())
        status, _ = self.gw.stop(signal.SIGTERM)
        self.assertEqual(status, 0)
        err = self.gw.stderr_text()
        self.assertIn("Caught term signal, exiting soap_serve loop now...\n", err)
        self.assertRegex(err, r"Stopping \S*wsgated \n")
        self.assertEqual(self.gw.get(APP + "/AppStatus"), "2")

    def test_sigquit_prints_a_back_trace_and_exits_3(self):
        self.gw.start()
        status, out = self.gw.stop(signal.SIGQUIT)
        self.assertEqual(status, 3)
        self.assertIn("###### BACK TRACE START (Quit) ######", out)
        self.assertIn("###### BACK TRACE END (Quit) ######", out)
        self.assertRegex(out, r"\[0\] .*\[0x[0-9a-f]+\]")
        # The status stays as it was: a crash is not an orderly stop.
        self.assertEqual(self.gw.get(APP + "/AppStatus"), "4")

    def test_a_store_that_cannot_be_opened_stops_the_start(self):
        os.makedirs(self.gw.store)  # a directory where the database file should be
        result = subprocess.run([binary("wsgated"), "-d"], env=self.gw.env, cwd=self.gw.dir,
                                capture_output=True, text=True, timeout=30)
        self.assertEqual(result.returncode, 1)
        self.assertEqual(result.stderr, "Error: CCds::init() failed\n")

    def test_daemon_mode_detaches_and_stops_on_sigterm(self):
        result = subprocess.run([binary("wsgated")], env=self.gw.env, cwd=self.gw.dir,
                                capture_output=True, timeout=30)
        self.assertEqual(result.returncode, 0)
        # The daemon registered its watchdog and serves on the socket.
        wait_until(lambda: os.path.exists(self.gw.socket), what="the daemon's socket")
        response = fcgi_request(self.gw.socket, envelope("<nsqv:whoAmI/>"), {"REMOTE_USER": "d"})
        self.assertIn(b"<result>d</result>", response.body)
        pids = daemons_serving(self.gw.socket)
        self.assertEqual(len(pids), 1)
        os.kill(pids[0], signal.SIGTERM)
        wait_until(lambda: not daemons_serving(self.gw.socket), what="the daemon to stop")
        self.assertEqual(self.gw.get(APP + "/AppStatus"), "2")


def daemons_serving(socket_path):
    """Process ids of the wsgated processes whose environment names `socket_path`."""
    marker = ("WSGATED_SOCKET=" + socket_path).encode()
    pids = []
    for entry in os.listdir("/proc"):
        if not entry.isdigit():
            continue
        try:
            with open("/proc/%s/cmdline" % entry, "rb") as f:
                argv0 = f.read().split(b"\0")[0]
            with open("/proc/%s/environ" % entry, "rb") as f:
                environ = f.read().split(b"\0")
        except OSError:
            continue
        if argv0.endswith(b"wsgated") and marker in environ:
            pids.append(int(entry))
    return pids


class CommandLineTest(unittest.TestCase):
    def run_wsgated(self, *args):
        return subprocess.run([binary("wsgated")] + list(args), capture_output=True, text=True,
                              timeout=30, env=dict(os.environ, CDS_PATH="/nonexistent/cds.db"))

    def test_version(self):
        result = self.run_wsgated("-v")
        self.assertEqual(result.returncode, 0)
        lines = result.stdout.split("\n")
        self.assertRegex(lines[0], r"wsgated: version 2\.0\.0$")
        self.assertRegex(lines[1], r"^gsoap: version 2\.8\.\d+$")
        self.assertRegex(lines[2], r"^Build date: \w{3} [ \d]\d \d{4} \d\d:\d\d:\d\d$")
        self.assertEqual(lines[3:], ["$Revision: 39934 $", "", ""])

    def test_version_after_an_unknown_argument(self):
        result = self.run_wsgated("-z", "-v")
        self.assertEqual(result.returncode, 0)
        self.assertTrue(result.stdout.startswith("Unknown parameter: -z \n"))
        self.assertIn(": version 2.0.0\n", result.stdout)

    def test_usage_errors_exit_1_with_the_usage(self):
        cases = [(["-m"], "Missing field for: -m \n", ""),
                 (["-m", "-5"], "Bad field: -5 \n", ""),
                 (["-c", "0"], "Bad field: 0 \n", "Error: invalid cache size: 0\n"),
                 (["what"], "Unknown parameter: what \n", "")]
        for args, first, err in cases:
            result = self.run_wsgated(*args)
            self.assertEqual(result.returncode, 1, args)
            self.assertTrue(result.stdout.startswith(first + "Usage: wsgated [-d]"), result.stdout)
            self.assertTrue(result.stdout.endswith("\t -v: Print version information to stdout "
                                                   "and exit\n\n"))
            self.assertEqual(result.stderr, err)


if __name__ == "__main__":
    unittest.main()
