#!/usr/bin/env python3
"""Subscriptions and the active alarm table through wsgated, measured with the fcgi_load
client, end to end (request sent to answer read):

  - createSubscription of 1,000 real-time nodes, each request replacing the record the one
    before wrote (the old record's removal included);
  - getActiveAlarms of the whole table of 2,500 alarms.

    bench/subscriptions_bench.py BUILD_DIR [--requests N]      (default 50 of each)

Everything runs on a temporary demo gateway with 1,000 extra Real points /Bench/Pnnnn and
2,500 alarms in all; the processes started are stopped and the directory removed at the end.
Goal: under 50 ms at the median for each."""

import argparse
import json
import os
import sys

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
from values_bench import Bench, envelope  # noqa: E402

GOAL_MS = 50.0
ALARMS = 2500
NODES = 1000
T0 = 1700000000000


def create_subscription(paths):
    nodes = "".join("<nsc1:NodeSubscription><nsc1:Path>%s</nsc1:Path><nsc1:RequestedFreshness>"
                    "1000</nsc1:RequestedFreshness><nsc1:DeadbandPercent>0.5"
                    "</nsc1:DeadbandPercent></nsc1:NodeSubscription>" % p for p in paths)
    return envelope("<nsc1:createSubscription><nsc1:options/><nsc1:subscriptionId>bench"
                    "</nsc1:subscriptionId><nsc1:replyUri>http://192.0.2.1/notify</nsc1:replyUri>"
                    "<nsc1:leaseDuration>600000</nsc1:leaseDuration><nsc1:realTimeNodes>%s"
                    "</nsc1:realTimeNodes><nsc1:logSinceTime>0</nsc1:logSinceTime>"
                    "<nsc1:subscribeLogOptions>Alarm</nsc1:subscribeLogOptions>"
                    "</nsc1:createSubscription>" % nodes)


def active_alarms():
    return envelope("<nsqv:getActiveAlarms xmlns:nsqv=\"http://wsgate.local/ws/BACnetWSKiteQV\">"
                    "<request><options/><rqstType>LgRqTypAlarmEvents</rqstType><startTime>0"
                    "</startTime><endTime>0</endTime><nMaxToReturn>0</nMaxToReturn>"
                    "<bLatestEvents>false</bLatestEvents><bReverseOrder>false</bReverseOrder>"
                    "<bTrimIncomplete>false</bTrimIncomplete><path/></request>"
                    "</nsqv:getActiveAlarms>")


def alarm_table(count):
    """Leaves of `count` alarms beside the demo's four, each at a time of its own."""
    leaves = []
    for i in range(count):
        node = "/Alarms/%d" % (100000 + i)
        time = T0 + 1000 * i
        for name, kind, value in (("SourcePath", "String", "/Bench/P%04d" % (i % NODES)),
                                  ("SourceValue", "Real", "%d.5" % i),
                                  ("AlarmMsg", "String", "Bench alarm %d" % i),
                                  ("SequenceID", "Unsigned", str(i)),
                                  ("AlarmLevel", "Unsigned", str((1, 3, 5, 0)[i % 4])),
                                  ("ConditionRaised", "Boolean", "true"),
                                  ("Note", "String", "")):
            leaves.append({"path": "%s/%s/Value" % (node, name), "type": kind, "value": value,
                           "time": time})
        leaves.append({"path": node + "/.BasePriority", "type": "Unsigned", "value": "100",
                       "time": time})
        leaves.append({"path": node + "/.AutoClosing", "type": "Boolean", "value": "false",
                       "time": time})
    return json.dumps({"leaves": leaves})


def main():
    parser = argparse.ArgumentParser(description=__doc__.split("\n\n")[0])
    parser.add_argument("build_dir")
    parser.add_argument("--requests", type=int, default=50)
    opts = parser.parse_args()

    bench = Bench(opts.build_dir)
    try:
        bench.make_gateway(NODES)
        bench.cds("import", "-", data=alarm_table(ALARMS - 4))
        socket = bench.env["WSGATED_SOCKET"]
        bench.start([os.path.join(bench.bin, "wsgated"), "-d"], socket)
        rows = [("createSubscription x%d" % NODES,
                 create_subscription(["/Bench/P%04d" % i for i in range(NODES)]),
                 "<nsc1:Value>999.5</nsc1:Value>"),
                ("getActiveAlarms of %d" % ALARMS, active_alarms(), "Bench alarm %d<" % (ALARMS - 5))]
        met = True
        print("latency per request (1 connection), end to end:")
        for name, body, expect in rows:
            bench.load(socket, body, 3, 1, expect=expect)  # warm-up
            r = bench.load(socket, body, opts.requests, 1, expect=expect)
            p50 = r["p50_us"] / 1000
            met = met and p50 < GOAL_MS
            print("  %-26s p50 %8.2f ms  p99 %8.2f ms  (%d requests; goal p50 < %.0f ms)"
                  % (name, p50, r["p99_us"] / 1000, opts.requests, GOAL_MS))
        print("goals met" if met else "GOALS NOT MET")
        return 0 if met else 1
    finally:
        bench.close()


if __name__ == "__main__":
    sys.exit(main())
