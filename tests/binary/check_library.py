"""Checks one property of the shared library or the header; prints what it found and fails if it is not as it should be."""

import argparse
import re
import subprocess
import sys


class Finding(Exception):
    """The property does not hold."""


def run(*command):
    return subprocess.run(command, check=True, capture_output=True, text=True).stdout


def read_lines(path):
    with open(path, encoding="ascii") as file:
        lines = [line.strip() for line in file]
    return [line for line in lines if line and not line.startswith("#")]


def read_names(path):
    """The names that are switched on, and those that are not."""
    lines = read_lines(path)
    on = [line[2:] for line in lines if line.startswith("+ ")]
    off = [line[2:] for line in lines if line.startswith("- ")]
    if len(on) + len(off) != len(lines) or len(set(on + off)) != len(lines):
        raise Finding(f"{path}: a line is malformed or a name stands twice")
    if not on:
        raise Finding(f"{path}: no name is switched on")
    return set(on), set(off)


def expect_equal(what, found, wanted):
    if found == wanted:
        print(f"{what}: {len(found)} as listed")
        return
    raise Finding(f"{what}: missing {sorted(wanted - found)}, not listed {sorted(found - wanted)}")


def dynamic_symbols(arguments, *options):
    """Pairs of type letter and name without version."""
    lines = run(arguments.nm, "-D", *options, arguments.library).splitlines()
    return [(line.split()[-2], line.split()[-1].split("@")[0]) for line in lines]


def dynamic_entries(arguments):
    lines = run(arguments.readelf, "-dW", arguments.library).splitlines()
    return [line.split(None, 2)[1:] for line in lines if line.lstrip().startswith("0x")]


def check_header(arguments):
    with open(arguments.header, encoding="ascii") as file:
        text = re.sub(r"//[^\n]*|/\*.*?\*/", "", file.read(), flags=re.DOTALL)
    declared = re.findall(r"\bTARVU_API\b[^;{]*?\b(\w+)\s*\([^;{]*\)\s*;", text)
    if len(declared) != len(set(declared)):
        raise Finding("the header declares a function twice")
    on, off = read_names(arguments.names)
    expect_equal("functions declared", set(declared), on | off)


def check_exports(arguments):
    on, _ = read_names(arguments.names)
    symbols = dynamic_symbols(arguments, "--defined-only")
    expect_equal("names exported", {name for _, name in symbols}, on)
    no_function = [name for letter, name in symbols if letter != "T"]
    if no_function:
        raise Finding(f"exported, but no function: {no_function}")


def check_needed(arguments):
    values = [entry[1] for entry in dynamic_entries(arguments) if entry[0] == "(NEEDED)"]
    needed = {re.search(r"\[(.*)\]", value).group(1) for value in values}
    print("needed:", sorted(needed))
    if "libc.so.6" not in needed or needed - {"libc.so.6", "libm.so.6"}:
        raise Finding(f"needs more than the C and mathematics libraries: {sorted(needed)}")


def check_imports(arguments):
    allowed = {line.split()[-1] for line in read_lines(arguments.imports)}
    imported = {name for _, name in dynamic_symbols(arguments, "--undefined-only")}
    print("imported:", sorted(imported))
    if imported - allowed:
        raise Finding(f"takes what the library may not take: {sorted(imported - allowed)}")


HEAP_FUNCTIONS = r"(.*alloc.*|.*memalign|free|cfree|strn?dup|v?asprintf|getline|_Zn[wa].*|_Zd[la].*|mmap(64)?|s?brk)"


def check_heap(arguments):
    """No name of an allocator, but for those of Gather ND."""
    imported = {name for _, name in dynamic_symbols(arguments, "--undefined-only")}
    heap = {name for name in imported if re.fullmatch(HEAP_FUNCTIONS, name)}
    on, _ = read_names(arguments.names)
    lines = [line.split() for line in read_lines(arguments.imports)]
    allowed = {words[1] for words in lines if words[0] == "heap"} if "tarvu_gathernd_process" in on else set()
    print("heap functions:", sorted(heap), "allowed:", sorted(allowed))
    if heap - allowed:
        raise Finding(f"takes memory from the heap: {sorted(heap - allowed)}")


def check_heap_objects(arguments):
    """Allocators are called from the object of Gather ND alone, and files opened from that of write_file() alone."""
    calling = {}
    defining = {}
    current = None
    for line in run(arguments.nm, arguments.archive).splitlines():
        words = line.split()
        if line.endswith(".o:"):
            current = line[:-1]
        elif words[:1] == ["U"]:
            calling.setdefault(words[1], set()).add(current)
        elif len(words) == 3 and words[1] == "T":
            defining[words[2]] = current
    findings = []
    rules = [(HEAP_FUNCTIONS, "tarvu_gathernd_process"), (r"fopen(64)?|v?fprintf|fputs|fwrite|fclose", "write_file")]
    for pattern, function in rules:
        callers = {name: objects for name, objects in calling.items() if re.fullmatch(pattern, name)}
        print(f"{function} is in {defining.get(function)}; calls: {callers}")
        if not callers:
            findings.append(f"found no call that {function} must make")
        findings += [f"{name} is called from {sorted(objects)}" for name, objects in callers.items()
                     if objects != {defining.get(function)}]
    if findings:
        raise Finding("; ".join(findings))


def check_soname(arguments):
    values = [entry[1] for entry in dynamic_entries(arguments) if entry[0] == "(SONAME)"]
    print("soname:", values)
    if [re.search(r"\[(.*)\]", value).group(1) for value in values] != ["libtarvu.so.2"]:
        raise Finding("the soname is not libtarvu.so.2")


