#!/usr/bin/env python3
"""Runs the benchmark suite that build/host and build/arm64 hold, and writes docs/benchmarks.md.

Every row is printed as a JSON line while it is measured, then the rows as a table. Time is measured on this machine;
instructions are counted for arm64 under the emulator. The document is written only after a run of all cases in both
modes.
"""
import argparse
import csv
import json
import os
import platform
import re
import shutil
import subprocess
import sys
import tempfile

import mca

ROOT = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
GOALS = os.path.join(ROOT, "bench", "goals.csv")
DOCUMENT = os.path.join(ROOT, "docs", "benchmarks.md")
HOST_BUILD = os.path.join(ROOT, "build", "host")
ARM64_BUILD = os.path.join(ROOT, "build", "arm64")
EMULATOR = ["qemu-aarch64", "-cpu", "cortex-a76", "-L", "/usr/aarch64-linux-gnu"]

INTRODUCTION = """# Benchmarks

Made by `scripts/bench`; do not edit. Each workload is held against a plain scalar form of the same work, compiled at
-O2 without vectorisation, and on the host also against a memory copy (for One-hot a memory fill) of the same bytes.

- Host: nanoseconds of one pinned thread for each unit, the median of nine interleaved repeats. Times move between
  machines and with what else runs on them; the ratio of ours to plain, measured in one run, moves less. The goal is the
  most that the ratio may be.
- arm64: instructions executed for each unit, counted under the emulator between two marks round the second of two
  calls. The count is exact and repeatable.

[The sweep](sweep.md) counts many small shapes of every operator. `bench/goals.csv` holds the goals and the figures that they come from. The host's goal is the ratio of the best peer to
the plain loop where the peer's layout is the same, twice that where it is another; there is none where one of the two
is not known.
"""

CYCLES_INTRODUCTION = """## Cycles on arm64

Cycles for each unit as llvm-mca reckons them for the blocks of instructions that hold most of the count: what a block
takes on end, times how often it ran. All loads hit the first-level cache, no branch is mispredicted, and no block
overlaps another, which in-order cores come closest to.
"""

REMARKS_INTRODUCTION = """## Goals that are not met
"""

SHARE_FOR_CYCLES = 0.95  # of the instructions of a row


def fail(sentence):
    sys.exit(f"scripts/bench: {sentence}")


def suite_of(build):
    program = os.path.join(build, "bench", "tarvu_bench")
    if not os.path.exists(program):
        fail(f"there is no {os.path.relpath(program, ROOT)}; run scripts/bench without --no-build.")
    return program


def json_lines(command, log=None):
    """Runs the suite; yields its lines as they come, each with the report that the counter has written on it."""
    reports = ""
    read = 0
    with subprocess.Popen(command, stdout=subprocess.PIPE, text=True) as suite:
        for line in suite.stdout:
            report = ""
            if log is not None:
                with open(log, encoding="utf-8") as file:
                    file.seek(read)
                    reports += file.read()
                    read = file.tell()
                # The suite may be ahead of its lines: the reports of later ones follow.
                end = reports.find("icount total=", 1)
                report = reports if end < 0 else reports[:end]
                reports = reports[len(report):]
            print(line, end="", flush=True)
            yield json.loads(line), report
    if suite.returncode != 0:
        fail(f"the suite ended with {suite.returncode}.")


BLOCK = re.compile(r"^ +[\d.]+% 0x[\da-f]+ insns=(\d+) hits=(\d+) .*?code=([\da-f,]+)$", re.MULTILINE)


def cycles_of_report(report, units, known):
    """Cycles a unit on each processor from the counter's report of a row, and the share of its instructions they stand for."""
    total = float(re.search(r"icount total=(\d+)", report).group(1))
    counted = 0
    cycles = dict.fromkeys(mca.PROCESSORS, 0.0)
    for instructions, hits, code in BLOCK.findall(report):
        if counted >= SHARE_FOR_CYCLES * total:
            break
        counted += int(instructions) * int(hits)
        if code not in known:
            body = mca.disassembled(mca.find_tool("llvm-mc"), [int(word, 16) for word in code.split(",")])
            known[code] = {name: mca.cycles_per_turn(mca.find_tool("llvm-mca"), name, body) for name in mca.PROCESSORS}
        for name in mca.PROCESSORS:
            cycles[name] += known[code][name] * int(hits) / units
    return cycles | {"share": counted / total}


