"""wsgated behind lighttpd, as clients meet it: HTTP basic authentication in the web server,
TLS, the served WSDL, a stock SOAP client (zeep) built from that WSDL alone, and hand-written
SOAP 1.1 and SOAP 1.2 envelopes sent with curl. Every operation is called as each demo user
through zeep; CALLS holds one row per call, so an operation that lands adds its row there. What each operation answers in detail is the unit tests' business; here the answers
show that client, WSDL, web server and daemon agree on every field."""

import os
import re
import shutil
import subprocess
import tempfile
import time
import types
import unittest
import warnings
import xml.etree.ElementTree as ET
from xml.sax.saxutils import escape

from wsgate_testlib import (NS, SOAP11, SOAP12, SOURCE_DIR, WebFrontTestCase, envelope,
                            wait_until)

USERS = ("guest", "operator", "admin")
WRITERS = ("operator", "admin")
WSDL_OF = {"nsc1": "BACnetWSKite", "nsqv": "BACnetWSKiteQV", "nsc3": "BACnetWSKiteC3",
           "nst1": "BACnetWSKiteTest"}
# Parameters of these namespaces are qualified; nsqv and nsc3 parameters are not.
QUALIFIED = ("nsc1", "nst1")
REFUSED_WRITE = {"fault": ["Error 401: HTTP 401 Unauthorized"]}

# zeep still imports the cgi module; imported here, before the test runner resets the
# warning filters.
with warnings.catch_warnings():
    warnings.simplefilter("ignore", DeprecationWarning)
    try:
        import requests
        import zeep
        from zeep.helpers import serialize_object
        from zeep.transports import Transport
    except ImportError:
        zeep = None


def call(prefix, operation, args, answer=None, check=None, writers=None):
    """One call of an operation: the arguments, given once for zeep and envelope_of (a list is a
    repeated element, a dict a record or array of its fields, so {"string": [...]} is an
    nsc1:ArrayOfString), and the answer expected as each user, or a check(test, user, answer)
    of it. An answer maps each response field to the list of its texts (a list-typed field to
    its items), or is {"fault": [text]}. Users other than `writers` are refused."""
    return types.SimpleNamespace(prefix=prefix, operation=operation, args=args, answer=answer,
                                 check=check, writers=writers)


def listing(field, items, result="", **fields):
    """A check of an answer: its result, the number of items of its list `field`, and other
    plain fields."""
    def check(test, user, answer):
        test.assertEqual(answer["result"], [result])
        test.assertEqual(len(answer[field]), items, answer[field][:3])
        for name, text in fields.items():
            test.assertEqual(answer[name], [text])
    return check


def matches(field, pattern):
    return lambda test, user, answer: test.assertRegex(answer[field][0], pattern)


def read(path, options=""):
    return {"options": options, "path": path}


def paths(*items):
    return {"string": list(items)}


# Log requests on the demo's history (docs/demo.md): from 2023-11-14T21:00:00Z.
LOG_REQUEST = {"options": "", "rqstType": "LgRqTypAlarmEvents", "startTime": "1699995600000",
               "endTime": "0", "nMaxToReturn": "5", "bLatestEvents": "false",
               "bReverseOrder": "false", "bTrimIncomplete": "false", "path": ""}
NOT_FOUND = "? 9 Node Not Found : CDS access failed"

