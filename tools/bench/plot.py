"""The ratios as a picture: a panel for each family, a line for each operation, over the sizes."""
import itertools

import matplotlib

matplotlib.use("Agg")
from matplotlib import pyplot, ticker

import results

COLUMNS = 3


def draw_panel(panel, family, group):
    """Dashed lines are the aims, in the colour of what they ask for."""
    sizes = sorted({row.size for row, _ in group}, key=results.size_order)
    for (operation, against), pairs in itertools.groupby(group, results.operation_and_peers):
        pairs = list(pairs)
        places = [sizes.index(row.size) for row, _ in pairs]
        line, = panel.plot(places, [row.ratio for row, _ in pairs], marker="o", markersize=3,
                           linewidth=1, label=" of ".join(filter(None, [operation, against])))
        for place, (_, aim) in zip(places, pairs):
            if aim is not None:
                panel.hlines(aim.at_least, place - 0.35, place + 0.35, linewidth=1,
                             colors=line.get_color(), linestyles="dashed")
    ratios = [row.ratio for row, _ in group]
    panel.axhline(1, color="black", linewidth=0.6)
    panel.set_yscale("log")
    panel.set_ylim(min(0.5, min(ratios) * 0.8), max(2, max(ratios) * 1.25))
    panel.yaxis.set_major_locator(ticker.LogLocator(subs=(1, 2, 5)))
    panel.yaxis.set_major_formatter(ticker.FormatStrFormatter("%g"))
    panel.yaxis.set_minor_formatter(ticker.NullFormatter())
    panel.set_xticks(range(len(sizes)), sizes, rotation=45, fontsize=7)
    panel.set_title(f"{family}: times the speed of the best peer", fontsize=9)
    panel.grid(True, axis="y", linewidth=0.3)
    panel.legend(fontsize=5, ncol=2)


def write(pairs, paths):
    ratios = [(row, aim) for row, aim in pairs
              if row.ratio is not None and (aim is None or aim.value == "ratio")]
    families = results.by_family(sorted(ratios, key=lambda pair: (
        pair[0].family, *results.operation_and_peers(pair), results.size_order(pair[0].size))))
    if not families:
        return
    lines = -(-len(families) // COLUMNS)
    figure, axes = pyplot.subplots(lines, COLUMNS, figsize=(7 * COLUMNS, 4.2 * lines),
                                   squeeze=False)
    for panel, (family, group) in zip(axes.flat, families):
        draw_panel(panel, family, group)
    for panel in axes.flat[len(families):]:
        panel.axis("off")
    figure.tight_layout()
    for path in paths:
        figure.savefig(path, dpi=80)