def measure(mode, pattern, hottest, cycles):
    """Returns {(case, variant): {(peer, figure): value}} in the order of the suite; a figure is ns_elem, insn_elem or cycles."""
    rows = {}

    def add(line):
        figure = "ns_elem" if "ns_elem" in line else "insn_elem"
        rows.setdefault((line["case"], line["variant"]), {})[(line["peer"], figure)] = line[figure]

    if mode != "count":
        for line, _ in json_lines([suite_of(HOST_BUILD), "--mode", "time", "--case", pattern]):
            add(line)
    if mode != "time":
        if shutil.which(EMULATOR[0]) is None:
            fail("the emulator qemu-aarch64 (Debian package qemu-user) is not installed.")
        options = (",dump=1" if hottest or cycles else "") + (",code=1" if cycles else "")
        plugin = os.path.join(HOST_BUILD, "bench", "libtarvu_icount.so") + options
        known = {}
        with tempfile.TemporaryDirectory() as folder:
            log = os.path.join(folder, "counts.txt")
            command = EMULATOR + ["-plugin", plugin, "-d", "plugin", "-D", log, suite_of(ARM64_BUILD), "--mode",
                                  "count", "--case", pattern, "--count-log", log]
            for line, report in json_lines(command, log):
                add(line)
                if cycles and line["peer"] == "ours":
                    rows[(line["case"], line["variant"])][("ours", "cycles")] = cycles_of_report(report, line["elems"], known)
                elif hottest:
                    print(report, end="", flush=True)
    return rows


def read_goals():
    with open(GOALS, encoding="utf-8", newline="") as file:
        return [{key: value or None for key, value in row.items()} for row in csv.DictReader(file)]


def goal_ratio(goal):
    """The most that ours / plain may be on the host, or None."""
    if goal["plain_x86_ns"] is None or goal["peer_x86_ns"] is None:
        return None
    ratio = float(goal["peer_x86_ns"]) / float(goal["plain_x86_ns"])
    return 2 * ratio if goal["peer_layout"] == "other" else ratio


def verdict(checks):
    """checks: (measured, most) pairs; a pair without a goal or a figure says nothing."""
    known = [measured <= most for measured, most in checks if measured is not None and most is not None]
    if not known:
        return ""
    return "yes" if all(known) else "NO"


def number(value):
    return "" if value is None else f"{value:.3g}" if value < 1000 else f"{value:.0f}"


def name_of(goal):
    return goal["workload"] + ("" if goal["variant"] == "default" else ", " + goal["variant"].replace("_", " "))


def table(rows):
    """The table, and the rows of goals.csv that miss a goal with the names of the targets."""
    head = ["workload", "unit", "host plain ns", "host ours ns", "ratio", "goal", "met", "copy ns", "arm64 plain insn",
            "arm64 ours insn", "goal", "met"]
    lines = ["| " + " | ".join(head) + " |", "|" + "---|" * 2 + "---:|" * (len(head) - 2)]
    missed = []
    goals = read_goals()
    unknown = set(rows) - {(goal["workload"], goal["variant"]) for goal in goals}
    if unknown:
        fail(f"bench/goals.csv has no line for {', '.join(sorted(' '.join(key) for key in unknown))}.")
    for goal in goals:
        row = rows.get((goal["workload"], goal["variant"]))
        if row is None:
            continue
        ours, plain = row.get(("ours", "ns_elem")), row.get(("plain", "ns_elem"))
        baseline = row.get(("memcpy", "ns_elem"), row.get(("memset", "ns_elem")))
        ratio = ours / plain if ours is not None else None
        least_share = goal["least_share_of_baseline"]
        host_checks = [(ratio, goal_ratio(goal))]
        if least_share is not None and ours is not None:
            host_checks.append((ours * float(least_share), baseline))
        insn = row.get(("ours", "insn_elem"))
        goal_insn = None if goal["goal_arm64_insn"] is None else float(goal["goal_arm64_insn"])
        host = [plain, ours, ratio, goal_ratio(goal)]
        arm64 = [row.get(("plain", "insn_elem")), insn, goal_insn]
        verdicts = {"host": verdict(host_checks), "arm64": verdict([(insn, goal_insn)])}
        cells = [name_of(goal), goal["unit"], *map(number, host), verdicts["host"], number(baseline), *map(number, arm64),
                 verdicts["arm64"]]
        lines.append("| " + " | ".join(cells) + " |")
        if "NO" in verdicts.values():
            missed.append((goal, [target for target in verdicts if verdicts[target] == "NO"]))
    return "\n".join(lines) + "\n", missed


