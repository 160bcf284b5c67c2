"""The daemon as a whole: start-up and stop, the command line, dispatch, faults and the
operations that need no store data."""

import os
import signal
import socket
import subprocess
import tempfile
import threading
import time
import unittest

from wsgate_testlib import (NS, Gateway, GatewayTestCase, binary, body_of, daemons_serving,
                            envelope, fault_of, fcgi_message, fcgi_request, read_fcgi_answer,
                            wait_until)

APP = "/Software/Data Servers/BACnet WebServices"


class DispatchTest(GatewayTestCase):
    """Dispatch and the shape of every answer; the operations' own rows are in web_front_test."""

    demo = False

    def test_who_am_i_is_the_remote_user_and_empty_without_one(self):
        response = self.gw.request("<nsqv:whoAmI><options/></nsqv:whoAmI>", user="alice")
        self.assertTrue(response.raw.startswith(b"Status: 200 OK\r\n"), response.raw[:80])
        self.assertIn("text/xml", response.headers["content-type"])
        # No hop-by-hop header: the web server would close its client's connection.
        self.assertNotIn("connection", response.headers)
        # Nor the runtime's "Server", which would name its library to every caller.
        self.assertNotIn("server", response.headers)
        self.assertEqual(list(body_of(response.xml()))[0].findtext("result"), "alice")
        # The variable is gone again after the request: an anonymous call sees nothing.
        self.assertEqual(self.gw.call("<nsqv:whoAmI/>").findtext("result"), "")

    def test_local_and_utc_time(self):
        before = int(time.time() * 1000)
        answer = self.gw.call("<nsqv:getLocalAndUtcTime><options/></nsqv:getLocalAndUtcTime>")
        after = int(time.time() * 1000)
        self.assertEqual([c.tag for c in answer], ["result", "utcTime", "localTime", "timezone"])
        self.assertTrue(before <= int(answer.findtext("utcTime")) <= after)
        offset = int(answer.findtext("localTime")) - int(answer.findtext("utcTime"))
        self.assertLess(abs(offset), 15 * 3600 * 1000)

    def test_any_prefix_bound_to_a_namespace_reaches_its_operation(self):
        answer = self.gw.call('<x:getDefaultLocale xmlns:x="%s"/>' % NS["nsc1"])
        self.assertEqual(answer.findtext("{%s}getDefaultLocaleResult" % NS["nsc1"]), "en-US")

    def test_unknown_operations_are_faults_and_the_daemon_goes_on(self):
        for body in ("<nsc1:noSuchOperation/>", "<nsqv:getValue/>", "<nsc1:getvalue/>"):
            code, text = fault_of(self.gw.request(body))
            self.assertIn("Client", code)
            self.assertRegex(text, r"Method '.*' not implemented")
        self.assertIn("Failed in soap processing; ", self.gw.stderr_text())
        self.assertEqual(self.gw.call("<nsqv:whoAmI/>", user="u").findtext("result"), "u")

    def test_every_response_declares_all_nine_prefixes(self):
        for body in ("<nsqv:whoAmI/>", "<nsc1:getDefaultLocale/>", "<nsc1:nothing/>"):
            raw = self.gw.request(body).body.decode()
            for prefix in ("SOAP-ENV", "SOAP-ENC", "xsi", "xsd", "nst1", "nss1", "nsqv", "nsc3",
                           "nsc1"):
                self.assertIn('xmlns:%s="' % prefix, raw)
            self.assertLess(raw.index("xmlns:nst1"), raw.index("xmlns:nsc1"))


