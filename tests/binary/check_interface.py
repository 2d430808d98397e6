"""Compares the interface that the header declares with the recorded one: names, parameter types, records with the place and
type of every field.

The recorded descriptions are made from a small library that the header is turned into: each prototype gets an empty body, and
is compiled with debug information. So the product is compared as its callers see it, whatever it was compiled with. That the
product exports these names and no others is another test's business; that a definition keeps its prototype, the compiler's.
"""

import argparse
import os
import re
import shutil
import subprocess
import sys


def run(*command):
    return subprocess.run(command, check=True, stdout=subprocess.PIPE, text=True).stdout


def without_comments(text):
    return re.sub(r"//[^\n]*|/\*.*?\*/", "", text, flags=re.DOTALL)


def stub_source(header_text):
    """A C source that defines every function of the header."""
    text = without_comments(header_text)
    stubs, functions = re.subn(r"(\bTARVU_API\b[^;{#]*\))\s*;", r"\1 { __builtin_trap(); }", text)
    if functions < 2:
        raise SystemExit("the header declares no functions")
    # A record that no prototype names, since it is reached through a void pointer, gets a function of its own.
    prototypes = " ".join(re.findall(r"\bTARVU_API\b[^;{#]*;", text))
    records = re.findall(r"^\}\s*(\w+);", text, flags=re.MULTILINE)
    for record in records:
        if not re.search(rf"\b{record}\b", prototypes):
            stubs += f"\nTARVU_API void record_only_{record}(const {record} *record) {{ (void)record; }}\n"
    return stubs


def build_stub(arguments, header_text):
    """The stub library, made in a folder of its own."""
    shutil.rmtree(arguments.scratch, ignore_errors=True)
    os.makedirs(arguments.scratch)
    source = os.path.join(arguments.scratch, "interface.c")
    with open(source, "w", encoding="ascii") as file:
        file.write(stub_source(header_text))
    library = os.path.join(arguments.scratch, "libtarvu.so.2")
    run(arguments.compiler, "-std=c11", "-g", "-O0", "-fPIC", "-shared", "-nostdlib", "-w", "-Wl,-soname,libtarvu.so.2",
        f"-ffile-prefix-map={arguments.scratch}=.", "-o", library, source)
    return library


def describe(arguments, library):
    options = ["--no-corpus-path", "--no-comp-dir-path", "--no-show-locs"]
    return run(arguments.abidw, *options, library)


def differences(arguments, library):
    """What abidiff has to say; empty if nothing differs. Names that are new count: they have to be recorded."""
    # A field that got another name or a `const` counts as well.
    command = [arguments.abidiff, "--harmless", arguments.record, library]
    result = subprocess.run(command, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True, check=False)
    if result.returncode & 3:
        raise SystemExit(f"abidiff failed: {result.stdout}")
    return result.stdout if result.returncode else ""


def changed(header_text, change):
    """The header with `old=>new` applied, once."""
    old, new = change.split("=>")
    if header_text.count(old) != 1:
        raise SystemExit(f"the header has {header_text.count(old)} times: {old}")
    return header_text.replace(old, new)


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    for option in ("header", "record", "scratch", "compiler", "abidw", "abidiff"):
        parser.add_argument("--" + option, required=True)
    parser.add_argument("--write", action="store_true", help="record the interface instead of comparing it")
    parser.add_argument("--change", action="append", default=[],
                        help="old=>new: apply this alone to the header, and succeed only if it is found")
    arguments = parser.parse_args()
    with open(arguments.header, encoding="ascii") as file:
        header_text = file.read()

    if arguments.write:
        description = describe(arguments, build_stub(arguments, header_text))
        with open(arguments.record, "w", encoding="ascii") as file:
            file.write(description)
        return 0

    with open(arguments.record, encoding="ascii") as file:
        paths = set(re.findall(r"(?:path|filepath|comp-dir-path)='(/[^']*)'", file.read()))
    if paths:
        print(f"{arguments.record} names folders of a machine: {sorted(paths)}")
        return 1
    if arguments.change:
        failures = 0
        for change in arguments.change:
            found = differences(arguments, build_stub(arguments, changed(header_text, change)))
            print(f"{change}\n{found}" if found else f"not found: {change}")
            failures += not found
        return 1 if failures else 0
    found = differences(arguments, build_stub(arguments, header_text))
    if found:
        print(found)
        print(f"The interface is not that of {arguments.record}. If it is meant to be, build the target record_interface.")
        return 1
    print("the interface is the recorded one")
    return 0


if __name__ == "__main__":
    sys.exit(main())
