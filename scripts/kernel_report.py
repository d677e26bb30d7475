#!/usr/bin/env python3
"""scripts/kernel_report.py [sm_XX...]: compiles the CUDA files for each architecture with all warnings
as errors and prints what every kernel takes, as the table of docs/benchmarks.md: registers, and where
they are not 0 bytes of spills, of stack and of static shared memory. Needs nvcc, no GPU. Without names
the architectures are sm_75, sm_80, sm_90, sm_100 and sm_120."""

import concurrent.futures
import pathlib
import re
import shutil
import subprocess
import sys
import tempfile

ROOT = pathlib.Path(__file__).resolve().parent.parent
FLAGS = ["-std=c++20", "-O3", "-DNDEBUG", "-DRATSEG_WITH_CUDA=1", f"-I{ROOT}/src",
         "-Xcompiler=-Wall,-Wextra,-ffp-contract=off", "--Werror=all-warnings", "-Xptxas=-v"]
FLAGS_OF_FILE = {"strip_launch_cuda.cu": ["-ftz=true"]}  # as in its folder's CMakeLists.txt


def kernel_name(mangled):
    """The kernel's own name with its template arguments, out of a mangled one."""
    at = mangled.find("6kernel")
    length = re.match(r"(\d+)", mangled[at + 7:])
    begin = at + 7 + length.end()
    end = begin + int(length.group(1))
    arguments = ""
    if mangled[end:end + 1] == "I":
        found = re.match(r"I((?:Li\d+E|[fd])+)E", mangled[end:])
        parts = re.findall(r"Li(\d+)E|([fd])", found.group(1))
        names = {"f": "float", "d": "double"}
        arguments = "<" + ", ".join(n or names[t] for n, t in parts) + ">"
    return mangled[begin:end] + arguments


def compile_file(source, arch):
    """What ptxas says of each kernel of a file: name -> (registers, spills, stack, shared)."""
    with tempfile.TemporaryDirectory() as folder:
        done = subprocess.run(["nvcc", *FLAGS, *FLAGS_OF_FILE.get(source.name, []), f"-arch={arch}", "-c", str(source), "-o",
                               f"{folder}/object.o"], capture_output=True, text=True)
    if done.returncode != 0:
        sys.exit(f"ERROR: {source.name} does not compile for {arch}:\n{done.stdout}{done.stderr}")
    kernels, name, spills, stack = {}, None, 0, 0
    for line in done.stderr.splitlines():
        if found := re.search(r"Compiling entry function '(\S+)'", line):
            name = kernel_name(found.group(1))
        if found := re.search(r"(\d+) bytes stack frame, (\d+) bytes spill stores, (\d+) bytes", line):
            stack, spills = int(found.group(1)), int(found.group(2)) + int(found.group(3))
        if name and (found := re.search(r"Used (\d+) registers", line)):
            shared = re.search(r"(\d+) bytes smem", line)
            kernels[name] = (int(found.group(1)), spills, stack, int(shared.group(1)) if shared else 0)
            name = None
    return kernels


def cell(values):
    if values is None:
        return ""
    registers, spills, stack, shared = values
    extras = [f"{size} {what}" for size, what in
              ((spills, "**spilled**"), (stack, "stack"), (shared, "shared")) if size]
    return str(registers) + (f" ({', '.join(extras)})" if extras else "")


def main():
    architectures = sys.argv[1:] or ["sm_75", "sm_80", "sm_90", "sm_100", "sm_120"]
    for name in architectures:
        if not re.fullmatch(r"sm_\d+[af]?", name):
            sys.exit(f'ERROR: expected architectures such as sm_90, but found "{name}"')
    if shutil.which("nvcc") is None:
        sys.exit("ERROR: nvcc, the CUDA toolkit's compiler, is not in PATH")
    sources = sorted(ROOT.glob("src/**/*_cuda.cu"))
    with concurrent.futures.ThreadPoolExecutor(2) as pool:
        jobs = {(s, a): pool.submit(compile_file, s, a) for s in sources for a in architectures}
        results = {key: job.result() for key, job in jobs.items()}
    print("| kernel | " + " | ".join(architectures) + " |")
    print("|---" * (len(architectures) + 1) + "|")
    number = lambda name: [int(x) if x.isdigit() else x for x in re.split(r"(\d+)", name)]
    for source in sources:
        names = {name for a in architectures for name in results[source, a]}
        for name in sorted(names, key=number):
            cells = [cell(results[source, a].get(name)) for a in architectures]
            print(f"| `{name}` | " + " | ".join(cells) + " |")
    spilled = any(v[1] for kernels in results.values() for v in kernels.values())
    return 1 if spilled else 0


if __name__ == "__main__":
    sys.exit(main())
