"""Holds libtarvu_contract to what it promises: its exports are the header's functions, it needs the C library alone and takes
nothing of it but functions on memory and strings, its soname is its own."""

import argparse
import re
import subprocess
import sys

IMPORTS = {"memcpy", "memmove", "memset", "memcmp", "strcmp", "strncmp", "strlen",
           "__cxa_finalize", "__gmon_start__", "_ITM_deregisterTMCloneTable", "_ITM_registerTMCloneTable"}


def lines_of(*command):
    return subprocess.run(command, check=True, capture_output=True, text=True).stdout.splitlines()


def symbols(nm, library, option):
    return {line.split()[-1].split("@")[0] for line in lines_of(nm, "-D", option, library)}


def main():
    parser = argparse.ArgumentParser()
    for option in ("header", "library", "nm", "readelf"):
        parser.add_argument("--" + option, required=True)
    parser.add_argument("--expect-findings", type=int, default=0)
    arguments = parser.parse_args()
    with open(arguments.header, encoding="ascii") as file:
        header = re.sub(r"//[^\n]*", "", file.read())
    declared = set(re.findall(r"\bTARVU_CONTRACT_API\b[^;{]*?\b(\w+)\s*\([^;{]*\)\s*;", header))
    findings = []
    exported = symbols(arguments.nm, arguments.library, "--defined-only")
    if exported != declared or not declared:
        findings.append(f"exports {sorted(exported ^ declared)} on one side only")
    imported = symbols(arguments.nm, arguments.library, "--undefined-only")
    if imported - IMPORTS:
        findings.append(f"takes {sorted(imported - IMPORTS)}")
    entries = "\n".join(lines_of(arguments.readelf, "-dW", arguments.library))
    needed = re.findall(r"\(NEEDED\).*\[(.*)\]", entries)
    if set(needed) - {"libc.so.6"}:
        findings.append(f"needs {needed}")
    if re.findall(r"\(SONAME\).*\[(.*)\]", entries) != ["libtarvu_contract.so.0"]:
        findings.append("has another soname")
    print("\n".join(findings) or f"{len(declared)} functions exported, needs {needed}")
    return 0 if len(findings) == arguments.expect_findings else 1


if __name__ == "__main__":
    sys.exit(main())
