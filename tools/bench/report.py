#!/usr/bin/python3
"""Shows what measure.py left in a directory: as a table, as JSON, as a plot and as a document.

usage: report.py [--json file] [--plot file.svg]... [--doc file.md [--section title table]...]
                 directory-with-results [family...]

Ratios are to the best peer of the same run; above 1 the library is faster. The plot and the document
leave rows without an aim out, where the family has rows with one.
"""
import argparse
import dataclasses
import json
import pathlib

import document
import results


def print_table(pairs):
    for family, group in results.by_family(pairs):
        print(f"\n{family}\n  {'operation':28} {'size':>10} {'ours, ns':>14} "
              f"{'best peer':>20} {'ratio':>7}  aim")
        for row, aim in group:
            ratio = f"{row.ratio:7.2f}" if row.ratio is not None else f"{'-':>7}"
            asked = ""
            if aim is not None:
                asked = aim.text() + ("" if aim.met(row) else "  MISSED")
                if aim.value not in ("ratio", "ns"):
                    asked += f" ({aim.measured(row):g})"
            print(f"  {row.operation:28} {row.size:>10} {row.ours_ns:14.1f} "
                  f"{row.best_peer or '-':>20} {ratio}  {asked}".rstrip())
    met = [aim.met(row) for row, aim in pairs if aim is not None]
    print(f"\n{met.count(True)} of {len(met)} aims are met")


def write_json(pairs, path):
    rows = []
    for row, aim in pairs:
        entry = dataclasses.asdict(row)
        entry["aim"] = aim.text() if aim is not None else None
        entry["met"] = aim.met(row) if aim is not None else None
        rows.append(entry)
    path.write_text(json.dumps({"machine": results.machine(), "rows": rows}, indent=1) + "\n")


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--json", type=pathlib.Path)
    parser.add_argument("--plot", type=pathlib.Path, action="append")
    parser.add_argument("--doc", type=pathlib.Path)
    parser.add_argument("--section", nargs=2, action="append", default=[])
    parser.add_argument("directory", type=pathlib.Path)
    parser.add_argument("families", nargs="*")
    arguments = parser.parse_args()
    aims, bounds = results.load_aims()
    pairs = results.with_aims(results.load(arguments.directory, bounds, arguments.families), aims)
    print_table(pairs)
    if arguments.json:
        write_json(pairs, arguments.json)
    if arguments.plot:
        import plot # wants matplotlib, which nothing else does
        plot.write(results.told(pairs), arguments.plot)
    if arguments.doc:
        document.write(results.told(pairs), arguments.section, arguments.doc)


if __name__ == "__main__":
    main()
