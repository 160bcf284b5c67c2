"""Shared fixtures of the end-to-end tests: a temporary gateway (store, socket, logs), the real
daemon started on it, a FastCGI client that talks to its socket as the web server does, SOAP
envelope helpers and lighttpd in front. Everything started is stopped again, and nothing
waits for a fixed time: readiness is polled."""

import glob
import os
import pathlib
import shutil
import signal
import socket
import struct
import subprocess
import tempfile
import time
import unittest
import xml.etree.ElementTree as ET
from xml.sax.saxutils import escape

BIN_DIR = os.environ.get("WSGATE_BIN_DIR", "")
SOURCE_DIR = os.environ.get(
    "WSGATE_SOURCE_DIR", os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__)))))

NS = dict({"SOAP-ENV": "http://schemas.xmlsoap.org/soap/envelope/",
           "SOAP-ENV12": "http://www.w3.org/2003/05/soap-envelope"},
          **{prefix: "http://wsgate.local/ws/BACnetWSKite" + suffix for prefix, suffix in (
              ("nst1", "Test"), ("nss1", "Subscriber"), ("nsqv", "QV"), ("nsc3", "C3"), ("nsc1", ""))})
SOAP11 = NS["SOAP-ENV"]
SOAP12 = NS["SOAP-ENV12"]
# What AddressSanitizer, LeakSanitizer and UndefinedBehaviorSanitizer write on a finding.
SANITIZER_MARKS = ("ERROR: AddressSanitizer", "ERROR: LeakSanitizer", ": runtime error: ")
# The node under which the daemon publishes its status.
APP_PATH = "/Software/Data Servers/BACnet WebServices"
# Set by CTest for the "detached" run of an end-to-end file: every Gateway then runs the
# daemon as a gateway does, detached (no -d), instead of in the foreground.
DETACHED = os.environ.get("WSGATE_E2E_DETACHED") == "1"


def binary(name):
    path = os.path.join(BIN_DIR, name)
    if not os.access(path, os.X_OK):
        raise unittest.SkipTest("%s is not built (WSGATE_BIN_DIR=%r)" % (name, BIN_DIR))
    return path


def wait_until(predicate, timeout=20.0, what="condition"):
    """Polls `predicate` until it returns something true; fails after `timeout` seconds."""
    deadline = time.monotonic() + timeout
    delay = 0.002
    while True:
        value = predicate()
        if value:
            return value
        if time.monotonic() > deadline:
            raise AssertionError("timed out waiting for " + what)
        time.sleep(delay)
        delay = min(delay * 2, 0.05)


# --- FastCGI client ---------------------------------------------------------------------------

_FCGI_BEGIN, _FCGI_END, _FCGI_PARAMS, _FCGI_STDIN, _FCGI_STDOUT = 1, 3, 4, 5, 6


def _record(kind, content):
    # Records carry at most 65535 bytes; empty content ends a stream. Joined once, so that
    # a body of many megabytes costs no more than its size.
    chunks = [content[i:i + 65535] for i in range(0, len(content), 65535)] or [b""]
    return b"".join(struct.pack(">BBHHBx", 1, kind, 1, len(chunk), 0) + chunk for chunk in chunks)


def _name_value(name, value):
    def length(n):
        return struct.pack(">B", n) if n < 128 else struct.pack(">I", n | 0x80000000)
    name, value = name.encode(), value.encode()
    return length(len(name)) + length(len(value)) + name + value


class FcgiResponse:
    def __init__(self, raw):
        self.raw = raw
        head, _, self.body = raw.partition(b"\r\n\r\n")
        self.headers = {}
        for line in head.decode("latin-1").split("\r\n"):
            name, _, value = line.partition(":")
            self.headers[name.strip().lower()] = value.strip()
        self.status = int(self.headers.get("status", "200").split()[0])

    def xml(self):
        return ET.fromstring(self.body)


