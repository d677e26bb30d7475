#!/usr/bin/env python3
"""Runs the programs where calls fail, signals come and disks are full, and judges what they leave.

Usage: torture.py --bin FOLDER --tools FOLDER [options] [STAGE...]
"""

import argparse
import collections
import concurrent.futures
import os
import shlex
import signal
import sys
import tempfile
import threading

import calls
import disks
import kills
import pairs
import places
from programs import PROGRAMS, Bench

STAGES = {"calls": calls.stage, "kills": kills.stage, "disks": disks.stage,
          "places": places.stage, "pairs": pairs.stage}
SHOWN = 3  # examples of each kind of fault


class Report:
    def __init__(self):
        self.lock = threading.Lock()
        self.runs = collections.Counter()
        self.faults = collections.defaultdict(list)
        self.notes = collections.Counter()
        self.skipped = {}

    def each(self, attempt, tasks):
        """Attempts all tasks, as many at a time as there are cores."""
        with concurrent.futures.ThreadPoolExecutor(os.cpu_count()) as pool:
            for done in concurrent.futures.as_completed([pool.submit(attempt, t) for t in tasks]):
                done.result()

    def add(self, where, faults, repeat):
        with self.lock:
            self.runs[where] += 1
            for kind, seen in faults:
                self.faults[where, kind].append((seen, repeat))

    def note(self, where, what):
        """Something of a run that is no fault."""
        with self.lock:
            self.notes[where, what] += 1

    def skip(self, what, why):
        with self.lock:
            if what not in self.skipped:
                print(f"SKIPPED: {what}: {why}")
            self.skipped[what] = why

    def show(self, run):
        with self.lock:
            print(f"status {run.status}\n--- standard output\n{run.out}--- standard error\n{run.err}")

    def print_table(self):
        print(f"{'program':<18} {'call':<17} {'mode':<8} {'runs':>6}  faults")
        for where, runs in sorted(self.runs.items()):
            kinds = {kind: len(found) for (place, kind), found in self.faults.items()
                     if place == where}
            text = ", ".join(f"{count} {kind}" for kind, count in sorted(kinds.items())) or "none"
            text += "".join(f" ({count} {what})" for (place, what), count
                            in sorted(self.notes.items()) if place == where)
            print(f"{where[0]:<18} {where[1]:<17} {where[2]:<8} {runs:>6}  {text}")

    def print_faults(self, all_of_them):
        for (where, kind), found in sorted(self.faults.items()):
            print(f"\n{' '.join(where)}: {kind} ({len(found)})")
            for seen, repeat in found if all_of_them else found[:SHOWN]:
                print(f"    {seen}\n        scripts/torture.sh {repeat}")


def parse(words):
    parser = argparse.ArgumentParser(prog="scripts/torture.sh", description=__doc__.split("\n")[0])
    parser.add_argument("stages", nargs="*", metavar="STAGE", help=f"of {', '.join(STAGES)}; all")
    parser.add_argument("--bin", required=True, help=argparse.SUPPRESS)
    parser.add_argument("--tools", required=True, help=argparse.SUPPRESS)
    parser.add_argument("--program", action="append", help="these programs only")
    parser.add_argument("--call", action="append", help="these calls, disks or places only")
    parser.add_argument("--mode", choices=calls.MODES, help="once, or from there on")
    parser.add_argument("--at", type=int, help="the k-th call only; shows what the run said")
    parser.add_argument("--errno", type=int, help="the error that the call gets")
    parser.add_argument("--stride", type=int, default=1, help="every STRIDE-th call only")
    parser.add_argument("--kills", type=int, default=100, help="at random times, per program")
    parser.add_argument("--pairs", type=int, default=60, help="of runs at the same time")
    parser.add_argument("--seed", type=int, default=1, help="of the random times")
    parser.add_argument("--short", action="store_true", help="few runs of each kind")
    parser.add_argument("--all", action="store_true", help="print every fault")
    options = parser.parse_args(words)
    for stage in options.stages:
        if stage not in STAGES:
            parser.error(f"no stage {stage}; there are: {', '.join(STAGES)}")
    return complete(parser, options)


def complete(parser, options):
    options.stages = options.stages or list(STAGES)
    names = [p.name for p in PROGRAMS]
    for name in options.program or []:
        if name not in names:
            parser.error(f"no program {name}; there are: {', '.join(names)}")
    options.programs = [p for p in PROGRAMS if not options.program or p.name in options.program]
    options.modes = [options.mode] if options.mode else list(calls.MODES)
    options.call_given = bool(options.call)
    given = options.call or list(calls.CALLS)
    options.calls = [c for c in given if options.stages != ["calls"] or c in calls.CALLS]
    if not options.calls:
        parser.error(f"no call {', '.join(given)}; there are: {', '.join(calls.CALLS)}")
    if options.short:
        options.kills, options.pairs = min(options.kills, 6), min(options.pairs, 8)

    def stride_of(program, call, total):
        """The short form makes about ten runs of each kind; three where a run takes long."""
        if not options.short:
            return options.stride
        wanted = 3 if program.slow else 10
        return max(options.stride, -(-total // wanted))

    options.stride_of = stride_of
    return options


def main():
    options = parse(sys.argv[1:])
    # A shell that starts this in the background leaves SIGINT ignored, also by the programs.
    signal.signal(signal.SIGINT, signal.default_int_handler)
    report = Report()
    with tempfile.TemporaryDirectory(prefix="ratseg-torture-") as folder:
        os.chmod(folder, 0o755)  # Some runs are another user's.
        bench = Bench(folder, options.bin, options.tools)
        for program in options.programs:
            bench.made(program)
        for stage in options.stages:
            STAGES[stage](bench, report, options)
    report.print_table()
    report.print_faults(options.all)
    if not report.runs and not report.skipped:
        sys.exit("ERROR: nothing was run")
    count = sum(len(found) for found in report.faults.values())
    print(f"\n{sum(report.runs.values())} runs, {count} faults")
    sys.exit(1 if count else 0)


if __name__ == "__main__":
    main()
