"""Holds the worked numbers of docs/pages and docs/operators against the library: each row of a checked table is a call."""

import argparse
import ctypes
import glob
import math
import os
import re
import struct
import sys

import interface

WIDTHS = {8: "b", 16: "h", 32: "i"}
JUST_BELOW_HALF = struct.unpack("<f", struct.pack("<I", 0x3EFFFFFF))[0]
GUARD = 4096


def numbers(text):
    return [int(number) for number in re.findall(r"-?\d+", text)]


def fmt_bytes(cell):
    frac_bits, int_bits, sign_bits = numbers(cell)
    return struct.pack("<bbbB", frac_bits, int_bits, sign_bits, 0)


def scale_bytes(cell):
    value, base, shift = numbers(cell)
    assert base == 2
    return struct.pack("<ibBBB", value, shift, 0, 0, 0)


def element_code(cell):
    """struct's code of a format's elements."""
    frac_bits, int_bits, sign_bits = numbers(cell)
    code = WIDTHS[frac_bits + int_bits + sign_bits]
    return code if sign_bits else code.upper()


def as_float(cell):
    return JUST_BELOW_HALF if cell == "nearest" else float(cell)


class Library:
    """Calls by name; integers and addresses are passed as they are, Python floats as C floats."""

    def __init__(self, path):
        self.library = ctypes.CDLL(path)

    def call(self, name, *arguments):
        passed = []
        for argument in arguments:
            if isinstance(argument, bytes):
                passed.append(ctypes.create_string_buffer(argument, len(argument)))
            elif isinstance(argument, float):
                passed.append(ctypes.c_float(argument))
            elif isinstance(argument, int):
                passed.append(ctypes.c_uint32(argument & 0xFFFFFFFF))
            else:
                passed.append(argument)
        return ctypes.c_int32(self.library[name](*passed)).value


class Block:
    """A parameter block, with its fields where the layout table says they are."""

    def __init__(self, layouts, record, **fields):
        size, places = layouts[record]
        self.places = {name: (offset, width) for name, offset, width in places}
        self.memory = ctypes.create_string_buffer(size)
        self.kept = []
        for name, value in fields.items():
            self.set(name, value)

    def set(self, name, value):
        offset, width = self.places[name]
        if isinstance(value, ctypes.Array):
            self.kept.append(value)
            value = ctypes.addressof(value)
        if isinstance(value, list):
            value = b"".join(self.address(item) for item in value)
        elif isinstance(value, float):
            value = struct.pack("<f", value)
        elif isinstance(value, int):
            value = (value % (1 << 8 * width)).to_bytes(width, "little")
        assert len(value) == width, name
        self.memory[offset:offset + width] = value

    def address(self, array):
        self.kept.append(array)
        return ctypes.addressof(array).to_bytes(8, "little")


def buffer(size_or_bytes):
    return ctypes.create_string_buffer(size_or_bytes, len(size_or_bytes)) if isinstance(size_or_bytes, bytes) \
        else ctypes.create_string_buffer(size_or_bytes)


def check_value(library, _, row):
    fmt, scale, stored, _ = row
    out = buffer(4)
    library.call("tarvu_fixtofloat_neon", struct.pack("<" + element_code(fmt), int(stored)), out, 1, fmt_bytes(fmt),
                 scale_bytes(scale))
    return row[:3] + [f"{struct.unpack('<f', out.raw)[0]:g}"]


def check_type(library, _, row):
    fmt = fmt_bytes(row[0])
    codes = {library.call(name, fmt) for name in ("tarvu_get_gather_fmt_type", "tarvu_get_gatherelement_fmt_type")}
    return [row[0], str(library.call("tarvu_get_fmt_type", fmt)), " ".join(map(str, codes))]