def check_writable_data(arguments):
    """The library's own objects have no writable section, and all that is writable in the result is the compiler's start-up
    files': the handle of the library and the flag of its destructors."""
    own = []
    objects = 0
    for line in run(arguments.readelf, "-SW", arguments.archive).splitlines():
        objects += line.startswith("File:")
        match = re.match(r"\s*\[ *\d+\] (\S+) +\S+ +[0-9a-f]+ [0-9a-f]+ ([0-9a-f]+) [0-9a-f]+ +([A-Za-z]*) ", line)
        if match and "W" in match.group(3) and int(match.group(2), 16) and not match.group(1).startswith(".data.rel.ro"):
            own.append(match.group(1))
    if not objects:
        raise Finding("the archive has no objects")
    if own:
        raise Finding(f"the library's own objects have writable sections: {own}")

    sections = {}
    for line in run(arguments.readelf, "-SW", arguments.library).splitlines():
        match = re.match(r"\s*\[ *(\d+)\] (\.[td]?(?:data|bss)) ", line)
        if match:
            sections[match.group(1)] = match.group(2)
    allowed = r"\$[dx](\.\d+)?|__dso_handle|completed\.\d+|__TMC_END__|_edata|_end|__end__|_bss_end__|__bss_end__|__bss_start(__)?|__data_start"
    found = []
    for line in run(arguments.readelf, "-sW", arguments.library).splitlines():
        words = line.split()
        if len(words) >= 8 and words[6] in sections and words[3] != "SECTION":
            found.append(words[7])
    print(f"{objects} objects without a writable section; start-up symbols in {sorted(sections.values())}: {sorted(found)}")
    others = [name for name in found if not re.fullmatch(allowed, name)]
    if others:
        raise Finding(f"writable data: {others}")


def check_segments(arguments):
    """No executable stack, no segment both writable and executable, relocated data read-only before the first call."""
    segments = []
    for line in run(arguments.readelf, "-lW", arguments.library).splitlines():
        match = re.match(r"\s+(LOAD|GNU_STACK|GNU_RELRO)\s+(?:0x[0-9a-f]+\s+){5}([RWE ]{3})", line)
        if match:
            segments.append((match.group(1), match.group(2).replace(" ", "")))
    print("segments:", segments)
    names = [name for name, _ in segments]
    findings = []
    if names.count("GNU_STACK") != 1 or names.count("GNU_RELRO") != 1 or "LOAD" not in names:
        findings.append("no stack or read-only-after-relocation segment")
    findings += [f"{name} is executable and writable" for name, flags in segments if "W" in flags and "E" in flags]
    entries = dynamic_entries(arguments)
    if not any(entry[0] == "(BIND_NOW)" or entry[0] == "(FLAGS)" and "BIND_NOW" in entry[1] for entry in entries):
        findings.append("symbols are bound on the first call")
    if any(entry[0] == "(TEXTREL)" for entry in entries):
        findings.append("relocations in code")
    if findings:
        raise Finding("; ".join(findings))


def check_own_calls(arguments):
    """No relocation names a function of the library itself: an application's function of that name would be taken."""
    own = {name for _, name in dynamic_symbols(arguments, "--defined-only")}
    lines = run(arguments.readelf, "-rW", arguments.library).splitlines()
    named = {word.split("@")[0] for line in lines if " R_" in line for word in line.split()[4:5]}
    print(f"{len(named)} names relocated")
    if not named:
        raise Finding("found no relocation that names a symbol")
    if named & own:
        raise Finding(f"bound at load time: {sorted(named & own)}")


def read_instructions(arguments):
    """Instructions of each function by its demangled name, each with its operands and without. Parts that the compiler split
    off count for their function."""
    functions = {}
    current = None
    for line in run(arguments.objdump, "-d", "-C", "--no-show-raw-insn", arguments.library).splitlines():
        match = re.match(r"[0-9a-f]+ <(.*)>:$", line)
        if match:
            name = re.sub(r" \[clone [^\]]*\]|\.(constprop|part|isra|cold)(\.\d+)*", "", match.group(1))
            current = functions.setdefault(name, set())
            continue
        words = line.split()
        if current is not None and len(words) > 1 and re.fullmatch(r"[0-9a-f]+:", words[0]):
            current.update((words[1], " ".join(words[1:])))
    return functions


def check_instructions(arguments):
    functions = read_instructions(arguments)
    findings = []
    rules = read_lines(arguments.instructions)
    for rule in rules:
        kind, pattern, wanted = rule.split(None, 2)
        matching = {name for name in functions if re.fullmatch(pattern, name)}
        having = {name for name, held in functions.items() if any(re.fullmatch(wanted, one) for one in held)}
        if kind == "has" and not matching & having:
            findings.append(f"no {wanted} in {pattern} ({len(matching)} such functions)")
        elif kind == "only" and having - matching:
            findings.append(f"{wanted} in {sorted(having - matching)}")
        elif kind not in ("has", "only"):
            findings.append(f"malformed rule: {rule}")
    print(f"{len(functions)} functions, {len(rules)} rules")
    if findings:
        raise Finding("; ".join(findings))


CHECKS = {name[len("check_"):]: check for name, check in list(globals().items()) if name.startswith("check_")}


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("check", choices=sorted(CHECKS))
    for option in ("names", "header", "library", "archive", "imports", "instructions", "nm", "readelf", "objdump"):
        parser.add_argument("--" + option)
    parser.add_argument("--expect-finding", action="store_true", help="succeed only if the property does not hold")
    arguments = parser.parse_args()
    try:
        CHECKS[arguments.check](arguments)
    except Finding as finding:
        print(finding)
        return 0 if arguments.expect_finding else 1
    if arguments.expect_finding:
        print("the check found nothing")
        return 1
    return 0


if __name__ == "__main__":
    sys.exit(main())
