"""End-to-end tests of the `cds` command-line tool: the real binary on a temporary store."""

import json
import os
import re
import subprocess
import tempfile
import unittest

from wsgate_testlib import BIN_DIR, SOURCE_DIR

CDS = os.path.join(BIN_DIR, "cds")

TYPES = ["Boolean", "Integer", "Unsigned", "Real", "Integer64", "String", "Unsigned64", "timeval"]
COMMANDS = ["get", "set", "ls", "tree", "mkdir", "rm", "import", "export", "rights", "events",
            "syslog", "log", "trend", "demo"]


class CdsTestCase(unittest.TestCase):
    """Each test gets its own directory and store; the tool runs with USER=tester."""

    def setUp(self):
        if not os.access(CDS, os.X_OK):
            self.fail("no cds binary at %r (set WSGATE_BIN_DIR)" % CDS)
        tmp = tempfile.TemporaryDirectory(prefix="cds_tool_")
        self.addCleanup(tmp.cleanup)
        self.dir = tmp.name
        self.db = os.path.join(self.dir, "cds.db")
        self.env = {k: v for k, v in os.environ.items() if k not in ("REMOTE_USER", "CDS_PATH")}
        self.env.update(CDS_PATH=self.db, USER="tester")

    def cds(self, *args, stdin=None, env=None):
        result = subprocess.run([CDS, *args], input=stdin, capture_output=True, text=True,
                                env=env or self.env, cwd=self.dir, timeout=60)
        self.assertGreaterEqual(result.returncode, 0, "cds %s crashed: %s" % (args, result.stderr))
        return result

    def ok(self, *args, **kwargs):
        result = self.cds(*args, **kwargs)
        self.assertEqual(result.returncode, 0, "cds %s: %s" % (" ".join(args), result.stderr))
        return result.stdout

    def fails(self, code, *args, **kwargs):
        """Runs cds expecting exit `code`; returns the first line of stderr."""
        result = self.cds(*args, **kwargs)
        self.assertEqual(result.returncode, code,
                         "cds %s: out %r err %r" % (" ".join(args), result.stdout, result.stderr))
        lines = result.stderr.splitlines()
        self.assertTrue(lines and lines[0].startswith("cds"), result.stderr)
        if code == 1:
            self.assertEqual(len(lines), 1, "one line per failed item: %r" % result.stderr)
        return lines[0]

    def get(self, *paths):
        return self.ok("get", *paths).splitlines()

    def long_form(self, path):
        fields = {}
        for line in self.ok("get", "-l", path).splitlines():
            key, _, rest = line.partition(":")
            fields[key] = rest.strip()
        return fields

    def export(self, path="/"):
        return json.loads(self.ok("export", path))


