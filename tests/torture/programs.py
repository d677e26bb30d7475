"""The programs that are tortured: how each is called, what it leaves, what it may say.

A new program is one entry of PROGRAMS (in a folder of problem.py, {in}, with results in the
folder that it runs in).
"""

import contextlib
import dataclasses
import os
import re
import shutil
import subprocess
from pathlib import Path

import problem

LIMIT = 30  # seconds that no run takes


@dataclasses.dataclass(frozen=True)
class Program:
    name: str
    arguments: tuple
    results: tuple
    says_saved: bool = True  # of each result, "Saved NAME" or "ERROR saving NAME"
    messages: str = r"ERROR|    "  # how a line on standard error begins
    statuses: tuple = (0, 1)
    quiet: tuple = ()  # statuses beside 0 that need no ERROR line
    drawn: tuple = ()  # results that may lack letters, which Qt leaves out where it has no memory
    overwrites: bool = True  # otherwise it refuses to, and runs where there are no results yet
    slow: bool = False  # of a size of its own; the short form leaves most runs of it out
    binary: str = ""  # the program's file, where it is not the name


PROGRAMS = (
    Program(
        "ratseg",
        ("-image", "{in}/image.png", "-dataterm", "{in}/dataterm.gz", "-proportions",
         "{in}/proportions.txt", "-lambda", "0.5", "-mu", "1", "-iterations", "20", "-outprefix",
         "out"),
        ("out_result_labeling.gz", "out_result_labeling.png", "out_result_labeling_overlaid.png",
         "out_regularizer_weight.png"),
        messages=r"ERROR|    |ratseg: |Shares of the labeling:"),
    Program(
        "ratseg-dataterm",
        ("-image", "{in}/image.png", "-scribbles", "{in}/scribbles.png", "-out", "dataterm.gz",
         "-truth", "{in}/truth.png", "-proportions", "proportions.txt", "-model", "colour",
         "-picture-out", "picture.png"),
        ("dataterm.gz", "proportions.txt", "picture.png"),
        messages=r"ERROR|    |ratseg: |ratseg-dataterm: "),
    Program(
        "models",
        ("-image", "{in}/image.png", "-scribbles", "{in}/scribbles.png", "-out", "both.gz", "-model",
         "both", "-save-model", "kept.model"),
        ("both.gz", "kept.model"), binary="ratseg-dataterm", slow=True,
        messages=r"ERROR|    |ratseg: |ratseg-dataterm: "),
    Program(
        "costs",
        ("-image", "{in}/deep.tif", "-costs", "{in}/costs.npy", "-out", "costs.gz", "-picture-out",
         "deep.png"),
        ("costs.gz", "deep.png"), binary="ratseg-dataterm",
        messages=r"ERROR|    |ratseg: |ratseg-dataterm: "),
    Program(
        "convert",
        ("-convert", "{in}/labeling.gz", "-image", "{in}/image.png", "-out", "labels.tif"),
        ("labels.tif",), binary="ratseg-dataterm",
        messages=r"ERROR|    |ratseg: |ratseg-dataterm: "),
    Program("make_micrograph", (".", "{seed}"), ("image.png", "truth.png", "scribbles.png"),
            says_saved=False, overwrites=False, slow=True),
    Program(
        "compare_labelings",
        ("-truth", "{in}/truth.png", "-scribbles", "{in}/scribbles.png", "-labelings",
         "{in}/labeling.gz", "-names", "it", "-image", "{in}/image.png", "-sheet", "sheet.png"),
        ("sheet.png",), says_saved=False, drawn=("sheet.png",)),
    # The library as README shows it: 3 says that it returned false, 4 that it threw.
    Program("torture_library", (), (), messages=r"ERROR|    |ratseg: |[A-Za-z ]+: ",
            statuses=(0, 3, 4), quiet=(3, 4)),
)


@dataclasses.dataclass
class Run:
    status: int  # negative: the number of the signal that ended it
    out: str
    err: str
    hung: bool = False


