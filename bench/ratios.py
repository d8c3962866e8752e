#!/usr/bin/env python3
"""Prints the medians of camera_bench's rounds and their ratios: ratios.py FREE PINNED IDLE, each a file of its JSON.

FREE: the kernel chooses the CPUs; PINNED: all on one CPU. Exits 1 when a goal is missed; goals are for FREE.
"""
import json
import statistics
import sys


def runs(path):
    with open(path) as file:
        for run in json.load(file)["benchmarks"]:
            if run.get("error_occurred"):
                sys.exit(f"ratios.py: {run['name']}: {run['error_message']}")
            if run["run_type"] == "iteration":
                yield run


class Rounds:
    def __init__(self, path):
        self.runs = {}
        for run in runs(path):
            name = run["run_name"].removesuffix("/real_time").removesuffix("/iterations:1/manual_time")
            self.runs.setdefault(name, []).append(run)

    def median(self, name, key="real_time"):
        return statistics.median(run[key] for run in self.runs[name])

    def throughput(self, callers):
        return self.median(f"request/{callers}", "items_per_second") / self.median("request/1", "items_per_second")

    def queue(self, callers):
        # What the last of them would wait if each of those before took as long as the slowest request of one caller.
        return self.median(f"request/{callers}", "p99_us") / (callers * self.median("request/1", "p99_us"))

    def ratio(self, upper, lower, times=1):
        return self.median(upper) / (times * self.median(lower))


free, pinned = Rounds(sys.argv[1]), Rounds(sys.argv[2])

TIMES = ("bare_exchange", "exchange/1", "exchange/16", "table/1", "table/12", "table/16", "shutter_gain_mode_1",
         "unix_socket", "d_bus", "parse", "bare_strtol")
print(f"{len(free.runs['exchange/1'])} rounds, medians\n\n{'':34}{'free':>11}{'one CPU':>13}")
for name in TIMES:
    print(f"{name:34}{free.median(name) / 1000:8.2f} us{pinned.median(name) / 1000:10.2f} us")
for callers in (1, 10, 64, 256):
    name = f"request/{callers}"
    for key, unit in (("median_us", "us"), ("p99_us", "us"), ("items_per_second", "/s")):
        label = f"{name} {key.split('_')[0] if unit == 'us' else 'rate'}"
        print(f"{label:34}{free.median(name, key):8.0f} {unit}{pinned.median(name, key):10.0f} {unit}")

# name, how it is got, upper limit
RATIOS = (
    ("exchange / bare primitives", lambda r: r.ratio("exchange/1", "bare_exchange"), 1.05),
    ("16 entries / 1 entry", lambda r: r.ratio("exchange/16", "exchange/1"), 1.10),
    ("request / its 2 exchanges", lambda r: r.median("request/1", "median_us") * 1000 / (2 * r.median("exchange/1")), 1.15),
    ("rate of 64 callers / of 1", lambda r: r.throughput(64), None),
    ("rate of 256 callers / of 1", lambda r: r.throughput(256), None),
    ("p99 of 64 / 64 x p99 of 1", lambda r: r.queue(64), 1.50),
    ("p99 of 256 / 256 x p99 of 1", lambda r: r.queue(256), 1.50),
    ("parse / strtol loop", lambda r: r.ratio("parse", "bare_strtol"), 1.50),
    ("exchange / Unix socket", lambda r: r.ratio("exchange/1", "unix_socket"), None),
    ("exchange / D-Bus", lambda r: r.ratio("exchange/1", "d_bus"), None),
)
missed = 0
print(f"\n{'':34}{'free':>11}{'one CPU':>13}{'goal':>12}")
for name, of, goal in RATIOS:
    line = f"{name:34}{of(free):11.3f}{of(pinned):13.3f}"
    if goal is not None:
        met = of(free) <= goal
        missed += not met
        line += f"     <={goal:5.2f}{'' if met else '  missed'}"
    print(line)

wakeups = sum(run["wakeups"] for run in runs(sys.argv[3]))
missed += wakeups > 0
print(f"\nwake-ups in 10 idle seconds: {wakeups:.0f}{' (goal: 0)  missed' if wakeups > 0 else ''}")
sys.exit(1 if missed else 0)