class LeafTest(CdsTestCase):
    def test_node_paths_attributes_sub_attributes_and_long_form(self):
        self.ok("mkdir", "/Dev/Temp")
        # A node path writes its Value; type names are case-insensitive; a negative value is
        # no option.
        self.ok("set", "/Dev/Temp", "REAL", "-21.25")
        self.ok("set", "/Dev/Temp:Units", "String", "degC", env=dict(self.env, USER="alice"))
        self.assertEqual(self.get("/Dev/Temp", "/Dev/Temp/Value", "/Dev/Temp:Units",
                                  "/Dev/Temp.Source", "/Dev/Temp/Value.AttribType"),
                         ["-21.25", "-21.25", "degC", "Normal", "Real"])
        long = self.long_form("/Dev/Temp")
        self.assertEqual([long[k] for k in ("path", "type", "value", "storage", "source")],
                         ["/Dev/Temp/Value", "Real", "-21.25", "Normal", "cds:tester@local"])
        self.assertRegex(long["time"], r"^\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d\.\d{3}Z \(\d+\)$")
        self.assertEqual(self.get("/Dev/Temp/Value.Time"), [re.search(r"\((\d+)\)", long["time"])[1]])
        self.assertEqual(self.long_form("/Dev/Temp:Units")["source"], "cds:alice@local")
        self.ok("set", "/Dev/Temp/Value", "Real", "3", "--persist")
        self.assertEqual(self.get("/Dev/Temp.Source"), ["Persistent"])
        self.assertIn("unknown sub-attribute .Foo", self.fails(1, "get", "/Dev/Temp/Value.Foo"))

    def test_bad_input_is_refused_and_changes_nothing(self):
        self.ok("mkdir", "/Dev")
        self.ok("set", "/Dev/X", "Integer", "7")
        # A bad value is one line naming the path, without a usage text.
        self.assertEqual(self.cds("set", "/Dev/X", "Real", "abc").stderr,
                         'cds set: /Dev/X: "abc" is not a valid Real\n')
        for code, args, message in [
                (2, ("set", "/Dev/X", "Reel", "1"), 'unknown type "Reel"'),
                (2, ("set", "/Dev/X", "Unsigned", "-1"), "not a valid Unsigned"),
                (1, ("set", "/Nope/X", "Integer", "1"), "cds: /Nope: no such node"),
                (1, ("get", "Dev/X"), "malformed path"),
                (1, ("set", "/Dev/X.Time", "Integer", "1"), "not writable")]:
            with self.subTest(args=args):
                self.assertIn(message, self.fails(code, *args))
        self.assertEqual(self.get("/Dev/X"), ["7"])
        # Each failed path is reported; the others are printed.
        result = self.cds("get", "/Dev/X", "/Dev/Missing", "/Nope/Value", "/Dev/X")
        self.assertEqual((result.returncode, result.stdout), (1, "7\n7\n"))
        self.assertEqual(result.stderr.splitlines(), ["cds: /Dev/Missing: no such leaf",
                                                      "cds: /Nope: no such node"])


class UsageTest(CdsTestCase):
    def test_help_texts(self):
        text = self.ok("--help")
        self.assertIn("3  the store (or the log DB of `log` and `trend`) could not be opened", text)
        for command in COMMANDS:
            with self.subTest(command=command):
                self.assertRegex(text, r"(?m)^  %s\b" % command)
                self.assertTrue(self.ok(command, "--help").startswith("Usage: cds " + command))
        self.assertFalse(os.path.exists(self.db), "help must not open the store")
        self.assertEqual(self.ok("events") + self.ok("syslog", "--max", "5"), "")

    def test_usage_errors_exit_2_with_a_usage_line(self):
        for args in [(), ("frobnicate",), ("get",), ("set", "/A", "Real", "1", "2"), ("get", "-x", "/A"),
                     ("events", "--max"), ("events", "--max", "many"), ("rights", "grant", "u", "/", "rq"),
                     ("rights", "frob"), ("--db",), ("log", "import", "x.db"), ("log", "frob", "x.db"),
                     ("trend", "show"), ("trend", "show", "x.db", "--max", "3"), ("--bogus", "get", "/A")]:
            with self.subTest(args=args):
                result = self.cds(*args)
                self.assertEqual((result.returncode, result.stdout), (2, ""), result.stderr)
                self.assertRegex(result.stderr, r"^cds.*\nusage: cds ")

    def test_default_store_and_db_option(self):
        env = dict(self.env)
        del env["CDS_PATH"]
        self.ok("mkdir", "/InDefault", env=env)  # ./cds.db in the working directory
        self.ok("ls", "/InDefault")
        other = os.path.join(self.dir, "other.db")
        self.ok("--db", other, "mkdir", "/InOther")
        self.ok("--db=" + other, "ls", "/InOther")
        self.fails(1, "ls", "/InOther")


