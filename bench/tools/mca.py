#!/usr/bin/env python3
"""Static cycles of every inner loop in an AArch64 assembly file, by llvm-mca.

usage: mca.py FILE.s [ELEMENTS PER TURN]
  clang++ --target=aarch64-linux-gnu -O2 -ffp-contract=off -S kernel.cpp -o kernel.s     or
  aarch64-linux-gnu-g++ -O2 -ffp-contract=off -S kernel.cpp -o kernel.s

An inner loop is a label whose block ends in a conditional branch back to it with no other label between. LLVM 19 models
cortex-a53, cortex-a55 and neoverse-n1; for cortex-a76 it takes an older core silently, so neoverse-n1, which is of the
same design, stands for it. All loads hit the first-level cache; the figures of the in-order cores depend on the order
of the code.
"""
import re
import shutil
import subprocess
import sys

PROCESSORS = ("cortex-a53", "cortex-a55", "neoverse-n1")
TURNS = 200
LABEL = re.compile(r"^([A-Za-z_.$][\w.$]*):")
BRANCH_BACK = re.compile(r"\s+(?:b\.?\w+|cbn?z\s+\w+,|tbn?z\s+\w+,\s*#?\w+,)\s+(\.L\w+)")


def inner_loops(lines):
    """Yields function, label and instructions of each inner loop."""
    positions = {}
    function = ""
    for number, line in enumerate(lines):
        label = LABEL.match(line)
        if label:
            positions[label.group(1)] = number
            if not label.group(1).startswith("."):
                function = label.group(1)
        branch = BRANCH_BACK.match(line)
        if not branch or branch.group(1) not in positions:
            continue
        body = lines[positions[branch.group(1)] + 1:number + 1]
        if any(re.match(r"^\.L\w+:", inner) for inner in body):
            continue
        yield function, branch.group(1), [x for x in body if re.match(r"\s+[a-z]", x)]


def find_tool(name):
    """llvm-mca or llvm-mc of the release whose models the figures stand for, or of any other, or None."""
    return shutil.which(name + "-19") or shutil.which(name)


def disassembled(tool, words):
    """The instructions of machine words, as llvm-mca takes them."""
    octets = "\n".join(" ".join(f"0x{octet:02x}" for octet in word.to_bytes(4, "little")) for word in words)
    text = subprocess.run([tool, "--disassemble", "-triple=aarch64-linux-gnu", "-mattr=+v8.2a"], input=octets,
                          capture_output=True, text=True, check=True).stdout
    return [line for line in text.split("\n") if re.match(r"\s+[a-z]", line) and ".text" not in line]


def cycles_per_turn(tool, processor, body):
    command = [tool, "-mtriple=aarch64-linux-gnu", "-mcpu=" + processor, f"-iterations={TURNS}", "-instruction-info=0",
               "-resource-pressure=0"]
    report = subprocess.run(command, input="\n".join(body), capture_output=True, text=True, check=False).stdout
    cycles = re.search(r"Total Cycles:\s+(\d+)", report)
    return int(cycles.group(1)) / TURNS if cycles else float("nan")


def main():
    if len(sys.argv) not in (2, 3):
        sys.exit(__doc__)
    tool = find_tool("llvm-mca")
    if tool is None:
        sys.exit("mca.py: llvm-mca is not installed (Debian package llvm-19)")
    elements = float(sys.argv[2]) if len(sys.argv) == 3 else None
    with open(sys.argv[1], encoding="utf-8") as file:
        lines = file.read().split("\n")
    for function, label, body in inner_loops(lines):
        figures = []
        for processor in PROCESSORS:
            cycles = cycles_per_turn(tool, processor, body)
            share = f" ({cycles / elements:.3f} an element)" if elements else ""
            figures.append(f"{processor}={cycles:.1f}{share}")
        print(f"{function:45.45s} {label:10s} instructions={len(body):3d} " + " ".join(figures))


if __name__ == "__main__":
    main()
