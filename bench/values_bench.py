#!/usr/bin/env python3
"""The value operations through wsgated, measured with the fcgi_load client:

  - getValue, and getValues of 1, 100 and 1000 paths: latency per request;
  - setValues of 100 paths: latency per request;
  - requests per second of getValue beside the trivial FastCGI responder, in one run;
  - the daemon's resident memory before and after REQUESTS getValue requests.

    bench/values_bench.py BUILD_DIR [--requests N]      (default 100000)

With --lists it measures instead setValues of long lists: 15000 and 49999 pairs (49999 is the
longest list the daemon takes: paths and values together at most 100000 elements), once
repeating one path and once of distinct paths. The time per pair should stay flat as the
list grows.

With --memory it measures instead the daemon's resident memory when idle and after one
getValues of 10,000 and of 100,000 paths: the goal is below 8 MB after 10,000 and back
within 5 % of idle after each.

Everything runs on a temporary demo gateway with 1000 extra Real points /Bench/Pnnnn; the
processes started are stopped and the directory removed at the end. Python only sets up and
reports: every timed request is sent by fcgi_load (C++)."""

import argparse
import json
import os
import re
import shutil
import signal
import socket
import subprocess
import sys
import tempfile
import time

GOALS = {"ratio": 0.7, "getValues_1000_p50_ms": 20.0, "rss_growth": 0.05}
NSC1 = "http://wsgate.local/ws/BACnetWSKite"
NAMESPACES = {"nsc1": NSC1, "nsqv": "http://wsgate.local/ws/BACnetWSKiteQV"}


def envelope(body, prefix="nsc1"):
    """A SOAP 1.1 envelope around `body`, whose elements use `prefix` (nsc1 or nsqv)."""
    return ('<?xml version="1.0" encoding="UTF-8"?>'
            '<SOAP-ENV:Envelope xmlns:SOAP-ENV="http://schemas.xmlsoap.org/soap/envelope/" '
            'xmlns:%s="%s"><SOAP-ENV:Body>%s</SOAP-ENV:Body></SOAP-ENV:Envelope>'
            % (prefix, NAMESPACES[prefix], body))


def get_value(path):
    return envelope("<nsc1:getValue><nsc1:options/><nsc1:path>%s</nsc1:path></nsc1:getValue>"
                    % path)


def get_values(paths):
    items = "".join("<nsc1:string>%s</nsc1:string>" % p for p in paths)
    return envelope("<nsc1:getValues><nsc1:options/><nsc1:paths>%s</nsc1:paths>"
                    "</nsc1:getValues>" % items)


def set_values(paths, values):
    return envelope("<nsc1:setValues><nsc1:options/>%s%s</nsc1:setValues>" % (
        "".join("<nsc1:paths>%s</nsc1:paths>" % p for p in paths),
        "".join("<nsc1:values>%s</nsc1:values>" % v for v in values)))


