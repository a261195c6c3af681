#!/usr/bin/env bash
# Installs BUILD_DIR into a scratch prefix and builds the README's example program outside
# the tree against it twice, through the CMake package and through pkg-config, taking the
# program and the build lines from the README itself so the two cannot drift apart. Then
# runs the installed vardo from that prefix with no library path set.
set -euo pipefail
build=${1:-build/release}
root=$(cd "$(dirname "$0")/.." && pwd)
prefix=$(mktemp -d); work=$(mktemp -d)
trap 'rm -rf "$prefix" "$work"' EXIT
# The example reads the registry: give it a scratch store, never the machine's.
export NEBU_REGISTRYHOME="$work/registry"
mkdir -p "$NEBU_REGISTRYHOME"

# The fenced block that follows the marker line <!-- example-NAME --> in the README.
example() {
  awk -v m="<!-- example-$1 -->" '
    $0 == m { armed = 1; next }
    armed && /^```/ { if (inside) exit; inside = 1; next }
    inside { print }' "$root/README.md"
}

cmake --install "$build" --prefix "$prefix" >/dev/null
# The test hooks (fault injection) belong to test builds only, never to what is installed.
if command -v nm >/dev/null && ls "$prefix"/lib*/libvardow-4-0.so >/dev/null 2>&1 &&
   nm -D --defined-only "$prefix"/lib*/libvardow-4-0.so | grep injectFault >/dev/null; then
  echo "install check failed: the installed library exports its test hooks" >&2
  exit 1
fi
mkdir -p "$work/cmake"
example program > "$work/main.cpp"
example cmake > "$work/CMakeLists.txt"
[ -s "$work/main.cpp" ] && [ -s "$work/CMakeLists.txt" ] || { echo "README example missing" >&2; exit 1; }
cmake -S "$work" -B "$work/cmake" -G Ninja -DCMAKE_PREFIX_PATH="$prefix" >/dev/null
cmake --build "$work/cmake" >/dev/null
LD_LIBRARY_PATH="$prefix/lib:${LD_LIBRARY_PATH:-}" "$work/cmake/hello"

libdir=$(ls -d "$prefix"/lib*/pkgconfig | head -n 1)
pcline=$(example pkgconfig | sed -e "s|DIR/lib/pkgconfig|$libdir|" -e "s|-o hello|-o $work/pc|" \
                                -e "s| main.cpp | $work/main.cpp |")
bash -c "$pcline"
LD_LIBRARY_PATH="$(dirname "$libdir"):${LD_LIBRARY_PATH:-}" "$work/pc"

if [ -x "$prefix/bin/vardo" ]; then
  env -u LD_LIBRARY_PATH "$prefix/bin/vardo" version
fi
echo "install check passed"
