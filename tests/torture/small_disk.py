"""Mounts, where they are allowed."""

import contextlib
import subprocess


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
