"""Every program that a script, a test, a CMake file or a Python tool calls is in the lists of what the scripts install, or in
every Debian; and every program of those lists is called."""

import argparse
import ast
import os
import re
import sys

# What every Debian has: packages that are marked as essential or that apt needs.
IN_EVERY_DEBIAN = set("""
    apt-get awk basename cat chmod chroot cmp cp cut date dirname dpkg echo env expr find getent grep gzip head id install kill ln ls
    mkdir mktemp mount mv nproc printf ps pwd readlink rm sed seq sh sleep sort stat su tail tar tee test touch tr true umount uname
    uniq useradd wc xargs
    """.split())
SHELL_WORDS = set("""
    . : [ break case cd command continue do done elif else esac eval exec exit export fi for if in local read return set shift then
    trap ulimit umask unset wait while until { } !
    """.split())
# Programs that are asked for by name on this machine but are no condition: sudo where the user is not root.
NO_CONDITION = {"sudo"}

# What a line of CMake calls without naming it.
BEHIND_CMAKE = (
    (r'"generator": "Ninja"', "ninja"),
    (r"\bCPACK_DEBIAN_PACKAGE_(SHLIBDEPS|GENERATE_SHLIBS)\b", "file"),  # CPack asks for it if either is on
    (r"\binclude\(CPack\)", "cpack"),
    (r"\binclude\(CTest\)", "ctest"),
    (r"\bfind_package\(Python3\b", "python3"),
    (r"\$\{CMAKE_COMMAND\}", "cmake"),
)
CMAKE_TOOLS = ("AR", "NM", "OBJCOPY", "OBJDUMP", "READELF", "STRIP")


def expand(word, values):
    """The words that a word of CMake stands for, of which `values` tells the variables; none if it cannot be told."""
    words = [word]
    while any("${" in one for one in words):
        expanded = []
        for one in words:
            variable = re.search(r"\$\{([\w-]+)\}", one)
            if not variable or variable[1] not in values:
                return []
            expanded += [one.replace(variable[0], value) for value in values[variable[1]]]
        words = expanded
    return words


def in_cmake(text, targets):
    """Lists of names of which one must be there."""
    text = re.sub(r"#[^\n]*", "", text)
    for pattern, program in BEHIND_CMAKE:
        if re.search(pattern, text):
            yield [program]
    for tool in CMAKE_TOOLS:
        if f"${{CMAKE_{tool}}}" in text:
            yield [tool.lower()]
    values = {name: words.split() for name, words in re.findall(r"foreach\((\w+) IN ITEMS ([^)]*)\)", text)}
    values |= {name: ["", word] for name, word in re.findall(r"set\((\w*prefix) ([\w-]+)\)", text)}
    for arguments in re.findall(r"find_program\(\S+\s+([^)]*)\)", text):
        words = re.sub(r"\b(HINTS|PATHS|DOC)\b.*", "", arguments, flags=re.DOTALL).replace("REQUIRED", "").split()
        if words and words[0] == "NAMES":
            names = [name for word in words[1:] for name in expand(word, values)]
            yield names or [f"(a program that cannot be told: {arguments})"]
        else:
            for word in words:
                for name in expand(word, values) or [f"(a program that cannot be told: {word})"]:
                    yield [name]
    for word in re.findall(r"\bCOMMAND\s+([^\s()]+)", text):
        if re.fullmatch(r"[a-z][\w.+-]*", word) and word not in targets:
            yield [word]
    for word in re.findall(r"CMAKE_(?:C|CXX)_COMPILER (\w[\w.+-]*)\)", text):
        yield [word]
    for word in re.findall(r"CMAKE_CROSSCOMPILING_EMULATOR (\w[\w.+-]*)", text):
        yield [word]
    for word in re.findall(r'"CMAKE_(?:C|CXX)_COMPILER": "([^"$]+)"', text):
        yield [word]
    for command in re.findall(r'set\(TARVU_CLANG ([\w-]+) CACHE|"TARVU_CLANG": "([\w-]+)"', text):
        yield ["".join(command).replace("clang", "clang++")]


