"""docs/benchmarks.md and its picture, made of the figures in bench/figures.json and the goals in bench/goals.csv."""
import csv
import json
import os
import subprocess
import sys

import cycles

ROOT = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
GOALS = os.path.join(ROOT, "bench", "goals.csv")
FIGURES = os.path.join(ROOT, "bench", "figures.json")
DOCUMENT = os.path.join(ROOT, "docs", "benchmarks.md")
PICTURE = os.path.join(ROOT, "docs", "benchmarks.svg")

LEAST_EFFICIENCY = 0.8  # the goal of a row and of a loop

INTRODUCTION = """# Benchmarks

Made by `scripts/bench`; do not edit. Each workload is held against a plain scalar form of the same work, compiled at
-O2 without vectorisation, and on the host also against a memory copy (for One-hot a memory fill) of the same bytes.
`bench/goals.csv` holds the goals and the figures that they come from. [The sweep](sweep.md) counts many small shapes of every
operator.
"""

ARM64_INTRODUCTION = """## arm64

{compiler}. Models: {models}.

- Instructions executed for each unit, counted under the emulator between two marks round the second of two calls. The
  count is exact and repeatable.
- Cycles for each unit on three processors by llvm-mca, and on a Cortex-A55 after Arm's optimisation guide
  (`bench/tools/cortex_a55.py`), which is the figure of record: llvm's A55 takes a 16-byte load for less and a pair of
  them for more than they are. The models execute 40 windows of some 768 instructions of the sequence that was executed.
  All loads hit the first-level cache and no branch is mispredicted; nothing is timed on hardware.
- Efficiency: the cycles that the A55's units need at least, by the guide, over those that it takes. Where a row has no goal in
  cycles, its goal is an efficiency of 0.8.
"""

PICTURE_INTRODUCTION = """![Cycles on a Cortex-A55 against what its units need](benchmarks.svg)

Each bar is the efficiency, with the cycles a unit behind it; the mark is the goal.
"""

HOST_INTRODUCTION = """## Host

{machine}. Nanoseconds of one pinned thread for each unit, the median of nine interleaved repeats. Times move between
machines and with what else runs on them; the ratio of ours to plain, measured in one run, moves less. The goal is the most that
the ratio may be: the ratio of the best peer to the plain loop where the peer's layout is the same, twice that where it is
another; there is none where one of the two is not known.
"""


def read_figures():
    if not os.path.exists(FIGURES):
        return {}
    with open(FIGURES, encoding="utf-8") as file:
        return json.load(file)


def write_figures(figures):
    def rounded(value):
        if isinstance(value, float):
            return float(f"{value:.5g}")
        if isinstance(value, dict):
            return {key: rounded(of) for key, of in value.items()}
        return [rounded(of) for of in value] if isinstance(value, (list, tuple)) else value

    with open(FIGURES, "w", encoding="utf-8") as file:
        json.dump(rounded(figures), file, indent=1)
        file.write("\n")


def read_goals():
    with open(GOALS, encoding="utf-8", newline="") as file:
        return [{key: value or None for key, value in row.items()} for row in csv.DictReader(file)]


def key_of(goal):
    return f"{goal['workload']} {goal['variant']}"


def name_of(goal):
    return goal["workload"] + ("" if goal["variant"] == "default" else ", " + goal["variant"].replace("_", " "))


def number(value):
    return "" if value is None else f"{value:.3g}" if value < 1000 else f"{value:.0f}"


def goal_number(goal, column):
    return None if goal[column] is None else float(goal[column])


def goal_ratio(goal):
    """The most that ours / plain may be on the host, or None."""
    if goal["plain_x86_ns"] is None or goal["peer_x86_ns"] is None:
        return None
    ratio = float(goal["peer_x86_ns"]) / float(goal["plain_x86_ns"])
    return 2 * ratio if goal["peer_layout"] == "other" else ratio


def is_within(measured, most):
    """To the three digits that are shown."""
    return float(f"{measured:.3g}") <= float(f"{most:.3g}")


