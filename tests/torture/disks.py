"""Full disks: little room for blocks or for files (inodes), and the old results already there."""

import contextlib
import os
import subprocess

from judge import judge

PAGE = 4096
MOST = 16  # more blocks or files than any program here needs at a time


def mount(arguments):
    return subprocess.run(["mount", *arguments], capture_output=True).returncode == 0


@contextlib.contextmanager
def small_disk(folder):
    """A disk in memory; None where mounting is not allowed."""
    folder.mkdir(parents=True, exist_ok=True)
    mounted = mount(["-t", "tmpfs", "-o", "size=8m,nr_inodes=100", "torture", str(folder)])
    try:
        yield folder if mounted else None
    finally:
        if mounted:
            subprocess.run(["umount", str(folder)], check=True)


def leave_room(folder, kind, room):
    """Takes the disk down to what it holds and room for so many blocks or files."""
    disk = os.statvfs(folder)
    if kind == "blocks":
        used = (disk.f_blocks - disk.f_bfree) * disk.f_frsize // PAGE
        limit = f"size={(used + room) * PAGE}"
    else:
        limit = f"nr_inodes={disk.f_files - disk.f_ffree + room}"
    # tmpfs takes 0 as no limit at all, which the used blocks and inodes keep away.
    if not mount(["-o", f"remount,{limit}", str(folder)]):
        raise SystemExit(f"ERROR: cannot take {folder} down to {limit}")


def one(bench, program, kind, room):
    with small_disk(bench.folder / "runs" / f"{program.name}-{kind}-{room}") as disk:
        if disk is None:
            return None
        bench.fill(program, disk)
        leave_room(disk, kind, room)
        run = bench.run(program, disk)
        return judge(program, disk, bench.versions(program), run)


def stage(bench, report, options):
    def attempt(task):
        program, kind, room = task
        faults = one(bench, program, kind, room)
        if faults is None:
            report.skip("disks", "mounting is not allowed here")
        else:
            report.add((program.name, kind, "full"), faults,
                       f"disks --program {program.name} --call {kind} --at {room + 1}")

    def all_tasks():
        for program in options.programs:
            for kind in ("blocks", "inodes"):
                if options.call_given and kind not in options.calls:
                    continue
                for room in [options.at - 1] if options.at else range(MOST):
                    if program.results:
                        yield program, kind, room

    report.each(attempt, all_tasks())
