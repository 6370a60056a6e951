#!/usr/bin/env bash
# Runs every host test program (build/host/tests/*_test) and every fuzz replay program over
# its committed corpus under valgrind memcheck. Any invalid access, use of uninitialised
# memory, or definitely/indirectly lost block fails the run. Builds the preset host first.
#   tools/valgrind.sh            all programs, two at a time
#   tools/valgrind.sh zu_para    only the named test programs
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

[ -x "$(command -v valgrind)" ] ||
  { echo "valgrind check not run: valgrind is missing (apt-get install -y valgrind)" >&2; exit 3; }

build=build/host
cmake --preset host >/dev/null
cmake --build "$build" -j2 >/dev/null

# gtest filters per program (name without _test), for tests that valgrind makes needlessly
# slow or that cannot work under it, each with its reason. None is needed at present: the
# whole suite, sockets and timing tests included, runs in about a minute.
declare -A filter=(
)

logs=$(mktemp -d)
trap 'rm -rf "$logs"' EXIT

run_one() {  # <name> <command...>
  local name=$1; shift
  local f=${filter[$name]:-}
  local args=()
  [ -n "$f" ] && args=(--gtest_filter="$f")
  local start=$SECONDS
  if valgrind --tool=memcheck --error-exitcode=1 --leak-check=full \
       --errors-for-leak-kinds=definite,indirect --show-leak-kinds=definite,indirect \
       --num-callers=30 --quiet "$@" "${args[@]}" >"$logs/$name.log" 2>&1; then
    echo "clean   $name ($((SECONDS - start)) s)"
  else
    echo "FAILED  $name"; cat "$logs/$name.log"; return 1
  fi
}

jobs=()
if [ $# -gt 0 ]; then
  for t in "$@"; do jobs+=("$t $build/tests/${t}_test"); done
else
  for p in "$build"/tests/*_test; do jobs+=("$(basename "$p" _test) $p"); done
  for p in "$build"/fuzz/*_replay; do
    t=$(basename "$p" _replay)
    jobs+=("fuzz_$t $p fuzz/corpus/$t")
  done
fi

status=0
pids=()
for job in "${jobs[@]}"; do
  # shellcheck disable=SC2086
  run_one $job &
  pids+=($!)
  if [ ${#pids[@]} -ge 2 ]; then wait "${pids[0]}" || status=1; pids=("${pids[@]:1}"); fi
done
for p in "${pids[@]}"; do wait "$p" || status=1; done
[ $status -eq 0 ] && echo "valgrind: all clean" || echo "valgrind: errors found"
exit $status
