#!/usr/bin/env bash
# The logging facility's tests (tests/LIB), which drive the writer thread, the
# queue and the mutex-guarded paths, built with ThreadSanitizer. Fails on the
# first data race or lock-order report, or on a failing test.
set -euo pipefail
trap 'echo "tsan: failed (status $?) at line $LINENO: $BASH_COMMAND" >&2' ERR
cd "$(dirname "$0")/../.."
build=build-tsan
cmake -S . -B "$build" -DCMAKE_BUILD_TYPE=Debug -DCOLUMNLOGS_TSAN=ON -DCOLUMNLOGS_BENCH=OFF >/dev/null

targets=()
for source in tests/LIB/*_test.cpp; do
  targets+=("LIB_$(basename "$source" .cpp)")
done
cmake --build "$build" -j "$(nproc 2>/dev/null || echo 2)" --target "${targets[@]}"

failed=0
for target in "${targets[@]}"; do
  if TSAN_OPTIONS="halt_on_error=1 second_deadlock_stack=1" "$build/bin/$target" --gtest_brief=1 \
      >"$build/$target.log" 2>&1; then
    echo "$target: $(grep -E '^\[  PASSED  \]' "$build/$target.log" | tail -1)"
  else
    echo "$target FAILED:"
    tail -n 80 "$build/$target.log"
    failed=1
  fi
done
exit "$failed"
