#!/usr/bin/env python3
"""Counts the sweep's blocks for arm64 under the emulator, holds each against its reference and writes docs/sweep.md.

A case may cost `fixed + extra + units * cost of a unit` instructions, where the last is that of the neighbour that it names,
or a figure, or the count of its other calls. Its ratio is what it costs to what it may cost; a ratio above 1.5 is a cliff.
"""
import argparse
import collections
import csv
import math
import os
import shutil
import subprocess
import sys
import tempfile

import cycles

ROOT = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
RECORD = os.path.join(ROOT, "bench", "sweep_counts.csv")
REFERENCES = os.path.join(ROOT, "bench", "sweep_references.csv")
DOCUMENT = os.path.join(ROOT, "docs", "sweep.md")
PICTURE = os.path.join(ROOT, "docs", "sweep.svg")
EMULATOR = ["qemu-aarch64", "-cpu", "cortex-a76", "-L", "/usr/aarch64-linux-gnu"]

LIMIT = 1.5
WORST_CASES = 12  # of each operator on the page
SAMPLE = 200
TOLERANCE = 0.03
WINDOWS = 2  # of a case, for its cycles


class Case:
    def __init__(self, fields, count):
        (self.operator, self.kind, self.shape, extent, self.unit, units, fixed, extra, self.neighbour, factor, figure,
         limit, self.why) = fields
        self.extent, self.units, self.fixed, self.extra, self.factor, self.figure, self.limit = map(
            float, (extent, units, fixed, extra, factor, figure, limit))
        self.count = count
        self.cycles = None  # on an A55 by the guide
        self.calls = None  # instructions of the other calls
        self.allowed = None

    @property
    def name(self):
        return f"{self.kind}, {self.shape}"

    @property
    def full_name(self):
        return f"{self.operator}: {self.name}"

    @property
    def ratio(self):
        return self.count / self.allowed if self.allowed else None


def fail(sentence):
    sys.exit(f"sweep: {sentence}")


def counted(program, plugin, operators=(), names=None, with_cycles=False):
    """Runs the sweep; returns its cases and its doublings."""
    if shutil.which(EMULATOR[0]) is None:
        fail("the emulator qemu-aarch64 (Debian package qemu-user) is not installed.")
    for file in (program, plugin):
        if not os.path.exists(file):
            fail(f"there is no {file}; build the targets tarvu_sweep and tarvu_icount.")
    with tempfile.TemporaryDirectory() as folder:
        log = os.path.join(folder, "counts.txt")
        options = f"windows={WINDOWS}" if with_cycles else "counts=1"
        command = [*EMULATOR, "-plugin", f"{plugin},{options}", "-d", "plugin", "-D", log, program]
        for operator in operators:
            command += ["--operator", operator]
        if names is not None:
            listed = os.path.join(folder, "names.txt")
            with open(listed, "w", encoding="utf-8") as file:
                file.write("\n".join(names) + "\n")
            command += ["--names", listed]
        lines = subprocess.run(command, stdout=subprocess.PIPE, text=True, check=False)
        if lines.returncode != 0:
            fail(f"the sweep ended with {lines.returncode}.")
        with open(log, encoding="utf-8") as file:
            reports = ["icount total=" + report for report in file.read().split("icount total=")[1:]]
    counts = iter([int(report.split(maxsplit=2)[1].split("=")[1]) for report in reports])
    sections = iter(sections_of(reports) if with_cycles else [])
    cases, doublings = [], []
    for line in lines.stdout.splitlines():
        kind, *fields = line.split("\t")
        if kind == "case":
            cases.append(Case(fields, next(counts)))
            if with_cycles:
                cases[-1].cycles = cycles.of_section(next(sections), 1, processors=())[cycles.GUIDE]
        elif kind == "calls":
            cases[-1].calls = next(counts)
            if with_cycles:
                next(sections)
        else:
            doublings.append(fields)
    if next(counts, None) is not None:
        fail("there are more counts than lines.")
    return cases, doublings


def sections_of(reports):
    """With all their instructions disassembled at once."""
    sections = [cycles.Section(report) for report in reports]
    cycles.lines_of({word for section in sections for _, _, words in section.blocks.values() for word in words})
    return sections


def read_counts(path):
    """{"operator: case": instructions}"""
    with open(path, encoding="utf-8", newline="") as file:
        return {row["case"]: int(row["instructions"]) for row in csv.DictReader(file)}


def write_counts(path, counts):
    with open(path, "w", encoding="utf-8", newline="") as file:
        writer = csv.writer(file, lineterminator="\n")
        writer.writerow(["case", "instructions"])
        writer.writerows(counts.items())


