"""Scribbles as paint programs, ImageJ and napari save them."""

import foreign
import numpy as np
import tifffile
from foreign import H, W, Case
from PIL import Image, ImageDraw

COLOURS = {1: (255, 0, 0), 2: (0, 255, 0), 3: (0, 0, 255)}  # in the order of their hues
EXPECTED = ("expected scribbles as label numbers (8-bit grey or indexed PNG, TIFF) or as pure colours "
            "(PNG, TIFF), but found a file that ")


class Scribbles(Case):
    def painted(self, background=(0, 0, 0), colours=None):
        picture = np.empty((H, W, 3), np.uint8)
        picture[:] = background
        for label, colour in (colours or COLOURS).items():
            picture[self.marks == label] = colour
        return picture

    def made(self, name, *words, image="image.png"):
        run = self.run_program("-image", image, "-scribbles", name, "-out", "made.gz", *words)
        self.assertEqual(run.returncode, 0, run.stderr)
        return (self.folder / "made.gz").read_bytes(), run.stderr

    def same(self, name, *words, image="image.png"):
        """Expects the data term of scribbles.png from other scribbles; returns what is said."""
        expected, _ = self.made("scribbles.png", image=image)
        got, said = self.made(name, *words, image=image)
        self.assertEqual(got, expected)
        return said

    def refused_scribbles(self, line, name="s.png", image="image.png"):
        self.refused(f"{name}: {line}", "-image", image, "-scribbles", name)


class Colours(Scribbles):
    def test_each_pure_colour_is_a_label_in_the_order_of_hues(self):
        for background in ((0, 0, 0), (255, 255, 255), (30, 60, 90)):
            self.save_png("s.png", self.painted(background))
            said = self.same("s.png")
            self.assertEqual(said, "ratseg-dataterm: s.png is read as -colours "
                             '"ff0000=0,00ff00=1,0000ff=2"; unmarked is '
                             f"{bytes(background).hex()}\n")
        tifffile.imwrite(self.folder / "s.tif", self.painted(), photometric="rgb")
        self.same("s.tif")
        colours = {1: (255, 200, 0), 2: (255, 0, 200), 3: (255, 255, 255)}
        self.save_png("s.png", self.painted(colours=colours))
        self.assertIn('"ffc800=0,ff00c8=1,ffffff=2"', self.same("s.png"))

    def test_colours_are_given(self):
        shuffled = {1: (0, 0, 255), 2: (255, 0, 0), 3: (0, 255, 0)}
        self.save_png("s.png", self.painted(colours=shuffled))
        self.same("s.png", "-colours", "0000ff=0,#ff0000=1,00FF00=2")
        run = self.run_program("-image", "image.png", "-scribbles", "s.png", "-colours")
        self.assertEqual((run.returncode, run.stderr), (0, ""))
        count = [int((self.marks == label).sum()) for label in (1, 2, 3)]
        self.assertEqual(run.stdout, '-colours "ff0000=0,00ff00=1,0000ff=2"\n'
                         f"  0000ff: label 2, {count[0]} pixels\n"
                         f"  00ff00: label 1, {count[2]} pixels\n"
                         f"  ff0000: label 0, {count[1]} pixels\n"
                         "  unmarked: 000000\n  left out: 0 pixels on smoothed rims\n")
        for text in ("ff0000", "red=0", "ff0000=0,ff0000=1", "ff0000=255", "ff0000=0,", "=1",
                     "ff00000=1", "ff0000=-1"):
            self.refused("-colours: expected a label from 0 to 254 for each colour, as "
                         f'ff0000=0,00ff00=1, but found "{text}"', "-image", "image.png",
                         "-scribbles", "s.png", "-colours", text)
        self.refused("-colours: expected scribbles in colours, but found scribbles.png with label "
                     "numbers, which need no -colours", "-image", "image.png", "-scribbles",
                     "scribbles.png", "-colours", "ff0000=0")

    def test_labels_keep_their_numbers_in_a_series(self):
        self.save_png("s.png", self.painted(colours={1: (255, 0, 0), 2: (0, 255, 0),
                                                     3: (0, 0, 0)}))
        run = self.run_program("-image", "image.png", "-scribbles", "s.png", "-out", "x.gz",
                               "-colours", "ff0000=0,00ff00=1,0000ff=2")
        self.assertIn("data term of 3 labels", run.stdout)
        self.assertIn("label 2 has no scribbles in s.png", run.stderr)

    def test_colours_without_a_label_are_left_out(self):
        self.save_png("s.png", self.painted())
        count = int((self.marks == 3).sum())
        _, said = self.made("s.png", "-colours", "ff0000=0,00ff00=1")
        self.assertIn(f"warning: s.png has {count} pixels of 0000ff, to which -colours gives no label; "
                      "they are left out", said)

    def test_transparent_layers(self):
        for hidden in ((0, 0, 0), (255, 255, 255), (255, 0, 0)):
            layer = np.dstack([self.painted(hidden), np.where(self.marks > 0, 255, 0)])
            self.save_png("s.png", layer.astype(np.uint8))
            said = self.same("s.png")
            self.assertIn("unmarked is what is transparent", said)
        tifffile.imwrite(self.folder / "s.tif", layer.astype(np.uint8), photometric="rgb",
                         extrasamples=["unassalpha"])
        self.same("s.tif")
        half = np.dstack([self.painted(), np.where(self.marks > 0, 128, 0)]).astype(np.uint8)
        self.save_png("s.png", half)
        self.same("s.png")
        opaque = np.dstack([self.painted(), np.full((H, W), 255)]).astype(np.uint8)
        self.save_png("s.png", opaque)
        self.same("s.png")
        black = np.dstack([np.zeros((H, W, 3)), np.where(self.marks > 0, 255, 0)]).astype(np.uint8)
        black[self.marks == 2] = (255, 255, 255, 255)
        black[self.marks == 3] = (128, 128, 128, 255)
        self.save_png("s.png", black)
        self.assertIn('"000000=0,808080=1,ffffff=2"', self.made("s.png")[1])
        deep = np.dstack([self.painted().astype(np.uint16) * 257,
                          np.where(self.marks > 0, 65535, 0).astype(np.uint16)])
        tifffile.imwrite(self.folder / "s.tif", deep, photometric="rgb",
                         extrasamples=["unassalpha"])
        self.same("s.tif")