def check_reformat(library, _, row):
    in_fmt, out_fmt, stored, _ = row
    code = "<" + element_code(out_fmt)
    out = buffer(struct.calcsize(code))
    library.call("tarvu_convert_fmt_c", struct.pack("<" + element_code(in_fmt), int(stored)), out, 1, fmt_bytes(in_fmt),
                 fmt_bytes(out_fmt), None, None)
    return row[:3] + [str(struct.unpack(code, out.raw)[0])]


def check_to_integer(library, _, row):
    value, fmt, scale, _ = row
    code = "<" + element_code(fmt)
    out = buffer(struct.calcsize(code))
    library.call("tarvu_floattofix_neon", struct.pack("<f", float(value)), out, 1, fmt_bytes(fmt), scale_bytes(scale))
    return row[:3] + [str(struct.unpack(code, out.raw)[0])]


def check_rounding(library, titles, row):
    code, where = row[:2]
    count = {"block": 8, "tail": 1}[where]
    found = []
    for value in map(as_float, titles[2:]):
        out = buffer(count)
        library.call("floattoint8_rnd_neon", struct.pack(f"<{count}f", *[value] * count), out, 0, count, int(code), 1.0)
        found.append(" ".join({str(item) for item in struct.unpack(f"<{count}b", out.raw)}))
    return [code, where] + found


def check_zero_point(library, _, row):
    value, zero_point = row[:2]
    out = buffer(9)
    library.call("floattouint8_1d_neon", struct.pack("<9f", *[float(value)] * 9), out, 9, 0, int(zero_point), 1.0)
    assert len(set(out.raw[:8])) == 1
    return [value, zero_point, str(out.raw[0]), str(out.raw[8])]


def check_quantised(library, _, row):
    """From a float scale and a zero point to records and back, with no fraction bits and unsigned bytes."""
    scale, zero_point, in_record, stored, _, out_record, value, _ = row
    fmt = fmt_bytes("(0, 8, 0)")
    stands_for, becomes = buffer(4), buffer(1)
    library.call("tarvu_fixtofloat_1d_neon", bytes([int(stored)]), stands_for, 1, fmt, scale_bytes(in_record), int(zero_point))
    library.call("tarvu_floattofix_1d_neon", struct.pack("<f", float(value)), becomes, 1, fmt, scale_bytes(out_record),
                 int(zero_point))
    return [scale, zero_point, record_of(float(scale), in_record), stored, f"{struct.unpack('<f', stands_for.raw)[0]:.6g}",
            record_of(1 / float(scale), out_record), value, str(becomes.raw[0])]


def record_of(scale, record):
    """The record itself, if it holds the scale to within half a unit and its shift is 30 or leaves no fraction."""
    value, _, shift = numbers(record)
    nearest = round(scale * 2**shift)
    greatest = shift == 30 or nearest * 2 >= 2**31 or nearest == scale * 2**shift
    return record if value == nearest and value < 2**31 and greatest else f"{nearest} / 2^{shift}"


def check_pool(library, _, row):
    element, in_scale, out_scale, post_shift, _ = row
    out = buffer(1)
    block = Block(library.layouts, "_NN_POOL_PARM", in_addr=buffer(bytes([int(element)])), out_addr=out, width=1, height=1,
                  channel=1, batch=1, in_fmt=fmt_bytes("(0, 8, 0)"), out_fmt=fmt_bytes("(0, 8, 0)"),
                  in_scale=scale_bytes(in_scale), out_scale=scale_bytes(out_scale), post_shift=int(post_shift), kernel_w=1,
                  kernel_h=1, stride_w=1, stride_h=1)
    assert library.call("tarvu_pool_process", block.memory) == 0
    return row[:4] + [str(out.raw[0])]


