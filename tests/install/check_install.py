"""Checks what is installed: the files of a fresh tree, projects of a stranger that are built against it and run, and the
Debian packages."""

import argparse
import gzip
import os
import re
import shutil
import subprocess
import sys


# The version of the contract library, and the number in its soname.
CONTRACT_VERSION = "0.1.0"
CONTRACT_MAJOR = 0
# What its package asks for at least: the first C library for arm64.
OLDEST_C_LIBRARY = "2.17"

# The examples of the development package, and what their output begins with.
EXAMPLES = {
    "one_layer.c": "8 6 4 2\n",
    "pooling_layer.c": " 7  4.0000 | ",
    "softmax_layer.c": "class 0:    31, 0.00095\n",
    "detector_tail.c": "0.900 at ",
    "padded_lines.c": "11 21 --\n",
    "largest_scores.cpp": "element 2: 5.8125\n",
    "arena.c": "tarvu_pool_process: in_addr 88 out_addr 12\n",
}


class Finding(Exception):
    """What is installed is not as it should be."""


def run(command, **options):
    """The standard output; a failing command is a finding."""
    print("+", *command, flush=True)
    result = subprocess.run(command, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True, check=False, **options)
    if result.returncode:
        raise Finding(f"exit code {result.returncode}: {' '.join(command)}\n{result.stdout}")
    return result.stdout


def expect_equal(what, found, wanted):
    print(f"{what}: {found}")
    if found != wanted:
        raise Finding(f"{what}: {found!r}, should be {wanted!r}")


def fresh(path):
    shutil.rmtree(path, ignore_errors=True)
    os.makedirs(path)
    return path


def listing(root):
    """Files below a folder, links with what they point at."""
    found = set()
    for folder, _, names in os.walk(root):
        for name in names:
            path = os.path.join(folder, name)
            link = f" -> {os.readlink(path)}" if os.path.islink(path) else ""
            found.add(os.path.relpath(path, root) + link)
    return found


def wanted_files(arguments, libdir):
    """Files of the runtime, of the contract and of the development part, and of the tools."""
    major = arguments.version.split(".", maxsplit=1)[0]
    runtime = {
        f"{libdir}/libtarvu.so.{arguments.version}",
        f"{libdir}/libtarvu.so.{major} -> libtarvu.so.{arguments.version}",
    }
    contract = {
        f"{libdir}/libtarvu_contract.so.{CONTRACT_VERSION}",
        f"{libdir}/libtarvu_contract.so.{CONTRACT_MAJOR} -> libtarvu_contract.so.{CONTRACT_VERSION}",
    }
    package = {f"{libdir}/cmake/tarvu/tarvu-{name}.cmake" for name in ("config", "config-version", "targets")}
    development = {"include/tarvu.h", f"{libdir}/libtarvu.so -> libtarvu.so.{major}", f"{libdir}/pkgconfig/tarvu.pc",
                   "include/tarvu_contract.h", f"{libdir}/libtarvu_contract.a", f"{libdir}/pkgconfig/tarvu-contract.pc",
                   f"{libdir}/libtarvu_contract.so -> libtarvu_contract.so.{CONTRACT_MAJOR}"}
    return runtime, contract, development | package, {"bin/tarvu-check", "share/man/man1/tarvu-check.1"}


def without_build_type(paths, libdir):
    """The list without the file of CMake's build type, which must be there."""
    typed = {path for path in paths if re.fullmatch(re.escape(libdir) + r"/cmake/tarvu/tarvu-targets-[a-z]+\.cmake", path)}
    if len(typed) != 1:
        raise Finding(f"files of a build type: {sorted(typed)}")
    return paths - typed


def check_stripped(arguments, library):
    sections = run([arguments.readelf, "-SW", library])
    if ".dynsym" not in sections:
        raise Finding(f"{library} has no dynamic symbols")
    if re.search(r"\.(symtab|debug_\w+)\s", sections):
        raise Finding(f"{library} is not stripped")
    print(f"{library}: stripped, {os.path.getsize(library)} bytes")