def fcgi_message(body, params=None):
    """The bytes of one FastCGI request (POST with `body`) as a web server sends them."""
    env = {"REQUEST_METHOD": "POST", "CONTENT_TYPE": "text/xml; charset=utf-8",
           "CONTENT_LENGTH": str(len(body)), "SCRIPT_NAME": "/ws", "SERVER_PROTOCOL": "HTTP/1.1"}
    env.update(params or {})
    payload = b"".join(_name_value(k, v) for k, v in env.items() if v is not None)
    return (_record(_FCGI_BEGIN, struct.pack(">HB5x", 1, 0)) + _record(_FCGI_PARAMS, payload)
            + _record(_FCGI_PARAMS, b"") + _record(_FCGI_STDIN, body) + _record(_FCGI_STDIN, b""))


def read_fcgi_answer(s):
    """Reads the answer to a request sent on socket `s`; returns the FcgiResponse."""
    stdout, ended, buffer = [], False, b""
    while not ended:
        try:
            data = s.recv(65536)
        except ConnectionResetError:
            data = b""
        if not data:
            break
        buffer += data
        while len(buffer) >= 8:
            _, kind, _, length, padding = struct.unpack(">BBHHB", buffer[:7])
            if len(buffer) < 8 + length + padding:
                break
            if kind == _FCGI_STDOUT:
                stdout.append(buffer[8:8 + length])
            buffer = buffer[8 + length + padding:]
            ended = ended or kind == _FCGI_END
    return FcgiResponse(b"".join(stdout))


def fcgi_request(socket_path, body, params=None, timeout=30.0):
    """Sends one FastCGI request (POST with `body`) and returns the FcgiResponse."""
    with socket.socket(socket.AF_UNIX, socket.SOCK_STREAM) as s:
        # Connected in blocking mode: a full listening queue then waits for room, as a web
        # server's connect does, where a time-out would make it fail at once.
        s.connect(socket_path)
        s.settimeout(timeout)
        try:
            s.sendall(fcgi_message(body, params))
        except (BrokenPipeError, ConnectionResetError):
            pass  # the application may answer before reading a huge body
        return read_fcgi_answer(s)


# --- SOAP envelopes ---------------------------------------------------------------------------

def envelope(body_xml):
    """A SOAP 1.1 envelope around `body_xml`, which may use the prefixes nsc1, nst1, nsc3, nsqv."""
    decls = " ".join('xmlns:%s="%s"' % (p, NS[p]) for p in ("nsc1", "nst1", "nsc3", "nsqv"))
    return ('<?xml version="1.0" encoding="UTF-8"?>'
            '<SOAP-ENV:Envelope xmlns:SOAP-ENV="%s" %s><SOAP-ENV:Body>%s</SOAP-ENV:Body>'
            '</SOAP-ENV:Envelope>' % (SOAP11, decls, body_xml)).encode()


def text_element(name, value):
    return "" if value is None else "<%s>%s</%s>" % (name, escape(value), name)


def body_of(root):
    for version in (SOAP11, SOAP12):
        body = root.find("{%s}Body" % version)
        if body is not None:
            return body
    raise AssertionError("no SOAP body in " + ET.tostring(root, encoding="unicode"))


def fault_of(response):
    """The (code, text) of a SOAP fault response, or None when the response is not a fault."""
    body = body_of(response.xml())
    fault = body.find("{%s}Fault" % SOAP11)
    if fault is not None:
        return fault.findtext("faultcode"), fault.findtext("faultstring")
    fault = body.find("{%s}Fault" % SOAP12)
    if fault is not None:
        return (fault.findtext("{%s}Code/{%s}Value" % (SOAP12, SOAP12)),
                fault.findtext("{%s}Reason/{%s}Text" % (SOAP12, SOAP12)))
    return None


# --- The gateway under test -------------------------------------------------------------------

