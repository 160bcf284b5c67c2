"""The log and trend operations through the real daemon, on logs seeded with `cds log import`
and `cds trend import`: limits at and past the default and a "-m" setting, selection, order,
trimming, the records left out, the NaN rule, a log that cannot be opened, a trend log that
appears after a failed open, and the retries on a locked log."""

import json
import os
import sqlite3
import unittest

from wsgate_testlib import NS, Gateway, GatewayTestCase

T0 = 1700000000000  # 2023-11-14T22:13:20Z
TOO_BIG = "? 34 Result Too Big to Return : Please request less than %d records."

# The delta log: a group of three records at T0 + 1 s (one under /Software), values whose
# texts come from the demo store's state texts, and 50 more records at T0 + 10 s and later.
DELTAS = [
    {"time": T0, "kind": 1, "source_path": "/Meter1/Voltage/Value", "type": "Real",
     "value": 230.4, "quality": 192},
    {"time": T0 + 1000, "kind": 1, "source_path": "/Meter1/Mode/Value", "type": "Unsigned",
     "value": 2, "quality": 192},
    {"time": T0 + 1000, "kind": 1, "source_path": "/Software/Data Servers/X/Value",
     "type": "Integer", "value": 1, "quality": 192},
    {"time": T0 + 1000, "usec": 0, "kind": 1, "source_path": "/Meter1/Breaker/Value",
     "type": "Boolean", "value": False, "quality": 0},
    {"time": T0 + 2000, "kind": 1, "source_path": "/AHU1/SupplyTemp/Value", "type": "Real",
     "value": "19", "quality": 192},
] + [{"time": T0 + 10000 + i * 1000, "kind": 1, "source_path": "/AHU1/RunHours/Value",
      "type": "Unsigned", "value": 13000 + i, "quality": 192} for i in range(50)]
ALARMS = [
    {"time": T0, "kind": 8, "source_path": "/Meter1/Voltage/Value", "type": "Real",
     "value": 254.2, "quality": 192, "message": "Voltage above critical limit", "event_id": 1001,
     "sequence_index": 1, "base_priority": 100, "condition_present": True, "variation_level": 2},
    {"time": T0 + 1000, "kind": 2, "source_path": "/Software/System Settings/Configuration Changed/Value",
     "type": "Boolean", "value": True, "quality": 192},
    {"time": T0 + 2000, "kind": 8, "source_path": "/Meter1/Voltage/Value", "type": "Real",
     "value": 229, "quality": 192, "message": "Voltage above critical limit", "event_id": 1001,
     "sequence_index": 2, "ack_status": 2, "note": "Back to normal"},
]
SYSTEM = [{"time": T0 + i * 1000, "kind": 256, "level_quality": level, "source_path": "/"}
          for i, level in enumerate([1, 2, 3, 7] * 5)]
TRENDS = {"periods": [{"period": 1, "max-entries": 96}, {"period": 2, "max-entries": 24}],
          "devices": [{"path": "/AHU1", "params": [
              {"path": "/AHU1/SupplyTemp"}, {"path": "/AHU1/PF", "type": "SAMPLE-TYPE-PF",
                                             "hasMin": False}],
              "snapshots": [{"period": 1 if i % 3 else 2, "timestamp": T0 + i * 900000,
                             "percent-valid": 100,
                             "data": [{"min": 18, "max": 20, "avg": 19, "actual": i,
                                       "count": 15},
                                      {"max": 0.98, "avg": None, "actual": 0.9}]}
                            for i in range(6)]}]}


def log_request(max_records=0, start=0, end=0, latest=False, reverse=False, trim=False, path="",
                kind="LgRqTypDeltas"):
    return ("<request><options></options><rqstType>%s</rqstType><startTime>%d</startTime>"
            "<endTime>%d</endTime><nMaxToReturn>%d</nMaxToReturn><bLatestEvents>%s"
            "</bLatestEvents><bReverseOrder>%s</bReverseOrder><bTrimIncomplete>%s"
            "</bTrimIncomplete><path>%s</path></request>"
            % (kind, start, end, max_records, str(latest).lower(), str(reverse).lower(),
               str(trim).lower(), path))


def trend_request(max_records=0, periods=(1, 2), device="/AHU1", points=(), offset=0,
                  ascending=True, start=0, end=0):
    return ("<nsqv:getTrendData><request><options></options><devicePath>%s</devicePath>"
            "<pointPaths>%s</pointPaths><periods>%s</periods><startTime>%d</startTime>"
            "<endTime>%d</endTime><nMaxToReturn>%d</nMaxToReturn><startingOffset>%d"
            "</startingOffset><ascendingOrder>%s</ascendingOrder></request></nsqv:getTrendData>"
            % (device, "".join("<string>%s</string>" % p for p in points),
               "".join("<period>%d</period>" % p for p in periods), start, end, max_records,
               offset, str(ascending).lower()))


def q(name):
    return "{%s}%s" % (NS["nss1"], name)


