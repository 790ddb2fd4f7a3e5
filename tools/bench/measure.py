#!/usr/bin/python3
"""Runs the benchmark programs in passes and keeps the JSON of each pass.

usage: measure.py [--quick] [--growth] directory-for-results program...

A pass takes every row of a program once, in random order, so that a row and its peers share
whatever else the machine is doing; the medians over the passes are what counts. --quick leaves out
sizes of 100,000 and more and makes as many passes as fit in its time; programs may look at
VN_BENCH_QUICK. --growth takes the library's rows that the rules of growth need instead, up to sizes
of 10 million bytes or items when quick.
"""
import argparse
import os
import pathlib
import subprocess
import sys
import time

import results

PASSES = 5
MINIMUM = 0.02  # seconds a row
QUICK_MINIMUM = 0.002
QUICK_SECONDS = 35
LONG_SECONDS = 200  # a pass of a program that takes longer is not repeated
DIGIT = "[0-9]"


def names(program, pattern):
    """The rows of a program that a filter of Google Benchmark leaves."""
    listed = subprocess.run([program, "--benchmark_list_tests", f"--benchmark_filter={pattern}"],
                            capture_output=True, text=True, check=False)
    return [name for name in listed.stdout.split() if "/" in name]


def pattern_for(program, quick, growth):
    """The filter for the rows to run."""
    family = family_of(program)
    if growth:
        operations = [rule.operation for rule in results.load_growth() if rule.family == family]
        if not operations:
            return None
        longest = 7 if quick else 9
        return f"^({'|'.join(operations)})/vnlib/{DIGIT}{{1,{longest}}}(/|$)"
    if not quick:
        return "-_growth/"
    small = "-_growth/|/" + 6 * DIGIT
    return small if names(program, small) else "-_growth/"


def family_of(program):
    return pathlib.Path(program).name.removesuffix("_bench")


def run(program, output, pattern, minimum, quick):
    """One pass of one program; returns its seconds, or None when it failed."""
    partial = output.with_suffix(".part")
    command = [program, "--benchmark_out_format=json", f"--benchmark_out={partial}",
               "--benchmark_enable_random_interleaving=true", "--benchmark_repetitions=1",
               f"--benchmark_min_time={minimum}", f"--benchmark_filter={pattern}"]
    environment = dict(os.environ)
    if quick:
        environment["VN_BENCH_QUICK"] = "1"
    begin = time.monotonic()
    log = output.with_suffix(".log")
    with log.open("w") as stderr:
        done = subprocess.run(command, stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL,
                              stderr=stderr, env=environment, check=False)
    if done.returncode == 0 and partial.exists() and partial.stat().st_size > 0:
        log.unlink()
        partial.rename(output)
        return time.monotonic() - begin
    print(f"{program} failed:\n{''.join(log.open().readlines()[-3:])}", file=sys.stderr)
    return None


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--quick", action="store_true")
    parser.add_argument("--growth", action="store_true")
    parser.add_argument("directory", type=pathlib.Path)
    parser.add_argument("programs", nargs="+")
    arguments = parser.parse_args()
    arguments.directory.mkdir(parents=True, exist_ok=True)
    patterns = {program: pattern_for(program, arguments.quick, arguments.growth)
                for program in arguments.programs}
    seconds = {program: 0.0 for program, pattern in patterns.items() if pattern}
    for program in seconds:
        for old in arguments.directory.glob(f"{family_of(program)}.*"):
            old.unlink()
    failed = False
    begin = time.monotonic()
    for turn in range(3 if arguments.growth else PASSES):
        for program in list(seconds):
            left = QUICK_SECONDS - (time.monotonic() - begin) if arguments.quick else LONG_SECONDS
            if turn > 0 and seconds[program] > left:
                continue
            output = arguments.directory / f"{family_of(program)}.{turn}.json"
            minimum = QUICK_MINIMUM if arguments.quick else MINIMUM
            took = run(program, output, patterns[program], minimum, arguments.quick)
            if took is None:
                failed = True
                del seconds[program]
                continue
            seconds[program] = took
            print(f"pass {turn + 1} of {family_of(program)}: {took:.1f} s", file=sys.stderr)
    return failed


if __name__ == "__main__":
    sys.exit(main())
