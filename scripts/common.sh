# shellcheck shell=sh disable=SC2034,SC2154
# What the scripts share. A script sets `root` and reads this file; it then stands in `root`.

cd "$root" || exit
script=scripts/$(basename "$0")
jobs=$(nproc)
emulator="qemu-aarch64 -cpu cortex-a76 -L /usr/aarch64-linux-gnu"

# Command or file, and the Debian package that holds it.
build_tools="
  cmake cmake
  ninja ninja-build
  g++ g++
  ccache ccache
  aarch64-linux-gnu-g++ g++-aarch64-linux-gnu
  /usr/aarch64-linux-gnu/include/stdio.h libc6-dev-arm64-cross
  qemu-aarch64 qemu-user
"
example_tools="
  /usr/include/stb/stb_image.h libstb-dev
  /usr/include/CLI/CLI.hpp libcli11-dev
"
test_tools="
  python3 python3
  /usr/src/googletest/CMakeLists.txt googletest
  make make
  pkg-config pkg-config
  dpkg-deb dpkg
  abidiff abigail-tools
  doxygen doxygen
"

say() {
  printf '== %s\n' "$*"
}

fail() {
  printf '%s: %s\n' "$script" "$*" >&2
  exit 1
}

is_there() {
  case $1 in
    /*) [ -e "$1" ] ;;
    *) command -v "$1" >/dev/null 2>&1 ;;
  esac
}

# missing_of <pairs>: the packages whose command or file is not there.
missing_of() {
  while [ $# -gt 0 ]; do
    is_there "$1" || printf '%s ' "$2"
    shift 2
  done
}

# install_missing <pairs>
install_missing() {
  missing=$(missing_of "$@")
  if [ -n "$missing" ]; then
    command -v apt-get >/dev/null 2>&1 || fail "these packages are missing and there is no apt-get to install them: $missing"
    as_root=
    if [ "$(id -u)" -ne 0 ]; then
      command -v sudo >/dev/null 2>&1 || fail "these packages are missing and need root or sudo to be installed: $missing"
      as_root=sudo
    fi
    say "installing $missing"
    # shellcheck disable=SC2086 # a list of words
    { $as_root apt-get update -q && $as_root env DEBIAN_FRONTEND=noninteractive apt-get install -q -y \
      --no-install-recommends $missing; } >build_install.log 2>&1 || {
      tail -n 5 build_install.log >&2
      rm -f build_install.log
      fail "apt-get could not install $missing"
    }
    rm -f build_install.log
    missing=$(missing_of "$@")
    [ -z "$missing" ] || fail "these packages are installed, but what is needed of them is still not there: $missing"
  fi
  cmake -P cmake/check_version.cmake 2>/dev/null || fail "CMake 3.25 or newer is needed, this is $(cmake --version | head -n 1)."
}

# build_preset <preset> [argument of the build ...]
build_preset() {
  preset=$1
  shift
  say "$preset: configure"
  mkdir -p "build/$preset"
  cmake --preset "$preset" >"build/$preset/configure.log" 2>&1 || {
    cat "build/$preset/configure.log" >&2
    fail "the $preset build could not be configured."
  }
  say "$preset: build"
  cmake --build --preset "$preset" -j "$jobs" "$@" || fail "the $preset build failed."
}