def check_columns(library, _, row):
    """The written elements of a line of one window's height, where nothing was before."""
    width, kernel, step, pads, floor_mode, _ = row
    left, right = numbers(pads)
    written = set()
    for filling in (0x5A, 0xC3):
        out = buffer(bytes([filling]) * 256)
        line = buffer(bytes(range(256)))
        block = Block(library.layouts, "_NN_POOL_PARM", in_addr=line, out_addr=out, width=int(width), height=1, channel=1,
                      batch=1, in_fmt=fmt_bytes("(0, 8, 0)"), out_fmt=fmt_bytes("(0, 8, 0)"), in_scale=scale_bytes("1/2^0"),
                      out_scale=scale_bytes("1/2^0"), kernel_w=int(kernel), kernel_h=1, stride_w=int(step), stride_h=1,
                      pad_left=left, pad_right=right, floor_mode=int(floor_mode))
        assert library.call("tarvu_pool_process", block.memory) == 0
        written |= {at for at, byte in enumerate(out.raw) if byte != filling}
    assert written == set(range(len(written)))
    return row[:5] + [str(len(written))]


def left_out_blocks(library):
    """A sensible call of each operator over four signed bytes 32, 32, -128, -128 with four fraction bits."""
    elements, kept = struct.pack("4b", 32, 32, -128, -128), buffer(256)
    one, fmt, shares = scale_bytes("1/2^0"), fmt_bytes("(4, 3, 1)"), fmt_bytes("(8, 0, 0)")

    def block(record, **fields):
        return Block(library.layouts, record, **{"width": 4, "height": 1, **fields})

    common = {"in_addr": buffer(elements), "in_fmt": fmt, "out_fmt": fmt, "in_scale": one, "out_scale": one, "channel": 1,
              "batch": 1}
    return {
        "pooling": ("tarvu_pool_process", block("_NN_POOL_PARM", **common, kernel_w=1, kernel_h=1, stride_w=1, stride_h=1)),
        "softmax": ("tarvu_softmax_process",
                    block("_NN_SOFTMAX_PARM", **{**common, "out_fmt": shares}, work_buffer=kept, axis=3)),
        "lrn": ("tarvu_lrn_process",
                block("_NN_LRN_PARM", **common, work_buffer=kept, local_size=1, lrn_k=1, alpha=1.0, beta=0.5)),
        "norm": ("tarvu_norm_process",
                 block("_NN_NORM_PARM", **common, work_buffer=kept, scale_addr=buffer(struct.pack("<f", 1.0)), norm_whole_item=1,
                       shared_scale=1, eps=1.0)),
        "prelu": ("tarvu_prelu_process", block("_NN_PRELU_PARM", in_addr=buffer(elements), weight_addr=buffer(b"\1"), in_fmt=fmt,
                                               channels=1, num=1)),
        "eltwise": ("tarvu_eltwise_process",
                    block("_NN_ELTWISE_PARM", in0_addr=buffer(elements), in1_addr=buffer(elements), work_buffer=kept, channel=1,
                          batch=1, in0_fmt=fmt, in1_fmt=fmt, out_fmt=fmt, in0_scale=one, in1_scale=one, out_scale=one, op=1,
                          coeff0=1.0, coeff1=0.5)),
        "fc_post": ("tarvu_fc_post_process",
                    block("_NN_FC_POST_PARM", in_addr=buffer(elements), bias_addr=buffer(16), batch=1, in_fmt=fmt, out_fmt=fmt,
                          mul_a=one, mul_b=one, neg_mul=one)),
    }


def check_left_out(library, _, row):
    """What a call writes, with a field as it should be and with the field left 0."""
    name, field = row[0].split()[-1], row[1].strip("`")
    found = []
    for left_out in (False, True):
        results = []
        for filling in (0x5A, 0xC3):
            function, block = left_out_blocks(library)[name]
            out = buffer(bytes([filling]) * 64)
            block.set("out_addr", out)
            if left_out:
                block.set(field, bytes(block.places[field][1]))
            assert library.call(function, block.memory) == 0
            results.append(out.raw[:4])
        code = "4B" if name == "softmax" else "4b"
        found.append(", ".join(map(str, struct.unpack(code, results[0]))) if results[0] == results[1] else "not written")
    return row[:2] + found