CALLS = [
    call("nsqv", "whoAmI", {"options": ""}, check=lambda t, u, a: t.assertEqual(a, {"result": [u]})),
    call("nsqv", "getLocalAndUtcTime", {"options": ""}, check=lambda t, u, a: t.assertEqual(
        (sorted(a), abs(int(a["utcTime"][0]) - time.time() * 1000) < 60000, a["result"]),
        (["localTime", "result", "timezone", "utcTime"], True, [""]))),
    # Refused by design, whatever the arguments.
    call("nsqv", "getMinAvgMaxValues", {"options": "", "paths": paths("/Meter1/Power"),
         "startTime": "0", "endTime": "1", "ratePeriod": "RatePeriodA"}, {"fault": ["Server fault"]}),
    call("nsc1", "getDefaultLocale", {"options": ""}, {"getDefaultLocaleResult": ["en-US"]}),
    call("nsc1", "getSupportedLocales", {"options": ""}, {"getSupportedLocalesResult": ["en-US"]}),
    call("nsc1", "getValue", read("/Meter1/Voltage"), {"getValueResult": ["230.4"]}),
    call("nsc1", "getValue", read("/Meter1/Breaker", "canonical"), {"getValueResult": ["true"]}),
    call("nsc1", "getValues", {"options": "", "paths": paths("/Meter1/Mode", "/Meter1/Nothing")},
         {"getValuesResult": ["Auto", NOT_FOUND]}),
    call("nsc1", "getRelativeValues", {"options": "", "basePath": "/Meter1",
         "paths": ["/Voltage", "/Submeter/Power"]}, {"getRelativeValuesResult": ["230.4", "1.25"]}),
    call("nsc1", "getArray", read("/Meter1/Mode/PossibleValues"),
         {"getArrayResult": ["Off", "Auto", "Manual"]}),
    call("nsc1", "getArrayRange", {"options": "", "path": "/AHU1/Mode/PossibleValues",
         "index": "1", "count": "2"}, {"getArrayRangeResult": ["Heat", "Cool"]}),
    call("nsc1", "getArraySize", read("/AHU1/Mode/PossibleValues"), {"getArraySizeResult": ["4"]}),
    # Writes store the same values every time, so the calls may run in any order and again.
    call("nsc1", "setValue", {"options": "", "path": "/AHU1/Setpoint", "value": "22.5"},
         {"setValueResult": ["22.5"]}, writers=WRITERS),
    call("nsc1", "setValues", {"options": "", "paths": ["/AHU1/Mode", "/Meter1/DemandLimit"],
         "values": ["Cool", "300"]}, {"setValuesResult": ["Cool", "300"]}, writers=WRITERS),
    # The node is made as each writer, then removed by admin (who alone may remove): the pair
    # leaves the store as it was.
    call("nst1", "CreateNode", {"options": "", "basePath": "/Test/Web/", "paths": ["Units", "Value"],
         "values": ["kW", "1.5"]}, {"CreateNodeResult": ["1.5"]}, writers=WRITERS),
    call("nst1", "RemoveNode", {"options": "", "basePath": "/Test/Web"},
         {"RemoveNodeResult": [""]}, writers=("admin",)),
    call("nst1", "SetLeaf", {"options": "", "path": "/Meter1/Voltage/Units", "value": "V"},
         {"SetLeafResult": ["V"]}, writers=WRITERS),
    call("nst1", "SetLeaves", {"options": "", "paths": ["/Meter1/Voltage/Units",
         "/Meter1/Voltage/Description"], "values": ["V", "Mains voltage"]},
         {"SetLeavesResult": ["V", "Mains voltage"]}, writers=WRITERS),
    # The demo's subscription; the update below may have added a node before this runs.
    call("nst1", "getSubscribedNodes", {"subscriptionId": "sub-1"}, check=lambda t, u, a:
         t.assertLessEqual({"/AHU1/Fan", "/Meter1/Voltage"}, set(a["getSubscribedNodesResult"]))),
    # Subscribing needs no write right. Each create replaces the same record, so it may run
    # again; the first user's cancel (users go in USERS order) removes it, the others' find
    # nothing to cancel.
    call("nsc1", "createSubscription", {
        "options": "", "subscriptionId": "web-1", "replyUri": "http://192.0.2.7/notify",
        "leaseDuration": "60000", "realTimeNodes": {"NodeSubscription": [{
            "Path": "/Meter1/Breaker", "RequestedFreshness": "1000", "DeadbandPercent": "0"}]},
        "logSinceTime": "1700000000000", "subscribeLogOptions": "Alarm"},
         check=matches("createSubscriptionResult",
                       r"^Value=Closed;NumericValue=1;Quality=192;Time=\d+$")),
    call("nsc1", "updateSubscriptionRealTimeNodes", {
        "subscriptionId": "sub-1", "realTimeNodesToAdd": {"NodeSubscription": [{
            "Path": "/Meter1/Frequency", "RequestedFreshness": "500", "DeadbandPercent": "1"}]},
        "realTimeNodesToRemove": paths("/Meter10/Online")},
         check=matches("updateSubscriptionRealTimeNodesResult", r"^Value=50.02;Quality=192;")),
    call("nsc1", "cancelSubscription", {"subscriptionId": "web-1"}, check=lambda t, u, a:
         t.assertEqual(a, {} if u == USERS[0] else {"fault": ["Client fault"]})),
    call("nsc1", "acknowledgeAlarm", {"requests": {"AckRequest": [{
        "EventId": "1002", "Note": "checked", "VariationLevel": "1", "Status": "Acked"}]}},
         {"acknowledgeAlarmResult": [""]}),
    call("nsqv", "getActiveAlarms", {"request": dict(
        LOG_REQUEST, startTime="0", nMaxToReturn="1", bLatestEvents="true", path="Online$")},
         {"result": [""], "numTrimmedEvents": ["0"], "alarms": [
             "EventId=1003;SequenceIndex=3;EventType=Alarm;SourcePath=/Meter10/Online;"
             "Time=1700000120000;Description=Communication lost;Value=false;NumericValue=0;"
             "Quality=192;BasePriority=5000;AckStatus=Closed;AutoClosing=true;"
             "ConditionPresent=false;Note=Cable replaced;VariationLevel=1"]}),
    # One device and one leaf: the WSDL gives each rpc/literal part once and the generator
    # declares these responses' repeated "descriptors" as one part, so zeep refuses a second
    # one (a zeep client reads longer answers through raw_response).
    call("nsqv", "getDeviceTree", {"options": "", "startingPath": "/AHU", "bRecursive": "true"},
         check=listing("descriptors", 6)),
    call("nsqv", "getLeafDescriptors", {"options": "", "basePath": "/Meter1/",
         "leafPaths": paths("Voltage")}, check=listing("descriptors", 3, "OK")),
    call("nsqv", "findAttributeMatches", {"options": "", "startingPath": "/", "bRecursive": "true",
         "attribMatch": "Units", "regexMatchPattern": "^k?W$"}, {"result": [""], "nodes": [
             "/Meter1/DemandLimit", "/Meter1/Power", "/Meter1/Submeter/Power"],
             "data": ["kW", "kW", "kW"]}),
    # Commands need no right; the gateway's device handler consumes them (the round trip is
    # test_zeep_command_round_trip_through_the_handler).
    call("nsc3", "sendDeviceCmd", {"options": "", "devPath": "/AHU1",
         "cmd": {"cmdVersion": "1", "cmdLine": "self test"}}, check=matches("cmdHandle", r"^\d+$")),
    call("nsc3", "getDeviceCmdResult", {"options": "", "devPath": "/AHU1", "cmdHandle": "0"},
         {"result": [""], "cmdHandle": ["0"], "numericStatus": ["cmdSuccess"],
          "cmdStatus": ["Done"], "cmdResults": ["1", "self test: passed"]}),
    # Five records: 21:00 voltage, current, power, 21:10 supply temperature, 21:30 voltage,
    # whose poll group of three was cut and goes.
    call("nsqv", "getDeltaLog", {"request": dict(LOG_REQUEST, bTrimIncomplete="true")},
         check=listing("loggedValues", 4, numTrimmedPoints="3")),
    # The two alarms of /Meter1 raised at the demo's alarm time.
    call("nsqv", "getEventLog", {"request": dict(LOG_REQUEST, startTime="1700000000000",
         path="/Meter1")}, check=listing("events", 2, numTrimmedEvents="0")),
    call("nsqv", "getTrendPeriods", {"options": ""}, check=listing("periodProperties", 2, "OK")),
    call("nsqv", "getDeviceTrendParams", {"options": "", "devicePath": "/AHU1"},
         check=listing("deviceParams", 2, "OK")),
    call("nsqv", "getTrendData", {"request": {
        "options": "", "devicePath": "/Meter1", "pointPaths": paths("/Meter1/Voltage"),
        "periods": {"period": ["2"]}, "startTime": "1699995600000", "endTime": "0",
        "nMaxToReturn": "2", "startingOffset": "0", "ascendingOrder": "true"}},
         check=lambda t, u, a: t.assertEqual((a["result"], "data" in a), (["OK"], True))),
]


