#!/usr/bin/env python3
"""Measures the window on a replayed year (the database commands-bench.py makes
and keeps with --work), served by `ombrelo ui --serve`: the server's time for
the dashboard (target under 50 ms) and for the timeline of the busiest day
(target under 30 ms), cold then warm, one request per connection as the
browser sends them; then, in headless Chromium (bench/window-page.mjs), the
time from asking for a page to its being usable (target under 500 ms). Asserts
nothing: misses are reported.

    bench/window-bench.py [--ombrelo build/bench/src/app/ombrelo] [--work DIR]
"""

import argparse
import http.client
import os
import pathlib
import re
import sqlite3
import statistics
import subprocess
import sys
import tempfile
import time

HERE = pathlib.Path(__file__).resolve().parent
sys.path.insert(0, str(HERE))
from importlib import import_module  # noqa: E402

commands_bench = import_module("commands-bench")


class Window:
    """A signed-in session, as the browser holds it."""

    def __init__(self, link):
        match = re.match(r"http://127\.0\.0\.1:(\d+)(/open\?.*)", link)
        self.port = int(match.group(1))
        connection = http.client.HTTPConnection("127.0.0.1", self.port, timeout=30)
        connection.request("GET", match.group(2))
        answer = connection.getresponse()
        answer.read()
        self.cookie = answer.getheader("Set-Cookie").split(";")[0]
        self.token = re.search(r"token=([0-9a-f]+)", answer.getheader("Location")).group(1)

    def get(self, path):
        start = time.perf_counter()
        connection = http.client.HTTPConnection("127.0.0.1", self.port, timeout=30)
        connection.request("GET", path, headers={"Cookie": self.cookie, "X-Ombrelo-Token": self.token})
        answer = connection.getresponse()
        body = answer.read()
        if answer.status != 200:
            sys.exit(f"{path}: HTTP {answer.status} {body[:200]!r}")
        return (time.perf_counter() - start) * 1000, body


def busiest_day(database):
    with sqlite3.connect(database) as db:
        row = db.execute("SELECT date(start, 'unixepoch', 'localtime') AS day, COUNT(*) AS n FROM activity "
                         "GROUP BY day ORDER BY n DESC LIMIT 1").fetchone()
    return row[0], row[1]


def measure(window, label, path, target_ms, runs=30):
    cold, _ = window.get(path)
    warm = sorted(window.get(path)[0] for _ in range(runs))
    median = statistics.median(warm)
    verdict = "ok" if median < target_ms else "MISSED"
    print(f"{label}: cold {cold:.1f} ms, warm median {median:.1f} ms, p90 {warm[int(runs * 0.9) - 1]:.1f} ms "
          f"(target < {target_ms} ms: {verdict})")


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--ombrelo", default="build/bench/src/app/ombrelo")
    parser.add_argument("--work", help="folder that keeps the replayed year between runs")
    args = parser.parse_args()

    ombrelo = str(pathlib.Path(args.ombrelo).resolve())
    temporary = None if args.work else tempfile.TemporaryDirectory(prefix="ombrelo-window-bench-")
    work = pathlib.Path(args.work or temporary.name)
    work.mkdir(parents=True, exist_ok=True)
    env = dict(os.environ, XDG_CONFIG_HOME=str(work / "config"), XDG_DATA_HOME=str(work / "data"),
               XDG_STATE_HOME=str(work / "state"), OMBRELO_LOG="error", LANG="fr_FR.UTF-8")
    database, _, _ = commands_bench.replayed_year(ombrelo, work, env)
    day, activities = busiest_day(database)
    server = subprocess.Popen([ombrelo, "--db", str(database), "ui", "--serve", "--print", "--port", "0"], env=env,
                              stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, text=True)
    try:
        window = Window(server.stdout.readline().strip())
        print(f"load average {os.getloadavg()[0]:.2f}; one request per connection")
        measure(window, "dashboard", "/api/dashboard", 50)
        measure(window, f"timeline of {day} ({activities} activities)", f"/api/timeline?date={day}", 30)
        # The browser joins the same session: its cookie, and the token in the address.
        result = subprocess.run(["node", str(HERE / "window-page.mjs"), str(window.port), window.cookie,
                                 window.token, "dashboard", f"timeline/{day}"], capture_output=True, text=True)
        if result.returncode != 0:
            sys.exit(f"window-page.mjs failed: {result.stderr.strip()}")
        print(result.stdout.strip())
    finally:
        server.terminate()
        server.wait()


if __name__ == "__main__":
    main()
