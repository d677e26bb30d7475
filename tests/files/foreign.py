"""What the tests of foreign files share: a folder, runs of ratseg-dataterm in it, its results.

The files are written by other programs (numpy, h5py, tifffile, libtiff's tools), which are needed here
and come from the packages in scripts/lib.sh. Where one is missing, the test says SKIPPED.
"""

import gzip
import os
import struct
import subprocess
import sys
import tempfile
import unittest
from pathlib import Path

try:
    import h5py
    import numpy as np
    import tifffile
    from PIL import Image
except ImportError as missing:
    print(f"SKIPPED: {missing}")
    sys.exit(0)

BIN = Path(sys.argv.pop()).resolve()

W, H = 23, 17  # no side divides another, and neither is a number of labels


def data_term(path, shape):
    """The planes of a packed array."""
    with gzip.open(path) as file:
        raw = file.read()
    assert struct.unpack("<Q", raw[:8])[0] == np.prod(shape), "number of elements"
    return np.frombuffer(raw[8:], "<f4").reshape(shape)


class Case(unittest.TestCase):
    maxDiff = None

    def setUp(self):
        self.temporary = tempfile.TemporaryDirectory()
        self.addCleanup(self.temporary.cleanup)
        self.folder = Path(self.temporary.name)
        self.random = np.random.default_rng(7)
        grey = (np.add.outer(np.arange(H) * 3, np.arange(W) * 7) % 256).astype(np.uint8)
        self.grey = grey
        self.save_png("image.png", grey)
        marks = np.zeros((H, W), np.uint8)
        marks[1:3, 2:9] = 1
        marks[8:10, 4:12] = 2
        marks[13:15, 1:9] = 3
        self.marks = marks
        self.save_png("scribbles.png", marks)

    def save_png(self, name, array, **more):
        Image.fromarray(array).save(self.folder / name, **more)

    def run_program(self, *words, program="ratseg-dataterm"):
        # Files are tried with costs by colour: what a forest learns is said on standard error too.
        if "-scribbles" in words and "-model" not in words:
            words += ("-model", "colour")
        environment = os.environ | {"RATSEG_DEVICE": "host", "OMP_NUM_THREADS": "1"}
        run = subprocess.run([str(BIN / program), *map(str, words)], cwd=self.folder, text=True,
                             capture_output=True, env=environment, timeout=120,
                             stdin=subprocess.DEVNULL)
        self.assertIn(run.returncode, (0, 1), run)
        return run

    def refused(self, line, *words):
        """Expects one ERROR line, and no data term."""
        run = self.run_program("-out", "refused.gz", *words)
        errors = [text for text in run.stderr.splitlines() if text.startswith("ERROR")]
        self.assertEqual(errors, ["ERROR: " + line])
        self.assertEqual(run.returncode, 1)
        self.assertFalse((self.folder / "refused.gz").exists())

    def seen(self, *words, image="image.tif", expect=""):
        """The 8-bit picture that the data term of an image is made from, and what is said."""
        run = self.run_program("-image", image, "-scribbles", "scribbles.png", "-out", "seen.gz",
                               "-picture-out", "seen.png", *words)
        self.assertEqual(run.returncode, 0, run.stderr)
        self.assertIn(expect, run.stderr)
        return np.asarray(Image.open(self.folder / "seen.png")), run.stderr

    def stretched(self, array, low=None, high=None):
        """What numpy makes of values: those of the ranks 0.1 % from both ends become 0 and 255."""
        values = np.sort(array[np.isfinite(array)].astype(np.float64).ravel())
        outside = int(0.001 * values.size)
        low = values[outside] if low is None else low
        high = values[values.size - 1 - outside] if high is None else high
        part = np.clip((array.astype(np.float64) - low) / (high - low), 0, 1)
        return np.floor(255 * part + 0.5).astype(np.uint8)


def main():
    unittest.main(verbosity=1)
