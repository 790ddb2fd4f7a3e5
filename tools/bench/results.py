"""What the benchmarks measured, as rows, and what is asked of them (bench/aims.toml).

A benchmark is named <operation>/<who>/<size>. <who> is vnlib, a version of it written for some
processors (vnlib-portable), or a peer. Some peers are bounds, such as the bare system call, which no
library can do better than: they count only for an aim that names them.
"""
import dataclasses
import itertools
import json
import math
import pathlib
import re
import statistics
import tomllib

AIMS = pathlib.Path(__file__).parents[2] / "bench" / "aims.toml"
NANOSECONDS = {"ns": 1, "us": 1e3, "ms": 1e6, "s": 1e9}
TOLERANCE = 1.01  # what no measurement can tell
# What Google Benchmark says about every row; what else a row has is a counter of its own.
COMMON = {"name", "family_index", "per_family_instance_index", "run_name", "run_type",
          "repetitions", "repetition_index", "threads", "iterations", "real_time", "cpu_time",
          "time_unit", "label", "bytes_per_second", "items_per_second"}


@dataclasses.dataclass
class Row:
    family: str
    operation: str  # with the version, where it is not the one that runs by itself
    size: str
    ours_ns: float
    peers: dict  # who -> nanoseconds
    counters: dict  # of ours
    best_peer: str = None
    peer_ns: float = None
    ratio: float = None  # above 1: the library is faster

    def order(self):
        return (self.family, self.operation, size_order(self.size))


def size_order(size):
    """Numbers within a size compare as numbers."""
    return [(0, int(part), "") if part.isdigit() else (1, 0, part)
            for part in re.split(r"(\d+)", size)]


def measurements(paths):
    """(operation, who, size) -> [nanoseconds...], and the counters of each."""
    times, counters = {}, {}
    for path in paths:
        for row in json.loads(path.read_text())["benchmarks"]:
            if row.get("run_type") == "aggregate" or "error_occurred" in row:
                continue
            flags = [part for part in row["name"].split("/") if part.endswith("_time")]
            parts = [part for part in row["name"].split("/")
                     if ":" not in part and part not in flags]
            if len(parts) < 2:
                continue
            # Others on the machine do not count, unless the row itself asked for the wall clock.
            clock = "real_time" if set(flags) & {"real_time", "manual_time"} else "cpu_time"
            key = (parts[0], parts[1], "/".join(parts[2:]))
            times.setdefault(key, []).append(row[clock] * NANOSECONDS[row["time_unit"]])
            counters[key] = {name: value for name, value in row.items() if name not in COMMON}
    return times, counters


def load(directory, bounds, families=()):
    """The rows in a directory of <family>.<pass>.json, medians over the passes."""
    paths = {}
    for path in sorted(pathlib.Path(directory).glob("*.*.json")):
        paths.setdefault(path.name.split(".")[0], []).append(path)
    rows = []
    for family, of_family in paths.items():
        if families and family not in families:
            continue
        times, counters = measurements(of_family)
        median = {key: statistics.median_low(values) for key, values in times.items()}
        for (operation, who, size), ours in median.items():
            if who != "vnlib" and not who.startswith("vnlib-"):
                continue
            peers = {other: time for (op, other, sz), time in median.items()
                     if (op, sz) == (operation, size) and not other.startswith("vnlib")}
            row = Row(family, operation + who.removeprefix("vnlib"), size, ours, peers,
                      counters[(operation, who, size)])
            compare(row, [peer for peer in peers if peer not in bounds])
            rows.append(row)
    return sorted(rows, key=Row.order)


def compare(row, peers):
    """Sets the row's ratio to the best of `peers`."""
    row.best_peer = min(peers, key=row.peers.get, default=None)
    row.peer_ns = row.peers.get(row.best_peer)
    row.ratio = row.peer_ns / row.ours_ns if row.best_peer and row.ours_ns > 0 else None


