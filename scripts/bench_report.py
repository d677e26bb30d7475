#!/usr/bin/env python3
"""bench_report.py BUILD WORK [WxHxN...]: runs the benchmarks and prints a section of Markdown.

BUILD is the folder of the built presets "release" and "scalar", WORK an empty folder for the files
of the whole-program run. Sizes beyond the default ones are measured too. Figures of one call belong together: the
machine's limit is measured in the same run.
"""
import datetime
import json
import os
import re
import resource
import statistics
import subprocess
import sys

import zlib_floor

WHOLE = "2048x2048x8"
WHOLE_PIXEL_LABELS = 2048 * 2048 * 8
WHOLE_ITERATIONS = 100
WHOLE_RUNS = 5
MIB = 1 << 20


def run(command, threads=None, cwd=None):
    environment = dict(os.environ)
    if threads:
        environment["OMP_NUM_THREADS"] = str(threads)
    done = subprocess.run(command, cwd=cwd, env=environment, capture_output=True, text=True)
    if done.returncode != 0:
        sys.exit(f"ERROR: this failed: {' '.join(command)}\n{done.stdout}{done.stderr}")
    return done


def measure(binaries, work, threads, arguments):
    file = os.path.join(work, "bench.json")
    run([f"{binaries}/ratseg_bench", "--json", file, *arguments], threads)
    with open(file, encoding="ascii") as stream:
        return json.load(stream)


def size_name(result):
    if result["w"] == result["h"]:
        return f"{result['w']}² x {result['n']}"
    return f"{result['w']} x {result['h']} x {result['n']}"


def iteration_table(measured):
    yield ("| size | engine | M pli/s (least to greatest) | us per iteration | GB/s | "
           "limit meanwhile, GB/s | ratio | over the plain loop |")
    yield "|---|---|---|---|---|---|---|---|"
    for r in measured["results"]:
        work = r["w"] * r["h"] * r["n"]
        rate, least, most = (work / r[k] / 1e6
                             for k in ("seconds", "seconds_greatest", "seconds_least"))
        limit, low, high = (r[k] / 1e9 for k in ("limit_bytes_per_second", "limit_least",
                                                 "limit_greatest"))
        peer = f"{r['peer_seconds'] / r['seconds']:.2f}" if r["peer_seconds"] else "-"
        yield (f"| {size_name(r)} | {r['engine']} | {rate:.0f} ({least:.0f} to {most:.0f}) | "
               f"{r['seconds'] * 1e6:.0f} | {rate * 36e-3:.1f} | "
               f"{limit:.1f} ({low:.1f} to {high:.1f}) | {r['ratio_to_limit']:.2f} | {peer} |")


def ratio_table(one, scalar, all_threads):
    """Each size's fastest engine with all threads over one thread, and over the plain one."""
    yield ("| size | all threads / one thread | all threads / plain engine on one thread | "
           "the same without vectors | a check of the certified stop: iterations |")
    yield "|---|---|---|---|---|"
    rate = {(size_name(r), r["engine"], k): r["pli_per_second"]
            for k, m in (("one", one), ("scalar", scalar), ("all", all_threads))
            for r in m["results"]}
    for r in all_threads["results"]:
        if r["engine"] == "plain":
            continue
        size, fastest = size_name(r), r["pli_per_second"]
        yield (f"| {size} | {fastest / rate[size, r['engine'], 'one']:.2f} | "
               f"{fastest / rate[size, 'plain', 'one']:.1f} | "
               f"{fastest / rate[size, 'plain', 'scalar']:.1f} | "
               f"{r['seconds_per_check'] / r['seconds']:.1f} |")


def whole_program(binaries, work):
    run([f"{binaries}/make_problem", work, WHOLE])
    runs = []
    for _ in range(WHOLE_RUNS):
        done = run([f"{binaries}/ratseg", "-image", "image.ppm", "-dataterm", "dataterm.gz",
                    "-proportions", "proportions.txt", "-lambda", "5", "-mu", "500",
                    "-iterations", str(WHOLE_ITERATIONS), "-timing", "1"], cwd=work)
        stages = re.findall(r"^ *([\d.]+)  (.*)$", done.stderr, re.MULTILINE)
        runs.append({name: float(text) for text, name in stages})
        runs[-1]["*outside the iteration*"] = runs[-1]["in all"] - runs[-1]["iteration"]
    results = [os.path.join(work, f) for f in sorted(os.listdir(work))
               if f.startswith("out_") and f.endswith((".gz", ".png"))]
    zlib = [zlib_floor.measure(os.path.join(work, "dataterm.gz"), results) for _ in range(3)]
    inflating, deflating = (statistics.median(column) for column in zip(*zlib))
    yield f"Whole program, {WHOLE}, {WHOLE_ITERATIONS} iterations, {WHOLE_RUNS} runs:"
    yield ""
    yield "| stage | seconds, median (least to greatest) |"
    yield "|---|---|"
    for name in runs[0]:
        seconds = [r[name] for r in runs]
        yield (f"| {name} | {statistics.median(seconds):.3f} "
               f"({min(seconds):.3f} to {max(seconds):.3f}) |")
    yield (f"| *zlib alone: inflating the data term, deflating the results* | {inflating:.3f} + "
           f"{deflating:.3f} |")
    yield ""
    ratios = [r["*outside the iteration*"] / (inflating + deflating) for r in runs]
    yield (f"Outside the iteration over zlib alone: {statistics.median(ratios):.2f} "
           f"({min(ratios):.2f} to {max(ratios):.2f}).")


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


def main(build, work, *more_sizes):
    release = f"{build}/release/bin"
    whole = list(whole_program(release, work))
    memory = peak_memory()  # before larger problems run
    threads = len(os.sched_getaffinity(0))
    sizes = ["64x64x3", "512x512x5", "1024x1024x8", "2048x2048x8", "1024x1024x64", "4096x4096x4",
             *more_sizes]
    all_threads = measure(release, work, threads, sizes)
    one = measure(release, work, 1, sizes)
    scalar = measure(f"{build}/scalar/bin", work, 1, ["-engine", "plain", *sizes])
    print(f"### {datetime.date.today()}, {all_threads['device']}, {threads} threads, {processor()}\n")
    print("Solver, plain loop (`bench/peers/`) and memory took turns.\n")
    print(*iteration_table(all_threads), "", "One thread:", "", *iteration_table(one), "", sep="\n")
    print(*ratio_table(one, scalar, all_threads), "", sep="\n")
    print(*whole, "", memory, sep="\n")


main(*sys.argv[1:])