def seed(gw, logs):
    """Replaces the gateway's logs (each given one) with `logs`' documents."""
    for option, doc in logs.items():
        path = gw.logs[option]
        if option == "-t":
            gw.cds("trend", "import", path, "-", input=json.dumps(doc))
            continue
        for suffix in ("", "-wal", "-shm"):
            if os.path.exists(path + suffix):
                os.remove(path + suffix)
        gw.cds("log", "import", path, "-", input=json.dumps({"records": doc}))


class LogsTestCase(GatewayTestCase):
    """A gateway on the demo store whose logs hold `logs` instead of the demo's history."""

    logs = {}

    @classmethod
    def setUpClass(cls):
        cls.gw = Gateway()
        try:
            seed(cls.gw, cls.logs)
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

    def events(self, request):
        """(result, [(xsi:type, Description, AckStatus)])."""
        answer = self.gw.call("<nsqv:getEventLog>%s</nsqv:getEventLog>" % request)
        xsi = "{http://www.w3.org/2001/XMLSchema-instance}type"
        events = [(e.get(xsi), e.findtext(q("Description")), e.findtext(q("AckStatus")))
                  for e in answer.iter(q("Event"))]
        return answer.findtext("result"), events

    def trend(self, body):
        """(result, response element)."""
        answer = self.gw.call(body)
        return answer.findtext("result"), answer

    def stderr_has(self, line):
        self.assertIn(line, self.gw.stderr_text())


class DefaultLimitsTest(LogsTestCase):
    logs = {"-h": DELTAS, "-a": ALARMS, "-s": SYSTEM, "-t": TRENDS}

    def test_delta_log_selection_order_and_trimming(self):
        mode, breaker = ("/Meter1/Mode", "Manual", "2", "192"), ("/Meter1/Breaker", "Open", "0", "0")
        voltage, supply = ("/Meter1/Voltage", "230.4", None, "192"), ("/AHU1/SupplyTemp", "19", None, "192")
        for request, expected in [
                # endTime 0 reads to the end; the /Software record is never shown.
                (log_request(5), ("", 0, [voltage, mode, breaker, supply])),
                (log_request(4, start=T0 + 1000, end=T0 + 2000), ("", 0, [mode, breaker, supply])),
                (log_request(4, end=T0 + 1000, reverse=True), ("", 0, [breaker, mode, voltage])),
                (log_request(2, latest=True, path="/AHU1/SupplyTemp"), ("", 0, [supply])),
                (log_request(1, latest=True, reverse=True, path="/Meter1"), ("", 0, [breaker])),
                # A cut group goes, counted whole (three records, one of them not shown).
                (log_request(2, trim=True), ("", 3, [voltage])),
                (log_request(4, trim=True), ("", 0, [voltage, mode, breaker])),
                (log_request(2, start=T0 + 1000, trim=True), ("", 3, []))]:
            with self.subTest(request=request):
                self.assertEqual(self.deltas(request), expected)
        result, _, values = self.deltas(log_request(0))  # 0: the limit, here all 55
        self.assertEqual((result, len(values)), ("", 54))

    def test_limits_at_and_past_the_default(self):
        self.assertEqual(self.deltas(log_request(10000))[0], "")
        self.assertEqual(self.deltas(log_request(10001)), (TOO_BIG % 10000, 0, []))
        self.assertEqual(self.events(log_request(2500, kind="LgRqTypSystemEvents"))[0], "")
        self.assertEqual(self.events(log_request(2501, kind="LgRqTypSystemEvents")),
                         (TOO_BIG % 2500, []))
        self.assertEqual(self.trend(trend_request(833))[0], "OK")
        self.assertEqual(self.trend(trend_request(834))[0], TOO_BIG % 833)

    def test_event_logs_by_request_type(self):
        alarm = "nss1:AlarmUpdate"
        self.assertEqual(self.events(log_request(0, kind="LgRqTypAlarmEvents")), ("", [
            (alarm, "Voltage above critical limit", "NotAcked"),
            (None, "Device Node Structure Changed", None),
            (alarm, "Voltage above critical limit", "Closed")]))
        levels = ["Informational Event", "Cautionary Event", "Critical Event", "System Event"]
        for kind in ("LgRqTypSystemEvents", "LgRqTypDeltas"):  # both read the system log
            self.assertEqual(self.events(log_request(4, kind=kind)),
                             ("", [(None, text, None) for text in levels]))

    def test_trends(self):
        result, answer = self.trend("<nsqv:getTrendPeriods><options/></nsqv:getTrendPeriods>")
        self.assertEqual((result, [p.findtext("period") for p in answer.iter("stPeriodProperties")]),
                         ("OK", ["1", "2"]))
        result, answer = self.trend("<nsqv:getDeviceTrendParams><options/><devicePath>/AHU1"
                                    "</devicePath></nsqv:getDeviceTrendParams>")
        self.assertEqual([(p.findtext("path"), p.findtext("type"), p.findtext("hasMin"))
                          for p in answer.iter("stParamProperties")],
                         [("/AHU1/SupplyTemp", "SAMPLE-TYPE-NORMAL", "true"),
                          ("/AHU1/PF", "SAMPLE-TYPE-PF", "false")])
        for body in (trend_request(device="/Nope"),
                     "<nsqv:getDeviceTrendParams><options/><devicePath>/Nope</devicePath>"
                     "</nsqv:getDeviceTrendParams>"):
            self.assertEqual(self.trend(body)[0],
                             "? 21 No History : No Trend data found for this device.")

        def actuals(**kwargs):
            result, answer = self.trend(trend_request(**kwargs))
            self.assertEqual(result, "OK")
            return [(s.findtext("period"), s.find("data")[0].findtext("actual"))
                    for s in answer.iter("stSnapshot")]
        self.assertEqual(actuals(), [("2", "0"), ("1", "1"), ("1", "2"), ("2", "3"), ("1", "4"),
                                     ("1", "5")])
        self.assertEqual(actuals(periods=[1], ascending=False, offset=1, max_records=2),
                         [("1", "4"), ("1", "2")])
        self.assertEqual(actuals(periods=[2], start=T0 + 900000), [("2", "3")])
        # NaN: sent as 0, not valid; the parameters as the request names them.
        result, answer = self.trend(trend_request(1, points=["/AHU1/PF"]))
        self.assertEqual([p.findtext("path") for p in answer.iter("stParamProperties")], ["/AHU1/PF"])
        sample = answer.find("data/samples/stSnapshot/data/stSample")
        self.assertEqual([(sample.findtext(v), sample.findtext(v + "Valid"))
                          for v in ("min", "max", "avg", "actual")],
                         [("0", "false"), ("0.97999999999999998", "true"), ("0", "false"),
                          ("0.90000000000000002", "true")])

    def test_a_log_that_cannot_be_opened(self):
        path = self.gw.logs["-s"]
        os.rename(path, path + ".away")
        try:
            self.assertEqual(self.events(log_request(kind="LgRqTypSystemEvents")),
                             ("? 21 No History : Failed to open event log database", []))
        finally:
            os.rename(path + ".away", path)
        self.assertEqual(self.events(log_request(1, kind="LgRqTypSystemEvents"))[0], "")
        self.stderr_has("Failed to open database %s, dbResult = 14 \n" % path)

    def test_a_locked_log_is_retried_for_five_seconds(self):
        db = sqlite3.connect(self.gw.logs["-a"], isolation_level=None)
        try:
            # Exclusive locking mode keeps even readers out of a log with a write-ahead log.
            db.execute("PRAGMA locking_mode = EXCLUSIVE")
            db.execute("BEGIN EXCLUSIVE")
            db.execute("DELETE FROM records WHERE 0")
            self.assertEqual(self.events(log_request(kind="LgRqTypAlarmEvents")),
                             ("? 22 No Data Available : Database retrieval failed with these params",
                              []))
        finally:
            db.close()
        self.assertEqual(len(self.events(log_request(kind="LgRqTypAlarmEvents"))[1]), 3)
        self.stderr_has("Failed to get events from database %s, dbResult = 5 \n" % self.gw.logs["-a"])


