#!/usr/bin/env bash
# Builds the agent and runs it on the bundled example configuration while
# four watched logs grow: a demo application log and three real logs fed a
# few lines a second. The collector (ColumnTool collect) ships the events to
# a JSON Lines file as the agent hands them off; they are printed as they arrive.
# DURATION (seconds, default 20) sets how long it runs.
set -euo pipefail
cd "$(dirname "$0")/.."
top=$(pwd)
bash scripts/setup-debian.sh
cmake -S . -B build -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
cmake --build build -j "$(nproc 2>/dev/null || echo 2)" --target ColumnLogs ColumnTool >/dev/null

duration=${DURATION:-20}
run="$top/examples/run"
rm -rf "$run"
mkdir -p "$run/work" "$run/log" "$run/out" "$run/logs"
sed -e "s|@RUN@|$run|g" -e 's/{~}/\x03\x1f\x7e/g' -e 's/{|}/\x03\x1f\x7c/g' \
  -e "s|^COLLECT_TO=.*|COLLECT_TO=jsonl:$run/events.jsonl|" \
  examples/columnlogs.conf.readable >"$run/columnlogs.conf"
: >"$run/logs/demo.log"
for name in HealthApp Zookeeper BGL; do : >"$run/logs/$name.log"; done

(cd "$run/work" && exec "$top/build/bin/ColumnLogs" "$run/columnlogs.conf") &
agent=$!
pids=("$agent")
"$top/build/bin/ColumnTool" collect "$run/columnlogs.conf" 2>"$run/collect.err" &
pids+=($!)
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

echo "agent running (pid $agent) for ${duration}s; events as the collector delivers them to $run/events.jsonl:"
shown=0
for ((s = 0; s <= duration + 2; s++)); do
  sleep 1
  total=$(wc -l <"$run/events.jsonl" 2>/dev/null || echo 0)
  [ "$total" -gt "$shown" ] || continue
  sed -n "$((shown + 1)),$((shown < total - 4 ? shown + 4 : total))p" "$run/events.jsonl" | cut -c1-220
  if [ "$((total - shown))" -gt 4 ]; then echo "    ... $((total - shown)) events this second"; fi
  shown=$total
done
echo "done: $(wc -l <"$run/events.jsonl" 2>/dev/null || echo 0) events delivered, $(ls "$run"/out | wc -l) entries left in $run/out/; diagnostic log in $run/log/, collector's in $run/collect.err"
