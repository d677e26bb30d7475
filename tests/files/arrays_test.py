"""Costs and probabilities as numpy, h5py, tifffile and libtiff's tools write them."""

import json
import shutil
import subprocess

import foreign
import h5py
import numpy as np
import tifffile
from foreign import H, W, Case, data_term

N = 3
EXPECTED = ("expected values of each label and pixel (.npy, TIFF, or HDF5 of ilastik), but found a "
            "file that ")


class Arrays(Case):
    def setUp(self):
        super().setUp()
        raw = self.random.random((N, H, W)) ** 4 + 1e-6
        self.p = raw / raw.sum(axis=0)

    def write(self, array, name="p.npy", fortran=False, version=None):
        array = np.asfortranarray(array) if fortran else np.ascontiguousarray(array)
        with open(self.folder / name, "wb") as file:
            np.lib.format.write_array(file, array, version=version)

    def made(self, name="p.npy", option="-probabilities", *words, labels=N):
        run = self.run_program("-image", "image.png", option, name, "-out", "made.gz", *words)
        self.assertEqual(run.returncode, 0, run.stderr)
        return data_term(self.folder / "made.gz", (labels, H, W)), run

    def costs(self, p, thr=10):
        with np.errstate(divide="ignore"):
            return np.minimum(-np.log(p), thr)

    def check(self, p, *words, name="p.npy", tolerance=1e-5):
        got, _ = self.made(name, "-probabilities", *words)
        np.testing.assert_allclose(got, self.costs(p), rtol=0, atol=tolerance)

    def refused_costs(self, line, *words, name="p.npy", option="-probabilities"):
        self.refused(f"{name}: {EXPECTED}{line}", "-image", "image.png", option, name, *words)


class Masks(Arrays):
    def test_labels_may_be_forbidden_in_given_costs(self):
        self.write(self.p)
        mask = np.zeros((H, W), np.uint8)
        mask[2:4, 3:6] = 1
        self.save_png("mask.png", mask)
        got, run = self.made("p.npy", "-probabilities", "-forbid", 1, "mask.png")
        expected = self.costs(self.p)
        expected[1][mask > 0] = 1000
        np.testing.assert_allclose(got, expected, rtol=0, atol=1e-5)
        self.assertIn(f"label 1 is forbidden at 6 of {H * W} pixels by mask.png", run.stderr)

    def test_models_have_no_part_in_given_costs(self):
        self.write(self.p)
        self.refused("-model: expected that it is left out where -probabilities is given, but found "
                     "both", "-image", "image.png", "-probabilities", "p.npy", "-model", "forest")


