#!/usr/bin/env bash
# Builds the libFuzzer targets of fuzz/ with clang, AddressSanitizer and
# UndefinedBehaviorSanitizer, and runs each for a bounded time starting from
# its seeds in fuzz/corpus/<Name>. Fails on the first crash, leak, hang of
# more than FUZZ_INPUT_TIMEOUT seconds on one input, or broken property; the
# input that did it is kept in build-fuzz/artifacts/.
#   FUZZ_SECONDS  time per target (default 30)
set -euo pipefail
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
cmake --build "$build" -j "$(nproc 2>/dev/null || echo 2)" --target "${targets[@]}"

mkdir -p "$build/artifacts"
work=$(mktemp -d /tmp/columnlogs_fuzzrun_XXXXXX)
trap 'rm -rf "$work"' EXIT
failed=0
for name in "${names[@]}"; do
  mkdir -p "$work/$name"
  log="$work/$name.log"
  # The seeds stay untouched: new inputs go to a scratch corpus listed first.
  if "$build/bin/fuzz_$name" -max_total_time="$seconds" -timeout="$input_timeout" -close_fd_mask=3 \
      -print_final_stats=1 -artifact_prefix="$build/artifacts/$name-" \
      "$work/$name" "fuzz/corpus/$name" >"$log" 2>&1; then
    echo "fuzz_$name: $(grep -E '^#[0-9]+[[:space:]]+DONE' "$log" | tail -1)"
  else
    echo "fuzz_$name FAILED:"
    tail -n 60 "$log"
    failed=1
  fi
done
exit "$failed"