class NodeTest(CdsTestCase):
    def test_ls_tree_and_rm(self):
        self.ok("mkdir", "/Plant/Pump1", "/Plant/Pump2/Motor")
        self.ok("set", "/Plant/Pump1/Value", "Real", "2.5")
        self.ok("set", "/Plant/Pump1/Units", "String", "bar")
        self.ok("set", "/Plant/Name", "String", "North")
        lines = self.ok("ls", "/Plant").splitlines()
        self.assertEqual([lines[:2], lines[2].split()], [["Pump1/", "Pump2/"], ["Name", "String", "North"]])
        self.assertEqual(self.ok("tree", "/Plant").splitlines(),
                         ["/Plant", "  Name", "  Pump1/", "    Units", "    Value", "  Pump2/", "    Motor/"])
        self.assertIn("    Value = 2.5 (Real)", self.ok("tree", "/Plant", "--values").splitlines())
        self.assertEqual(self.fails(1, "ls", "/Nope"), "cds: /Nope: no such node")
        for path in ("/Plant/Pump2", "/Plant/Pump1:Units", "/Plant/Name"):
            self.ok("rm", path)
        self.assertEqual(self.ok("tree", "/Plant").splitlines(), ["/Plant", "  Pump1/", "    Value"])
        self.assertEqual(self.fails(1, "rm", "/Plant/Name"), "cds: /Plant/Name: no such node or leaf")
        self.ok("rm", "-f", "/Plant/Name", "/Nope/Deeper")
        self.assertIn("root", self.fails(1, "rm", "/"))


class InterchangeTest(CdsTestCase):
    DOC = {
        "nodes": ["/Site/Empty"],
        "leaves": [
            {"path": "/Site/Temp/Value", "type": "Real", "value": "21.5", "storage": "Persistent",
             "time": 1700000000123},
            {"path": "/Site/Temp/Units", "type": "String", "value": "°C"},
            {"path": "/Site/Count/Value", "type": "unsigned64", "value": 18446744073709551615},
            {"path": "/Site/On/Value", "type": "Boolean", "value": True},
            {"path": "/Site/Since/Value", "type": "timeval", "value": "-1000", "time": -5},
        ],
        "rights": [{"user": "op", "prefix": "/Site", "rights": "rw"},
                   {"user": "op", "prefix": "/Sites", "rights": "r"},
                   {"user": "*", "prefix": "/", "rights": "r"}],
    }

    def import_doc(self, doc, code=0):
        result = self.cds("import", "-", stdin=json.dumps(doc))
        self.assertEqual(result.returncode, code, result.stderr)
        return result.stderr.strip()

    def test_import_then_export_round_trips(self):
        self.import_doc(self.DOC)
        self.assertEqual(self.long_form("/Site/Temp")["storage"], "Persistent")
        self.assertEqual(self.get("/Site/Temp.Time", "/Site/Count", "/Site/On", "/Site/Since.Time"),
                         ["1700000000123", "18446744073709551615", "true", "-5"])
        first = self.export("/Site")
        self.assertEqual(first["nodes"], ["/Site", "/Site/Count", "/Site/Empty", "/Site/On",
                                          "/Site/Since", "/Site/Temp"])
        # Rights inside the subtree only: "/Sites" is not below "/Site".
        self.assertEqual(first["rights"], [{"user": "op", "prefix": "/Site", "rights": "rw"}])
        temp = [leaf for leaf in first["leaves"] if leaf["path"] == "/Site/Temp/Value"]
        self.assertEqual(temp, [{"path": "/Site/Temp/Value", "type": "Real", "value": "21.5",
                                 "storage": "Persistent", "time": 1700000000123}])
        # Into a fresh store through a file, and out again: the same document.
        exported = os.path.join(self.dir, "site.json")
        self.ok("export", "/Site", exported)
        fresh = dict(self.env, CDS_PATH=os.path.join(self.dir, "fresh.db"))
        self.ok("import", exported, env=fresh)
        self.assertEqual(json.loads(self.ok("export", "/Site", env=fresh)), first)

    def test_a_bad_item_changes_nothing(self):
        self.import_doc({"leaves": [{"path": "/Keep/Value", "type": "Integer", "value": "1"}]})
        before = self.export()
        for doc, message in [
                ({"leaves": [{"path": "/New/A", "type": "Real", "value": "1"},
                             {"path": "/New/B", "type": "Real", "value": "abc"}]},
                 'leaves[1] (/New/B): "abc" is not a valid Real'),
                ({"leaves": [{"path": "/New/A", "type": "Reel", "value": "1"}]}, 'unknown type "Reel"'),
                ({"leaves": [{"type": "Real", "value": "1"}]}, 'leaves[0]: missing "path"'),
                ({"nodes": ["/New"], "rights": [{"user": "u", "prefix": "/", "rights": "rz"}]}, "rights[0]"),
                ({"nodes": ["/New"], "extra": 1}, 'unknown key "extra"'),
                # Only the store can tell this one: the whole transaction is rolled back.
                ({"nodes": ["/New"], "leaves": [{"path": "/Keep/Value", "type": "Integer", "value": "2"},
                                                {"path": "/New/Children", "type": "String", "value": "x"}]},
                 "/New/Children")]:
            with self.subTest(message=message):
                self.assertIn(message, self.import_doc(doc, code=1))
                self.assertEqual(self.export(), before)
        self.assertIn("cds: stdin: ", self.fails(1, "import", "-", stdin='{"nodes": ['))
        self.assertIn("no such file", self.fails(1, "import", os.path.join(self.dir, "none.json")).lower())
        self.assertEqual(self.export(), before)

    def test_rights_grant_list_revoke(self):
        def rules():
            lines = self.ok("rights", "list").splitlines()
            self.assertEqual(lines[0].split(), ["USER", "PREFIX", "RIGHTS"])
            return [tuple(line.split()) for line in lines[1:]]
        self.assertEqual(rules(), [])
        for rule in (("operator", "/", "rw"), ("*", "/", "r"), ("guest", "/Software", "-"),
                     ("operator", "/", "rwdx")):  # the last replaces the first
            self.ok("rights", "grant", *rule)
        self.assertEqual(rules(), [("*", "/", "r"), ("guest", "/Software", "-"), ("operator", "/", "rwdx")])
        self.assertEqual(self.export()["rights"][-1], {"user": "operator", "prefix": "/", "rights": "rwdx"})
        self.ok("rights", "revoke", "guest", "/Software")
        self.assertIn("no rule for user guest", self.fails(1, "rights", "revoke", "guest", "/Software"))
        self.assertEqual(rules(), [("*", "/", "r"), ("operator", "/", "rwdx")])


