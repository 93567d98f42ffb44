#!/usr/bin/env bash
# Builds the optimised launcher and runs every benchmark.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/setup.sh
cmake --preset default >/dev/null
cmake --build --preset default
build/bin/startup_bench build/bin/brackwood-launcher build/demo/Hello.app/Contents/Resources/app/lib/hello.jar
