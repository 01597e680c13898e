#!/usr/bin/env python3
"""Writes a synthetic session for `ombrelo replay`: a freelancer's month, working
days of editor, terminal, browser sites, chat, calls, a lunch away, short locks,
and the laptop asleep every night. About 650 events a day, so 30 days give some
20,000 events. Deterministic for a given seed.

    bench/make-replay.py --days 30 > /tmp/month.jsonl
    time ombrelo --db /tmp/bench.sqlite replay /tmp/month.jsonl
"""

import argparse
import datetime as dt
import json
import random
import sys

APPS = [
    # (id, name, titles, weight)
    ("code", "Code", ["main.cpp — ombrelo", "Replay.cpp — ombrelo", "README.md — ombrelo", "invoice.py — compta"], 5),
    ("org.gnome.terminal", "Terminal", ["~/ombrelo", "ninja -C build", "ssh prod-1", "htop"], 3),
    ("firefox", "Firefox", None, 5),
    ("org.gnome.evolution", "Evolution", ["Boîte de réception (12)", "Facture mars", "Re: devis"], 1),
    ("slack", "Slack", ["#général", "#client-durant", "Message direct"], 2),
    ("libreoffice-calc", "LibreOffice Calc", ["Temps mars.ods", "Budget.ods"], 1),
]
SITES = [
    ("github.com", "https://github.com/ombrelo/ombrelo/pulls"),
    ("en.cppreference.com", "https://en.cppreference.com/w/cpp/chrono"),
    ("stackoverflow.com", "https://stackoverflow.com/questions/123"),
    ("www.youtube.com", "https://www.youtube.com/watch?v=abc"),
    ("mail.proton.me", "https://mail.proton.me/u/0/inbox"),
    ("www.lemonde.fr", "https://www.lemonde.fr/"),
    ("docs.python.org", "https://docs.python.org/3/"),
]


class Session:
    def __init__(self, seed):
        self.random = random.Random(seed)
        self.lines = []

    def emit(self, t, **event):
        self.lines.append(json.dumps({"t": t.strftime("%Y-%m-%dT%H:%M:%S"), **event}, ensure_ascii=False))

    def front(self, t):
        app_id, name, titles, _ = self.random.choices(APPS, weights=[a[3] for a in APPS])[0]
        window = {"id": app_id, "name": name}
        if titles is None:
            domain, url = self.random.choice(SITES)
            window.update(title=domain, domain=domain, url=url)
        else:
            window["title"] = self.random.choice(titles)
        self.emit(t, front=window)
        return app_id

    def stretch(self, t, end):
        """Work from t to end: switches every 5 s to 80 s, with title and page changes,
        and short locks; returns when the stretch ended (a lock may run past end)."""
        app = self.front(t)
        while True:
            t += dt.timedelta(seconds=self.random.randint(5, 80))
            if t >= end:
                return max(t, end)
            roll = self.random.random()
            if roll < 0.15 and app == "firefox":
                domain, url = self.random.choice(SITES)
                self.emit(t, site={"domain": domain, "url": url})
            elif roll < 0.25:
                self.emit(t, title=f"édition {self.random.randint(1, 99)}")
            elif roll < 0.27:
                self.emit(t, lock=True)
                t += dt.timedelta(minutes=self.random.randint(2, 8))
                self.emit(t, unlock=True)
                self.emit(t, back=True)
            else:
                app = self.front(t)

    def call(self, t, minutes):
        self.emit(t, front={"id": "us.zoom.xos", "name": "Zoom", "title": "Réunion Zoom"})
        self.emit(t, awake=["us.zoom.xos"])
        t += dt.timedelta(minutes=minutes)
        self.emit(t, awake=[])
        return t

    def day(self, date):
        start = dt.datetime.combine(date, dt.time(8, 30)) + dt.timedelta(minutes=self.random.randint(0, 40))
        self.emit(start, wake=True)
        self.emit(start, back=True)
        lunch = dt.datetime.combine(date, dt.time(12, 15)) + dt.timedelta(minutes=self.random.randint(0, 30))
        lunch = self.stretch(start, lunch)
        self.emit(lunch, away=True)
        back = lunch + dt.timedelta(minutes=self.random.randint(45, 75))
        self.emit(back, back=True)
        meeting = dt.datetime.combine(date, dt.time(15, 0))
        meeting = self.stretch(back, meeting)
        after = self.call(meeting, self.random.randint(20, 50))
        end = dt.datetime.combine(date, dt.time(18, 30)) + dt.timedelta(minutes=self.random.randint(0, 60))
        end = self.stretch(after, end)
        self.emit(end, sleep=True)


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--days", type=int, default=30)
    parser.add_argument("--start", default="2025-03-03", help="first day, YYYY-MM-DD")
    parser.add_argument("--seed", type=int, default=1)
    args = parser.parse_args()

    session = Session(args.seed)
    first = dt.date.fromisoformat(args.start)
    for offset in range(args.days):
        session.day(first + dt.timedelta(days=offset))
    last = first + dt.timedelta(days=args.days)
    session.emit(dt.datetime.combine(last, dt.time(8, 0)), quit=True)
    sys.stdout.write("\n".join(session.lines) + "\n")
    print(f"{len(session.lines)} events", file=sys.stderr)


if __name__ == "__main__":
    main()
