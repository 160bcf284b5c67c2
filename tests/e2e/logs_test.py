"""The log and trend operations of the real daemon, started with "-m 40", on logs another
process wrote with `cds log import` and `cds trend import`: what the daemon reads back from
them (state texts from the store, the records left out, trimming, the NaN rule), the limits
the setting gives, and the retries while another process locks a log. The event logs, the
selection rules and every failure row are the unit tests' (tests/unit/logs_*_test.cc)."""

import json
import os
import sqlite3
import unittest

from wsgate_testlib import NS, Gateway, GatewayTestCase

T0 = 1700000000000  # 2023-11-14T22:13:20Z
TOO_BIG = "? 34 Result Too Big to Return : Please request less than %d records."

# A group of three records at T0 + 1 s (one under /Software, never shown), values whose texts
# come from the demo store's state texts, and 50 more records from T0 + 10 s on.
DELTAS = [
    {"time": T0, "kind": 1, "source_path": "/Meter1/Voltage/Value", "type": "Real",
     "value": 230.4, "quality": 192},
    {"time": T0 + 1000, "kind": 1, "source_path": "/Meter1/Mode/Value", "type": "Unsigned",
     "value": 2, "quality": 192},
    {"time": T0 + 1000, "kind": 1, "source_path": "/Software/Data Servers/X/Value",
     "type": "Integer", "value": 1, "quality": 192},
    {"time": T0 + 1000, "kind": 1, "source_path": "/Meter1/Breaker/Value", "type": "Boolean",
     "value": False, "quality": 0},
] + [{"time": T0 + 10000 + i * 1000, "kind": 1, "source_path": "/AHU1/RunHours/Value",
      "type": "Unsigned", "value": 13000 + i, "quality": 192} for i in range(50)]
TRENDS = {"periods": [{"period": 1, "max-entries": 96}, {"period": 2, "max-entries": 24}],
          "devices": [{"path": "/AHU1", "params": [
              {"path": "/AHU1/SupplyTemp"},
              {"path": "/AHU1/PF", "type": "SAMPLE-TYPE-PF", "hasMin": False}],
              "snapshots": [{"period": 1 if i % 3 else 2, "timestamp": T0 + i * 900000,
                             "percent-valid": 100,
                             "data": [{"min": 18, "max": 20, "avg": 19, "actual": i, "count": 15},
                                      {"max": 0.98, "avg": None, "actual": 0.9}]}
                            for i in range(6)]}]}


def log_request(max_records=0, latest=False, reverse=False, trim=False, path="",
                kind="LgRqTypDeltas"):
    flag = lambda b: str(b).lower()
    return ("<request><options></options><rqstType>%s</rqstType><startTime>0</startTime>"
            "<endTime>0</endTime><nMaxToReturn>%d</nMaxToReturn><bLatestEvents>%s"
            "</bLatestEvents><bReverseOrder>%s</bReverseOrder><bTrimIncomplete>%s"
            "</bTrimIncomplete><path>%s</path></request>"
            % (kind, max_records, flag(latest), flag(reverse), flag(trim), path))


def trend_request(max_records=0, periods=(1, 2), points=(), ascending=True):
    return ("<nsqv:getTrendData><request><options></options><devicePath>/AHU1</devicePath>"
            "<pointPaths>%s</pointPaths><periods>%s</periods><startTime>0</startTime>"
            "<endTime>0</endTime><nMaxToReturn>%d</nMaxToReturn><startingOffset>0</startingOffset>"
            "<ascendingOrder>%s</ascendingOrder></request></nsqv:getTrendData>"
            % ("".join("<string>%s</string>" % p for p in points),
               "".join("<period>%d</period>" % p for p in periods), max_records, str(ascending).lower()))


def q(name):
    return "{%s}%s" % (NS["nss1"], name)