def references_of(cases):
    """Cases that others are held against, or that are held against nothing else."""
    named = {f"{case.operator}: {case.neighbour}" for case in cases if case.neighbour}
    return [case for case in cases if case.full_name in named or not (case.neighbour or case.figure or case.calls is not None)]


def judge(cases, references):
    """Sets what every case may cost. A neighbour's cost is that of now or of when it was chosen, whichever is less: a reference
    that gets dearer weakens nothing."""
    by_name = {case.full_name: case for case in cases}
    for case in cases:
        if case.calls is not None:
            work = case.calls
        elif case.neighbour:
            name = f"{case.operator}: {case.neighbour}"
            if name not in by_name:
                fail(f"{case.full_name} is held against {case.neighbour}, which is no case.")
            neighbour = by_name[name]
            work = case.units * case.factor * min(neighbour.count, references.get(name, neighbour.count)) / neighbour.units
        elif case.figure:
            work = case.units * case.figure
        elif case.full_name in references:
            case.allowed = references[case.full_name]
            continue
        else:
            continue
        case.allowed = case.fixed + case.extra + work


def reference_of(case):
    """In words."""
    if case.calls is not None:
        return case.why
    if case.neighbour:
        text = case.neighbour if case.factor == 1 else f"{case.factor:g} times {case.neighbour}"
    elif case.figure:
        text = f"{case.figure:.3g} each"
    else:
        text = "its own cost when it became a reference"
    text += f"; {case.why}" if case.why else ""
    return text + ("; to be met" if case.limit < LIMIT else "")


def number(value):
    return "" if value is None else f"{value:.3g}" if value < 1000 else f"{value:.0f}"


def ranked(cases):
    """The cases that are held against something, the dearest first."""
    return sorted((case for case in cases if case.allowed), key=lambda case: -case.ratio / case.limit)


def by_operator(cases):
    groups = collections.defaultdict(list)
    for case in cases:
        groups[case.operator].append(case)
    return groups


