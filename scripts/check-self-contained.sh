#!/usr/bin/env bash
# The launcher is copied into every application: it may need only the C library, libdl,
# libpthread, libm and zlib at run time.
set -euo pipefail
exe=${1:-build/bin/brackwood-launcher}
[ -x "$exe" ] || { echo "$exe: not built" >&2; exit 1; }
libraries=$(ldd "$exe")
extra=$(echo "$libraries" | awk '{print $1}' | grep -v -E '^(linux-vdso\.so|/lib64/ld-linux-x86-64\.so|libc\.so|libm\.so|libdl\.so|libpthread\.so|libz\.so|librt\.so)' || true)
if [ -n "$extra" ]; then
  echo "$exe links more than the base libraries: $extra" >&2
  exit 1
fi
echo "$exe is self-contained: $(echo "$libraries" | awk '{print $1}' | tr '\n' ' ')"