def cycles_table(rows):
    lines = ["| workload | unit | instructions | " + " | ".join(mca.PROCESSORS) + " | share of instructions |",
             "|" + "---|" * 2 + "---:|" * (2 + len(mca.PROCESSORS))]
    for goal in read_goals():
        row = rows.get((goal["workload"], goal["variant"]), {})
        if ("ours", "cycles") in row:
            cycles = row[("ours", "cycles")]
            cells = [name_of(goal), goal["unit"], number(row[("ours", "insn_elem")]),
                     *(number(cycles[name]) for name in mca.PROCESSORS), f"{cycles['share']:.0%}"]
            lines.append("| " + " | ".join(cells) + " |")
    return "\n".join(lines) + "\n"


def remarks(missed):
    """Why each goal was missed, of which goals.csv has a line."""
    lines = []
    for goal, targets in missed:
        if goal["why_missed"] is None:
            print(f"scripts/bench: goals.csv does not say why {name_of(goal)} misses its goal.", file=sys.stderr)
        lines.append(f"- {name_of(goal)} ({' and '.join(targets)}): {goal['why_missed'] or 'not yet known.'}")
    return "\n".join(lines or ["None."]) + "\n"


def library_sizes():
    """Bytes of the stripped shared library of both targets."""
    sizes = []
    for target, build, strip in (("arm64", ARM64_BUILD, "aarch64-linux-gnu-strip"), ("host", HOST_BUILD, "strip")):
        with tempfile.TemporaryDirectory() as folder:
            stripped = os.path.join(folder, "library")
            subprocess.run([strip, "-o", stripped, os.path.join(build, "libtarvu.so")], check=True)
            sizes.append(f"{target} {os.path.getsize(stripped):,} bytes")
    return "The stripped library: " + ", ".join(sizes) + ".\n"


def processor_name():
    with open("/proc/cpuinfo", encoding="utf-8") as file:
        for line in file:
            if line.startswith("model name"):
                return line.split(":", 1)[1].strip()
    return platform.machine()


def first_line(command):
    return subprocess.run(command, capture_output=True, text=True, check=True).stdout.splitlines()[0]


def write_document(rows):
    machine = (f"Host: {processor_name()}, {first_line(['g++', '--version'])}. "
               f"arm64: {first_line(['aarch64-linux-gnu-g++', '--version'])}.")
    text, missed = table(rows)
    with open(DOCUMENT, "w", encoding="utf-8") as file:
        file.write("\n".join([INTRODUCTION, machine, "", text, REMARKS_INTRODUCTION, remarks(missed), CYCLES_INTRODUCTION,
                              f"{first_line([mca.find_tool('llvm-mca'), '--version'])}.", "", cycles_table(rows),
                              "## Size\n", library_sizes()]))
    print(f"scripts/bench: wrote {os.path.relpath(DOCUMENT, ROOT)}", file=sys.stderr)


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--case", default="*", help="run only the cases whose name matches; * stands for anything")
    parser.add_argument("--mode", choices=["time", "count", "both"], default="both")
    parser.add_argument("--no-build", action="store_true", help="measure what the last build left (scripts/bench)")
    parser.add_argument("--hottest", action="store_true", help="count, and list the hottest blocks of each row")
    parser.add_argument("--cycles", action="store_true", help="count, and reckon cycles with llvm-mca")
    arguments = parser.parse_args()
    mode = "count" if arguments.hottest or arguments.cycles else arguments.mode
    whole = mode == "both" and arguments.case == "*"
    rows = measure(mode, arguments.case, arguments.hottest, whole or arguments.cycles)
    if whole:
        write_document(rows)
    else:
        print(table(rows)[0], end="")
        if arguments.cycles:
            print("\n" + cycles_table(rows), end="")


if __name__ == "__main__":
    main()
