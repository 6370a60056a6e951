#!/usr/bin/env bash
# Builds the Debian packages for amd64, armhf and arm64 (and zustd-tools where the
# command-line tool is in the tree) and checks them as Debian would:
# architecture, Multi-Arch, multiarch libdir, Depends, shlibs, ldconfig trigger, a stripped
# library whose debug information is in libzustd1-dbgsym under its build id, and -dev
# packages that can be installed side by side (their shared files are identical). Also checks
# that packaging refuses to run without dpkg-shlibdeps instead of writing an empty Depends.
#   tools/check-packages.sh [amd64|armhf|arm64 ...]   (default: all three)
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

fail() { echo "package check: $*" >&2; exit 1; }
field() { dpkg-deb -f "$1" "$2"; }
for tool in dpkg-deb dpkg-shlibdeps file; do
  [ -x "$(command -v "$tool")" ] ||
    { echo "package check not run: $tool is missing (apt-get install -y dpkg-dev file)" >&2; exit 3; }
done

declare -A preset=([amd64]=package-host [armhf]=package-armhf [arm64]=package-arm64)
declare -A triplet=([amd64]=x86_64-linux-gnu [armhf]=arm-linux-gnueabihf [arm64]=aarch64-linux-gnu)
declare -A objdump=([amd64]=objdump [armhf]=arm-linux-gnueabihf-objdump
                    [arm64]=aarch64-linux-gnu-objdump)

check() {
  local arch=$1 multiarch=${triplet[$1]} dir=build/${preset[$1]}
  rm -f "$dir"/*.deb "$dir"/*.ddeb
  cmake --workflow --preset "${preset[$arch]}" >/dev/null
  local lib=$dir/libzustd1_1.0.0_${arch}.deb dev=$dir/libzustd-dev_1.0.0_${arch}.deb
  local dbg=$dir/libzustd1-dbgsym_1.0.0_${arch}.ddeb
  for p in "$lib" "$dev" "$dbg"; do
    [ -f "$p" ] || fail "$p missing"
    [ "$(field "$p" Architecture)" = "$arch" ] || fail "$p: wrong architecture"
    [ "$(field "$p" Multi-Arch)" = same ] || fail "$p: not Multi-Arch: same"
  done
  local lib_files dev_files dbg_files
  lib_files=$(dpkg-deb -c "$lib")  # listed once: grep -q on a pipe would break dpkg-deb's pipe
  dev_files=$(dpkg-deb -c "$dev")
  dbg_files=$(dpkg-deb -c "$dbg")
  field "$lib" Depends | grep -q 'libc6 (>= ' || fail "$lib: Depends lacks libc6"
  field "$lib" Depends | grep -q 'libstdc++6 (>= ' || fail "$lib: Depends lacks libstdc++6"
  field "$dev" Depends | grep -qx 'libzustd1 (= 1.0.0)' || fail "$dev: wrong Depends"
  field "$dbg" Depends | grep -qx 'libzustd1 (= 1.0.0)' || fail "$dbg: wrong Depends"
  grep -q <<<"$lib_files" "usr/lib/$multiarch/libzustd.so.1.0.0" || fail "$lib: library path"
  grep -q <<<"$lib_files" "usr/lib/$multiarch/libzustd.so.1 -> libzustd.so.1.0.0" ||
    fail "$lib: soname link"
  grep -q <<<"$dev_files" "usr/lib/$multiarch/libzustd.so -> libzustd.so.1" ||
    fail "$dev: development link"
  grep -q <<<"$dev_files" "usr/include/zustd/zustd.h" || fail "$dev: headers"
  grep -q <<<"$dev_files" "usr/lib/$multiarch/pkgconfig/zustd.pc" || fail "$dev: zustd.pc"
  grep -q <<<"$dev_files" "usr/lib/$multiarch/cmake/zustd/zustdConfig.cmake" ||
    fail "$dev: CMake package"
  local tmp; tmp=$(mktemp -d)
  dpkg-deb -e "$lib" "$tmp/control"
  grep -qx 'libzustd 1 libzustd1 (>= 1.0.0)' "$tmp/control/shlibs" || fail "$lib: shlibs"
  grep -qx 'activate-noawait ldconfig' "$tmp/control/triggers" || fail "$lib: ldconfig trigger"
  # Stripped as Debian strips, the debug information under the library's build id.
  dpkg-deb -x "$lib" "$tmp/lib"
  local so=$tmp/lib/usr/lib/$multiarch/libzustd.so.1.0.0
  file -b "$so" | grep -q ', stripped' || fail "$lib: the library is not stripped"
  if "${objdump[$arch]}" -h "$so" | grep -q '\.debug_info'; then fail "$lib: debug sections left"; fi
  local id; id=$(file -b "$so" | sed -n 's/.*BuildID\[sha1\]=\([0-9a-f]*\).*/\1/p')
  [ -n "$id" ] || fail "$lib: no build id"
  grep -q <<<"$dbg_files" "usr/lib/debug/.build-id/${id:0:2}/${id:2}.debug" ||
    fail "$dbg: no debug file for build id $id"
  rm -rf "$tmp"
  local tools=""
  [ ! -f tools/zustd/CMakeLists.txt ] || tools=$(check_tools "$arch" "$dir")
  echo "packages ($arch): $(basename "$lib") $(basename "$dev") $(basename "$dbg")${tools:+ $tools} OK"
}

