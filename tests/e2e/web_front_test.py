"""wsgated behind lighttpd, as clients meet it: HTTP basic authentication in the web server,
the served WSDL, a stock SOAP client (zeep) built from that WSDL alone, and hand-written
SOAP 1.1 and SOAP 1.2 envelopes sent with curl. Every operation built so far is called as
each demo user through both clients; CALLS holds one row per call, so an operation that
lands adds its rows there."""

import os
import re
import shutil
import subprocess
import time
import types
import unittest
import warnings
import xml.etree.ElementTree as ET
from xml.sax.saxutils import escape

from wsgate_testlib import (NS, SOAP11, SOAP12, SOURCE_DIR, WebFrontTestCase, body_of,
                            fault_of, wait_until)

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


class Call:
    """One call of an operation: the arguments, given once for both clients (a list is a
    repeated element, a dict a record or array of its fields, so {"string": [...]} is an
    nsc1:ArrayOfString), and the answer expected as
    each user. An answer maps each response field to the list of its texts (a list-typed
    field to its items), or is {"fault": [text]}."""

    def __init__(self, prefix, operation, args, answer=None, check=None, writes=False,
                 writers=WRITERS):
        self.prefix, self.operation, self.args = prefix, operation, args
        self.answer, self.check_fn, self.writes, self.writers = answer, check, writes, writers

    def expected(self, user):
        if self.writes and user not in self.writers:
            return REFUSED_WRITE
        return self.answer

    def check(self, test, user, answer):
        if self.check_fn is not None:
            self.check_fn(test, user, answer)
        else:
            test.assertEqual(answer, self.expected(user))

    def __str__(self):
        return "%s:%s(%s)" % (self.prefix, self.operation, self.args)


def check_time(test, user, answer):
    test.assertEqual(answer["result"], [""])
    test.assertEqual(sorted(answer), ["localTime", "result", "timezone", "utcTime"])
    test.assertLess(abs(int(answer["utcTime"][0]) - time.time() * 1000), 60000)
    test.assertTrue(answer["timezone"][0])


def read(path, options=""):
    return {"options": options, "path": path}


def listing(field, items, result="", **fields):
    """A check of a log or trend answer: its result, the number of items of its list `field`,
    and other plain fields."""
    def check(test, user, answer):
        test.assertEqual(answer["result"], [result])
        test.assertEqual(len(answer[field]), items, answer[field][:3])
        for name, text in fields.items():
            test.assertEqual(answer[name], [text])
    return check


# Log requests on the demo's history (docs/demo.md): from 2023-11-14T21:00:00Z.
LOG_REQUEST = {"options": "", "rqstType": "LgRqTypAlarmEvents", "startTime": "1699995600000",
               "endTime": "0", "nMaxToReturn": "5", "bLatestEvents": "false",
               "bReverseOrder": "false", "bTrimIncomplete": "false", "path": ""}


def check_device_tree(test, user, answer):
    stamp = test.gw.get("/AHU1/sDevChangeCount/Value.Time")
    test.assertEqual(answer, {"result": [""], "descriptors": [
        "/AHU1", "Device", "Air Handler 1", "192", "3", stamp]})


def check_leaf_descriptors(test, user, answer):
    stamp = test.gw.get("/Meter1/Voltage/Value.Time")
    test.assertEqual(answer, {"result": ["OK"], "descriptors": ["230.4", stamp, "LeafTypeNormal"]})


def check_command_sent(test, user, answer):
    test.assertEqual(answer["result"], [""])
    test.assertRegex(answer["cmdHandle"][0], r"^\d+$")


