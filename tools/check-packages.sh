#!/usr/bin/env bash
# Builds the libzustd1, libzustd-dev and zustd-tools Debian packages for amd64 and armhf and
# checks what they declare and contain: architecture, multiarch libdir, Depends, shlibs,
# ldconfig trigger, the program with its manual page and completion.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

fail() { echo "package check: $*" >&2; exit 1; }
field() { dpkg-deb -f "$1" "$2"; }

check() {
  local preset=$1 arch=$2 multiarch=$3 dir=build/$1
  cmake --workflow --preset "$preset" >/dev/null
  local lib=$dir/libzustd1_1.0.0_${arch}.deb dev=$dir/libzustd-dev_1.0.0_${arch}.deb
  [ -f "$lib" ] && [ -f "$dev" ] || fail "$preset: packages missing"
  local lib_files dev_files
  lib_files=$(dpkg-deb -c "$lib")  # listed once: grep -q on a pipe would break dpkg-deb's pipe
  dev_files=$(dpkg-deb -c "$dev")
  [ "$(field "$lib" Architecture)" = "$arch" ] || fail "$lib: wrong architecture"
  [ "$(field "$dev" Architecture)" = "$arch" ] || fail "$dev: wrong architecture"
  field "$lib" Depends | grep -q 'libc6' || fail "$lib: Depends lacks libc6"
  field "$dev" Depends | grep -qx 'libzustd1 (= 1.0.0)' || fail "$dev: wrong Depends"
  grep -q <<<"$lib_files" "usr/lib/$multiarch/libzustd.so.1.0.0" || fail "$lib: library path"
  grep -q <<<"$lib_files" "usr/lib/$multiarch/libzustd.so.1 -> libzustd.so.1.0.0" ||
    fail "$lib: soname link"
  grep -q <<<"$dev_files" "usr/lib/$multiarch/libzustd.so -> libzustd.so.1" ||
    fail "$dev: development link"
  grep -q <<<"$dev_files" "usr/include/zustd/zustd.h" || fail "$dev: headers"
  grep -q <<<"$dev_files" "usr/lib/$multiarch/pkgconfig/zustd.pc" || fail "$dev: zustd.pc"
  grep -q <<<"$dev_files" "usr/lib/$multiarch/cmake/zustd/zustdConfig.cmake" ||
    fail "$dev: CMake package"
  local ctl; ctl=$(mktemp -d)
  dpkg-deb -e "$lib" "$ctl"
  grep -qx 'libzustd 1 libzustd1 (>= 1.0.0)' "$ctl/shlibs" || fail "$lib: shlibs"
  grep -qx 'activate-noawait ldconfig' "$ctl/triggers" || fail "$lib: ldconfig trigger"
  rm -rf "$ctl"
  local tools=$dir/zustd-tools_1.0.0_${arch}.deb tools_files
  [ -f "$tools" ] || fail "$preset: zustd-tools package missing"
  tools_files=$(dpkg-deb -c "$tools")
  [ "$(field "$tools" Architecture)" = "$arch" ] || fail "$tools: wrong architecture"
  field "$tools" Depends | grep -q '^libzustd1 (= 1.0.0), libc6' || fail "$tools: wrong Depends"
  grep -q <<<"$tools_files" "usr/bin/zustd$" || fail "$tools: program"
  grep -q <<<"$tools_files" "usr/share/man/man1/zustd.1.gz" || fail "$tools: manual page"
  grep -q <<<"$tools_files" "usr/share/bash-completion/completions/zustd$" ||
    fail "$tools: bash completion"
  echo "packages ($arch): $(basename "$lib") $(basename "$dev") $(basename "$tools") OK"
}

check package-host amd64 x86_64-linux-gnu
check package-armhf armhf arm-linux-gnueabihf