def verdict(checks):
    """checks: (measured, most) pairs; a pair without a goal or a figure says nothing."""
    known = [is_within(measured, most) for measured, most in checks if measured is not None and most is not None]
    if not known:
        return ""
    return "yes" if all(known) else "NO"


def host_verdict(goal, row):
    checks = [(row["ours"] / row["plain"], goal_ratio(goal))]
    if goal["least_share_of_baseline"] is not None:
        checks.append((row["ours"] * float(goal["least_share_of_baseline"]), row["copy"]))
    return verdict(checks)


def arm64_verdict(goal, row):
    checks = [(row["ours"], goal_number(goal, "goal_arm64_insn"))]
    if cycles.GUIDE in row:
        in_cycles = goal_number(goal, "goal_a55_cycles")
        checks.append((row[cycles.GUIDE], in_cycles) if in_cycles is not None else (LEAST_EFFICIENCY, row["efficiency"]))
    return verdict(checks)


def markdown(head, lines, texts=2):
    """A table whose first columns are texts and whose others are numbers."""
    rows = ["| " + " | ".join(head) + " |", "|" + "---|" * texts + "---:|" * (len(head) - texts)]
    return "\n".join(rows + ["| " + " | ".join(line) + " |" for line in lines]) + "\n"


def rows_of(figures, target):
    """(goal, row) of the target's rows, in the order of the goals."""
    rows = figures.get(target, {}).get("rows", {})
    goals = read_goals()
    unknown = set(rows) - {key_of(goal) for goal in goals}
    if unknown:
        sys.exit(f"scripts/bench: bench/goals.csv has no line for {', '.join(sorted(unknown))}.")
    return [(goal, rows[key_of(goal)]) for goal in goals if key_of(goal) in rows]


def arm64_table(figures):
    head = ["workload", "unit", "plain insn", "insn", "goal", "A53", "A55 by llvm", "A55 by guide", "goal", "N1", "efficiency", "met"]
    lines = []
    for goal, row in rows_of(figures, "arm64"):
        known = [row.get("plain"), row["ours"], goal_number(goal, "goal_arm64_insn"), row.get("cortex-a53"), row.get("cortex-a55"),
                 row.get(cycles.GUIDE), goal_number(goal, "goal_a55_cycles"), row.get("neoverse-n1")]
        efficiency = f"{row['efficiency']:.2f}" if "efficiency" in row else ""
        lines.append([name_of(goal), goal["unit"], *map(number, known), efficiency, arm64_verdict(goal, row)])
    return markdown(head, lines)


def host_table(figures):
    lines = []
    for goal, row in rows_of(figures, "host"):
        known = [row["plain"], row["ours"], row["ours"] / row["plain"], goal_ratio(goal), row["copy"]]
        lines.append([name_of(goal), goal["unit"], *map(number, known), host_verdict(goal, row)])
    return markdown(["workload", "unit", "plain ns", "ns", "ratio", "goal", "copy ns", "met"], lines)


def tables(figures):
    parts = [table(figures) for target, table in (("arm64", arm64_table), ("host", host_table))
             if figures.get(target, {}).get("rows")]
    return "\n".join(parts)


def function_name(symbol):
    """Without namespaces, the arguments of templates and parameters."""
    plain = subprocess.run(["c++filt", "-p", symbol or "-"], capture_output=True, text=True, check=False).stdout.strip()
    plain = plain.replace("(anonymous namespace)::", "").replace("tarvu::", "")
    return plain.partition("<")[0].split(" ")[-1]


