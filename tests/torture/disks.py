"""Full disks: little room for blocks, for files (inodes) or for both, and old results there.

New results are larger than old ones. With room for no file and few blocks ("both"), or in a folder
where only the old files may be written ("in place"), what truncating an old file frees may be all
that is left for a new one.
"""

import os

import places
from judge import judge
from programs import Bench
from small_disk import mount, small_disk

PAGE = 4096
ROOMS = range(24)  # more blocks or files than most programs here need at a time
FEW_ROOMS = (0, 1, 2, 4, 8, 16)
SIZES = ((24, 16), (96, 64))


def leave_room(folder, kind, room):
    """Takes the disk down to what it holds and room for so many blocks or files, or both: no file
    and so many blocks."""
    disk = os.statvfs(folder)
    blocks = (disk.f_blocks - disk.f_bfree) * disk.f_frsize // PAGE + room
    files = disk.f_files - disk.f_ffree + (0 if kind == "both" else room)
    limits = {"blocks": f"size={blocks * PAGE}", "inodes": f"nr_inodes={files}",
              "both": f"size={blocks * PAGE},nr_inodes={files}"}
    limits["in place"] = limits["blocks"]
    if not mount(["-o", f"remount,{limits[kind]}", str(folder)]):
        raise SystemExit(f"ERROR: cannot take {folder} down to {limits[kind]}")


def one(bench, program, kind, room):
    with small_disk(bench.folder / "runs" / f"{program.name}-{kind}-{room}") as disk:
        if disk is None:
            return None
        bench.fill(program, disk)
        in_place = kind == "in place"
        if in_place:
            places.give(disk, 0, 0o755, places.NOBODY, 0o644)
        leave_room(disk, kind, room)
        run = bench.run(program, disk, prefix=places.as_nobody() if in_place else ())
        return judge(program, disk, bench.versions(program), run)


def stage(bench, report, options):
    bench = Bench(bench.folder / "disks", bench.bin, bench.tools, SIZES)
    for program in options.programs:
        bench.made(program)

    def attempt(task):
        program, kind, room = task
        faults = one(bench, program, kind, room)
        if faults is None:
            report.skip("disks", "mounting is not allowed here")
        else:
            report.add((program.name, kind, "full"), faults,
                       f"disks --program {program.name} --call '{kind}' --at {room + 1}")

    def all_tasks():
        for program in options.programs:
            for kind in ("blocks", "inodes", "both", "in place"):
                if options.call_given and kind not in options.calls:
                    continue
                rooms = FEW_ROOMS if options.short else ROOMS
                for room in [options.at - 1] if options.at else rooms:
                    if program.results:
                        yield program, kind, room

    report.each(attempt, all_tasks())
