"""Subscriptions and alarms through the real daemon on the demo gateway. The records, the
answers and every failure row have their cases in the unit tests; here is what only the
daemon shows: the record another process reads back with `cds` after create, update and
cancel, with the caller the web server named; an acknowledgement in the event queue as `cds
events` shows it; the demo's alarm table; the callers' read rights; and the error texts,
faults and diagnostics as a client and the log see them."""

import json
import re
import unittest

from wsgate_testlib import NS, GatewayTestCase, fault_of, text_element

NSC1 = "{%s}" % NS["nsc1"]
NSS1 = "{%s}" % NS["nss1"]
PUBLISHER = "/Software/Data Servers/WS-Publisher"
SUBS = PUBLISHER + "/Subscriptions"
COUNTER = PUBLISHER + "/SubUpdateCount/Value"


def node_subscriptions(nodes):
    return "".join(
        "<nsc1:NodeSubscription>%s<nsc1:RequestedFreshness>%d</nsc1:RequestedFreshness>"
        "<nsc1:DeadbandPercent>%s</nsc1:DeadbandPercent></nsc1:NodeSubscription>"
        % (text_element("nsc1:Path", path), freshness, deadband)
        for path, freshness, deadband in nodes)


def create(sub_id, nodes, reply="http://10.9.9.9/notify", lease=60000, since=1700000000000,
           log_options="Alarm Configuration"):
    return ("<nsc1:createSubscription><nsc1:options/>%s%s<nsc1:leaseDuration>%d"
            "</nsc1:leaseDuration><nsc1:realTimeNodes>%s</nsc1:realTimeNodes>"
            "<nsc1:logSinceTime>%d</nsc1:logSinceTime><nsc1:subscribeLogOptions>%s"
            "</nsc1:subscribeLogOptions></nsc1:createSubscription>"
            % (text_element("nsc1:subscriptionId", sub_id), text_element("nsc1:replyUri", reply),
               lease, node_subscriptions(nodes), since, log_options))


def update(sub_id, add=(), remove=()):
    return ("<nsc1:updateSubscriptionRealTimeNodes>%s<nsc1:realTimeNodesToAdd>%s"
            "</nsc1:realTimeNodesToAdd><nsc1:realTimeNodesToRemove>%s"
            "</nsc1:realTimeNodesToRemove></nsc1:updateSubscriptionRealTimeNodes>"
            % (text_element("nsc1:subscriptionId", sub_id), node_subscriptions(add),
               "".join(text_element("nsc1:string", p) for p in remove)))


def cancel(sub_id):
    return "<nsc1:cancelSubscription>%s</nsc1:cancelSubscription>" % text_element(
        "nsc1:subscriptionId", sub_id)


def acknowledge(*requests):
    items = "".join("<nsc1:AckRequest><nsc1:EventId>%s</nsc1:EventId>%s<nsc1:VariationLevel>%d"
                    "</nsc1:VariationLevel><nsc1:Status>%s</nsc1:Status></nsc1:AckRequest>"
                    % (event_id, text_element("nsc1:Note", note), level, status)
                    for event_id, note, level, status in requests)
    return "<nsc1:acknowledgeAlarm><nsc1:requests>%s</nsc1:requests></nsc1:acknowledgeAlarm>" % items


def active_alarms(max_count=0, latest=False, reverse=False, trim=False, path="", options=""):
    flag = lambda b: "true" if b else "false"
    return ("<nsqv:getActiveAlarms><request><options>%s</options><rqstType>LgRqTypAlarmEvents"
            "</rqstType><startTime>0</startTime><endTime>0</endTime><nMaxToReturn>%d"
            "</nMaxToReturn><bLatestEvents>%s</bLatestEvents><bReverseOrder>%s</bReverseOrder>"
            "<bTrimIncomplete>%s</bTrimIncomplete><path>%s</path></request></nsqv:getActiveAlarms>"
            % (options, max_count, flag(latest), flag(reverse), flag(trim), path))


def results(answer):
    """(Value, NumericValue or None, Quality) of each RealTimeNodeSubscriptionResult."""
    return [(r.findtext(NSC1 + "Value"), r.findtext(NSC1 + "NumericValue"),
             r.findtext(NSC1 + "Quality"))
            for r in answer.iter(NSC1 + "RealTimeNodeSubscriptionResult")]


