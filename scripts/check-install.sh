#!/usr/bin/env bash
# Installs BUILD_DIR into a scratch prefix and builds a program outside the tree against
# it twice: through the CMake package and through pkg-config.
set -euo pipefail
build=${1:-build/release}
root=$(cd "$(dirname "$0")/.." && pwd)
prefix=$(mktemp -d); work=$(mktemp -d)
trap 'rm -rf "$prefix" "$work"' EXIT
cmake --install "$build" --prefix "$prefix" >/dev/null
# The test hooks (fault injection) belong to test builds only, never to what is installed.
if command -v nm >/dev/null && ls "$prefix"/lib*/libvardow-4-0.so >/dev/null 2>&1 &&
   nm -D --defined-only "$prefix"/lib*/libvardow-4-0.so | grep injectFault >/dev/null; then
  echo "install check failed: the installed library exports its test hooks" >&2
  exit 1
fi
cmake -S "$root/tests/consumer" -B "$work/cmake" -G Ninja -DCMAKE_PREFIX_PATH="$prefix" >/dev/null
cmake --build "$work/cmake" >/dev/null
LD_LIBRARY_PATH="$prefix/lib:${LD_LIBRARY_PATH:-}" "$work/cmake/consumer"
libdir=$(ls -d "$prefix"/lib*/pkgconfig | head -n 1)
PKG_CONFIG_PATH="$libdir" g++ -std=c++17 "$root/tests/consumer/main.cpp" -o "$work/pc" \
  $(PKG_CONFIG_PATH="$libdir" pkg-config --cflags --libs vardow)
LD_LIBRARY_PATH="$(dirname "$libdir"):${LD_LIBRARY_PATH:-}" "$work/pc"
echo "install check passed"
