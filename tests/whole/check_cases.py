"""Checks that the parity cases call every exported function themselves, so that what is tested by running them holds for the
whole interface."""

import argparse
import subprocess
import sys


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--nm", required=True)
    parser.add_argument("--names", required=True)
    parser.add_argument("--cases", required=True, help="static library of the cases")
    parser.add_argument("--exempt", nargs="*", default=[])
    parser.add_argument("--expect-finding", action="store_true", help="succeed only if there is one")
    arguments = parser.parse_args()
    with open(arguments.names, encoding="ascii") as file:
        exported = {line[2:].strip() for line in file if line.startswith("+ ")}
    listing = subprocess.run([arguments.nm, "-u", arguments.cases], check=True, capture_output=True, text=True).stdout
    called = {line.split()[-1] for line in listing.splitlines() if line.split()[:1] == ["U"]}
    exempt = set(arguments.exempt)
    findings = []
    if exported - called - exempt:
        findings.append(f"no case calls {sorted(exported - called - exempt)}")
    if exempt & called or exempt - exported:
        findings.append(f"exempt without need: {sorted(exempt & called | exempt - exported)}")
    print(f"{len(exported & called)} of {len(exported)} exported functions are called")
    for finding in findings:
        print(finding)
    return 0 if bool(findings) == arguments.expect_finding else 1


if __name__ == "__main__":
    sys.exit(main())
