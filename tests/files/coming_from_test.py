"""docs/coming-from.md: its commands, run as they stand there, on made-up files of those names."""

import json
import os
import re
import subprocess
import sys
from pathlib import Path

import foreign
import h5py
import numpy as np
import tifffile
from foreign import Case

DOC = Path(__file__).resolve().parents[2] / "docs" / "coming-from.md"
SIDE = 64


def blocks(section):
    """The code of a section: (language, text)."""
    text = DOC.read_text()
    parts = re.split(r"^## ", text, flags=re.M)
    part = parts[0] if section is None else next(p for p in parts if p.startswith(section))
    return re.findall(r"^```(\w+)\n(.*?)^```", part, flags=re.M | re.S)


class ComingFrom(Case):
    def setUp(self):
        super().setUp()
        truth = np.full((SIDE, SIDE), 2)
        truth[8:28, 8:56] = 1
        truth[36:56, 10:34] = 0
        self.truth = truth
        picture = (1000 * truth + self.random.normal(0, 120, truth.shape) + 1500).astype(np.uint16)
        marks = np.zeros_like(truth)
        for k, (y, x) in enumerate(((44, 20), (18, 30), (4, 30))):
            marks[y:y + 3, x:x + 12] = k + 1
        tifffile.imwrite(self.folder / "picture.tif", picture, imagej=True, resolution=(2, 2),
                         metadata={"unit": "um"})
        tifffile.imwrite(self.folder / "labels_in.tif", marks.astype(np.uint16))
        np.save(self.folder / "picture.npy", picture)
        np.save(self.folder / "marks.npy", marks)
        p = np.moveaxis(np.stack([np.where(truth == k, 0.8, 0.1) for k in range(3)]), 0, 2)
        with h5py.File(self.folder / "picture_Probabilities.h5", "w") as file:
            data = file.create_dataset("exported_data", data=p.astype(np.float32))
            data.attrs["axistags"] = json.dumps({"axes": [{"key": key} for key in "yxc"]})

    def run_blocks(self, section):
        environment = os.environ | {"RATSEG_DEVICE": "host", "OMP_NUM_THREADS": "1",
                                    "PATH": f"{foreign.BIN}:{os.environ['PATH']}"}
        found = blocks(section)
        self.assertTrue(found, section)
        for language, text in found:
            command = {"sh": ["bash", "-e", "-c"], "python": [sys.executable, "-c"]}[language]
            run = subprocess.run([*command, text], cwd=self.folder, env=environment, timeout=300,
                                 capture_output=True, text=True)
            self.assertEqual(run.returncode, 0, f"{text}\n{run.stdout}{run.stderr}")
            self.assertNotIn("warning", run.stderr)

    def expect_truth(self, labels):
        self.assertGreater((labels == self.truth).mean(), 0.97)

    def test_ilastik(self):
        self.run_blocks(None)
        self.run_blocks("ilastik")
        self.expect_truth(tifffile.imread(self.folder / "labels.tif"))

    def test_scikit_learn(self):
        try:
            import sklearn
        except ImportError:
            self.skipTest("scikit-learn is missing (python3-sklearn)")
        self.run_blocks(None)
        self.run_blocks("scikit-learn")
        self.expect_truth(np.load(self.folder / "labels.npy"))

    def test_imagej(self):
        self.run_blocks(None)
        self.run_blocks("ImageJ")
        with tifffile.TiffFile(self.folder / "labels.tif") as file:
            self.expect_truth(file.asarray())
            self.assertEqual(file.imagej_metadata["unit"], "um")


foreign.main()