@dataclasses.dataclass
class Aim:
    family: str
    operation: str  # regular expression for the whole operation
    smallest: int = 0
    largest: int = 1 << 62
    against: str = ""  # regular expression for the peers that count; else all but the bounds
    value: str = "ratio"  # or "ns", "ns_more" (than the peer), or the name of a counter
    at_least: float = None
    at_most: float = None
    limit: str = ""  # what the row's speed depends on
    missed: str = ""  # why the aim is not met, where it is not

    def concerns(self, row):
        if self.family != row.family or not re.fullmatch(self.operation, row.operation):
            return False
        number = re.match(r"\d+", row.size)
        return self.smallest <= (int(number[0]) if number else 0) <= self.largest

    def measured(self, row):
        """The value that the aim is about; None where the row has none, for want of a peer say."""
        if self.value == "ratio":
            return row.ratio
        if self.value == "ns":
            return row.ours_ns
        if self.value == "ns_more":
            return row.ours_ns - row.peer_ns if row.peer_ns is not None else None
        return row.counters.get(self.value)

    def met(self, row):
        value = self.measured(row)
        return (self.at_least is None or value * TOLERANCE >= self.at_least) and \
               (self.at_most is None or value <= self.at_most * TOLERANCE)

    def text(self):
        unit = "" if self.value == "ratio" else f" {self.value.replace('_', ' ')}"
        sign, bound = ("≥", self.at_least) if self.at_most is None else ("≤", self.at_most)
        versus = f" of {re.sub('[.*()]', '', self.against).replace('|', ', ')}" if self.against else ""
        return f"{sign} {bound:g}{unit}{versus}"


@dataclasses.dataclass
class Growth:
    """How the time of the library's rows may grow with their size."""
    family: str
    operation: str  # regular expression
    expected: str  # "constant", "linear" or "n log n" in the size
    within: float  # by which factor the time may depart from it over the range
    within_tenfold: bool = False  # ... or with each tenfold size, where caches are outgrown
    smallest: int = 0
    missed: str = ""  # why a row does not keep to it, where one does not

    def units(self, size):
        return {"constant": 1, "linear": size, "n log n": size * math.log2(size + 1)}[self.expected]


def load_aims():
    """The aims, and the names of the peers that are bounds."""
    aims = tomllib.loads(AIMS.read_text())
    return [Aim(**aim) for aim in aims["aim"]], aims["bounds"]


def load_growth():
    return [Growth(**rule) for rule in tomllib.loads(AIMS.read_text())["growth"]]


def with_aims(rows, aims):
    """[(row, aim)]: a row once for each aim that can be told from it, or once with None."""
    pairs = []
    for row in rows:
        before = len(pairs)
        for aim in aims:
            if not aim.concerns(row):
                continue
            entry = dataclasses.replace(row)
            if aim.against:
                compare(entry, [peer for peer in row.peers if re.fullmatch(aim.against, peer)])
            if aim.measured(entry) is not None:
                pairs.append((entry, aim))
        if len(pairs) == before:
            pairs.append((row, None))
    return pairs


def by_family(pairs):
    """[(family, its pairs)]"""
    return [(family, list(group))
            for family, group in itertools.groupby(pairs, lambda pair: pair[0].family)]


def operation_and_peers(pair):
    return (pair[0].operation, pair[1].against if pair[1] is not None else "")


def told(pairs):
    """The pairs without rows that have no aim, in families that have some."""
    with_aim = {row.family for row, aim in pairs if aim is not None}
    return [(row, aim) for row, aim in pairs if aim is not None or row.family not in with_aim]


def machine():
    """The processor, in one line."""
    lines = pathlib.Path("/proc/cpuinfo").read_text().splitlines()
    models = [line.split(":", 1)[1].strip() for line in lines if line.startswith("model name")]
    model = models[0] if models else "unknown processor"
    return f"{model}, {max(len(models), 1)} cores, shared with others and noisy"
