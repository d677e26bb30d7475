"""One call after the other fails: once, or from there on."""

import errno
import tempfile
from pathlib import Path

from judge import ended_in_library, judge

ERRNOS = {
    "new": (errno.ENOMEM,),
    "memory": (errno.ENOMEM,),
    "open": (errno.EACCES, errno.ENOSPC, errno.EMFILE, errno.EIO),
    "write": (errno.ENOSPC, errno.EIO, errno.EDQUOT),
    "rename": (errno.EACCES, errno.ENOSPC, errno.EIO, errno.EBUSY),
    "sync": (errno.EIO, errno.ENOSPC, errno.EDQUOT),
    "close": (errno.EIO, errno.ENOSPC, errno.EDQUOT),
    "unlink": (errno.EACCES, errno.EIO),
    "truncate": (errno.EIO, errno.ENOSPC),
    "lock": (errno.ENOLCK, errno.EWOULDBLOCK),
}
CALLS = tuple(ERRNOS)
MODES = ("once", "on")


def count(bench, program, call):
    """How often a run that nothing disturbs makes the call."""
    with (tempfile.NamedTemporaryFile(dir=bench.folder) as file,
          bench.fresh(program, f"count-{program.name}-{call}") as folder):
        bench.run(program, folder, {"call": call, "at": 0, "count": file.name})
        text = Path(file.name).read_text()
    if not text:
        raise SystemExit(f"ERROR: the calls of {program.name} are not counted")
    return int(text)


def points(total, stride):
    """Which calls fail: every stride-th and the last."""
    chosen = list(range(1, total + 1, stride))
    return chosen + [total] if total and chosen[-1] != total else chosen


def one(bench, program, call, mode, at, number=None, limit=None):
    """The faults of a run in which the at-th call fails, and the run."""
    number = number or ERRNOS[call][at % len(ERRNOS[call])]
    torture = {"call": call, "at": at, "mode": mode, "errno": number}
    with bench.fresh(program, f"{program.name}-{call}-{mode}-{at}") as folder:
        run = bench.run(program, folder, torture, **({"limit": limit} if limit else {}))
        return judge(program, folder, bench.versions(program), run), run


def tasks(bench, options):
    """(program, call, mode, k) of all runs."""
    for program in options.programs:
        for call in options.calls:
            total = count(bench, program, call)
            stride = options.stride_of(program, call, total)
            for mode in options.modes:
                for at in [options.at] if options.at else points(total, stride):
                    yield program, call, mode, at


def stage(bench, report, options):
    def attempt(task):
        program, call, mode, at = task
        faults, run = one(bench, program, call, mode, at, options.errno)
        # What Qt, OpenMP and those below them do without memory is theirs, as long as it is said.
        if call == "memory" and faults and ended_in_library(program, run, faults):
            report.note((program.name, call, mode), "ended in a library")
            faults = []
        report.add((program.name, call, mode), faults,
                   f"calls --program {program.name} --call {call} --mode {mode} --at {at}")
        if options.at:
            report.show(run)

    report.each(attempt, tasks(bench, options))
