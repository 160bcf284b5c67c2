#!/usr/bin/env python3
"""The device model operations through wsgated, measured end to end with the fcgi_load client
(latency per request, one connection):

  - findAttributeMatches over a subtree of 100,000 leaves (20,000 points of five leaves);
  - getDeviceTree of 1,000 devices;
  - getLeafDescriptors of 1,000 leaves;
  - findAttributeMatches with a catastrophically backtracking pattern over 50 texts of 5,000
    characters, for the record: each text costs the regular-expression library a few hundred
    milliseconds before it gives up, and the search stops at its time limit (two seconds).

Besides the latency it reports the daemon's processor time per request, which the other
work of a shared machine does not inflate.

    bench/devices_bench.py BUILD_DIR [--requests N]      (default 50 per operation)

Everything runs on a temporary demo gateway; the daemon is stopped and the directory removed
at the end. Python only sets up and reports: every timed request is sent by fcgi_load."""

import argparse
import json
import os
import sys

import values_bench
from values_bench import Bench

GOALS_MS = {"findAttributeMatches": 100.0, "getDeviceTree": 20.0, "getLeafDescriptors": 20.0}
UNITS = ("kW", "V", "A", "Hz", "%")


def envelope(body):
    return values_bench.envelope(body, "nsqv")


def find_matches(start, attribute, pattern):
    return envelope("<nsqv:findAttributeMatches><options/><startingPath>%s</startingPath>"
                    "<bRecursive>true</bRecursive><attribMatch>%s</attribMatch>"
                    "<regexMatchPattern>%s</regexMatchPattern></nsqv:findAttributeMatches>"
                    % (start, attribute, pattern))


def device_tree():
    return envelope("<nsqv:getDeviceTree><options/><startingPath>/Devices/</startingPath>"
                    "<bRecursive>true</bRecursive></nsqv:getDeviceTree>")


def leaf_descriptors(paths):
    items = "".join("<string>%s</string>" % p for p in paths)
    return envelope("<nsqv:getLeafDescriptors><options/><basePath>/Bench/</basePath>"
                    "<leafPaths>%s</leafPaths></nsqv:getLeafDescriptors>" % items)


def make_store(bench, points, devices, slow_texts):
    """The demo, `points` points of five leaves below /Bench, `devices` devices below
    /Devices and `slow_texts` nodes below /Slow whose Text is 5,000 "a" and a "!"."""
    bench.cds("demo")
    leaves = []
    for i in range(points):
        node = "/Bench/G%02d/P%05d" % (i // 1000, i)
        leaves += [{"path": node + "/Value", "type": "Real", "value": "%d.5" % i},
                   {"path": node + "/Writable", "type": "Boolean", "value": "false"},
                   {"path": node + "/Units", "type": "String", "value": UNITS[i % len(UNITS)]},
                   {"path": node + "/Minimum", "type": "Real", "value": "0"},
                   {"path": node + "/Maximum", "type": "Real", "value": "1000"}]
    for i in range(devices):
        node = "/Devices/D%04d" % i
        leaves += [{"path": node + "/NodeType", "type": "String", "value": "Device"},
                   {"path": node + "/DisplayName", "type": "String", "value": "Device %d" % i},
                   {"path": node + "/.Quality", "type": "Unsigned", "value": "192"},
                   {"path": node + "/sDevChangeCount/Value", "type": "Integer", "value": "1"}]
    for i in range(slow_texts):
        leaves.append({"path": "/Slow/N%02d/Text" % i, "type": "String", "value": "a" * 5000 + "!"})
    bench.cds("import", "-", data=json.dumps({"nodes": [], "leaves": leaves}))


def cpu_seconds(pid):
    """The processor time (user and system) that process `pid` has used."""
    with open("/proc/%d/stat" % pid) as f:
        fields = f.read().rpartition(") ")[2].split()
    return (int(fields[11]) + int(fields[12])) / os.sysconf("SC_CLK_TCK")


def main():
    parser = argparse.ArgumentParser(description=__doc__.split("\n\n")[0])
    parser.add_argument("build_dir")
    parser.add_argument("--requests", type=int, default=50)
    opts = parser.parse_args()

    bench = Bench(opts.build_dir)
    try:
        make_store(bench, 20000, 1000, 50)
        socket_path = bench.env["WSGATED_SOCKET"]
        daemon = bench.start([os.path.join(bench.bin, "wsgated"), "-d"], socket_path)
        # name, body, text every answer holds, requests
        rows = [
            ("findAttributeMatches", find_matches("/Bench", "Units", "^kW$"),
             "<string>/Bench/G19/P19995</string>", opts.requests),
            ("getDeviceTree", device_tree(), "<devPath>/Devices/D0999</devPath>", opts.requests),
            ("getLeafDescriptors",
             leaf_descriptors(["G%02d/P%05d/Value" % (i // 50, i * 20) for i in range(1000)]),
             "<result>19980.5</result>", opts.requests),
            ("catastrophic pattern", find_matches("/Slow", "Text", "(a|a)*b"),
             "search stopped after 2 s", 3),
        ]
        print("per request (1 connection):")
        met = True
        for name, body, expect, requests in rows:
            cpu_before = cpu_seconds(daemon.pid)
            r = bench.load(socket_path, body, requests, 1, expect=expect)
            cpu_ms = (cpu_seconds(daemon.pid) - cpu_before) * 1000 / requests
            p50 = r["p50_us"] / 1000
            goal = GOALS_MS.get(name)
            met = met and (goal is None or p50 < goal)
            print("  %-21s p50 %8.2f ms  p99 %8.2f ms  cpu %8.2f ms  (%d requests)%s"
                  % (name, p50, r["p99_us"] / 1000, cpu_ms, requests,
                     "  goal < %.0f ms" % goal if goal else ""))
        print("goals met" if met else "GOALS NOT MET")
        return 0 if met else 1
    finally:
        bench.close()


if __name__ == "__main__":
    sys.exit(main())
