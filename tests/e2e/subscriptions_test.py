"""Subscriptions and alarms through the real daemon on the demo gateway: the record another
process reads back with `cds` after create, update and cancel, written by the caller the web
server named; values read with the caller's rights; an acknowledgement in the event queue as
`cds events` shows it, with the daemon's diagnostics. The records, answers, failure rows and
their faults are the unit tests' (tests/unit/subscriptions_test.cc, alarms_test.cc)."""

import json
import re
import unittest

from wsgate_testlib import NS, GatewayTestCase, text_element

NSC1 = "{%s}" % NS["nsc1"]
PUBLISHER = "/Software/Data Servers/WS-Publisher"
SUBS = PUBLISHER + "/Subscriptions"
COUNTER = PUBLISHER + "/SubUpdateCount/Value"


def node_subscriptions(nodes):
    return "".join(
        "<nsc1:NodeSubscription>%s<nsc1:RequestedFreshness>%d</nsc1:RequestedFreshness>"
        "<nsc1:DeadbandPercent>%s</nsc1:DeadbandPercent></nsc1:NodeSubscription>"
        % (text_element("nsc1:Path", path), freshness, deadband)
        for path, freshness, deadband in nodes)


def create(sub_id, nodes):
    return ("<nsc1:createSubscription><nsc1:options/>%s<nsc1:replyUri>http://10.9.9.9/notify"
            "</nsc1:replyUri><nsc1:leaseDuration>60000</nsc1:leaseDuration><nsc1:realTimeNodes>"
            "%s</nsc1:realTimeNodes><nsc1:logSinceTime>1700000000000</nsc1:logSinceTime>"
            "<nsc1:subscribeLogOptions>Alarm Configuration</nsc1:subscribeLogOptions>"
            "</nsc1:createSubscription>"
            % (text_element("nsc1:subscriptionId", sub_id), node_subscriptions(nodes)))


def update(sub_id, add=(), remove=()):
    return ("<nsc1:updateSubscriptionRealTimeNodes>%s<nsc1:realTimeNodesToAdd>%s"
            "</nsc1:realTimeNodesToAdd><nsc1:realTimeNodesToRemove>%s"
            "</nsc1:realTimeNodesToRemove></nsc1:updateSubscriptionRealTimeNodes>"
            % (text_element("nsc1:subscriptionId", sub_id), node_subscriptions(add),
               "".join(text_element("nsc1:string", p) for p in remove)))


def cancel(sub_id):
    return "<nsc1:cancelSubscription>%s</nsc1:cancelSubscription>" % text_element(
        "nsc1:subscriptionId", sub_id)


def results(answer):
    """(Value, NumericValue or None, Quality) of each RealTimeNodeSubscriptionResult."""
    return [(r.findtext(NSC1 + "Value"), r.findtext(NSC1 + "NumericValue"),
             r.findtext(NSC1 + "Quality"))
            for r in answer.iter(NSC1 + "RealTimeNodeSubscriptionResult")]


class SubscriptionsTest(GatewayTestCase):
    def leaves(self, path):
        """Every leaf below `path` as another process reads it: {relative path: (value, type)}."""
        doc = json.loads(self.gw.cds("export", path, "-").stdout)
        return {leaf["path"][len(path):]: (leaf["value"], leaf["type"]) for leaf in doc["leaves"]}

    def test_a_subscription_from_create_to_cancel(self):
        counter = int(self.gw.get(COUNTER))
        answer = self.gw.call(create("e2e-1", [("/Meter1/Voltage", 1000, "0.5"),
                                               ("/Meter1/Mode", 500, "1"), ("/", 1, "0")]),
                              user="guest", addr="10.1.2.3")
        self.assertEqual(results(answer), [("230.4", None, "192"), ("Auto", "1", "192")])
        record = self.leaves(SUBS + "/e2e-1")
        expected = {"/ReplyURI/Value": ("http://10.9.9.9/notify", "String"),
                    "/LogOptions/Value": ("12", "Integer"), "/RTNodeCount/Value": ("2", "Integer"),
                    "/RTNodes/Meter1.Voltage/Deadband/Value": ("0.5", "Real")}
        self.assertEqual({k: record[k] for k in expected}, expected)
        self.assertEqual(len(record), 41)
        self.assertEqual(re.search(r"source:\s+(.*)\n", self.gw.cds(
            "get", "-l", SUBS + "/e2e-1/ReplyURI/Value").stdout).group(1),
            "Web-Services:guest@10.1.2.3")

        answer = self.gw.call(update("e2e-1", add=[("/AHU1/Fan", 200, "0")],
                                     remove=["/Meter1/Mode"]), user="guest")
        self.assertEqual(results(answer), [("Off", "0", "192")])
        record = self.leaves(SUBS + "/e2e-1")
        self.assertEqual(sorted({k.split("/")[2] for k in record if k.count("/") > 3}),
                         ["AHU1.Fan", "Meter1.Voltage"])
        self.assertEqual(int(self.gw.get(COUNTER)), counter + 1)  # updates are not announced

        self.gw.call(cancel("e2e-1"), user="guest")
        # An id that cannot name a record is a fault, and writes nothing.
        self.assertEqual(self.gw.request(create("a/b", [])).status, 500)
        self.assertEqual(self.gw.cds("ls", SUBS).stdout.split(), ["sub-1/"])
        self.assertEqual(int(self.gw.get(COUNTER)), counter + 2)
        self.assertIn("New subscription from remote address of 10.1.2.3\n", self.gw.stderr_text())

    def test_values_are_read_with_the_callers_right(self):
        self.gw.cds("rights", "grant", "*", "/System", "-")  # all but operator and admin
        nodes = [("/System/Location", 1, "0"), ("/System/Location.AttribType", 1, "0")]
        for user, location in (("guest", ("? 2 Not Authorized : Unauthorized read", None, "0")),
                               ("operator", ("Plant room B", None, "192"))):
            with self.subTest(user=user):
                # The entries are written whatever the caller may read; metadata needs no right.
                self.assertEqual(results(self.gw.call(create("e2e-rights", nodes), user=user)),
                                 [location, ("String", None, "192")])
                self.assertEqual(self.gw.get(SUBS + "/e2e-rights/RTNodeCount"), "2")
        self.gw.call(cancel("e2e-rights"))

    def test_an_acknowledgement_is_an_event_in_the_queue(self):
        acks = "".join("<nsc1:AckRequest><nsc1:EventId>%s</nsc1:EventId>%s<nsc1:VariationLevel>%d"
                       "</nsc1:VariationLevel><nsc1:Status>%s</nsc1:Status></nsc1:AckRequest>"
                       % (event_id, text_element("nsc1:Note", note), level, status)
                       for event_id, note, level, status in ((1001, 'seen "it"\nby me', 2, "Acked"),
                                                             (4294967297, None, 1, "Closed")))
        answer = self.gw.call("<nsc1:acknowledgeAlarm><nsc1:requests>%s</nsc1:requests>"
                              "</nsc1:acknowledgeAlarm>" % acks, user="operator", addr="10.4.4.4")
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


if __name__ == "__main__":
    unittest.main()
