"""Checks that the C example in the README is the program that is compiled and run."""

import argparse
import re
import sys


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--readme", required=True)
    parser.add_argument("--example", required=True)
    arguments = parser.parse_args()
    with open(arguments.readme, encoding="ascii") as file:
        blocks = re.findall(r"^```c\n(.*?)^```$", file.read(), flags=re.DOTALL | re.MULTILINE)
    with open(arguments.example, encoding="ascii") as file:
        example = file.read()
    if blocks != [example]:
        print(f"{arguments.readme}: its one C block is not {arguments.example}")
        return 1
    return 0


if __name__ == "__main__":
    sys.exit(main())