# --- zeep's answers in the form of CALLS, and hand-written envelopes ------------------------

def _text(value):
    if value is None:
        return ""
    if isinstance(value, bool):
        return "true" if value else "false"
    if isinstance(value, dict):  # a record: its non-empty fields, "Name=text;..."
        return ";".join("%s=%s" % (k, _text(v)) for k, v in value.items() if _text(v))
    return str(value)


def answer_of_zeep(operation, result):
    """The answer form of a zeep result: zeep returns a lone response field unwrapped."""
    names = [name for name, _ in operation.output.body.type.elements]
    result = serialize_object(result)
    if not names:  # a response without fields
        return {}
    if len(names) == 1:
        result = {names[0]: result}
    answer = {}
    for name, value in result.items():
        if isinstance(value, dict) and len(value) == 1:
            value = list(value.values())[0]
        elif isinstance(value, dict):  # a record: its fields, an unchosen choice left out
            value = [field for field in value.values() if field is not None]
        answer[name] = [_text(v) for v in (value if isinstance(value, list) else [value])]
    return answer


def envelope_of(c, version=SOAP11):
    """A hand-written envelope for call `c`, with the prefixes a careful client would use."""
    q = c.prefix + ":" if c.prefix in QUALIFIED else ""

    def element(name, value):
        if isinstance(value, list):
            return "".join(element(name, v) for v in value)
        if isinstance(value, dict):  # a record or an array: its fields in order
            value = "".join(element(k, v) for k, v in value.items())
        else:
            value = escape(value)
        return "<%s%s>%s</%s%s>" % (q, name, value, q, name)

    return ('<?xml version="1.0" encoding="UTF-8"?>\n<env:Envelope xmlns:env="%s" xmlns:%s="%s">'
            '<env:Body><%s:%s>%s</%s:%s></env:Body></env:Envelope>'
            % (version, c.prefix, NS[c.prefix], c.prefix, c.operation,
               "".join(element(k, v) for k, v in c.args.items()), c.prefix, c.operation)).encode()