def check_readme(arguments, library):
    """The size that the README tells is right within a tenth."""
    with open(arguments.readme, encoding="ascii") as file:
        told = re.search(r"takes (\d\.\d) MB for arm64 and (\d\.\d) MB for x86-64", " ".join(file.read().split()))
    if not told:
        raise Finding(f"{arguments.readme} tells no size of the library")
    megabytes = float(told[{"arm64": 1, "amd64": 2}[arguments.architecture]])
    size = os.path.getsize(library)
    if abs(size / 1e6 - megabytes) > megabytes / 10:
        raise Finding(f"{library} has {size} bytes, the README says {megabytes} MB")


def installed_tree(arguments):
    return os.path.join(arguments.scratch, "moved", "tree")


def check_tree(arguments):
    """Installs into a new folder, looks at the files, and moves the tree: nothing in it may know where it was."""
    first = os.path.join(fresh(os.path.join(arguments.scratch, "first")), "tree")
    run([arguments.cmake, "--install", arguments.build, "--prefix", first, "--strip"])
    runtime, contract, development, tools = wanted_files(arguments, arguments.libdir)
    expect_equal("files", without_build_type(listing(first), arguments.libdir), runtime | contract | development | tools)
    library = os.path.join(first, arguments.libdir, f"libtarvu.so.{arguments.version}")
    check_stripped(arguments, library)
    check_readme(arguments, library)
    check_stripped(arguments, os.path.join(first, arguments.libdir, f"libtarvu_contract.so.{CONTRACT_VERSION}"))
    for header in (arguments.header, arguments.contract_header):
        name = os.path.basename(header)
        with open(header, "rb") as ours, open(os.path.join(first, "include", name), "rb") as theirs:
            expect_equal(f"{name} is the repository's", ours.read() == theirs.read(), True)
    for folder, _, names in os.walk(first):
        for name in names:
            with open(os.path.join(folder, name), "rb") as file:
                content = file.read()
            if first.encode() in content or arguments.build.encode() in content:
                raise Finding(f"{name} names a folder of this machine")
    fresh(os.path.dirname(installed_tree(arguments)))
    os.rename(first, installed_tree(arguments))


def cmake_configure(arguments, tree):
    """The command that configures the CMake project, without its build folder."""
    project = os.path.join(arguments.sources, "cmake_project")
    configure = [arguments.cmake, "-S", project, "-G", "Ninja", f"-DCMAKE_C_COMPILER={arguments.compiler}",
                 f"-DCMAKE_PREFIX_PATH={tree}"]
    if arguments.emulator:
        configure += ["-DCMAKE_SYSTEM_NAME=Linux", f"-DCMAKE_SYSTEM_PROCESSOR={arguments.system}",
                      f"-DCMAKE_CROSSCOMPILING_EMULATOR={';'.join(arguments.emulator.split())}"]
    return configure


def build_cmake_project(arguments, tree, libdir, build):
    """Builds the CMake project in `build` and runs its test."""
    run([*cmake_configure(arguments, tree), "-B", fresh(build)])
    run([arguments.cmake, "--build", build])
    run([os.path.join(os.path.dirname(arguments.cmake), "ctest"), "--output-on-failure", "--no-tests=error"], cwd=build)
    targets = os.path.join(tree, libdir, "cmake/tarvu")
    with open(os.path.join(build, "CMakeCache.txt"), encoding="utf-8") as file:
        expect_equal("the package that was found", f"tarvu_DIR:PATH={targets}\n" in file.readlines(), True)


def check_cmake_project(arguments):
    build = os.path.join(arguments.scratch, "cmake_project_build")
    build_cmake_project(arguments, installed_tree(arguments), arguments.libdir, build)

    # Another interface is not the one that was asked for.
    configure = cmake_configure(arguments, installed_tree(arguments))
    for version in ("3.0", "1.0", "2.9999"):
        try:
            run([*configure, f"-DWANTED_VERSION={version}", "-B", fresh(build + "_of_another_version")])
        except Finding as finding:
            if "compatible with requested version" not in re.sub(r"\s+", " ", str(finding)):
                raise
        else:
            raise Finding(f"the package passes as version {version}")


