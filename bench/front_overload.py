#!/usr/bin/env python3
"""Overload at the web front: CLIENTS callers at once (default 500), each sending REQUESTS
getValue requests one after another (default 20), through the web server of deploy/site.sh
to a real `wsgated -d` on the demo store, on 127.0.0.1 only.

    bench/front_overload.py BUILD_DIR [--front lighttpd|nginx] [--clients N] [--requests N]
                            [--seconds S]

Two rounds: callers that keep their connection open between requests (as SOAP client
libraries do), then callers that open a new connection for every request (as curl does).
Each round reports the requests answered with the value, the failed ones by HTTP status or
by error, the time, the latency and the lines added to the web server's error log. A
request still unanswered after S seconds (default 120) from the start of its round fails.

lighttpd must answer every request: the exit status is 0 only when no request failed.
nginx answers the requests beyond its bound at once with 503 (deploy/nginx/wsgate-site.conf):
those are counted apart, and any other failure makes the exit status 1. nginx runs as root
when the script does, so that it can reach the daemon's socket.

Everything runs in a temporary directory, removed at the end with the processes started.
The callers are asyncio tasks on one thread: slower than wrk, but each keeps its request
in flight, so the web server has CLIENTS requests at once, and every answer is checked."""

import argparse
import asyncio
import base64
import collections
import os
import shutil
import signal
import socket
import subprocess
import sys
import tempfile
import time

HERE = os.path.dirname(os.path.abspath(__file__))
SITE = os.path.join(os.path.dirname(HERE), "deploy", "site.sh")
BODY = ('<?xml version="1.0" encoding="UTF-8"?><SOAP-ENV:Envelope '
        'xmlns:SOAP-ENV="http://schemas.xmlsoap.org/soap/envelope/" '
        'xmlns:nsc1="http://wsgate.local/ws/BACnetWSKite"><SOAP-ENV:Body><nsc1:getValue>'
        '<nsc1:options></nsc1:options><nsc1:path>/Meter1/Voltage</nsc1:path></nsc1:getValue>'
        '</SOAP-ENV:Body></SOAP-ENV:Envelope>').encode()
EXPECT = b"<nsc1:getValueResult>230.4</nsc1:getValueResult>"


def free_port():
    with socket.socket() as s:
        s.bind(("127.0.0.1", 0))
        return s.getsockname()[1]


def wait_for(what, ready, process, timeout=20):
    deadline = time.monotonic() + timeout
    while not ready():
        if process.poll() is not None or time.monotonic() > deadline:
            sys.exit("front_overload: %s did not start" % what)
        time.sleep(0.01)


def connects(address, family=socket.AF_INET):
    try:
        with socket.socket(family) as s:
            s.connect(address)
        return True
    except OSError:
        return False


def line_count(path):
    """Lines of a log that is written through a pipe: counted once it stops growing."""
    last = -1
    while True:
        try:
            size = os.path.getsize(path)
        except FileNotFoundError:
            size = 0
        if size == last:
            break
        last = size
        time.sleep(0.3)
    if size == 0:
        return 0
    with open(path, "rb") as f:
        return f.read().count(b"\n")


