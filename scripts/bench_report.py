#!/usr/bin/env python3
"""bench_report.py BIN WORK [WxHxN...]: runs the benchmarks and prints a section of Markdown.

BIN is the folder of the built programs, WORK an empty folder for the files of the whole-program
run. Sizes beyond the default ones are measured too. Figures of one call belong together: the
machine's limit is measured in the same run.
"""
import datetime
import json
import os
import re
import resource
import subprocess
import sys

import zlib_floor

WHOLE = "2048x2048x8"
WHOLE_PIXEL_LABELS = 2048 * 2048 * 8
WHOLE_ITERATIONS = 100
MIB = 1 << 20


def run(command, threads=None, cwd=None):
    environment = dict(os.environ, OMP_WAIT_POLICY="passive")
    if threads:
        environment["OMP_NUM_THREADS"] = str(threads)
    done = subprocess.run(command, cwd=cwd, env=environment, capture_output=True, text=True)
    if done.returncode != 0:
        sys.exit(f"ERROR: this failed: {' '.join(command)}\n{done.stdout}{done.stderr}")
    return done


def measure(binaries, work, sizes, threads):
    file = os.path.join(work, f"bench{threads}.json")
    run([f"{binaries}/ratseg_bench", "--json", file, *sizes], threads)
    with open(file, encoding="ascii") as stream:
        return json.load(stream)


def size_name(result):
    if result["w"] == result["h"]:
        return f"{result['w']}² x {result['n']}"
    return f"{result['w']} x {result['h']} x {result['n']}"


def iteration_table(measured, limit):
    yield "| size | engine | M pli/s (least to greatest) | us per iteration | GB/s | ratio |"
    yield "|---|---|---|---|---|---|"
    for r in measured["results"]:
        work = r["w"] * r["h"] * r["n"]
        rate, least, most = (work / r[k] / 1e6
                             for k in ("seconds", "seconds_greatest", "seconds_least"))
        yield (f"| {size_name(r)} | {r['engine']} | {rate:.0f} ({least:.0f} to {most:.0f}) | "
               f"{r['seconds'] * 1e6:.0f} | {rate * 36e-3:.1f} | {rate * 36e6 / limit:.2f} |")


def ratio_table(one, all_threads):
    """Each size's fastest engine with all threads over one thread, and over the plain one."""
    yield "| size | all threads / one thread | all threads / plain engine on one thread |"
    yield "|---|---|---|"
    rate = {(size_name(r), r["engine"], k): r["pli_per_second"]
            for k, m in (("one", one), ("all", all_threads)) for r in m["results"]}
    for size, engine, threads in rate:
        if threads == "all" and engine != "plain":
            fastest = rate[size, engine, "all"]
            yield (f"| {size} | {fastest / rate[size, engine, 'one']:.2f} | "
                   f"{fastest / rate[size, 'plain', 'one']:.1f} |")


def whole_program(binaries, work):
    run([f"{binaries}/make_problem", work, WHOLE])
    done = run([f"{binaries}/ratseg", "-image", "image.ppm", "-dataterm", "dataterm.gz",
                "-proportions", "proportions.txt", "-lambda", "5", "-mu", "500",
                "-iterations", str(WHOLE_ITERATIONS), "-timing", "1"], cwd=work)
    stages = re.findall(r"^ *([\d.]+)  (.*)$", done.stderr, re.MULTILINE)
    seconds = {name: float(text) for text, name in stages}
    results = [os.path.join(work, f) for f in sorted(os.listdir(work))
               if f.startswith("out_") and f.endswith((".gz", ".png"))]
    inflating, deflating = zlib_floor.measure(os.path.join(work, "dataterm.gz"), results)
    outside = seconds["in all"] - seconds["iteration"]
    yield f"Whole program, {WHOLE}, {WHOLE_ITERATIONS} iterations:"
    yield ""
    yield "| stage | seconds |"
    yield "|---|---|"
    for text, name in stages:
        yield f"| {name} | {text} |"
    yield (f"| *outside the iteration* | {outside:.3f} |")
    yield (f"| *zlib alone: inflating the data term, deflating the results* | {inflating:.3f} + "
           f"{deflating:.3f} |")
    yield ""
    yield f"Outside the iteration over zlib alone: {outside / (inflating + deflating):.2f}."


def peak_memory():
    """Of the largest child so far; call it when the whole-program run is that."""
    peak = resource.getrusage(resource.RUSAGE_CHILDREN).ru_maxrss * 1024
    return (f"Peak memory of a run at {WHOLE}: {peak / MIB:.0f} MiB, "
            f"{peak / WHOLE_PIXEL_LABELS:.1f} bytes per pixel and label. The floor is 20 (labeling, "
            f"its extrapolation, two dual components, data term), or {20 * WHOLE_PIXEL_LABELS / MIB:.0f}"
            " MiB, and what is kept per pixel.")


def processor():
    with open("/proc/cpuinfo", encoding="ascii", errors="replace") as stream:
        names = re.findall(r"^model name\s*: (.*)$", stream.read(), re.MULTILINE)
    return names[0] if names else "unknown processor"


def main(binaries, work, *more_sizes):
    whole = list(whole_program(binaries, work))
    memory = peak_memory()  # before larger problems run
    threads = len(os.sched_getaffinity(0))
    sizes = ["64x64x3", "512x512x5", "1024x1024x8", "2048x2048x8", "1024x1024x64", "4096x4096x4",
             *more_sizes]
    all_threads = measure(binaries, work, sizes, threads)
    one = measure(binaries, work, sizes, 1)
    limit = all_threads["limit_bytes_per_second"]
    print(f"### {datetime.date.today()}, {all_threads['device']}, {threads} threads, {processor()}\n")
    print(f"Limit {limit * 1e-9:.1f} GB/s, with one thread "
          f"{one['limit_bytes_per_second'] * 1e-9:.1f} GB/s.\n")
    print(*iteration_table(all_threads, limit), "", sep="\n")
    print(*ratio_table(one, all_threads), "", sep="\n")
    print(*whole, "", memory, sep="\n")


main(*sys.argv[1:])