class Smoothed(Scribbles):
    SIZE = (160, 120)

    def setUp(self):
        super().setUp()
        w, h = self.SIZE
        self.save_png("large.png", self.random.integers(0, 255, (h, w)).astype(np.uint8))

    def strokes(self, scale):
        """Masks of three strokes, drawn `scale` times as large."""
        w, h = self.SIZE
        masks = []
        for points in (((10, 10), (90, 25), (140, 12)), ((20, 60), (70, 90), (130, 70)),
                       ((15, 105), (80, 112), (150, 100))):
            mask = Image.new("L", (w * scale, h * scale))
            ImageDraw.Draw(mask).line([(x * scale, y * scale) for x, y in points], 255, 5 * scale)
            masks.append(mask)
        return masks

    def smooth(self):
        return [np.asarray(mask.resize(self.SIZE, Image.BOX)) / 255.0 for mask in self.strokes(8)]

    def hard(self, masks):
        marks = np.zeros(self.SIZE[::-1], np.uint8)
        for k, mask in enumerate(masks):
            marks[mask == 1] = k + 1
        return marks

    def counts(self, name):
        run = self.run_program("-image", "large.png", "-scribbles", name, "-out", "made.gz")
        self.assertEqual(run.returncode, 0, run.stderr)
        lines = [line for line in run.stdout.splitlines() if "scribble pixels" in line]
        return [int(line.split(": ")[1].split()[0]) for line in lines], run.stderr

    def test_smoothed_strokes_on_a_colour(self):
        masks = self.smooth()
        wanted = [(mask == 1).sum() for mask in masks]
        for background in ((0, 0, 0), (255, 255, 255)):
            for colours in (list(COLOURS.values()), [(200, 0, 0), (0, 90, 160), (250, 240, 40)]):
                picture = np.zeros((*self.SIZE[::-1], 3)) + background
                for mask, colour in zip(masks, colours):
                    picture += mask[..., None] * (np.array(colour) - picture)
                self.save_png("s.png", np.round(picture).astype(np.uint8))
                counts, said = self.counts("s.png")
                self.assertEqual(len(counts), 3, said)
                np.testing.assert_allclose(sorted(counts), sorted(wanted), rtol=0.02)
                left = np.round(picture).astype(np.uint8)
                rims = (left != np.array(background, np.uint8)).any(axis=2).sum() - sum(counts)
                self.assertIn(f"warning: s.png has {rims} pixels on smoothed rims of strokes, in "
                              "colours between the pure ones; they are left out", said)

    def test_smoothed_strokes_on_a_transparent_layer(self):
        masks = self.smooth()
        layer = np.zeros((*self.SIZE[::-1], 4), np.uint8)
        for mask, colour in zip(masks, COLOURS.values()):
            layer[mask > 0, :3] = colour
            layer[..., 3] = np.maximum(layer[..., 3], np.round(mask * 255))
        self.save_png("s.png", layer)
        counts, said = self.counts("s.png")
        full = [(layer[(mask > 0)][:, 3] >= 0.97 * 255).sum() for mask in masks]
        self.assertEqual(counts, full)
        rims = ((layer[..., 3] > 0) & (layer[..., 3] < 0.97 * 255)).sum()
        self.assertIn(f"warning: s.png has {rims} pixels on smoothed rims", said)

    def test_smoothed_numbers(self):
        masks = self.smooth()
        grey = np.zeros(self.SIZE[::-1])
        for k, mask in enumerate(masks):
            grey += (k + 1) * mask
        self.save_png("s.png", np.round(grey).astype(np.uint8))
        counts, said = self.counts("s.png")
        before = [int((np.round(grey) == k).sum()) for k in (1, 2, 3)]
        drawn = [int((np.round(mask) * (k + 1) == np.round(grey))[mask > 0.5].sum())
                 for k, mask in enumerate(masks)]
        self.assertGreater(before[0], 1.25 * drawn[0])
        np.testing.assert_allclose(counts, drawn, rtol=0.12)
        self.assertIn("on smoothed rims of strokes, with numbers between those of strokes and 0", said)

    def test_hard_strokes_are_left_alone(self):
        marks = self.hard([np.asarray(mask) / 255 for mask in self.strokes(1)])
        self.save_png("s.png", marks)
        counts, said = self.counts("s.png")
        self.assertEqual((counts, said), ([int((marks == k).sum()) for k in (1, 2, 3)], ""))
        touching = marks.copy()
        touching[40:60, 40:60], touching[40:60, 60:80], touching[60:80, 40:60] = 1, 2, 3
        self.save_png("s.png", touching)
        counts, said = self.counts("s.png")
        self.assertEqual((counts, said), ([int((touching == k).sum()) for k in (1, 2, 3)], ""))
        picture = np.zeros((*self.SIZE[::-1], 3), np.uint8)
        for k, colour in {1: (255, 0, 0), 2: (128, 0, 0), 3: (0, 128, 128)}.items():
            picture[marks == k] = colour
        self.save_png("s.png", picture)
        counts, said = self.counts("s.png")
        self.assertEqual(sorted(counts), sorted(int((marks == k).sum()) for k in (1, 2, 3)))
        self.assertNotIn("warning", said)


