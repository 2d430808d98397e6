"""Looks words and printed lines up in the index of the text search that was made, by the rules of text_search.js: what a reader
types leads to the page that he needs. Follows every link of the index as well."""

import argparse
import json
import os
import re
import sys

import interface
import text_index

MOST_PLACES = 12

# What a reader types, and the page that has to be among the first three places; a single word of a subject comes first.
QUERIES = {
    "padding": "group__pooling.html",
    "rounding": "group__rounded__conversion.html",
    "round half to even": "group__rounded__conversion.html",
    "scratch memory": "scratch.html",
    "exponential": "group__softmax.html",
    "zero point": "group__zero__point__runs.html",
    "FRSQRTE": "group__norm.html",
    "forget gate": "group__lstm.html",
    "suppress": "group__detection__output.html",
    "leaky rectifier": "group__fc__post.html",
    "fflush": "messages.html",
    "ceil_mode": "onnx_tflite.html",
    "half-pixel coordinates": "onnx_tflite.html",
    "negative axis": "onnx_tflite.html",
    "align_corners": "onnx_tflite.html",
    "count_include_pad": "onnx_tflite.html",
    "transpose": "group__permute.html",
    "bilinear": "group__gridsample.html",
    "pads above the stride": "group__pooling.html",
    "anchor boxes": "group__priorbox.html",
    "number of columns": "group__pooling.html",
    "class number count": "group__detection__output.html",
}
# Lines as they are pasted: values in place, from a terminal, a log and a source. They lead to their section of the printed lines.
PASTED = {
    "ERR:tarvu_pool_process() unsupported input type 4": "Pooling",
    "\x1b[1;31mERR:vendor_ai_pool_mode() unsupported pooling mode 7\r\n\x1b[0m": "Pooling",
    "^[[1;31mERR:tarvu_lrn_process() LRN only supports odd values for local_size!^[[0m": "LRN",
    "\\033[1;31mERR:tarvu_topk_general() not support axis = -1\\r\\n\\033[0m": "Top-K",
    "obj_final_num is 20": "Standalone suppression",
    "Unknown code type.Unknown code type.Unknown code type.": "Detection output",
}


def places_of(query, index):
    found = {}
    for word in dict.fromkeys(text_index.words_of(query)):
        for place, weight in index["words"].get(word, []):
            total, words = found.get(place, (0, 0))
            found[place] = (total + weight, words + 1)
    weights = {place: total * words for place, (total, words) in found.items()}
    return [index["places"][place] for place in sorted(weights, key=lambda place: (-weights[place], place))[:MOST_PLACES]]


def check_link(place, html, pages):
    name, _, anchor = place["url"].partition("#")
    if name not in pages:
        with open(os.path.join(html, name), encoding="utf-8") as file:
            pages[name] = set(re.findall(r'\bid="([^"]+)"', file.read()))
    return not anchor or anchor in pages[name]


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--html", required=True)
    parser.add_argument("--messages", required=True, help="page of the printed lines")
    arguments = parser.parse_args()
    with open(os.path.join(arguments.html, "text_index.js"), encoding="utf-8") as file:
        index = json.loads(re.fullmatch(r"const text_index = (.*);\n", file.read())[1])
    findings = []
    for query, page in QUERIES.items():
        found = [place["url"].split("#")[0] for place in places_of(query, index)]
        if page not in found[:1 if " " not in query else 3]:
            findings.append(f"{query!r} finds {found[:4]}, not {page}")
    lines = 0
    sections = re.findall(r"^## ([^\n]+)\n(.*?)(?=^## |\Z)", interface.read(arguments.messages), flags=re.MULTILINE | re.DOTALL)
    pasted = dict(PASTED)
    for title, text in sections:
        pasted.update({re.sub("%[df]", "3", line): title for line in re.findall(r"^\| `(.+?)` \|", text, flags=re.MULTILINE)})
    for line, title in pasted.items():
        lines += 1
        found = [(place["url"].split("#")[0], place["title"]) for place in places_of(line, index)]
        # At the top or behind the function that is named. A line that names none may belong to several operators.
        if ("messages.html", title) not in found[:2 if "ERR:" in line else MOST_PLACES]:
            findings.append(f"{line!r} finds {found[:3]}, not {title}")
    pages = {}
    findings += [f"no such place: {place['url']}" for place in index["places"] if not check_link(place, arguments.html, pages)]
    with open(os.path.join(arguments.html, "text_search.js"), encoding="utf-8") as file:
        script = file.read()
    for pattern in (text_index.ESCAPES.pattern.replace("\\x1b", "\\u001b", 1), "(?:ing|ed|es|s)$", "([b-df-hj-np-tv-z])\\1$",
                    "[a-z_][a-z0-9_]*", f"most_places = {MOST_PLACES}"):
        if pattern not in script:
            findings.append(f"text_search.js has other rules than text_index.py: no {pattern}")
    print(*findings, sep="\n")
    print(f"{len(QUERIES)} queries, {lines} lines, {len(index['places'])} places, {len(index['words'])} words")
    return 1 if findings else 0


if __name__ == "__main__":
    sys.exit(main())
