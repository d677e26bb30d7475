"""The seconds that zlib alone takes for the files of a run.

Inflates the data term and deflates what the results (.gz and .png files) hold, at the levels
that they were written with, each as one piece of memory.
"""
import struct
import time
import zlib

GZIP = 31  # window bits of a gzip stream
LEVEL_OF_GZ = 9
LEVEL_OF_PNG = zlib.Z_DEFAULT_COMPRESSION


def read(file):
    with open(file, "rb") as stream:
        return stream.read()


def png_scan_lines(data):
    """The filtered scan lines of a PNG file, as they went into its deflate stream."""
    assert data[:8] == b"\x89PNG\r\n\x1a\n"
    at, packed = 8, b""
    while at < len(data):
        length, kind = struct.unpack(">I4s", data[at:at + 8])
        if kind == b"IDAT":
            packed += data[at + 8:at + 8 + length]
        at += 12 + length
    return zlib.decompress(packed)


def seconds(work):
    start = time.perf_counter()
    work()
    return time.perf_counter() - start


def measure(dataterm, results):
    """Seconds for inflating the data term and for deflating the results."""
    packed = read(dataterm)
    inflating = seconds(lambda: zlib.decompress(packed, GZIP))
    deflating = 0
    for file in results:
        if file.endswith(".gz"):
            content, level = zlib.decompress(read(file), GZIP), LEVEL_OF_GZ
        else:
            content, level = png_scan_lines(read(file)), LEVEL_OF_PNG
        deflating += seconds(lambda: zlib.compress(content, level))
    return inflating, deflating