class ConnectionRegistryTest(GatewayTestCase):
    """Callers are published under the Connections node by the sweep and withdrawn after ten
    minutes; the daemon's clock is moved through its test-clock file instead of waiting."""

    demo = False
    CONNECTIONS = APP + "/Connections"

    def children(self):
        return [n for n in self.gw.get(self.CONNECTIONS + ":Children").split(";") if n]

    def sweep_at(self, offset):
        """Moves the clock and sends a request after which the loop runs its sweep."""
        self.gw.set_clock_offset(offset)
        self.gw.request("<nsqv:whoAmI/>")

    def test_callers_are_published_and_time_out(self):
        self.gw.cds("mkdir", self.CONNECTIONS + "/99")  # left over from an earlier run
        self.gw.request("<nsqv:whoAmI/>", user="op", addr="127.0.0.1")
        self.gw.request("<nsqv:whoAmI/>", user="admin", addr="127.0.0.1", https="on")
        self.gw.request("<nsqv:whoAmI/>", user="op", addr="127.0.0.1")  # same caller again
        # The sweep runs after the response has gone out: wait for its writes.
        self.sweep_at(61)
        wait_until(lambda: sorted(self.children()) == ["1", "2S"], what="the published callers")
        self.assertEqual(self.gw.get(self.CONNECTIONS + "/2S/User"), "admin")
        err = self.gw.stderr_text()
        self.assertIn("New wsgated connection 1 for 127.0.0.1op \n", err)
        self.assertIn("New wsgated connection 2S for 127.0.0.1adminS \n", err)
        self.assertIn("Unexpected removal of connection %s 99 \n" % self.CONNECTIONS, err)

        self.sweep_at(61 + 60 + 601)
        wait_until(lambda: self.children() == [], what="the callers to time out")
        self.assertIn("Timed out connection 2S for 127.0.0.1 \n", self.gw.stderr_text())


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

    def test_more_silent_callers_than_the_daemon_keeps_make_room_oldest_first(self):
        idle = [socket.socket(socket.AF_UNIX) for _ in range(70)]
        try:
            for s in idle:
                s.connect(self.gw.socket)
                s.settimeout(30)
            self.assertEqual(self.whoami(), "next")
            self.assertEqual(idle[0].recv(1), b"")  # the oldest was closed to make room
        finally:
            for s in idle:
                s.close()

    def test_a_caller_stalled_mid_body_gets_a_fault_at_its_deadline(self):
        message = fcgi_message(envelope("<nsqv:whoAmI/>"), {"REMOTE_USER": "stalled"})
        with socket.socket(socket.AF_UNIX) as staller:
            staller.connect(self.gw.socket)
            staller.sendall(message[:-60])
            staller.settimeout(30)
            self.assertIn("End of file or no input", fault_of(read_fcgi_answer(staller))[1])
        self.assertEqual(self.whoami(), "next")

    def test_idle_and_trickling_callers_hold_no_one_beyond_one_request_deadline(self):
        idle = [socket.socket(socket.AF_UNIX) for _ in range(3)]
        trickler = socket.socket(socket.AF_UNIX)
        stop = threading.Event()

        request = fcgi_message(envelope("<nsqv:whoAmI/>"), {"REMOTE_USER": "slow"})

        def trickle():  # then a byte every half second, for longer than any deadline
            for byte in request[20:]:
                if stop.wait(0.5):
                    return
                try:
                    trickler.send(bytes([byte]))
                except OSError:
                    return
        thread = threading.Thread(target=trickle)
        try:
            for s in idle + [trickler]:
                s.connect(self.gw.socket)
            trickler.sendall(request[:20])  # the start of a request: the daemon takes it up
            thread.start()
            start = time.monotonic()
            self.assertEqual(self.whoami(), "next")
            # One request's deadline (10 s) at most, plus room for a slow machine.
            self.assertLess(time.monotonic() - start, 15)
        finally:
            stop.set()
            thread.join()
            for s in idle + [trickler]:
                s.close()