class LogsTest(GatewayTestCase):
    """wsgated -m 40 (deltas 40, trend snapshots 3) on the demo store, with the delta and trend
    logs above instead of the demo's history."""

    daemon_args = ("-m", "40")

    @classmethod
    def setUpClass(cls):
        cls.gw = Gateway()
        try:
            for suffix in ("", "-wal", "-shm"):  # the demo's history: replaced
                if os.path.exists(cls.gw.logs["-h"] + suffix):
                    os.remove(cls.gw.logs["-h"] + suffix)
            cls.gw.cds("log", "import", cls.gw.logs["-h"], "-", input=json.dumps({"records": DELTAS}))
            cls.gw.cds("trend", "import", cls.gw.logs["-t"], "-", input=json.dumps(TRENDS))
            cls.gw.start(*cls.daemon_args)
        except BaseException:
            cls.gw.close()
            raise

    def deltas(self, request):
        """(result, numTrimmedPoints, [(Path, Value, NumericValue, Quality)])."""
        answer = self.gw.call("<nsqv:getDeltaLog>%s</nsqv:getDeltaLog>" % request)
        values = [(v.findtext(q("Path")), v.findtext(q("Value")), v.findtext(q("NumericValue")),
                   v.findtext(q("Quality"))) for v in answer.iter(q("PublishedValue"))]
        return answer.findtext("result"), int(answer.findtext("numTrimmedPoints")), values

    def test_delta_log_and_its_limit(self):
        voltage, mode = ("/Meter1/Voltage", "230.4", None, "192"), ("/Meter1/Mode", "Manual", "2", "192")
        breaker = ("/Meter1/Breaker", "Open", "0", "0")
        for request, expected in [
                (log_request(4), ("", 0, [voltage, mode, breaker])),  # one not shown
                (log_request(1, latest=True, reverse=True, path="/Meter1"), ("", 0, [breaker])),
                # A cut group goes, counted whole (three records, one of them not shown).
                (log_request(2, trim=True), ("", 3, [voltage])),
                (log_request(41), (TOO_BIG % 40, 0, []))]:
            with self.subTest(request=request):
                self.assertEqual(self.deltas(request), expected)
        for limit in (0, 40):  # 40 records, one not shown
            self.assertEqual(len(self.deltas(log_request(limit))[2]), 39)

    def test_trends_and_their_limit(self):
        answer = self.gw.call("<nsqv:getTrendPeriods><options/></nsqv:getTrendPeriods>")
        self.assertEqual([p.findtext("period") for p in answer.iter("stPeriodProperties")], ["1", "2"])
        answer = self.gw.call(trend_request(periods=[1], ascending=False))  # 0: the limit
        self.assertEqual((answer.findtext("result"), [(s.findtext("period"), s.find("data")[0].findtext(
            "actual")) for s in answer.iter("stSnapshot")]), ("OK", [("1", "5"), ("1", "4"), ("1", "2")]))
        self.assertEqual(self.gw.call(trend_request(4)).findtext("result"), TOO_BIG % 3)
        # NaN (null or absent in the document): sent as 0, not valid.
        answer = self.gw.call(trend_request(1, points=["/AHU1/PF"]))
        self.assertEqual([(p.findtext("path"), p.findtext("type"), p.findtext("hasMin"))
                          for p in answer.iter("stParamProperties")],
                         [("/AHU1/PF", "SAMPLE-TYPE-PF", "false")])
        sample = answer.find("data/samples/stSnapshot/data/stSample")
        self.assertEqual([(sample.findtext(v), sample.findtext(v + "Valid"))
                          for v in ("min", "max", "avg", "actual")],
                         [("0", "false"), ("0.97999999999999998", "true"), ("0", "false"),
                          ("0.90000000000000002", "true")])

    def test_a_log_locked_by_another_process_is_retried_for_five_seconds(self):
        db = sqlite3.connect(self.gw.logs["-h"], isolation_level=None)
        try:
            # Exclusive locking mode keeps even readers out of a log with a write-ahead log.
            db.execute("PRAGMA locking_mode = EXCLUSIVE")
            db.execute("BEGIN EXCLUSIVE")
            db.execute("DELETE FROM records WHERE 0")
            self.assertEqual(self.deltas(log_request(4)), (
                "? 22 No Data Available : Database retrieval failed with these params", 0, []))
        finally:
            db.close()
        self.assertEqual(len(self.deltas(log_request(4))[2]), 3)
        self.assertIn("Failed to get events from database %s, dbResult = 5 \n" % self.gw.logs["-h"],
                      self.gw.stderr_text())


if __name__ == "__main__":
    unittest.main()
