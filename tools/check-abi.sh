#!/usr/bin/env bash
# Compares the armhf library's ABI with the committed baseline abi/libzustd.so.1.abi.
# Any reported change fails. A deliberate change is recorded with: tools/check-abi.sh --update
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
lib=build/armhf/libzustd.so.1.0.0
baseline=abi/libzustd.so.1.abi
[ -f "$lib" ] || { echo "build the armhf preset first ($lib missing)" >&2; exit 1; }
if [ "${1:-}" = --update ]; then
  abidw --no-show-locs --no-comp-dir-path --out-file "$baseline" "$lib"
  echo "ABI baseline written to $baseline"
  exit 0
fi
if abidiff "$baseline" "$lib"; then
  echo "ABI check: no change against $baseline"
else
  echo "ABI check: the library's ABI differs from $baseline (abidiff status $?)" >&2
  exit 1
fi