CALLS = [
    Call("nsqv", "whoAmI", {"options": ""}, check=lambda t, u, a: t.assertEqual(a, {"result": [u]})),
    Call("nsqv", "getLocalAndUtcTime", {"options": ""}, check=check_time),
    # Refused by design, whatever the arguments.
    Call("nsqv", "getMinAvgMaxValues",
         {"options": "", "paths": {"string": ["/Meter1/Power"]}, "startTime": "0",
          "endTime": "1", "ratePeriod": "RatePeriodA"}, {"fault": ["Server fault"]}),
    Call("nsc1", "getDefaultLocale", {"options": ""}, {"getDefaultLocaleResult": ["en-US"]}),
    Call("nsc1", "getSupportedLocales", {"options": ""},
         {"getSupportedLocalesResult": ["en-US"]}),
    Call("nsc1", "getValue", read("/Meter1/Voltage"), {"getValueResult": ["230.4"]}),
    Call("nsc1", "getValue", read("/Meter1/Breaker", "canonical"), {"getValueResult": ["true"]}),
    Call("nsc1", "getValues",
         {"options": "", "paths": {"string": ["/Meter1/Mode", "/AHU1/Fan", "/Meter1/Nothing"]}},
         {"getValuesResult": ["Auto", "Off", "? 9 Node Not Found : CDS access failed"]}),
    Call("nsc1", "getRelativeValues",
         {"options": "", "basePath": "/Meter1", "paths": ["/Voltage", "/Submeter/Power"]},
         {"getRelativeValuesResult": ["230.4", "1.25"]}),
    Call("nsc1", "getArray", read("/Meter1/Mode/PossibleValues"),
         {"getArrayResult": ["Off", "Auto", "Manual"]}),
    Call("nsc1", "getArrayRange",
         {"options": "", "path": "/AHU1/Mode/PossibleValues", "index": "1", "count": "2"},
         {"getArrayRangeResult": ["Heat", "Cool"]}),
    Call("nsc1", "getArraySize", read("/AHU1/Mode/PossibleValues"),
         {"getArraySizeResult": ["4"]}),
    # Writes store the same values every time, so the calls may run in any order and again.
    Call("nsc1", "setValue", {"options": "", "path": "/AHU1/Setpoint", "value": "22.5"},
         {"setValueResult": ["22.5"]}, writes=True),
    Call("nsc1", "setValues",
         {"options": "", "paths": ["/AHU1/Mode", "/Meter1/DemandLimit"], "values": ["Cool", "300"]},
         {"setValuesResult": ["Cool", "300"]}, writes=True),
    # The node is made as each writer, then removed by admin (who alone may remove): the pair
    # leaves the store as it was.
    Call("nst1", "CreateNode",
         {"options": "", "basePath": "/Test/Web/", "paths": ["Units", "Value"],
          "values": ["kW", "1.5"]}, {"CreateNodeResult": ["1.5"]}, writes=True),
    Call("nst1", "RemoveNode", {"options": "", "basePath": "/Test/Web"},
         {"RemoveNodeResult": [""]}, writes=True, writers=("admin",)),
    Call("nst1", "SetLeaf", {"options": "", "path": "/Meter1/Voltage/Units", "value": "V"},
         {"SetLeafResult": ["V"]}, writes=True),
    Call("nst1", "SetLeaves",
         {"options": "", "paths": ["/Meter1/Voltage/Units", "/Meter1/Voltage/Description"],
          "values": ["V", "Mains voltage"]}, {"SetLeavesResult": ["V", "Mains voltage"]},
         writes=True),
    # The demo's subscription; the update above may have added a node before this runs.
    Call("nst1", "getSubscribedNodes", {"subscriptionId": "sub-1"},
         check=lambda t, u, a: t.assertTrue({"/AHU1/Fan", "/Meter1/Voltage"}
                                            <= set(a["getSubscribedNodesResult"]), a)),
    # Subscribing needs no write right. Each create replaces the same record, so it may run
    # again; the first user's cancel (users go in USERS order) removes it, the others' find
    # nothing to cancel.
    Call("nsc1", "createSubscription",
         {"options": "", "subscriptionId": "web-1", "replyUri": "http://192.0.2.7/notify",
          "leaseDuration": "60000",
          "realTimeNodes": {"NodeSubscription": [
              {"Path": "/Meter1/Breaker", "RequestedFreshness": "1000", "DeadbandPercent": "0"}]},
          "logSinceTime": "1700000000000", "subscribeLogOptions": "Alarm"},
         check=lambda t, u, a: t.assertRegex(a["createSubscriptionResult"][0],
                                             r"^Value=Closed;NumericValue=1;Quality=192;Time=\d+$")),
    Call("nsc1", "updateSubscriptionRealTimeNodes",
         {"subscriptionId": "sub-1",
          "realTimeNodesToAdd": {"NodeSubscription": [
              {"Path": "/Meter1/Frequency", "RequestedFreshness": "500", "DeadbandPercent": "1"}]},
          "realTimeNodesToRemove": {"string": ["/Meter10/Online"]}},
         check=lambda t, u, a: t.assertRegex(a["updateSubscriptionRealTimeNodesResult"][0],
                                             r"^Value=50.02;Quality=192;Time=\d+$")),
    Call("nsc1", "cancelSubscription", {"subscriptionId": "web-1"},
         check=lambda t, u, a: t.assertEqual(a, {} if u == USERS[0] else
                                             {"fault": ["Client fault"]})),
    Call("nsc1", "acknowledgeAlarm",
         {"requests": {"AckRequest": [
             {"EventId": "1002", "Note": "checked", "VariationLevel": "1", "Status": "Acked"}]}},
         {"acknowledgeAlarmResult": [""]}),
    Call("nsqv", "getActiveAlarms",
         {"request": {"options": "", "rqstType": "LgRqTypAlarmEvents", "startTime": "0",
                      "endTime": "0", "nMaxToReturn": "1", "bLatestEvents": "true",
                      "bReverseOrder": "false", "bTrimIncomplete": "false", "path": "Online$"}},
         {"result": [""], "numTrimmedEvents": ["0"], "alarms": [
             "EventId=1003;SequenceIndex=3;EventType=Alarm;SourcePath=/Meter10/Online;"
             "Time=1700000120000;Description=Communication lost;Value=false;NumericValue=0;"
             "Quality=192;BasePriority=5000;AckStatus=Closed;AutoClosing=true;"
             "ConditionPresent=false;Note=Cable replaced;VariationLevel=1"]}),
    # One device and one leaf: zeep reads no more than one descriptors element (see
    # test_zeep_reads_no_repeated_descriptors).
    Call("nsqv", "getDeviceTree", {"options": "", "startingPath": "/AHU", "bRecursive": "true"},
         check=check_device_tree),
    Call("nsqv", "getLeafDescriptors",
         {"options": "", "basePath": "/Meter1/", "leafPaths": {"string": ["Voltage"]}},
         check=check_leaf_descriptors),
    Call("nsqv", "findAttributeMatches",
         {"options": "", "startingPath": "/", "bRecursive": "true", "attribMatch": "Units",
          "regexMatchPattern": "^k?W$"},
         {"result": [""], "nodes": ["/Meter1/DemandLimit", "/Meter1/Power", "/Meter1/Submeter/Power"],
          "data": ["kW", "kW", "kW"]}),
    # Commands need no right; the gateway's device handler consumes them (the round trip is
    # test_zeep_command_round_trip_through_the_handler).
    Call("nsc3", "sendDeviceCmd",
         {"options": "", "devPath": "/AHU1", "cmd": {"cmdVersion": "1", "cmdLine": "self test"}},
         check=check_command_sent),
    Call("nsc3", "getDeviceCmdResult", {"options": "", "devPath": "/AHU1", "cmdHandle": "0"},
         {"result": [""], "cmdHandle": ["0"], "numericStatus": ["cmdSuccess"], "cmdStatus": ["Done"],
          "cmdResults": ["1", "self test: passed"]}),
    # Five records: 21:00 voltage, current, power, 21:10 supply temperature, 21:30 voltage,
    # whose poll group of three was cut and goes.
    Call("nsqv", "getDeltaLog", {"request": dict(LOG_REQUEST, bTrimIncomplete="true")},
         check=listing("loggedValues", 4, numTrimmedPoints="3")),
    # The two alarms of /Meter1 raised at the demo's alarm time.
    Call("nsqv", "getEventLog",
         {"request": dict(LOG_REQUEST, startTime="1700000000000", path="/Meter1")},
         check=listing("events", 2, numTrimmedEvents="0")),
    Call("nsqv", "getTrendPeriods", {"options": ""}, check=listing("periodProperties", 2, "OK")),
    Call("nsqv", "getDeviceTrendParams", {"options": "", "devicePath": "/AHU1"},
         check=listing("deviceParams", 2, "OK")),
    Call("nsqv", "getTrendData",
         {"request": {"options": "", "devicePath": "/Meter1",
                      "pointPaths": {"string": ["/Meter1/Voltage", "/Meter1/Energy"]},
                      "periods": {"period": ["2"]}, "startTime": "1699995600000", "endTime": "0",
                      "nMaxToReturn": "2", "startingOffset": "0", "ascendingOrder": "true"}},
         check=lambda t, u, a: t.assertEqual((a["result"], "data" in a), (["OK"], True))),
]


