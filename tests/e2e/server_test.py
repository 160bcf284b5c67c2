"""The daemon as a process: start-up and stop, signals, detach, the command line, the socket
and its bounds, and the store it shares with other processes."""

import os
import signal
import socket
import subprocess
import tempfile
import threading
import time
import unittest

from wsgate_testlib import (APP_PATH as APP, NS, Gateway, GatewayTestCase, binary, body_of,
                            daemons_serving, envelope, fault_of, fcgi_message, fcgi_request,
                            read_fcgi_answer, wait_until)


class DispatchTest(GatewayTestCase):
    """The shape of every answer on the socket; the operations' own rows are in web_front_test."""

    demo = False

    def test_who_am_i_is_the_remote_user_and_empty_without_one(self):
        response = self.gw.request("<nsqv:whoAmI><options/></nsqv:whoAmI>", user="alice")
        self.assertTrue(response.raw.startswith(b"Status: 200 OK\r\n"), response.raw[:80])
        self.assertIn("text/xml", response.headers["content-type"])
        # No hop-by-hop header (the web server would close its client's connection), nor the
        # runtime's "Server", which would name its library to every caller.
        self.assertNotIn("connection", response.headers)
        self.assertNotIn("server", response.headers)
        self.assertEqual(list(body_of(response.xml()))[0].findtext("result"), "alice")
        # The variable is gone again after the request: an anonymous call sees nothing.
        self.assertEqual(self.gw.call("<nsqv:whoAmI/>").findtext("result"), "")

    def test_every_answer_declares_all_prefixes_and_unknown_operations_are_faults(self):
        # Any prefix bound to a namespace reaches its operation.
        answer = self.gw.call('<x:getDefaultLocale xmlns:x="%s"/>' % NS["nsc1"])
        self.assertEqual(answer.findtext("{%s}getDefaultLocaleResult" % NS["nsc1"]), "en-US")
        for body, fault in (("<nsqv:whoAmI/>", False), ("<nsc1:getDefaultLocale/>", False),
                            ("<nsc1:noSuchOperation/>", True), ("<nsqv:getValue/>", True),
                            ("<nsc1:getvalue/>", True)):
            with self.subTest(body=body):
                response = self.gw.request(body)
                raw = response.body.decode()
                for prefix in ("SOAP-ENV", "SOAP-ENC", "xsi", "xsd", "nst1", "nss1", "nsqv",
                               "nsc3", "nsc1"):
                    self.assertIn('xmlns:%s="' % prefix, raw)
                self.assertLess(raw.index("xmlns:nst1"), raw.index("xmlns:nsc1"))
                if fault:
                    code, text = fault_of(response)
                    self.assertIn("Client", code)
                    self.assertRegex(text, r"Method '.*' not implemented")
        self.assertEqual(self.gw.call("<nsqv:whoAmI/>", user="u").findtext("result"), "u")
        self.assertIn("Failed in soap processing; ", self.gw.stderr_text())


class HostileConnectionTest(GatewayTestCase):
    """Callers on the socket that do not speak FastCGI properly never stop the daemon."""

    demo = False

    def whoami(self):
        return self.gw.call("<nsqv:whoAmI/>", user="next").findtext("result")

    def connected(self, n):
        sockets = [socket.socket(socket.AF_UNIX) for _ in range(n)]
        for s in sockets:
            s.connect(self.gw.socket)
            s.settimeout(30)
        self.addCleanup(lambda: [s.close() for s in sockets])
        return sockets

    def test_callers_that_leave_or_send_garbage_are_dropped(self):
        for payload in (b"", b"GET / HTTP/1.0\r\n\r\n", b"\x01\x01\x00\x01\x00\x08\x00\x00"):
            with socket.socket(socket.AF_UNIX) as s:
                s.connect(self.gw.socket)
                s.sendall(payload)
            self.assertEqual(self.whoami(), "next")

    def test_more_silent_callers_than_the_daemon_keeps_make_room_oldest_first(self):
        idle = self.connected(70)
        self.assertEqual(self.whoami(), "next")
        self.assertEqual(idle[0].recv(1), b"")  # the oldest was closed to make room

    def test_a_caller_stalled_mid_body_gets_a_fault_at_its_deadline(self):
        staller, = self.connected(1)
        staller.sendall(fcgi_message(envelope("<nsqv:whoAmI/>"), {"REMOTE_USER": "s"})[:-60])
        self.assertIn("End of file or no input", fault_of(read_fcgi_answer(staller))[1])
        self.assertEqual(self.whoami(), "next")

    def test_idle_and_trickling_callers_hold_no_one_beyond_one_request_deadline(self):
        *_, trickler = self.connected(4)
        request = fcgi_message(envelope("<nsqv:whoAmI/>"), {"REMOTE_USER": "slow"})
        stop = threading.Event()

        def trickle():  # then a byte every half second, for longer than any deadline
            for byte in request[20:]:
                if stop.wait(0.5):
                    return
                try:
                    trickler.send(bytes([byte]))
                except OSError:
                    return
        thread = threading.Thread(target=trickle)
        trickler.sendall(request[:20])  # the start of a request: the daemon takes it up
        thread.start()
        try:
            start = time.monotonic()
            self.assertEqual(self.whoami(), "next")
            # One request's deadline (10 s) at most, plus room for a slow machine.
            self.assertLess(time.monotonic() - start, 15)
        finally:
            stop.set()
            thread.join()