def loops_table(figures):
    """The loops that hold a twentieth of a row's instructions and do not reach the efficiency."""
    lines, all_efficiencies = [], []
    for goal, row in rows_of(figures, "arm64"):
        for symbol, instructions, share, in_cycles, efficiency in row.get("loops", []):
            all_efficiencies.append(efficiency)
            if efficiency < LEAST_EFFICIENCY:
                lines.append([name_of(goal), f"`{function_name(symbol)}`", str(instructions), f"{share:.0%}", number(in_cycles),
                              f"{efficiency:.2f}"])
    if not all_efficiencies:
        return ""
    median = sorted(all_efficiencies)[len(all_efficiencies) // 2]
    return (f"## Loops below {LEAST_EFFICIENCY}\n\nOf {len(all_efficiencies)} loops that hold a twentieth of a row's "
            f"instructions or more, these\nreach less than {LEAST_EFFICIENCY} of what the A55's units allow, by the guide. The median "
            f"is {median:.2f}.\n\n"
            + markdown(["workload", "function", "instructions a turn", "share", "cycles a turn", "efficiency"], lines))


def remarks(figures):
    """Why each goal was missed, of which goals.csv has a line."""
    lines = []
    for target, judge, column in (("arm64", arm64_verdict, "why_missed_arm64"), ("host", host_verdict, "why_missed")):
        for goal, row in rows_of(figures, target):
            if judge(goal, row) != "NO":
                continue
            if goal[column] is None:
                print(f"scripts/bench: goals.csv does not say why {name_of(goal)} misses its goal ({target}).", file=sys.stderr)
            lines.append(f"- {name_of(goal)} ({target}): {goal[column] or 'not yet known.'}")
    return "## Goals that are not met\n\n" + "\n".join(lines or ["None."]) + "\n"


BAR_HEIGHT, LABELS, BARS, RIGHT = 16, 330, 460, 120


def picture(figures):
    """A bar for each row's efficiency, with its cycles and its goal."""
    rows = [(goal, row) for goal, row in rows_of(figures, "arm64") if "efficiency" in row]
    width, height = LABELS + BARS + RIGHT, BAR_HEIGHT * len(rows) + 40
    parts = [f'<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 {width} {height}" font-family="sans-serif" font-size="11">',
             f'<rect width="{width}" height="{height}" fill="white"/>']
    for tenth in range(0, 11, 2):
        x = LABELS + BARS * tenth / 10
        parts.append(f'<line x1="{x:.1f}" y1="10" x2="{x:.1f}" y2="{height - 26}" stroke="#dddddd"/>'
                     f'<text x="{x:.1f}" y="{height - 10}" text-anchor="middle">{tenth / 10:g}</text>')
    for i, (goal, row) in enumerate(rows):
        y = 10 + BAR_HEIGHT * i
        length = BARS * min(row["efficiency"], 1.0)
        in_cycles = goal_number(goal, "goal_a55_cycles")
        mark = row["bound"] / in_cycles if in_cycles is not None else LEAST_EFFICIENCY
        x = LABELS + BARS * min(mark, 1.0)
        colour = "#c8553d" if arm64_verdict(goal, row) == "NO" else "#3a7d44"
        parts.append(f'<text x="{LABELS - 6}" y="{y + 12}" text-anchor="end">{name_of(goal)}</text>'
                     f'<rect x="{LABELS}" y="{y + 2}" width="{length:.1f}" height="{BAR_HEIGHT - 4}" fill="{colour}"/>'
                     f'<line x1="{x:.1f}" y1="{y}" x2="{x:.1f}" y2="{y + BAR_HEIGHT}" stroke="black" stroke-width="1.5"/>'
                     f'<text x="{LABELS + BARS + 8}" y="{y + 12}">{number(row[cycles.GUIDE])} / {goal["unit"]}</text>')
    parts.append("</svg>\n")
    return "\n".join(parts)


def write(figures):
    sizes = ", ".join(f"{target} {size:,} bytes" for target, size in figures.get("size", {}).items())
    parts = [INTRODUCTION]
    if rows_of(figures, "arm64"):
        parts += [ARM64_INTRODUCTION.format(**figures["arm64"]), arm64_table(figures), PICTURE_INTRODUCTION, loops_table(figures)]
        with open(PICTURE, "w", encoding="utf-8") as file:
            file.write(picture(figures))
    if rows_of(figures, "host"):
        parts += [HOST_INTRODUCTION.format(**figures["host"]), host_table(figures)]
    parts += [remarks(figures), f"## Size\n\nThe stripped library: {sizes}.\n"]
    with open(DOCUMENT, "w", encoding="utf-8") as file:
        file.write("\n".join(parts))
    print(f"scripts/bench: wrote {os.path.relpath(DOCUMENT, ROOT)}", file=sys.stderr)