# --- The two clients and the one form of an answer -------------------------------------------

def _text(value):
    if value is None:
        return ""
    if isinstance(value, bool):
        return "true" if value else "false"
    if isinstance(value, dict):  # a record: its non-empty fields, "Name=text;..."
        return ";".join("%s=%s" % (k, _text(v)) for k, v in value.items() if _text(v))
    return str(value)


def _xml_item(item):
    """An array item's text; a record item (one with children) as _text gives a record."""
    if len(item) == 0:
        return _text(item.text)
    return _text({child.tag.rpartition("}")[2]: _xml_item(child) for child in item})


def answer_of_xml(response_element):
    """The answer form of a response element: its children's texts by local name; a child
    with children of its own (an array type) contributes their texts."""
    answer = {}
    for child in response_element:
        name = child.tag.rpartition("}")[2]
        items = list(child)
        values = [_xml_item(i) for i in items] if items else [_text(child.text)]
        answer.setdefault(name, []).extend(values)
    return answer


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
        values = value if isinstance(value, list) else [value]
        answer[name] = [_text(v) for v in values]
    return answer


def _zeep_args(args):
    return dict(args)  # zeep takes records and arrays as dicts of their fields


def envelope_of(call, version):
    """A hand-written envelope for `call`, with the prefixes a careful client would use."""
    q = call.prefix + ":" if call.prefix in QUALIFIED else ""

    def element(name, value):
        if isinstance(value, list):
            return "".join(element(name, v) for v in value)
        if isinstance(value, dict):  # a record or an array: its fields in order
            inner = "".join(element(k, v) for k, v in value.items())
            return "<%s%s>%s</%s%s>" % (q, name, inner, q, name)
        return "<%s%s>%s</%s%s>" % (q, name, escape(value), q, name)

    body = "".join(element(k, v) for k, v in call.args.items())
    return ('<?xml version="1.0" encoding="UTF-8"?>\n'
            '<env:Envelope xmlns:env="%s" xmlns:%s="%s"><env:Body>'
            '<%s:%s>%s</%s:%s></env:Body></env:Envelope>'
            % (version, call.prefix, NS[call.prefix], call.prefix, call.operation, body,
               call.prefix, call.operation)).encode()