def summary(cases):
    lines = ["| operator | cases | held | above | worst | median |", "|---|---:|---:|---:|---:|---:|"]
    groups = by_operator(cases)
    for operator, of in [*groups.items(), ("all", cases)]:
        held = ranked(of)
        above = sum(case.ratio > case.limit for case in held)
        worst = number(held[0].ratio) if held else ""
        median = number(held[len(held) // 2].ratio) if held else ""
        lines.append(f"| {operator} | {len(of)} | {len(held)} | {above} | {worst} | {median} |")
    return "\n".join(lines) + "\n"


def worst_table(cases, most):
    lines = ["| case | unit | instructions a unit | may cost | ratio | A55 cycles | against |",
             "|---|---|---:|---:|---:|---:|---|"]
    for case in ranked(cases)[:most]:
        in_cycles = number(case.cycles / case.units) if case.cycles is not None else ""
        lines.append(f"| {case.name} | {case.unit} | {number(case.count / case.units)} | "
                     f"{number(case.allowed / case.units)} | {number(case.ratio)} | {in_cycles} | {reference_of(case)} |")
    return "\n".join(lines) + "\n"


def growth(cases, doublings):
    """(operator, axis, once, twice, cost of twice less the fixed cost / cost of once, the most that may be), the worst first."""
    by_name = {(case.operator, case.name): case for case in cases}
    rows = []
    for operator, axis, once, twice in doublings:
        small, large = by_name[(operator, once)], by_name[(operator, twice)]
        most = max(2.0, large.units / small.units)
        rows.append((operator, axis, once, twice, (large.count - large.fixed) / small.count, most))
    return sorted(rows, key=lambda row: row[5] - row[4])


def record(cases):
    """A sample of the cases, an even share of each operator's, and what they cost."""
    chosen = [cases[i * len(cases) // SAMPLE] for i in range(SAMPLE)]
    write_counts(RECORD, {case.full_name: case.count for case in chosen})
    print(f"sweep: recorded {len(chosen)} counts in {os.path.relpath(RECORD, ROOT)}", file=sys.stderr)


def moved(recorded, now):
    """The sentences on recorded cases that cost something else now, by name."""
    sentences = []
    for name, before in recorded.items():
        if name not in now:
            sentences.append(f"{name}: the sweep has no such case")
        elif abs(now[name] - before) > TOLERANCE * before:
            sentences.append(f"{name}: {now[name]} instructions, recorded {before}, {now[name] / before - 1:+.1%}")
    return sentences


def check(program, plugin):
    """Counts the recorded cases again; ends with a message if one moved."""
    recorded = read_counts(RECORD)
    cases, _ = counted(program, plugin, names=recorded)
    sentences = moved(recorded, {case.full_name: case.count for case in cases})
    if sentences:
        print("\n".join(sentences))
        fail(f"{len(sentences)} of {len(recorded)} counts moved by more than {TOLERANCE:.0%}. Mend what costs more; if all of it "
             "is meant, or costs less, record the new counts with ./scripts/bench --sweep --record and commit "
             "bench/sweep_counts.csv.")


PAGE = """# The sweep

Made by `scripts/bench --sweep`; do not edit. The workloads of [the benchmarks](benchmarks.md) are few and large; what
networks call is many shapes. The sweep counts the arm64 instructions of {count} small blocks over all operators, types, axes and
extents, dense and padded, and holds each against what its work costs elsewhere:

- a neighbouring case with at least as much work for a unit, as a rule the wide dense shape of the same kind, or
- the same result by other calls of this library, or by a plain loop, or
- a figure that is stated with its reason.

A case may cost its fixed cost a call (at most 400 instructions, 1,500 where a table pays, 60 for a run of a conversion) and its
units at the reference's cost of a unit. The ratio is what it costs to that. Above 1.5 a shape has fallen off; above 1, where the
reference is a figure that is to be met. `bench/sweep_references.csv` holds what the references cost when they were chosen, before
the kernels were improved: a reference that gets dearer weakens nothing, and is itself held against that.

{summary}
![Instructions a unit against the extent, one curve an operator](sweep.svg)

The curves show, for each operator and extent, the median of what a unit costs in proportion to what it may cost.

## Growth

Twice an extent costs at most twice as much, and the fixed cost of a call; where the work itself grows faster than the extent, as
the recurrent weights of LSTM with the hidden units, at most as much more as the work. Of {doublings} doublings {above} cost more.
Non-maximum suppression and top-k with k are excepted: their work is pairs of boxes, and picks times elements.

{growth}
## The dearest cases of each operator

{worst}"""


def write_page(cases, doublings):
    rows = growth(cases, doublings)
    lines = ["| operator | doubled | case | growth | most |", "|---|---|---|---:|---:|"]
    lines += [f"| {operator} | {axis} | {once} | {grown:.2f} | {most:g} |" for operator, axis, once, _, grown, most in rows[:12]]
    worst = "\n".join(f"### {operator}\n\n{worst_table(of, WORST_CASES)}" for operator, of in by_operator(cases).items())
    with open(DOCUMENT, "w", encoding="utf-8") as file:
        file.write(PAGE.format(count=f"{len(cases):,}", summary=summary(cases), doublings=len(rows),
                               above=sum(row[4] > row[5] for row in rows), growth="\n".join(lines) + "\n", worst=worst))
    with open(PICTURE, "w", encoding="utf-8") as file:
        file.write(picture(cases))
    print(f"sweep: wrote {os.path.relpath(DOCUMENT, ROOT)} and {os.path.relpath(PICTURE, ROOT)}", file=sys.stderr)


def curves(cases):
    """{operator: [(extent, median ratio)]}"""
    points = collections.defaultdict(lambda: collections.defaultdict(list))
    for case in ranked(cases):
        points[case.operator][case.extent].append(case.ratio)
    return {operator: [(extent, sorted(of[extent])[len(of[extent]) // 2]) for extent in sorted(of)]
            for operator, of in points.items()}


COLOURS = ("#1b6ca8", "#c8553d", "#3a7d44", "#8e5ea2", "#b8860b", "#2a9d8f", "#6b705c", "#d1495b", "#457b9d", "#7f5539")
WIDTH, HEIGHT, LEFT, TOP, RIGHT, BOTTOM = 980, 560, 60, 20, 170, 50


def picture(cases):
    """Ratio against extent, both in logarithms, one curve an operator."""
    of = curves(cases)
    most_extent = max(extent for points in of.values() for extent, _ in points)
    ratios = [ratio for points in of.values() for _, ratio in points]
    low, high = math.floor(math.log2(min(ratios))), math.ceil(math.log2(max(max(ratios), 2)))
    across = lambda extent: LEFT + (WIDTH - LEFT - RIGHT) * math.log2(max(extent, 1)) / math.log2(most_extent)
    down = lambda ratio: TOP + (HEIGHT - TOP - BOTTOM) * (high - math.log2(ratio)) / (high - low)
    parts = [f'<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 {WIDTH} {HEIGHT}" font-family="sans-serif" font-size="12">',
             f'<rect width="{WIDTH}" height="{HEIGHT}" fill="white"/>']
    for power in range(low, high + 1):
        y = down(2.0 ** power)
        parts.append(f'<line x1="{LEFT}" y1="{y:.1f}" x2="{WIDTH - RIGHT}" y2="{y:.1f}" stroke="#dddddd"/>'
                     f'<text x="{LEFT - 6}" y="{y + 4:.1f}" text-anchor="end">{2.0 ** power:g}</text>')
    extent = 1
    while extent <= most_extent:
        x = across(extent)
        parts.append(f'<line x1="{x:.1f}" y1="{TOP}" x2="{x:.1f}" y2="{HEIGHT - BOTTOM}" stroke="#eeeeee"/>'
                     f'<text x="{x:.1f}" y="{HEIGHT - BOTTOM + 16}" text-anchor="middle">{extent}</text>')
        extent *= 4
    y = down(LIMIT)
    parts.append(f'<line x1="{LEFT}" y1="{y:.1f}" x2="{WIDTH - RIGHT}" y2="{y:.1f}" stroke="#cc0000" stroke-dasharray="6 4"/>')
    for i, (operator, points) in enumerate(of.items()):
        colour = COLOURS[i % len(COLOURS)]
        dashes = "" if i < len(COLOURS) else ' stroke-dasharray="5 3"' if i < 2 * len(COLOURS) else ' stroke-dasharray="2 2"'
        line = " ".join(f"{across(extent):.1f},{down(ratio):.1f}" for extent, ratio in points)
        y = TOP + 10 + i * 19
        parts.append(f'<polyline points="{line}" fill="none" stroke="{colour}" stroke-width="1.5"{dashes}/>')
        parts.append(f'<line x1="{WIDTH - RIGHT + 12}" y1="{y}" x2="{WIDTH - RIGHT + 40}" y2="{y}" stroke="{colour}" '
                     f'stroke-width="2"{dashes}/><text x="{WIDTH - RIGHT + 46}" y="{y + 4}">{operator}</text>')
    parts.append(f'<text x="{(WIDTH - RIGHT + LEFT) / 2}" y="{HEIGHT - 8}" text-anchor="middle">extent</text>'
                 f'<text x="16" y="{(TOP + HEIGHT - BOTTOM) / 2}" text-anchor="middle" '
                 f'transform="rotate(-90 16 {(TOP + HEIGHT - BOTTOM) / 2})">cost of a unit / what it may cost</text></svg>\n')
    return "\n".join(parts)


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--program", default=os.path.join(ROOT, "build", "arm64", "bench", "tarvu_sweep"))
    parser.add_argument("--plugin", default=os.path.join(ROOT, "build", "host", "bench", "libtarvu_icount.so"))
    parser.add_argument("--operator", action="append", default=[], help="only this operator: its worst cases, no page")
    parser.add_argument("--no-build", action="store_true", help="count what the last build left (scripts/bench)")
    parser.add_argument("--worst", type=int, default=40, help="cases to list with --operator")
    parser.add_argument("--csv", help="write every case with its figures to this file")
    parser.add_argument("--cycles", action="store_true", help="and the cycles on an A55 by the guide, which takes some minutes")
    parser.add_argument("--record", action="store_true", help="record the sample that the test holds the counts against")
    parser.add_argument("--add-references", action="store_true",
                        help="add what new references cost to bench/sweep_references.csv; what stands there stays")
    parser.add_argument("--check", action="store_true", help="hold the recorded sample against the counts of now, and end")
    arguments = parser.parse_args()

    if arguments.check:
        check(arguments.program, arguments.plugin)
        return
    cases, doublings = counted(arguments.program, arguments.plugin, arguments.operator,
                               with_cycles=arguments.cycles)
    references = read_counts(REFERENCES)
    if arguments.add_references:
        references = {case.full_name: case.count for case in references_of(cases)} | references
        write_counts(REFERENCES, references)
    judge(cases, references)
    if arguments.csv:
        with open(arguments.csv, "w", encoding="utf-8", newline="") as file:
            writer = csv.writer(file, lineterminator="\n")
            writer.writerow(["operator", "case", "unit", "units", "instructions", "a55 cycles", "allowed", "ratio", "against"])
            for case in cases:
                writer.writerow([case.operator, case.name, case.unit, case.units, case.count, case.cycles, case.allowed, case.ratio,
                                 reference_of(case)])
    print(summary(cases))
    if arguments.operator:
        print(worst_table(cases, arguments.worst))
        for operator, axis, once, twice, grown, most in growth(cases, doublings):
            if grown > most:
                print(f"twice the {axis} costs {grown:.2f} times as much, at most {most:g}: {operator}: {once} -> {twice}")
        return
    if arguments.record:
        record(cases)
    write_page(cases, doublings)


if __name__ == "__main__":
    main()
