#!/usr/bin/env python3
"""Runs the benchmark suite that build/host and build/arm64 hold, and writes docs/benchmarks.md.

Every row is printed as a JSON line while it is measured, then the rows as a table. Time is measured on this machine;
instructions are counted for arm64 under the emulator, and cycles reckoned from what was executed there. A run of all cases
replaces the figures of its mode in bench/figures.json and writes the document of them: `--mode count` leaves the host's figures
as they are, and needs no quiet machine.
"""
import argparse
import json
import os
import platform
import shutil
import subprocess
import sys
import tempfile

import benchmarks_page
import cycles

ROOT = benchmarks_page.ROOT
HOST_BUILD = os.path.join(ROOT, "build", "host")
ARM64_BUILD = os.path.join(ROOT, "build", "arm64")
EMULATOR = ["qemu-aarch64", "-cpu", "cortex-a76", "-L", "/usr/aarch64-linux-gnu"]


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


def key_of(line):
    return f"{line['case']} {line['variant']}"


def timed(pattern):
    """{key: {"ours", "plain", "copy"}} in nanoseconds a unit."""
    rows = {}
    for line, _ in json_lines([suite_of(HOST_BUILD), "--mode", "time", "--case", pattern]):
        peer = line["peer"] if line["peer"] in ("ours", "plain") else "copy"
        rows.setdefault(key_of(line), {})[peer] = line["ns_elem"]
    return rows


def under_counter(mode, pattern, options):
    """Lines and reports of the suite under the emulator with the counting plugin."""
    if shutil.which(EMULATOR[0]) is None:
        fail("the emulator qemu-aarch64 (Debian package qemu-user) is not installed.")
    plugin = os.path.join(HOST_BUILD, "bench", "libtarvu_icount.so") + options
    with tempfile.TemporaryDirectory() as folder:
        log = os.path.join(folder, "counts.txt")
        yield from json_lines([*EMULATOR, "-plugin", plugin, "-d", "plugin", "-D", log, suite_of(ARM64_BUILD), "--mode", mode,
                               "--case", pattern, "--count-log", log], log)


def counted(pattern):
    """{key: {"ours", "plain"}} in instructions a unit."""
    rows = {}
    for line, _ in under_counter("count", pattern, ",counts=1"):
        rows.setdefault(key_of(line), {})[line["peer"]] = line["insn_elem"]
    return rows


def add_cycles(rows, pattern):
    """Adds to each row its cycles a unit, its efficiency, and its hot loops."""
    if cycles.tool("llvm-mca") is None:
        fail("llvm-mca (Debian package llvm-19) is not installed.")
    for line, report in under_counter("count-ours", pattern, f",windows={cycles.WINDOWS}"):
        section = cycles.Section(report)
        row = rows[key_of(line)]
        row.update(cycles.of_section(section, line["elems"]))
        row["loops"] = cycles.hot_loops(section)


def library_sizes():
    """Bytes of the stripped shared library of both targets."""
    sizes = {}
    for target, build, strip in (("arm64", ARM64_BUILD, "aarch64-linux-gnu-strip"), ("host", HOST_BUILD, "strip")):
        library = os.path.join(build, "libtarvu.so")
        if os.path.exists(library):
            with tempfile.TemporaryDirectory() as folder:
                stripped = os.path.join(folder, "library")
                subprocess.run([strip, "-o", stripped, library], check=True)
                sizes[target] = os.path.getsize(stripped)
    return sizes


def processor_name():
    with open("/proc/cpuinfo", encoding="utf-8") as file:
        for line in file:
            if line.startswith("model name"):
                return line.split(":", 1)[1].strip()
    return platform.machine()


def first_line(command):
    return subprocess.run(command, capture_output=True, text=True, check=True).stdout.splitlines()[0]


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--case", default="*", help="run only the cases whose name matches; * stands for anything")
    parser.add_argument("--mode", choices=["time", "count", "both"], default="both")
    parser.add_argument("--no-build", action="store_true", help="measure what the last build left (scripts/bench)")
    parser.add_argument("--hottest", action="store_true", help="count, and list the hottest blocks of each row")
    parser.add_argument("--cycles", action="store_true", help="count, and reckon cycles, of the cases of --case")
    parser.add_argument("--page", action="store_true", help="measure nothing: write the document of bench/figures.json")
    arguments = parser.parse_args()
    whole = arguments.case == "*" and not arguments.hottest and not arguments.cycles
    figures = benchmarks_page.read_figures()
    if arguments.page:
        benchmarks_page.write(figures)
        return
    if arguments.hottest:
        for _, report in under_counter("count", arguments.case, ",dump=1"):
            print(report, end="", flush=True)
        return
    measured = {"host": {"rows": {}}, "arm64": {"rows": {}}}
    if arguments.mode != "count" and not arguments.cycles:
        measured["host"] = {"machine": f"{processor_name()}, {first_line(['g++', '--version'])}", "rows": timed(arguments.case)}
    if arguments.mode != "time" or arguments.cycles:
        rows = counted(arguments.case)
        if whole or arguments.cycles:
            add_cycles(rows, arguments.case)
        measured["arm64"] = {"compiler": first_line(["aarch64-linux-gnu-g++", "--version"]),
                             "models": first_line([cycles.tool("llvm-mca"), "--version"]) if cycles.tool("llvm-mca") else "",
                             "rows": rows}
    if whole:
        figures |= {target: of for target, of in measured.items() if of["rows"]}
        figures.setdefault("size", {}).update(library_sizes())
        benchmarks_page.write_figures(figures)
        benchmarks_page.write(figures)
    else:
        print(benchmarks_page.tables(measured))


if __name__ == "__main__":
    main()