class Curl:
    """curl as the HTTP client: returns (HTTP status, headers, body)."""

    def __init__(self, web):
        self.web = web

    def post(self, data, user=None, password=None, content_type="text/xml; charset=utf-8",
             https=False, extra=()):
        command = ["curl", "-sS", "-m", "30", "-D", "-", "-H", "Content-Type: " + content_type,
                   "--data-binary", "@-", self.web.url("/ws", https)] + list(extra)
        if https:
            command.append("-k")
        if user is not None:
            command += ["-u", "%s:%s" % (user, password or self.web.passwords[user])]
        return self._run(command, data)

    def get(self, path):
        return self._run(["curl", "-sS", "-m", "30", "-D", "-", self.web.url(path)], b"")

    @staticmethod
    def _run(command, data):
        result = subprocess.run(command, input=data, capture_output=True, timeout=60)
        if result.returncode != 0:
            raise AssertionError("%s: %s" % (" ".join(command), result.stderr.decode()))
        raw = result.stdout
        # Skip interim responses ("100 Continue").
        while raw.startswith(b"HTTP/1.1 100"):
            raw = raw.partition(b"\r\n\r\n")[2]
        head, _, body = raw.partition(b"\r\n\r\n")
        lines = head.decode("latin-1").split("\r\n")
        headers = {}
        for line in lines[1:]:
            name, _, value = line.partition(":")
            headers[name.strip().lower()] = value.strip()
        return int(lines[0].split()[1]), headers, body

    def answer(self, call, user, version):
        content_type = ("text/xml; charset=utf-8" if version == SOAP11
                        else "application/soap+xml; charset=utf-8")
        status, _, body = self.post(envelope_of(call, version), user, content_type=content_type)
        root = ET.fromstring(body)
        fault = fault_of(types.SimpleNamespace(xml=lambda: root))
        if fault is not None:
            return {"fault": [fault[1]]}, status
        element = list(body_of(root))[0]
        expected_tag = "{%s}%sResponse" % (NS[call.prefix], call.operation)
        if element.tag != expected_tag:
            raise AssertionError("%s answered %s" % (call, element.tag))
        return answer_of_xml(element), status