class DemoTest(CdsTestCase):
    def setUp(self):
        super().setUp()
        self.ok("demo")

    def test_display_texts_of_points(self):
        self.assertEqual(self.get("-t", "/Meter1/Breaker", "/Meter1/Mode", "/Meter1/Status",
                                  "/Meter10/Online", "/Meter1/Voltage"),
                         ["Closed", "Auto", "Warning", "false", "230.4"])
        self.assertEqual(self.get("/Meter1/Breaker", "/Meter1/Mode"), ["true", "1"])
        self.assertEqual(self.long_form("/Meter1/Mode")["text"], "Auto")
        # Every type has a point (the subscription records' types are not points).
        self.assertEqual({leaf["value"] for leaf in self.export()["leaves"]
                          if leaf["path"].endswith("/ValueType")
                          and not leaf["path"].startswith("/Software/")}, set(TYPES))

    def test_points_match_the_documentation(self):
        with open(os.path.join(SOURCE_DIR, "docs", "demo.md"), encoding="utf-8") as doc:
            points = doc.read().split("\n## Points\n")[1].split("\n#")[0]
        rows = [[cell.strip() for cell in line.strip().strip("|").split("|")]
                for line in points.splitlines() if line.startswith("| `/")]
        self.assertGreater(len(rows), 20)
        for path, type_name, value, writable in (row[:4] for row in rows):
            with self.subTest(point=path):
                path = path.strip("`")
                self.assertEqual(self.get(path, path + ".AttribType", path + ":Writable"),
                                 [value, type_name, "true" if writable == "W" else "false"])

    def test_whole_store_round_trips_and_force_rebuilds_only_the_demo(self):
        first = self.ok("export", "/")
        fresh = dict(self.env, CDS_PATH=os.path.join(self.dir, "fresh.db"))
        self.ok("import", "-", stdin=first, env=fresh)
        self.assertEqual(self.ok("export", "/", env=fresh), first)
        # The demo refuses a non-empty store; --force rebuilds the demo's part only.
        self.assertIn("--force", self.fails(1, "demo"))
        other = dict(self.env, CDS_PATH=os.path.join(self.dir, "other.db"))
        self.ok("mkdir", "/Mine", env=other)
        self.assertIn("not empty", self.fails(1, "demo", env=other))
        self.ok("demo", "--force", env=other)
        self.ok("ls", "/Mine", env=other)  # not the demo's: kept
        before = self.export()
        self.ok("set", "/Meter1/Voltage", "Real", "1")
        self.ok("set", "/Meter1/Voltage/Extra", "String", "x")
        self.ok("mkdir", "/Other")
        self.ok("demo", "--force")
        self.assertEqual(self.get("/Meter1/Voltage"), ["230.4"])
        self.fails(1, "get", "/Meter1/Voltage/Extra")
        after = self.export()
        self.assertEqual(after["nodes"], sorted(before["nodes"] + ["/Other"]))
        self.assertEqual([(l["path"], l["value"]) for l in after["leaves"]],
                         [(l["path"], l["value"]) for l in before["leaves"]])