class WebFrontTest(WebFrontTestCase):
    tls = True

    @classmethod
    def setUpClass(cls):
        super().setUpClass()
        cls.clients = {}
        try:
            cls.gw.start_handler()
        except BaseException:
            cls.tearDownClass()
            raise

    def curl(self, data=None, user=None, password=None, path="/ws", https=False,
             content_type="text/xml; charset=utf-8"):
        """curl as the HTTP client, POSTing `data` (or GETting `path`): returns (HTTP status,
        headers, body)."""
        command = ["curl", "-sS", "-k", "-m", "30", "-D", "-", self.web.url(path, https)]
        if data is not None:
            command += ["-H", "Content-Type: " + content_type, "--data-binary", "@-"]
        if user is not None:
            command += ["-u", "%s:%s" % (user, password or self.web.passwords[user])]
        result = subprocess.run(command, input=data or b"", capture_output=True, timeout=60)
        if result.returncode != 0:
            raise AssertionError("%s: %s" % (" ".join(command), result.stderr.decode()))
        raw = result.stdout
        while raw.startswith(b"HTTP/1.1 100"):  # interim responses ("100 Continue")
            raw = raw.partition(b"\r\n\r\n")[2]
        head, _, body = raw.partition(b"\r\n\r\n")
        lines = head.decode("latin-1").split("\r\n")
        headers = dict((n.strip().lower(), v.strip())
                       for n, _, v in (line.partition(":") for line in lines[1:]))
        return int(lines[0].split()[1]), headers, body

    def zeep_client(self, prefix, user):
        """A zeep client made from the served WSDL alone, authenticating as `user`."""
        if zeep is None:
            self.skipTest("python3-zeep is not installed")
        if (prefix, user) not in self.clients:
            session = requests.Session()
            session.auth = (user, self.web.passwords[user])
            self.clients[prefix, user] = zeep.Client(
                self.web.url("/wsdl/%s.wsdl" % WSDL_OF[prefix]), transport=Transport(session=session))
        return self.clients[prefix, user]

    def check(self, c, user, answer):
        if c.writers and user not in c.writers:
            self.assertEqual(answer, REFUSED_WRITE)
        elif c.check is not None:
            c.check(self, user, answer)
        else:
            self.assertEqual(answer, c.answer)

    def test_zeep_calls_every_operation_as_every_user(self):
        for c in CALLS:
            for user in USERS:
                with self.subTest(call=c.operation, args=c.args, user=user):
                    client = self.zeep_client(c.prefix, user)
                    try:
                        answer = answer_of_zeep(client.service._binding._operations[c.operation],
                                                getattr(client.service, c.operation)(**c.args))
                    except zeep.exceptions.Fault as fault:
                        answer = {"fault": [fault.message]}
                    self.check(c, user, answer)

    def test_curl_sends_soap_11_and_12(self):
        """Hand-written envelopes of both versions: the answer's version and HTTP status."""
        rows = [  # (operation, user, HTTP status for SOAP 1.1 and 1.2, text in the answer)
            ("whoAmI", "admin", 200, 200, "<result>admin</result>"),
            ("getValues", "guest", 200, 200, "<nsc1:getValuesResult>Auto</nsc1:getValuesResult>"),
            ("createSubscription", "operator", 200, 200, "<nsc1:Value>Closed</nsc1:Value>"),
            ("setValue", "guest", 401, 401, "Error 401: HTTP 401 Unauthorized"),
            ("getMinAvgMaxValues", "guest", 500, 400, "Server fault")]
        for operation, user, status11, status12, text in rows:
            c = next(c for c in CALLS if c.operation == operation)
            for version, content_type, expected in ((SOAP11, "text/xml", status11),
                                                    (SOAP12, "application/soap+xml", status12)):
                with self.subTest(operation=operation, version=version):
                    status, headers, body = self.curl(envelope_of(c, version), user,
                                                      content_type=content_type + "; charset=utf-8")
                    self.assertEqual(status, expected)
                    self.assertTrue(headers["content-type"].startswith(content_type))
                    self.assertEqual(ET.fromstring(body).tag, "{%s}Envelope" % version)
                    self.assertIn(text, body.decode())

    def test_zeep_command_round_trip_through_the_handler(self):
        for user in USERS:
            with self.subTest(user=user):
                client = self.zeep_client("nsc3", user)
                sent = client.service.sendDeviceCmd(
                    options="", devPath="/Meter1",
                    cmd={"cmdVersion": 1, "cmdBasic": {"name": "harmonics", "param": "voltage",
                                                       "num": 1, "psswd": 0}})
                self.assertIsNone(sent["result"])  # zeep reads the empty text as None

                def answered():
                    result = client.service.getDeviceCmdResult(
                        options="", devPath="/Meter1", cmdHandle=sent["cmdHandle"])
                    return result if result["numericStatus"] != "cmdFailHandle" else None
                result = wait_until(answered, what="the handler's answer")
                self.assertEqual(result["numericStatus"], "cmdSuccess")
                harmonics = result["cmdResults"]["resHarms"]
                self.assertEqual(harmonics["cdsName"], "/Meter1/Voltage")
                self.assertEqual([h["frequency"] for h in harmonics["hData"]],
                                 [50, 150, 250, 350, 450, 550, 650])

    def test_nothing_is_served_without_valid_credentials(self):
        whoami = envelope("<nsqv:whoAmI><options/></nsqv:whoAmI>")
        for path in ("/", "/index.html", "/explorer.js", "/javascript/chart.js/chart.min.js", "/ws"):
            for user, password in ((None, None), ("operator", "wrong"), ("nobody", "x")):
                with self.subTest(path=path, user=user):
                    status, headers, body = self.curl(whoami if path == "/ws" else None, user,
                                                      password, path=path)
                    self.assertEqual(status, 401)
                    # lighttpd's refusal: its realm, and no SOAP in the body.
                    self.assertEqual(headers["www-authenticate"],
                                     'Basic realm="wsgate", charset="UTF-8"')
                    self.assertNotIn(b"Envelope", body)
        # A request without a user that reached the daemon would have logged, before its
        # answer, that REMOTE_USER was missing.
        self.assertNotIn("Failed to get REMOTE_USER", self.gw.stderr_text())

    def test_user_address_and_https_reach_the_daemon(self):
        write = next(c for c in CALLS if c.operation == "setValue")
        status, headers, body = self.curl(envelope_of(write), "guest")
        # The daemon's refusal, not the web server's.
        self.assertEqual(status, 401)
        self.assertNotIn("wsgate", headers.get("www-authenticate", ""))
        self.assertIn(b"<faultstring>Error 401: HTTP 401 Unauthorized</faultstring>", body)
        self.assertEqual(self.curl(envelope_of(write), "operator")[0], 200)
        self.assertIn("source:  Web-Services:operator@127.0.0.1\n",
                      self.gw.cds("get", "-l", write.args["path"]).stdout)
        for https in (False, True):
            status, _, body = self.curl(envelope_of(CALLS[0]), "admin", https=https)
            self.assertEqual((status, b"<result>admin</result>" in body), (200, True))
        # The daemon records a caller after it has answered, so the lines may come later.
        for line in (r"New wsgated connection \d+ for 127\.0\.0\.1admin \n",
                     r"New wsgated connection \d+S for 127\.0\.0\.1adminS \n"):
            wait_until(lambda: re.search(line, self.gw.stderr_text()), what=line)

    def test_wsdl_and_schemas_are_served_with_the_real_endpoint(self):
        for name in sorted(os.listdir(self.web.wsdl_dir)):
            if not name.endswith((".wsdl", ".xsd")):
                continue
            with self.subTest(name=name):
                status, headers, body = self.curl(path="/wsdl/" + name)
                self.assertEqual((status, headers["content-type"]), (200, "text/xml; charset=utf-8"))
                addresses = [e.get("location") for e in ET.fromstring(body).iter(
                    "{http://schemas.xmlsoap.org/wsdl/soap/}address")]
                self.assertEqual(addresses, [self.web.url()] if name.endswith(".wsdl") else [])
        # The build's own files keep the generator's address.
        with open(os.path.join(self.web.wsdl_dir, "BACnetWSKite.wsdl")) as f:
            self.assertIn('location="http://localhost:8080/ws"', f.read())

    def test_only_the_endpoint_the_wsdl_directory_and_the_explorer_are_served(self):
        for path in ("/wsdl/", "/wsx", "/ws/extra", "/lighttpd.conf", "/users", "/wsdl/../users",
                     "/explorer.html", "/javascript/chart.js/chart.js", "/javascript/"):
            with self.subTest(path=path):
                self.assertIn(self.curl(path=path)[0], (403, 404))
        wait_until(lambda: "server started" in self.web.log("error.log"),
                   what="lighttpd's start in error.log, written through its filter")

    def test_a_request_body_over_one_megabyte_is_refused_by_the_web_server(self):
        big = envelope_of(call("nsc1", "getValue", read("/" + "A" * (1024 * 1024))))
        status, _, body = self.curl(big, "guest")
        self.assertEqual(status, 413)  # never the daemon's: it answers 200, 4xx faults or 500
        self.assertNotIn(b"Envelope", body)