class Gateway:
    """A temporary store and logs (with the demo: the demo's history), the `cds` tool on
    them and the daemon serving them: in the foreground (-d) as our child, or, with `detached`
    (default: the WSGATE_E2E_DETACHED run), detached as in production, its standard error
    /dev/null (the tests that read it are skipped) and its sanitizer reports in files."""

    def __init__(self, demo=True, detached=None):
        self.dir = tempfile.mkdtemp(prefix="wsgate-e2e-")
        self.detached = DETACHED if detached is None else detached
        self.store = os.path.join(self.dir, "cds.db")
        self.socket = os.path.join(self.dir, "wsgated.socket")
        self.process = self.pid = self.handler = None
        # A command that starts the daemon's command line given after it (for example in a
        # namespace of its own); empty: the daemon is started directly.
        self.launcher = []
        self.stderr_path = os.path.join(self.dir, "stderr.log")
        self.clock_file = os.path.join(self.dir, "clock")
        self.env = dict(os.environ, CDS_PATH=self.store, WSGATED_SOCKET=self.socket,
                        WSGATE_TEST_CLOCK=self.clock_file)
        if self.detached:
            for name in ("ASAN_OPTIONS", "UBSAN_OPTIONS"):
                options = self.env.get(name, "")
                self.env[name] = (options + ":" if options else "") + "log_path=" + os.path.join(
                    self.dir, "sanitizer")
        # The daemon's four log databases (-h, -a, -s, -t); the demo writes its history there.
        self.logs = {option: os.path.join(self.dir, name) for option, name in
                     (("-h", "deadband.db"), ("-a", "alarms.db"), ("-s", "system.db"),
                      ("-t", "interval-trends.db"))}
        if demo:
            self.cds("demo", "--logs", self.dir)

    def cds(self, *args, check=True, input=None):
        """Runs the cds tool on this gateway's store; returns the CompletedProcess."""
        result = subprocess.run([binary("cds")] + list(args), env=self.env, input=input,
                                capture_output=True, text=True, timeout=60)
        if check and result.returncode != 0:
            raise AssertionError("cds %s failed (%d): %s" % (" ".join(args), result.returncode,
                                                             result.stderr))
        return result

    def get(self, path):
        return self.cds("get", path).stdout.rstrip("\n")

    def start(self, *args):
        """Starts the daemon in the directory, with this gateway's logs (`args` may name
        others: a later option wins), and waits until it accepts connections."""
        args = [arg for option, path in self.logs.items() for arg in (option, path)] + list(args)
        if self.detached:
            result = subprocess.run(self.launcher + [binary("wsgated")] + args,
                                    cwd=self.dir, env=self.env, capture_output=True, timeout=30)
            if result.returncode != 0:
                raise AssertionError("wsgated exited with %d: %r" % (result.returncode,
                                                                     result.stdout))
            self.pid = wait_until(lambda: (daemons_serving(self.socket) or [None])[0],
                                  what="the detached daemon")
        else:
            self.stderr_file = open(self.stderr_path, "ab")
            self.process = subprocess.Popen(self.launcher + [binary("wsgated"), "-d"] + args,
                                            cwd=self.dir, env=self.env, stdout=subprocess.PIPE,
                                            stderr=self.stderr_file)
            self.pid = self.process.pid

        def accepting():
            if not self.alive():
                raise AssertionError("wsgated exited: %s" % self.last_words())
            try:
                with socket.socket(socket.AF_UNIX, socket.SOCK_STREAM) as s:
                    s.connect(self.socket)
                return True
            except OSError:
                return False
        wait_until(accepting, what="the daemon's socket")
        return self

    def stop(self, sig=signal.SIGTERM):
        """Signals the daemon and returns (exit status, stdout text); a detached daemon is
        not our child, so its status is None once it is gone."""
        if self.pid is None:
            return None, ""
        if self.detached:
            try:
                os.kill(self.pid, sig)
            except ProcessLookupError:
                pass
            wait_until(lambda: not os.path.exists("/proc/%d" % self.pid), timeout=30,
                       what="the detached daemon to exit")
            self.pid = None
            return None, ""
        if self.process.poll() is None:
            self.process.send_signal(sig)
        out, _ = self.process.communicate(timeout=30)
        self.stderr_file.close()
        status = self.process.returncode
        self.process = self.pid = None
        return status, out.decode(errors="replace")

    def stop_cleanly(self):
        """Stops the daemon with SIGTERM; fails unless it stops in order (exit status 0, or
        for a detached daemon the stopped status in the store) without a sanitizer report.
        In the sanitizer build a leak found at exit is such a report."""
        if self.pid is None:
            return
        status, _ = self.stop(signal.SIGTERM)
        if self.detached:
            status = 0 if self.get(APP_PATH + "/AppStatus") == "2" else "not stopped"
        err = self.last_words()
        reports = [m for m in SANITIZER_MARKS if m in err]
        if status != 0 or reports:
            raise AssertionError("wsgated stopped with status %s %s:\n%s"
                                 % (status, reports, err[-4000:]))

    def last_words(self):
        """What the daemon wrote to its standard error, or its sanitizer reports."""
        if not self.detached:
            return self.stderr_text()
        return "".join(pathlib.Path(path).read_text(errors="replace")
                       for path in sorted(glob.glob(os.path.join(self.dir, "sanitizer.*"))))

    def stderr_text(self):
        """The daemon's standard error; skips the calling test for a detached daemon, whose
        standard error is /dev/null (the foreground run of the same test reads it)."""
        if self.detached:
            raise unittest.SkipTest("a detached daemon writes no standard error")
        with open(self.stderr_path, "rb") as f:
            return f.read().decode(errors="replace")

    def set_clock_offset(self, seconds):
        """Moves the daemon's clocks (monotonic and UTC) `seconds` ahead of the real ones."""
        with open(self.clock_file + ".tmp", "w") as f:
            f.write("%d\n" % seconds)
        os.replace(self.clock_file + ".tmp", self.clock_file)

    def request(self, body, user=None, addr="127.0.0.1", https=None):
        """Sends `body` (a body XML text) in an envelope and returns the FcgiResponse."""
        return fcgi_request(self.socket, envelope(body),
                            {"REMOTE_USER": user, "REMOTE_ADDR": addr, "HTTPS": https})

    def call(self, body, user=None, addr="127.0.0.1"):
        """Sends `body` and returns the first element of the response body (fails on faults)."""
        response = self.request(body, user=user, addr=addr)
        fault = fault_of(response)
        if fault is not None:
            raise AssertionError("SOAP fault %r for %s" % (fault, body[:200]))
        return list(body_of(response.xml()))[0]

    def start_handler(self):
        """Starts the demo's device handler (`cds handler`) on this gateway's store, passing
        over the queues every 20 ms; close() stops it. Its output goes to handler.log."""
        log_path = os.path.join(self.dir, "handler.log")
        with open(log_path, "ab") as log:
            self.handler = subprocess.Popen([binary("cds"), "handler", "--interval", "20"],
                                            env=self.env, stdout=log, stderr=log)

        def started():
            if self.handler.poll() is not None:
                raise AssertionError("cds handler exited with %s" % self.handler.returncode)
            with open(log_path) as f:
                return "handling the command queues" in f.read()
        wait_until(started, what="the device handler")

    def alive(self):
        if self.process is not None:
            return self.process.poll() is None
        try:
            with open("/proc/%d/stat" % self.pid) as f:
                return f.read().split(") ")[-1][:1] != "Z"
        except (OSError, TypeError):  # gone, or never started (no pid)
            return False

    def close(self):
        if self.handler is not None:
            self.handler.terminate()
            self.handler.wait(timeout=30)
            self.handler = None
        if self.pid is not None:
            self.stop(signal.SIGKILL)
        shutil.rmtree(self.dir, ignore_errors=True)


