#!/usr/bin/env python3
"""Prints the benchmarks' results as ratios to the best peer of the same run.

usage: bench_table.py directory-with-json [family...]

A row is named <operation>/<who>/<size>; <who> is vnlib, a version of it (vnlib-portable) or a peer.
A ratio above 1 means that the library is faster.
"""
import json
import pathlib
import statistics
import sys


def medians(path):
    """(operation, who, size) -> median nanoseconds of real time over the repetitions."""
    times = {}
    for row in json.loads(path.read_text())["benchmarks"]:
        if row.get("run_type") == "aggregate" or "error_occurred" in row:
            continue
        name = row["name"].split("/repeats")[0]
        scale = {"ns": 1, "us": 1e3, "ms": 1e6, "s": 1e9}[row["time_unit"]]
        times.setdefault(name, []).append(row["real_time"] * scale)
    result = {}
    for name, values in times.items():
        parts = [part for part in name.split("/") if ":" not in part and part not in
                 ("real_time", "process_time", "manual_time")]
        if len(parts) < 2:
            continue
        result[(parts[0], parts[1], "/".join(parts[2:]))] = statistics.median(values)
    return result


def main():
    directory = pathlib.Path(sys.argv[1])
    families = sys.argv[2:]
    for path in sorted(directory.glob("*.json")):
        if families and path.stem not in families:
            continue
        times = medians(path)
        print(f"\n{path.stem}")
        print(f"  {'operation':24} {'size':>10} {'ours, ns':>12} {'best peer':>20} {'ratio':>7}")
        rows = []
        for operation, who, size in times:
            if who.startswith("vnlib") and (operation, who, size) not in rows:
                rows.append((operation, who, size))
        for operation, who, size in rows:
            peers = {other: time for (op, other, sz), time in times.items()
                     if op == operation and sz == size and not other.startswith("vnlib")}
            label = operation + who.removeprefix("vnlib")
            ours = times[(operation, who, size)]
            if peers:
                best = min(peers, key=peers.get)
                print(f"  {label:24} {size:>10} {ours:12.1f} {best:>20} {peers[best] / ours:7.2f}")
            else:
                print(f"  {label:24} {size:>10} {ours:12.1f} {'-':>20} {'-':>7}")


if __name__ == "__main__":
    main()
