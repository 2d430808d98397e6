"""Makes the index of the text search from the pages of the reference that was made.

The index is one assignment, so that a page can load it from the disk: `places` are the sections of all pages, `words` gives for
each word the places that have it, with their weights. A rarer word weighs more, as does a word of a title.
"""

import argparse
import collections
import glob
import html.parser
import json
import math
import os
import re
import sys

ESCAPES = re.compile(r"(?:\x1b|\^\[|\\(?:033|x1b|e))?\[[0-9;]*m|\\[rn]", re.IGNORECASE)
TITLE_WEIGHT = 4
OPENING = 180  # letters of a section that a result shows
# Lists of what stands in full elsewhere: the fields of a record are in the table of its operator's page.
NOT_PAGES = r"(functions|globals|annotated|classes|files|modules|pages|dir_|struct_|text_search|.*_8h)"
MESSAGES = "messages.html"
NOT_PLACES = ("Data Structures", "Functions", "Typedefs", "Enumerations", "Macros")


def stem(word):
    """One form for pad, pads, padding and padded. Names with an underscore or a digit stay as they are."""
    if re.search(r"[_0-9]", word) or len(word) < 4:
        return word
    cut = re.sub(r"(?:ing|ed|es|s)$", "", word)
    kept = word if len(cut) < 3 else cut
    return re.sub(r"e$", "", re.sub(r"([b-df-hj-np-tv-z])\1$", r"\1", kept))


def words_of(text):
    return [stem(word) for word in re.findall(r"[a-z_][a-z0-9_]*", ESCAPES.sub(" ", text).lower())]


class Sections(html.parser.HTMLParser):
    """Cuts a page into sections at its headings, each with the anchor that leads to it."""

    def __init__(self, name):
        super().__init__()
        self.name = name
        self.page = ""
        self.places = []
        self.text = []
        self.anchor = ""
        self.heading = None
        self.skipped = 0
        self.depth = 0  # of divisions, from the contents on
        self.in_page_title = False

    def close_section(self):
        if self.places:
            self.places[-1]["text"] = " ".join(" ".join(self.text).split())
        self.text = []

    def open_section(self, title, anchor):
        self.close_section()
        self.places.append({"page": self.page, "title": title or self.page,
                            "url": self.name + ("#" + anchor if anchor else "")})

    def handle_starttag(self, tag, attrs):
        attributes = dict(attrs)
        kind = attributes.get("class") or ""
        if tag in ("script", "style"):
            self.skipped += 1
        elif tag == "div" and kind == "title":
            self.in_page_title = True
        elif tag == "div" and (self.depth or kind == "contents"):
            self.depth += 1
            if self.depth == 1:
                self.open_section("", "")
        elif tag == "a" and self.depth and attributes.get("id"):
            self.anchor = attributes["id"]
        elif tag in ("h1", "h2", "h3", "h4") and self.depth:
            self.heading = []
        elif tag == "tr" and self.name == MESSAGES and self.depth:
            # Each printed line is a place of its own.
            last = self.places[-1]
            self.open_section(last["title"], last["url"].partition("#")[2])

    def handle_endtag(self, tag):
        if tag in ("script", "style"):
            self.skipped -= 1
        elif tag == "div" and self.in_page_title:
            self.in_page_title = False
        elif tag == "div" and self.depth:
            self.depth -= 1
        elif tag in ("h1", "h2", "h3", "h4") and self.heading is not None:
            title = " ".join("".join(self.heading).replace("\u25c6", "").split())
            self.heading = None
            self.open_section(title, self.anchor)

    def handle_data(self, data):
        if self.skipped:
            return
        if self.in_page_title:
            self.page = " ".join((self.page + " " + data).split())
        elif self.heading is not None:
            self.heading.append(data)
        elif self.depth:
            self.text.append(data)


def sections(path):
    with open(path, encoding="utf-8") as file:
        parser = Sections(os.path.basename(path))
        parser.feed(file.read())
    parser.close_section()
    return [place for place in parser.places if place["text"] and place["title"] not in NOT_PLACES]


def index_of(places):
    """The places, and the weighted places of each word."""
    counts = []
    for place in places:
        count = collections.Counter(words_of(place["text"]))
        for word in set(words_of(place["title"])) | set(words_of(place["page"])):
            count[word] += 1
        counts.append(count)
    pages = collections.defaultdict(set)
    for place, count in zip(places, counts):
        for word in count:
            pages[word].add(place["url"].split("#")[0])
    page_count = len({place["url"].split("#")[0] for place in places})
    words = collections.defaultdict(list)
    for number, (place, count) in enumerate(zip(places, counts)):
        titles = set(words_of(place["title"]))
        length = 1 + math.log(1 + sum(count.values()) / 50)
        for word, times in count.items():
            rarity = math.log(1 + page_count / len(pages[word]))
            weight = rarity * (1 + math.log(times)) / length * (TITLE_WEIGHT if word in titles else 1)
            words[word].append([number, round(weight, 3)])
    shown = [dict(place, text=place["text"][:OPENING]) for place in places]
    return {"places": shown, "words": dict(sorted(words.items()))}


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--html", required=True, help="folder of the reference")
    arguments = parser.parse_args()
    pages = sorted(path for path in glob.glob(os.path.join(arguments.html, "*.html"))
                   if not re.match(NOT_PAGES, os.path.basename(path)))
    places = [place for path in pages for place in sections(path)]
    with open(os.path.join(arguments.html, "text_index.js"), "w", encoding="utf-8") as file:
        file.write("const text_index = " + json.dumps(index_of(places), separators=(",", ":")) + ";\n")
    print(f"{len(pages)} pages, {len(places)} places")
    return 0 if places else 1


if __name__ == "__main__":
    sys.exit(main())
