"""Draws the pictures of the operators' pages. With --check it draws nothing and compares: the pictures are checked in, so that
the reference needs no other tool than Doxygen."""

import argparse
import glob
import os
import sys

INK = "#234"
FAINT = "#999"
INPUT = "#cfe0f5"
PADDING = "#eee"
PICKED = "#8fb4df"
# Groups of elements, told apart in print by the numbers in them.
TINTS = ("#cfe0f5", "#f4e3c4", "#d6ecd2", "#f0d5de", "#e2daf2", "#e8e8e8")
CELL = 28


class Picture:
    """Shapes in the order in which they are drawn."""

    def __init__(self, title, width, height):
        self.title, self.width, self.height = title, width, height
        self.shapes = []

    def add(self, shape):
        self.shapes.append("  " + shape)

    def box(self, x, y, width, height, fill="none", stroke=INK, dashed=False, thick=1):
        dash = ' stroke-dasharray="4 3"' if dashed else ""
        weight = f' stroke-width="{thick}"' if thick != 1 else ""
        self.add(f'<rect x="{x}" y="{y}" width="{width}" height="{height}" fill="{fill}" stroke="{stroke}"{dash}{weight}/>')

    def text(self, x, y, words, anchor="middle", size=12, fill=INK, italic=False):
        style = ' font-style="italic"' if italic else ""
        words = str(words).replace("&", "&amp;").replace("<", "&lt;")
        self.add(f'<text x="{x}" y="{y}" text-anchor="{anchor}" font-size="{size}" fill="{fill}"{style}>{words}</text>')

    def left(self, x, y, words, **style):
        self.text(x, y, words, anchor="start", **style)

    def cell(self, x, y, words="", fill=INPUT, width=CELL, height=CELL, dashed=False):
        self.box(x, y, width, height, fill, FAINT if dashed else INK, dashed)
        if words != "":
            self.text(x + width // 2, y + height // 2 + 4, words, size=12 if 8 * len(str(words)) < width + 4 else 10)

    def cells(self, x, y, rows, fill=INPUT, width=CELL):
        for j, row in enumerate(rows):
            for i, words in enumerate(row):
                tint = fill(j, i) if callable(fill) else fill
                self.cell(x + i * width, y + j * CELL, words, tint, width)

    def line(self, x1, y1, x2, y2, dashed=False, ends=""):
        dash = ' stroke-dasharray="4 3"' if dashed else ""
        tips = "".join(f' marker-{end}="url(#tip)"' for end in ends.split())
        self.add(f'<line x1="{x1}" y1="{y1}" x2="{x2}" y2="{y2}" stroke="{INK}"{dash}{tips}/>')

    def arrow(self, x1, y1, x2, y2):
        self.line(x1, y1, x2, y2, ends="end")

    def measure(self, x1, x2, y, words):
        self.line(x1, y, x2, y, ends="start end")
        self.text((x1 + x2) // 2, y - 5, words)

    def measure_down(self, x, y1, y2, words):
        self.line(x, y1, x, y2, ends="start end")
        self.left(x + 6, (y1 + y2) // 2 + 4, words)

    def svg(self):
        tip = ('<defs><marker id="tip" viewBox="0 0 8 8" refX="7" refY="4" markerWidth="7" markerHeight="7" '
               f'orient="auto-start-reverse"><path d="M0 0l8 4-8 4z" fill="{INK}"/></marker></defs>')
        return (f'<svg xmlns="http://www.w3.org/2000/svg" width="{self.width}" height="{self.height}" '
                f'viewBox="0 0 {self.width} {self.height}" font-family="sans-serif">\n  <title>{self.title}</title>\n  {tip}\n'
                + "\n".join(self.shapes) + "\n</svg>\n")


def pooling_windows():
    """The plane of the program pooling_layer.c."""
    p = Picture("Windows of 3 x 3, two steps apart, over 5 x 5 elements with a padding of 1 on every side", 640, 280)
    left, top = 24, 46
    for y in range(7):
        for x in range(7):
            inside = 1 <= x <= 5 and 1 <= y <= 5
            p.cell(left + x * CELL, top + y * CELL, (y - 1) * 5 + x if inside else "", INPUT if inside else PADDING,
                   dashed=not inside)
    for x, y in ((0, 0), (2, 0), (4, 4)):
        p.box(left + x * CELL + 2, top + y * CELL + 2, 3 * CELL - 4, 3 * CELL - 4, thick=2)
    p.measure(left, left + CELL, top - 8, "pad_left")
    p.measure(left + 2 * CELL, left + 5 * CELL, top - 8, "kernel_w")
    p.measure_down(left + 7 * CELL + 8, top, top + 2 * CELL, "stride_h")
    p.measure_down(left + 7 * CELL + 8, top + 6 * CELL, top + 7 * CELL, "pad_bottom")
    p.measure(left, left + 2 * CELL, top + 7 * CELL + 18, "")
    p.left(left + 2 * CELL + 6, top + 7 * CELL + 18, "stride_w")
    x = 320
    for title, rows, at in (("maximum", ((7, 9, 10), (17, 19, 20), (22, 24, 25)), 0),
                            ("divisor, pads counted", ((9, 9, 9),) * 3, 1),
                            ("divisor, pads not counted", ((4, 6, 4), (6, 9, 6), (4, 6, 4)), 2)):
        column, row = x + (at % 2) * 170, top + (at // 2) * 122
        p.left(column, row - 8, title)
        p.cells(column, row, rows, fill="#fff")
    return p


def pooling_far_end():
    p = Picture("The far end of a line: a partial window is kept or dropped", 640, 236)

    def line(left, top, title, count, pads, windows):
        p.left(left, top - 28, title)
        for x in range(count + pads):
            p.cell(left + x * CELL, top, x if x < count else "", INPUT if x < count else PADDING, dashed=x >= count)
        for at, (first, last, clipped, words) in enumerate(windows):
            y = top + CELL + 8 + at * 26
            p.box(left + first * CELL, y, (clipped - first) * CELL, 14, PICKED)
            if last > clipped:
                p.box(left + max(first, clipped) * CELL, y, (last - max(first, clipped)) * CELL, 14, dashed=True, stroke=FAINT)
            if last < 9:
                p.left(left + last * CELL + 8, y + 11, words)
            else:
                p.text(left + first * CELL - 8, y + 11, words, "end")

    line(16, 60, "width 6, window 3, step 2: span 3, rest 1", 6, 0,
         ((0, 3, 3, "column 0"), (2, 5, 5, "column 1"), (4, 7, 6, "column 2, if floor_mode is 0")))
    p.left(16, 204, "starts inside: exists, cut at the end")
    line(340, 60, "width 5, window 3, step 3, pad_right 2: rest 1", 5, 2,
         ((0, 3, 3, "column 0"), (3, 6, 5, "column 1"), (6, 9, 6, "no column 2")))
    p.left(340, 204, "starts in the padding: does not exist, also if")
    p.left(340, 222, "floor_mode is 0 (but see the average)")
    return p


def groups_of(title, panels, names):
    """Two planes of 2 x 3 elements for each panel, with the number of its group in each."""
    p = Picture(title, 24 + len(panels) * 150, 212)
    for at, (words, group) in enumerate(panels):
        left = 20 + at * 150
        p.left(left, 24, words)
        for c in range(2):
            top = 42 + c * 76
            p.cells(left, top, [[group(c, y, x) for x in range(3)] for y in range(2)],
                    lambda y, x, c=c, group=group: TINTS[group(c, y, x) % len(TINTS)])
            p.left(left + 3 * CELL + 6, top + 32, f"c = {c}", size=11)
    p.left(20, 204, names)
    return p


def softmax_groups():
    return groups_of("The groups of each axis in an item of width 3, height 2, channel 2",
                     (("axis 1: channel", lambda c, y, x: y * 3 + x), ("axis 2: height", lambda c, y, x: c * 3 + x),
                      ("axis 3: width", lambda c, y, x: c * 2 + y), ("axis below 0: all", lambda c, y, x: 0)),
                     "Equal numbers are one group: they add up to 1.")


def layernorm_runs():
    return groups_of("The runs of each axis in an item of width 3, height 2, channel 2",
                     (("axis 1", lambda c, y, x: 0), ("axis 2", lambda c, y, x: c), ("axis 3", lambda c, y, x: c * 2 + y),
                      ("axis 4", lambda c, y, x: c * 6 + y * 3 + x)),
                     "Equal numbers are one run: it gets mean 0 and variance 1.")


def lrn_window():
    p = Picture("The window of 5 channels around channel 0 and around channel 3, of 8", 470, 150)
    for top, centre in ((34, 0), (98, 3)):
        p.left(16, top - 8, f"sum of channel {centre}: local_size 5")
        for c in range(-2, 10):
            there = 0 <= c < 8
            if there or abs(c - centre) <= 2:
                fill = PADDING if not there else PICKED if abs(c - centre) <= 2 else INPUT
                p.cell(70 + (c + 2) * CELL, top, c if there else 0, fill, dashed=not there)
        p.box(70 + centre * CELL, top - 2, 5 * CELL, CELL + 4, thick=2)
    return p


def detection_output_records():
    p = Picture("Records of an item with three classes and the background", 640, 126)
    p.left(16, 22, "from out_addr on: records of five floats; class 0 is the background and takes no room")
    x, width = 16, 34
    for number, written in ((1, 2), (2, 7), (3, 0)):
        count = max(written, 5)
        start = x
        for i in range(count):
            p.cell(x, 44, str(i) if i < written else "-1", INPUT if i < written else PADDING, width)
            x += width
        p.line(start + 2, 80, x - 2, 80)
        p.text((start + x) // 2, 96, f"class {number}: w = {written}")
        p.text((start + x) // 2, 112, f"max(w, 5) = {count}")
    return p


def priorbox_regions():
    p = Picture("The two regions of prior boxes", 640, 176)
    for top, name, words, tint in ((44, "out_addr: boxes", ("xmin", "ymin", "xmax", "ymax"), INPUT),
                                   (124, "out_addr + variance_ofs: variances", ("v0", "v1", "v2", "v3"), TINTS[1])):
        p.left(16, top - 10, name)
        x = 16
        for cell in range(2):
            for size in range(2):
                for word in words:
                    p.cell(x, top, word, tint, 36)
                    x += 36
                if top < 100:
                    p.text(x - 72, top + 44, f"cell {cell}, size {size}", size=11)
        p.left(x + 6, top + 18, "..")
    return p


def gridsample_layouts():
    p = Picture("Bytes of the input in both layouts: 2 items, 2 channels, 3 x 2 pixels", 640, 250)
    p.left(16, 22, "interleaved, in_shape C, N, W, H: all items and channels of a pixel stand together")
    for at in range(16):
        pixel, b, c = at // 4, at // 2 % 2, at % 2
        p.cell(16 + at * 34, 34, f"b{b} c{c}", TINTS[pixel % 6], 34)
        if at % 4 == 0:
            p.text(16 + at * 34 + 68, 78, f"y {pixel // 3}, x {pixel % 3}")
    p.left(16 + 16 * 34 + 8, 52, "..")
    p.left(16, 112, "planar, in_shape W, H, C, N: plane after plane")
    for at in range(16):
        plane, y, x = at // 6, at // 3 % 2, at % 3
        p.cell(16 + at * 34, 124, f"y{y} x{x}", TINTS[plane % 6], 34)
        if at % 6 == 0:
            p.left(16 + at * 34 + 4, 168, f"b 0, c {plane}" if plane < 2 else "b 1, c 0")
    p.left(16 + 16 * 34 + 8, 142, "..")
    p.left(16, 202, "grid, either layout: pairs of bytes x, y; the output is planar in both: Wo, Ho, C, N")
    for at in range(8):
        p.cell(16 + at * 34, 212, "xy"[at % 2], "#fff", 34)
    p.left(16 + 8 * 34 + 8, 230, "..")
    return p


def gridsample_blend():
    p = Picture("The blend of four pixels", 540, 214)
    left, right, top, bottom = 70, 230, 40, 160
    for x, y, words, anchor, dx in ((left, top, "I(y0, x0)", "end", -10), (right, top, "I(y0, x1)", "start", 10),
                                    (left, bottom, "I(y1, x0)", "end", -10), (right, bottom, "I(y1, x1)", "start", 10)):
        p.cell(x - 6, y - 6, width=12, height=12)
        p.text(x + dx, y + 4, words, anchor)
    at = left + 60
    for y, words in ((top, "R0"), (bottom, "R1")):
        p.line(left + 6, y, right - 6, y)
        p.cell(at - 5, y - 5, width=10, height=10, fill=PICKED)
        p.text(at - 14, y + (-12 if y == top else 20), words)
    p.measure(left, at, bottom + 36, "fx")
    p.line(at, top + 5, at, bottom - 5)
    p.cell(at - 5, 85, width=10, height=10, fill=INK)
    p.line(at + 20, bottom, at + 20, 90, ends="end")
    p.left(at + 28, 128, "fy")
    p.left(340, 84, "fx counts from x0;")
    p.left(340, 104, "fy counts from y1 upwards:")
    p.left(340, 124, "fy = 0 gives line y0 + 1.")
    return p


def pick(title, source, picked, index, out, words, index_name="index"):
    p = Picture(title, 460, 60 + CELL * max(len(source), len(index), len(out)))
    for x, name, rows, fill in ((16, "input", source, lambda y, x: PICKED if (y, x) in picked else INPUT),
                                (150, index_name, index, "#fff"), (290, "output", out, PICKED)):
        p.left(x, 24, name)
        p.cells(x, 34, rows, fill)
    p.arrow(220, 48 + CELL // 2, 280, 48 + CELL // 2)
    p.left(16, 52 + CELL * max(len(source), len(index), len(out)), words)
    return p


def gather():
    return pick("Gather: whole slices, chosen by their positions", ((1, 2), (3, 4), (5, 6)), {(2, 0), (2, 1), (0, 0), (0, 1)},
                ((2,), (0,)), ((5, 6), (1, 2)), "axis 0 of rank 2: each index takes a line")


def gatherelement():
    return pick("Gather element: one element for each index", ((1, 2), (3, 4)), {(1, 0), (0, 1)}, ((1, 0),), ((3, 2),),
                "axis 0 of rank 2: each index takes the line, its own place the column")


def gathernd():
    return pick("Gather ND: a slice for each tuple of coordinates", ((1, 2), (3, 4), (5, 6)), {(2, 1), (0, 0)}, ((2, 1), (0, 0)),
                ((6, 1),), "ind_width 2: each tuple is line and column", "tuples")


def permute():
    p = Picture("Permute: the lines of the output are the columns of the input", 520, 130)
    p.left(16, 24, "input: width 3, height 2")
    p.cells(16, 34, ((1, 2, 3), (4, 5, 6)), lambda y, x: TINTS[y])
    p.arrow(120, 62, 200, 62)
    p.text(160, 54, "order 0, 1, 3, 2", size=11)
    p.left(220, 24, "output: its lines lie out_line_ofs apart")
    p.cells(220, 34, ((1, 4), (2, 5), (3, 6)), lambda y, x: TINTS[x])
    return p


def onehot():
    p = Picture("One-hot: a new axis of depth 4", 400, 146)
    p.left(16, 24, "indices")
    p.cells(16, 34, ((2,), (0,), (7,)), "#fff")
    p.arrow(60, 76, 110, 76)
    p.left(124, 24, "output, axis 3: off 0, on 1")
    rows = ((0, 0, 1, 0), (1, 0, 0, 0), (0, 0, 0, 0))
    p.cells(124, 34, rows, lambda y, x: PICKED if rows[y][x] else INPUT)
    p.left(124 + 4 * CELL + 10, 34 + 2 * CELL + 19, "7 is no place: off")
    return p


def fc_post():
    p = Picture("Partial results of a fully-connected layer", 640, 180)
    for k in range(3):
        p.left(16, 52 + k * CELL, f"k = {k}")
        for j in range(4):
            p.cell(70 + j * 44, 34 + k * CELL, f"[{j},{k}]", TINTS[j], 44)
    p.measure_down(70 + 4 * 44 + 10, 34, 34 + CELL, "in_line_ofs")
    p.text(158, 24, "width outputs, height partial results each")
    for j in range(4):
        p.arrow(92 + j * 44, 34 + 3 * CELL + 2, 92 + j * 44, 34 + 3 * CELL + 24)
    p.left(260, 34 + 3 * CELL + 18, "sum over k, less bias[j], multiplied, shifted, saturated")
    p.cells(70, 34 + 3 * CELL + 28, (("out 0", "out 1", "out 2", "out 3"),), lambda y, x: TINTS[x], 44)
    return p


def lstm_work_area():
    p = Picture("The work area of an LSTM, floats without gaps", 640, 110)
    x = 16
    for words, size, width, fill in (("inputs", "T * N * I", 190, INPUT), ("static inputs", "N * I", 110, INPUT),
                                     ("cell states", "N * D", 110, TINTS[1]), ("hidden states", "T * N * D", 190, TINTS[1])):
        p.cell(x, 30, words, fill, width)
        p.text(x + width // 2, 76, size)
        x += width
    p.left(16, 22, "work_buffer")
    p.left(16, 100, "set by the call before it computes: cell states and hidden states to 0; the last two are a result")
    return p


def nms():
    p = Picture("Overlap of two boxes", 520, 180)
    p.box(20, 20, 140, 110, INPUT, thick=2)
    p.box(80, 60, 150, 100, "none", thick=2)
    p.box(80, 60, 80, 70, PICKED)
    p.text(120, 100, "inter")
    p.left(28, 38, "A")
    p.left(214, 154, "B")
    p.left(260, 60, "overlap = inter / (A + B - inter)")
    p.left(260, 84, "The box of the lower score goes,")
    p.left(260, 102, "if overlap >= nms_threshold.")
    p.left(260, 126, "Boxes that only touch never suppress")
    p.left(260, 144, "each other.")
    return p


def topk():
    p = Picture("Top-K along the width", 470, 150)
    p.left(16, 24, "a line: axis 3, n = 5")
    p.cells(16, 34, ((3, 9, 1, 7, 9),), lambda y, x: PICKED if x in (1, 3, 4) else INPUT)
    for x in range(5):
        p.text(30 + x * CELL, 78, x, size=10, fill=FAINT)
    p.arrow(170, 48, 230, 48)
    p.text(200, 40, "k = 3")
    p.left(250, 24, "values, largest, sorted")
    p.cells(250, 34, ((9, 9, 7),), PICKED)
    p.left(250, 92, "indices, 16 bits each")
    p.cells(250, 102, ((1, 4, 3),), "#fff")
    return p


DRAWINGS = (pooling_windows, pooling_far_end, softmax_groups, layernorm_runs, lrn_window, detection_output_records,
            priorbox_regions, gridsample_layouts, gridsample_blend, gather, gatherelement, gathernd, permute, onehot, fc_post,
            lstm_work_area, nms, topk)


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--check", action="store_true")
    parser.add_argument("--output", default=os.path.join(os.path.dirname(os.path.abspath(__file__)), "pictures"))
    arguments = parser.parse_args()
    drawn = {os.path.join(arguments.output, drawing.__name__ + ".svg"): drawing().svg() for drawing in DRAWINGS}
    if not arguments.check:
        for path, text in drawn.items():
            with open(path, "w", encoding="ascii") as file:
                file.write(text)
        return 0
    found = {}
    for path in glob.glob(os.path.join(arguments.output, "*.svg")):
        with open(path, encoding="ascii") as file:
            found[path] = file.read()
    differing = sorted(path for path in set(drawn) | set(found) if drawn.get(path) != found.get(path))
    print(*(f"{path} is not what make_pictures.py draws" for path in differing), sep="\n")
    print(f"{len(found)} pictures")
    return 1 if differing or not found else 0


if __name__ == "__main__":
    sys.exit(main())