# zustd-tools: the command-line program (stripped, debug symbols in zustd-tools-dbgsym), its
# manual page and bash completion; Multi-Arch: foreign.
check_tools() {  # <arch> <dir>: prints the package names
  local arch=$1 dir=$2 tmp; tmp=$(mktemp -d)
  local tools=$dir/zustd-tools_1.0.0_${arch}.deb dbg=$dir/zustd-tools-dbgsym_1.0.0_${arch}.ddeb
  [ -f "$tools" ] || fail "$tools missing"
  [ -f "$dbg" ] || fail "$dbg missing"
  local files; files=$(dpkg-deb -c "$tools")
  [ "$(field "$tools" Architecture)" = "$arch" ] || fail "$tools: wrong architecture"
  [ "$(field "$tools" Multi-Arch)" = foreign ] || fail "$tools: not Multi-Arch: foreign"
  field "$tools" Depends | grep -q '^libzustd1 (= 1.0.0), libc6' || fail "$tools: wrong Depends"
  grep -q <<<"$files" "usr/bin/zustd$" || fail "$tools: program"
  grep -q <<<"$files" "usr/share/man/man1/zustd.1.gz" || fail "$tools: manual page"
  grep -q <<<"$files" "usr/share/bash-completion/completions/zustd$" ||
    fail "$tools: bash completion"
  dpkg-deb -x "$tools" "$tmp"
  file -b "$tmp/usr/bin/zustd" | grep -q ', stripped' || fail "$tools: the program is not stripped"
  rm -rf "$tmp"
  echo "$(basename "$tools") $(basename "$dbg")"
}

# Files outside the multiarch directories must be byte-identical in every architecture's -dev
# package, or dpkg refuses to install them side by side.
shared_files_agree() {
  local sums="" arch tmp; tmp=$(mktemp -d)
  for arch in "$@"; do
    dpkg-deb -e "build/${preset[$arch]}/libzustd-dev_1.0.0_${arch}.deb" "$tmp/$arch"
    grep -v "usr/lib/${triplet[$arch]}/" "$tmp/$arch/md5sums" >"$tmp/$arch.shared"
    if [ -n "$sums" ] && ! cmp -s "$sums" "$tmp/$arch.shared"; then
      diff "$sums" "$tmp/$arch.shared" >&2 || true
      fail "libzustd-dev for $arch differs from the others outside its multiarch directory"
    fi
    sums=$tmp/$arch.shared
  done
  rm -rf "$tmp"
  echo "packages: libzustd-dev installs side by side for $*"
}

# Without dpkg-shlibdeps (dpkg-dev) packaging must stop, not write a libzustd1 without Depends.
# Hidden in a private mount namespace, so the rest of the machine does not notice.
refuses_without_dpkg_dev() {
  if ! unshare -m true 2>/dev/null; then
    echo "packages: SKIPPED the check without dpkg-dev (no mount namespace here)"
    return
  fi
  if (cd build/package-host && unshare -m sh -c \
        'mount --bind /dev/null "$(command -v dpkg-shlibdeps)" && cpack -G DEB' >/dev/null 2>&1); then
    fail "cpack made packages without dpkg-shlibdeps"
  fi
  echo "packages: cpack refuses to run without dpkg-shlibdeps"
}

arches=("$@")
[ ${#arches[@]} -gt 0 ] || arches=(amd64 armhf arm64)
for arch in "${arches[@]}"; do
  [ -n "${preset[$arch]:-}" ] || fail "unknown architecture $arch"
  check "$arch"
done
[ ${#arches[@]} -lt 2 ] || shared_files_agree "${arches[@]}"
if [[ " ${arches[*]} " == *" amd64 "* ]]; then
  refuses_without_dpkg_dev
  cmake --workflow --preset package-host >/dev/null  # leave good packages behind
fi
