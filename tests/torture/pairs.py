"""Two runs with the same results at the same time: the files are all of one of them."""

from programs import finish
from judge import has_error_line, leftover_faults


def faults_of(bench, program, folder, runs):
    versions = bench.made(program)
    faults = leftover_faults(program, folder)
    owners = {}
    for name in program.results:
        try:
            found = (folder / name).read_bytes()
        except OSError:
            faults.append(("result lost", name))
            continue
        owners[name] = [k for k in (0, 1) if found == versions[name][k]]
        if not owners[name]:
            faults.append(("result torn", name))
    if all(owners.values()) and not any(all(k in found for found in owners.values())
                                        for k in (0, 1)):
        faults.append(("results of two runs", str(owners)))
    for run in runs:
        if run.hung:
            faults.append(("hang", "no end"))
        elif run.status != 0 and not has_error_line(run):
            faults.append(("no ERROR line", f"status {run.status}: {run.err.strip()[-200:]}"))
    return faults


def stage(bench, report, options):
    def attempt(task):
        program, k = task
        with bench.fresh(program, f"{program.name}-pair-{k}") as folder:
            both = [bench.start(program, folder, which=which) for which in ("old", "new")]
            faults = faults_of(bench, program, folder, [finish(process) for process in both])
        report.add((program.name, "pair", "-"), faults,
                   f"pairs --program {program.name} (of {options.pairs} pairs, number {k})")

    report.each(attempt, [(program, k) for program in options.programs
                          if len(program.results) > 1 for k in range(options.pairs)])
