#!/usr/bin/env bash
# Builds what the demo needs (the launcher, brackwood-bundle and the demo bundle it makes) in
# build-demo/, checks the bundle and runs it with a few arguments.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/setup.sh
cmake --preset demo >/dev/null
cmake --build --preset demo --target demo-bundle -j "$(nproc)"
echo "== build-demo/bin/brackwood-bundle check build-demo/demo/Hello.app"
build-demo/bin/brackwood-bundle check build-demo/demo/Hello.app
echo "== build-demo/demo/Hello.app/Contents/MacOS/Hello 'an argument with blanks' Grüße -J-Dfrom.command.line=yes"
exec build-demo/demo/Hello.app/Contents/MacOS/Hello "an argument with blanks" "Grüße" -J-Dfrom.command.line=yes "$@"
