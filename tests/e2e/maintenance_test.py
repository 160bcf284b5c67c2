"""The maintenance operations (nst1) through the real daemon on the demo gateway, with the
store read back by the cds tool: nodes made, written and removed, a subscription's nodes
from a record seeded with `cds import`, every error text of the operations' own, and each
refusal. (SetLeaf and SetLeaves are the value writes with the maintenance flag, which the
writes of CreateNode show.) The reset runs only in a private mount namespace in which a test
file stands at the reboot program's path, so that no test ever restarts the machine it runs on."""

import json
import os
import shutil
import subprocess
import unittest

from wsgate_testlib import NS, Gateway, GatewayTestCase, fault_of, text_element, wait_until

NST1 = "{%s}" % NS["nst1"]
SUBSCRIPTIONS = "/Software/Data Servers/WS-Publisher/Subscriptions/"
REBOOT = "/sbin/reboot"
RESET = "<nst1:Reset><nst1:options></nst1:options></nst1:Reset>"
RESET_LINE = "crit Network Card Reset requested via web services by %s at %s"
NOT_REMOVED = "? 9 Node Not Found : CDS Error removing node"


def body(operation, **fields):
    """An nst1 request with the fields in order; a list repeats its element."""
    parts = []
    for name, value in fields.items():
        for item in value if isinstance(value, list) else [value]:
            parts.append(text_element("nst1:" + name, item))
    return "<nst1:%s>%s</nst1:%s>" % (operation, "".join(parts), operation)