class Npy(Arrays):
    def test_every_version_order_and_float(self):
        for version in ((1, 0), (2, 0), (3, 0)):
            for order in "<>":
                for size in (4, 8):
                    for fortran in (False, True):
                        with self.subTest(f"{version} {order}f{size} {fortran}"):
                            self.write(self.p.astype(f"{order}f{size}"), fortran=fortran,
                                       version=version)
                            self.check(self.p, tolerance=2e-4 if size == 4 else 1e-5)

    def test_halves(self):
        half = np.round(self.p * 1024) / 1024
        half[0] += 1 - half.sum(axis=0)
        for order in "<>":
            self.write(half.astype(f"{order}f2"))
            self.check(half.astype(np.float16).astype(float))

    def test_integers_are_parts_of_their_greatest_value(self):
        for kind, one in (("<u1", 255), ("<u2", 65535), (">u2", 65535)):
            whole = np.round(self.p * one)
            self.write(whole.astype(kind))
            self.check(whole / one)

    def test_every_order_of_axes(self):
        for axes in ("nyx", "nxy", "ynx", "yxn", "xny", "xyn"):
            array = np.transpose(self.p, ["nyx".index(a) for a in axes])
            for fortran in (False, True):
                self.write(array, fortran=fortran)
                self.check(self.p)
                self.check(self.p, "-axes", axes)
                self.check(self.p, "-axes", axes.replace("n", "c"))

    def test_axes_of_length_1(self):
        self.write(self.p[None, :, None])
        self.check(self.p)
        self.check(self.p, "-axes", "tnzyx")
        self.write(np.moveaxis(self.p, 0, 2)[None])
        self.check(self.p, "-axes", "zyxc")

    def test_several_readings_are_listed(self):
        self.save_png("image.png", self.grey[:, :H])
        square = self.p[:, :, :H]
        self.write(square)
        line = (f"has 3 x {H} x {H} elements, which can be read as nxy, nyx; -axes says which (n "
                "label, y, x)")
        self.refused_costs(line)
        run = self.run_program("-image", "image.png", "-probabilities", "p.npy", "-axes", "nyx",
                               "-out", "x.gz")
        self.assertEqual(run.returncode, 0, run)
        np.testing.assert_allclose(data_term(self.folder / "x.gz", (N, H, H)), self.costs(square),
                                   atol=1e-5)

    def test_sizes_that_do_not_fit(self):
        self.write(self.p[:, 1:])
        self.refused_costs(f"has 3 x {H - 1} x {W} elements, which are no values of two or more labels "
                           f"for {W} x {H} pixels in any order of axes")
        self.refused_costs(f"has 3 x {H - 1} x {W} elements, which as nyx do not fit the image: axis y "
                           f"has {H - 1}, expected {H}", "-axes", "nyx")
        self.refused_costs(f"has 3 axes (3 x {H - 1} x {W}), not the 4 of nzyx", "-axes", "nzyx")
        self.write(self.p[:1])
        self.refused_costs("has values of one label; at least two are needed", "-axes", "nyx")
        self.write(self.p[0])
        self.refused_costs(f"has {H} x {W} elements, which are no values of two or more labels for "
                           f"{W} x {H} pixels in any order of axes")
        self.write(np.float64(3))
        self.refused_costs(f"has 1 elements, which are no values of two or more labels "
                           f"for {W} x {H} pixels in any order of axes")

    def test_axes_that_are_none(self):
        for axes in ("yx", "nyxx", "abc", "ncyx", "nyxq", "NYX"):
            self.refused("-axes: expected letters like nyx or yxn: n (or c) label, y, x, and z and t "
                         f'for axes of length 1, each once, but found "{axes}"', "-image",
                         "image.png", "-probabilities", "p.npy", "-axes", axes)
        self.refused("-axes: expected that -costs or -probabilities is given, but found neither",
                     "-image", "image.png", "-scribbles", "scribbles.png", "-axes", "nyx")

    def test_values_that_are_no_probabilities(self):
        wrong = self.p.copy()
        wrong[0, 5, 3] += 0.4
        wrong[0, 7, 7] += 0.2
        self.write(np.minimum(wrong, 1))
        total = np.float32(np.minimum(wrong, 1)[:, 5, 3]).astype(float).sum()
        self.refused_costs(f"has probabilities that sum to {total:.6g} at column 3, row 5 (2 of "
                           f"{W * H} pixels), not to 1 within 0.001")
        costs = self.costs(self.p)
        self.write(costs)
        first = np.argwhere(costs > 1.001)[0]
        count = (costs > 1.001).sum()
        self.refused_costs(f"has {costs[tuple(first)]:.6g} for label {first[0]} at column {first[2]}, "
                           f"row {first[1]} ({count} of {N * W * H} values); probabilities are from 0 "
                           "to 1 (costs: -costs)")
        wrong = self.p.copy()
        wrong[1, 2, 4] = np.nan
        self.write(wrong)
        self.refused_costs(f"has NaN for label 1 at column 4, row 2 (1 of {N * W * H} values)")
        self.refused_costs(f"has NaN for label 1 at column 4, row 2 (1 of {N * W * H} values)",
                           option="-costs")
        wrong[1, 2, 4] = -0.25
        self.write(wrong)
        self.refused_costs(f"has -0.25 for label 1 at column 4, row 2 (1 of {N * W * H} values); "
                           "probabilities are from 0 to 1 (costs: -costs)")

    def test_costs_are_taken_as_they_are(self):
        costs = self.random.normal(size=(N, H, W)).astype(np.float32) * 30
        costs[0, 0, 0] = np.inf
        self.write(costs)
        got, run = self.made("p.npy", "-costs")
        np.testing.assert_array_equal(got, costs)
        self.assertEqual(run.stderr, "")
        self.assertIn(f"Saved made.gz  (data term of 3 labels, {W} x {H} pixels)\n", run.stdout)
        self.assertIn("  background label 2: given costs\n", run.stdout)
        got, run = self.made("p.npy", "-costs", "-shares", "image", labels=N + 1)
        np.testing.assert_array_equal(got[:N], costs)
        void = 100 * max(10, costs[np.isfinite(costs)].max())
        np.testing.assert_allclose(got[N], void, rtol=1e-6)

    def test_probabilities_given_as_costs_are_named(self):
        self.write(self.p)
        _, run = self.made("p.npy", "-costs")
        self.assertEqual(run.stderr, "ratseg-dataterm: warning: p.npy has costs that are from 0 to 1 "
                         "and sum to 1 at each pixel, as probabilities do: if they are, "
                         "-probabilities takes them (as costs they prefer what is least probable)\n")

    def test_thr_and_the_void_label(self):
        self.p[0, 0, 0], self.p[1:, 0, 0] = 1, 0
        self.write(self.p)
        got, run = self.made("p.npy", "-probabilities", "-thr", "2.5", "-shares", "image",
                             labels=N + 1)
        np.testing.assert_allclose(got[:N], self.costs(self.p, 2.5), atol=1e-5)
        self.assertEqual(got[:N].min(), 0)
        self.assertTrue((got[N] == 250).all())
        self.assertIn("  background label 3: void, costs 250 everywhere\n", run.stdout)

    def test_shares_of_a_truth(self):
        self.write(self.p)
        truth = self.p.argmax(axis=0).astype(np.uint8)
        self.save_png("truth.png", truth)
        words = ("-truth", "truth.png", "-proportions", "proportions.txt")
        self.made("p.npy", "-probabilities", *words)
        shares = np.loadtxt(self.folder / "proportions.txt")
        counts = np.bincount(truth.ravel())[:2]
        np.testing.assert_allclose(shares[:, 0], counts / counts.sum(), rtol=1e-6)
        self.save_png("truth.png", truth + 1)
        self.refused("truth.png: expected labels 0 to 2 as in p.npy, but found 3", "-image",
                     "image.png", "-probabilities", "p.npy", *words)

    def test_other_elements_are_refused_by_name(self):
        for array, name in ((self.p.astype("<i8"), "<i8"), (self.p.astype("<c8"), "<c8"),
                            (self.p > 0.5, "|b1"), (self.p.astype("<U3"), "<U3")):
            self.write(array)
            self.refused_costs(f'has elements of type "{name}", but f2, f4, f8, u1 and u2 are read')
        self.write(np.zeros((N, H, W), [("a", "<f4")]))
        self.refused_costs("has elements that are records, but numbers are read")
        with open(self.folder / "p.npy", "wb") as file:
            np.lib.format.write_array(file, np.array([{}, {}], object), allow_pickle=True)
        self.refused_costs('has elements of type "|O", but f2, f4, f8, u1 and u2 are read')

    def test_damaged_files(self):
        self.write(self.p.astype("<f4"))
        whole = (self.folder / "p.npy").read_bytes()
        for size in (*range(0, 140, 5), len(whole) - 1):
            (self.folder / "p.npy").write_bytes(whole[:size])
            run = self.run_program("-image", "image.png", "-probabilities", "p.npy", "-out", "x.gz")
            self.assertRegex(run.stderr, r"^ERROR: p\.npy: expected values [^\n]*\n$")
        self.refused_costs(f"ends early: {N * W * H - 1} of {N * W * H} elements are there")
        (self.folder / "p.npy").write_bytes(b"none of these")
        self.refused_costs("is none of these")
        self.refused("p.zip: expected values of each label and pixel (.npy, TIFF, or HDF5 of ilastik), "
                     "but found a file that does not open: No such file or directory", "-image",
                     "image.png", "-costs", "p.zip")
        (self.folder / "p.npy").write_bytes(
            whole[:10] + whole[10:].replace(f"({N}, {H}, {W})".encode(), b"(9999999999, 9999999999)", 1))

    def test_sizes_beyond_all_memory(self):
        for shape in ("(4294967296, 4294967296, 2)", "(18446744073709551615, 2, 2)",
                      "(18446744073709551616,)", "(99999999999999999999999999,)",
                      "(0, 18446744073709551615)", "(1000000, 1000000, 3)"):
            header = f"{{'descr': '<f4', 'fortran_order': False, 'shape': {shape}, }}\n".encode()
            (self.folder / "p.npy").write_bytes(
                b"\x93NUMPY\x01\x00" + len(header).to_bytes(2, "little") + header + bytes(64))
            run = self.run_program("-image", "image.png", "-probabilities", "p.npy", "-out", "x.gz")
            self.assertRegex(run.stderr, r"^ERROR: p\.npy: expected values [^\n]*\n$")
            self.assertEqual(run.returncode, 1)

    def test_options_that_do_not_go_together(self):
        self.write(self.p)
        for words, line in (
            (("-costs", "p.npy", "-probabilities", "p.npy"),
             "-probabilities: expected that it is left out where -costs is given, but found both"),
            (("-costs", "p.npy", "-scribbles", "scribbles.png"),
             "-scribbles: expected that it is left out where -costs is given, but found both"),
            (("-probabilities", "p.npy", "-scribbled-image", "image.png"),
             "-scribbled-image: expected that it is left out where -probabilities is given, but found "
             "both"),
            ((), "-scribbles: expected a file name, but found that the option is missing")):
            self.refused(line, "-image", "image.png", *words)
        run = self.run_program("-image", "image.png", "-costs", "p.npy", "-out", "p.npy")
        self.assertIn("expected a file of its own", run.stderr)


