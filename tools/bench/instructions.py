#!/usr/bin/python3
"""Counts the instructions of the guard program's workloads (bench/guard).

usage: instructions.py guard [--update] record.tsv program
       instructions.py target plugin.so record.tsv name=program...

`guard` counts on the host with callgrind and fails when a workload takes 5 % more instructions than
the record says; --update writes the record anew. `target` counts builds for 32-bit ARM under
qemu-arm and prints instructions for each unit of work, beside the host's from the record.
"""
import pathlib
import re
import subprocess
import sys
import tempfile

TOLERANCE = 1.05
QEMU = ["qemu-arm", "-cpu", "cortex-a7", "-L", "/usr/arm-linux-gnueabihf"]


def run(command):
    done = subprocess.run(command, stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL,
                          stderr=subprocess.PIPE, text=True, check=False)
    if done.returncode != 0:
        sys.exit(f"{' '.join(map(str, command))} failed:\n{done.stderr[-2000:]}")


def units(path):
    """[(workload, how many units of work, unit)] as the program reported them."""
    rows = [line.split() for line in path.read_text().splitlines()]
    return [(name, int(number), unit) for name, number, unit in rows]


def count_on_host(program):
    """[(workload, instructions, units, unit)]"""
    with tempfile.TemporaryDirectory() as scratch:
        report, dumps = pathlib.Path(scratch, "units"), pathlib.Path(scratch, "counts")
        run(["valgrind", "--tool=callgrind", "--collect-atstart=no",
             f"--callgrind-out-file={dumps}", program, report])
        rows = []
        for turn, (name, number, unit) in enumerate(units(report), 1):
            text = pathlib.Path(f"{dumps}.{turn}").read_text()
            rows.append((name, int(re.search(r"^summary: (\d+)", text, re.M)[1]), number, unit))
        return rows


def count_on_target(plugin, program):
    with tempfile.TemporaryDirectory() as scratch:
        report, counts = pathlib.Path(scratch, "units"), pathlib.Path(scratch, "counts")
        run([*QEMU, "-plugin", f"{pathlib.Path(plugin).resolve()},counts={counts}", program, report])
        numbers = map(int, counts.read_text().split())
        return [(name, count, number, unit)
                for (name, number, unit), count in zip(units(report), numbers)]


def tools():
    """What the counts depend on besides the library."""
    def first_line(*command):
        return subprocess.run(command, capture_output=True, text=True, check=True).stdout.split("\n")[0]
    return ", ".join([first_line("g++", "--version"), first_line("ldd", "--version"),
                      first_line("valgrind", "--version")])


def load(record):
    lines = [line.split("\t") for line in record.read_text().splitlines()
             if not line.startswith("#")]
    return {name: (int(count), int(number), unit) for name, count, number, unit in lines}


def save(record, rows):
    lines = ["# Instructions of each workload of bench/guard; written by ./dev bench --guard-update.",
             f"# {tools()}", *("\t".join(map(str, row)) for row in rows)]
    record.write_text("\n".join(lines) + "\n")


def guard(record, program, update):
    rows = count_on_host(program)
    recorded = load(record) if record.exists() else {}
    if recorded and tools() not in record.read_text():
        print("note: recorded with other tools than these; a difference may be theirs")
    print(f"  {'workload':32} {'instructions':>14} {'recorded':>14} {'change':>8}")
    grown = []
    for name, count, *_ in rows:
        before = recorded.get(name, (0,))[0]
        change = f"{100 * (count / before - 1):+.1f} %" if before else "new"
        verdict = ""
        if before == 0 or count > before * TOLERANCE:
            grown.append(name)
            verdict = "  GROWN" if before else "  NOT RECORDED"
        elif count * TOLERANCE < before:
            verdict = "  less: record it with --guard-update"
        print(f"  {name:32} {count:14} {before or '-':>14} {change:>8}{verdict}")
    if update:
        save(record, rows)
        return 0
    if grown:
        print(f"\ngrown by more than {100 * (TOLERANCE - 1):.0f} %: {', '.join(grown)}")
    return 1 if grown else 0


def target(plugin, record, builds):
    host = load(record)
    tables = {name: count_on_target(plugin, program) for name, program in builds}
    print(f"  {'instructions per unit':38}" + "".join(f"{name:>12}" for name in tables) +
          f"{'host':>12}{'ratio':>8}")
    for lines in zip(*tables.values()):
        name, _, number, unit = lines[0]
        # The target has no versions for particular processors.
        count = host.get(f"{name}-portable", host.get(name, (0,)))[0] / number
        figures = [line[1] / number for line in lines]
        print(f"  {name + ' per ' + unit:38}" + "".join(f"{figure:12.2f}" for figure in figures) +
              f"{count:12.2f}{figures[0] / count if count else 0:8.2f}")
    return 0


def main(arguments):
    match arguments:
        case ["guard", *options, record, program]:
            return guard(pathlib.Path(record), program, options == ["--update"])
        case ["target", plugin, record, *builds] if builds:
            return target(plugin, pathlib.Path(record), [build.split("=", 1) for build in builds])
        case _:
            sys.exit(__doc__)


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