def build_make_project(arguments, tree, libdir, build):
    """Builds the project of the Makefile in `build` and runs its program."""
    shutil.rmtree(build, ignore_errors=True)
    shutil.copytree(os.path.join(arguments.sources, "make_project"), build)
    library_folder = os.path.join(tree, libdir)
    environment = dict(os.environ, PKG_CONFIG=arguments.pkg_config, PKG_CONFIG_LIBDIR=f"{library_folder}/pkgconfig",
                       CC=arguments.compiler, LD_LIBRARY_PATH=library_folder)
    version = run([arguments.pkg_config, "--modversion", "tarvu"], env=environment)
    expect_equal("version", version.strip(), arguments.version)
    version = run([arguments.pkg_config, "--modversion", "tarvu-contract"], env=environment)
    expect_equal("version", version.strip(), CONTRACT_VERSION)
    run([arguments.make], cwd=build, env=environment)
    emulator = arguments.emulator.split()
    output = run([*emulator, os.path.join(build, "stranger")], env=environment)
    expect_equal("output", output, "version 02.19.2406110: 5 -5 3 -4\n")
    output = run([*emulator, os.path.join(build, "planner")], env=environment)
    expect_equal("output", output, "TARVU-REVERSE-01: Reverse moves elements of 8 or 16 bits; the bits of in_fmt add up to 0.\n")


def check_make_project(arguments):
    build_make_project(arguments, installed_tree(arguments), arguments.libdir,
                       os.path.join(arguments.scratch, "make_project_build"))


def wanted_documents(name):
    """What a package has below share, but for the pages of the reference."""
    documents = {f"share/doc/{name}/{file}" for file in ("changelog.gz", "copyright")}
    if name == "libtarvu-dev":
        documents |= {f"share/doc/{name}/examples/{source}" for source in EXAMPLES} | {f"share/doc-base/{name}.reference"}
    return documents


def check_documents(arguments, name, usr):
    """The licence says that there is none; the development package has the reference, and examples that can be built."""
    folder = os.path.join(usr, "share/doc", name)
    with open(os.path.join(folder, "copyright"), encoding="ascii") as file:
        text = " ".join(file.read().split())
    if "No licence has been granted" not in text or "ask its owner" not in text:
        raise Finding(f"{name}: its copyright file does not say that there is no licence, and whom to ask")
    with gzip.open(os.path.join(folder, "changelog.gz"), "rt", encoding="ascii") as file:
        expect_equal("changes of", file.readline().split(";")[0], f"libtarvu ({arguments.version}) unstable")
    if name != "libtarvu-dev":
        return
    pages = set(os.listdir(os.path.join(folder, "html")))
    missing = {"index.html", "formats.html", "layouts.html", "group__pooling.html", "group__softmax.html"} - pages
    if missing:
        raise Finding(f"the reference lacks {sorted(missing)}")
    for page in pages:
        path = os.path.join(folder, "html", page)
        if os.path.isfile(path):
            with open(path, "rb") as file:
                if os.path.dirname(os.path.dirname(arguments.readme)).encode() in file.read():
                    raise Finding(f"{page} names a folder of this machine")


def build_examples(arguments, tree, libdir, build):
    """Builds the packed examples against the packed library and runs them."""
    fresh(build)
    examples = os.path.join(tree, "share/doc/libtarvu-dev/examples")
    for source, start in EXAMPLES.items():
        compiler = arguments.compiler if source.endswith(".c") else arguments.cxx_compiler
        program = os.path.join(build, source.split(".", maxsplit=1)[0])
        run([compiler, os.path.join(examples, source), "-I", os.path.join(tree, "include"), "-L", os.path.join(tree, libdir),
             "-ltarvu", "-ltarvu_contract", "-o", program])
        output = run([*arguments.emulator.split(), program], env=dict(os.environ, LD_LIBRARY_PATH=os.path.join(tree, libdir)))
        expect_equal(source, output[:len(start)], start)