class Bench:
    def __init__(self, build_dir):
        self.bin = os.path.join(os.path.abspath(build_dir), "bin")
        self.dir = tempfile.mkdtemp(prefix="wsgate-values-bench-")
        self.env = dict(os.environ, CDS_PATH=os.path.join(self.dir, "cds.db"),
                        WSGATED_SOCKET=os.path.join(self.dir, "wsgated.socket"))
        self.processes = []

    def close(self):
        for p in self.processes:
            if p.poll() is None:
                p.send_signal(signal.SIGTERM)
                p.wait(timeout=30)
        shutil.rmtree(self.dir, ignore_errors=True)

    def cds(self, *args, data=None):
        subprocess.run([os.path.join(self.bin, "cds")] + list(args), env=self.env, input=data,
                       check=True, capture_output=True, text=True)

    def make_gateway(self, points):
        self.cds("demo")
        leaves = []
        for i in range(points):
            node = "/Bench/P%04d" % i
            leaves.append({"path": node + "/Value", "type": "Real", "value": "%d.5" % i})
            leaves.append({"path": node + "/Writable", "type": "Boolean", "value": "true"})
        self.cds("import", "-", data=json.dumps({"nodes": ["/Bench"], "leaves": leaves}))

    def start(self, args, socket_path):
        self.processes.append(subprocess.Popen(args, env=self.env, stdout=subprocess.DEVNULL,
                                               stderr=subprocess.DEVNULL))
        deadline = time.monotonic() + 20
        while True:
            try:
                with socket.socket(socket.AF_UNIX, socket.SOCK_STREAM) as s:
                    s.connect(socket_path)
                return self.processes[-1]
            except OSError:
                if time.monotonic() > deadline or self.processes[-1].poll() is not None:
                    raise RuntimeError("%s did not start" % args[0])
                time.sleep(0.01)

    def load(self, socket_path, body, requests, connections=1, expect=None):
        """The load client: fcgi_load sends `requests` copies of `body` and reports."""
        body_file = os.path.join(self.dir, "body.xml")
        with open(body_file, "w") as f:
            f.write(body)
        args = [os.path.join(self.bin, "fcgi_load"), "--socket", socket_path, "--body",
                body_file, "--requests", str(requests), "--connections", str(connections),
                "--param", "REMOTE_USER=operator", "--param", "REMOTE_ADDR=127.0.0.1"]
        if expect is not None:
            args += ["--expect", expect]
        out = subprocess.run(args, capture_output=True, text=True)
        if out.returncode != 0:
            raise RuntimeError("fcgi_load failed: %s %s" % (out.stdout, out.stderr))
        return {k: float(v) for k, v in re.findall(r"(\w+)=([\d.]+)", out.stdout)}


def rss_kb(pid):
    with open("/proc/%d/status" % pid) as f:
        return int(re.search(r"VmRSS:\s+(\d+)", f.read()).group(1))


LIST_LENGTHS = (15000, 49999)


def settled_rss_kb(pid):
    """The resident memory once the daemon has finished the request it just answered (it
    trims its heap after answering): the first of two equal readings 50 ms apart."""
    last = rss_kb(pid)
    for _ in range(40):
        time.sleep(0.05)
        now = rss_kb(pid)
        if now == last:
            return now
        last = now
    return last


def memory_after_lists(bench):
    """Resident memory idle and after getValues of long lists."""
    bench.make_gateway(1000)
    daemon_socket = bench.env["WSGATED_SOCKET"]
    daemon = bench.start([os.path.join(bench.bin, "wsgated"), "-d"], daemon_socket)
    paths = ["/Bench/P%04d" % (i % 1000) for i in range(100000)]
    bench.load(daemon_socket, get_values(paths[:1000]), 20, expect="999.5<")  # warm-up
    idle = settled_rss_kb(daemon.pid)
    print("wsgated RSS idle %d kB" % idle)
    met = True
    for n in (10000, 100000):
        bench.load(daemon_socket, get_values(paths[:n]), 1, expect="999.5<")
        after = settled_rss_kb(daemon.pid)
        growth = (after - idle) / idle
        print("wsgated RSS after getValues of %d paths %d kB: %+.1f %% (goal within %.0f %%)"
              % (n, after, 100 * growth, 100 * GOALS["rss_growth"]))
        met = met and growth <= GOALS["rss_growth"] and (n != 10000 or after < 8192)
    print("goals met" if met else "GOALS NOT MET")
    return 0 if met else 1


def list_writes(bench):
    """setValues of long lists, one path repeated and distinct paths: latency per request."""
    bench.make_gateway(max(LIST_LENGTHS))
    daemon_socket = bench.env["WSGATED_SOCKET"]
    bench.start([os.path.join(bench.bin, "wsgated"), "-d"], daemon_socket)
    print("setValues of long lists, latency per request (1 connection, 3 requests):")
    for n in LIST_LENGTHS:
        texts = ["%d.25" % i for i in range(n)]
        for name, paths in (("one path", ["/Bench/P0000"] * n),
                            ("distinct paths", ["/Bench/P%04d" % i for i in range(n)])):
            # The last result shows that the whole list was written.
            r = bench.load(daemon_socket, set_values(paths, texts), 3, 1,
                           expect="<nsc1:setValuesResult>%s<" % texts[-1])
            print("  %5d pairs, %-14s p50 %8.1f ms  max %8.1f ms  (%.1f us per pair)"
                  % (n, name, r["p50_us"] / 1000, r["max_us"] / 1000, r["p50_us"] / n))
    return 0


