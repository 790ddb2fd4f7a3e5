#!/usr/bin/python3
"""Holds what measure.py --growth left in a directory to the rules of growth in bench/aims.toml.

usage: growth.py directory-with-results

Prints the time for each unit of work at each size; it should stay the same. Of several passes the
fastest counts. Fails when a row departs further than its rule allows.
"""
import itertools
import math
import pathlib
import re
import sys

import results


def fastest(directory, family):
    """operation -> [(size, nanoseconds)], sizes ascending"""
    times, _ = results.measurements(pathlib.Path(directory).glob(f"{family}.*.json"))
    rows = {}
    for (operation, who, size), values in times.items():
        if who == "vnlib":
            rows.setdefault(operation, []).append((int(size), min(values)))
    return {operation: sorted(sizes) for operation, sizes in sorted(rows.items())}


def departure(rule, figures):
    """The factor that the rule bounds, of [(size, nanoseconds a unit)]."""
    costs = [cost for _, cost in figures]
    if not rule.within_tenfold:
        return max(costs) / min(costs)
    steps = itertools.pairwise(figures)
    # One step may cost twice as much as they do on the average: it is where a cache is outgrown.
    return max(tenfold(figures[0], figures[-1]), max(tenfold(*step) for step in steps) / 2)


def tenfold(smaller, larger):
    """The factor between two figures for each tenfold size."""
    return (larger[1] / smaller[1]) ** (1 / math.log10(larger[0] / smaller[0]))


def main(directory):
    good = True
    print(f"  {'operation':38} {'time':9} {'factor':>7} {'allowed':>8}          ns a unit at each size")
    for rule in results.load_growth():
        for operation, times in fastest(directory, rule.family).items():
            if not re.fullmatch(rule.operation, operation):
                continue
            figures = [(size, time / rule.units(size)) for size, time in times
                       if size >= rule.smallest]
            if len(figures) < 2:
                continue
            factor = departure(rule, figures)
            passed = factor <= rule.within
            good = good and passed
            tenfold = " tenfold" if rule.within_tenfold else ""
            costs = "  ".join(f"{size:g}: {cost:.3g}" for size, cost in figures)
            print(f"  {rule.family + ' ' + operation:38} {rule.expected:9} {factor:7.2f} "
                  f"{rule.within:8g}{tenfold:8} {'pass' if passed else 'FAIL'} {costs}")
            if not passed and rule.missed:
                print(f"    {rule.missed}")
    return 0 if good else 1


if __name__ == "__main__":
    sys.exit(main(*sys.argv[1:]))