def layout_bytes(library, settings):
    """The byte of every element, as Permute reads them: the tensor holds its own byte numbers, the result is dense."""
    shape = dict(setting.split("=") for setting in settings)
    extents = [int(shape[name]) for name in ("width", "height", "channel", "batch")]
    width, height, channel, batch = extents
    out = buffer(math.prod(extents))
    block = Block(library.layouts, "_NN_PERMUTE_PARM", in_addr=buffer(bytes(range(256))), out_addr=out, width=width,
                  height=height, channel=channel, batch=batch, in_line_ofs=int(shape["line_ofs"]),
                  in_channel_ofs=int(shape["channel_ofs"]), in_batch_ofs=int(shape["batch_ofs"]), out_line_ofs=width,
                  out_channel_ofs=width * height, out_batch_ofs=width * height * channel, in_fmt=fmt_bytes("(0, 8, 0)"),
                  out_fmt=fmt_bytes("(0, 8, 0)"), order=bytes([0, 1, 2, 3]))
    assert library.call("tarvu_permute_process", block.memory) == 0
    return out.raw, extents


def check_layout(library, _, row, settings):
    dense, (width, height, channel, _) = layout_bytes(library, settings)
    b, c, y, x = map(int, row[:4])
    return row[:4] + [str(dense[((b * channel + c) * height + y) * width + x])]


def check_picture(library, path, settings):
    """The picture's numbers are the bytes of the first item's elements."""
    dense, (width, height, channel, _) = layout_bytes(library, settings)
    shown = [int(number) for number in re.findall(r">(\d+)</text>", interface.read(path))]
    if shown != list(dense[:width * height * channel]):
        print(f"{path}: {shown} should be {list(dense[:width * height * channel])}")
        return 1
    return 0


def dense_block(library, record, values, element_bytes=1, **fields):
    """A block of a float-computing operator over a dense tensor of 8-bit elements."""
    shape = {name: values[name] for name in ("width", "height", "channel", "batch") if name in values}
    for name in ("width", "height", "channel", "batch"):
        shape.setdefault(name, 1)
    count = math.prod(shape.values()) * element_bytes
    fmt = fmt_bytes("(4, 3, 1)")
    return Block(library.layouts, record, in_addr=buffer(count), out_addr=buffer(count), in_fmt=fmt, out_fmt=fmt, **shape,
                 **fields)


def softmax_block(record):
    return lambda library, values: dense_block(library, record, values, in_scale=scale_bytes("1/2^0"),
                                               out_scale=scale_bytes("1/2^0"), axis=3)


def norm_block(library, values):
    return dense_block(library, "_NN_NORM_PARM", values, in_scale=scale_bytes("1/2^0"), out_scale=scale_bytes("1/2^0"),
                       scale_addr=buffer(4 * values["channel"]), norm_whole_item=1, eps=1.0)


def layernorm_block(library, values):
    absent = 0xFFFFFFFFF
    return dense_block(library, "_NN_LAYERNORM_PARM", values, in_scale=scale_bytes("1/2^0"),
                       out_scale=scale_bytes("1/2^0"), gamma_addr=absent, beta_addr=absent, axis=3, eps=1.0)


def lrn_block(library, values):
    return dense_block(library, "_NN_LRN_PARM", values, in_scale=scale_bytes("1/2^0"), out_scale=scale_bytes("1/2^0"),
                       local_size=values["local_size"], lrn_k=1, alpha=1.0, beta=0.75)


def eltwise_block(library, values):
    count = values["width"] * values["height"]
    tensors = {name: buffer(count) for name in ("in0_addr", "in1_addr", "out_addr")}
    formats = {name: fmt_bytes("(4, 3, 1)") for name in ("in0_fmt", "in1_fmt", "out_fmt")}
    scales = {name: scale_bytes("1/2^0") for name in ("in0_scale", "in1_scale", "out_scale")}
    return Block(library.layouts, "_NN_ELTWISE_PARM", width=values["width"], height=values["height"], channel=1, batch=1,
                 **tensors, **formats, **scales)


