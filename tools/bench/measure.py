#!/usr/bin/python3
"""Runs the benchmark programs in passes and keeps the JSON of each pass.

usage: measure.py [--quick] directory-for-results program...

A pass takes every row of a program once, in random order, so that a row and its peers share
whatever else the machine is doing; the medians over the passes are what counts. --quick leaves out
sizes of 100,000 and more, tells the programs so (VN_BENCH_QUICK), and makes as many passes as fit
in its time.
"""
import argparse
import os
import pathlib
import subprocess
import sys
import time

PASSES = 5
MINIMUM = 0.05  # seconds a row
QUICK_MINIMUM = 0.002
QUICK_SECONDS = 40
SMALL = "-/[0-9][0-9][0-9][0-9][0-9][0-9]"


def has_small_rows(program):
    """Whether anything would be left of a program by the filter for quick runs."""
    listed = subprocess.run([program, "--benchmark_list_tests", f"--benchmark_filter={SMALL}"],
                            capture_output=True, text=True, check=False)
    return listed.returncode == 0 and "/" in listed.stdout


def run(program, output, quick):
    """One pass of one program; returns its seconds, or None when it failed."""
    command = [program, "--benchmark_out_format=json", f"--benchmark_out={output}",
               "--benchmark_enable_random_interleaving=true", "--benchmark_repetitions=1",
               f"--benchmark_min_time={QUICK_MINIMUM if quick else MINIMUM}"]
    environment = dict(os.environ)
    if quick:
        environment["VN_BENCH_QUICK"] = "1"
        if has_small_rows(program):
            command.append(f"--benchmark_filter={SMALL}")
    begin = time.monotonic()
    log = output.with_suffix(".log")
    with log.open("w") as stderr:
        done = subprocess.run(command, stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL,
                              stderr=stderr, env=environment, check=False)
    if done.returncode == 0 and output.exists() and output.stat().st_size > 0:
        log.unlink()
        return time.monotonic() - begin
    output.unlink(missing_ok=True)
    print(f"{program} failed:\n{''.join(log.open().readlines()[-3:])}", file=sys.stderr)
    return None


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--quick", action="store_true")
    parser.add_argument("directory", type=pathlib.Path)
    parser.add_argument("programs", nargs="+")
    arguments = parser.parse_args()
    arguments.directory.mkdir(parents=True, exist_ok=True)
    seconds = {program: 0.0 for program in arguments.programs}
    for program in seconds:
        family = pathlib.Path(program).name.removesuffix("_bench")
        for old in arguments.directory.glob(f"{family}.*"):
            old.unlink()
    failed = False
    begin = time.monotonic()
    for turn in range(PASSES):
        for program in list(seconds):
            left = QUICK_SECONDS - (time.monotonic() - begin)
            if arguments.quick and turn > 0 and seconds[program] > left:
                continue
            family = pathlib.Path(program).name.removesuffix("_bench")
            took = run(program, arguments.directory / f"{family}.{turn}.json", arguments.quick)
            if took is None:
                failed = True
                del seconds[program]
                continue
            seconds[program] = took
            print(f"pass {turn + 1} of {family}: {took:.1f} s", file=sys.stderr)
    return failed


if __name__ == "__main__":
    sys.exit(main())
