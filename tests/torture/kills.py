"""Signals: before each call that changes files, and at random times."""

import random
import signal
import subprocess
import time

import calls
from judge import judge_killed, leftovers
from programs import finish

SIGNALS = (signal.SIGKILL, signal.SIGTERM, signal.SIGINT)
POINTS = ("open", "write", "rename", "sync", "close", "unlink", "truncate", "lock")


def after_kill(bench, program, folder):
    """What a killed run left is removed or named by the next one."""
    left = leftovers(program, folder)
    if not left:
        return []
    run = bench.run(program, folder)
    still = leftovers(program, folder)
    return [("leftover stays unnamed", name) for name in still
            if name not in run.out and name not in run.err]


def judge(bench, program, folder, run, number, may_be_mute=False):
    faults = judge_killed(program, folder, bench.versions(program), run, number, may_be_mute)
    if number == signal.SIGKILL:
        faults += after_kill(bench, program, folder)
    return faults


def at_a_call(bench, program, call, at, number):
    torture = {"call": call, "at": at, "mode": "signal", "signal": int(number)}
    with bench.fresh(program, f"{program.name}-{call}-{number}-{at}") as folder:
        run = bench.run(program, folder, torture)
        return judge(bench, program, folder, run, number)


def at_a_time(bench, program, seed, seconds):
    """Seconds is how long a run takes; the seed chooses the signal and when it comes."""
    chance = random.Random(seed)
    number = SIGNALS[seed % len(SIGNALS)]
    with bench.fresh(program, f"{program.name}-time-{seed}") as folder:
        process = bench.start(program, folder)
        try:
            process.wait(chance.uniform(0, 1.1 * seconds))
        except subprocess.TimeoutExpired:
            process.send_signal(number)
        return judge(bench, program, folder, finish(process), number,
                     may_be_mute=True), number


def duration(bench, program):
    with bench.fresh(program, f"{program.name}-duration") as folder:
        start = time.monotonic()
        bench.run(program, folder)
        return time.monotonic() - start


def stage(bench, report, options):
    def attempt(task):
        program, call, at, how = task
        if call == "time":
            faults, number = at_a_time(bench, program, at, seconds=how)
        else:
            faults, number = at_a_call(bench, program, call, at, how), how
        report.add((program.name, call, number.name), faults,
                   f"kills --program {program.name} --call {call} --at {at}")

    def all_tasks():
        for program in options.programs:
            if not program.results:
                continue
            for call in [c for c in options.calls if c in POINTS]:
                total = calls.count(bench, program, call)
                stride = options.stride_of(program, call, total)
                for at in [options.at] if options.at else calls.points(total, stride):
                    for number in SIGNALS:
                        yield program, call, at, number
            if options.at and "time" not in options.calls:
                continue
            seconds = duration(bench, program)
            for seed in [options.at] if options.at else range(options.seed,
                                                              options.seed + options.kills):
                yield program, "time", seed, seconds

    report.each(attempt, all_tasks())
