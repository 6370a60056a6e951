#!/usr/bin/env bash
# Compares a cross-built library's ABI with its committed baseline. Any reported change fails.
#   tools/check-abi.sh [armhf|arm64] [--update]
# armhf (the default) is checked against abi/libzustd.so.1.abi, arm64 against
# abi/libzustd.so.1-arm64.abi. --update records a deliberate change.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
target=armhf
update=
for arg in "$@"; do
  case $arg in
    armhf | arm64) target=$arg ;;
    --update) update=1 ;;
    *) echo "usage: tools/check-abi.sh [armhf|arm64] [--update]" >&2; exit 2 ;;
  esac
done
lib=build/$target/libzustd.so.1.0.0
baseline=abi/libzustd.so.1.abi
[ "$target" = armhf ] || baseline=abi/libzustd.so.1-$target.abi
for tool in abidw abidiff; do
  [ -x "$(command -v "$tool")" ] ||
    { echo "ABI check not run: $tool is missing (apt-get install -y abigail-tools)" >&2; exit 3; }
done
[ -f "$lib" ] || { echo "build the $target preset first ($lib missing)" >&2; exit 1; }
if [ -n "$update" ]; then
  abidw --no-show-locs --no-comp-dir-path --out-file "$baseline" "$lib"
  echo "ABI baseline written to $baseline"
  exit 0
fi
status=0
abidiff "$baseline" "$lib" || status=$?
if [ $status -eq 0 ]; then
  echo "ABI check ($target): no change against $baseline"
elif [ $status -ge 126 ] || [ $((status & 1)) -ne 0 ]; then  # not run, or its error bit
  echo "ABI check ($target): abidiff could not compare (status $status)" >&2
  exit 1
else
  echo "ABI check ($target): the library's ABI differs from $baseline (abidiff status $status)" >&2
  exit 1
fi
