#!/usr/bin/env bash
# Builds the library, its tests and the fuzz replay programs for armhf with
# UndefinedBehaviorSanitizer (every report fatal) and runs them under qemu-arm: the preset
# armhf-ubsan. AddressSanitizer is left out on purpose: LeakSanitizer does not work under
# qemu-arm, and ASan without it adds little to the native asan preset.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
exec cmake --workflow --preset armhf-ubsan