class Numbers(Scribbles):
    def test_label_tiffs(self):
        for dtype in ("uint8", "uint16", "uint32", "int32", "int64", "float32", "int8"):
            for form in ({}, {"compression": "zlib"}, {"byteorder": ">"}):
                tifffile.imwrite(self.folder / "s.tif", self.marks.astype(dtype), **form)
                self.assertEqual(self.same("s.tif"), "")
        tifffile.imwrite(self.folder / "s.tif", self.marks.astype(np.uint16), imagej=True)
        self.same("s.tif")
        lut = self.random.integers(0, 256, (3, 256)).astype(np.uint16) * 257
        tifffile.imwrite(self.folder / "s.tif", self.marks, photometric="palette", colormap=lut)
        self.assertEqual(self.same("s.tif"), "")
        Image.fromarray(self.marks.astype(np.int32), "I").save(self.folder / "s16.png")
        self.same("s16.png")

    def test_pages_of_labels(self):
        stack = np.zeros((3, H, W), np.uint16)
        stack[1] = self.marks
        tifffile.imwrite(self.folder / "s.tif", stack, photometric="minisblack")
        self.refused_scribbles("expected -page with one of its pages, counted from 1, but found a file "
                               "of 3 pages", "s.tif")
        tifffile.imwrite(self.folder / "stack.tif", np.stack([self.grey] * 3),
                         photometric="minisblack")
        expected, _ = self.made("scribbles.png")
        got, _ = self.made("s.tif", "-page", 2, image="stack.tif")
        self.assertEqual(got, expected)

    def test_numbers_that_are_no_labels(self):
        for value, text in ((256, "256"), (-1, "-1"), (1.5, "1.5"), (np.nan, "nan"), (70000, "70000")):
            bad = self.marks.astype(np.float32)
            bad[4, 6] = value
            tifffile.imwrite(self.folder / "s.tif", bad)
            self.refused("s.tif: expected an 8-bit grey or indexed PNG, or a TIFF of label numbers, but "
                         f"found a file that has {text} at column 6, row 4, which is no whole number "
                         "from 0 to 255", "-image", "image.png", "-scribbles", "s.tif")

    def test_a_truth_may_be_a_tiff(self):
        truth = np.maximum(self.marks.astype(np.int32) - 1, 0)
        self.save_png("truth.png", truth.astype(np.uint8))
        tifffile.imwrite(self.folder / "truth.tif", truth)
        texts = []
        for name in ("truth.png", "truth.tif"):
            self.made("scribbles.png", "-truth", name, "-proportions", "p.txt")
            texts.append((self.folder / "p.txt").read_text())
        self.assertEqual(*texts)

    def test_grey_and_indexed_png_mean_what_they_meant(self):
        indexed = Image.fromarray(self.marks, "P")
        indexed.putpalette([0, 0, 0, 255, 0, 0, 0, 0, 255, 0, 255, 0])
        for bits in (8, 4, 2):
            indexed.save(self.folder / "s.png", bits=bits)
            self.assertEqual(self.same("s.png"), "")
        indexed.save(self.folder / "s.png", transparency=0)
        self.assertEqual(self.same("s.png"), "")


