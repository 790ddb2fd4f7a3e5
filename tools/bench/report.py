#!/usr/bin/python3
"""Shows what measure.py left in a directory: as a table, as JSON, as a plot and as a document.

usage: report.py [--json file] [--plot file.svg]... [--doc file.md [--section title table]...]
                 directory-with-results [family...]

Ratios are to the best peer of the same run; above 1 the library is faster.
"""
import argparse
import dataclasses
import itertools
import json
import pathlib

import results


def by_family(pairs):
    return [(family, list(group))
            for family, group in itertools.groupby(pairs, lambda pair: pair[0].family)]


def print_table(pairs):
    for family, group in by_family(pairs):
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


def write_plots(pairs, paths):
    """A panel a family, a line an operation; a dashed line is the aim of the same colour."""
    import matplotlib
    matplotlib.use("Agg")
    from matplotlib import pyplot

    families = [(family, [(row, aim) for row, aim in group if row.ratio is not None])
                for family, group in by_family(pairs)]
    families = [(family, group) for family, group in families if group]
    columns = min(3, len(families))
    if columns == 0:
        return
    lines = -(-len(families) // columns)
    figure, axes = pyplot.subplots(lines, columns, figsize=(7 * columns, 4.2 * lines),
                                   squeeze=False)
    for panel in axes.flat[len(families):]:
        panel.axis("off")
    for panel, (family, group) in zip(axes.flat, families):
        sizes = sorted({row.size for row, _ in group}, key=results.size_order)
        key = lambda pair: (pair[0].operation, pair[1].against if pair[1] else "")
        for (operation, _), of_operation in itertools.groupby(sorted(group, key=key), key):
            of_operation = list(of_operation)
            at = [sizes.index(row.size) for row, _ in of_operation]
            line, = panel.plot(at, [row.ratio for row, _ in of_operation], marker="o",
                               markersize=3, linewidth=1, label=operation)
            for place, (_, aim) in zip(at, of_operation):
                if aim is not None and aim.value == "ratio" and aim.at_least is not None:
                    panel.hlines(aim.at_least, place - 0.35, place + 0.35, linewidth=1,
                                 colors=line.get_color(), linestyles="dashed")
        panel.axhline(1, color="black", linewidth=0.6)
        panel.set_yscale("log")
        panel.set_yticks([0.1, 0.2, 0.5, 1, 2, 5, 10, 20, 50, 100])
        panel.yaxis.set_major_formatter(matplotlib.ticker.FormatStrFormatter("%g"))
        panel.yaxis.set_minor_formatter(matplotlib.ticker.NullFormatter())
        ratios = [row.ratio for row, _ in group]
        panel.set_ylim(min(0.5, min(ratios) * 0.8), max(2, max(ratios) * 1.25))
        panel.set_xticks(range(len(sizes)), sizes, rotation=45, fontsize=7)
        panel.set_title(f"{family}: times the speed of the best peer", fontsize=9)
        panel.grid(True, axis="y", linewidth=0.3)
        panel.legend(fontsize=5, ncol=2)
    figure.tight_layout()
    for path in paths:
        figure.savefig(path, dpi=80)


DOCUMENT_HEAD = """\
# Performance

<!-- Written by `./dev bench --doc` from the measurements and bench/aims.toml; do not edit. -->

Each line compares the library with the fastest of its peers on the same work, in one process and in
turns, by the medians of several passes: 2.0 means that the library takes half the time. A ratio in
bold misses its aim; why is said beside it. `./dev bench` makes the table anew.

Machine: {machine}.
"""


def figure(row, aim):
    value = aim.measured(row) if aim is not None else row.ratio
    if value is None:
        return None
    text = f"{value:.0f}" if value >= 20 else f"{value:.2g}" if value >= 10 else f"{value:.2f}"
    return f"**{text}**" if aim is not None and not aim.met(row) else text


def short(size):
    """1048576 -> 1Mi, 1000000 -> 1M"""
    for unit, factor in (("Mi", 1 << 20), ("M", 10**6), ("Ki", 1 << 10), ("k", 10**3)):
        if size.isdigit() and int(size) and int(size) % factor == 0:
            return f"{int(size) // factor}{unit}"
    return size


def write_document(pairs, sections, path):
    text = DOCUMENT_HEAD.format(machine=results.machine())
    for family, group in by_family(pairs):
        # Where a family has aims, its other rows are left to the table that is printed.
        if any(aim is not None for _, aim in group):
            group = [(row, aim) for row, aim in group if aim is not None]
        group = [(row, aim) for row, aim in group if figure(row, aim) is not None]
        if not group:
            continue
        text += f"\n## {family.replace('_', ' ')}\n\n"
        text += "| Operation | Size: ratio | Best peer | Aim | What limits it |\n|---|---|---|---|---|\n"
        key = lambda pair: (pair[0].operation, pair[1].text() if pair[1] else "", id(pair[1]))
        for (operation, *_), lines in itertools.groupby(sorted(group, key=key), key):
            lines = list(lines)
            aim = lines[0][1]
            figures = ", ".join(f"{short(row.size)}: {figure(row, aim)}" if row.size
                                else figure(row, aim) for row, aim in lines)
            peers = sorted({row.best_peer for row, _ in lines if row.best_peer})
            why = aim.limit if aim is not None else ""
            if aim is not None and aim.missed and not all(aim.met(row) for row, _ in lines):
                why += ("; " if why else "") + aim.missed
            text += (f"| {operation.replace('_', ' ')} | {figures} | {', '.join(peers) or '-'} | "
                     f"{aim.text() if aim is not None else '-'} | {why} |\n")
    for title, table in sections:
        if pathlib.Path(table).exists():
            text += f"\n## {title}\n\n```text\n{pathlib.Path(table).read_text()}```\n"
    path.write_text(text)


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
        write_plots(pairs, arguments.plot)
    if arguments.doc:
        write_document(pairs, arguments.section, arguments.doc)


if __name__ == "__main__":
    main()
