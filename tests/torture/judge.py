"""What a run did wrong. A fault is a pair: its kind, for the summary, and what was seen."""

import re
import signal
import struct
import zlib
from pathlib import Path

from programs import foreign_lines


def whole_files(program, folder, versions):
    """Each result is there and is the old or the new one, to the byte. Which ones are new."""
    faults, new = [], set()
    for name in program.results:
        old_bytes, new_bytes = versions[name]
        try:
            found = (Path(folder) / name).read_bytes()
        except OSError:
            if old_bytes is not None:
                faults.append(("result lost", name))
            continue
        if found == new_bytes or (name in program.drawn and found != old_bytes and
                                  is_whole_png(found)):
            new.add(name)
        elif found != old_bytes:
            faults.append(("result torn", f"{name}: {len(found)} bytes, neither the "
                           f"{len(old_bytes or b'')} of before nor the {len(new_bytes)} of now"))
    return faults, new


def leftovers(program, folder, others=()):
    known = {*program.results, *others}
    return sorted(p.name for p in Path(folder).iterdir() if p.name not in known)


def leftover_faults(program, folder, others=()):
    left = leftovers(program, folder, others)
    return [("leftover", f"{len(left)}: {', '.join(left[:3])}")] if left else []


def is_whole_png(data):
    """Its chunks have their checksums, its pixels their number, and it ends with its end."""
    try:
        if data[:8] != b"\x89PNG\r\n\x1a\n" or data[12:16] != b"IHDR":
            return False
        width, height, bits, colour = struct.unpack(">IIBB", data[16:26])
        channels = {0: 1, 2: 3, 3: 1, 4: 2, 6: 4}[colour]
        at, kind, pixels = 8, b"", b""
        while kind != b"IEND":
            length, kind = struct.unpack(">I4s", data[at:at + 8])
            content = data[at + 4:at + 8 + length]
            if zlib.crc32(content) != struct.unpack(">I", data[at + 8 + length:at + 12 + length])[0]:
                return False
            pixels += content[4:] if kind == b"IDAT" else b""
            at += 12 + length
        row = 1 + (width * bits * channels + 7) // 8
        return at == len(data) and len(zlib.decompress(pixels)) == height * row
    except (struct.error, KeyError, zlib.error):
        return False


# A device's call that failed, as the program says it.
FAILED_CALL = re.compile(r"^src/[\w/.]+, line \d+: .+ \(\d+\)$", re.M)


def has_error_line(run):
    return (re.search(r"^ERROR", run.out, re.M) or re.search(r"^ERROR", run.err, re.M) or
            FAILED_CALL.search(run.out))


def named(run, start, name):
    return re.search(rf"^{start} {re.escape(name)}( |$)", run.out, re.M) is not None


def reports(program, run, new):
    """What the run says of its results is so."""
    faults = []
    for name in program.results:
        saved = program.says_saved and named(run, "Saved", name)
        if saved and name not in new:
            faults.append(("Saved, but is not", name))
        if run.status != 0 or saved or (not program.says_saved and name in new):
            continue
        if not (program.says_saved and named(run, "ERROR saving", name)):
            faults.append(("status 0, result not saved, no line", name))
    return faults


def ending(program, run):
    if run.hung:
        return [("hang", "no end")]
    if run.status < 0:
        kind = f"died of {signal.Signals(-run.status).name}"
        last = run.err.strip().splitlines()[-1:] or [""]
        return [(kind + (" after an ERROR line" if has_error_line(run) else ""), last[0])]
    faults = []
    if run.status not in program.statuses and not (run.status == 1 and FAILED_CALL.search(run.out)):
        faults.append((f"status {run.status}", run.err.strip()[-200:]))
    elif run.status != 0 and run.status not in program.quiet and not has_error_line(run):
        faults.append(("no ERROR line", (run.err.strip() or "nothing was said")[-200:]))
    return faults


# How libraries say that they end a process for lack of memory, or go on without it.
LIBRARIES = re.compile(r"libgomp: |libpng (warning|error): |Fatal glibc error: |GLib |.*GLib-ERROR|qt\.|"
                       r"Could not allocate dispatch index array")


def ended_in_library(program, run, faults):
    """Whether the faults are those of a library that ended the process, or spoke, for lack of
    memory: nothing is torn or left, and a line says it, the program's own or the library's."""
    lines = foreign_lines(program, run.err)
    said = bool(has_error_line(run)) or any(map(LIBRARIES.match, run.err.splitlines()))
    ends = re.compile(r"died of SIG(SEGV|ABRT|TRAP)|foreign line|no ERROR line|status 1$")
    return said and all(ends.match(kind) for kind, _ in faults) and all(
        LIBRARIES.match(line) for line in lines if run.status >= 0)


def judge(program, folder, versions, run, others=()):
    """The faults of a run that was to end by itself."""
    faults, new = whole_files(program, folder, versions)
    faults += ending(program, run)
    if not run.hung and run.status >= 0:
        faults += reports(program, run, new)
    faults += leftover_faults(program, folder, others)
    if run.status >= 0:
        faults += [("foreign line", line) for line in foreign_lines(program, run.err)[:1]]
    return faults


def last_words(run, signal_number, may_be_mute):
    """A run that a signal ended says so in one line, the last, and is right about its results."""
    lines = re.findall(r"^ERROR: ended by signal .*$", run.err, re.M)
    if may_be_mute and not run.out and not run.err:
        return []
    begin = f"ERROR: ended by signal {int(signal_number)} "
    if len(lines) != 1 or not run.err.endswith(lines[0] + "\n") or not lines[0].startswith(begin):
        return [("no line of the signal", (run.err or "nothing was said")[-200:])]
    return []


def judge_killed(program, folder, versions, run, signal_number, may_be_mute=False):
    """The faults of a run that a signal was sent to; it may have ended before. may_be_mute: the
    signal may have come before main()."""
    faults, new = whole_files(program, folder, versions)
    if run.status < 0 and signal_number != signal.SIGKILL:
        faults += last_words(run, signal_number, may_be_mute)
        changed = {name for name in program.results if versions[name][0] != versions[name][1]}
        saved = sorted(new & changed)
        if saved and "; no result file was saved" in run.err:
            faults.append(("a result was saved, but the last line denies it", str(saved)))
        if 0 < len(saved) < len(changed):
            faults.append(("results of two runs", str(saved)))
    if run.hung:
        faults.append(("hang", f"after signal {signal_number}"))
    if run.status < 0 and -run.status != signal_number:
        faults.append((f"died of {signal.Signals(-run.status).name}", "which nobody sent"))
    for name in program.results:
        if program.says_saved and named(run, "Saved", name) and name not in new:
            faults.append(("Saved, but is not", name))
    if signal_number != signal.SIGKILL:
        faults += leftover_faults(program, folder)
    return faults
