#!/usr/bin/env bash
# Runs one libFuzzer target for a number of minutes, or merges its findings into the
# committed corpus.
#   tools/fuzz.sh <target> <minutes> [libFuzzer options...]   fuzz (new inputs kept in build/fuzz/work/<target>)
#   tools/fuzz.sh <target> merge [N]                          minimise the N (60) largest finds + the corpus into
#                                                             fuzz/corpus/<target> (files named keep-* are kept)
#   tools/fuzz.sh list                                        the targets
# Targets: string token base64 para expression. Builds the preset "fuzz" (clang-14,
# AddressSanitizer + UndefinedBehaviorSanitizer) first. Crashes, leaks, time-outs (10 s) and
# sanitizer reports stop the run; the input is saved as build/fuzz/artifacts/<target>/<kind>-<sha1>.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

targets=(string token base64 para expression)
declare -A max_len=([string]=512 [token]=1024 [base64]=1024 [para]=4096 [expression]=512)

usage() { sed -n '2,10p' "${BASH_SOURCE[0]}" | sed 's/^# \{0,1\}//'; exit 2; }
[ $# -ge 1 ] || usage
if [ "$1" = list ]; then printf '%s\n' "${targets[@]}"; exit 0; fi
[ $# -ge 2 ] || usage
target=$1; what=$2; shift 2
[ -n "${max_len[$target]:-}" ] || { echo "unknown target: $target" >&2; usage; }

cmake --preset fuzz >/dev/null
cmake --build build/fuzz -j2 --target "${target}_fuzz" >/dev/null

bin=build/fuzz/fuzz/${target}_fuzz
corpus=fuzz/corpus/$target
work=build/fuzz/work/$target
artifacts=build/fuzz/artifacts/$target
mkdir -p "$corpus" "$work" "$artifacts"
dict=()
[ -f "fuzz/$target.dict" ] && dict=(-dict="fuzz/$target.dict")
export ASAN_OPTIONS=${ASAN_OPTIONS:-detect_leaks=1:abort_on_error=1:allocator_may_return_null=0}
export UBSAN_OPTIONS=${UBSAN_OPTIONS:-print_stacktrace=1:halt_on_error=1}

if [ "$what" = merge ]; then
  # The committed corpus stays a few dozen files: the largest inputs found (which cover most
  # each) and the old corpus, merged on edge coverage alone (no hit counters).
  top=${1:-60}
  pool=$(mktemp -d); out=$(mktemp -d)
  trap 'rm -rf "$pool" "$out"' EXIT
  { ls -S "$work" || true; } | head -n "$top" | while read -r f; do cp "$work/$f" "$pool/"; done
  cp "$corpus"/* "$pool"/ 2>/dev/null || true
  "$bin" -merge=1 -use_counters=0 -max_len="${max_len[$target]}" "$out" "$pool" 2>&1 | grep 'MERGE-OUTER: .* new files'
  # Hand-written hostile inputs (keep-*) stay whatever their coverage.
  find "$corpus" -maxdepth 1 -type f ! -name 'keep-*' -delete
  for f in "$out"/*; do cp "$f" "$corpus/$(sha1sum "$f" | cut -c1-16)"; done
  echo "$(ls "$corpus" | wc -l) inputs, $(cat "$corpus"/* | wc -c) bytes in $corpus"
  exit 0
fi

[[ "$what" =~ ^[0-9]+$ ]] || usage
exec "$bin" -max_total_time=$((what * 60)) -timeout=10 -rss_limit_mb=2048 \
  -max_len="${max_len[$target]}" -print_final_stats=1 -artifact_prefix="$artifacts/" \
  "${dict[@]}" "$@" "$work" "$corpus"