class Round:
    """The outcome of one round: answers, failures by kind, latencies."""

    def __init__(self, refusal):
        self.refusal = refusal  # the status of a designed refusal, counted apart
        self.answered = 0
        self.refused = 0
        self.failed = collections.Counter()
        self.latencies = []

    def report(self, seconds):
        lat = sorted(self.latencies) or [0.0]
        total = self.answered + self.refused + sum(self.failed.values())
        failed = " ".join("%s=%d" % kv for kv in sorted(self.failed.items())) or "none"
        return ("requests=%d answered=%d%s failed: %s; seconds=%.2f rps=%.0f latency "
                "p50=%.3f p99=%.3f max=%.3f s" % (
                    total, self.answered, " refused=%d" % self.refused if self.refused else "",
                    failed, seconds, total / seconds, lat[len(lat) // 2],
                    lat[min(len(lat) - 1, int(len(lat) * 0.99))], lat[-1]))


async def caller(port, request, count, keep_alive, outcome, deadline):
    reader = writer = None
    for sent in range(count):
        start = time.monotonic()
        try:
            if writer is None:
                reader, writer = await asyncio.wait_for(
                    asyncio.open_connection("127.0.0.1", port), deadline - start)
            writer.write(request)
            head = await asyncio.wait_for(reader.readuntil(b"\r\n\r\n"),
                                          deadline - time.monotonic())
            lines = head.decode("latin-1").split("\r\n")
            headers = dict((k.strip().lower(), v.strip()) for k, _, v in
                           (line.partition(":") for line in lines[1:] if line))
            body = await asyncio.wait_for(
                reader.readexactly(int(headers.get("content-length", "0"))),
                deadline - time.monotonic())
            outcome.latencies.append(time.monotonic() - start)
            status = int(lines[0].split()[1])
            if status == 200 and EXPECT in body:
                outcome.answered += 1
            elif status == outcome.refusal:
                outcome.refused += 1
            else:
                outcome.failed["http_%d" % status] += 1
            if not keep_alive or headers.get("connection", "").lower() == "close":
                writer.close()
                writer = None
        except asyncio.TimeoutError:  # the round's time is up: this and the rest fail
            outcome.failed["unanswered"] += count - sent
            break
        except (OSError, asyncio.IncompleteReadError, asyncio.LimitOverrunError) as e:
            outcome.failed[type(e).__name__] += 1
            if writer is not None:
                writer.close()
            writer = None
    if writer is not None:
        writer.close()


async def load(port, auth, clients, count, keep_alive, seconds, refusal):
    request = (("POST /ws HTTP/1.1\r\nHost: 127.0.0.1\r\nAuthorization: Basic %s\r\n"
                "Content-Type: text/xml; charset=utf-8\r\nContent-Length: %d\r\n%s\r\n")
               % (auth, len(BODY), "" if keep_alive else "Connection: close\r\n")).encode()
    request += BODY
    outcome = Round(refusal)
    start = time.monotonic()
    await asyncio.gather(*(caller(port, request, count, keep_alive, outcome, start + seconds)
                           for _ in range(clients)))
    return outcome, time.monotonic() - start


class Front:
    def __init__(self, build_dir, kind):
        self.kind = kind
        self.bin = os.path.join(os.path.abspath(build_dir), "bin")
        self.dir = tempfile.mkdtemp(prefix="wsgate-front-overload-")
        self.socket = os.path.join(self.dir, "wsgated.socket")
        self.env = dict(os.environ, CDS_PATH=os.path.join(self.dir, "cds.db"),
                        WSGATED_SOCKET=self.socket)
        self.processes = []
        self.port = free_port()

    def close(self):
        for p in reversed(self.processes):
            if p.poll() is None:
                p.send_signal(signal.SIGTERM)
                try:
                    p.wait(timeout=30)
                except subprocess.TimeoutExpired:
                    p.kill()
                    p.wait()
        shutil.rmtree(self.dir, ignore_errors=True)

    def spawn(self, args, log):
        with open(os.path.join(self.dir, log), "wb") as out:
            self.processes.append(subprocess.Popen(args, env=self.env, stdin=subprocess.DEVNULL,
                                                   stdout=out, stderr=out))
        return self.processes[-1]

    def start(self, clients):
        subprocess.run([os.path.join(self.bin, "cds"), "demo"], env=self.env, check=True,
                       capture_output=True)
        daemon = self.spawn([os.path.join(self.bin, "wsgated"), "-d"], "wsgated.log")
        wait_for("wsgated", lambda: connects(self.socket, socket.AF_UNIX), daemon)
        site = os.path.join(self.dir, "site")
        wsdl = os.path.join(os.path.dirname(self.bin), "src", "service", "generated")
        subprocess.run([SITE, site, wsdl, str(self.port)], env=self.env, check=True,
                       capture_output=True)
        if self.kind == "lighttpd":
            self.error_log = os.path.join(site, "log", "error.log")
            front = self.spawn(["lighttpd", "-D", "-f", os.path.join(site, "lighttpd.conf")],
                               "lighttpd.stderr")
        else:
            self.error_log = os.path.join(self.dir, "nginx-error.log")
            conf = os.path.join(self.dir, "nginx.conf")
            with open(conf, "w") as f:
                # Every caller holds a connection of nginx's, and every request handed to
                # the daemon one more. Temporary files stay in the directory, so that any
                # user can run this.
                temp = "".join("%s_temp_path %s/%s;\n" % (kind, self.dir, kind) for kind in
                               ("client_body", "proxy", "fastcgi", "uwsgi", "scgi"))
                f.write("%spid %s/nginx.pid;\nerror_log %s;\n"
                        "events { worker_connections %d; }\n"
                        "http { access_log off;\n%sinclude %s/nginx-site.conf; }\n"
                        % ("user root;\n" if os.getuid() == 0 else "", self.dir,
                           self.error_log, 2 * clients + 64, temp, site))
            front = self.spawn(["nginx", "-p", self.dir, "-c", conf, "-g", "daemon off;"],
                               "nginx.stderr")
        wait_for(self.kind, lambda: connects(("127.0.0.1", self.port)), front)
        with open(os.path.join(site, "users")) as f:
            password = dict(line.strip().split(":", 1) for line in f)["guest"]
        self.auth = base64.b64encode(("guest:" + password).encode()).decode()
        return daemon


def main():
    parser = argparse.ArgumentParser(description=__doc__.split("\n\n")[0])
    parser.add_argument("build_dir")
    parser.add_argument("--front", choices=("lighttpd", "nginx"), default="lighttpd")
    parser.add_argument("--clients", type=int, default=500)
    parser.add_argument("--requests", type=int, default=20)
    parser.add_argument("--seconds", type=float, default=120)
    opts = parser.parse_args()
    if not shutil.which(opts.front):
        sys.exit("front_overload: %s is not installed" % opts.front)

    front = Front(opts.build_dir, opts.front)
    failed = False
    try:
        daemon = front.start(opts.clients)
        print("%d callers x %d getValue through %s" % (opts.clients, opts.requests, opts.front))
        for keep_alive in (True, False):
            before = line_count(front.error_log)
            outcome, seconds = asyncio.run(load(
                front.port, front.auth, opts.clients, opts.requests, keep_alive, opts.seconds,
                503 if opts.front == "nginx" else None))
            added = line_count(front.error_log) - before
            print("%s: %s; error log +%d lines" % (
                "keep-alive" if keep_alive else "connection per request",
                outcome.report(seconds), added))
            failed = failed or bool(outcome.failed)
        if daemon.poll() is not None:
            print("wsgated stopped during the run")
            failed = True
    finally:
        front.close()
    return 1 if failed else 0


if __name__ == "__main__":
    sys.exit(main())