class MaintenanceTest(GatewayTestCase):
    @classmethod
    def setUpClass(cls):
        super().setUpClass()
        rt = SUBSCRIPTIONS + "panel-1/RTNodes/"
        # Node names as CPath::PathToNodeName makes them; sub-3 has no real-time nodes.
        record = {"nodes": [rt + "Meter1.Voltage", rt + "Meter1.Submeter.Power", rt + "Odd\\.Name.x",
                            SUBSCRIPTIONS + "panel-2/RTNodes"],
                  "leaves": [{"path": SUBSCRIPTIONS + "sub-3/ReplyURI/Value", "type": "String",
                              "value": "x"}]}
        cls.gw.cds("import", "-", input=json.dumps(record))

    def results(self, operation, user="admin", **fields):
        answer = self.gw.call(body(operation, **fields), user=user)
        return [e.text or "" for e in answer.findall(NST1 + operation + "Result")]

    def test_create_node_makes_the_node_and_answers_the_last_value_write(self):
        for base, names, values, result, node, leaves in [
                # One trailing "/" or ":" is dropped for the node; the leaves are the base path
                # as sent followed by the names. A ValueType types the Value and is not stored.
                ("/Test/New/", ["ValueType", "Writable", "Value"], ["Real", "true", "1.5"], "1.5",
                 "/Test/New", ["Value Real 1.5", "Writable Boolean true"]),
                ("/Test/Colon:", ["Units"], ["kW"], "kW", "/Test/Colon", ["Units String kW"]),
                # An existing node keeps what it has; "Value" at index 2 answers the third write.
                ("/Meter1/Voltage/", ["Units", "Description", "Value", "Writable"],
                 ["kV", "Mains", "231", "false"], "231", "/Meter1/Voltage",
                 ["Units String kV", "Value Real 231", "Minimum Real 0", "Writable Boolean false"]),
                # Without a "Value" the first write answers, here with its error text.
                ("/Test/NoValue/", ["Children", "Units"], ["x", "A"],
                 "? 11 Illegal Attribute : Automatic Attribute Children is not Writable",
                 "/Test/NoValue", ["Units String A"])]:
            with self.subTest(base=base):
                self.assertEqual(self.results("CreateNode", options="persist", basePath=base,
                                              paths=names, values=values), [result])
                listing = self.gw.cds("ls", node).stdout
                for leaf in leaves:
                    self.assertRegex(listing, r"(?m)^%s$" % leaf.replace(" ", r"\s+"))
        self.assertNotIn("ValueType", self.gw.cds("ls", "/Test/New").stdout)
        # The writes carry the caller and the options.
        listing = self.gw.cds("get", "-l", "/Meter1/Voltage/Units").stdout
        self.assertIn("source:  Web-Services:admin@127.0.0.1\n", listing)
        self.assertIn("storage: Persistent\n", listing)

    def test_remove_node_clears_an_attribute_or_removes_a_subtree(self):
        self.gw.cds("mkdir", "/Test/Tree/a/b")
        self.gw.cds("set", "/Test/Tree/a/Value", "Integer", "1")
        for path, read in (("/Meter1/Current:Resolution", "get"), ("/Test/Tree", "ls")):
            with self.subTest(path=path):
                self.assertEqual(self.results("RemoveNode", options="persist", basePath=path), [""])
                self.assertEqual(self.results("RemoveNode", basePath=path), [NOT_REMOVED])
                self.assertEqual(self.gw.cds(read, path, check=False).returncode, 1)
        self.assertEqual(self.gw.get("/Meter1/Current:Minimum"), "0")

    def test_subscribed_nodes_are_the_record_s_real_time_nodes_as_paths(self):
        self.assertEqual(self.results("getSubscribedNodes", user=None, subscriptionId="panel-1"),
                         ["/Meter1/Submeter/Power", "/Meter1/Voltage", "/Odd.Name/x"])
        self.assertEqual(self.results("getSubscribedNodes", subscriptionId="panel-2"), [])

    def test_error_texts(self):
        no_paths, no_match = "? 17 No Paths Provided : No Paths provided", "? 28 No match for SubscriberId : "
        for operation, fields, text in [
                # CreateNode's own texts do not follow the options.
                ("CreateNode", {"options": "errorPrefix=E:", "basePath": "/Test/X"}, no_paths),
                ("CreateNode", {"options": "errorPrefix=E:", "paths": ["Value"], "values": ["1"]},
                 "? 8 Bad Path Syntax : No node path provided"),
                ("CreateNode", {"basePath": "Test/X/", "paths": ["Value"], "values": ["1"]},
                 "? 16 Write Failed"),
                ("SetLeaves", {"options": "errorPrefix=E:"}, "E:" + no_paths),
                ("RemoveNode", {"options": "errorPrefix=E:"},
                 "E:? 8 Bad Path Syntax : CDS Error in supplied path"),
                ("RemoveNode", {"basePath": "/"}, NOT_REMOVED),
                ("getSubscribedNodes", {}, no_match + "No subscriptionId given"),
                ("getSubscribedNodes", {"subscriptionId": "sub-9"}, no_match + "sub-9"),
                # A record without real-time nodes is no subscription to list.
                ("getSubscribedNodes", {"subscriptionId": "sub-3"}, no_match + "sub-3")]:
            with self.subTest(operation=operation, fields=fields):
                self.assertEqual(self.results(operation, **fields), [text])
        self.assertEqual(self.gw.cds("ls", "/Test/X", check=False).returncode, 1)

    def test_refusals_change_nothing(self):
        def exported():  # the store without what the daemon writes about itself
            doc, own = json.loads(self.gw.cds("export", "/", "-").stdout), "/Software/Data Servers/BACnet"
            return ([n for n in doc["nodes"] if not n.startswith(own)],
                    [leaf for leaf in doc["leaves"] if not leaf["path"].startswith(own)])
        before = exported()
        create = {"basePath": "/Test/Refused/", "paths": ["Value"], "values": ["1"]}
        self.gw.cds("rights", "grant", "limited", "/Test", "rw")
        self.gw.cds("rights", "grant", "limited", "/Test/Refused/Locked", "r")
        for operation, fields, users in [
                ("CreateNode", create, (None, "guest")),
                # The node may be written, one of its leaves may not: nothing is made.
                ("CreateNode", dict(create, paths=["Value", "Locked/Value"], values=["1", "2"]),
                 ("limited",)),
                ("SetLeaf", {"path": "/Meter1/Voltage/Units", "value": "x"}, (None, "guest")),
                ("SetLeaves", {"paths": ["/Meter1/Voltage/Units"], "values": ["x"]}, (None, "guest")),
                ("RemoveNode", {"basePath": "/Meter1/Voltage"}, (None, "guest", "operator")),
                ("RemoveNode", {"basePath": "/Meter1/Voltage:Units"}, ("operator",))]:
            for user in users:
                with self.subTest(operation=operation, user=user):
                    response = self.gw.request(body(operation, **fields), user=user)
                    self.assertEqual(response.status, 401)
                    self.assertIn("401", fault_of(response)[1])
        self.gw.cds("rights", "revoke", "limited", "/Test")
        self.gw.cds("rights", "revoke", "limited", "/Test/Refused/Locked")
        self.assertEqual(exported(), before)


