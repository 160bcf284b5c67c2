"""Hostile requests through the real daemon, one table: each is answered (by a SOAP fault, an
error text, or for merely large requests a complete answer), the daemon stays up, the store
keeps every value it had, and the daemon's resident memory ends where it began.

The valid requests that rows start from are the fuzzer's seeds (tests/fuzz/corpus/op-*): one
per operation, so every operation gets its rows as soon as its seed exists."""

import json
import os
import re
import unittest
from xml.sax.saxutils import escape

from wsgate_testlib import (APP_PATH, NS, SOURCE_DIR, GatewayTestCase, body_of, envelope,
                            fault_of, fcgi_request)

CORPUS = os.path.join(SOURCE_DIR, "tests", "fuzz", "corpus")
USERS = {"0": None, "1": "guest", "2": "operator", "3": "admin"}

# Out-of-range and malformed texts for each numeric and enumerated field type.
BAD_NUMBERS = {
    "int": ["2147483648", "-2147483649", "99999999999999999999", "1.5", "0x10", "x", ""],
    "long": ["9223372036854775808", "-9223372036854775809", "1e30", "x", ""],
    "ulong": ["-1", "18446744073709551616", "1e3", "x", ""],
    "uint": ["-1", "4294967296", "x", ""],
    "double": ["1e400x", "--1", "x", ""],
    "bool": ["2", "yes", ""],
    "enum": ["Bogus", "99", ""],
}
# The numeric and enumerated fields of every request, by operation.
NUMERIC_FIELDS = {
    "getArrayRange": {"index": "ulong", "count": "ulong"},
    "createSubscription": {"leaseDuration": "int", "RequestedFreshness": "int",
                           "DeadbandPercent": "double", "logSinceTime": "long"},
    "updateSubscriptionRealTimeNodes": {"RequestedFreshness": "int", "DeadbandPercent": "double"},
    "acknowledgeAlarm": {"EventId": "ulong", "VariationLevel": "int", "Status": "enum"},
    "sendDeviceCmd": {"cmdVersion": "int", "num": "int", "psswd": "int"},
    "getDeviceCmdResult": {"cmdHandle": "int"},
    "getMinAvgMaxValues": {"startTime": "long", "endTime": "long", "ratePeriod": "enum"},
    "getDeviceTree": {"bRecursive": "bool"},
    "findAttributeMatches": {"bRecursive": "bool"},
    "getDeltaLog": {"rqstType": "enum", "startTime": "long", "endTime": "long",
                    "nMaxToReturn": "int", "bLatestEvents": "bool"},
    "getEventLog": {"startTime": "long", "endTime": "long", "nMaxToReturn": "int",
                    "bReverseOrder": "bool"},
    "getActiveAlarms": {"nMaxToReturn": "int", "bTrimIncomplete": "bool"},
    "getTrendData": {"period": "uint", "startTime": "long", "endTime": "long",
                     "nMaxToReturn": "int", "startingOffset": "uint", "ascendingOrder": "bool"},
}
# Operations whose requests name store paths, with the field that holds one.
PATH_FIELDS = {"getValue": "path", "getArray": "path", "getArraySize": "path",
               "getArrayRange": "path", "getValues": "string", "getRelativeValues": "basePath",
               "setValue": "path", "setValues": "paths", "SetLeaf": "path", "SetLeaves": "paths",
               "CreateNode": "basePath", "RemoveNode": "basePath"}
HOSTILE_PATHS = ["/Meter1/\x01Voltage", "/Meter1/&#x1;Voltage", "/Meter1/Voltage\x7f",
                 "/Meter1/Voltage\t", "/../Meter1/Voltage", "/Meter1/../Meter1/Voltage",
                 "/AHU1/Setpoint/..", "..", "/AHU1/Setpoint/../../System", "/\x1b[2J"]


def seed(operation):
    """(user, request body bytes) of the operation's seed."""
    with open(os.path.join(CORPUS, "op-" + operation), "rb") as f:
        data = f.read()
    return USERS[chr(data[0])], data[1:]


def with_fields(data, **texts):
    """`data` with the text of every element named by a key (any prefix) replaced."""
    for field, text in texts.items():
        pattern = re.compile(rb"(<((?:\w+:)?%s)>)[^<]*(</\2>)" % field.encode())
        data = pattern.sub(lambda m: m.group(1) + text + m.group(3), data)
    return data