class WebFrontTest(WebFrontTestCase):
    tls = True

    @classmethod
    def setUpClass(cls):
        super().setUpClass()
        cls.curl = Curl(cls.web)
        cls.clients = {}
        try:
            cls.gw.start_handler()
        except BaseException:
            cls.web.close()
            cls.gw.close()
            raise

    def zeep_client(self, prefix, user):
        """A zeep client made from the served WSDL alone, authenticating as `user`."""
        key = (prefix, user)
        if zeep is None:
            self.skipTest("python3-zeep is not installed")
        if key not in self.clients:
            session = requests.Session()
            session.auth = (user, self.web.passwords[user])
            self.clients[key] = zeep.Client(self.web.url("/wsdl/%s.wsdl" % WSDL_OF[prefix]),
                                            transport=Transport(session=session))
        return self.clients[key]

    def zeep_answer(self, call, user):
        client = self.zeep_client(call.prefix, user)
        operation = client.service._binding._operations[call.operation]
        try:
            result = getattr(client.service, call.operation)(**_zeep_args(call.args))
        except zeep.exceptions.Fault as fault:
            return {"fault": [fault.message]}
        return answer_of_zeep(operation, result)

    def test_zeep_calls_every_operation_as_every_user(self):
        for call in CALLS:
            for user in USERS:
                with self.subTest(call=str(call), user=user):
                    call.check(self, user, self.zeep_answer(call, user))

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

    # The WSDL gives each rpc/literal message part once, and the generator declares the
    # repeated "descriptors" of these two responses as one part; zeep then refuses a second
    # element. A zeep client reads such answers through raw_response.
    def test_zeep_reads_no_repeated_descriptors(self):
        client = self.zeep_client("nsqv", "guest")
        for operation, args in [
                ("getDeviceTree", {"options": "", "startingPath": "/", "bRecursive": True}),
                ("getLeafDescriptors", {"options": "", "basePath": "/Meter1/",
                                        "leafPaths": {"string": ["Voltage", "Current"]}})]:
            with self.subTest(operation=operation):
                with self.assertRaisesRegex(zeep.exceptions.XMLParseError,
                                            "Unexpected element 'descriptors'"):
                    getattr(client.service, operation)(**args)
                with client.settings(raw_response=True):
                    raw = getattr(client.service, operation)(**args)
                self.assertGreater(raw.text.count("<descriptors>"), 1)

    def test_curl_calls_every_operation_in_soap_11_and_12(self):
        for version in (SOAP11, SOAP12):
            for call in CALLS:
                for user in USERS:
                    with self.subTest(call=str(call), user=user, version=version):
                        answer, status = self.curl.answer(call, user, version)
                        call.check(self, user, answer)
                        faulted = "fault" in answer
                        self.assertEqual(status != 200, faulted, status)

    def test_requests_without_valid_credentials_never_reach_the_daemon(self):
        call = CALLS[0]
        for credentials in ({}, {"user": "guest", "password": "wrong"},
                            {"user": "nobody", "password": "x"}):
            status, headers, body = self.curl.post(envelope_of(call, SOAP11), **credentials)
            self.assertEqual(status, 401, credentials)
            # lighttpd's refusal: its realm, and no SOAP in the body.
            self.assertEqual(headers["www-authenticate"], 'Basic realm="wsgate", charset="UTF-8"')
            self.assertNotIn(b"Envelope", body)
        # A request without a user that reached the daemon would have logged, before its
        # answer, that REMOTE_USER was missing.
        self.assertNotIn("Failed to get REMOTE_USER", self.gw.stderr_text())

    def test_a_refused_write_is_the_daemons_401_and_a_write_names_its_writer(self):
        write = next(c for c in CALLS if c.operation == "setValue")
        status, headers, body = self.curl.post(envelope_of(write, SOAP11), "guest")
        self.assertEqual(status, 401)
        self.assertNotIn("wsgate", headers.get("www-authenticate", ""))
        self.assertIn(b"<faultstring>Error 401: HTTP 401 Unauthorized</faultstring>", body)
        status, _, _ = self.curl.post(envelope_of(write, SOAP11), "operator")
        self.assertEqual(status, 200)
        self.assertIn("source:  Web-Services:operator@127.0.0.1\n",
                      self.gw.cds("get", "-l", write.args["path"]).stdout)

    def test_user_address_and_https_reach_the_daemon(self):
        who = next(c for c in CALLS if c.operation == "whoAmI")
        for https in (False, True):
            status, _, body = self.curl.post(envelope_of(who, SOAP11), "admin", https=https)
            self.assertEqual(status, 200)
            self.assertIn(b"<result>admin</result>", body)
        # The daemon records a caller after it has answered, so the lines may come later.
        for line in (r"New wsgated connection \d+ for 127\.0\.0\.1admin \n",
                     r"New wsgated connection \d+S for 127\.0\.0\.1adminS \n"):
            wait_until(lambda: re.search(line, self.gw.stderr_text()), what=line)

    def test_wsdl_and_schemas_are_served_with_the_real_endpoint(self):
        for name in sorted(os.listdir(self.web.wsdl_dir)):
            if not name.endswith((".wsdl", ".xsd")):
                continue
            with self.subTest(name=name):
                status, headers, body = self.curl.get("/wsdl/" + name)
                self.assertEqual(status, 200)
                self.assertEqual(headers["content-type"], "text/xml; charset=utf-8")
                root = ET.fromstring(body)
                addresses = [e.get("location") for e in root.iter(
                    "{http://schemas.xmlsoap.org/wsdl/soap/}address")]
                self.assertEqual(addresses, [self.web.url()] if name.endswith(".wsdl") else [])
        # The build's own files keep the generator's address.
        with open(os.path.join(self.web.wsdl_dir, "BACnetWSKite.wsdl")) as f:
            self.assertIn('location="http://localhost:8080/ws"', f.read())

    def test_only_the_endpoint_the_wsdl_directory_and_the_explorer_are_served(self):
        # The explorer's own files are tested in explorer_test.py.
        for path in ("/wsdl/", "/wsx", "/ws/extra", "/lighttpd.conf", "/users",
                     "/wsdl/../users", "/explorer.html", "/javascript/chart.js/chart.js",
                     "/javascript/"):
            with self.subTest(path=path):
                self.assertIn(self.curl.get(path)[0], (403, 404))

    def test_the_error_log_is_written_through_its_filter(self):
        wait_until(lambda: "server started" in self.web.log("error.log"),
                   what="lighttpd's start in error.log")

    def test_a_request_body_over_one_megabyte_is_refused_by_the_web_server(self):
        big = envelope_of(Call("nsc1", "getValue", read("/" + "A" * (1024 * 1024))), SOAP11)
        status, _, body = self.curl.post(big, "guest")
        self.assertEqual(status, 413)  # never the daemon's: it answers 200, 4xx faults or 500
        self.assertNotIn(b"Envelope", body)


