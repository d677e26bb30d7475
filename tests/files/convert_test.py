"""Labelings for other programs: what -convert writes is read by Pillow, tifffile and numpy."""

import gzip
import shutil
import struct
import subprocess

import foreign
import numpy as np
import tifffile
from foreign import H, W, Case
from PIL import Image


class Convert(Case):
    def pack(self, labels, name="labeling.gz"):
        with gzip.open(self.folder / name, "wb") as file:
            file.write(struct.pack("<Q", labels.size) + labels.astype("<i4").tobytes())

    def labels(self, n=4):
        return self.random.integers(0, n, (H, W))

    def convert(self, out, image="image.png", expect=0):
        run = self.run_program("-convert", "labeling.gz", "-image", image, "-out", out)
        self.assertEqual(run.returncode, expect, run.stderr)
        return run

    def legend(self, out):
        return dict(line.strip().split(": colour ") for line in out.splitlines() if "colour" in line)

    def test_indexed_png_and_tiff_and_numpy(self):
        for n in (2, 4, 256):
            labels = self.labels(n)
            labels[0, 0] = n - 1
            self.pack(labels)
            run = self.convert("labels.png")
            counts = np.bincount(labels.ravel())
            png = Image.open(self.folder / "labels.png")
            self.assertEqual(png.mode, "P")
            np.testing.assert_array_equal(np.asarray(png), labels)
            palette = np.array(png.getpalette()).reshape(-1, 3)
            lines = [f"Saved labels.png  (8-bit indexed PNG of {W} x {H} pixels)"]
            lines += [f"  label {k}: colour {bytes(palette[k].astype(np.uint8)).hex()}, {counts[k]} "
                      "pixels" for k in range(n)]
            self.assertEqual(run.stdout.splitlines(), lines)
            self.assertEqual(run.stderr, "")
            self.assertEqual(len({tuple(c) for c in palette[:n]}), n, "colours differ")
            run = self.convert("labels.tif")
            self.assertEqual(run.stdout.splitlines()[0],
                             f"Saved labels.tif  (8-bit indexed TIFF of {W} x {H} pixels)")
            self.assertEqual(run.stdout.splitlines()[1:], lines[1:])
            with tifffile.TiffFile(self.folder / "labels.tif") as file:
                np.testing.assert_array_equal(file.pages[0].asarray(), labels)
                np.testing.assert_array_equal(file.pages[0].colormap[:, :n].T // 257, palette[:n])
            self.convert("labels.npy")
            loaded = np.load(self.folder / "labels.npy")
            np.testing.assert_array_equal(loaded, labels)
            self.assertEqual(loaded.dtype, np.dtype("<i4"))

    def test_says_where_a_forbidden_label_was_taken(self):
        labels = np.zeros((H, W), np.int64)
        labels[:, 5:] = 2
        self.pack(labels)
        mask = np.zeros((H, W), np.uint8)
        mask[3:5, 4:7] = 1
        self.save_png("mask.png", mask)
        words = ("-convert", "labeling.gz", "-image", "image.png", "-out", "labels.png", "-forbid")
        for label, taken in ((0, 2), (2, 4)):
            run = self.run_program(*words, label, "mask.png")
            self.assertEqual(run.stderr, f"ratseg-dataterm: warning: label {label} was taken at "
                             f"{taken} of 6 pixels where mask.png forbids it\n")
        run = self.run_program(*words, 1, "mask.png")
        self.assertEqual(run.stderr, "ratseg-dataterm: label 1 was taken at 0 of 6 pixels where "
                         "mask.png forbids it\n")

    def test_colours_do_not_depend_on_the_number_of_labels(self):
        self.pack(np.arange(H * W).reshape(H, W) % 3)
        few = self.convert("labels.png").stdout
        self.pack(np.arange(H * W).reshape(H, W) % 200)
        many = self.convert("labels.png").stdout
        colours = lambda text: [line.split(", ")[0] for line in text.splitlines()[1:]]
        self.assertEqual(colours(few), colours(many)[:3])

    def test_many_labels_need_sixteen_bits(self):
        labels = np.arange(H * W).reshape(H, W) % 300
        labels[1, 1] = 65535
        self.pack(labels)
        run = self.convert("labels.tif")
        self.assertIn(f"Saved labels.tif  (16-bit TIFF of {W} x {H} pixels)\n  label 0: 2 pixels\n",
                      run.stdout)
        np.testing.assert_array_equal(tifffile.imread(self.folder / "labels.tif"), labels)
        self.assertEqual(self.convert("labels.png", expect=1).stderr,
                         "ERROR: -out: expected a .tif or .npy file, since a PNG holds at most 256 "
                         "labels, but found 65536 labels\n")
        self.convert("labels.npy")
        np.testing.assert_array_equal(np.load(self.folder / "labels.npy"), labels)

    def test_a_tiff_keeps_resolution_and_place(self):
        scale, tie = (0.5, 0.5, 0.0), (0.0, 0.0, 0.0, 440000.0, 5100000.0, 0.0)
        keys = (1, 1, 0, 3, 1024, 0, 1, 1, 1025, 0, 1, 1, 3072, 0, 1, 32632)
        tags = [(33550, "d", 3, scale, True), (33922, "d", 6, tie, True),
                (34735, "H", len(keys), keys, True), (34736, "d", 2, (1.5, 2.5), True),
                (34737, "s", 0, "WGS 84 / UTM zone 32N|", True)]
        self.pack(self.labels())
        for dtype, more in ((np.uint8, {}), (np.uint16, {}), (np.uint16, {"byteorder": ">"}),
                            (np.uint8, {"bigtiff": True})):
            tifffile.imwrite(self.folder / "image.tif", self.grey.astype(dtype), extratags=tags,
                             resolution=(300, 150), resolutionunit="CENTIMETER", **more)
            self.convert("labels.tif", "image.tif")
            with tifffile.TiffFile(self.folder / "labels.tif") as file:
                got = {tag.code: tag.value for tag in file.pages[0].tags}
            self.assertEqual(got[33550], scale)
            self.assertEqual(got[33922], tie)
            self.assertEqual(got[34735], keys)
            self.assertEqual(got[34736], (1.5, 2.5))
            self.assertEqual(got[34737], "WGS 84 / UTM zone 32N|")
            self.assertEqual(got[282][0] / got[282][1], 300)
            self.assertEqual(got[283][0] / got[283][1], 150)
            self.assertEqual(int(got[296]), 3)

    def test_a_tiff_keeps_the_units_of_imagej(self):
        tifffile.imwrite(self.folder / "image.tif", self.grey, imagej=True, resolution=(4.5, 4.5),
                         metadata={"unit": "um"})
        self.pack(self.labels())
        self.convert("labels.tif", "image.tif")
        with tifffile.TiffFile(self.folder / "labels.tif") as file:
            self.assertTrue(file.is_imagej)
            self.assertEqual(file.imagej_metadata["unit"], "um")
            x = file.pages[0].tags["XResolution"].value
            self.assertAlmostEqual(x[0] / x[1], 4.5, places=4)

    def test_libtiff_s_tools_read_it(self):
        if shutil.which("tiffcp") is None:
            self.skipTest("tiffcp is missing (libtiff-tools)")
        labels = self.labels()
        self.pack(labels)
        self.convert("labels.tif")
        run = subprocess.run(["tiffcp", "-c", "none", "labels.tif", "copy.tif"], cwd=self.folder,
                             capture_output=True, text=True)
        self.assertEqual((run.returncode, run.stderr), (0, ""))
        np.testing.assert_array_equal(tifffile.imread(self.folder / "copy.tif"), labels)

    def test_the_way_round(self):
        """From scribbles over ratseg to labels that are a truth for ratseg-dataterm."""
        self.run_program("-image", "image.png", "-scribbles", "scribbles.png", "-out", "d.gz")
        (self.folder / "proportions.txt").write_text("0.5 0.1\n0.5 0.1\n")
        run = self.run_program("-image", "image.png", "-dataterm", "d.gz", "-proportions",
                               "proportions.txt", "-lambda", 0.1, "-mu", 1, "-iterations", 9,
                               program="ratseg")
        self.assertEqual(run.returncode, 0, run)
        (self.folder / "out_result_labeling.gz").rename(self.folder / "labeling.gz")
        for out in ("labels.png", "labels.tif"):
            self.convert(out)
            self.run_program("-image", "image.png", "-scribbles", "scribbles.png", "-out", "d.gz",
                             "-truth", out, "-proportions", "again.txt")
            labels = np.asarray(Image.open(self.folder / out))
            counts = np.bincount(labels.ravel(), minlength=3)[:2]
            shares = np.loadtxt(self.folder / "again.txt")[:, 0]
            np.testing.assert_allclose(shares, counts / counts.sum(), rtol=1e-6)

    def test_files_that_are_no_labeling(self):
        expected = f"labeling.gz: expected a labeling of {W} x {H} pixels as ratseg writes it, but found "
        words = ("-convert", "labeling.gz", "-image", "image.png", "-out", "labels.png")

        def refused(line):
            run = self.run_program(*words)
            self.assertEqual((run.returncode, run.stderr), (1, f"ERROR: {expected}{line}\n"))
            self.assertFalse((self.folder / "labels.png").exists())

        refused("a file that does not open: No such file or directory")
        self.pack(self.labels()[1:])
        refused("a file of another size or kind")
        wrong = self.labels()
        wrong[2, 2] = -1
        self.pack(wrong)
        refused("a file with -1, which is no label (a data term?)")
        with gzip.open(self.folder / "labeling.gz", "wb") as file:
            file.write(struct.pack("<Q", H * W) + np.full(H * W, 2.5, "<f4").tobytes())
        refused("a file with 1075838976, which is no label (a data term?)")
        self.pack(self.labels())
        whole = (self.folder / "labeling.gz").read_bytes()
        (self.folder / "labeling.gz").write_bytes(whole[:-5])
        run = self.run_program(*words)
        self.assertRegex(run.stderr, f"^ERROR: {expected}a file that is damaged[^\n]*\n$")
        (self.folder / "labeling.gz").write_bytes(b"text")
        refused("a file of another size or kind")

    def test_names_and_options(self):
        self.pack(self.labels())
        for out in ("labels", "labels.jpg", ".", "png"):
            self.assertEqual(self.convert(out, expect=1).stderr,
                             "ERROR: -out: expected a name that ends in .png, .tif or .npy, but found "
                             f'"{out}"\n')
        self.assertEqual(self.convert("image.png", expect=1).stderr,
                         "ERROR: -out image.png: expected a file of its own, but found that it is "
                         "image.png as well\n")
        self.assertIn("ERROR: -out none/l.png: expected a file that can be written, but found No such",
                      self.convert("none/l.png", expect=1).stderr)
        run = self.run_program("-convert", "labeling.gz", "-image", "image.png", "-out", "l.png",
                               "-scribbles", "scribbles.png")
        self.assertEqual(run.stderr, "ERROR: -scribbles: expected that it is left out where -convert is "
                         "given, but found both\n")


foreign.main()
