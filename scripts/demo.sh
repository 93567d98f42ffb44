#!/usr/bin/env bash
# Builds everything and runs the demo bundle build/demo/Hello.app with a few arguments.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/setup.sh
cmake --preset default >/dev/null
cmake --build --preset default
echo "== build/demo/Hello.app/Contents/MacOS/Hello 'an argument with blanks' Grüße -J-Dfrom.command.line=yes"
exec build/demo/Hello.app/Contents/MacOS/Hello "an argument with blanks" "Grüße" -J-Dfrom.command.line=yes "$@"
