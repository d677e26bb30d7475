"""Pictures of any depth as tifffile, libtiff's tools and Pillow write them."""

import os
import shutil
import subprocess
import threading

import foreign
import numpy as np
import tifffile
from foreign import H, W, Case, data_term
from PIL import Image

EXPECTED = "expected an image of a format that can be read, but found a file that "


class Tiff(Case):
    def write(self, array, name="image.tif", **more):
        tifffile.imwrite(self.folder / name, array, **more)

    def deep(self, dtype):
        if np.issubdtype(dtype, np.floating):
            return (self.random.normal(size=(H, W)) * 1000).astype(dtype)
        info = np.iinfo(dtype)
        return self.random.integers(info.min // 3, info.max // 3, (H, W)).astype(dtype)

    def check(self, array, **more):
        self.write(array, **more)
        picture, said = self.seen()
        np.testing.assert_array_equal(picture, self.stretched(array))
        return said

    def test_every_type_of_number(self):
        for dtype in ("uint16", "int16", "uint32", "int32", "float16", "float32", "float64", "int8",
                      "uint64", "int64"):
            with self.subTest(dtype):
                array = self.deep(np.dtype(dtype))
                if dtype in ("uint32", "int32", "uint64", "int64", "float64"):
                    array = array.astype(np.float32).astype(dtype)  # what a float can hold
                self.check(array)

    def test_both_orders_of_bytes_tiles_and_bigtiff(self):
        array = self.deep(np.dtype("uint16"))
        for form in ({"byteorder": ">"}, {"byteorder": "<"}, {"tile": (16, 16)}, {"bigtiff": True},
                     {"bigtiff": True, "byteorder": ">", "tile": (32, 16)}, {"rowsperstrip": 3}):
            with self.subTest(form):
                self.check(array, **form)

    def test_colour_has_one_range_for_all_channels(self):
        array = self.random.integers(0, 4096, (H, W, 3)).astype(np.uint16)
        array[..., 0] //= 4
        for form in ({}, {"planarconfig": "contig"}, {"tile": (16, 16)}):
            self.write(array, photometric="rgb", **form)
            picture, _ = self.seen()
            np.testing.assert_array_equal(picture, self.stretched(array))
        self.write(np.moveaxis(array, 2, 0), photometric="rgb", planarconfig="separate")
        picture, _ = self.seen()
        np.testing.assert_array_equal(picture, self.stretched(array))

    def test_twelve_bits_in_sixteen_are_stretched(self):
        array = self.random.integers(100, 4000, (H, W)).astype(np.uint16)
        said = self.check(array)
        low, high = np.sort(array.ravel())[[0, -1]]
        self.assertIn(f"image.tif has 16-bit unsigned integers; black and white are at -range {low} "
                      f"{high}, found from its values", said)

    def test_a_range_is_kept_to(self):
        array = self.deep(np.dtype("float32"))
        self.write(array)
        picture, said = self.seen("-range", "-500", "800.5")
        np.testing.assert_array_equal(picture, self.stretched(array, -500, 800.5))
        self.assertIn("black and white are at -range -500 800.5\n", said)
        self.refused("-range: expected 2 numbers, but found 4", "-image", "image.tif", "-scribbles",
                     "scribbles.png", "-range", 0, 1, 0, 1)
        for words in ((), ("1",), ("2", "1"), ("1", "x"), ("1", "1")):
            run = self.run_program("-image", "image.tif", "-scribbles", "scribbles.png", "-out",
                                   "x.gz", "-range", *words)
            self.assertEqual(run.returncode, 1)
            self.assertRegex(run.stderr, r"^ERROR: -range: expected two numbers, or two for each "
                             r"channel, the greater one second, but found [^\n]*\n$")

    def test_nan_and_infinite_values(self):
        array = self.deep(np.dtype("float32"))
        array[3, 4:7] = np.nan
        array[5, 5], array[6, 6] = np.inf, -np.inf
        self.write(array)
        finite = array[np.isfinite(array)]
        clean = np.nan_to_num(array, nan=finite.min(), posinf=finite.max(), neginf=finite.min())
        picture, said = self.seen()
        np.testing.assert_array_equal(picture, self.stretched(clean))
        self.assertIn("warning: image.tif has 3 NaN values, taken for the smallest value", said)
        self.assertIn("warning: image.tif has 2 infinite values", said)

    def test_values_that_are_all_the_same(self):
        for value in (7, np.nan):
            self.write(np.full((H, W), value, np.float32))
            picture, said = self.seen()
            self.assertTrue((picture == 0).all())
            self.assertIn("has a channel whose values are all", said)

    def test_eight_bits_are_what_they_were(self):
        colour = self.random.integers(0, 256, (H, W, 3)).astype(np.uint8)
        for array, more in ((self.grey, {}), (colour, {"photometric": "rgb"}),
                            (colour, {"photometric": "rgb", "tile": (16, 16)}),
                            (colour, {"photometric": "rgb", "planarconfig": "separate"})):
            apart = "planarconfig" in more
            self.write(np.moveaxis(array, 2, 0) if apart else array, **more)
            Image.fromarray(array).save(self.folder / "same.png")
            picture, _ = self.seen()
            if picture.ndim > array.ndim:
                self.assertTrue((picture == picture[..., :1]).all())
                picture = picture[..., 0]
            np.testing.assert_array_equal(picture, array)
            tiff = (self.folder / "seen.gz").read_bytes()
            self.seen(image="same.png")
            self.assertEqual((self.folder / "seen.gz").read_bytes(), tiff)

    def test_pages_are_counted_from_1_and_never_skipped(self):
        stack = self.random.integers(0, 60000, (3, H, W)).astype(np.uint16)
        self.write(stack, photometric="minisblack")
        needed = ("-image", "image.tif", "-scribbles", "scribbles.png")
        self.refused("image.tif: expected -page with one of its pages, counted from 1, but found a "
                     "file of 3 pages", *needed)
        self.refused("-page 4: expected a page of image.tif, counted from 1, but found a file of 3 "
                     "pages", *needed, "-page", 4)
        self.refused('-page: expected a page number from 1, but found "0"', *needed, "-page", 0)
        for page in (1, 2, 3):
            picture, _ = self.seen("-page", page)
            np.testing.assert_array_equal(picture, self.stretched(stack[page - 1]))
        eight = self.random.integers(0, 256, (2, H, W)).astype(np.uint8)
        self.write(eight, photometric="minisblack")
        picture, said = self.seen("-page", 2)
        np.testing.assert_array_equal(picture, eight[1])
        self.assertNotIn("-range", said)
        self.seen("-page", 1, image="image.png")
        self.refused("-page 2: expected a page of image.png, counted from 1, but found a file of 1 "
                     "page", "-image", "image.png", "-scribbles", "scribbles.png", "-page", 2)

    def test_scribbles_on_another_page(self):
        stack = self.random.integers(0, 60000, (3, H, W)).astype(np.uint16)
        self.write(stack, photometric="minisblack")
        words = ("-image", "image.tif", "-page", 3, "-scribbled-image", "image.tif", "-scribbles",
                 "scribbles.png", "-range", 0, 60000)
        run = self.run_program(*words, "-scribbled-page", 1, "-out", "stack.gz")
        self.assertEqual(run.returncode, 0, run.stderr)
        for k in (0, 2):
            self.write(stack[k], f"{k}.tif")
        self.run_program("-image", "2.tif", "-scribbled-image", "0.tif", "-scribbles",
                         "scribbles.png", "-range", 0, 60000, "-out", "single.gz")
        self.assertEqual((self.folder / "stack.gz").read_bytes(),
                         (self.folder / "single.gz").read_bytes())

    def test_smaller_copies_and_masks_are_no_pages(self):
        array = self.deep(np.dtype("uint16"))
        with tifffile.TiffWriter(self.folder / "image.tif") as file:
            file.write(array[::2, ::2], subfiletype=1)
            file.write(array)
            file.write(array[::4, ::4], subfiletype=1)
            file.write(array > 9, subfiletype=4, photometric=4)
        picture, _ = self.seen()
        np.testing.assert_array_equal(picture, self.stretched(array))

    def test_white_at_zero(self):
        array = self.random.integers(0, 65536, (H, W)).astype(np.uint16)
        self.write(array, photometric="miniswhite")
        picture, _ = self.seen()
        np.testing.assert_array_equal(picture, self.stretched(65535 - array.astype(np.int64)))

    def test_more_channels(self):
        array = self.random.integers(0, 60000, (5, H, W)).astype(np.uint16)
        array[1] //= 10
        for planar, written in (("separate", array), ("contig", np.moveaxis(array, 0, 2))):
            self.write(written, photometric="minisblack", planarconfig=planar)
            picture, said = self.seen()
            for k in range(3):
                np.testing.assert_array_equal(picture[..., k], self.stretched(array[k]))
            self.assertIn("image.tif has 5 channels, of which colour costs see the first three", said)
        self.write(np.moveaxis(array[:2], 0, 2), photometric="minisblack", planarconfig="contig")
        picture, said = self.seen()
        np.testing.assert_array_equal(picture, self.stretched(array[0]))
        self.assertIn("image.tif has 2 channels, of which colour costs see the first one", said)
        self.write(array[:4].astype(np.uint8), photometric="rgb", planarconfig="separate",
                   extrasamples=["unspecified"])
        picture, _ = self.seen()
        np.testing.assert_array_equal(picture, np.moveaxis(array[:3].astype(np.uint8), 0, 2))

    def test_the_forest_sees_all_channels_in_full_depth(self):
        """Labels that only the fourth channel tells apart, by less than a step of 8 bits."""
        if "VIGRA" in self.run_program("-image", "image.png", "-scribbles", "scribbles.png", "-out",
                                       "probe.gz", "-model", "both").stderr:
            self.skipTest("built without VIGRA")
        h, w = 40, 60
        truth = np.zeros((h, w), np.int64)
        truth[:, 30:] = 1
        planes = self.random.integers(0, 60000, (4, h, w)).astype(np.uint16)
        planes[3] = 30000 + 60 * truth + self.random.integers(0, 8, (h, w))
        planes[3, 0, 0], planes[3, -1, -1] = 0, 60000
        self.write(planes, photometric="minisblack", planarconfig="separate")
        marks = np.zeros((h, w), np.uint8)
        for y in (5, 15, 25, 35):
            marks[y, 4:24] = 1
            marks[y, 36:56] = 2
        self.save_png("marks.png", marks)
        run = self.run_program("-image", "image.tif", "-scribbles", "marks.png", "-out", "deep.gz",
                               "-model", "forest", "-shares", "image")
        self.assertEqual(run.returncode, 0, run.stderr)
        costs = data_term(self.folder / "deep.gz", (3, h, w))
        found = costs[:2].argmin(axis=0)
        self.assertGreater(np.mean(found == truth), 0.97)

    def test_transparency_is_no_channel(self):
        array = self.random.integers(0, 60000, (H, W, 4)).astype(np.uint16)
        self.write(array, photometric="rgb", extrasamples=["unassalpha"])
        picture, said = self.seen()
        np.testing.assert_array_equal(picture, self.stretched(array[..., :3]))
        self.assertNotIn("channels", said)

    def test_compressions_of_libtiff(self):
        if shutil.which("tiffcp") is None:
            self.skipTest("tiffcp is missing (libtiff-tools)")
        array = self.random.integers(0, 4096, (H, W)).astype(np.uint16)
        self.write(array, "plain.tif")
        for how in ("none", "lzw", "lzw:2", "zip", "zip:2", "packbits", "zstd", "lzma"):
            for form in ((), ("-t",), ("-B",), ("-8",), ("-r", "4")):
                made = subprocess.run(["tiffcp", "-c", how, *form, "plain.tif", "image.tif"],
                                      cwd=self.folder, capture_output=True, text=True)
                if made.returncode != 0:
                    self.assertNotIn(how, ("none", "lzw", "zip", "packbits"), made)
                    continue
                with self.subTest(how=how, form=form):
                    picture, _ = self.seen()
                    np.testing.assert_array_equal(picture, self.stretched(array))

    def test_raw2tiff(self):
        if shutil.which("raw2tiff") is None:
            self.skipTest("raw2tiff is missing (libtiff-tools)")
        array = self.deep(np.dtype("float32"))
        array.tofile(self.folder / "raw")
        subprocess.run(["raw2tiff", "-w", str(W), "-l", str(H), "-d", "float", "raw", "image.tif"],
                       cwd=self.folder, check=True, capture_output=True)
        picture, _ = self.seen()
        np.testing.assert_array_equal(picture, self.stretched(array))

    def test_a_palette_on_a_page(self):
        numbers = self.random.integers(0, 256, (2, H, W)).astype(np.uint8)
        colours = self.random.integers(0, 256, (3, 256)).astype(np.uint16)
        with tifffile.TiffWriter(self.folder / "image.tif") as file:
            for page in numbers:
                file.write(page, photometric="palette", colormap=colours * 257)
        picture, _ = self.seen("-page", 2)
        np.testing.assert_array_equal(picture, np.moveaxis(colours[:, numbers[1]], 0, 2))

    def test_stacks_of_imagej(self):
        stack = self.random.integers(0, 60000, (3, H, W)).astype(np.uint16)
        self.write(stack, imagej=True)
        picture, _ = self.seen("-page", 2)
        np.testing.assert_array_equal(picture, self.stretched(stack[1]))
        self.write(stack[0], description="ImageJ=1.53t\nimages=700\nslices=700\n", metadata=None)
        self.refused(f"image.tif: {EXPECTED}is a stack of 700 pictures that ImageJ wrote without "
                     "pages, as it does beyond 4 GiB; save the one that is wanted as a file of its "
                     "own", "-image", "image.tif", "-scribbles", "scribbles.png")

    def test_pipes(self):
        array = self.deep(np.dtype("uint16"))
        for more in ({}, {"bigtiff": True}, {"byteorder": ">"}):
            self.write(array, **more)
            os.mkfifo(self.folder / "pipe")
            writer = threading.Thread(
                target=lambda: (self.folder / "pipe").write_bytes(
                    (self.folder / "image.tif").read_bytes()))
            writer.start()
            picture, _ = self.seen(image="pipe")
            writer.join()
            (self.folder / "pipe").unlink()
            np.testing.assert_array_equal(picture, self.stretched(array))

    def test_tags_of_other_programs_are_no_complaints(self):
        array = self.deep(np.dtype("uint16"))
        self.write(array, extratags=[(65000, "H", 1, 7, True), (33550, "d", 3, (1., 1., 0.), True)])
        picture, said = self.seen("-strict", 1)
        self.assertNotIn("warning", said)

    def test_complex_numbers_are_refused(self):
        self.write(self.deep(np.dtype("float32")).astype(np.complex64))
        self.refused(f"image.tif: {EXPECTED}holds complex numbers, which are no picture", "-image",
                     "image.tif", "-scribbles", "scribbles.png")

    def test_files_cut_anywhere_are_one_error(self):
        self.write(self.deep(np.dtype("uint16")), compression="zlib", byteorder=">")
        whole = (self.folder / "image.tif").read_bytes()
        for size in [*range(8, 64, 7), *range(64, len(whole), 61), len(whole) - 1]:
            (self.folder / "cut.tif").write_bytes(whole[:size])
            run = self.run_program("-image", "cut.tif", "-scribbles", "scribbles.png", "-out",
                                   "cut.gz")
            if run.returncode == 0:
                self.assertGreater(size, len(whole) - 2)
                continue
            self.assertRegex(run.stderr, "^ERROR: cut.tif: " + EXPECTED + "[^\n]*\n$")

    def test_limits_hold_before_pixels_are_read(self):
        self.write(self.deep(np.dtype("uint16")))
        data = bytearray((self.folder / "image.tif").read_bytes())
        with tifffile.TiffFile(self.folder / "image.tif") as file:
            for name in ("ImageWidth", "ImageLength"):
                at = file.pages[0].tags[name].valueoffset
                size = 4 if file.pages[0].tags[name].dtype == 4 else 2
                data[at:at + size] = (60000).to_bytes(size, "little")
        (self.folder / "image.tif").write_bytes(data)
        self.refused(f"image.tif: {EXPECTED}has 60000 x 60000 pixels, 3600 megapixels, but at most "
                     "150 are allowed (-max-megapixels M allows others)", "-image", "image.tif",
                     "-scribbles", "scribbles.png")

    def test_turned_pictures(self):
        array = self.deep(np.dtype("uint16"))
        for orientation in range(1, 9):
            self.write(array, extratags=[(274, "H", 1, orientation, True)])
            turned = {1: array, 2: array[:, ::-1], 3: array[::-1, ::-1], 4: array[::-1],
                      5: array.T, 6: array[::-1].T, 7: array[::-1, ::-1].T, 8: array[:, ::-1].T}
            picture, said = self.seen()
            np.testing.assert_array_equal(picture, self.stretched(array))
            self.assertEqual("asks to be shown turned" in said, orientation != 1)
            shown = turned[orientation]
            if shown.shape != array.shape:
                self.save_png("scribbles.png", np.ascontiguousarray(self.marks.T))
            else:
                self.save_png("scribbles.png", self.marks)
            picture, said = self.seen("-turn", 1)
            np.testing.assert_array_equal(picture, self.stretched(shown))
            self.assertNotIn("turned", said)
            self.save_png("scribbles.png", self.marks)


class Others(Case):
    def test_png_of_sixteen_bits(self):
        array = self.random.integers(0, 4096, (H, W)).astype(np.uint16)
        Image.fromarray(array.astype(np.int32), "I").save(self.folder / "image16.png")
        picture, said = self.seen(image="image16.png")
        np.testing.assert_array_equal(picture, self.stretched(array))
        self.assertIn("image16.png has 16-bit unsigned integers", said)

    def test_photographs_that_ask_to_be_turned(self):
        exif = Image.Exif()
        for orientation in range(2, 9):
            exif[274] = orientation
            self.save_png("image.webp", np.dstack([self.grey] * 3), lossless=True, exif=exif)
            self.save_png("photo.jpg", np.dstack([self.grey] * 3), exif=exif, quality=95)
            photo = Image.open(self.folder / "photo.jpg")
            from PIL import ImageOps
            shown = np.asarray(ImageOps.exif_transpose(photo))
            marks = self.marks.T if shown.shape[0] == W else self.marks
            self.save_png("scribbles.png", np.ascontiguousarray(marks))
            picture, said = self.seen("-turn", 1, image="photo.jpg")
            self.assertLessEqual(np.abs(picture.astype(int) - shown).max(), 2)
            self.assertNotIn("turned", said)

    def test_a_range_for_eight_bits(self):
        picture, said = self.seen("-range", 10, 100, image="image.png")
        np.testing.assert_array_equal(picture[..., 0], self.stretched(self.grey, 10, 100))
        self.assertIn("image.png was stretched as -range says", said)

    def test_the_picture_fits_ratseg(self):
        array = self.random.integers(0, 4096, (H, W)).astype(np.uint16)
        tifffile.imwrite(self.folder / "image.tif", array)
        self.seen()
        (self.folder / "proportions.txt").write_text("0.5 0.1\n0.5 0.1\n")
        run = self.run_program("-image", "seen.png", "-dataterm", "seen.gz", "-proportions",
                               "proportions.txt", "-lambda", 1, "-mu", 1, "-iterations", 3,
                               program="ratseg")
        self.assertEqual(run.returncode, 0, run)
        self.assertNotIn("warning", run.stderr)

    def test_results_are_not_written_over_inputs(self):
        for name in ("image.png", "scribbles.png", "x.gz"):
            run = self.run_program("-image", "image.png", "-scribbles", "scribbles.png", "-out",
                                   "x.gz", "-picture-out", name)
            self.assertEqual(run.stderr, f"ERROR: -picture-out {name}: expected a file of its own, "
                             f"but found that it is {name} as well\n")
        run = self.run_program("-image", "image.png", "-scribbles", "scribbles.png", "-out", "x.gz",
                               "-picture-out", "none/x.png")
        self.assertIn("ERROR: -picture-out none/x.png: expected a file that can be written", run.stderr)
        self.assertFalse((self.folder / "x.gz").exists())


foreign.main()