def namespace_launcher(program):
    """A launcher that runs the daemon in a private mount namespace with `program` bound
    over the reboot program; skips the test where that cannot be had."""
    if os.geteuid() != 0:
        raise unittest.SkipTest("a private mount namespace needs root")
    if shutil.which("unshare") is None or not os.path.exists(REBOOT):
        raise unittest.SkipTest("needs unshare and a reboot program at " + REBOOT)
    unshare = ["unshare", "--mount", "--propagation", "private"]
    probe = subprocess.run(unshare + ["true"], capture_output=True, text=True, timeout=30)
    if probe.returncode != 0:
        raise unittest.SkipTest("no private mount namespace: " + probe.stderr.strip())
    # The daemon starts only when the file at the reboot program's path is the test's own.
    return unshare + ["sh", "-c", 'mount --bind "$0" %s && cmp -s "$0" %s && exec "$@"'
                      % (REBOOT, REBOOT), program]


class ResetTest(unittest.TestCase):
    def setUp(self):
        self.gw = Gateway()
        self.addCleanup(self.gw.close)
        self.marker = os.path.join(self.gw.dir, "rebooted")

    def start(self, executable):
        """Starts the daemon with a reboot program that records its command line, or with a
        file that cannot be executed."""
        program = os.path.join(self.gw.dir, "reboot")
        with open(program, "w") as f:
            f.write('#!/bin/sh\necho "$0 $*" > %s\n' % self.marker)
        os.chmod(program, 0o755 if executable else 0o644)
        self.gw.launcher = namespace_launcher(program)
        self.gw.start()

    def syslog(self):
        return self.gw.cds("syslog").stdout

    def test_without_the_right_nothing_happens_and_with_it_the_reboot_program_takes_over(self):
        self.start(executable=True)
        self.gw.cds("rights", "grant", "branch", "/Meter1", "rwdx")
        for user in (None, "guest", "operator", "branch"):
            with self.subTest(user=user):
                self.assertEqual(self.gw.request(RESET, user=user).status, 401)
        self.assertEqual(self.syslog(), "")
        self.assertTrue(self.gw.alive())

        # The process becomes the reboot program: the request gets no answer.
        self.assertEqual(self.gw.request(RESET, user="admin", addr="10.9.8.7").raw, b"")
        wait_until(lambda: os.path.exists(self.marker), what="the reboot program")
        wait_until(lambda: not self.gw.alive(), what="the reboot program to end")
        with open(self.marker) as f:
            self.assertEqual(f.read(), REBOOT + " \n")
        self.assertRegex(self.syslog(), r"^\S+Z %s\n$" % (RESET_LINE % ("admin", "10.9.8.7")))

    def test_a_reboot_program_that_cannot_start_is_reported_and_the_loop_ends(self):
        self.start(executable=False)
        answer = self.gw.call(RESET, user="admin")
        self.assertEqual([e.text for e in answer],
                         ["? System Reboot Failed: Permission denied"])
        wait_until(lambda: not self.gw.alive(), what="the daemon to stop")
        self.gw.stop_cleanly()
        self.assertFalse(os.path.exists(self.marker))
        self.assertIn(RESET_LINE % ("admin", "127.0.0.1"), self.syslog())


if __name__ == "__main__":
    unittest.main()
