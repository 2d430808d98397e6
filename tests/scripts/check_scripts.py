"""Runs the scripts in a small tree of their own, with stand-ins for what installs and what tests, and checks what they say."""

import argparse
import os
import pathlib
import re
import shutil
import stat
import subprocess
import sys
import tempfile

# A stand-in tells what apt-get tells, and takes its time.
APT_GET = """#!/bin/sh
case $1 in
  update) echo "Get:1 lists" ;;
  install)
    echo "0 upgraded, 3 newly installed, 0 to remove and 0 not upgraded."
    for package in a b c; do echo "Get:1 $package"; done
    for package in a b; do echo "Unpacking $package (1.0) ..."; done
    sleep 3
    echo "Setting up a (1.0) ..."
    {end}
    ;;
esac
"""
CTEST = """#!/bin/sh
echo "      Start  1: first/test"
echo " 1/3 Test  #1: first/test ...............   Passed    0.01 sec"
echo "      Start  2: second/test"
echo "      Start  3: third/test"
sleep 3
echo " 2/3 Test  #2: second/test ..............   {end}    3.00 sec"
exit {status}
"""


class Tree:
    """The scripts with an otherwise empty tree, and programs that stand in front of the machine's own."""

    def __init__(self, root, folder):
        self.root = folder / "tree"
        self.programs = folder / "programs"
        self.programs.mkdir()
        self.temporary = folder / "temporary"
        self.temporary.mkdir(mode=0o777)
        shutil.copytree(root / "scripts", self.root / "scripts")
        (self.root / "cmake").mkdir()
        shutil.copy(root / "cmake/check_version.cmake", self.root / "cmake")
        (self.root / "examples").mkdir()
        shutil.copy(root / "examples/picture.png", self.root / "examples")

    def program(self, name, text):
        path = self.programs / name
        path.write_text(text, encoding="ascii")
        path.chmod(0o755)

    def run(self, *command, as_nobody=False):
        """Exit code, lines of standard output, lines of standard error."""
        environment = dict(os.environ, PATH=f"{self.programs}:{os.environ['PATH']}", TARVU_TELL_EVERY="1",
                           TMPDIR=str(self.temporary))
        prefix = ["setpriv", "--reuid=65534", "--regid=65534", "--clear-groups"] if as_nobody and os.getuid() == 0 else []
        result = subprocess.run([*prefix, *command], cwd=self.root, env=environment, capture_output=True, text=True,
                                check=False)
        print("+", *command, f"\n{result.returncode}\n{result.stdout}{result.stderr}", flush=True)
        return result.returncode, result.stdout.splitlines(), result.stderr.splitlines()

    def run_functions(self, text):
        """Runs lines of shell behind what the scripts share."""
        script = self.root / "scripts" / "tried"
        script.write_text(f'set -eu\nroot={self.root}\n. "$root/scripts/common.sh"\n{text}\n', encoding="ascii")
        return self.run("sh", str(script))


def unwritable_tree(tree):
    (tree.root / "build").write_text("no folder")
    for script in ("demo", "docs", "lint", "packages", "test"):
        status, told, errors = tree.run(f"scripts/{script}")
        yield status == 1 and not told, f"scripts/{script} goes on"
        wanted = f"scripts/{script}: nothing can be written to {tree.root}/build; make it yours, or use a copy of the tree."
        yield errors == [wanted], f"scripts/{script} does not say that nothing can be written"


def unwritable_build(tree):
    """The folder of one build is another's, who left a log of success in it."""
    build = tree.root / "build" / "host"
    build.mkdir(parents=True)
    (tree.root / "build").chmod(0o777)
    (build / "configure.log").write_text("-- Generating done\n")
    build.chmod(stat.S_IRUSR | stat.S_IXUSR | stat.S_IRGRP | stat.S_IXGRP | stat.S_IROTH | stat.S_IXOTH)
    status, told, errors = tree.run("scripts/test", "host", as_nobody=True)
    yield status == 1 and not told, "scripts/test goes on"
    yield errors == [f"scripts/test: nothing can be written to {tree.root}/build/host; make it yours, or use a copy of the "
                     "tree."], "scripts/test does not say that nothing can be written"


def install(tree):
    made = tree.root / "made"
    tree.program("apt-get", APT_GET.replace("{end}", f"touch {made}"))
    tree.program("sudo", '#!/bin/sh\nexec "$@"\n')
    status, told, errors = tree.run_functions(f"install_missing {made} a-package cmake cmake\nsay installed")
    yield status == 0 and not errors, "the installation fails"
    yield told[0] == "== installing a-package " and told[-1] == "== installed", "it does not say what it does"
    so_far = [line for line in told if re.fullmatch(r"   2 of 3 packages are unpacked, 0 set up, [123] s", line)]
    yield so_far, "it does not say how far it is"
    yield len(told) == 2 + len(so_far), "it says more than that"
    yield not list(tree.temporary.iterdir()) and not list((tree.root / "build").iterdir()), "a log is left"


def failed_install(tree):
    tree.program("apt-get", APT_GET.replace("{end}", "echo 'E: no space'; exit 100"))
    tree.program("sudo", '#!/bin/sh\nexec "$@"\n')
    status, _, errors = tree.run_functions(f"install_missing {tree.root}/made a-package\nsay installed")
    yield status == 1, "a failed installation passes"
    yield errors[-2:] == ["E: no space", "scripts/tried: apt-get could not install a-package "], "it does not say why it fails"


def long_test(tree):
    tree.program("ctest", CTEST.replace("{end}", "Passed").replace("{status}", "0"))
    (tree.root / "build/host").mkdir(parents=True)
    status, told, errors = tree.run_functions("test_preset host\nsay passed")
    yield status == 0 and not errors and told[-1] == "== passed", "the tests fail"
    so_far = [line for line in told if line.startswith("   1 of 3 tests are done; running: ")]
    yield so_far, "it does not say how far the tests are"
    yield all({"second/test,", "third/test,"} & set(line.split()) and "first/test" not in line for line in so_far), \
        "it does not say which are running"


def failed_test(tree):
    tree.program("ctest", CTEST.replace("{end}", "***Failed").replace("{status}", "8"))
    (tree.root / "build/host").mkdir(parents=True)
    status, told, errors = tree.run_functions("test_preset host\nsay passed")
    yield status == 1 and "== passed" not in told, "a failed test passes"
    yield errors == ["scripts/tried: tests failed in the host build; what they printed is in build/host/test.log."], \
        "it does not say that tests failed"
    log = (tree.root / "build/host/test.log").read_text()
    yield "second/test ..............   ***Failed" in log, "the log does not hold what the tests printed"


CASES = (unwritable_tree, unwritable_build, install, failed_install, long_test, failed_test)


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("case", choices=[case.__name__ for case in CASES])
    parser.add_argument("--root", type=pathlib.Path, required=True)
    arguments = parser.parse_args()
    case = next(case for case in CASES if case.__name__ == arguments.case)
    with tempfile.TemporaryDirectory() as folder:
        os.chmod(folder, 0o755)
        findings = [told for is_right, told in case(Tree(arguments.root, pathlib.Path(folder))) if not is_right]
    for finding in findings:
        print(finding)
    return 1 if findings else 0


if __name__ == "__main__":
    sys.exit(main())
