"""Mounts, where they are allowed."""

import contextlib
import subprocess
import time


def mount(arguments):
    return subprocess.run(["mount", *arguments], capture_output=True).returncode == 0


def unmount(folder):
    """Other threads start programs: until their exec, children hold the files of this process open,
    so that a disk may be busy for a moment."""
    end = time.monotonic() + 10
    while subprocess.run(["umount", str(folder)], capture_output=True).returncode != 0:
        if time.monotonic() > end:
            subprocess.run(["umount", str(folder)], check=True)
            return
        time.sleep(0.01)


@contextlib.contextmanager
def small_disk(folder):
    """A disk in memory; None where mounting is not allowed."""
    folder.mkdir(parents=True, exist_ok=True)
    mounted = mount(["-t", "tmpfs", "-o", "size=8m,nr_inodes=100", "torture", str(folder)])
    try:
        yield folder if mounted else None
    finally:
        if mounted:
            unmount(folder)
