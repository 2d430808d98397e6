"""Runs the recipes of the README's chapter "Install", line by line as they are printed, in a copy of the sources and with a home of
its own, and then looks for the trees that they installed, which stand side by side."""

import argparse
import itertools
import os
import pathlib
import re
import shutil
import subprocess
import sys

from check_install import Finding, run

# The heading, the tree that it installs and the program that it runs at last, with what that prints.
RECIPES = {
    "On this PC": "tarvu-pc",
    "For the device, with a cross compiler": "tarvu-arm64",
}
PRINTED = "8 6 4 2\n16 14 12 10\n"


def lines_of(readme, heading):
    """The indented lines below a heading, up to the next."""
    chapter = re.search(rf"^### {re.escape(heading)}\n(.*?)^#", readme, flags=re.DOTALL | re.MULTILINE)
    lines = re.findall(r"^    (.+)$", chapter.group(1), flags=re.MULTILINE) if chapter else []
    if not lines:
        raise Finding(f"the README has no lines below '### {heading}'")
    return lines


def environment_with(home):
    """The environment of a user who has set nothing; what was compiled before is not compiled again."""
    environment = {name: value for name, value in os.environ.items()
                   if name not in ("PKG_CONFIG_PATH", "PKG_CONFIG_LIBDIR", "LD_LIBRARY_PATH", "CMAKE_PREFIX_PATH", "CC", "CXX")}
    # Python adds this where no locale is set, and ccache takes another locale for another compilation.
    if environment.get("LC_CTYPE") == "C.UTF-8":
        del environment["LC_CTYPE"]
    if shutil.which("ccache"):
        environment["CCACHE_DIR"] = run(["ccache", "--get-config", "cache_dir"]).strip()
    return dict(environment, HOME=str(home))


def run_recipe(heading, lines, tree, environment):
    script = "set -eu\n" + "".join(line + "\n" for line in lines)
    output = run(["sh", "-c", script], cwd=tree, env=environment)
    if not output.endswith("\n" + PRINTED):
        raise Finding(f"the recipe '{heading}' does not end with what the program prints:\n{output}")


def found_package(arguments, options, prefixes, scratch):
    """The folder of the package that a project finds which is configured with these options."""
    shutil.rmtree(scratch, ignore_errors=True)
    run([arguments.cmake, "-S", str(pathlib.Path(__file__).parent / "cmake_project"), "-B", str(scratch), "-G", "Ninja",
         f"-DCMAKE_PREFIX_PATH={';'.join(map(str, prefixes))}", *options])
    cache = (scratch / "CMakeCache.txt").read_text(encoding="utf-8")
    return pathlib.Path(re.search(r"^tarvu_DIR:\w+=(.*)$", cache, flags=re.MULTILINE).group(1))


def check_side_by_side(arguments, home, scratch):
    trees = [home / tree for tree in RECIPES.values()]
    options = {"tarvu-pc": [], "tarvu-arm64": [f"-DCMAKE_C_COMPILER={arguments.compiler}", "-DCMAKE_SYSTEM_NAME=Linux",
                                               f"-DCMAKE_SYSTEM_PROCESSOR={arguments.processor}"]}
    for prefixes in itertools.permutations(trees):
        for tree in trees:
            found = found_package(arguments, options[tree.name], prefixes, scratch)
            if found != tree / "lib/cmake/tarvu":
                raise Finding(f"in {prefixes} a project for {tree.name} finds {found}")
            run([arguments.cmake, "--build", str(scratch)])
    for tree, other in itertools.permutations(trees):
        try:
            found_package(arguments, options[tree.name], [other], scratch)
        except Finding as finding:
            if not re.search(r"2\.19\.0 \(for \S+, not for \S+\)", str(finding)):
                raise
        else:
            raise Finding(f"a project for {tree.name} takes {other}")
    # A toolchain file that keeps the search to its own root, and the word that names the tree all the same.
    folder = home / "tarvu-arm64/lib/cmake/tarvu"
    found_package(arguments, [f"-DCMAKE_TOOLCHAIN_FILE={arguments.root}/cmake/aarch64-linux-gnu.cmake", f"-Dtarvu_DIR={folder}"],
                  [], scratch)
    run([arguments.cmake, "--build", str(scratch)])


def check_recipes(arguments):
    scratch = pathlib.Path(arguments.scratch)
    shutil.rmtree(scratch, ignore_errors=True)
    tree, home = scratch / "tree", scratch / "home"
    home.mkdir(parents=True)
    root = pathlib.Path(arguments.root)
    shutil.copytree(root, tree, symlinks=True, ignore=lambda folder, _: {"build", ".git"} if folder == str(root) else set())
    readme = (root / "README.md").read_text(encoding="ascii")
    environment = environment_with(home)
    recipes = list(RECIPES) if arguments.compiler else list(RECIPES)[:1]
    for heading in recipes:
        run_recipe(heading, lines_of(readme, heading), tree, environment)
    if arguments.compiler:
        check_side_by_side(arguments, home, scratch / "project")


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    for option in ("cmake", "root", "scratch"):
        parser.add_argument("--" + option, required=True)
    parser.add_argument("--compiler", default="", help="the cross compiler, which the recipe for the device needs")
    parser.add_argument("--processor", default="", help="what the cross build calls its processor")
    arguments = parser.parse_args()
    try:
        check_recipes(arguments)
    except (Finding, subprocess.SubprocessError) as finding:
        print(finding)
        return 1
    return 0


if __name__ == "__main__":
    sys.exit(main())
