#!/usr/bin/env python3
"""The log and trend operations through wsgated on logs of a million records, measured with
the fcgi_load client:

  - getDeltaLog of 10,000 records from the start, the middle and the end of a delta log of
    RECORDS records;
  - getTrendData of 833 snapshots of 20 parameters from the start, the middle and the end of
    a trend log of RECORDS samples (RECORDS / 20 snapshots).

    bench/logs_bench.py BUILD_DIR [--records N] [--requests N]   (default 1000000, 20)

Goals: each request under 100 ms (p50), and the end of a log as fast as its start (p50
within 25 %). The logs are made by log_fill in a temporary directory beside a demo store;
everything started is stopped and the directory removed at the end. Python only sets up
and reports: every timed request is sent by fcgi_load (C++)."""

import argparse
import os
import re
import subprocess
import sys

import values_bench
from values_bench import Bench

GOALS = {"p50_ms": 100.0, "end_over_start": 1.25}


def envelope(body):
    return values_bench.envelope(body, "nsqv")


def delta_log(start_ms, latest=False):
    return envelope(
        "<nsqv:getDeltaLog><request><options/><rqstType>LgRqTypDeltas</rqstType>"
        "<startTime>%d</startTime><endTime>0</endTime><nMaxToReturn>10000</nMaxToReturn>"
        "<bLatestEvents>%s</bLatestEvents><bReverseOrder>false</bReverseOrder>"
        "<bTrimIncomplete>true</bTrimIncomplete><path/></request></nsqv:getDeltaLog>"
        % (start_ms, "true" if latest else "false"))


def trend_data(start_ms, ascending=True):
    points = "".join("<string>/Bench/P%d</string>" % p for p in range(20))
    return envelope(
        "<nsqv:getTrendData><request><options/><devicePath>/Bench</devicePath>"
        "<pointPaths>%s</pointPaths><periods><period>1</period></periods>"
        "<startTime>%d</startTime><endTime>0</endTime><nMaxToReturn>833</nMaxToReturn>"
        "<startingOffset>0</startingOffset><ascendingOrder>%s</ascendingOrder></request>"
        "</nsqv:getTrendData>" % (points, start_ms, "true" if ascending else "false"))


def main():
    parser = argparse.ArgumentParser(description=__doc__.split("\n\n")[0])
    parser.add_argument("build_dir")
    parser.add_argument("--records", type=int, default=1000000)
    parser.add_argument("--requests", type=int, default=20)
    opts = parser.parse_args()

    bench = Bench(opts.build_dir)
    try:
        bench.cds("demo")
        filled = subprocess.run([os.path.join(bench.bin, "log_fill"), bench.dir,
                                 str(opts.records)], check=True, capture_output=True, text=True)
        (delta_start, delta_end), (trend_start, trend_end) = [
            tuple(int(t) for t in pair) for pair in re.findall(r"from (\d+) to (\d+)", filled.stdout)]
        socket_path = bench.env["WSGATED_SOCKET"]
        bench.start([os.path.join(bench.bin, "wsgated"), "-d",
                     "-h", os.path.join(bench.dir, "deadband.db"),
                     "-t", os.path.join(bench.dir, "interval-trends.db")], socket_path)

        # Five records per second, a snapshot a minute: where 10,000 records and 833
        # snapshots begin in the middle of each log.
        delta_middle = (delta_start + delta_end) // 2
        trend_middle = (trend_start + trend_end) // 2
        rows = [
            ("getDeltaLog 10000, start", delta_log(delta_start), "<numTrimmedPoints>"),
            ("getDeltaLog 10000, middle", delta_log(delta_middle), "<numTrimmedPoints>"),
            ("getDeltaLog 10000, end (latest)", delta_log(0, latest=True), "<numTrimmedPoints>"),
            ("getTrendData 833x20, start", trend_data(trend_start), "<result>OK<"),
            ("getTrendData 833x20, middle", trend_data(trend_middle), "<result>OK<"),
            ("getTrendData 833x20, end (newest first)", trend_data(0, ascending=False),
             "<result>OK<"),
        ]
        for _, body, expect in rows:  # warm-up: the file's pages in the OS cache
            bench.load(socket_path, body, 2, expect=expect)
        print("log of %d records; latency per request (1 connection, %d requests):"
              % (opts.records, opts.requests))
        p50 = {}
        for name, body, expect in rows:
            r = bench.load(socket_path, body, opts.requests, expect=expect)
            p50[name] = r["p50_us"] / 1000
            print("  %-40s p50 %7.1f ms  p99 %7.1f ms" % (name, p50[name], r["p99_us"] / 1000))
        names = [name for name, _, _ in rows]
        met = all(v < GOALS["p50_ms"] for v in p50.values())
        for start, end in ((names[0], names[2]), (names[3], names[5])):
            ratio = p50[end] / p50[start]
            met = met and ratio <= GOALS["end_over_start"]
            print("%s / start: %.2f (goal <= %.2f)" % (end, ratio, GOALS["end_over_start"]))
        print("goals met (p50 < %.0f ms)" % GOALS["p50_ms"] if met else "GOALS NOT MET")
        return 0 if met else 1
    finally:
        bench.close()


if __name__ == "__main__":
    sys.exit(main())