class SettingTest(LogsTestCase):
    """wsgated -m 40: deltas 40, events 10, trend snapshots 3; the trend log appears later."""

    logs = {"-h": DELTAS, "-a": ALARMS}
    daemon_args = ("-m", "40")

    @classmethod
    def setUpClass(cls):
        super().setUpClass()
        os.remove(cls.gw.logs["-t"])  # the demo's: the daemon has not opened it yet

    def test_limits_at_and_past_the_setting(self):
        result, _, values = self.deltas(log_request(0))
        self.assertEqual((result, len(values)), ("", 39))  # 40 records, one not shown
        self.assertEqual(len(self.deltas(log_request(40))[2]), 39)
        self.assertEqual(self.deltas(log_request(41)), (TOO_BIG % 40, 0, []))
        self.assertEqual(self.events(log_request(10, kind="LgRqTypAlarmEvents"))[0], "")
        self.assertEqual(self.events(log_request(11, kind="LgRqTypAlarmEvents"))[0], TOO_BIG % 10)
        self.assertEqual(self.trend(trend_request(4))[0], TOO_BIG % 3)

    def test_a_trend_log_that_appears_is_opened_by_the_next_request(self):
        periods = "<nsqv:getTrendPeriods><options/></nsqv:getTrendPeriods>"
        self.assertEqual(self.trend(periods)[0],
                         "? 21 No History : Failed to open trend log database")
        seed(self.gw, {"-t": TRENDS})
        self.assertEqual(self.trend(periods)[0], "OK")
        result, answer = self.trend(trend_request(3))
        self.assertEqual((result, len(answer.findall("data/samples/stSnapshot"))), ("OK", 3))
        self.stderr_has("Failed to open database %s \n" % self.gw.logs["-t"])


if __name__ == "__main__":
    unittest.main()
