# shellcheck shell=sh disable=SC2034,SC2154
# What the scripts share. A script sets `root` and reads this file; it then stands in `root`.

cd "$root" || exit
script=scripts/$(basename "$0")
jobs=$(nproc)
emulator="qemu-aarch64 -cpu cortex-a76 -L /usr/aarch64-linux-gnu"

# Command or file, and the Debian package that holds it.
build_tools="
  cmake cmake
  cpack cmake
  ninja ninja-build
  gcc gcc
  g++ g++
  ccache ccache
  objcopy binutils
  aarch64-linux-gnu-gcc gcc-aarch64-linux-gnu
  aarch64-linux-gnu-g++ g++-aarch64-linux-gnu
  /usr/aarch64-linux-gnu/include/stdio.h libc6-dev-arm64-cross
  qemu-aarch64 qemu-user
"
example_tools="
  pkg-config pkg-config
  /usr/include/stb/stb_image.h libstb-dev
  /usr/include/CLI/CLI.hpp libcli11-dev
  /usr/include/nlohmann/json.hpp nlohmann-json3-dev
"
test_tools="
  python3 python3
  ctest cmake
  nm binutils
  readelf binutils
  objdump binutils
  aarch64-linux-gnu-nm binutils-aarch64-linux-gnu
  aarch64-linux-gnu-readelf binutils-aarch64-linux-gnu
  aarch64-linux-gnu-objdump binutils-aarch64-linux-gnu
  /usr/src/googletest/CMakeLists.txt googletest
  make make
  dpkg-deb dpkg
  file file
  abidw abigail-tools
  abidiff abigail-tools
  doxygen doxygen
  lintian lintian
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

# expect_writable <folder below the tree>: makes it if it is not there.
expect_writable() {
  mkdir -p "$1" 2>/dev/null && probe=$(mktemp "$1/.writable.XXXXXX" 2>/dev/null) && rm -f "$probe" ||
    fail "nothing can be written to $root/$1; make it yours, or use a copy of the tree."
}

# Seconds between two lines that tell how far a step is.
tell_every=${TARVU_TELL_EVERY:-15}

# tell_progress <command> <log>: tells again and again what the command makes of the log, until it is ended; on a terminal, if
# nothing else is printed meanwhile, in one line.
tell_progress() {
  seconds=0
  lines=-1
  while sleep 1 && kill -0 $$ 2>/dev/null; do
    seconds=$((seconds + 1))
    if [ -t 1 ] && [ "$alone" = yes ]; then
      printf '\r   %s, %s s\033[K' "$("$1" "$2")" $seconds
    elif [ $((seconds % tell_every)) -eq 0 ]; then
      before=$lines
      lines=$(wc -l <"$2")
      [ "$alone" = no ] && [ "$lines" -ne "$before" ] || printf '   %s, %s s\n' "$("$1" "$2")" $seconds
    fi
  done
}

# with_progress <command that tells how far the log is> <log> <command ...>: the status of the latter, which fills the log.
with_progress() {
  how_far=$1
  log=$2
  shift 2
  : >"$log"
  tell_progress "$how_far" "$log" &
  teller=$!
  status=0
  "$@" || status=$?
  kill $teller 2>/dev/null && wait $teller 2>/dev/null || :
  if [ -t 1 ] && [ "$alone" = yes ]; then printf '\r\033[K'; fi
  return $status
}

# What apt-get has done so far.
packages_so_far() {
  awk '
    /newly installed/ { all = $1 + $3; fetched = 0 }
    /^Get:/ { ++fetched }
    /^Unpacking / { ++unpacked }
    /^Setting up / { ++ready }
    END {
      if (!all) print "reading the lists of packages"
      else if (unpacked) printf "%d of %d packages are unpacked, %d set up\n", unpacked, all, ready
      else printf "%d of %d packages are fetched\n", fetched, all
    }' "$1"
}

# What CTest has done so far, and what is running.
tests_so_far() {
  awk '
    /^ *Start +[0-9]+: / { running[$NF] = 1 }
    /^ *[0-9]+\/[0-9]+ Test +#[0-9]+: / {
      split($1, of, "/")
      sub(/^[^:]*: */, "")
      delete running[$1]
      done = of[1]
      all = of[2]
    }
    END {
      printf "%d of %s tests are done; running:", done, all ? all : "all"
      for (test in running) printf " %s", test
      print ""
    }' "$1"
}

# install_packages <package ...>, with output in $log
install_packages() {
  { $as_root apt-get update -q && $as_root env DEBIAN_FRONTEND=noninteractive apt-get install -q -y \
    --no-install-recommends "$@"; } >"$log" 2>&1
}

# install_missing <pairs>
install_missing() {
  expect_writable build
  missing=$(missing_of "$@")
  if [ -n "$missing" ]; then
    command -v apt-get >/dev/null 2>&1 || fail "these packages are missing and there is no apt-get to install them: $missing"
    as_root=
    if [ "$(id -u)" -ne 0 ]; then
      command -v sudo >/dev/null 2>&1 || fail "these packages are missing and need root or sudo to be installed: $missing"
      as_root=sudo
      sudo true || fail "these packages are missing and sudo does not let you install them: $missing"
    fi
    say "installing $missing"
    log=$(mktemp)
    alone=yes
    # shellcheck disable=SC2086 # a list of words
    with_progress packages_so_far "$log" install_packages $missing || {
      tail -n 5 "$log" >&2
      rm -f "$log"
      fail "apt-get could not install $missing"
    }
    rm -f "$log"
    missing=$(missing_of "$@")
    [ -z "$missing" ] || fail "these packages are installed, but what is needed of them is still not there: $missing"
  fi
  cmake -P cmake/check_version.cmake 2>/dev/null || fail "CMake 3.25 or newer is needed, this is $(cmake --version | head -n 1)."
}

# build_preset <preset> [argument of the build ...]
build_preset() {
  preset=$1
  shift
  expect_writable "build/$preset"
  say "$preset: configure"
  log=build/$preset/configure.log
  rm -f "$log"
  cmake --preset "$preset" >"$log" 2>&1 || {
    cat "$log" >&2
    fail "the $preset build could not be configured."
  }
  say "$preset: build"
  cmake --build --preset "$preset" -j "$jobs" "$@" || fail "the $preset build failed."
}

# run_ctest <preset> [argument ...]: its lines go to standard output and to $log.
run_ctest() {
  { ctest --preset "$@" -j "$jobs" 2>&1 || echo "$?" >"$log.status"; } | tee "$log"
  [ ! -e "$log.status" ]
}

# test_preset <preset> [argument of CTest ...]
test_preset() {
  say "$1: test"
  log=build/$1/test.log
  rm -f "$log.status"
  alone=no
  with_progress tests_so_far "$log" run_ctest "$@" || fail "tests failed in the $1 build; what they printed is in $log."
}