def fields_of(arguments, package):
    return dict(re.findall(r"^([A-Z][\w-]*): (.*)$", run([arguments.dpkg_deb, "-f", package]), flags=re.MULTILINE))


def version_key(version):
    return [int(part) for part in version.split(".")]


def youngest_c_library(arguments, library):
    """The version of the C library that the youngest imported function has."""
    versions = re.findall(r"\bGLIBC_([\d.]+)", run([arguments.readelf, "-VW", library]))
    return max(versions, key=version_key)


def packages_folder(arguments):
    return os.path.join(arguments.scratch, "packages")


def check_machine(arguments, file):
    machine = {"amd64": "Advanced Micro Devices X86-64", "arm64": "AArch64"}[arguments.architecture]
    if f"Machine:{machine}" not in re.sub(r"Machine:\s+", "Machine:", run([arguments.readelf, "-hW", file])):
        raise Finding(f"{file} is not for {arguments.architecture}")


def check_control(arguments, package, library, major, exported):
    """What the package manager has to know of a package with a shared library."""
    name = os.path.basename(package).split("_", maxsplit=1)[0]
    control = os.path.join(packages_folder(arguments), f"control_of_{name}")
    run([arguments.dpkg_deb, "-e", package, control])
    with open(os.path.join(control, "shlibs"), encoding="ascii") as file:
        expect_equal("shlibs", file.read().strip(), f"{library} {major} {name} (>= {arguments.version})")
    with open(os.path.join(control, "triggers"), encoding="ascii") as file:
        expect_equal("triggers", file.read(), "activate-noawait ldconfig\n")
    with open(os.path.join(control, "symbols"), encoding="ascii") as file:
        symbols = file.read().splitlines()
    expect_equal("symbols", "\n".join(symbols), "\n".join(
        [f"{library}.so.{major} {name} (>= {arguments.version})", "* Build-Depends-Package: libtarvu-dev",
         *(f" {symbol}@Base {arguments.version}" for symbol in sorted(exported))]))
    expect_equal("control files", sorted(os.listdir(control)), ["control", "md5sums", "shlibs", "symbols", "triggers"])


