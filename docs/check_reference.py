"""Looks at the reference that was made: every exported function has its documentation on a group's page, and every page of an
operator has its parts."""

import argparse
import glob
import html
import os
import re
import sys

import interface

PARTS = ["Formula", "In short", "Computes", "Scratch bytes", "Blocks and tails", "Refuses", "What to set", "If it stays 0",
         "Output", "Element types", "Offset", "Example"]


def words_of(page):
    with open(page, encoding="utf-8") as file:
        return html.unescape(re.sub(r"<[^>]+>", " ", file.read()))


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    for option in ("header", "contract-header", "names", "layouts", "messages", "html"):
        parser.add_argument("--" + option, required=True)
    arguments = parser.parse_args()
    contract = interface.read(arguments.contract_header)
    groups = interface.header_groups(interface.read(arguments.header)) | interface.header_groups(contract)
    pages = {name: os.path.join(arguments.html, f"group__{name.replace('_', '__')}.html") for name in groups}
    made = set(glob.glob(os.path.join(arguments.html, "group_*.html")))
    if made != set(pages.values()):
        print(f"pages without a group or groups without a page: {sorted(made ^ set(pages.values()))}")
        return 1

    texts = {name: words_of(page) for name, page in pages.items()}
    together = "\n".join(texts.values())
    names = re.findall(r"^\+ (\w+)", interface.read(arguments.names), flags=re.MULTILINE)
    names += re.findall(r"^TARVU_CONTRACT_API [^;]*?\b(\w+)\(", contract, flags=re.MULTILINE)
    listed = set()
    for page in pages.values():
        with open(page, encoding="utf-8") as file:
            listed.update(re.findall(r'class="memItemRight"[^>]*><a [^>]*>(?:<[^>]*>)?(\w+)', file.read()))
    findings = [f"{name} is not on a group's page" for name in names if name not in listed]
    operators = 0
    for name, text in texts.items():
        if re.search(r"_NN_\w+_PARM, \d+ bytes", text):
            operators += 1
            findings += [f"{name}: no part '{part}'" for part in PARTS if part not in text]
    sizes = interface.record_layouts(interface.read(arguments.layouts))
    findings += [f"no table of {record}" for record, (size, _) in sizes.items() if f"{record}, {size} bytes" not in together]
    findings += [f"a blank page: {os.path.basename(page)}" for page in glob.glob(os.path.join(arguments.html, "md_*"))]
    for path in sorted(glob.glob(os.path.join(arguments.html, "*.html"))):
        if re.search(r"\*\*", words_of(path)):
            findings.append(f"{os.path.basename(path)}: asterisks that are no emphasis")
    shown = "".join(words_of(os.path.join(arguments.html, "messages.html")).split())
    for line in re.findall(r"^\| `(.+?)` \|", interface.read(arguments.messages), flags=re.MULTILINE):
        if "".join(line.split()) not in shown:
            findings.append(f"messages: no {line}")
    for page in ("index", "formats", "layouts", "messages", "onnx_tflite", "scratch", "text_search", "unchecked"):
        if not os.path.exists(os.path.join(arguments.html, page + ".html")):
            findings.append(f"no page {page}")
    if not os.path.exists(os.path.join(arguments.html, "layout.svg")):
        findings.append("no picture of a layout")
    print(*findings, sep="\n")
    print(f"{len(groups)} groups, {operators} operators, {len(names)} functions, {len(sizes)} records")
    return 1 if findings or not operators or not names else 0


if __name__ == "__main__":
    sys.exit(main())
