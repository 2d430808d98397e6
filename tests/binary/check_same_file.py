"""Builds the library again, from a copy of the sources in another folder, and compares the two files byte for byte."""

import argparse
import os
import shutil
import subprocess
import sys


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--source", required=True)
    parser.add_argument("--library", required=True)
    parser.add_argument("--scratch", required=True)
    parser.add_argument("configure", nargs="+", help="CMake and its arguments, without the two folders")
    arguments = parser.parse_args()

    shutil.rmtree(arguments.scratch, ignore_errors=True)
    copy = os.path.join(arguments.scratch, "a_copy_of_the_sources")
    build = os.path.join(arguments.scratch, "result")
    shutil.copytree(arguments.source, copy, ignore=lambda folder, names: {"build", ".git"} & set(names))
    jobs = str(len(os.sched_getaffinity(0)))
    subprocess.run([*arguments.configure, "-S", copy, "-B", build], check=True)
    subprocess.run([arguments.configure[0], "--build", build, "--target", "tarvu", "-j", jobs], check=True)

    second = os.path.join(build, os.path.basename(arguments.library))
    with open(arguments.library, "rb") as file:
        one = file.read()
    with open(second, "rb") as file:
        two = file.read()
    if one == two:
        print(f"{len(one)} equal bytes")
        return 0
    at = next((i for i, (a, b) in enumerate(zip(one, two)) if a != b), min(len(one), len(two)))
    print(f"{arguments.library} ({len(one)} bytes) and {second} ({len(two)} bytes) differ from byte {at} on")
    return 1


if __name__ == "__main__":
    sys.exit(main())