def lstm_block(library, values):
    steps, sequences, inputs, hidden = (values[name] for name in "TNID")
    block = Block(library.layouts, "_NN_LSTM_PARM", in_addr=buffer(steps * sequences * inputs),
                  static_addr=buffer(sequences * inputs), out_addr=buffer(steps * sequences * hidden),
                  cont_addr=buffer(steps * sequences), width=inputs, height=1, channel=sequences, batch=steps,
                  in_fmt=fmt_bytes("(4, 3, 1)"), out_fmt=fmt_bytes("(4, 3, 1)"), use_static=1, hidden_size=hidden)
    for name, columns in (("input_weights", inputs), ("static_weights", inputs), ("recurrent_weights", hidden), ("biases", 1)):
        block.set(name, [buffer(4 * hidden * columns) for _ in range(4)])
    return block


def detout_block(library, values):
    locations, classes, priors = values["L"], values["C"], values["P"]
    assert locations == 1 and values["Q"] == (priors + 3) // 4 * 4
    # Far from one another, so that the suppression keeps them all.
    boxes = b"".join(struct.pack("<4f", place, 0.0, place + 0.01, 0.01) for place in (i / 20 for i in range(priors)))
    return Block(library.layouts, "_NN_DETOUT_PARM", loc_addr=buffer(4 * priors),
                 conf_addr=buffer(struct.pack("<f", 0.5) * (priors * classes)), prior_addr=buffer(boxes + bytes(16 * priors)),
                 out_addr=buffer(20 * 20 * classes + 20 * priors * classes), batch=1, loc_fmt=fmt_bytes("(4, 3, 1)"),
                 loc_scale=scale_bytes("1/2^0"), num_classes=classes, num_priors=priors, share_location=1,
                 background_label_id=-1, keep_top_k=20, nms_threshold=0.5)


def topk_block(library, values):
    return Block(library.layouts, "_NN_TOPK_PARM", in_addr=buffer(values["n"]), out_addr=buffer(values["k"]),
                 in_fmt=fmt_bytes("(4, 3, 1)"), width=values["n"], height=1, channel=1, batch=1, axis=3, largest=1, sorted=1,
                 k=values["k"])


def gather_block(library, values):
    # Two lines of bytes, re-formatted to 16 bits.
    run = values["run"]
    return Block(library.layouts, "_NN_GATHER_PARM", in_addr=buffer(3 * run), out_addr=buffer(4 * run),
                 ind_addr=buffer(bytes([2, 0])), in_width=run, in_height=3, ind_width=2, out_width=run, out_height=2,
                 in_line_ofs=run, out_line_ofs=2 * run, in_fmt=fmt_bytes("(0, 8, 0)"), ind_fmt=fmt_bytes("(0, 8, 0)"),
                 out_fmt=fmt_bytes("(0, 16, 0)"), axis=0)


def gathernd_block(library, values):
    tuples = values["ind_height"]
    return Block(library.layouts, "_NN_GATHERND_PARM", in_addr=buffer(4), out_addr=buffer(tuples),
                 ind_addr=buffer(values["ind_width"] * tuples), in_width=2, in_height=2, out_width=tuples,
                 ind_width=values["ind_width"], ind_height=tuples, in_fmt=fmt_bytes("(0, 8, 0)"),
                 ind_fmt=fmt_bytes("(0, 8, 0)"), out_fmt=fmt_bytes("(0, 8, 0)"))


def gatherelement_block(library, values):
    assert values["E"] == 2
    return Block(library.layouts, "_NN_GATHERELEMENT_PARM", in_addr=buffer(8), out_addr=buffer(2), ind_addr=buffer(2),
                 in_width=2, in_height=2, out_width=2, out_height=1, in_line_ofs=4, ind_line_ofs=2,
                 in_fmt=fmt_bytes("(0, 16, 0)"), ind_fmt=fmt_bytes("(0, 8, 0)"), out_fmt=fmt_bytes("(0, 8, 0)"))


