#!/usr/bin/env python3
"""Prints the benchmark programs' results (Google Benchmark JSON files) beside
their targets, CPU time per iteration, and says which targets are missed.
Asserts nothing: the exit status is 0 either way.

    bench/report.py build/bench/results/*.json
"""

import json
import os
import sys

# CPU milliseconds per iteration, on one core of an idle machine.
TARGETS_MS = {
    "ClassifyYearCold": 150,
    "ClassifyYearWarm": 80,
    "MonthItemsCold": 30,
    "MonthItemsWarm": 1,
    "YearItemsCold": 300,
    "DayRange": 0.5,
    "MonthAppTotals": 5,
    "MonthStatementXLSXCold": 60,
    "YearTimesheetCSVCold": 1000,
    "YearStatementXLSXCold": 1000,
}

TO_MS = {"ns": 1e-6, "us": 1e-3, "ms": 1, "s": 1e3}


def main(paths):
    print(f"load average {os.getloadavg()[0]:.2f}")
    print(f"{'benchmark':28} {'cpu ms':>10}  {'target':>10}")
    misses = 0
    for path in paths:
        with open(path) as file:
            results = json.load(file)
        for result in results["benchmarks"]:
            name = result["name"]
            cpu = result["cpu_time"] * TO_MS[result.get("time_unit", "ns")]
            target = TARGETS_MS.get(name)
            if target is None:
                print(f"{name:28} {cpu:10.3f}  {'':>10}")
                continue
            missed = cpu >= target
            misses += missed
            print(f"{name:28} {cpu:10.3f}  {'< ' + format(target, 'g'):>10}{'  MISS' if missed else ''}")
    print(f"{misses} target{'s' if misses != 1 else ''} missed")


if __name__ == "__main__":
    main(sys.argv[1:])
