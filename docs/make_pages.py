"""Makes the pages of the reference from docs/operators and docs/pages.

Lines of its own that it replaces: `@offsets RECORD` by the record's table of byte offsets, which are those that the tests hold
against the compiled header; `@unread RECORD` by the fields that the operator does not read, where the table of the page has to
name all others; `@example NAME` by that part of docs/examples; `@program FILE` by a program of examples/; `@groups`
by the list of all groups. Within a line, `@scratch GROUP` is replaced by the bytes of the scratch page.
"""

import argparse
import glob
import os
import re
import shutil
import sys
import textwrap

import interface


def code(text):
    return f"~~~{{.c}}\n{textwrap.dedent(text).strip()}\n~~~\n"


def examples(folder):
    """The marked parts of the example sources by their names."""
    found = {}
    for path in sorted(glob.glob(os.path.join(folder, "*.c"))):
        for name, text in re.findall(r"^ *//! \[(\w+)\]\n(.*?)^ *//! \[\1\]\n", interface.read(path),
                                     flags=re.DOTALL | re.MULTILINE):
            found[name] = code(text)
    return found


def unread_fields(fields):
    """What a caller need not set, in one sentence. Fields without a name of their own go without saying."""
    names = [f"`{name}`" for _, name, _, comment in fields if is_unread(name, comment) and not name.startswith("reserved")]
    if names:
        return f"Not read, so that anything may stand there, 0 too: {', '.join(names)}."
    reserved = any(name.startswith("reserved") for _, name, _, _ in fields)
    return "Every field but those named reserved is read." if reserved else "Every field is read."


def is_unread(name, comment):
    return name.startswith("reserved") or comment.startswith(("not read", "no effect"))


def offsets_table(record, fields, layout):
    size, places = layout
    lines = [f"### {record}, {size} bytes", "", "| Offset | Bytes | Field | Type | |", "|---:|---:|---|---|---|"]
    for (kind, name, count, comment), (_, offset, width) in zip(fields, places):
        kind += f"[{count}]" if count > 1 else ""
        lines.append(f"| {offset} | {width} | `{name}` | `{kind}` | {comment} |")
    return "\n".join(lines) + "\n"


class Pages:
    """The sources of the reference, read once."""

    def __init__(self, root):
        self.docs = os.path.join(root, "docs")
        header = interface.read(os.path.join(root, "include/tarvu.h"))
        self.groups = interface.header_groups(header)
        self.records = interface.header_records(header)
        self.layouts = interface.record_layouts(interface.read(os.path.join(root, "tests/include/record_layout.inc")))
        interface.check_records(self.records, self.layouts)
        self.examples = examples(os.path.join(self.docs, "examples"))
        self.programs = {os.path.basename(path): code(interface.read(path))
                         for path in glob.glob(os.path.join(root, "examples", "*.c"))}
        scratch_page = interface.read(os.path.join(self.docs, "pages/scratch.md"))
        (_, _, _, rows), = interface.tables(scratch_page)
        self.scratch = {row[0].split()[-1]: row[1] for row in rows}
        self.used = set()
        self.pictures = {os.path.basename(path) for path in glob.glob(os.path.join(self.docs, "pictures", "*.svg"))}

    def take(self, kind, name, values):
        if name not in values:
            raise interface.Malformed(f"there is no {kind} {name}")
        self.used.add((kind, name))
        return values[name]

    def expand(self, text):
        text = re.sub(r"@scratch (\w+)", lambda match: self.take("scratch", match[1], self.scratch), text)
        for picture in re.findall(r"^!\[.+\]\((.+)\)$", text, flags=re.MULTILINE):
            self.used.add(("picture", picture))
        replaced = []
        for line in text.splitlines():
            command, _, name = line.partition(" ")
            if command == "@offsets":
                fields = self.take("record", name, self.records)
                line = offsets_table(name, fields, self.layouts[name])
            elif command == "@unread":
                fields = self.take("record", name, self.records)
                table = text.partition("## What to set\n")[2].partition("\n## ")[0]
                unnamed = [field for _, field, _, comment in fields
                           if not is_unread(field, comment) and f"`{field}`" not in table]
                if unnamed:
                    raise interface.Malformed(f"{name}: nothing is said of setting {unnamed}")
                line = unread_fields(fields)
            elif command == "@example":
                line = self.take("example", name, self.examples)
            elif command == "@program":
                line = self.take("program", name, self.programs)
            elif command == "@groups":
                line = "\n".join(f"  - \\ref {group}" for group in self.groups)
            elif line.startswith("@"):
                raise interface.Malformed(f"unknown: {line}")
            replaced.append(line)
        return "\n".join(replaced) + "\n"

    def group(self, name):
        """A comment of a source file: Doxygen makes a page of every Markdown file, also where it belongs to a group."""
        text = self.expand(interface.read(os.path.join(self.docs, "operators", name + ".md")))
        lines = f"\\addtogroup {name}\n\n{text}".splitlines()
        return "".join(f"/// {line}".rstrip() + "\n" for line in lines)

    def page(self, path):
        """Doxygen takes a single per cent sign away, in code as well."""
        return self.expand(interface.read(path)).replace("%", "%%")

    def unused(self):
        """What no page shows."""
        given = {("record", name) for name in self.records} | {("example", name) for name in self.examples}
        given |= {("scratch", name) for name in self.scratch} | {("picture", name) for name in self.pictures}
        return given - self.used


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--root", required=True, help="folder of the repository")
    parser.add_argument("--output", required=True)
    parser.add_argument("--stale", required=True, help="folder of an earlier reference, which is removed")
    arguments = parser.parse_args()
    try:
        pages = Pages(arguments.root)
        sources = {name[:-len(".md")] for name in os.listdir(os.path.join(pages.docs, "operators"))}
        if sources != set(pages.groups):
            raise interface.Malformed(f"groups without a page or pages without a group: {sources ^ set(pages.groups)}")
        made = {f"group_{name}.dox": pages.group(name) for name in pages.groups}
        for path in glob.glob(os.path.join(pages.docs, "pages", "*.md")):
            made[os.path.basename(path)] = pages.page(path)
        if pages.unused():
            raise interface.Malformed(f"no page shows {sorted(pages.unused())}")
    except interface.Malformed as malformed:
        print(f"make_pages: {malformed}")
        return 1
    shutil.rmtree(arguments.stale, ignore_errors=True)
    os.makedirs(arguments.output, exist_ok=True)
    for name in os.listdir(arguments.output):
        os.remove(os.path.join(arguments.output, name))
    for name, text in made.items():
        with open(os.path.join(arguments.output, name), "w", encoding="ascii") as file:
            file.write(text)
    return 0


if __name__ == "__main__":
    sys.exit(main())