# The examples of the two import formats (docs/cds.md).
LOG_EXAMPLE = {"records": [
    {"time": 1700000000000, "kind": 1, "source_path": "/AHU1/Temp/Value", "type": "Real",
     "value": "21.5", "quality": 192},
    {"time": 1700000001000, "usec": 250, "kind": 8, "source_path": "/AHU1/Temp/Value",
     "type": "Real", "value": 95, "quality": 192, "message": "High temperature",
     "event_id": 7, "sequence_index": 1, "base_priority": 3, "condition_present": True}]}
TREND_EXAMPLE = {"periods": [{"period": 1, "max-entries": 96}], "devices": [{
    "path": "/AHU1",
    "params": [{"path": "/AHU1/Temp"}, {"path": "/AHU1/PF", "type": "SAMPLE-TYPE-PF"}],
    "snapshots": [{"period": 1, "timestamp": 1700000000000, "percent-valid": 87.5,
                   "data": [{"min": 20.5, "max": 22, "avg": 21.25, "actual": 21.5, "count": 12},
                            {"min": None, "max": 0.98, "avg": 0.95, "actual": 0.97,
                             "count": 12}]}]}]}


class FileTest(CdsTestCase):
    """`cds log` and `cds trend` on log files (they never touch the store), and files that
    cannot be opened."""

    def setUp(self):
        super().setUp()
        self.log = os.path.join(self.dir, "events.db")
        self.trends = os.path.join(self.dir, "trends.db")

    def load(self, command, db, doc, code=0):
        """Imports `doc` from a file; returns stdout, or the error line for a failure."""
        path = os.path.join(self.dir, "f.json")
        with open(path, "w") as f:
            f.write(doc if isinstance(doc, str) else json.dumps(doc))
        if code:
            return self.fails(code, command, "import", db, "f.json")
        return self.ok(command, "import", db, "f.json")

    def test_log_import_appends_and_show_prints_the_newest(self):
        self.assertEqual(self.load("log", self.log, LOG_EXAMPLE), "appended 2 records to %s\n" % self.log)
        self.ok("log", "import", self.log, "-", stdin=json.dumps({"records": [
            {"time": 1700000000000, "kind": 256, "level_quality": 3, "source_path": "/"}]}))
        self.assertEqual(self.ok("log", "show", self.log).splitlines(), [
            "2023-11-14T22:13:20.000Z delta #0 /AHU1/Temp/Value value=21.5 quality=192",
            "2023-11-14T22:13:20.000Z system #0 / level=3",
            "2023-11-14T22:13:21.000250Z alarm #7 /AHU1/Temp/Value value=95 quality=192 present "
            'seq=1 priority=3 msg="High temperature"'])
        self.assertEqual(len(self.ok("log", "show", self.log, "--max", "1").splitlines()), 1)
        self.assertFalse(os.path.exists(self.db), "the log commands never open the store")

    def test_a_wrong_log_document_writes_nothing_and_names_the_item(self):
        self.load("log", self.log, LOG_EXAMPLE)
        before = self.ok("log", "show", self.log)
        good = {"time": 1}
        for record, message in [
                ({"kind": 1}, 'missing "time"'),
                ({"time": 1.5}, '"time" is not an integer'),
                ({"time": 1, "usec": 1000}, '"usec" is out of range (0..999)'),
                ({"time": 1, "kind": 2147483648}, '"kind" is out of range'),
                ({"time": 1, "type": "Real"}, '"type" and "value" go together'),
                ({"time": 1, "type": "Real", "value": "abc"}, '"abc" is not a valid Real'),
                ({"time": 1, "quality": 192, "level_quality": 1}, "exclude each other"),
                ({"time": 1, "quality": 65536}, '"quality" is out of range'),
                ({"time": 1, "ack_status": 3}, '"ack_status" is out of range (0..2)'),
                ({"time": 1, "event_id": -1}, '"event_id" is out of range'),
                ({"time": 1, "condition_present": 1}, '"condition_present" is not a boolean'),
                ({"time": 1, "message": 5}, '"message" is not a string')]:
            with self.subTest(record=record):
                line = self.load("log", self.log, {"records": [good, good, record]}, code=1)
                self.assertEqual(line, "cds: f.json: records[2]: " + line.split(": ", 3)[3])
                self.assertIn(message, line)
        self.assertIn('document: missing "records"', self.load("log", self.log, {}, code=1))
        self.assertIn("cds: stdin: ", self.fails(1, "log", "import", self.log, "-", stdin="[1,"))
        self.assertEqual(self.ok("log", "show", self.log), before)
        new = os.path.join(self.dir, "new.db")
        self.assertIn('unknown key "kidn"', self.load("log", new, {"records": [{"kidn": 1}]}, code=1))
        self.assertFalse(os.path.exists(new))

    def test_trend_import_replaces_the_log_and_show_prints_it(self):
        self.load("trend", self.trends, {"periods": [{"period": 9, "max-entries": 1}], "devices": []})
        self.assertEqual(self.load("trend", self.trends, TREND_EXAMPLE),
                         "wrote 1 periods, 1 devices, 1 snapshots to %s\n" % self.trends)
        self.assertEqual(self.ok("trend", "show", self.trends).splitlines(), [
            "periods:",
            "  1  max-entries 96",
            "device /AHU1: 2 params, 1 snapshots",
            "  param /AHU1/Temp  SAMPLE-TYPE-NORMAL min max avg actual",
            "  param /AHU1/PF  SAMPLE-TYPE-PF min max avg actual",
            "  2023-11-14T22:13:20.000Z  period 1  valid 87.5%",
            "    /AHU1/Temp  min 20.5  max 22  avg 21.25  actual 21.5  count 12",
            "    /AHU1/PF  min -  max 0.98  avg 0.95  actual 0.97  count 12"])

    def test_a_wrong_trend_document_writes_nothing_and_names_the_item(self):
        self.load("trend", self.trends, TREND_EXAMPLE)
        before = self.ok("trend", "show", self.trends)

        def changed(change):
            doc = json.loads(json.dumps(TREND_EXAMPLE))
            change(doc)
            return doc
        device = lambda d: d["devices"][0]
        snapshot = lambda d: device(d)["snapshots"][0]
        for change, message in [
                (lambda d: d.pop("devices"), 'document: missing "devices"'),
                (lambda d: d["periods"].append({"period": 1, "max-entries": 5}), "period 1 repeats"),
                (lambda d: d["periods"][0].update({"max-entries": -1}), '"max-entries" is out of range'),
                (lambda d: d["devices"].append({"path": "/AHU1"}), 'devices[1]: the path "/AHU1" repeats'),
                (lambda d: device(d)["params"][1].update({"path": "/AHU1/Temp"}),
                 'devices[0].params[1]: the path "/AHU1/Temp" repeats'),
                (lambda d: device(d)["params"][0].update({"type": "PF"}), 'unknown sample type "PF"'),
                (lambda d: device(d)["params"][0].update({"hasMin": "yes"}), '"hasMin" is not a boolean'),
                (lambda d: snapshot(d).update({"period": 2}), 'period 2 is not one of "periods"'),
                (lambda d: snapshot(d).update({"timestamp": 1700000000500}), "not a whole second"),
                (lambda d: snapshot(d).pop("percent-valid"), 'missing "percent-valid"'),
                (lambda d: snapshot(d)["data"].pop(), '"data" holds 1 samples for 2 params'),
                (lambda d: snapshot(d)["data"][1].update({"avg": "x"}),
                 'devices[0].snapshots[0].data[1]: "avg" is not a number or null'),
                (lambda d: device(d)["snapshots"].append(dict(snapshot(d))),
                 "devices[0].snapshots[1]: a second snapshot of period 1 at this timestamp")]:
            with self.subTest(message=message):
                line = self.load("trend", self.trends, changed(change), code=1)
                self.assertTrue(line.startswith("cds: f.json: "), line)
                self.assertIn(message, line)
        self.assertEqual(self.ok("trend", "show", self.trends), before)

    def test_files_that_cannot_be_opened_exit_3_and_stay_as_they_were(self):
        garbage = os.path.join(self.dir, "garbage.db")
        content = b"this is not a database\n" * 200
        with open(garbage, "wb") as f:
            f.write(content)
        for store in (garbage, self.dir):
            for args in [("get", "/A"), ("demo",), ("rights", "list")]:
                with self.subTest(store=store, args=args):
                    line = self.fails(3, *args, env=dict(self.env, CDS_PATH=store))
                    self.assertTrue(line.startswith("cds: ") and store in line, line)
        with open(garbage, "rb") as f:
            self.assertEqual(f.read(), content)
        missing_dir = os.path.join(self.dir, "no", "x.db")
        self.assertIn(missing_dir, self.load("log", missing_dir, LOG_EXAMPLE, code=3))
        self.assertIn(missing_dir, self.load("trend", missing_dir, TREND_EXAMPLE, code=3))
        self.fails(3, "log", "show", os.path.join(self.dir, "none.db"))
        self.fails(3, "trend", "show", os.path.join(self.dir, "none.db"))
        self.ok("mkdir", "/A")  # the store: an SQLite file of another kind
        self.assertIn("is not an event log", self.load("log", self.db, LOG_EXAMPLE, code=3))
        self.load("log", self.log, LOG_EXAMPLE)
        self.assertIn("is not a trend log", self.fails(3, "trend", "show", self.log))

    def test_demo_writes_its_history_and_replaces_it_only_with_force(self):
        logs = os.path.join(self.dir, "logs")
        os.mkdir(logs)
        self.assertIn("demo history written", self.ok("demo", "--logs", logs))
        names = ["alarms.db", "deadband.db", "interval-trends.db", "system.db"]
        self.assertEqual(sorted(os.listdir(logs)), names)
        deltas = self.ok("log", "show", os.path.join(logs, "deadband.db"), "--max", "100000")
        self.assertIn("/Software/", deltas)
        with open(os.path.join(SOURCE_DIR, "docs", "demo.md"), encoding="utf-8") as doc:
            text = doc.read()
        for name, pattern in [("deadband.db", r"Delta log, (\d+) records"),
                              ("alarms.db", r"Alarm/event log, (\d+) records"),
                              ("system.db", r"System log, (\d+) level-coded records")]:
            with self.subTest(log=name):
                shown = self.ok("log", "show", os.path.join(logs, name), "--max", "100000")
                self.assertEqual(len(shown.splitlines()), int(re.search(pattern, text).group(1)))
        empty_store = dict(self.env, CDS_PATH=os.path.join(self.dir, "other.db"))
        self.assertIn("exists (use --force", self.fails(1, "demo", "--logs", logs, env=empty_store))
        self.ok("demo", "--force", "--logs", logs)
        self.assertEqual(self.ok("log", "show", os.path.join(logs, "deadband.db"), "--max", "100000"),
                         deltas, "replaced, not appended")


if __name__ == "__main__":
    unittest.main()
