#!/usr/bin/env bash
# Checks the formatting, builds the launcher twice (optimised with warnings as errors, and
# with Address- and UndefinedBehaviorSanitizer), builds the fuzz targets with clang, checks the
# macOS build with a cross-compiler, and runs every test in the first two builds.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/setup.sh
echo "== format"
if ! git ls-files '*.cpp' '*.h' '*.c' '*.mm' | grep -v '^fuzz/corpus/' | xargs clang-format-14 --dry-run --Werror; then
  echo "test: the files above are not formatted: git ls-files '*.cpp' '*.h' '*.c' '*.mm' | xargs clang-format-14 -i" >&2
  exit 1
fi
jobs=$(nproc)
for preset in default asan; do
  echo "== build: $preset"
  cmake --preset "$preset" >/dev/null
  cmake --build --preset "$preset" -j "$jobs"
done
# The demo's own build (sources compiled in batches) must keep compiling too.
echo "== build: demo"
cmake --preset demo >/dev/null
cmake --build --preset demo --target demo-bundle -j "$jobs"
# The fuzz targets and everything else with clang, as maintainers build them to fuzz.
echo "== build: fuzz"
cmake --preset fuzz >/dev/null
cmake --build --preset fuzz -j "$jobs"
bash scripts/check-self-contained.sh build/bin/brackwood-launcher
bash scripts/check-self-contained.sh build/bin/brackwood-bundle
echo "== macOS cross-check"
bash scripts/check-macos.sh
for preset in default asan; do
  echo "== tests: $preset"
  ctest --preset "$preset" -j "$jobs"
done
