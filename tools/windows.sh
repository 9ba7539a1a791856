#!/usr/bin/env bash
# Builds the libraries and the command for Windows, for 64 and 32 bits, and runs the tests of the Windows build under
# Wine: the unit tests, what is in the zip, rooms of Windows and Linux machines. ./dev windows installs what it needs
# and calls it; build/release has to hold libquorl.so and quorl. With `short` the long tests that ask the processor more
# than the system stay away: those that play rooms in the simulated world.
set -euo pipefail
cd "$(dirname "$0")/.."

LONG_TESTS='^(sender|receiver|sim|scenarios)$'

export WINEPREFIX=$PWD/build/wine WINEDEBUG=-all LANG=C.UTF-8
# Nobody here wants .NET or a browser, which Wine else offers to fetch.
export WINEDLLOVERRIDES='mscoree,mshtml='
export QUORL_BUILD=$PWD/build/release QUORL_WINDOWS_BUILD=$PWD/build/windows-x86_64
export PYTHONPATH=$PWD/tools/room PYTHONDONTWRITEBYTECODE=1

say() { printf '== %s\n' "$*"; }

# What the loader of Wine for 32-bit programs is in.
can_run_32_bits() { [ -x /usr/lib/wine/wine ] || [ -x /usr/lib/wine/wine32 ]; }

# A build directory, configured with and built by the rest; the output shows when it fails.
build() {
  local preset=$1 log
  shift
  log=$(mktemp)
  say "building $preset"
  if ! { cmake --preset "$preset" "-DBUILD_TESTING=$TESTS" &&
    cmake --build --preset "$preset" "$@"; } >"$log" 2>&1; then
    grep -vE '^\[[0-9]+/[0-9]+\]' "$log" | tail -n 60
    rm -f "$log"
    say "building $preset FAILED"
    return 1
  fi
  rm -f "$log"
}

make_prefix() {
  [ ! -f "$WINEPREFIX/made" ] || return 0
  say "a Wine prefix, once"
  mkdir -p "$WINEPREFIX"
  wineboot --init >/dev/null 2>&1
  # Windows that nobody sees: no display is needed.
  wine reg add 'HKCU\Software\Wine\Drivers' /v Graphics /d null /f >/dev/null
  wineserver --wait
  touch "$WINEPREFIX/made"
}

# The services of Wine end with the last program, and hold the output of the first one open until then. So the first one
# is none whose output anybody waits for, and the last one stays.
start_session() {
  local try
  for try in 1 2 3; do
    ! timeout 60 wine cmd /c exit </dev/null >/dev/null 2>&1 || break
    say "Wine did not start, try $try"
    wineserver --kill || true
  done
  wine notepad </dev/null >/dev/null 2>&1 &
}

# Continuous integration runs a test that fails once more, as ./dev test does.
run_tests() {
  local again=()
  [ -z "${CI:-}" ] || again=(--repeat until-pass:2)
  ctest --test-dir "build/$1" -j2 --output-on-failure --no-tests=error "${again[@]}" "${SELECTION[@]}"
}

SELECTION=()
SHORT_TARGETS=()
if [ "${1:-}" = short ]; then
  SELECTION=(-E "$LONG_TESTS")
  SHORT_TARGETS=(--target quorl_cli quorl_thirteen quorl host host_robust test_platform test_protocol test_files
    test_coded test_cli test_windows)
fi

started=$SECONDS
say "sources of the command's libraries"
tools/windows_sources.sh "$PWD/build/windows-sources" >/dev/null
TESTS=ON build windows-x86_64 "${SHORT_TARGETS[@]}"
if can_run_32_bits; then
  TESTS=ON build windows-i686 "${SHORT_TARGETS[@]}"
else
  TESTS=OFF build windows-i686
fi

say "packing"
for cpu in x86_64 i686; do
  (cd "build/windows-$cpu" && cpack >cpack.log) || { cat "build/windows-$cpu/cpack.log"; exit 1; }
  ls "build/windows-$cpu"/packages/*.zip
done
say "what was packed"
python3 tests/windows/libraries_test.py x86_64 i686

make_prefix
start_session
say "unit tests under Wine"
run_tests windows-x86_64
if can_run_32_bits; then run_tests windows-i686; fi

say "rooms of Windows and Linux"
python3 tests/windows/rooms_test.py
wineserver --kill || true

if can_run_32_bits; then
  say "all tests passed for Windows, 64 and 32 bits, in $((SECONDS - started)) s"
else
  say "all tests passed for Windows, 64 bits, in $((SECONDS - started)) s"
  say "32 bits: built and read, not run: this machine has no Wine for them (package wine32 of the i386 architecture)"
fi
