#!/usr/bin/env python3
"""Shows that the judge sees each kind of fault, on a program that does one wrong where it is told.

Usage: sees_faults.py --bin FOLDER --tools FOLDER
"""

import argparse
import signal
import sys
import tempfile

import calls
import kills
from programs import Bench, Program

# What the program does wrong, and the kind of fault that must be seen; "careful" does nothing wrong.
FAULTS = {
    "careful": None,
    "torn": "result torn",
    "lost": "result lost",
    "leftover": "leftover",
    "false": "Saved, but is not",
    "silent": "status 0, result not saved, no line",
    "mute": "no ERROR line",
    "status": "status 7",
    "crash": "died of SIGSEGV",
    "hang": "hang",
    "foreign": "foreign line",
}


def kinds_seen(bench, fault):
    program = Program("torture_careless", (fault, "{seed}"), ("result.txt",))
    writes = calls.count(bench, program, "write")
    if writes != 2:
        raise SystemExit(f"ERROR: {fault}: counted {writes} writes, and there are 2")
    kinds = set()
    for mode in calls.MODES:
        for at in range(1, writes + 1):
            faults, _ = calls.one(bench, program, "write", mode, at,
                                  limit=2 if fault == "hang" else None)
            kinds |= {kind for kind, _ in faults}
    return kinds


def kinds_of_kill(bench):
    """Of a program that knows nothing of signals, ended while it writes beside its result."""
    program = Program("torture_careless", ("careful", "{seed}"), ("result.txt",))
    return {kind for kind, _ in kills.at_a_call(bench, program, "write", 1, signal.SIGTERM)}


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--bin", required=True)
    parser.add_argument("--tools", required=True)
    options = parser.parse_args()
    runs = [(fault, {expected} if expected else set(), lambda bench, fault=fault:
             kinds_seen(bench, fault)) for fault, expected in FAULTS.items()]
    runs.append(("killed", {"leftover", "no line of the signal"}, kinds_of_kill))
    wrong = 0
    for fault, expected, kinds in runs:
        with tempfile.TemporaryDirectory(prefix="ratseg-torture-") as folder:
            seen = kinds(Bench(folder, options.bin, options.tools))
        ok = seen == expected
        wrong += not ok
        print(f"{'ok' if ok else 'WRONG'}: {fault}: expected {sorted(expected)}, saw {sorted(seen)}")
    sys.exit(1 if wrong else 0)


if __name__ == "__main__":
    main()
