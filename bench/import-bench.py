#!/usr/bin/env python3
"""Times `ombrelo import` on a generated Toggl Track detailed export of 100,000
rows (about a freelancer's ten years), previewed (--dry-run) and imported into
a fresh database, as whole processes: wall time and peak memory beside the
targets (under 3 s in all, under 100 MB). Asserts nothing.

    bench/import-bench.py [--ombrelo build/bench/src/app/ombrelo] [--rows 100000]
"""

import argparse
import datetime as dt
import os
import pathlib
import random
import sys
import tempfile

HERE = pathlib.Path(__file__).resolve().parent
sys.path.insert(0, str(HERE))
from importlib import import_module  # noqa: E402

commands_bench = import_module("commands-bench")

HEADER = ("User,Email,Client,Project,Task,Description,Billable,Start date,Start time,End date,End time,Duration,"
          "Tags,Amount (EUR)\r\n")
CLIENTS = ["Atelier Dupont", "Studio Brume", "Maison Leroy", "Garcia & fils", "-"]
PROJECTS = ["Refonte", "Maquettes", "Support", "Audit", "Formation", "Interne"]
WORDS = ["Appels, relances", "Revue de code", "Intégration", "Réunion hebdo", "Devis", "Corrections"]


def generate(path, rows, seed=7):
    rng = random.Random(seed)
    day = dt.datetime(2016, 1, 4, 8, 30)
    with open(path, "w", encoding="utf-8", newline="") as out:
        out.write(HEADER)
        for _ in range(rows):
            minutes = rng.choice([15, 30, 45, 60, 90, 120])
            end = day + dt.timedelta(minutes=minutes)
            client = rng.choice(CLIENTS)
            project = "-" if client == "-" else rng.choice(PROJECTS)
            text = rng.choice(WORDS)
            quoted = f'"{text}"' if "," in text else text
            out.write(f"Anne,anne@exemple.fr,{client},{project},,{quoted},{rng.choice(['Yes', 'No'])},"
                      f"{day:%Y-%m-%d},{day:%H:%M:%S},{end:%Y-%m-%d},{end:%H:%M:%S},"
                      f"{minutes // 60:02}:{minutes % 60:02}:00,,\r\n")
            day = end + dt.timedelta(minutes=rng.choice([0, 5, 10]))
            if day.hour >= 18:
                day = (day + dt.timedelta(days=1)).replace(hour=8, minute=30)


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--ombrelo", default="build/bench/src/app/ombrelo")
    parser.add_argument("--rows", type=int, default=100_000)
    args = parser.parse_args()
    ombrelo = str(pathlib.Path(args.ombrelo).resolve())
    with tempfile.TemporaryDirectory(prefix="ombrelo-import-bench-") as folder:
        work = pathlib.Path(folder)
        env = dict(os.environ, XDG_CONFIG_HOME=str(work / "config"), XDG_DATA_HOME=str(work / "data"),
                   OMBRELO_LOG="error", LANG="fr_FR.UTF-8")
        export = work / "toggl.csv"
        generate(export, args.rows)
        database = ["--db", str(work / "import.sqlite")]
        preview = commands_bench.run([ombrelo, *database, "import", str(export), "--dry-run", "--json"], env)
        imported = commands_bench.run([ombrelo, *database, "import", str(export), "--json"], env)
        size = export.stat().st_size / 1e6
        print(f"load average {os.getloadavg()[0]:.2f}; {args.rows} rows, {size:.1f} MB")
        print(f"{'step':22} {'wall ms':>9} {'cpu ms':>8} {'peak MiB':>9}")
        for label, (wall, cpu, memory) in (("preview (--dry-run)", preview), ("import", imported)):
            print(f"{label:22} {wall * 1000:9.0f} {cpu * 1000:8.0f} {memory:9.1f}")
        total = preview[0] + imported[0]
        peak = max(preview[2], imported[2])
        print(f"in all: {total:.2f} s (target < 3 s), peak {peak:.0f} MiB (target < 100 MB)"
              f"{'  MISS' if total >= 3 or peak >= 100 else ''}")


if __name__ == "__main__":
    main()