def with_operation(data, element):
    """The seed with the operation element (the body's child) replaced by `element` % name."""
    start = data.index(b"<", data.index(b"Body>") + 5)
    name = data[start + 1:data.index(b">", start)].split()[0]
    return data[:start] + element % name + data[data.index(b"</SOAP-ENV:Body>"):]


def nsc1(operation, inner):
    return envelope("<nsc1:%s>%s</nsc1:%s>" % (operation, inner, operation))


def paths(items, tag="nsc1:string"):
    return "".join("<%s>%s</%s>" % (tag, escape(p), tag) for p in items)


# --- expectations: each takes the response and the test, and fails the test when unmet ---

def answer_element(response):
    """The response element: the body's child, or the root of an answer without envelope."""
    root = response.xml()
    return list(body_of(root))[0] if root.tag.endswith("}Envelope") else root


def results(response):
    """The texts of the response element's innermost elements (the operation's results)."""
    return [e.text or "" for e in answer_element(response).iter() if len(e) == 0]


def fault(pattern=""):
    def check(response, test):
        found = fault_of(response)
        test.assertIsNotNone(found, "no fault: %r" % response.body[-300:])
        test.assertTrue(re.search(pattern, found[1] or ""), found)
    return check


def error_or_fault(response, test):
    """A fault, or a response whose every result is an error text (after the errorPrefix
    option where a request sets one)."""
    if not answer_element(response).tag.endswith("}Fault"):
        texts = results(response)
        test.assertTrue(texts and all(re.match(r"[^?\s]*\? \d+ ", t) for t in texts), texts[:5])


def answered(response, test, limit=None):
    """A fault or a response: whatever it says, the request got a whole answer (of at most
    `limit` bytes)."""
    test.assertTrue(response.body.rstrip().endswith(b">"), response.body[-200:])
    response.xml()
    if limit:
        test.assertLess(len(response.body), limit)


def results_are(expected=None, n=None, prefix=""):
    """The results are `expected`, or `n` texts that start with `prefix`."""
    def check(response, test):
        texts = results(response)
        if expected is not None:
            test.assertEqual(texts, expected)
        else:
            test.assertEqual(len(texts), n)
            test.assertTrue(all(t.startswith(prefix) for t in texts), texts[:3])
    return check


# --- the table: (name, request, expectation[, user]) ---------------------------------------

