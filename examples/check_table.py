"""Checks the one table that the picture example prints of two machines: a line a layer, what an unequal output does to it, and
where the lines go that the library prints itself."""

import argparse
import pathlib
import re
import shutil
import subprocess
import sys


def run(command):
    """Exit code, standard output and standard error."""
    print("+", *command, flush=True)
    result = subprocess.run(command, capture_output=True, text=True, check=False)
    return result.returncode, result.stdout.splitlines(), result.stderr


def findings_of(arguments):
    scratch = pathlib.Path(arguments.scratch)
    shutil.rmtree(scratch, ignore_errors=True)
    shutil.copytree(arguments.other, scratch / "other")
    command = [*arguments.command, "--output", str(scratch / "ours"), "--machine", "ours", "--emulated", "--beside",
               str(scratch / "other")]
    status, lines, errors = run(command)
    layers = [line.split("\t") for line in (scratch / "other" / "layers.txt").read_text().splitlines()[1:]]
    rows = [line for line in lines if re.search(r" \d+\.\d{3}  +\d+\.\d{3}  equal$", line)]
    if status or errors:
        yield f"exit code {status}, {errors!r}"
    if [row.split("  ")[0] for row in rows] != [layer[0] for layer in layers] or not layers:
        yield f"{len(rows)} rows for {len(layers)} layers"
    heads = [line for line in lines if line.startswith("layer ")]
    if len(heads) != 1 or not re.search(r"formats +ms +ours ms\*  bits$", heads[0]):
        yield f"heads of the table: {heads}"
    for told in ("shape ", "formats ", "ms ", "* ", "bits "):
        if sum(line.startswith(told) for line in lines) != 1:
            yield f"the legend does not tell once what '{told}' is"
    formats = {text for layer in layers for text in layer[2].split(" -> ")}
    if not {"u8.0", "u8.-5", "s16.14", "f32"} <= formats or any(text.startswith(("s32", "u32")) for text in formats):
        yield f"formats: {sorted(formats)}"
    printed = [line for line in lines if "obj_final_num" in line]
    if len(printed) != 1 or not re.fullmatch(r'printed by "nms: [^"]+": obj_final_num is \d+', printed[0]):
        yield f"what the library prints itself: {printed}"

    # One other digest, in the third layer.
    layers[2][4] = str(int(layers[2][4]) ^ 1)
    text = "\n".join("\t".join(layer) for layer in [["other", "0"], *layers]) + "\n"
    (scratch / "other" / "layers.txt").write_text(text)
    status, lines, errors = run(command)
    different = [line for line in lines if line.endswith("  DIFFER")]
    if status != 1 or len(different) != 1 or not different[0].startswith(layers[2][0]):
        yield f"after a digest was changed: exit code {status}, {different}"
    if errors != f"picture_demo: 1 of {len(layers)} outputs differ from those of the other machine\n":
        yield f"after a digest was changed: {errors!r}"

    (scratch / "other" / "layers.txt").write_text("other\t0\nno layer\n")
    status, _, errors = run(command)
    if status != 1 or "cannot read the layers of another run in" not in errors:
        yield f"with a file that holds no layers: exit code {status}, {errors!r}"


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--other", required=True, help="output folder of another machine's run")
    parser.add_argument("--scratch", required=True)
    parser.add_argument("command", nargs="+", help="behind --: the example, with all but its --output")
    arguments = parser.parse_args()
    findings = list(findings_of(arguments))
    for finding in findings:
        print(finding)
    return 1 if findings else 0


if __name__ == "__main__":
    sys.exit(main())