class LifecycleTest(unittest.TestCase):
    """Start-up and stop of the foreground daemon (-d), whose status and output we read."""

    def setUp(self):
        self.gw = Gateway(demo=False, detached=False)

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

    def system_call(self):
        with open("/proc/%d/syscall" % self.gw.pid) as f:
            return f.read()

    def test_a_stop_signal_during_a_request_lets_it_finish_first(self):
        self.gw.start()
        message = fcgi_message(envelope("<nsqv:whoAmI/>"), {"REMOTE_USER": "last"})
        with socket.socket(socket.AF_UNIX) as s:
            s.connect(self.gw.socket)
            s.sendall(message[:-40])
            # The daemon waits in read() for the rest (system call 0 on this machine).
            wait_until(lambda: self.system_call().startswith("0 "),
                       what="the daemon to wait for the rest of the request")
            self.gw.process.send_signal(signal.SIGTERM)
            s.sendall(message[-40:])
            answer = read_fcgi_answer(s)
        self.assertIn(b"<result>last</result>", answer.body)
        status, _ = self.gw.stop()
        self.assertEqual(status, 0)
        self.assertIn("Caught term signal", self.gw.stderr_text())

    def test_a_socket_that_cannot_be_opened_stops_in_order(self):
        env = dict(self.gw.env, WSGATED_SOCKET=os.path.join(self.gw.dir, "missing", "socket"))
        result = subprocess.run([binary("wsgated"), "-d"], env=env, cwd=self.gw.dir,
                                capture_output=True, text=True, timeout=30)
        self.assertEqual(result.returncode, 0)
        self.assertRegex(result.stderr, r"Stopping \S*wsgated \n$")
        self.assertEqual(self.gw.get(APP + "/AppStatus"), "2")

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


class DetachedSharedStoreTest(unittest.TestCase):
    """The detached daemon shares its store with the other processes of the gateway: each
    side sees what the other wrote after it opened and closed the store."""

    def setUp(self):
        self.gw = Gateway(detached=True)
        self.gw.start()

    def tearDown(self):
        try:
            self.gw.stop_cleanly()
        finally:
            self.gw.close()

    def value(self, path):
        answer = self.gw.call("<nsc1:getValue><nsc1:path>%s</nsc1:path></nsc1:getValue>" % path)
        return answer.findtext("{%s}getValueResult" % NS["nsc1"])

    def test_writes_cross_between_the_daemon_and_the_cds_tool(self):
        path = "/AHU1/Setpoint"
        self.gw.get(path + "/Value")  # the tool opens and closes the store once
        written = self.gw.call("<nsc1:setValue><nsc1:path>%s</nsc1:path><nsc1:value>21.5"
                               "</nsc1:value></nsc1:setValue>" % path, user="operator")
        self.assertEqual(written.findtext("{%s}setValueResult" % NS["nsc1"]), "21.5")
        self.assertEqual(self.gw.get(path + "/Value"), "21.5")
        self.gw.cds("set", path + "/Value", "Real", "19.25")
        self.assertEqual(self.value(path), "19.25")
        for fd in os.listdir("/proc/%d/fd" % self.gw.pid):
            target = os.readlink("/proc/%d/fd/%s" % (self.gw.pid, fd))
            self.assertFalse(target.endswith("(deleted)"), target)


class CommandLineTest(unittest.TestCase):
    """The parser has its cases in the unit tests; here, what the process makes of them."""

    def test_exit_status_and_output(self):
        """Version and usage print and exit without touching any store."""
        usage_end = "\t -v: Print version information to stdout and exit\n\n"
        for args, status, start, end in [
                (["-v"], 0, r"\S*wsgated: version 2\.0\.0\ngsoap: version 2\.7\.12\nBuild date: ",
                 "$Revision: 39934 $\n\n"),
                (["-z", "-v"], 0, r"Unknown parameter: -z \n\S*wsgated: version", "\n\n"),
                (["-m", "-5"], 1, r"Bad field: -5 \nUsage: wsgated \[-d\]", usage_end),
                (["what"], 1, r"Unknown parameter: what \nUsage: wsgated \[-d\]", usage_end)]:
            env = {k: v for k, v in os.environ.items() if k != "CDS_PATH"}
            with self.subTest(args=args), tempfile.TemporaryDirectory() as cwd:
                result = subprocess.run([binary("wsgated")] + args, capture_output=True, text=True,
                                        timeout=30, cwd=cwd, env=env)
                self.assertEqual(os.listdir(cwd), [])
                self.assertEqual(result.returncode, status)
                self.assertRegex(result.stdout, "^" + start)
                self.assertTrue(result.stdout.endswith(end), result.stdout)
                self.assertEqual(result.stderr, "")


if __name__ == "__main__":
    unittest.main()