def in_shell(text):
    functions = set(re.findall(r"^(\w+)\(\) *\{", text, re.MULTILINE))
    text = re.sub(r"(?m)(^|\s)#.*$", "", text)  # first, for the apostrophes in comments
    text = re.sub(r"'\n?[^']*'", lambda quoted: "Q" if "exec " not in quoted[0] else "\n" + quoted[0][1:-1] + "\n", text)
    text = text.replace("\\\n", " ")
    yield from re.findall(r"\$\(([a-z][\w.+-]*)", text)
    text = text.replace("$(", "\n")
    # Lists of packages, words of a here document and patterns of a case are no commands.
    text = re.sub(r'(?s)^\w+="\n.*?\n"$', "", text, flags=re.MULTILINE)
    text = re.sub(r'"(?:[^"\\]|\\.)*"', "Q", text)
    for line in re.split(r"\n|;|&&|\|\||\||\bthen\b|\bdo\b|\belse\b|\{ |\( |&(?!\d)", text):
        words = line.split()
        while words and (words[0] in ("if", "while", "until", "elif", "!", "exec", "command", "env", "{", "$as_root", "-v")
                         or re.match(r"^\w+=", words[0])):
            words = words[1:]
        if words and words[0] == "xargs":
            yield "xargs"
            words = [word for word in words[1:] if not re.match(r"^-|^Q$|^\d+$|^[A-Z]+$", word)]
        if words and re.fullmatch(r"[a-z][\w.+-]*", words[0]) and words[0] not in functions | {"for", "case"} \
                and not (len(words) > 1 and words[1] == ")") and not line.rstrip().endswith(")"):
            yield words[0]


class Calls(ast.NodeVisitor):
    """Programs that a Python file starts by a name of its own, be it in the call, in a list that goes into it, or in a function of
    the file that starts what it is given."""

    def __init__(self, tree):
        self.values = {}
        self.starters = set()
        self.found = []
        for node in ast.walk(tree):
            if isinstance(node, ast.Assign):
                for target in node.targets:
                    if isinstance(target, ast.Name):
                        self.values.setdefault(target.id, []).append(node.value)
        # Functions that look for the program of which they are given the name, and what they put behind it.
        self.seekers = {}
        for function in ast.walk(tree):
            if isinstance(function, ast.FunctionDef) and function.args.args:
                for node in ast.walk(function):
                    if isinstance(node, ast.Call) and isinstance(node.func, ast.Attribute) and node.func.attr == "which":
                        name = node.args[0]
                        end = ""
                        if isinstance(name, ast.BinOp) and isinstance(name.right, ast.Constant):
                            name, end = name.left, name.right.value
                        if isinstance(name, ast.Name) and name.id == function.args.args[0].arg:
                            self.seekers.setdefault(function.name, []).append(end)
        functions = [node for node in ast.walk(tree) if isinstance(node, ast.FunctionDef)]
        while True:
            more = {function.name for function in functions if any(self.starts(node) for node in ast.walk(function))}
            if more <= self.starters:
                break
            self.starters |= more
        self.visit(tree)

    def starts(self, node):
        if not isinstance(node, ast.Call):
            return False
        callee = node.func
        if isinstance(callee, ast.Attribute):
            return isinstance(callee.value, ast.Name) and callee.value.id == "subprocess" or callee.attr in self.starters
        return isinstance(callee, ast.Name) and callee.id in self.starters

    def names(self, value, depth=0):
        if isinstance(value, (ast.List, ast.Tuple)) and value.elts:
            first = value.elts[0]
            if isinstance(first, ast.Constant) and isinstance(first.value, str):
                yield first.value
            else:
                yield from self.names(first.value if isinstance(first, ast.Starred) else first, depth)
        elif isinstance(value, ast.Name) and depth < 4:
            for assigned in self.values.get(value.id, ()):
                yield from self.names(assigned, depth + 1)
        elif isinstance(value, ast.BinOp):
            yield from self.names(value.left, depth)

    def visit_Call(self, node):
        if self.starts(node):
            for value in node.args[:1]:
                self.found += [[name] for name in self.names(value)]
        if isinstance(node.func, ast.Attribute) and node.func.attr == "which" and isinstance(node.args[0], ast.Constant):
            self.found.append([node.args[0].value])
        if isinstance(node.func, ast.Name) and node.func.id in self.seekers and isinstance(node.args[0], ast.Constant):
            self.found.append([node.args[0].value + end for end in self.seekers[node.func.id]])
        self.generic_visit(node)


def in_python(text):
    for names in Calls(ast.parse(text)).found:
        if all(re.fullmatch(r"[a-z][\w.+-]*", name) for name in names):
            yield names