class ErrorLogFilterTest(unittest.TestCase):
    """deploy/lighttpd/errorlog.awk keeps one pair of lighttpd's connection-bound notes per
    minute and every other line."""

    LIMIT = "(server.c.1089) [note] sockets disabled, connection limit reached"
    AGAIN = "(server.c.1081) [note] sockets enabled again"
    FDS = "(server.c.1089) [note] sockets disabled, out-of-fds"
    OTHER = "(gw_backend.c.274) establishing connection failed: socket: unix:/s"

    def test_filter(self):
        rows = [  # (lines in, as minute and text; which of them come out)
            ([("10:00", self.OTHER)], [0]),
            ([("10:00", self.LIMIT), ("10:00", self.AGAIN), ("10:00", self.LIMIT),
              ("10:00", self.AGAIN), ("10:01", self.LIMIT), ("10:01", self.AGAIN)], [0, 1, 4, 5]),
            # Other lines between a dropped note and its pair pass, and so does the pair.
            ([("10:00", self.LIMIT), ("10:00", self.AGAIN), ("10:00", self.LIMIT),
              ("10:00", self.OTHER), ("10:00", self.AGAIN)], [0, 1, 3, 4]),
            ([("10:00", self.FDS), ("10:00", self.AGAIN), ("10:00", self.FDS),
              ("10:00", self.AGAIN)], [0, 1, 2, 3]),
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


class NginxSiteTest(unittest.TestCase):
    """The nginx twin of the site, checked by nginx itself where nginx is installed."""

    def test_nginx_accepts_the_written_site(self):
        nginx = shutil.which("nginx") or "/usr/sbin/nginx"
        if not os.access(nginx, os.X_OK):
            self.skipTest("nginx is not installed")
        import tempfile
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
