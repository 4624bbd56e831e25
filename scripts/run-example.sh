#!/usr/bin/env bash
# Builds the agent, installs it into examples/run/ laid out as an installed
# tree (the agent's working directory agent/work/ reaches ../../utils/ as it
# does when installed), and runs it on the bundled example configuration while
# four watched logs grow: a demo application log that bursts every few seconds
# and three real logs fed a few lines a second. Prints the events as the agent
# hands them off. DURATION (seconds, default 20) sets how long it runs.
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
# logs in var/logs/, events in var/out/ and diagnostic log in var/log/.
cmake --install build --prefix "$run" >/dev/null
conf="$run/etc/columnlogs.conf"
: >"$run/var/logs/demo.log"
for name in HealthApp Zookeeper BGL; do : >"$run/var/logs/$name.log"; done
"$run/bin/ColumnTool" check --start "$conf" >"$run/check.txt" || { cat "$run/check.txt" >&2; exit 1; }

(cd "$run/agent/work" && exec ../../bin/ColumnLogs "$conf") &
agent=$!
pids=("$agent")
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

echo "agent running (pid $agent) for ${duration}s; events from $run/var/out ({|} is the bar separator):"
declare -A shown=()
for ((s = 0; s <= duration + 2; s++)); do
  sleep 1
  for f in "$run"/var/out/out_*; do
    [ -e "$f" ] || continue
    [ -n "${shown[$f]:-}" ] && continue
    shown[$f]=1
    echo "--- $(basename "$f")"
    # The first rule events, and every line-rate event (a burst second).
    { grep -av ' log count\[' "$f" | head -n 6 || true; grep -a ' log count\[' "$f" || true; } |
      sed -e 's/\x03\x1f\x7c/{|}/g' | cut -c1-160
    n=$(wc -l <"$f")
    [ "$n" -gt 6 ] && echo "    ... $n events in this file"
  done
done
echo "done: $(cat "$run"/var/out/out_* 2>/dev/null | wc -l) events in $(ls "$run"/var/out | wc -l) files; diagnostic log in $run/var/log/"
echo "--- the agent's status file, as ColumnTool status shows it:"
"$run/bin/ColumnTool" status "$conf" || true
