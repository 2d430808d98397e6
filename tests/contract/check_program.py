"""Runs tarvu-check on calls in JSON and on parameter blocks, whole and damaged, and holds what it says and its exit code."""

import argparse
import json
import random
import subprocess
import sys

POOL = {"function": "tarvu_pool_process", "width": 8, "height": 6, "channel": 1, "batch": 1, "in_line_ofs": 16, "out_line_ofs": 4,
        "in_fmt": "u8.0", "out_fmt": "u7.1", "in_scale": "3/2", "out_scale": 0.5, "kernel_w": 2, "kernel_h": 2, "stride_w": 2,
        "stride_h": 2}
POOL_BYTES = 120

# A JSON text or its object, and the sentence on standard error.
BAD = [
    ("", "the input is not one JSON object."),
    ("{", "the input is not one JSON object."),
    ("[]", "the input is not one JSON object."),
    ("{} {}", "the input is not one JSON object."),
    ("[" * 100000, "the input is not one JSON object."),
    ("\xff\x00", "the input is not one JSON object."),
    ({}, 'the input has no "function" with a name.'),
    ({"function": 7}, 'the input has no "function" with a name.'),
    ({"function": "tarvu_poll_process"}, 'there is no function "tarvu_poll_process".'),
    ({"function": "tarvu_pool_process\0"}, 'there is no function "tarvu_pool_process\\u0000".'),
    ({"function": "sigmoid"}, "what calls of sigmoid touch is not known."),
    (dict(POOL, widht=1), 'tarvu_pool_process has no field "widht".'),
    (dict(POOL, width=65536), "width is 65536; an unsigned integer of 16 bits is wanted there."),
    (dict(POOL, width=-1), "width is -1; an unsigned integer of 16 bits is wanted there."),
    (dict(POOL, width=1.5), "width is 1.5; an unsigned integer of 16 bits is wanted there."),
    (dict(POOL, width=None), "width is null; an unsigned integer of 16 bits is wanted there."),
    (dict(POOL, post_shift=-129), "post_shift is -129; a signed integer of 8 bits is wanted there."),
    (dict(POOL, in_addr="1000"), 'in_addr is "1000"; an unsigned integer of 64 bits is wanted there.'),
    (dict(POOL, in_fmt="s3"), 'in_fmt is "s3"; a format is written as "s3.4" or "u8.0".'),
    (dict(POOL, in_fmt="x3.4"), 'in_fmt is "x3.4"; a format is written as "s3.4" or "u8.0".'),
    (dict(POOL, in_fmt="s300.4"), 'in_fmt is "s300.4"; a format is written as "s3.4" or "u8.0".'),
    (dict(POOL, in_scale="1/3"), 'in_scale is "1/3"; a scale is a number or "3/2" whose divisor is a power of two.'),
    (dict(POOL, in_scale=0.1), 'in_scale is 0.1; a scale is a number or "3/2" whose divisor is a power of two.'),
    (dict(POOL, in_scale=1e300), 'in_scale is 1e+300; a scale is a number or "3/2" whose divisor is a power of two.'),
    ({"function": "tarvu_permute_process", "order": [0, 1, 2, 3, 4]}, "order is [0,1,2,3,4]; an array of at most 4 is wanted there."),
    ({"function": "tarvu_permute_process", "order": [0, 300]},
     "order[1] is 300; a signed integer of 8 bits is wanted there."),
    (" " * (1 << 20) + "{}", "- is larger than 1 MiB."),
]


class Finding(Exception):
    """The program does not do what it should."""


def expect(what, found, wanted):
    if found != wanted:
        raise Finding(f"{what}: {found!r}, should be {wanted!r}")


class Program:
    """Runs it."""

    def __init__(self, command):
        self.command = command

    def run(self, given, *arguments):
        if isinstance(given, dict):
            given = json.dumps(given)
        given = given.encode("latin-1") if isinstance(given, str) else given
        result = subprocess.run([*self.command, *arguments], input=given, stdout=subprocess.PIPE, stderr=subprocess.PIPE, check=False)
        return result.returncode, result.stdout.decode(), result.stderr.decode()

    def answer(self, given, *arguments):
        code, out, err = self.run(given, "--json", *arguments)
        expect("standard error", err, "")
        return code, json.loads(out)