class Bench:
    """Two problems, and what each program makes of them: the old results and the new ones."""

    def __init__(self, folder, bin_folder, tools, sizes=((24, 16), (24, 16))):
        """The sizes are those of the old problem's pictures and of the new one's."""
        self.folder = Path(folder)
        self.folder.mkdir(exist_ok=True)
        self.bin = Path(bin_folder).resolve()
        self.tools = Path(tools).resolve()
        self.inputs = {}
        for name, seed, size in zip(("old", "new"), (1, 2), sizes):
            self.inputs[name] = problem.make(self.folder / f"input-{name}", seed, *size)
        self.results = {}

    def path_of(self, program):
        file = program.binary or program.name
        here = self.tools / file
        return here if here.exists() else self.bin / file

    def command(self, program, which="new"):
        values = {"in": str(self.inputs[which]), "seed": {"old": "1"}.get(which, "2")}
        words = [word.format(**values) for word in program.arguments]
        return [str(self.path_of(program)), *words]

    def made(self, program):
        """For each result its bytes of the old problem and of the new one."""
        if program.name not in self.results:
            made = {}
            for which in ("old", "new"):
                folder = self.folder / f"made-{program.name}-{which}"
                folder.mkdir()
                run = self.run(program, folder, which=which)
                if run.status != 0:
                    raise SystemExit(f"ERROR: {program.name} fails untouched: {run}")
                made[which] = {name: (folder / name).read_bytes() for name in program.results}
            self.results[program.name] = {name: (made["old"][name], made["new"][name])
                                          for name in program.results}
        return self.results[program.name]

    def versions(self, program):
        """For each result its bytes before a run, None for no file, and after it."""
        return {name: (old if program.overwrites else None, new)
                for name, (old, new) in self.made(program).items()}

    def fill(self, program, folder):
        """Puts the old results into a folder."""
        for name, (old, _) in self.versions(program).items():
            if old is not None:
                (Path(folder) / name).write_bytes(old)

    @contextlib.contextmanager
    def fresh(self, program, label):
        """A new folder with the old results in it, for a while."""
        folder = self.folder / "runs" / label
        folder.mkdir(parents=True)
        try:
            self.fill(program, folder)
            yield folder
        finally:
            shutil.rmtree(folder, ignore_errors=True)

    def environment(self, program, torture):
        values = {name: value for name, value in os.environ.items()
                  if not name.startswith(("RATSEG_", "TORTURE_", "OMP_"))}
        values |= {"RATSEG_DEVICE": "host", "OMP_NUM_THREADS": "2", "OMP_WAIT_POLICY": "passive"}
        if torture:
            values |= {f"TORTURE_{k.upper()}": str(v) for k, v in torture.items()}
            values["LD_PRELOAD"] = str(self.tools / "libtorture_failing_calls.so")
        return values

    def start(self, program, folder, torture=None, which="new", prefix=(), **more):
        return subprocess.Popen([*prefix, *self.command(program, which)], cwd=folder,
                                stdin=subprocess.DEVNULL,
                                env=self.environment(program, torture),
                                **({"stdout": subprocess.PIPE, "stderr": subprocess.PIPE} | more))

    def run(self, program, folder, torture=None, which="new", prefix=(), limit=LIMIT, **more):
        return finish(self.start(program, folder, torture, which, prefix, **more), limit)


def finish(process, limit=LIMIT):
    """Waits for a process, not for ever."""
    hung = False
    try:
        out, err = process.communicate(timeout=limit)
    except subprocess.TimeoutExpired:
        hung = True
        process.kill()
        out, err = process.communicate()
    decode = lambda text: (text or b"").decode(errors="replace")
    return Run(process.returncode, decode(out), decode(err), hung)


def foreign_lines(program, err):
    """What no line of the program's own says on standard error."""
    return [line for line in err.splitlines() if line and not re.match(program.messages, line)]