SCRATCH_CALLS = {
    "softmax": ("tarvu_softmax_process", softmax_block("_NN_SOFTMAX_PARM")),
    "softmax_zero_point": ("tarvu_softmax_asym_process", softmax_block("_NN_SOFTMAX_ASYM_PARM")),
    "lrn": ("tarvu_lrn_process", lrn_block),
    "norm": ("tarvu_norm_process", norm_block),
    "layernorm": ("tarvu_layernorm_process", layernorm_block),
    "eltwise": ("tarvu_eltwise_process", eltwise_block),
    "lstm": ("tarvu_lstm_process", lstm_block),
    "detection_output": ("tarvu_detout_process", detout_block),
    "topk": ("tarvu_topk_process", topk_block),
    "gather": ("tarvu_gather_process", gather_block),
    "gathernd": ("tarvu_gathernd_process", gathernd_block),
    "gatherelement": ("tarvu_gatherelement_process", gatherelement_block),
}


def bytes_used(library, name, values, bytes_given):
    """How far a call writes into scratch memory: it is filled in two ways, and what differs from both was written."""
    function, make_block = SCRATCH_CALLS[name]
    written = set()
    for filling in (0x5A, 0xC3):
        scratch = buffer(bytes([filling]) * (bytes_given + GUARD))
        block = make_block(library, values)
        block.set("work_buffer", scratch)
        assert library.call(function, block.memory) == 0
        written |= {at for at, byte in enumerate(scratch.raw) if byte != filling}
    return max(written, default=-1) + 1


def check_scratch(library, _, row):
    name = row[0].split()[-1]
    if row[1:] == ["none", "", ""]:
        return row if name not in SCRATCH_CALLS else row[:1] + ["is called below"]
    values = {key: int(value) for key, value in (pair.split("=") for pair in row[2].split())}
    formula = re.split(r"[,;]", re.sub(r"max\(k, n\)", "MAX", row[1]))[0].replace("MAX", "max(k, n)")
    # The page's own words; it is part of the repository.
    expected = eval(formula, {"__builtins__": {}, "max": max}, values)  # pylint: disable=eval-used
    used = bytes_used(library, name, values, expected)
    print(f"{name}: {used} of {expected} bytes of scratch memory are written")
    return row[:3] + [str(expected) if used <= expected else f"{expected}, but {used} are used"]


CHECKS = {"value": check_value, "type": check_type, "reformat": check_reformat, "to_integer": check_to_integer,
          "rounding": check_rounding, "zero_point": check_zero_point, "pool": check_pool, "layout": check_layout,
          "quantised": check_quantised, "columns": check_columns,
          "left_out": check_left_out, "scratch": check_scratch}


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--library", required=True)
    parser.add_argument("--layouts", required=True, help="table of record layouts")
    parser.add_argument("--pages", required=True, nargs="+", help="folders")
    arguments = parser.parse_args()
    library = Library(arguments.library)
    library.layouts = interface.record_layouts(interface.read(arguments.layouts))
    kinds = set()
    rows = wrong = 0
    for path in [path for folder in arguments.pages for path in sorted(glob.glob(os.path.join(folder, "*.md")))]:
        for kind, settings, titles, table in interface.tables(interface.read(path)):
            kinds.add(kind)
            if kind == "layout":
                wrong += check_picture(library, os.path.join(os.path.dirname(path), "layout.svg"), settings)
            for row in table:
                found = CHECKS[kind](library, titles, row, *([settings] if settings else []))
                rows += 1
                if found != row:
                    wrong += 1
                    print(f"{path}: | {' | '.join(row)} | should be\n  | {' | '.join(found)} |")
    print(f"{rows} rows, {wrong} wrong")
    if kinds != set(CHECKS):
        print(f"no table of the kinds {sorted(set(CHECKS) - kinds)}")
        return 1
    return 1 if wrong else 0


if __name__ == "__main__":
    sys.exit(main())
