"""Small problems for the programs, made without them: pictures, data terms, shares."""

import gzip
import random
import struct
import zlib
from pathlib import Path


def png(width, height, colour_type, rows):
    """A PNG of 8 bits per channel; rows without filter bytes. Colour type 0 is grey, 2 colour."""

    def chunk(name, data):
        checksum = zlib.crc32(name + data)
        return struct.pack(">I", len(data)) + name + data + struct.pack(">I", checksum)

    header = struct.pack(">IIBBBBB", width, height, 8, colour_type, 0, 0, 0)
    filtered = b"".join(b"\0" + row for row in rows)
    return (b"\x89PNG\r\n\x1a\n" + chunk(b"IHDR", header) +
            chunk(b"IDAT", zlib.compress(filtered)) + chunk(b"IEND", b""))


def packed_array(code, values):
    numbers = struct.pack(f"<Q{len(values)}{code}", len(values), *values)
    return gzip.compress(numbers, mtime=0)


def tiff16(width, height, values):
    """A TIFF of 16-bit grey values in one strip."""
    tags = ((256, 3, width), (257, 3, height), (258, 3, 16), (259, 3, 1), (262, 3, 1), (273, 4, 8),
            (277, 3, 1), (278, 3, height), (279, 4, 2 * len(values)))
    pixels = struct.pack(f"<{len(values)}H", *values)
    directory = struct.pack("<H", len(tags)) + b"".join(
        struct.pack("<HHII", number, kind, 1, value) for number, kind, value in tags)
    return b"II*\0" + struct.pack("<I", 8 + len(pixels)) + pixels + directory + bytes(4)


def npy(shape, values):
    """A file of numpy.save with 32-bit floats."""
    text = f"{{'descr': '<f4', 'fortran_order': False, 'shape': {shape}, }}\n".encode()
    return (b"\x93NUMPY\x01\0" + struct.pack("<H", len(text)) + text +
            struct.pack(f"<{len(values)}f", *values))


def make(folder, seed, width=24, height=16, labels=3):
    """Writes pictures (image.png, deep.tif, truth.png, scribbles.png), costs (dataterm.gz, costs.npy),
    labeling.gz and proportions.txt."""
    folder = Path(folder)
    folder.mkdir(parents=True)
    chance = random.Random(seed)
    turned = seed % labels
    truth = [[(x * labels // width + turned + (y * 2 // height)) % labels for x in range(width)]
             for y in range(height)]
    grey = [[60 * truth[y][x] + chance.randrange(60) for x in range(width)] for y in range(height)]
    image = [bytes(v for g in row for v in (g, 255 - g, g // 2)) for row in grey]
    marks = [bytes(t + 1 if chance.random() < 0.3 else 0 for t in row) for row in truth]
    (folder / "image.png").write_bytes(png(width, height, 2, image))
    (folder / "truth.png").write_bytes(png(width, height, 0, [bytes(row) for row in truth]))
    (folder / "scribbles.png").write_bytes(png(width, height, 0, marks))
    costs = [chance.random() * 4 + (0 if truth[y][x] == i else 3)
             for i in range(labels) for y in range(height) for x in range(width)]
    (folder / "costs.npy").write_bytes(npy((labels, height, width), costs))
    (folder / "deep.tif").write_bytes(tiff16(width, height, [16 * g for row in grey for g in row]))
    (folder / "dataterm.gz").write_bytes(packed_array("f", costs))
    flat = [t for row in truth for t in row]
    (folder / "labeling.gz").write_bytes(packed_array("i", flat))
    share = 1 / (labels - 1)
    (folder / "proportions.txt").write_text(f"{share:.6f} 0.1\n" * (labels - 1))
    return folder