def daemons_serving(socket_path):
    """Process ids of the wsgated processes whose environment names `socket_path`."""
    marker = ("WSGATED_SOCKET=" + socket_path).encode()
    pids = []
    for entry in filter(str.isdigit, os.listdir("/proc")):
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


class GatewayTestCase(unittest.TestCase):
    """One gateway with the demo data set and a running daemon per test class."""

    demo = True
    daemon_args = ()

    @classmethod
    def setUpClass(cls):
        cls.gw = Gateway(demo=cls.demo)
        try:
            cls.gw.start(*cls.daemon_args)
        except BaseException:
            cls.gw.close()
            raise

    @classmethod
    def tearDownClass(cls):
        try:
            cls.gw.stop_cleanly()
        finally:
            cls.gw.close()

    def tearDown(self):
        self.assertTrue(self.gw.alive(), "the daemon died: " + self.gw.last_words()[-2000:])


# --- The web front ----------------------------------------------------------------------------

def free_port():
    """A TCP port on 127.0.0.1 that nothing listens on right now."""
    with socket.socket() as s:
        s.bind(("127.0.0.1", 0))
        return s.getsockname()[1]


class WebFront:
    """lighttpd in front of a Gateway, configured by deploy/site.sh in a directory of the
    gateway's: free local ports, the demo users with fresh passwords, the served WSDL and,
    with `tls`, an HTTPS listener with a self-signed certificate. Started in the foreground;
    returns once it accepts connections."""

    def __init__(self, gateway, tls=False):
        lighttpd = shutil.which("lighttpd") or "/usr/sbin/lighttpd"
        if not os.access(lighttpd, os.X_OK):
            raise unittest.SkipTest("lighttpd is not installed")
        self.run = os.path.join(gateway.dir, "web")
        self.wsdl_dir = os.path.join(os.path.dirname(BIN_DIR), "src", "service", "generated")
        self.process = self.tls_port = None
        env = dict(os.environ, WSGATED_SOCKET=gateway.socket)
        if tls:
            pem = os.path.join(gateway.dir, "tls.pem")
            subprocess.run(["openssl", "req", "-x509", "-newkey", "rsa:2048", "-nodes", "-days",
                            "2", "-subj", "/CN=localhost", "-keyout", pem, "-out", pem],
                           check=True, capture_output=True, timeout=60)
            self.tls_port = free_port()
            env.update(WSGATE_TLS_PORT=str(self.tls_port), WSGATE_TLS_PEM=pem)
        self.port = free_port()
        subprocess.run([os.path.join(SOURCE_DIR, "deploy", "site.sh"), self.run, self.wsdl_dir,
                        str(self.port)], env=env, check=True, capture_output=True, timeout=60)
        with open(os.path.join(self.run, "users")) as f:
            self.passwords = dict(line.strip().split(":", 1) for line in f if ":" in line)
        with open(os.path.join(self.run, "log", "lighttpd.stderr"), "ab") as err:
            self.process = subprocess.Popen(
                [lighttpd, "-D", "-f", os.path.join(self.run, "lighttpd.conf")],
                stdin=subprocess.DEVNULL, stdout=err, stderr=err)

        def accepting(port):
            if self.process.poll() is not None:
                # lighttpd says why it cannot start (a missing module, a bad setting) on its
                # standard error, before its error log is open.
                self.close()
                raise AssertionError("lighttpd exited:\n%s%s" % (
                    self.log("lighttpd.stderr"), self.log("error.log")))
            try:
                socket.create_connection(("127.0.0.1", port), timeout=1).close()
                return True
            except OSError:
                return False
        try:
            wait_until(lambda: all(accepting(p) for p in (self.port, self.tls_port) if p),
                       what="lighttpd's ports")
        except BaseException:
            self.close()
            raise

    def url(self, path="/ws", https=False):
        if https:
            return "https://127.0.0.1:%d%s" % (self.tls_port, path)
        return "http://127.0.0.1:%d%s" % (self.port, path)

    def log(self, name):
        """The text of a file in the web front's log directory ("" when it is missing)."""
        try:
            with open(os.path.join(self.run, "log", name), "rb") as f:
                return f.read().decode(errors="replace")
        except FileNotFoundError:
            return ""

    def close(self):
        if self.process is not None:
            if self.process.poll() is None:
                self.process.terminate()
            try:
                self.process.wait(timeout=30)
            except subprocess.TimeoutExpired:
                self.process.kill()
                self.process.wait()
            self.process = None


class WebFrontTestCase(GatewayTestCase):
    """A gateway with the demo data set, its daemon and lighttpd in front, per test class."""

    tls = False

    @classmethod
    def setUpClass(cls):
        super().setUpClass()
        try:
            cls.web = WebFront(cls.gw, tls=cls.tls)
        except BaseException:
            cls.gw.close()
            raise

    @classmethod
    def tearDownClass(cls):
        cls.web.close()
        super().tearDownClass()