def check_calls(program):
    code, answer = program.answer(POOL)
    expect("a legal block", (code, answer["findings"], answer["scratch_bytes"]), (0, [], 0))
    expect("its ranges", [(r["field"], r["role"], r["bytes"]) for r in answer["ranges"]],
           [("in_addr", "reads", 88), ("out_addr", "writes", 12)])
    for line in ("in_fmt u8.0, 8 bits", "in_scale 3/2^1", "out_scale 1/2^1"):
        expect(line, f"  {line}\n" in answer["description"], True)

    code, out, err = program.run(dict(POOL, out_line_ofs=3))
    expect("a step that is too small", (code, err), (0, ""))
    expect("its sentence", out.endswith("findings: 1\n  TARVU-ANY-05, kept: out_line_ofs is 3, but one step holds 4 bytes: "
                                        "results are written over results.\n"), True)
    expect("its ranges in words", "scratch: 0 bytes\nranges: 2\n  reads in_addr, 88 bytes from byte 0 on, 1 bytes an element, "
                                  "8 times every 1, 6 times every 16\n" in out, True)

    code, out, _ = program.run(dict(POOL, mode=4))
    expect("a refused block", (code, out.split("findings: ")[1]),
           (1, '1\n  TARVU-POOL-03, refused: mode is 4; there are the modes 0 to 3.\n    prints '
               '"\\033[1;31mERR:vendor_ai_pool_mode() unsupported pooling mode 4\\r\\n\\033[0m"\n    returns -1\n'))
    code, answer = program.answer(dict(POOL, in_addr="0x1000"))
    expect("an address alone", (code, [f["id"] for f in answer["findings"]]), (1, ["TARVU-ANY-01"]))

    reformat = {"function": "tarvu_convert_fmt_c", "source": 4096, "destination": "0x2000", "count": 4, "in_fmt": "s3.4",
                "out_fmt": "s3.12"}
    code, answer = program.answer(reformat)
    expect("arguments", (code, [(r["field"], r["bytes"]) for r in answer["ranges"]][:2]), (0, [("source", 4), ("destination", 8)]))
    code, answer = program.answer({"function": "tarvu_topk_process", "width": 5, "height": 1, "channel": 1, "batch": 1, "axis": 3,
                                   "k": 2, "in_fmt": "s3.4"})
    expect("scratch", answer["scratch_bytes"], 20)


def check_blocks(program):
    block = bytearray(POOL_BYTES)
    code, answer = program.answer(bytes(block), "--function", "tarvu_pool_process")
    expect("zeros", (code, [(f["id"], f["result"]) for f in answer["findings"]]), (1, [("TARVU-POOL-01", -1)]))
    for size in (0, POOL_BYTES - 1, POOL_BYTES + 1):
        expect(f"{size} bytes", program.run(bytes(size), "--function", "tarvu_pool_process"),
               (2, "", f"tarvu-check: the input has {size} bytes, but _NN_POOL_PARM has {POOL_BYTES}.\n"))
    draw = random.Random(7)
    for _ in range(20):
        code, _, err = program.run(draw.randbytes(POOL_BYTES), "--function", "tarvu_pool_process")
        expect("random bytes", (code in (0, 1), err), (True, ""))
    expect("no block", program.run(b"", "--function", "permute_data_in"),
           (2, "", "tarvu-check: permute_data_in takes no parameter block; write the call as JSON.\n"))
    expect("no function", program.run(b"", "--function", "tarvu"), (2, "", "tarvu-check: there is no function tarvu.\n"))


def check_bad_input(program):
    for given, sentence in BAD:
        expect(repr(given)[:60], program.run(given), (2, "", f"tarvu-check: {sentence}\n"))
    expect("no file", program.run(b"", "/no/such/file"),
           (2, "", "tarvu-check: cannot read /no/such/file: No such file or directory.\n"))
    expect("no option", program.run(b"", "--jsn")[0], 2)
    # A whole call with single bytes changed or lost never ends otherwise than by an answer or a sentence.
    whole = json.dumps(POOL).encode()
    draw = random.Random(8)
    for _ in range(60):
        place = draw.randrange(len(whole))
        damaged = whole[:place] + draw.choice([b"", draw.randbytes(1)]) + whole[place + 1:]
        code, _, err = program.run(damaged)
        expect(repr(damaged), code in (0, 1) and not err or code == 2 and err.count("\n") == 1 and err.endswith(".\n"), True)


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("program", nargs="+", help="with its emulator, if it needs one")
    program = Program(parser.parse_args().program)
    try:
        check_calls(program)
        check_blocks(program)
        check_bad_input(program)
        code, out, _ = program.run(b"", "--help")
        expect("help", (code, "--function" in out), (0, True))
    except Finding as finding:
        print(finding)
        return 1
    return 0


if __name__ == "__main__":
    sys.exit(main())
