"""Holds the ids of findings against their tests and their page; with --write makes the page's tables anew."""

import argparse
import pathlib
import re
import sys

ID = re.compile(r'TARVU_CONTRACT_ID\(\s*(\w+),\s*"([^"]+)",\s*(\w+),\s*((?:"[^"]*"\s*)+)\)')
NUMBER = re.compile(r"TARVU-([A-Z0-9]+)-(\d\d)$")
BEGIN = "<!-- findings: made by tests/contract/check_ids.py --write -->"
END = "<!-- end of findings -->"
WORDS = {"%f": "FIELD", "%v": "VALUE", "%a": "N", "%b": "M", "%c": "K"}


def read_ids(folder):
    """Id, kind and sentence, in the order of the files."""
    ids = []
    for path in sorted(folder.glob("*_ids.inc")):
        text = path.read_text(encoding="ascii")
        found = ID.findall(text)
        if len(found) != text.count("TARVU_CONTRACT_ID("):
            sys.exit(f"{path}: an entry is malformed")
        for _, name, kind, sentence in found:
            ids.append((name, kind.lower(), "".join(re.findall(r'"([^"]*)"', sentence))))
    return ids


def table_of(ids):
    families = {}
    for name, kind, sentence in sorted(ids):
        for mark, word in WORDS.items():
            sentence = sentence.replace(mark, word)
        families.setdefault(NUMBER.match(name)[1], []).append(f"| {name} | {kind} | {sentence} |")
    lines = []
    for rows in families.values():
        lines += ["", "| Finding | Kind | What is said |", "|---|---|---|", *rows]
    return "\n".join([BEGIN, *lines, "", END])


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--root", type=pathlib.Path, required=True)
    parser.add_argument("--write", action="store_true")
    arguments = parser.parse_args()
    ids = read_ids(arguments.root / "contract")
    faults = []
    names = [name for name, _, _ in ids]
    faults += [f"{name} stands twice" for name in sorted({name for name in names if names.count(name) > 1})]
    faults += [f"{name} is no id" for name in names if not NUMBER.match(name)]
    tests = "".join(path.read_text(encoding="ascii") for path in (arguments.root / "tests/contract").glob("*_test.cpp"))
    for name in names:
        for macro in ("EXPECT_FOUND", "EXPECT_NOT_FOUND"):
            if not re.search(rf'\b{macro}\([^;]*"{name}"\)', tests):
                faults.append(f"{name} has no test with {macro}")
    tested = set(re.findall(r'_FOUND\([^;]*"(TARVU-[^"]+)"\)', tests))
    faults += [f"{name} is tested and does not exist" for name in sorted(tested - set(names))]
    page = arguments.root / "docs/pages/unchecked.md"
    text = page.read_text(encoding="ascii")
    if text.count(BEGIN) != 1 or text.count(END) != 1:
        sys.exit(f"{page}: the marks around the findings are missing")
    start, end = text.index(BEGIN), text.index(END) + len(END)
    if arguments.write:
        page.write_text(text[:start] + table_of(ids) + text[end:], encoding="ascii")
    elif text[start:end] != table_of(ids):
        faults.append(f"{page}: the tables of findings are not those of contract/*_ids.inc; make them with --write")
    for fault in faults:
        print(fault)
    print(f"{len(ids)} findings")
    return 1 if faults or not ids else 0


if __name__ == "__main__":
    sys.exit(main())
