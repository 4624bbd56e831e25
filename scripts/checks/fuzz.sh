#!/usr/bin/env bash
# Builds the libFuzzer targets of fuzz/ with clang, AddressSanitizer and
# UndefinedBehaviorSanitizer, and runs each for a bounded time starting from
# its seeds in fuzz/corpus/<Name>, as many at once as there are processors.
# Fails on the first crash, leak, hang of more than FUZZ_INPUT_TIMEOUT seconds
# on one input, or broken property; the input that did it is kept in
# build-fuzz/artifacts/.
#   FUZZ_SECONDS  time per target (default 30)
set -euo pipefail
trap 'echo "fuzz: failed (status $?) at line $LINENO: $BASH_COMMAND" >&2' ERR
cd "$(dirname "$0")/../.."
seconds="${FUZZ_SECONDS:-30}"
input_timeout="${FUZZ_INPUT_TIMEOUT:-10}"

bash scripts/setup-debian.sh clang libclang-rt-14-dev

build=build-fuzz
CC=clang CXX=clang++ cmake -S . -B "$build" -DCMAKE_BUILD_TYPE=RelWithDebInfo -DCOLUMNLOGS_FUZZ=ON \
  -DCOLUMNLOGS_TESTS=OFF -DCOLUMNLOGS_BENCH=OFF >/dev/null

names=()
for source in fuzz/*_fuzz.cpp; do
  name=$(basename "$source" _fuzz.cpp)
  names+=("$name")
done
targets=("${names[@]/#/fuzz_}")
jobs=$(nproc 2>/dev/null || echo 2)
cmake --build "$build" -j "$jobs" --target "${targets[@]}"

mkdir -p "$build/artifacts"
work=$(mktemp -d /tmp/columnlogs_fuzzrun_XXXXXX)
trap 'rm -rf "$work"' EXIT
# The targets' scratch files go below the work directory.
mkdir -p "$work/tmp"
export TMPDIR="$work/tmp"

# One target: the seeds stay untouched, new inputs go to a scratch corpus
# listed first. Its exit status is left in $work/<name>.rc.
run_target() {
  local name=$1
  mkdir -p "$work/$name"
  set +e
  "$build/bin/fuzz_$name" -max_total_time="$seconds" -timeout="$input_timeout" -close_fd_mask=3 \
    -print_final_stats=1 -artifact_prefix="$build/artifacts/$name-" \
    "$work/$name" "fuzz/corpus/$name" >"$work/$name.log" 2>&1
  echo $? >"$work/$name.rc"
}

# As many targets at once as there are processors.
running=0
for name in "${names[@]}"; do
  run_target "$name" &
  running=$((running + 1))
  if [ "$running" -ge "$jobs" ]; then
    wait -n || true
    running=$((running - 1))
  fi
done
wait

failed=0
for name in "${names[@]}"; do
  if [ "$(cat "$work/$name.rc" 2>/dev/null)" = 0 ]; then
    echo "fuzz_$name: $(grep -E '^#[0-9]+[[:space:]]+DONE' "$work/$name.log" | tail -1)"
  else
    echo "fuzz_$name FAILED:"
    tail -n 60 "$work/$name.log"
    failed=1
  fi
done
exit "$failed"
