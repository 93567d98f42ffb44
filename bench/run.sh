#!/usr/bin/env bash
# Builds the optimised launcher and runs every benchmark: start-up against bin/java, archive
# start with a runtime archive against bsdtar and rm, the progress window, and standard error
# passed through in application mode.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/setup.sh
cmake --preset default >/dev/null
cmake --build --preset default
build/bin/startup_bench build/bin/brackwood-launcher build/demo/Hello.app/Contents/Resources/app/lib/hello.jar
build/bin/untar_bench 21
build/bin/window_bench build/bin/brackwood-launcher build/fake_jli/libjli.so build/demo/Hello.app/Contents/Resources/app/lib/hello.jar /usr/lib/jvm/java-17-openjdk-amd64 30
build/bin/runtime_cache_bench build/bin/brackwood-launcher /usr/lib/jvm/java-17-openjdk-amd64 20
build/bin/error_stream_bench build/bin/brackwood-launcher build/demo/Hello.app/Contents/Resources/app/lib/hello.jar /usr/lib/jvm/java-17-openjdk-amd64 200 20
build/bin/runtime_choice_bench build/bin/brackwood-bundle build/bin/brackwood-launcher /usr/lib/jvm/java-17-openjdk-amd64 /usr/lib/jvm/temurin-25-jdk-amd64 15
