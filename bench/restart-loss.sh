#!/usr/bin/env bash
# Lines lost and repeated across restarts, counted by sequence number and
# independent of the agent's own counters: a writer appends RATE lines a
# second, each firing exactly one event, to one log of type 0 for DURATION
# seconds, while the agent is killed (SIGKILL, and every fourth time SIGTERM)
# and restarted every 2 to 5 seconds. Run with POSITION_FILE and without it.
#   DURATION (default 40), RATE (default 10), SEED (default 1),
#   AGENT (default build/bin/ColumnLogs)
set -euo pipefail
trap 'echo "restart-loss: failed (status $?) at line $LINENO: $BASH_COMMAND" >&2' ERR
cd "$(dirname "$0")/.."
top=$(pwd)
duration=${DURATION:-40} rate=${RATE:-10}
RANDOM=${SEED:-1}
agent_bin=${AGENT:-build/bin/ColumnLogs}
case $agent_bin in /*) ;; *) agent_bin=$top/$agent_bin ;; esac
work=$(mktemp -d /tmp/columnlogs-restart.XXXXXX)
trap 'kill $(jobs -p) 2>/dev/null || true; rm -rf "$work"' EXIT
T=$'\x03\x1f\x7e'

run() {  # run NAME KEYLINE: prints "written missing repeated kills terms"
  local d=$work/$1 pid writer kills=0 terms=0 end
  mkdir -p "$d/out" "$d/log" "$d/work" "$d/lib"
  : >"$d/app.log"
  printf '%s\n' "LOG_PATH=$d/log/" "LOG_MODE=NORMAL" "LOG_VALIDDAY=7" "OUTPUT_PATH=$d/out/" "LINE_WAIT_CNT=10" $2 \
    "LOG01_NAME=$d/app.log" "LOG01_TYPE=0" "LOG01_CHECK_TYPE=1" "LOG01_SECLOG_LEVEL_CNT=NULL" "LOG01_DELIMITOR=,${T}NULL" \
    "LOG01_NUMBER_PATTERN=3${T}2${T}90${T}1${T}${T}" "LOG01_CHAR_PATTERN=NULL" "LOG01_DATE_PATTERN=NULL" \
    "LOG01_PATTERN=NULL" >"$d/agent.conf"
  start() { (cd "$d/work" && exec "$agent_bin" ../agent.conf) 2>/dev/null & pid=$!; }
  start
  sleep 2
  ( seq=0; for ((s = 0; s < duration; s++)); do
      for ((i = 0; i < rate; i++)); do seq=$((seq + 1)); echo "a,$seq,95"; done >>"$d/app.log"
      sleep 1
    done ) &
  writer=$!
  end=$((SECONDS + duration))
  while [ "$SECONDS" -lt "$end" ]; do
    sleep $((2 + RANDOM % 4))
    if (((kills + terms) % 4 == 3)); then kill -TERM "$pid"; terms=$((terms + 1)); else kill -KILL "$pid"; kills=$((kills + 1)); fi
    wait "$pid" 2>/dev/null || true
    sleep 1
    start
  done
  wait "$writer"
  sleep 3
  kill -TERM "$pid"; wait "$pid" 2>/dev/null || true
  local written
  written=$(wc -l <"$d/app.log")
  cat "$d"/out/out_* 2>/dev/null | sed -n 's/.*ORIGINAL_MSG:a,\([0-9]*\),95$/\1/p' | sort -n | uniq -c >"$d/counts"
  echo "$written $((written - $(wc -l <"$d/counts"))) $(awk '$1 > 1 { n += $1 - 1 } END { print n + 0 }' "$d/counts") $kills $terms"
}

read -r w1 m1 r1 k1 t1 < <(run positions "POSITION_FILE=$work/positions/lib/positions")
read -r w0 m0 r0 k0 t0 < <(run plain "")
echo "restarts over ${duration} s at ${rate} lines/s, every line fires one event"
echo "  POSITION_FILE: $w1 lines, $m1 missing, $r1 repeated ($k1 SIGKILL, $t1 SIGTERM)"
echo "  without it:    $w0 lines, $m0 missing, $r0 repeated ($k0 SIGKILL, $t0 SIGTERM)"
