#!/usr/bin/env python3
"""Measures the agent server over loopback, one request per connection as agents
send them, on a replayed year (the database commands-bench.py makes and keeps
with --work): requests per second and p50/p99 latency of "ping" and of
get_summary for a month (warm), then a bounded load run (concurrent clients for
a fixed time), after which the server's open file descriptors and resident
memory must be back where they were. Asserts nothing: misses are reported.

    bench/agent-bench.py [--ombrelo build/bench/src/app/ombrelo] [--work DIR]
                         [--clients 50] [--seconds 20]
"""

import argparse
import http.client
import json
import os
import pathlib
import statistics
import subprocess
import sys
import tempfile
import threading
import time

HERE = pathlib.Path(__file__).resolve().parent
sys.path.insert(0, str(HERE))
from importlib import import_module  # noqa: E402

commands_bench = import_module("commands-bench")


def request(port, token, body):
    """One POST /mcp on a new connection; returns (seconds, status)."""
    start = time.perf_counter()
    connection = http.client.HTTPConnection("127.0.0.1", port, timeout=10)
    connection.request("POST", "/mcp", body=body, headers={
        "Authorization": f"Bearer {token}", "Content-Type": "application/json", "Host": f"127.0.0.1:{port}"})
    response = connection.getresponse()
    response.read()
    connection.close()
    return time.perf_counter() - start, response.status


def message(method, params=None):
    return json.dumps({"jsonrpc": "2.0", "id": 1, "method": method, "params": params or {}})


def measure(label, port, token, body, count, target):
    request(port, token, body)  # warm
    start = time.perf_counter()
    latencies = []
    for _ in range(count):
        seconds, status = request(port, token, body)
        if status != 200:
            sys.exit(f"{label}: HTTP {status}")
        latencies.append(seconds * 1000)
    elapsed = time.perf_counter() - start
    latencies.sort()
    p50 = statistics.median(latencies)
    p99 = latencies[int(len(latencies) * 0.99) - 1]
    print(f"{label:28} {count / elapsed:9.0f} req/s   p50 {p50:7.2f} ms   p99 {p99:7.2f} ms   {target}")
    return count / elapsed, p99


def footprint(pid):
    fds = len(os.listdir(f"/proc/{pid}/fd"))
    with open(f"/proc/{pid}/status") as status:
        rss = next(int(line.split()[1]) for line in status if line.startswith("VmRSS:"))
    return fds, rss / 1024


def load(port, token, clients, seconds):
    bodies = [message("ping"), message("tools/call", {"name": "get_summary", "arguments": {"period": "week"}})]
    stop = time.monotonic() + seconds
    counts = [0] * clients
    failures = [0] * clients

    def client(index):
        while time.monotonic() < stop:
            try:
                _, status = request(port, token, bodies[counts[index] % 2])
                failures[index] += status != 200
            except OSError:
                failures[index] += 1
            counts[index] += 1

    threads = [threading.Thread(target=client, args=(i,)) for i in range(clients)]
    for thread in threads:
        thread.start()
    for thread in threads:
        thread.join()
    return sum(counts), sum(failures)


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--ombrelo", default="build/bench/src/app/ombrelo")
    parser.add_argument("--work", help="folder that keeps the replayed year between runs")
    parser.add_argument("--clients", type=int, default=50)
    parser.add_argument("--seconds", type=float, default=20)
    args = parser.parse_args()

    ombrelo = str(pathlib.Path(args.ombrelo).resolve())
    temporary = None if args.work else tempfile.TemporaryDirectory(prefix="ombrelo-agent-bench-")
    work = pathlib.Path(args.work or temporary.name)
    work.mkdir(parents=True, exist_ok=True)
    env = dict(os.environ, XDG_CONFIG_HOME=str(work / "config"), XDG_DATA_HOME=str(work / "data"),
               XDG_STATE_HOME=str(work / "state"), OMBRELO_LOG="error", OMBRELO_TOKEN_STORE="file",
               LANG="fr_FR.UTF-8")
    database, _, _ = commands_bench.replayed_year(ombrelo, work, env)
    token = subprocess.run([ombrelo, "--db", str(database), "mcp", "token"], env=env, check=True,
                           capture_output=True, text=True).stdout.strip()
    server = subprocess.Popen([ombrelo, "--db", str(database), "mcp", "serve", "--port", "0"], env=env,
                              stdout=subprocess.PIPE, text=True)
    try:
        line = server.stdout.readline()
        port = int(line.split("127.0.0.1:")[1].split("/")[0])
        print(f"load average {os.getloadavg()[0]:.2f}; one request per connection")
        measure("ping", port, token, message("ping"), 3000, "target >= 2000 req/s")
        month = message("tools/call", {"name": "get_summary", "arguments": {"period": "last_month"}})
        measure("get_summary, a month, warm", port, token, month, 300, "target p99 < 20 ms")

        before = footprint(server.pid)
        total, failures = load(port, token, args.clients, args.seconds)
        time.sleep(1)  # connections closing on the server's side
        after = footprint(server.pid)
        print(f"load: {args.clients} clients for {args.seconds:g} s: {total} requests, {failures} failed "
              f"(refused over the connection cap, or cut)")
        print(f"open descriptors {before[0]} -> {after[0]}; resident {before[1]:.1f} -> {after[1]:.1f} MiB")
    finally:
        server.terminate()
        server.wait(timeout=10)


if __name__ == "__main__":
    main()
