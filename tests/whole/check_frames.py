"""Checks the frames of all functions in some objects, by the lists that the compiler wrote beside them (-fstack-usage): none is
larger than the most allowed, and each has a bound. A frame that is moved to a wider alignment counts as bounded."""

import argparse
import os
import sys


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("objects", nargs="+")
    parser.add_argument("--most-bytes", type=int, required=True)
    parser.add_argument("--expect-findings", type=int, default=0, help="succeed only if there are as many")
    arguments = parser.parse_args()
    frames = []
    findings = []
    for path in arguments.objects:
        usage = os.path.splitext(path)[0] + ".su"
        if not os.path.exists(usage):
            findings.append(f"{usage}: missing")
            continue
        with open(usage, encoding="utf-8") as file:
            for line in file:
                function, size, kind = line.rstrip("\n").split("\t")
                frames.append((int(size), function))
                if int(size) > arguments.most_bytes or kind not in ("static", "dynamic,bounded"):
                    findings.append(f"{function}: {size} bytes, {kind}")
    frames.sort(reverse=True)
    print(f"{len(frames)} functions in {len(arguments.objects)} objects; the largest frames:")
    for size, function in frames[:5]:
        print(f"  {size} {function}")
    for finding in findings:
        print(finding)
    if not frames:
        print("found no function")
        return 1
    return 0 if len(findings) == arguments.expect_findings else 1


if __name__ == "__main__":
    sys.exit(main())
