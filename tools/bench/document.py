"""The aims and what became of them as Markdown: docs/performance.md."""
import itertools
import pathlib

import results

HEAD = """\
# Performance

<!-- Written by `./dev bench --doc` from the measurements and bench/aims.toml; do not edit. -->

Each line compares the library with the fastest of its peers on the same work, in one process and in
turns, by the medians of several passes: 2.0 means that the library takes half the time. A figure in
bold misses its aim; why is said beside it. `./dev bench` makes the table anew.

Machine: {machine}.
"""
COLUMNS = """
## {family}

| Operation | Size: ratio | Best peer | Aim | What limits it |
|---|---|---|---|---|
"""


def short(size):
    """1048576 -> 1Mi, 1000000 -> 1M"""
    for unit, factor in (("Mi", 1 << 20), ("M", 10**6), ("Ki", 1 << 10), ("k", 10**3)):
        if size.isdigit() and int(size) and int(size) % factor == 0:
            return f"{int(size) // factor}{unit}"
    return size


def figure(row, aim):
    """The size and the value that counts."""
    value = aim.measured(row) if aim is not None else row.ratio
    digits = 2 if value < 10 else 1 if value < 20 else 0
    text = f"{value:.{digits}f}"
    return f"{short(row.size)}: " + (text if aim is None or aim.met(row) else f"**{text}**")


def line(pairs):
    """One operation with one aim, at all sizes."""
    row, aim = pairs[0]
    figures = ", ".join(figure(*pair) for pair in pairs)
    peers = ", ".join(sorted({row.best_peer for row, _ in pairs if row.best_peer}))
    cells = [row.operation.replace("_", " "), figures, peers or "-", "-", ""]
    if aim is not None:
        missed = aim.missed if not all(aim.met(row) for row, _ in pairs) else ""
        cells[3:] = [aim.text(), "; ".join(filter(None, [aim.limit, missed]))]
    return f"| {' | '.join(cells)} |\n"


def write(pairs, sections, path):
    """`sections`: titles, and files with text that was printed elsewhere, where they are there."""
    told = [(row, aim) for row, aim in pairs if aim is not None or row.ratio is not None]
    text = HEAD.format(machine=results.machine())
    for family, group in results.by_family(told):
        text += COLUMNS.format(family=family.replace("_", " "))
        key = lambda pair: (pair[0].operation, pair[1].text() if pair[1] else "", id(pair[1]))
        for _, of_line in itertools.groupby(sorted(group, key=key), key):
            text += line(list(of_line))
    for title, table in sections:
        if pathlib.Path(table).exists():
            text += f"\n## {title}\n\n```text\n{pathlib.Path(table).read_text()}```\n"
    path.write_text(text)