def files_of(root):
    for folder, folders, names in os.walk(root):
        folders[:] = [name for name in folders if name != "build" and not name.startswith(".")]
        for name in names:
            path = os.path.join(folder, name)
            if os.path.isfile(path):
                yield os.path.relpath(path, root), path


def called(root):
    """What each file calls: (file, alternatives)."""
    texts = {}
    for name, path in files_of(root):
        if name.endswith((".cmake", "CMakeLists.txt", ".py")) or name == "CMakePresets.json" or name.startswith("scripts/"):
            with open(path, encoding="utf-8") as file:
                texts[name] = file.read()
    cmake = {name: text for name, text in texts.items() if name.endswith((".cmake", ".txt", ".json"))}
    targets = {target for text in cmake.values() for target in re.findall(r"add_(?:executable|library)\(([\w-]+)", text)}
    functions = set(re.findall(r"^(\w+)\(\) *\{", texts.get("scripts/common.sh", ""), re.MULTILINE))
    for name, text in sorted(texts.items()):
        if name in cmake:
            for alternatives in in_cmake(text, targets):
                yield name, alternatives
        elif name.endswith(".py") or text.startswith("#!/usr/bin/env python3"):
            for names in in_python(text):
                yield name, names
        else:
            for program in in_shell(text):
                if program not in functions | SHELL_WORDS:
                    yield name, [program]


def listed(root):
    """Programs of the lists in common.sh, and of what a script adds to them."""
    programs = set()
    for name, path in files_of(os.path.join(root, "scripts")):
        with open(path, encoding="utf-8") as file:
            text = re.sub(r"(?m)^\s*#[^!].*$", "", file.read().replace("\\\n", " "))
        if text.startswith("#!/usr/bin/env python3"):
            continue
        for block in re.findall(r'^\w+_tools="\n(.*?)\n"$', text, re.MULTILINE | re.DOTALL):
            programs |= set(block.split()[::2])
        for line in re.findall(r"install_missing ([^;\n(]+)", text):
            words = [word for word in line.split() if not word.startswith("$")]
            programs |= set(words[::2])
    return {program for program in programs if not program.startswith("/")}


def findings_of(root):
    calls = list(called(root))
    known = listed(root)
    findings = [f"{name} calls {' or '.join(names)}, which nothing installs"
                for name, names in calls if not set(names) & (known | IN_EVERY_DEBIAN | NO_CONDITION)]
    used = {program for _, names in calls for program in names}
    findings += [f"{program} is installed, but nothing calls it" for program in sorted(known - used)]
    return sorted(set(findings))


def check_that_each_is_missed(root):
    """Without any one program of the lists there must be a finding: so a list can lose nothing."""
    calls = list(called(root))
    known = listed(root)
    kept = []
    for program in sorted(known):
        rest = (known - {program}) | IN_EVERY_DEBIAN | NO_CONDITION
        if all(set(names) & rest for _, names in calls):
            kept.append(f"nothing is found when {program} is no longer installed")
    return kept


def check_samples():
    """Each kind of file with a program that nothing installs."""
    samples = {
        "CMake": [names for names in in_cmake('find_program(A frobnicate)\nadd_test(NAME b COMMAND frobnicate c)', set())],
        "a loop of CMake": [names for names in in_cmake("foreach(t IN ITEMS cmp frobnicate)\nfind_program(A_${t} ${t})", set())],
        "the shell": [[name] for name in in_shell("set -eu\nif true; then\n  frobnicate --all | sort\nfi\n")],
        "the shell's substitution": [[name] for name in in_shell("a=$(frobnicate b)\n")],
        "Python": list(in_python("import subprocess\nsubprocess.run(['frobnicate', 'a'], check=True)\n")),
        "a function of Python": list(in_python(
            "import subprocess\ndef run(command):\n  return subprocess.run(command)\nLINE = ['frobnicate']\nrun([*LINE, 'a'])\n")),
        "a search of Python": list(in_python("import shutil\ndef find(name):\n  return shutil.which(name)\nfind('frobnicate')\n")),
    }
    return [f"a call in {kind} is not seen" for kind, found in samples.items() if ["frobnicate"] not in found]


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--root", required=True)
    root = parser.parse_args().root
    findings = findings_of(root) + check_that_each_is_missed(root) + check_samples()
    for finding in findings:
        print(finding)
    return 1 if findings else 0


if __name__ == "__main__":
    sys.exit(main())
