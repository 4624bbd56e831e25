#!/usr/bin/env bash
# Keeps the benchmarks working: one tiny run of each Google Benchmark binary
# and of the end-to-end bench script, against the normal build in build/.
# Skipped when the build has no benchmarks (Google Benchmark not installed).
set -euo pipefail
trap 'echo "bench-smoke: failed (status $?) at line $LINENO: $BASH_COMMAND" >&2' ERR
cd "$(dirname "$0")/../.."
build=${BUILD:-build}
if [ ! -x "$build/bin/bench_column" ]; then
  echo "bench-smoke: no benchmarks in $build/bin, skipped"
  exit 0
fi
# Restarts and rotations lose no line with the read positions on disk and
# logs followed by identity (short form; repeats are allowed after a SIGKILL,
# from the cycle in flight).
loss_out=$(mktemp)
DURATION=20 ONLY=keys AGENT=$build/bin/ColumnLogs bash bench/restart-loss.sh >"$loss_out" 2>&1 &
loss_pid=$!
trap 'kill "$loss_pid" 2>/dev/null || true; rm -f "$loss_out"' EXIT
for bench in "$build"/bin/bench_column "$build"/bin/bench_costs "$build"/bin/bench_pattern; do
  [ -x "$bench" ] || continue
  out=$("$bench" --benchmark_min_time=0.001 2>&1)
  if grep -q "ERROR OCCURRED" <<<"$out"; then
    echo "$out" >&2
    echo "bench-smoke: $bench reported an error" >&2
    exit 1
  fi
done
"$build"/bin/bench_wake 1 64 | grep -q "us of CPU per wake-up" || { echo "bench-smoke: bench_wake failed" >&2; exit 1; }
DURATION=2 LINES=20000 FLAT_MAX=100000 BUILD=$build SKIP_BUILD=1 bench/e2e.sh
# The floor program must keep running through the same script in the agent's place.
AGENT=$build/bin/bench_floor PHASES=f DURATION=2 BUILD=$build SKIP_BUILD=1 bench/e2e.sh
# The collector bench, every phase in its short form (about 15 s).
EVENTS=20000 IDLE=2 SOAK=5 BUILD=$build SKIP_BUILD=1 bench/collect.sh
# The restart and rotation loss test (short form) mostly sleeps: it runs
# beside the others and is judged at the end.
if ! wait "$loss_pid"; then
  cat "$loss_out" >&2
  echo "bench-smoke: the restart and rotation loss test failed" >&2
  exit 1
fi
cat "$loss_out"
[ "$(grep -cE "^  [abc]: [0-9]+ lines, 0 missing" "$loss_out")" = 3 ] || { echo "bench-smoke: lines lost across restarts and rotations with POSITION_FILE and FOLLOW_ROTATION" >&2; exit 1; }
