#!/usr/bin/env bash
# Builds every configuration and runs its tests: release (all tests), asan (all tests),
# tsan (threading tests), mingw-x86_64 (tests under Wine), mingw-i686 (compile only),
# and a short run of every fuzzer.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/setup.sh
jobs=$(nproc)
start=$SECONDS
step() { echo; echo "==== $* ($((SECONDS - start)) s so far)"; }

step release
cmake --preset release >/dev/null
cmake --build --preset release -j "$jobs"
ctest --preset release -j "$jobs"

step asan
cmake --preset asan >/dev/null
cmake --build --preset asan -j "$jobs"
ctest --preset asan -j "$jobs"

step tsan
cmake --preset tsan >/dev/null
cmake --build --preset tsan -j "$jobs" --target threading_tests
ctest --preset tsan -j "$jobs"

step mingw-x86_64
export WINEDEBUG=-all WINEPREFIX="${WINEPREFIX:-$HOME/.wine-vardow}"
cmake --preset mingw-x86_64 >/dev/null
cmake --build --preset mingw-x86_64 -j "$jobs"
ctest --preset mingw-x86_64 -j "$jobs"

step mingw-i686
cmake --preset mingw-i686 >/dev/null
cmake --build --preset mingw-i686 -j "$jobs"

if ls fuzz/fuzz_*.cpp >/dev/null 2>&1; then
  step fuzz
  cmake --preset fuzz >/dev/null
  cmake --build --preset fuzz -j "$jobs"
  bash scripts/fuzz-short.sh build/fuzz 5
fi

step "install and build a program against the installed library"
bash scripts/check-install.sh build/release

echo; echo "all configurations passed in $((SECONDS - start)) s"
