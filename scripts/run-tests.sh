#!/usr/bin/env bash
# Builds and runs every test: a normal build, then the same tests under
# AddressSanitizer and UndefinedBehaviorSanitizer.
set -euo pipefail
trap 'echo "run-tests: failed (status $?) at line $LINENO: $BASH_COMMAND" >&2' ERR
cd "$(dirname "$0")/.."
bash scripts/setup-debian.sh
jobs=$(nproc 2>/dev/null || echo 2)
# Most test cases wait for the agent's one-second cycles, so twice as many
# run side by side as there are processors.
test_jobs=$((jobs * 2))

echo "== normal build =="
cmake -S . -B build -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
cmake --build build -j "$jobs"
ctest --test-dir build -j "$test_jobs" --output-on-failure

echo "== sanitizer build (address, undefined) =="
cmake -S . -B build-asan -DCMAKE_BUILD_TYPE=Debug -DCOLUMNLOGS_SANITIZE=ON -DCOLUMNLOGS_BENCH=OFF >/dev/null
cmake --build build-asan -j "$jobs"
ASAN_OPTIONS=detect_leaks=1 UBSAN_OPTIONS=print_stacktrace=1 \
  ctest --test-dir build-asan -j "$test_jobs" --output-on-failure

# Further checks (package, fuzzing, thread sanitizer ...), one script each, in name order.
for check in scripts/checks/*.sh; do
  [ -e "$check" ] || continue
  echo "== $(basename "$check" .sh) =="
  bash "$check"
done
