"""Checks that the C example in the README is the program that is compiled and run, and that what it shows of another one is what
that prints."""

import argparse
import re
import sys


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--readme", required=True)
    parser.add_argument("--example", required=True)
    parser.add_argument("--prints", required=True, help="what the other one prints")
    arguments = parser.parse_args()
    with open(arguments.readme, encoding="ascii") as file:
        readme = file.read()
    blocks = re.findall(r"^```c\n(.*?)^```$", readme, flags=re.DOTALL | re.MULTILINE)
    with open(arguments.example, encoding="ascii") as file:
        example = file.read()
    if blocks != [example]:
        print(f"{arguments.readme}: its one C block is not {arguments.example}")
        return 1
    if "".join(f"    {line}\n" for line in arguments.prints.splitlines()) not in readme:
        print(f"{arguments.readme}: it does not show\n{arguments.prints}")
        return 1
    return 0


if __name__ == "__main__":
    sys.exit(main())
