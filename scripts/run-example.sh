#!/usr/bin/env bash
# Builds the agent, installs it into examples/run/ laid out as an installed
# tree (the agent's working directory agent/work/ reaches ../../utils/ as it
# does when installed), and runs it on the bundled example configuration while
# four watched logs grow: a demo application log that bursts every few seconds
# and three real logs fed a few lines a second. The collector (ColumnTool
# collect) ships the events to a JSON Lines file as the agent hands them off;
# they are printed as they arrive, then the agent's status table.
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
# The install writes the example configuration as etc/columnlogs.conf, with its
# logs in var/logs/, events in var/out/ and diagnostic log in var/log/; the
# collector delivers to a JSON Lines file here instead of the system's syslog.
cmake --install build --prefix "$run" >/dev/null
conf="$run/etc/columnlogs.conf"
sed -i "s|^COLLECT_TO=.*|COLLECT_TO=jsonl:$run/var/events.jsonl|" "$conf"
: >"$run/var/logs/demo.log"
for name in HealthApp Zookeeper BGL; do : >"$run/var/logs/$name.log"; done
"$run/bin/ColumnTool" check --start "$conf" >"$run/check.txt" || { cat "$run/check.txt" >&2; exit 1; }

(cd "$run/agent/work" && exec ../../bin/ColumnLogs "$conf") &
agent=$!
pids=("$agent")
"$run/bin/ColumnTool" collect "$conf" 2>"$run/collect.err" &
pids+=($!)
cleanup() { kill "${pids[@]}" 2>/dev/null || true; wait 2>/dev/null || true; }
trap cleanup EXIT

examples/demo-writer.sh "$run/var/logs/demo.log" "$duration" 5 6 &
pids+=($!)
# Real logs grow by a slice of their lines every second.
(
  for ((s = 0; s < duration; s++)); do
    for name in HealthApp Zookeeper BGL; do
      sed -n "$((s * 30 + 1)),$(((s + 1) * 30))p" "tests/data/real-logs/${name}_2k.log" >>"$run/var/logs/$name.log"
    done
    sleep 1
  done
) &
pids+=($!)

events=$run/var/events.jsonl
echo "agent running (pid $agent) for ${duration}s; events as the collector delivers them to $events:"
shown=0
for ((s = 0; s <= duration + 2; s++)); do
  sleep 1
  total=$(wc -l <"$events" 2>/dev/null || echo 0)
  [ "$total" -gt "$shown" ] || continue
  # The first events of the second, and every line-rate event (a burst second).
  sed -n "$((shown + 1)),${total}p" "$events" | { grep -v '"kind":"rate"' | head -n 3 || true; } | cut -c1-220
  sed -n "$((shown + 1)),${total}p" "$events" | { grep '"kind":"rate"' || true; } | cut -c1-220
  if [ "$((total - shown))" -gt 3 ]; then echo "    ... $((total - shown)) events this second"; fi
  shown=$total
done
echo "done: $(wc -l <"$events" 2>/dev/null || echo 0) events delivered, $(ls "$run"/var/out | wc -l) entries left in $run/var/out/; diagnostic log in $run/var/log/, collector's in $run/collect.err"
echo "--- the agent's status file, as ColumnTool status shows it:"
"$run/bin/ColumnTool" status "$conf" || true
