"""Reports which lines and branches of product code the tests executed, from the counts that the programs of a coverage build left
behind. Fails below the shares asked for."""

import argparse
import collections
import json
import pathlib
import subprocess
import sys

FOLDERS = ("simd", "frame", "convert", "activation", "detection", "pool", "tensor")


def export(arguments):
    """What llvm-cov knows of the files of product code, each line and branch once for all instances of a template."""
    counts = sorted(pathlib.Path(arguments.counts).glob("*.profraw"))
    if not counts:
        sys.exit(f"no counts in {arguments.counts}: run the tests of the coverage build first")
    merged = pathlib.Path(arguments.counts, "merged.profdata")
    subprocess.run([arguments.profdata, "merge", "-o", merged, *counts], check=True)
    programs = [arguments.program[0], *[f"--object={program}" for program in arguments.program[1:]]]
    text = subprocess.run([arguments.cov, "export", "--format=text", f"--instr-profile={merged}", *programs], check=True,
                          capture_output=True, text=True).stdout
    files = {}
    for file in json.loads(text)["data"][0]["files"]:
        # The build leaves the tree's own path out of all names (-ffile-prefix-map); from the folder on they are right.
        parts = pathlib.Path(file["filename"]).parts
        inner = [i for i, part in enumerate(parts) if part in FOLDERS]
        if inner and pathlib.Path(arguments.root, *parts[inner[0]:]).is_file():
            files[pathlib.Path(*parts[inner[0]:])] = file
    return files


def count_at(segments, place):
    """How often the code at a place was executed."""
    before = [segment for segment in segments if tuple(segment[0:2]) <= place[0:2]]
    return before[-1][2] if before else 0


def ways_of(file):
    """{(place, outcome): count} of all conditions. One that is executed with neither outcome is decided by the compiler."""
    ways = collections.Counter()
    for branch in file["branches"]:
        ways[tuple(branch[0:4]), True] += branch[4]
        ways[tuple(branch[0:4]), False] += branch[5]
    decided = {place for place, _ in ways
               if ways[place, True] + ways[place, False] == 0 and count_at(file["segments"], place) > 0}
    return {key: count for key, count in ways.items() if key[0] not in decided}


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--profdata", required=True)
    parser.add_argument("--cov", required=True)
    parser.add_argument("--counts", required=True, help="folder of the counts")
    parser.add_argument("--program", action="append", required=True, help="a program that was run")
    parser.add_argument("--root", required=True)
    parser.add_argument("--least-lines", type=float, default=0)
    parser.add_argument("--least-branches", type=float, default=0)
    arguments = parser.parse_args()
    totals = collections.Counter()
    print(f"{'file':45}{'lines':>12}{'branches':>14}")
    missed = []
    for name, file in sorted(export(arguments).items()):
        text = pathlib.Path(arguments.root, name).read_text(encoding="utf-8").splitlines()
        ways = ways_of(file)
        lines = file["summary"]["lines"]
        taken = sum(count > 0 for count in ways.values())
        totals.update({"lines": lines["count"], "covered": lines["covered"], "ways": len(ways), "taken": taken})
        print(f"{str(name):45}{lines['covered']:6}/{lines['count']:<5}{taken:8}/{len(ways):<5}")
        never = collections.defaultdict(set)
        for (place, way), count in ways.items():
            if count == 0:
                never[place].add(way)
        for place, which in sorted(never.items()):
            code = text[place[0] - 1][place[1] - 1:place[3] - 1 if place[2] == place[0] else None]
            what = "never reached" if len(which) == 2 else "never true" if True in which else "never false"
            missed.append(f"{name}:{place[0]}: {what}: {code}")
    print(*missed, sep="\n")
    lines = 100 * totals["covered"] / totals["lines"]
    branches = 100 * totals["taken"] / totals["ways"]
    print(f"lines: {lines:.1f}% ({totals['covered']} of {totals['lines']})")
    print(f"branches: {branches:.1f}% ({totals['taken']} of {totals['ways']})")
    return 0 if lines >= arguments.least_lines and branches >= arguments.least_branches else 1


if __name__ == "__main__":
    sys.exit(main())
