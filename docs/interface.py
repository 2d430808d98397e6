"""What the public header and the table of record layouts say, for the reference's pages and their checks."""

import re


class Malformed(Exception):
    """Two sources of the reference do not fit together."""


def read(path):
    with open(path, encoding="ascii") as file:
        return file.read()


def header_groups(header):
    """Names of the header's groups by their titles, in its order."""
    return dict(re.findall(r"^/// \\defgroup (\w+) (.+)$", header, flags=re.MULTILINE))


def header_records(header):
    """Fields of each record as (type, name, elements, comment), in order."""
    records = {}
    for body, record in re.findall(r"^typedef struct \w+ \{\n(.*?)^\} (\w+);", header, flags=re.DOTALL | re.MULTILINE):
        body = re.sub(r"\n\s*///<", "", body)
        fields = re.findall(r"^\s*(\w+) (\w+)(?:\[(\d+)\])?;\s*///< (.*)$", body, flags=re.MULTILINE)
        if len(fields) != body.count(";\n") + len(re.findall(r";\s*///<", body)):
            raise Malformed(f"{record}: a field without a comment, or two on one line")
        records[record] = [(kind, name, int(count or 1), comment) for kind, name, count, comment in fields]
    return records


def record_layouts(table):
    """Bytes of each record, and (name, offset, bytes) of its fields, from the table that the tests hold."""
    sizes = {record: int(size) for record, size in re.findall(r"^RECORD\((\w+), (\d+)\)$", table, flags=re.MULTILINE)}
    fields = {record: [] for record in sizes}
    for record, name, offset, size in re.findall(r"^FIELD\((\w+), (\w+), (\d+), (\d+)\)$", table, flags=re.MULTILINE):
        fields[record].append((name, int(offset), int(size)))
    return {record: (size, fields[record]) for record, size in sizes.items()}


def check_records(records, layouts):
    """The header and the table have the same fields in the same order."""
    if set(records) != set(layouts):
        raise Malformed(f"records of the header alone or of the table alone: {sorted(set(records) ^ set(layouts))}")
    for record, fields in records.items():
        in_header = [name for _, name, _, _ in fields]
        in_table = [name for name, _, _ in layouts[record][1]]
        if in_header != in_table:
            raise Malformed(f"{record}: {in_header} in the header, {in_table} in the table")


def tables(text):
    """Checked tables of a page: (kind, settings, column titles, rows), a row being its cells."""
    found = []
    for kind, settings, table in re.findall(r"^<!-- check: (\w+)([^>]*) -->\n((?:\|.*\|\n)+)", text, flags=re.MULTILINE):
        lines = [[cell.strip() for cell in line.strip("|").split("|")] for line in table.splitlines()]
        found.append((kind, settings.split(), lines[0], lines[2:]))
    if len(found) != text.count("<!-- check:"):
        raise Malformed("a comment of a page is not followed by a table")
    return found