class SubscriptionsTest(GatewayTestCase):
    @classmethod
    def setUpClass(cls):
        super().setUpClass()
        # Everyone but operator and admin is denied /System.
        cls.gw.cds("rights", "grant", "*", "/System", "-")

    def leaves(self, path):
        """Every leaf below `path` as another process reads it: {relative path: (value, type)}."""
        doc = json.loads(self.gw.cds("export", path, "-").stdout)
        return {leaf["path"][len(path):]: (leaf["value"], leaf["type"]) for leaf in doc["leaves"]}

    def source(self, path):
        return re.search(r"source:\s+(.*)\n", self.gw.cds("get", "-l", path).stdout).group(1)

    def test_a_subscription_from_create_to_cancel(self):
        counter = int(self.gw.get(COUNTER))
        answer = self.gw.call(create("e2e-1", [("/Meter1/Voltage", 1000, "0.5"),
                                               ("/Meter1/Mode", 500, "1"), ("/", 1, "0")]),
                              user="guest", addr="10.1.2.3")
        self.assertEqual(results(answer), [("230.4", None, "192"), ("Auto", "1", "192")])
        record = self.leaves(SUBS + "/e2e-1")
        expected = {
            "/ReplyURI/Value": ("http://10.9.9.9/notify", "String"),
            "/LeaseDuration/Value": ("60000", "Integer"),
            "/LogSinceTime/Value": ("1700000000000", "timeval"),
            "/LogOptions/Value": ("12", "Integer"),
            "/RTNodeCount/Value": ("2", "Integer"),
            "/RTNodes/HasDynamicChildren": ("true", "Boolean"),
            "/RTNodes/Meter1.Voltage/RqstdFreshness/Value": ("1000", "Integer"),
            "/RTNodes/Meter1.Voltage/Deadband/Value": ("0.5", "Real"),
            "/RTNodes/Meter1.Mode/Deadband/Units": ("percent", "String"),
        }
        self.assertEqual({k: record[k] for k in expected}, expected)
        self.assertEqual(len(record), 41)
        self.assertEqual(int(self.gw.get(COUNTER)), counter + 1)
        self.assertEqual(self.source(SUBS + "/e2e-1/ReplyURI/Value"),
                         "Web-Services:guest@10.1.2.3")

        answer = self.gw.call(update("e2e-1", add=[("/AHU1/Fan", 200, "0")],
                                     remove=["/Meter1/Mode"]), user="guest")
        self.assertEqual(results(answer), [("Off", "0", "192")])
        record = self.leaves(SUBS + "/e2e-1")
        self.assertEqual(record["/RTNodeCount/Value"], ("2", "Integer"))
        self.assertEqual(sorted({k.split("/")[2] for k in record if k.count("/") > 3}),
                         ["AHU1.Fan", "Meter1.Voltage"])
        self.assertEqual(int(self.gw.get(COUNTER)), counter + 1)  # updates are not announced

        self.gw.call(cancel("e2e-1"), user="guest")
        self.assertEqual(self.gw.cds("ls", SUBS).stdout.split(), ["sub-1/"])
        self.assertEqual(int(self.gw.get(COUNTER)), counter + 2)
        self.assertIn("New subscription from remote address of 10.1.2.3\n",
                      self.gw.stderr_text())

    def test_values_are_read_with_the_callers_right(self):
        nodes = [("/System/Location", 1, "0"), ("/System/Location.AttribType", 1, "0")]
        for user, location in (("guest", "? 2 Not Authorized : Unauthorized read"),
                               ("operator", "Plant room B")):
            with self.subTest(user=user):
                answer = self.gw.call(create("e2e-rights", nodes), user=user)
                value, _, quality = results(answer)[0]
                self.assertEqual((value, quality), (location, "0" if user == "guest" else "192"))
                self.assertEqual(results(answer)[1][0], "String")  # metadata needs no right
        # The entries are written whatever the caller may read.
        self.assertEqual(self.gw.get(SUBS + "/e2e-rights/RTNodeCount"), "2")
        self.gw.call(cancel("e2e-rights"))

    def test_error_texts_and_faults(self):
        counter = self.gw.get(COUNTER)
        answer = self.gw.call(update("nobody", add=[("/Meter1/Voltage", 1, "0")]))
        self.assertEqual(results(answer), [("? 28 No match for SubscriberId : "
                                            "updateSubscriptionRealTimeNodes() failed", None, "0")])
        self.assertEqual(answer.findtext(".//" + NSC1 + "Time"), "0")
        unknown_path = results(self.gw.call(create("e2e-err", [("/No/Such", 1, "0"),
                                                               ("No/Slash", 1, "0")])))
        self.assertEqual(unknown_path, [("? 9 Node Not Found : CDS access failed", None, "0"),
                                        ("? 8 Bad Path Syntax : CDS Error in supplied path",
                                         None, "0")])
        self.gw.call(cancel("e2e-err"))
        counter = self.gw.get(COUNTER)
        # An empty id writes nothing and answers no list.
        self.assertEqual(list(self.gw.call(create("", [("/Meter1/Voltage", 1, "0")]))), [])
        for body, fault in ((update(""), "Client fault"), (cancel("nobody"), "Client fault"),
                            (create("a/b", []), "Client fault"),
                            ("<nsc1:acknowledgeAlarm><nsc1:requests/></nsc1:acknowledgeAlarm>",
                             "End of file or no input")):
            with self.subTest(body=body[:60]):
                response = self.gw.request(body)
                self.assertEqual(response.status, 500)
                self.assertIn(fault, fault_of(response)[1])
        self.assertEqual(self.gw.get(COUNTER), counter)
        self.assertEqual(self.gw.cds("ls", SUBS).stdout.split(), ["sub-1/"])
        self.assertIn("updateSubscriptionRealTimeNodes: NULL Subscription ID provided\n",
                      self.gw.stderr_text())

    def test_an_acknowledgement_is_an_event_in_the_queue(self):
        answer = self.gw.call(acknowledge((1001, 'seen "it"\nby me', 2, "Acked"),
                                          (4294967297, None, 1, "Closed")),
                              user="operator", addr="10.4.4.4")
        self.assertEqual([e.text or "" for e in answer.iter(NSC1 + "string")], ["", ""])
        lines = self.gw.cds("events", "--max", "2").stdout.splitlines()
        self.assertRegex(lines[0], r'^\S+Z ack #1001 - category=10 ack=Acked variation=2 '
                                   r'note="seen \\"it\\"\\nby me" by Web-Services:operator@10.4.4.4$')
        self.assertRegex(lines[1], r'^\S+Z ack #4294967297 - category=10 ack=Closed variation=1 '
                                   r'by Web-Services:operator@10.4.4.4$')
        event = json.loads(self.gw.cds("events", "--max", "1", "--json").stdout)[0]
        self.assertEqual({k: event[k] for k in ("kind", "category", "event_id", "ack_status",
                                                "variation_level", "note", "source")},
                         {"kind": 16, "category": 10, "event_id": 4294967297, "ack_status": 2,
                          "variation_level": 1, "note": "",
                          "source": "Web-Services:operator@10.4.4.4"})
        self.assertIn("Ack'ing Alarm #1001 (AckStatus=1, varLevel=2). \n"
                      "               Note = seen \"it\"\nby me \n", self.gw.stderr_text())

    def test_the_demo_alarm_table(self):
        alarms = self.gw.call(active_alarms(reverse=True), user="guest").find("alarms")
        rows = [(a.findtext(NSS1 + "EventId"), a.findtext(NSS1 + "SourcePath"),
                 a.findtext(NSS1 + "Value"), a.findtext(NSS1 + "AckStatus"),
                 a.findtext(NSS1 + "BasePriority")) for a in alarms]
        self.assertEqual(rows, [("1003", "/Meter10/Online", "false", "Closed", "5000"),
                                ("4294967297", "/Meter1/Status", "Fault", "NotAcked", "200"),
                                ("1002", "/AHU1/SupplyTemp", "26.8", "Acked", "500"),
                                ("1001", "/Meter1/Voltage", "254.2", "NotAcked", "100")])
        answer = self.gw.call(active_alarms(max_count=2, latest=True, trim=True))
        self.assertEqual(answer.findtext("numTrimmedEvents"), "1")
        self.assertEqual([a.findtext(NSS1 + "EventId") for a in answer.find("alarms")], ["1003"])


class NoAlarmTableTest(GatewayTestCase):
    demo = False

    def test_no_alarm_table(self):
        answer = self.gw.call(active_alarms(options="errorPrefix=E:"))
        self.assertEqual(answer.findtext("result"), "E:? 22 No Data Available : No Alarm table")
        self.assertIsNone(answer.find("alarms"))


if __name__ == "__main__":
    unittest.main()