class Tiffs(Arrays):
    def test_channels_and_pages(self):
        p = self.p.astype(np.float32)
        tifffile.imwrite(self.folder / "pages.tif", p, photometric="minisblack")
        tifffile.imwrite(self.folder / "separate.tif", p, photometric="minisblack",
                         planarconfig="separate")
        tifffile.imwrite(self.folder / "contig.tif", np.ascontiguousarray(np.moveaxis(p, 0, 2)),
                         photometric="minisblack", planarconfig="contig")
        tifffile.imwrite(self.folder / "imagej.tif", p[None, None], imagej=True)
        for name in ("pages", "separate", "contig", "imagej"):
            with self.subTest(name):
                self.check(p, name=f"{name}.tif")
        bytes_ = np.round(self.p * 255).astype(np.uint8)
        tifffile.imwrite(self.folder / "rgb.tif", np.ascontiguousarray(np.moveaxis(bytes_, 0, 2)),
                         photometric="rgb")
        self.check(bytes_ / 255, name="rgb.tif")
        if shutil.which("tiffcp") is not None:
            subprocess.run(["tiffcp", "-t", "-c", "lzw", "pages.tif", "tiles.tif"], cwd=self.folder,
                           check=True, capture_output=True)
            self.check(p, name="tiles.tif")

    def test_pages_that_differ(self):
        with tifffile.TiffWriter(self.folder / "p.tif") as file:
            file.write(self.p[0].astype(np.float32))
            file.write(self.p[1, 1:].astype(np.float32))
        self.refused_costs("has pages that differ in size or have several channels; a page for each "
                           "label, or a channel for each on one page, is wanted", name="p.tif")