def check_packages(arguments):
    folder = fresh(packages_folder(arguments))
    run([arguments.cpack, "--config", os.path.join(arguments.build, "CPackConfig.cmake"), "-B", folder])
    major = arguments.version.split(".", maxsplit=1)[0]
    runtime_name, contract_name = f"libtarvu{major}", f"libtarvu-contract{CONTRACT_MAJOR}"
    names = {runtime_name, contract_name, "libtarvu-dev", "tarvu-tools"}
    files = {name: f"{name}_{arguments.version}_{arguments.architecture}.deb" for name in names}
    expect_equal("packages", {name for name in os.listdir(folder) if name.endswith(".deb")}, set(files.values()))

    libdir = f"lib/{arguments.triplet}"
    runtime, contract, development, _ = wanted_files(arguments, libdir)
    binaries = {runtime_name: f"{libdir}/libtarvu.so.{arguments.version}",
                contract_name: f"{libdir}/libtarvu_contract.so.{CONTRACT_VERSION}", "tarvu-tools": "bin/tarvu-check"}
    contents = {runtime_name: runtime, contract_name: contract,
                "tarvu-tools": {"bin/tarvu-check", "share/man/man1/tarvu-check.1.gz"}}
    for name, file in files.items():
        package = os.path.join(folder, file)
        content = os.path.join(folder, name)
        run([arguments.dpkg_deb, "-x", package, content])
        held = {path for path in listing(os.path.join(content, "usr")) if not path.startswith(f"share/doc/{name}/html/")}
        expect_equal("outside of /usr", os.listdir(content), ["usr"])
        check_documents(arguments, name, os.path.join(content, "usr"))
        if name == "libtarvu-dev":
            expect_equal(name, without_build_type(held, libdir), development | wanted_documents(name))
            needed = ", ".join(f"{library} (= {arguments.version})" for library in (runtime_name, contract_name))
        else:
            expect_equal(name, held, contents[name] | wanted_documents(name))
            library = os.path.join(content, "usr", binaries[name])
            check_stripped(arguments, library)
            check_machine(arguments, library)
            c_library = youngest_c_library(arguments, library)
            if name == contract_name:
                c_library = max(c_library, OLDEST_C_LIBRARY, key=version_key)
            needed = f"libc6 (>= {c_library})"
        fields = fields_of(arguments, package)
        wanted = {"Package": name, "Version": arguments.version, "Architecture": arguments.architecture, "Depends": needed}
        expect_equal("fields", {field: fields.get(field) for field in wanted}, wanted)
        for line in run([arguments.dpkg_deb, "-c", package]).splitlines():
            if line.split()[1] != "root/root":
                raise Finding(f"not root's: {line}")

    with open(arguments.names, encoding="ascii") as file:
        check_control(arguments, os.path.join(folder, files[runtime_name]), "libtarvu", major,
                      re.findall(r"^\+ (\w+)$", file.read(), flags=re.MULTILINE))
    with open(arguments.contract_header, encoding="ascii") as file:
        check_control(arguments, os.path.join(folder, files[contract_name]), "libtarvu_contract", CONTRACT_MAJOR,
                      re.findall(r"^TARVU_CONTRACT_API [^;]*?\b(\w+)\(", file.read(), flags=re.MULTILINE))
    # All packages in one root make a whole.
    tree = os.path.join(folder, "root", "usr")
    for name in names:
        shutil.copytree(os.path.join(folder, name), os.path.join(folder, "root"), symlinks=True, dirs_exist_ok=True)
    build_make_project(arguments, tree, libdir, os.path.join(folder, "make_project_build"))
    build_cmake_project(arguments, tree, libdir, os.path.join(folder, "cmake_project_build"))
    build_examples(arguments, tree, libdir, os.path.join(folder, "examples_build"))


def check_lintian(arguments):
    """Debian's own checks of packages find nothing but what is allowed with a reason."""
    allowed = {}
    with open(os.path.join(arguments.sources, "lintian_allowed.txt"), encoding="ascii") as file:
        for line in file:
            if not line.startswith("#"):
                tag, reason = line.split(": ", maxsplit=1)
                allowed[tag] = reason.strip()
    folder = packages_folder(arguments)
    packages = sorted(os.path.join(folder, name) for name in os.listdir(folder) if name.endswith(".deb"))
    expect_equal("packages are there", bool(packages), True)
    output = run([arguments.lintian, "--allow-root", "--no-cfg", "--fail-on", "none", "--display-info", "--tag-display-limit",
                  "0", *packages])
    found = re.findall(r"^[A-Z]: \S+: (\S+)", output, flags=re.MULTILINE)
    print(output)
    if set(found) - set(allowed):
        raise Finding(f"lintian finds {sorted(set(found) - set(allowed))}")
    expect_equal("tags that are allowed, but do not come", sorted(set(allowed) - set(found)), [])


CHECKS = {"lintian": check_lintian, "tree": check_tree, "cmake_project": check_cmake_project, "make_project": check_make_project,
          "packages": check_packages}


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("check", choices=sorted(CHECKS))
    for option in ("cmake", "cpack", "make", "pkg-config", "dpkg-deb", "readelf", "compiler", "cxx-compiler", "lintian",
                   "names", "build", "sources", "header", "contract-header", "readme", "scratch", "libdir", "version", "system", "architecture", "triplet"):
        parser.add_argument("--" + option, required=True)
    parser.add_argument("--emulator", default="", help="command that runs the programs, if this machine cannot")
    arguments = parser.parse_args()
    try:
        CHECKS[arguments.check](arguments)
    except Finding as finding:
        print(finding)
        return 1
    return 0


if __name__ == "__main__":
    sys.exit(main())
