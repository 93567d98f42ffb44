#!/usr/bin/env bash
# Builds what the demo needs (the launcher, brackwood-bundle and the demo bundle it makes),
# checks the bundle and runs build/demo/Hello.app with a few arguments.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/setup.sh
cmake --preset default >/dev/null
cmake --build --preset default --target demo-bundle -j "$(nproc)"
echo "== build/bin/brackwood-bundle check build/demo/Hello.app"
build/bin/brackwood-bundle check build/demo/Hello.app
echo "== build/demo/Hello.app/Contents/MacOS/Hello 'an argument with blanks' Grüße -J-Dfrom.command.line=yes"
exec build/demo/Hello.app/Contents/MacOS/Hello "an argument with blanks" "Grüße" -J-Dfrom.command.line=yes "$@"