class Hdf5(Arrays):
    def setUp(self):
        super().setUp()
        self.write_ilastik(self.p, "cyx")
        run = self.run_program("-image", "image.png", "-probabilities", "p.h5", "-out", "x.gz")
        if "this build does not read" in run.stderr:
            self.assertRegex(run.stderr, r"^ERROR: p\.h5: expected values [^\n]*\n$")
            self.skipTest("a build without libhdf5")

    def write_ilastik(self, array, axes, dataset="exported_data", **more):
        """As ilastik exports it: the axes as vigra's tags, in JSON."""
        tags = {"axes": [{"key": a, "typeFlags": 1 if a == "c" else 2, "resolution": 0,
                          "description": ""} for a in axes]}
        with h5py.File(self.folder / "p.h5", "w") as file:
            made = file.create_dataset(dataset, data=array, **more)
            if axes:
                made.attrs["axistags"] = json.dumps(tags)

    def test_what_ilastik_exports(self):
        yxc = np.moveaxis(self.p, 0, 2).astype(np.float32)
        self.write_ilastik(yxc, "yxc")
        self.check(self.p, name="p.h5", tolerance=2e-4)
        self.write_ilastik(yxc[None, None], "tzyxc", chunks=True, compression="gzip")
        self.check(self.p, name="p.h5", tolerance=2e-4)
        self.write_ilastik(np.round(yxc * 255).astype(np.uint8), "yxc")
        self.check(np.round(self.p.astype(np.float32) * 255) / 255, name="p.h5")

    def test_tags_decide_where_sizes_do_not(self):
        self.save_png("image.png", self.grey[:, :H])
        square = self.p[:, :, :H].astype(np.float32)
        self.write_ilastik(np.transpose(square, (2, 1, 0)), "xyc")
        run = self.run_program("-image", "image.png", "-probabilities", "p.h5", "-out", "x.gz")
        self.assertEqual(run.returncode, 0, run)
        np.testing.assert_allclose(data_term(self.folder / "x.gz", (N, H, H)), self.costs(square),
                                   atol=2e-4)

    def test_other_datasets(self):
        self.write_ilastik(self.p, "", dataset="group/only")
        self.check(self.p, name="p.h5")
        with h5py.File(self.folder / "p.h5", "w") as file:
            file["a"] = file["b"] = self.p
        with h5py.File(self.folder / "p.h5", "w") as file:
            file.create_dataset("a", data=self.p)
            file.create_dataset("b", data=self.p)
        self.refused_costs('has 2 datasets ("a", "b"), none of which is exported_data', name="p.h5")
        with h5py.File(self.folder / "p.h5", "a") as file:
            file.create_dataset("exported_data", data=self.p)
        self.check(self.p, name="p.h5")
        with h5py.File(self.folder / "p.h5", "w") as file:
            file.create_group("empty")
        self.refused_costs("is an HDF5 file without a dataset", name="p.h5")
        self.write_ilastik(self.p.astype(np.int32), "")
        self.refused_costs("has a dataset of other elements than floats of 16, 32 or 64 bits and "
                           "unsigned integers of 8 or 16", name="p.h5")

    def test_damaged_files(self):
        self.write_ilastik(self.p.astype(np.float32), "cyx", chunks=True, compression="gzip")
        whole = (self.folder / "p.h5").read_bytes()
        for size in (8, 9, 100, 900, len(whole) // 2, len(whole) - 1):
            (self.folder / "p.h5").write_bytes(whole[:size])
            run = self.run_program("-image", "image.png", "-probabilities", "p.h5", "-out", "x.gz")
            self.assertRegex(run.stderr, r"^ERROR: p\.h5: expected values [^\n]*is a damaged HDF5 "
                             r"file[^\n]*\n$")


foreign.main()
