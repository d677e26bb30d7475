"""Odd places for results: links, devices, mount points, folders of others."""

import os
import stat
import subprocess
from pathlib import Path

from judge import ending, judge
from small_disk import mount

NOBODY, OTHER = 65534, 1


def as_nobody():
    return ("setpriv", f"--reuid={NOBODY}", f"--regid={NOBODY}", "--clear-groups")


def give(folder, owner, mode, files_owner, files_mode):
    os.chown(folder, owner, owner)
    os.chmod(folder, mode)
    for path in Path(folder).iterdir():
        os.chown(path, files_owner, files_owner)
        os.chmod(path, files_mode)


# Each: what it does to a folder with old results. It returns what else is in the folder.


def links(folder, program):
    for name in program.results:
        os.rename(folder / name, folder / f"{name}.far")
        os.symlink(f"{name}.far", folder / name)
    return [f"{name}.far" for name in program.results]


def loose_links(folder, program):
    """Links to where no file is yet."""
    for name in program.results:
        os.remove(folder / name)
        os.symlink(f"{name}.far", folder / name)
    return [f"{name}.far" for name in program.results]


def full_device(folder, program):
    """Links to a device that is always full; to one of its own where a fault could replace it."""
    device = "/dev/full"
    if os.geteuid() == 0:
        device = str(folder / "full")
        os.mknod(device, 0o666 | stat.S_IFCHR, os.stat("/dev/full").st_rdev)
    for name in program.results:
        os.remove(folder / name)
        os.symlink(device, folder / name)
    return ["full"]


def read_only_files(folder, program):
    give(folder, NOBODY, 0o755, NOBODY, 0o444)
    return []


def read_only_folder(folder, program):
    give(folder, 0, 0o755, NOBODY, 0o644)
    return []


def folder_of_no_use(folder, program):
    give(folder, 0, 0o755, 0, 0o644)
    return []


def sticky_folder(folder, program):
    give(folder, 0, 0o1777, OTHER, 0o666)
    return []


def mount_points(folder, program):
    for name in program.results:
        (folder / f"{name}.far").write_bytes((folder / name).read_bytes())
        if not mount(["--bind", str(folder / f"{name}.far"), str(folder / name)]):
            return None
    return [f"{name}.far" for name in program.results]


def closed_output(folder, program):
    return []


PLACES = {
    "links": (links, ()),
    "loose links": (loose_links, ()),
    "full device": (full_device, ()),
    "read-only files": (read_only_files, as_nobody()),
    "read-only folder": (read_only_folder, as_nobody()),
    "folder of others": (folder_of_no_use, as_nobody()),
    "sticky folder": (sticky_folder, as_nobody()),
    "mount points": (mount_points, ()),
    "full output": (closed_output, ()),
    "closed output": (closed_output, ()),
}


def device_faults(program, folder, run):
    """Of results that are links to a full device: none is said to be saved, the device stays."""
    faults = ending(program, run)
    faults += [("Saved, but is not", name) for name in program.results
               if f"Saved {name}" in run.out]
    if "ERROR" not in run.out + run.err:
        faults.append(("no ERROR line", "nothing fits into a full device"))
    faults += [("device replaced", name) for name in program.results
               if not stat.S_ISCHR(os.stat(folder / name).st_mode)]
    return faults


def run_with_output(bench, program, folder, place, prefix):
    if place == "full output":
        with open("/dev/full", "wb") as full:
            return bench.run(program, folder, prefix=prefix, stdout=full)
    if place == "closed output":
        reader, writer = os.pipe()
        os.close(reader)
        try:
            return bench.run(program, folder, prefix=prefix, stdout=writer)
        finally:
            os.close(writer)
    return bench.run(program, folder, prefix=prefix)


def judge_place(bench, program, folder, place, run, others):
    versions = bench.versions(program)
    if place == "full device":
        return device_faults(program, folder, run)
    if place == "loose links":
        versions = {name: (new, new) for name, (_, new) in versions.items()}
    faults = judge(program, folder, versions, run, others)
    if place.endswith("output"):  # What it says is lost, and SIGPIPE may end it.
        lost = ("no ERROR line", "status 0, result not saved, no line", "died of SIGPIPE")
        faults = [f for f in faults if f[0] not in lost]
    if place.endswith("links"):
        faults += [("link replaced", name) for name in program.results
                   if not (folder / name).is_symlink()]
    return faults


def one(bench, program, place):
    set_up, prefix = PLACES[place]
    if os.geteuid() != 0 and (prefix or place == "mount points"):
        return "needs root"
    with bench.fresh(program, f"{program.name}-{place.replace(' ', '-')}") as folder:
        try:
            others = set_up(folder, program)
            if others is None:
                return "mounting is not allowed here"
            run = run_with_output(bench, program, folder, place, prefix)
            return judge_place(bench, program, folder, place, run, others)
        finally:
            if place == "mount points":
                for name in program.results:
                    subprocess.run(["umount", str(folder / name)], capture_output=True)


def stage(bench, report, options):
    def attempt(task):
        program, place = task
        faults = one(bench, program, place)
        if isinstance(faults, str):
            report.skip(place, faults)
        else:
            report.add((program.name, place, "-"), faults,
                       f"places --program {program.name} --call '{place}'")

    report.each(attempt, [(program, place) for program in options.programs
                          if program.results and program.overwrites
                          for place in PLACES
                          if not options.call_given or place in options.calls])