class Refused(Scribbles):
    def test_jpeg(self):
        Image.fromarray(self.painted()).save(self.folder / "s.jpg")
        self.refused_scribbles(EXPECTED.replace("a file that ", "") + "a JPEG, which blurs the colours "
                               "of strokes; save them as PNG", "s.jpg")

    def test_masks(self):
        line = ("expected label numbers: 0 where nothing is marked, 1 for label 0, 2 for label 1 and so "
                "on, but found a mask of 0 and 255, which marks a single thing (with numpy: 1 * (a > 0) "
                "+ 2 * (b > 0) makes label numbers of two masks a and b)")
        mask = np.where(self.marks > 0, 255, 0).astype(np.uint8)
        self.save_png("s.png", mask)
        self.refused_scribbles(line)
        tifffile.imwrite(self.folder / "s.tif", mask)
        self.refused_scribbles(line, "s.tif")

    def test_strokes_drawn_into_the_picture(self):
        photo = self.random.integers(0, 256, (H, W, 3)).astype(np.uint8)
        self.save_png("photo.png", photo)
        drawn = np.where(self.marks[..., None] > 0, self.painted(), photo)
        line = ("expected strokes alone, on a layer of their own (transparent or of one colour), but "
                "found photo.png with strokes drawn into it")
        self.save_png("s.png", drawn)
        self.refused_scribbles(line, image="photo.png")
        self.save_png("s.png", np.dstack([drawn, np.full((H, W), 255, np.uint8)]))
        self.refused_scribbles(line, image="photo.png")
        self.save_png("s.png", np.where(self.marks > 0, self.marks, self.grey))
        self.refused_scribbles(line.replace("photo", "image"))
        self.refused_scribbles("expected strokes alone, on a layer of their own (transparent or of one "
                               "colour), but found image.png with strokes drawn into it", "image.png")

    def test_pictures_of_many_colours(self):
        big = self.random.integers(0, 256, (100, 100, 3)).astype(np.uint8)
        self.save_png("big.png", big[::-1])
        self.save_png("s.png", big)
        colours = len(np.unique(big.reshape(-1, 3), axis=0))
        self.refused_scribbles(f"{EXPECTED}has {colours} colours, as photographs have; strokes are of a "
                               "few pure ones, drawn on a layer of their own", image="big.png")

    def test_wrong_sizes_and_damage(self):
        self.save_png("s.png", self.painted()[1:])
        self.refused_scribbles(f"expected {W} x {H} pixels as in image.png, but found {W} x {H - 1} "
                               "pixels")
        self.save_png("s.png", self.painted())
        whole = (self.folder / "s.png").read_bytes()
        (self.folder / "s.png").write_bytes(whole[:-60])
        run = self.run_program("-image", "image.png", "-scribbles", "s.png", "-out", "x.gz")
        self.assertRegex(run.stderr, r"^ERROR: s\.png: expected scribbles [^\n]* ends early: [^\n]*\n$")

    def test_nothing_is_marked(self):
        self.save_png("s.png", self.painted() * 0)
        self.refused_scribbles("expected marked pixels (numbers above 0), but found none")


foreign.main()
