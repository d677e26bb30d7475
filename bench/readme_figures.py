#!/usr/bin/env python3
"""Measures what README says of the accelerated iteration and of videos, on made-up pictures.

Usage: readme_figures.py --bin FOLDER     (the folder of ratseg; needs numpy)
Prints Markdown for docs/benchmarks.md. The pictures come from fixed seeds; the figures do not
depend on the machine but for the last digits.
"""

import argparse
import gzip
import pathlib
import re
import struct
import subprocess
import tempfile

import numpy as np


def smooth_noise(random, h, w, width):
    """White noise behind a periodic Gaussian filter, scaled to a deviation of 1."""
    y, x = np.fft.fftfreq(h)[:, None], np.fft.fftfreq(w)[None, :]
    gain = np.exp(-2 * (np.pi * width) ** 2 * (x * x + y * y))
    field = np.fft.ifft2(np.fft.fft2(random.standard_normal((h, w))) * gain).real
    return field / field.std()


def with_shares(field, shares):
    """Labels 0, 1, ... by increasing value of the field, with these shares of the pixels."""
    return np.searchsorted(np.quantile(field, np.cumsum(shares)[:-1]), field).astype(np.int32)


class Ratseg:
    def __init__(self, program, folder):
        self.program, self.folder = str(program), folder

    def run(self, image, costs, shares, *options, mu=500):
        """The labeling, and the iterations that it took."""
        h, w = image.shape
        (self.folder / "image.pgm").write_bytes(
            b"P5 %d %d 255\n" % (w, h) + np.clip(image, 0, 255).astype(np.uint8).tobytes())
        with gzip.open(self.folder / "costs.gz", "wb", 1) as file:
            file.write(struct.pack("<Q", costs.size) + costs.astype("<f4").tobytes())
        np.savetxt(self.folder / "proportions.txt", shares)
        prefix = self.folder / "out"
        done = subprocess.run(
            [self.program, "-image", self.folder / "image.pgm", "-dataterm",
             self.folder / "costs.gz", "-proportions", self.folder / "proportions.txt",
             "-outprefix", prefix, "-lambda", "2", "-mu", str(mu), *options],
            check=True, capture_output=True, text=True)
        stopped = re.search(r"Stopped after (\d+) iterations", done.stderr)
        with gzip.open(f"{prefix}_result_labeling.gz") as file:
            labels = np.frombuffer(file.read()[8:], "<i4").reshape(h, w)
        return labels, int(stopped[1]) if stopped else None


def costs_of(image, greys, deviation):
    """The negative logarithm of Gaussian noise around each label's grey, at most 10."""
    return np.minimum([(image - grey) ** 2 / (2 * deviation ** 2) for grey in greys], 10)


def accelerated(program, folder):
    random = np.random.default_rng(1)
    shares = [0.35, 0.1, 0.15, 0.4]
    truth = with_shares(smooth_noise(random, 300, 400, 6), shares)
    greys, deviation = np.array([60, 110, 150, 200]), 45
    image = greys[truth] + deviation * random.standard_normal(truth.shape)
    costs = costs_of(image, greys, deviation)
    means = np.array(shares[:-1]) / sum(shares[:-1])
    wished = np.c_[means, np.full(3, 0.02)]
    ratseg = Ratseg(program, folder)
    ordinary, _ = ratseg.run(image, costs, wished, "-iterations", "5000")
    print("| run | iterations | other labels than 5000 ordinary iterations | accuracy |\n"
          "|---|---|---|---|")
    print(f"| ordinary | 5000 | - | {np.mean(ordinary == truth):.4f} |")
    for tolerance in ("1e-3", "1e-4", "1e-5"):
        labels, steps = ratseg.run(image, costs, wished, "-accelerate", "1", "-tolerance",
                                   tolerance, "-iterations", "20000")
        print(f"| accelerated, {tolerance} | {steps} | {100 * np.mean(labels != ordinary):.2f} % "
              f"| {np.mean(labels == truth):.4f} |")


def video(program, folder):
    frames = 12
    ratseg = Ratseg(program, folder)
    rows = {}
    greys, deviation = np.array([90, 130, 200]), 40
    for spread in (0.02, 0.05, 0.1, None):
        random = np.random.default_rng(2)
        field = smooth_noise(random, 240, 320, 8)
        before, found, true = None, [], []
        for k in range(frames):
            share = 0.129 + 0.005 * k
            truth = with_shares(field, [0.6 * (1 - share), 0.6 * share, 0.4])
            image = greys[truth] + deviation * random.standard_normal(truth.shape)
            mean = share if before is None else before
            wished = [[1 - mean, spread or 1], [mean, spread or 1]]
            labels, _ = ratseg.run(image, costs_of(image, greys, deviation), wished, "-tolerance",
                                   "1e-4", "-accelerate", "1", mu=500 if spread else 0)
            before = np.sum(labels == 1) / np.sum(labels < 2)
            found.append(before)
            true.append(share)
        rows[spread] = found[-1], np.mean(np.abs(np.array(found) - true))
    print(f"\n| spread | share of label 1 in the last frame (true: {true[-1]:.3f}) "
          "| mean distance to the truth |\n|---|---|---|")
    for spread, (last, distance) in rows.items():
        print(f"| {spread or 'without the prior'} | {last:.3f} | {distance:.3f} |")


def main():
    parser = argparse.ArgumentParser(description=__doc__.split("\n")[0])
    parser.add_argument("--bin", required=True, type=pathlib.Path)
    program = parser.parse_args().bin / "ratseg"
    with tempfile.TemporaryDirectory(prefix="ratseg-figures-") as folder:
        accelerated(program, pathlib.Path(folder))
        video(program, pathlib.Path(folder))


if __name__ == "__main__":
    main()
