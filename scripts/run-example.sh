#!/usr/bin/env bash
# Builds the agent and runs it on the bundled example configuration while
# four watched logs grow: a demo application log and three real logs fed a
# few lines a second. Prints the events as the agent hands them off.
# DURATION (seconds, default 20) sets how long it runs.
set -euo pipefail
cd "$(dirname "$0")/.."
top=$(pwd)
bash scripts/setup-debian.sh
cmake -S . -B build -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
cmake --build build -j "$(nproc 2>/dev/null || echo 2)" --target ColumnLogs >/dev/null

duration=${DURATION:-20}
run="$top/examples/run"
rm -rf "$run"
mkdir -p "$run/work" "$run/log" "$run/out" "$run/logs"
sed -e "s|@RUN@|$run|g" -e 's/{~}/\x03\x1f\x7e/g' -e 's/{|}/\x03\x1f\x7c/g' \
  examples/columnlogs.conf.readable >"$run/columnlogs.conf"
: >"$run/logs/demo.log"
for name in HealthApp Zookeeper BGL; do : >"$run/logs/$name.log"; done

(cd "$run/work" && exec "$top/build/bin/ColumnLogs" "$run/columnlogs.conf") &
agent=$!
pids=("$agent")
cleanup() { kill "${pids[@]}" 2>/dev/null || true; wait 2>/dev/null || true; }
trap cleanup EXIT

examples/demo-writer.sh "$run/logs/demo.log" "$duration" 5 &
pids+=($!)
# Real logs grow by a slice of their lines every second.
(
  for ((s = 0; s < duration; s++)); do
    for name in HealthApp Zookeeper BGL; do
      sed -n "$((s * 30 + 1)),$(((s + 1) * 30))p" "tests/data/real-logs/${name}_2k.log" >>"$run/logs/$name.log"
    done
    sleep 1
  done
) &
pids+=($!)

echo "agent running (pid $agent) for ${duration}s; events from $run/out ({|} is the bar separator):"
declare -A shown=()
for ((s = 0; s <= duration + 2; s++)); do
  sleep 1
  for f in "$run"/out/out_*; do
    [ -e "$f" ] || continue
    [ -n "${shown[$f]:-}" ] && continue
    shown[$f]=1
    echo "--- $(basename "$f")"
    sed -e 's/\x03\x1f\x7c/{|}/g' "$f" | cut -c1-160 | head -n 8
    n=$(wc -l <"$f")
    [ "$n" -gt 8 ] && echo "    ... $n events in this file"
  done
done
echo "done: $(cat "$run"/out/out_* 2>/dev/null | wc -l) events in $(ls "$run"/out | wc -l) files; diagnostic log in $run/log/"