class LifecycleTest(unittest.TestCase):
    """Start-up and stop of the foreground daemon (-d), whose status and output we read."""

    def setUp(self):
        self.gw = Gateway(demo=False, detached=False)
        self.addCleanup(self.gw.close)

    def test_status_is_published_and_sigterm_stops_cleanly(self):
        self.gw.start()
        self.assertEqual(self.gw.get(APP + "/AppStatus"), "4")
        self.assertEqual(self.gw.get(APP + "/AppError"), "0")
        self.assertIn("FCGI app listening at socket %s [0] \n" % self.gw.socket,
                      self.gw.stderr_text())
        self.assertEqual(self.gw.stop(signal.SIGTERM)[0], 0)
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

    def test_a_stop_signal_during_a_request_lets_it_finish_first(self):
        self.gw.start()
        message = fcgi_message(envelope("<nsqv:whoAmI/>"), {"REMOTE_USER": "last"})

        def waiting_in_read():  # system call 0 on this machine
            with open("/proc/%d/syscall" % self.gw.pid) as f:
                return f.read().startswith("0 ")
        with socket.socket(socket.AF_UNIX) as s:
            s.connect(self.gw.socket)
            s.sendall(message[:-40])
            wait_until(waiting_in_read, what="the daemon to wait for the rest of the request")
            self.gw.process.send_signal(signal.SIGTERM)
            s.sendall(message[-40:])
            answer = read_fcgi_answer(s)
        self.assertIn(b"<result>last</result>", answer.body)
        self.assertEqual(self.gw.stop()[0], 0)
        self.assertIn("Caught term signal", self.gw.stderr_text())

    def test_a_socket_or_store_that_cannot_be_opened(self):
        os.makedirs(os.path.join(self.gw.dir, "store"))  # a directory where a database should be
        not_a_socket = os.path.join(self.gw.dir, "notes.txt")
        with open(not_a_socket, "w") as f:
            f.write("kept")
        for name, env, status, err in [
                # The socket: the daemon stops in order, and leaves a file that is no socket.
                ("socket", dict(self.gw.env, WSGATED_SOCKET=os.path.join(self.gw.dir, "no", "s")),
                 0, r"Stopping \S*wsgated \n$"),
                ("file", dict(self.gw.env, WSGATED_SOCKET=not_a_socket), 0, r"Stopping \S*wsgated \n$"),
                ("store", dict(self.gw.env, CDS_PATH=os.path.join(self.gw.dir, "store")), 1,
                 r"^Error: CCds::init\(\) failed\n$")]:
            with self.subTest(name):
                result = subprocess.run([binary("wsgated"), "-d"], env=env, cwd=self.gw.dir,
                                        capture_output=True, text=True, timeout=30)
                self.assertEqual(result.returncode, status)
                self.assertRegex(result.stderr, err)
        self.assertEqual(self.gw.get(APP + "/AppStatus"), "2")
        with open(not_a_socket) as f:
            self.assertEqual(f.read(), "kept")

    def test_daemon_mode_detaches_and_stops_on_sigterm(self):
        result = subprocess.run([binary("wsgated")], env=self.gw.env, cwd=self.gw.dir,
                                capture_output=True, timeout=30)
        self.assertEqual(result.returncode, 0)
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
        self.gw = Gateway(detached=True).start()
        self.addCleanup(self.gw.close)

    def test_writes_cross_between_the_daemon_and_the_cds_tool(self):
        path = "/AHU1/Setpoint"
        self.gw.get(path + "/Value")  # the tool opens and closes the store once
        written = self.gw.call("<nsc1:setValue><nsc1:options>persist</nsc1:options><nsc1:path>"
                               "%s</nsc1:path><nsc1:value>21.5</nsc1:value></nsc1:setValue>"
                               % path, user="operator", addr="10.1.2.3")
        self.assertEqual(written.findtext("{%s}setValueResult" % NS["nsc1"]), "21.5")
        listing = self.gw.cds("get", "-l", path + "/Value").stdout
        self.assertRegex(listing, r"value:\s+21.5\n")
        self.assertRegex(listing, r"storage:\s+Persistent\n")
        self.assertRegex(listing, r"source:\s+Web-Services:operator@10.1.2.3\n")
        self.gw.cds("set", path + "/Value", "Real", "19.25")
        answer = self.gw.call("<nsc1:getValue><nsc1:path>%s</nsc1:path></nsc1:getValue>" % path)
        self.assertEqual(answer.findtext("{%s}getValueResult" % NS["nsc1"]), "19.25")
        for fd in os.listdir("/proc/%d/fd" % self.gw.pid):
            target = os.readlink("/proc/%d/fd/%s" % (self.gw.pid, fd))
            self.assertFalse(target.endswith("(deleted)"), target)
        self.gw.stop_cleanly()


class CommandLineTest(unittest.TestCase):
    """The parser has its cases in the unit tests; here, what the process makes of them:
    version and usage print and exit without touching any store."""

    def test_exit_status_and_output(self):
        usage_end = "\t -v: Print version information to stdout and exit\n\n"
        env = {k: v for k, v in os.environ.items() if k != "CDS_PATH"}
        for args, status, start, end in [
                (["-v"], 0, r"\S*wsgated: version 2\.0\.0\ngsoap: version 2\.7\.12\nBuild date: ",
                 "$Revision: 39934 $\n\n"),
                (["-z", "-v"], 0, r"Unknown parameter: -z \n\S*wsgated: version", "\n\n"),
                (["-m", "-5"], 1, r"Bad field: -5 \nUsage: wsgated \[-d\]", usage_end),
                (["what"], 1, r"Unknown parameter: what \nUsage: wsgated \[-d\]", usage_end)]:
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
