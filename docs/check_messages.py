"""Holds docs/pages/messages.md to the sources: every text that product code prints is on the page, for every function that it
names, and the page has no other; the header tells the same lines."""

import argparse
import ast
import glob
import os
import re
import sys

import interface

ENDS = {"CR LF": "\r\n", "LF": "\n", "nothing": ""}
LITERALS = r'(?:"(?:[^"\\]|\\.)*"\s*)+'


def text_of(literals):
    """The characters of adjacent string literals."""
    return "".join(ast.literal_eval(literal) for literal in re.findall(r'"(?:[^"\\]|\\.)*"', literals))


def page_lines(page):
    """The texts of the page as they are printed."""
    found = []
    for table in re.findall(r"^<!-- lines -->\n((?:\|.*\|\n)+)", page, flags=re.MULTILINE):
        for row in table.splitlines()[2:]:
            cells = [cell.strip() for cell in row.strip("|").split("|")]
            if len(cells) != 5 or not all(cells):
                raise interface.Malformed(f"not five cells: {row}")
            text = cells[0].strip("`") + ENDS[cells[1]]
            found.append(f"\033[1;31m{text}\033[0m" if text.startswith("ERR:") else text)
    return found


class Sources:
    """The product's files, their named texts and their functions."""

    def __init__(self, root, folders):
        paths = [path for folder in folders for path in sorted(glob.glob(os.path.join(root, folder, "**/*.*"), recursive=True))
                 if path.endswith((".cpp", ".h"))]
        self.texts = {path: interface.read(path) for path in paths}
        together = "\n".join(self.texts.values())
        self.named = {}
        for name, literals in re.findall(rf"\b(k\w+)(?:\[\])? = ({LITERALS});", together):
            self.named.setdefault(name, []).append(text_of(literals))
        self.together = together

    def names_passed_to(self, function):
        """What the calls of a function that prints for others give as the name."""
        found = []
        for argument in re.findall(rf"\b{function}\(((?:\w+::)?k\w+|\"\w+\")", self.together):
            found += [argument.strip('"')] if argument.startswith('"') else self.named[argument.split("::")[-1]]
        return found

    def printed(self):
        """Every printed text, with the name that it shows in place."""
        found = []
        for path, text in self.texts.items():
            for match in re.finditer(rf"\bprintf\(\s*(k\w+|{LITERALS})(?:,\s*(\"\w+\"|\w+))?", text):
                first, name = match[1], match[2]
                for shown in [text_of(first)] if first.startswith('"') else self.named[first]:
                    if "%s" not in shown:
                        found.append(shown)
                    elif name.startswith('"'):
                        found.append(shown.replace("%s", name.strip('"')))
                    else:
                        helper = re.findall(r"^(?:inline |static )?\w+ (\w+)\([^;{]*\) \{", text[:match.start()],
                                            flags=re.MULTILINE)[-1]
                        found += [shown.replace("%s", passed) for passed in self.names_passed_to(helper)]
            if len(re.findall(r"\bprintf\(", text)) != len(re.findall(rf"\bprintf\(\s*(?:k\w+|{LITERALS})", text)):
                raise interface.Malformed(f"{path}: a text that this check cannot read")
        return found


def plain(text):
    """A text without white space, whatever the line length of a comment made of it."""
    return re.sub(r"\s|///", "", text)


def as_written(text):
    """A printed text as a string literal has it."""
    return text.replace("\r", "\\r").replace("\n", "\\n").replace("\033", "\\033")


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--root", required=True)
    parser.add_argument("--folders", required=True, nargs="+", help="of product code")
    arguments = parser.parse_args()
    page = page_lines(interface.read(os.path.join(arguments.root, "docs/pages/messages.md")))
    printed = Sources(arguments.root, arguments.folders).printed()
    findings = [f"printed, but not on the page: {text!r}" for text in sorted(set(printed) - set(page))]
    findings += [f"on the page, but not printed: {text!r}" for text in sorted(set(page) - set(printed))]
    findings += [f"twice on the page: {text!r}" for text in sorted(set(page)) if page.count(text) > 1]
    header = plain(interface.read(os.path.join(arguments.root, "include/tarvu.h")))
    for text in page:
        # A softmax with zero points refers to the line of softmax.
        in_header = plain(as_written(text).replace("tarvu_softmax_asym_process", "tarvu_softmax_process"))
        if in_header not in header and in_header.replace("%d", "0") not in header:
            findings.append(f"the header does not tell {text!r}")
    print(*findings, sep="\n")
    print(f"{len(page)} lines on the page, {len(set(printed))} printed")
    return 1 if findings or not page else 0


if __name__ == "__main__":
    sys.exit(main())