def main():
    parser = argparse.ArgumentParser(description=__doc__.split("\n\n")[0])
    parser.add_argument("build_dir")
    parser.add_argument("--requests", type=int, default=100000)
    parser.add_argument("--lists", action="store_true",
                        help="measure setValues of long lists instead")
    parser.add_argument("--memory", action="store_true",
                        help="measure resident memory after getValues of long lists instead")
    opts = parser.parse_args()

    bench = Bench(opts.build_dir)
    try:
        if opts.lists:
            return list_writes(bench)
        if opts.memory:
            return memory_after_lists(bench)
        bench.make_gateway(1000)
        daemon_socket = bench.env["WSGATED_SOCKET"]
        trivial_socket = os.path.join(bench.dir, "trivial.socket")
        daemon = bench.start([os.path.join(bench.bin, "wsgated"), "-d"], daemon_socket)
        bench.start([os.path.join(bench.bin, "trivial_responder"), trivial_socket],
                    trivial_socket)
        paths = ["/Bench/P%04d" % i for i in range(1000)]
        one = get_value(paths[500])
        bench.load(daemon_socket, one, 2000, 2, expect="<nsc1:getValueResult>500.5<")  # warm-up

        print("latency per request (1 connection):")
        rows = [("getValue", one, 2000, "500.5<"),
                ("getValues x1", get_values(paths[:1]), 2000, "0.5<"),
                ("getValues x100", get_values(paths[:100]), 500, "99.5<"),
                ("getValues x1000", get_values(paths), 200, "999.5<"),
                ("setValues x100", set_values(paths[:100], ["%d.25" % i for i in range(100)]),
                 200, "99.25<")]
        latency = {}
        for name, body, requests, expect in rows:
            r = bench.load(daemon_socket, body, requests, 1, expect=expect)
            latency[name] = r["p50_us"] / 1000
            print("  %-16s p50 %8.3f ms  p99 %8.3f ms  (%d requests, %.0f/s)"
                  % (name, r["p50_us"] / 1000, r["p99_us"] / 1000, requests, r["rps"]))

        rss_before = rss_kb(daemon.pid)
        trivial = bench.load(trivial_socket, one, opts.requests, 2)
        served = bench.load(daemon_socket, one, opts.requests, 2, expect="500.5<")
        rss_after = rss_kb(daemon.pid)
        ratio = served["rps"] / trivial["rps"]
        growth = (rss_after - rss_before) / rss_before
        print("throughput (2 connections, %d requests each):" % opts.requests)
        print("  trivial responder %8.0f req/s" % trivial["rps"])
        print("  wsgated getValue  %8.0f req/s" % served["rps"])
        print("  ratio %.2f (goal >= %.2f)" % (ratio, GOALS["ratio"]))
        print("getValues x1000 p50 %.2f ms (goal < %.0f ms)"
              % (latency["getValues x1000"], GOALS["getValues_1000_p50_ms"]))
        print("wsgated RSS %d kB before, %d kB after %d getValue requests: %+.1f %% "
              "(goal within %.0f %%)" % (rss_before, rss_after, opts.requests, 100 * growth,
                                         100 * GOALS["rss_growth"]))
        met = (ratio >= GOALS["ratio"] and abs(growth) <= GOALS["rss_growth"]
               and latency["getValues x1000"] < GOALS["getValues_1000_p50_ms"])
        print("goals met" if met else "GOALS NOT MET")
        return 0 if met else 1
    finally:
        bench.close()


if __name__ == "__main__":
    sys.exit(main())