def malformed_rows():
    whole = seed("getValue")[1]
    soap = NS["SOAP-ENV"].encode()
    header = (b'<SOAP-ENV:Header><h:x xmlns:h="urn:h" SOAP-ENV:mustUnderstand="1"/>'
              b'</SOAP-ENV:Header><SOAP-ENV:Body>')
    return [("truncated at %d%%" % p, whole[:len(whole) * p // 100], fault()) for p in (5, 60, 99)] + [
        ("truncated in a tag name", whole[:whole.index(b"nsc1:path") + 6], fault()),
        # The runtime does not compare an end tag's name with its start tag's.
        ("mismatched end tag", whole.replace(b"</nsc1:path>", b"</nsc1:paht>"), answered),
        ("missing end tags", re.sub(b"</nsc1:(path|getValue)>", b"", whole), fault()),
        ("not XML", b"\x00\x01\x02 binary \xff\xfe noise \x00", fault()),
        ("empty body", b"", fault()),
        # Text first: the runtime reads it as HTTP headers, "-8" as a status of 65528.
        ("text read as a status line", b"nsqv<?xml -8\x02?>\n", fault()),
        ("wrong envelope namespace", whole.replace(soap, b"urn:not-soap"), fault()),
        ("body without envelope", b'<SOAP-ENV:Body xmlns:SOAP-ENV="%s"><x/></SOAP-ENV:Body>' % soap,
         fault()),
        ("envelope without body", b'<SOAP-ENV:Envelope xmlns:SOAP-ENV="%s"/>' % soap, fault()),
        # The runtime takes a request element without an envelope as plain XML and answers it
        # in kind; nothing is refused that an enveloped request could not do.
        ("request without envelope", b'<g:getValue xmlns:g="%s"><g:path>/No/Such</g:path>'
         b'</g:getValue>' % NS["nsc1"].encode(), error_or_fault),
        ("unknown mandatory header", whole.replace(b"<SOAP-ENV:Body>", header),
         fault("understood|mustUnderstand")),
        ("undeclared prefix", envelope("<zz:getValue><zz:path>/A</zz:path></zz:getValue>"), fault()),
        # References between elements are not followed: each reads as the empty text.
        ("reference to a missing id",
         nsc1("getValues", '<nsc1:paths><nsc1:string href="#nowhere"/></nsc1:paths>'), error_or_fault),
        ("reference to itself", nsc1("getValue", '<nsc1:path id="a" href="#a"/>'), error_or_fault),
        ("reference to another element", nsc1("getValues", '<nsc1:paths><nsc1:string href="#v"/>'
         '<nsc1:string id="v">/Meter1/Voltage</nsc1:string></nsc1:paths>'), answered),
        ("encoded array of a billion items", nsc1(
            "getValues", '<nsc1:paths xmlns:E="http://schemas.xmlsoap.org/soap/encoding/" '
            'E:arrayType="xsd:string[999999999]"><nsc1:string>/A</nsc1:string></nsc1:paths>'),
         answered),
    ]


def nul_rows():
    """NUL is no XML character: refused raw, as a reference, and in the caller's identity,
    before anything is written."""
    write = nsc1("setValue", "<nsc1:path>/AHU1/Setpoint</nsc1:path><nsc1:value>12@34</nsc1:value>")
    return [("NUL %r in a value" % nul, write.replace(b"@", nul), fault("syntax"), "operator")
            for nul in (b"&#0;", b"&#x00;", b"\0")] + [
        ("NUL in the remote user", write.replace(b"@", b""), fault("identity"), "operator\0x")]


def limit_rows():
    laughs = ('<?xml version="1.0"?><!DOCTYPE l [<!ENTITY l0 "lol">'
              + "".join('<!ENTITY l%d "%s">' % (i, ("&l%d;" % (i - 1)) * 10) for i in range(1, 10))
              + "]>").encode() + nsc1("getValue", "<nsc1:path>&l9;</nsc1:path>").split(b"?>", 1)[1]
    whoami = envelope("<nsqv:whoAmI/>")
    body = b"<SOAP-ENV:Body>"

    def get(path):
        return nsc1("getValue", "<nsc1:path>%s</nsc1:path>" % path)
    return [
        ("100,000-level nesting", nsc1("getValue", "<nsc1:x>" * 100000 + "</nsc1:x>" * 100000),
         fault("nesting")),
        ("100,000-level nesting in a text", get("<a>" * 100000 + "</a>" * 100000), fault("nesting")),
        ("entity expansion (billion laughs)", laughs,
         lambda response, test: answered(response, test, limit=8192)),
        ("50 MB after the envelope", whoami + b" " * (50 << 20), answered),
        ("text before the operation", whoami.replace(body, body + b"x" * (1 << 20)),
         fault("Method ''")),
        ("50 MB body", whoami.replace(body, body + b" " * (50 << 20)), fault("max message")),
        ("1 MB path", get("/" + "A" * 1000000), error_or_fault),
        ("path over 1 MiB", get("/" + "A" * (1 << 20)), fault("length")),
        ("20,000 attributes", envelope("<nsqv:whoAmI %s/>" % " ".join(
            'a%d="x"' % i for i in range(20000))), fault("occurrence")),
        ("20,000 namespace declarations", envelope("<nsqv:whoAmI %s/>" % " ".join(
            'xmlns:p%d="urn:%d"' % (i, i) for i in range(20000))), fault("occurrence")),
        ("100,001 list items",
         nsc1("getValues", "<nsc1:paths>" + "<nsc1:string/>" * 100001 + "</nsc1:paths>"),
         fault("occurrence")),
        ("invalid UTF-8 in a path", get("/Meter1/@").replace(b"@", b"\xff\xfe\xc3\x28\xed\xa0\x80"),
         error_or_fault),
        ("invalid UTF-8 in a tag name", envelope("<nsc1:get@Value/>").replace(b"@", b"\xff\xc0"),
         fault()),
        ("1 MB regular expression",
         with_fields(regex_request(), regexMatchPattern=b"x|" * 500000 + b"kW"),
         lambda response, test: test.assertRegex(results(response)[0], r"^\? 33 Argument Invalid")),
    ] + large_rows()


def large_rows():
    """Requests that take the daemon's memory to its high-water mark, sent once before the
    memory is first measured: large but legitimate requests, answered in full, and a search
    that the regular-expression library abandons on a long text (no match, answered at
    once) after growing its matcher's stack to the library's limit, which the heap then
    keeps for the next search."""
    def nodes(n):
        return ("<nsc1:NodeSubscription><nsc1:Path>/A</nsc1:Path><nsc1:RequestedFreshness>1"
                "</nsc1:RequestedFreshness><nsc1:DeadbandPercent>0</nsc1:DeadbandPercent>"
                "</nsc1:NodeSubscription>") * n

    def create(n):
        return nsc1("createSubscription", (
            "<nsc1:subscriptionId>hostile</nsc1:subscriptionId><nsc1:leaseDuration>1"
            "</nsc1:leaseDuration><nsc1:realTimeNodes>%s</nsc1:realTimeNodes><nsc1:logSinceTime>"
            "0</nsc1:logSinceTime><nsc1:subscribeLogOptions>Alarm</nsc1:subscribeLogOptions>")
            % nodes(n))

    def update(subscription, add, remove):
        return nsc1("updateSubscriptionRealTimeNodes", (
            "<nsc1:subscriptionId>%s</nsc1:subscriptionId><nsc1:realTimeNodesToAdd>%s"
            "</nsc1:realTimeNodesToAdd><nsc1:realTimeNodesToRemove>%s"
            "</nsc1:realTimeNodesToRemove>") % (subscription, nodes(add), paths(["/A"] * remove)))
    acks = ("<nsc1:AckRequest><nsc1:EventId>1</nsc1:EventId><nsc1:VariationLevel>1"
            "</nsc1:VariationLevel><nsc1:Status>Acked</nsc1:Status></nsc1:AckRequest>") * 10001
    return [
        ("catastrophic regular expression", regex_request(), results_are(["", "", ""])),
        ("10,000-item getValues",
         nsc1("getValues", "<nsc1:paths>" + paths(["/Meter1/Voltage"] * 10000) + "</nsc1:paths>"),
         results_are(n=10000, prefix="230.4")),
        ("5,000-pair setValues of read-only points", nsc1("setValues", paths(
            ["/Meter1/Voltage"] * 5000, "nsc1:paths") + paths(["1"] * 5000, "nsc1:values")),
         results_are(n=5000, prefix="? 15"), "operator"),
        # At most 10,000 real-time nodes to add or remove and 10,000 acknowledgements per
        # request; beyond, the request is refused before anything is written.
        ("updateSubscriptionRealTimeNodes of 10,000 nodes", update("nobody", 10000, 10000),
         lambda response, test: test.assertEqual(results(response)[::3], [
             "? 28 No match for SubscriberId : updateSubscriptionRealTimeNodes() failed"])),
        # 100,000 real-time nodes do not even fit in the largest message.
        ("createSubscription of 100,000 real-time nodes", create(100000), fault("max message")),
        ("createSubscription of 10,001 real-time nodes", create(10001), fault("occurrence")),
        ("updateSubscriptionRealTimeNodes removing 10,001 nodes", update("sub-1", 0, 10001),
         fault("occurrence")),
        ("acknowledgeAlarm of 10,001 requests",
         nsc1("acknowledgeAlarm", "<nsc1:requests>%s</nsc1:requests>" % acks), fault("occurrence")),
        # The process's first regular-expression error loads the library's error texts
        # once, half a megabyte that stays.
        ("getActiveAlarms with a malformed regular expression",
         with_fields(seed("getActiveAlarms")[1], path=b"([a-"), answered),
        # The demo's whole history: the trend log's reader stays open from here on.
        ("the whole delta log",
         with_fields(seed("getDeltaLog")[1], startTime=b"0", nMaxToReturn=b"0", path=b""), answered),
        ("a week of trend snapshots",
         with_fields(seed("getTrendData")[1], startTime=b"0", nMaxToReturn=b"0"), answered),
    ]


def log_rows():
    """Log and trend requests at the ends of every range they take."""
    ends = dict(startTime=b"-9223372036854775808", endTime=b"9223372036854775807",
                nMaxToReturn=b"-2147483648")
    trend = seed("getTrendData")[1]
    return [
        ("getDeltaLog over all of time", with_fields(seed("getDeltaLog")[1], **ends), answered),
        ("getEventLog over all of time, trimmed",
         with_fields(seed("getEventLog")[1], bTrimIncomplete=b"true", **ends), answered),
        ("getTrendData over all of time, offset past everything",
         with_fields(trend, startingOffset=b"4294967295", **ends), answered),
        ("getTrendData for 100,000 periods", re.sub(rb"<periods>.*</periods>", b"<periods>"
         + b"<period>1</period>" * 100000 + b"</periods>", trend), answered),
    ]


def regex_request():
    # Nested quantifiers against a long run of "a" not followed by what the pattern needs:
    # exponential for a backtracking matcher. /Hostile/Text holds such a run.
    return with_fields(seed("findAttributeMatches")[1], startingPath=b"/Hostile",
                       attribMatch=b"Text", regexMatchPattern=b"^(a+)+$|((a|aa)+)+b")


def number_rows():
    rows = []
    for operation, fields in sorted(NUMERIC_FIELDS.items()):
        user, data = seed(operation)
        for field, kind in sorted(fields.items()):
            for text in BAD_NUMBERS[kind]:
                request = with_fields(data, **{field: text.encode()})
                assert request != data, (operation, field)
                rows.append(("%s %s=%r" % (operation, field, text), request,
                             fault("invalid|empty|range"), user))
    # Within the types' range, beyond any array: only the low 32 bits count.
    user, data = seed("getArrayRange")
    for index, size in (("4294967295", "18446744073709551615"), ("18446744073709551615", "1"),
                        ("4294967296", "0")):
        rows.append(("getArrayRange index=%s count=%s" % (index, size),
                     with_fields(data, index=index.encode(), count=size.encode()), answered, user))
    return rows


def field_rows():
    rows = []
    for operation in sorted(name[3:] for name in os.listdir(CORPUS) if name.startswith("op-")):
        if operation == "Reset":
            continue  # sent only where the reboot program is a stand-in (maintenance_test.py)
        data = seed(operation)[1]
        # The writes go as far as an operator gets; the rest as anonymous, who may not write.
        user = "operator" if operation in ("setValue", "setValues") else None
        check = error_or_fault if operation in PATH_FIELDS else answered
        rows += [
            ("%s with empty fields" % operation, re.sub(rb">[^<]+</", b"></", data), check, user),
            ("%s with no fields" % operation, with_operation(data, b"<%s/>"), check, user),
            ("%s nil" % operation, with_operation(data, b'<%s xmlns:xsi="http://www.w3.org/2001/'
                                                  b'XMLSchema-instance" xsi:nil="true"/>'),
             fault("nil"), user)]
        for path in HOSTILE_PATHS if operation in PATH_FIELDS else ():
            request = with_fields(data, **{PATH_FIELDS[operation]: path.encode()})
            rows.append(("%s path %r" % (operation, path), request, error_or_fault, user))
    return rows


TABLE = malformed_rows() + nul_rows() + limit_rows() + log_rows() + number_rows() + field_rows()


class HostileRequestTest(GatewayTestCase):
    @classmethod
    def setUpClass(cls):
        super().setUpClass()
        try:
            cls.gw.cds("mkdir", "/Hostile")
            cls.gw.cds("set", "/Hostile/Text", "String", "a" * 40 + "!")
            for _, request, _, *user in large_rows():
                cls.send(request, *user)
            cls.store_before = cls.store()
            cls.memory_before = cls.resident_kib()
        except BaseException:
            cls.gw.close()
            raise

    @classmethod
    def send(cls, request, user=None):
        return fcgi_request(cls.gw.socket, request,
                            {"REMOTE_USER": user, "REMOTE_ADDR": "192.0.2.1"}, timeout=120)

    @classmethod
    def store(cls):
        """`cds export /` without what the daemon writes about itself."""
        doc = json.loads(cls.gw.cds("export", "/", "-").stdout)
        doc["nodes"] = [n for n in doc["nodes"] if not n.startswith(APP_PATH)]
        doc["leaves"] = [leaf for leaf in doc["leaves"] if not leaf["path"].startswith(APP_PATH)]
        return doc

    @classmethod
    def resident_kib(cls):
        with open("/proc/%d/status" % cls.gw.pid) as f:
            return int(re.search(r"VmRSS:\s+(\d+)", f.read()).group(1))

    def test_every_hostile_request_is_answered_and_changes_nothing(self):
        self.assertGreater(len(TABLE), 200)
        for name, request, check, *user in TABLE:
            with self.subTest(name):
                check(self.send(request, *user), self)
                self.assertTrue(self.gw.alive(), self.gw.last_words()[-2000:])
        self.assertEqual(self.store(), self.store_before)
        with open("/proc/%d/maps" % self.gw.pid) as f:
            sanitized = "libasan" in f.read()
        if not sanitized:  # the sanitizers hold freed memory back on purpose
            self.assertLessEqual(self.resident_kib(), self.memory_before * 1.10)


if __name__ == "__main__":
    unittest.main()
