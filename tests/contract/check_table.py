"""Holds contract/functions.inc against the header: the same functions, with the names of their arguments."""

import argparse
import re
import sys


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--header", required=True)
    parser.add_argument("--table", required=True)
    arguments = parser.parse_args()
    with open(arguments.header, encoding="ascii") as file:
        header = re.sub(r"//[^\n]*", "", file.read())
    declared = {}
    for name, text in re.findall(r"\bTARVU_API\b[^;{]*?\b(\w+)\s*\(([^;{]*)\)\s*;", header):
        arguments_of = [part.strip() for part in text.split(",")]
        declared[name] = [re.search(r"(\w+)\s*(\[\w*\])?$", part)[1] for part in arguments_of if part != "void"]
    with open(arguments.table, encoding="ascii") as file:
        table = re.findall(r"^FUNCTION\((\w+), \w+((?:,\s*\"\w+\")*)\)", file.read(), flags=re.MULTILINE)
    found = {name: re.findall(r'"(\w+)"', names) for name, names in table}
    for name in sorted(declared.keys() | found.keys()):
        if declared.get(name) != found.get(name):
            print(f"{name}: the header has {declared.get(name)}, the table {found.get(name)}")
    print(f"{len(table)} functions in the table")
    return 0 if declared == found and len(table) == len(found) else 1


if __name__ == "__main__":
    sys.exit(main())