class SiteFilesTest(unittest.TestCase):
    LIMIT = "(server.c.1089) [note] sockets disabled, connection limit reached"
    AGAIN = "(server.c.1081) [note] sockets enabled again"
    FDS = "(server.c.1089) [note] sockets disabled, out-of-fds"
    OTHER = "(gw_backend.c.274) establishing connection failed: socket: unix:/s"

    def test_error_log_filter(self):
        """deploy/lighttpd/errorlog.awk keeps one pair of lighttpd's connection-bound notes
        per minute and every other line."""
        limit, again, fds, other = self.LIMIT, self.AGAIN, self.FDS, self.OTHER
        rows = [  # (lines in, as minute and text; which of them come out)
            ([("10:00", other)], [0]),
            ([("10:00", limit), ("10:00", again), ("10:00", limit), ("10:00", again),
              ("10:01", limit), ("10:01", again)], [0, 1, 4, 5]),
            # Other lines between a dropped note and its pair pass, and so does the pair.
            ([("10:00", limit), ("10:00", again), ("10:00", limit), ("10:00", other),
              ("10:00", again)], [0, 1, 3, 4]),
            ([("10:00", fds), ("10:00", again), ("10:00", fds), ("10:00", again)], [0, 1, 2, 3]),
        ]
        awk = os.path.join(SOURCE_DIR, "deploy", "lighttpd", "errorlog.awk")
        for lines, kept in rows:
            text = ["2026-05-04 %s:%02d: %s" % (minute, i, line)
                    for i, (minute, line) in enumerate(lines)]
            with self.subTest(lines=lines):
                result = subprocess.run(["/usr/bin/mawk", "-f", awk], capture_output=True,
                                        text=True, input="".join(t + "\n" for t in text),
                                        check=True, timeout=60)
                self.assertEqual(result.stdout.splitlines(), [text[i] for i in kept])

    def test_nginx_accepts_the_written_site(self):
        nginx = shutil.which("nginx") or "/usr/sbin/nginx"
        if not os.access(nginx, os.X_OK):
            self.skipTest("nginx is not installed")
        with tempfile.TemporaryDirectory(prefix="wsgate-nginx-") as tmp:
            wsdl = os.path.join(tmp, "wsdl")
            os.makedirs(wsdl)
            open(os.path.join(wsdl, "x.wsdl"), "w").close()
            subprocess.run([os.path.join(SOURCE_DIR, "deploy", "site.sh"), tmp, wsdl, "18080"],
                           check=True, capture_output=True, timeout=60)
            # Everything nginx writes goes to the temporary prefix: its default temporary
            # directories (/var/lib/nginx) are root's, and the tests run as any user.
            temp = "".join("%s_temp_path %s/%s;\n" % (kind, tmp, kind)
                           for kind in ("client_body", "proxy", "fastcgi", "uwsgi", "scgi"))
            with open(os.path.join(tmp, "nginx.conf"), "w") as f:
                f.write("pid %s/nginx.pid;\nerror_log %s/error.log;\nevents {}\n"
                        "http { access_log off;\n%sinclude %s/nginx-site.conf; }\n"
                        % (tmp, tmp, temp, tmp))
            result = subprocess.run([nginx, "-t", "-p", tmp, "-c", os.path.join(tmp, "nginx.conf")],
                                    capture_output=True, text=True, timeout=60)
            self.assertEqual(result.returncode, 0, result.stderr)


if __name__ == "__main__":
    unittest.main()
