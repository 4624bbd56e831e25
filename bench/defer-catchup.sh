#!/usr/bin/env bash
# Catch-up after a backlog with DEFER_EVENTS=1: one log gets RATE lines a second
# (every 10th fires one event) while the agent is stopped (SIGSTOP) for PAUSE
# seconds; then it goes on. Reports the cycles it takes until the log is
# current, the events delivered against the firing lines written, and the
# same run without the key.
#   PAUSE (default 30), RATE (default 50), AGENT (default build/bin/ColumnLogs)
set -euo pipefail
trap 'echo "defer-catchup: failed (status $?) at line $LINENO: $BASH_COMMAND" >&2' ERR
cd "$(dirname "$0")/.."
top=$(pwd)
pause=${PAUSE:-30} rate=${RATE:-50}
agent_bin=${AGENT:-build/bin/ColumnLogs}
case $agent_bin in /*) ;; *) agent_bin=$top/$agent_bin ;; esac
work=$(mktemp -d /tmp/columnlogs-catchup.XXXXXX)
trap 'kill $(jobs -p) 2>/dev/null || true; rm -rf "$work"' EXIT
T=$'\x03\x1f\x7e'

run() {  # run KEYLINES: prints "cycles events fired"
  local d=$work/$1 seq=0 s i pid
  mkdir -p "$d/out" "$d/log" "$d/work"
  : >"$d/app.log"
  printf '%s\n' "LOG_PATH=$d/log/" "LOG_MODE=NORMAL" "LOG_VALIDDAY=7" "OUTPUT_PATH=$d/out/" "LINE_WAIT_CNT=10" $2 \
    "LOG01_NAME=$d/app.log" "LOG01_TYPE=0" "LOG01_CHECK_TYPE=1" "LOG01_SECLOG_LEVEL_CNT=NULL" "LOG01_DELIMITOR=,${T}NULL" \
    "LOG01_NUMBER_PATTERN=3${T}2${T}90${T}1${T}${T}" "LOG01_CHAR_PATTERN=NULL" "LOG01_DATE_PATTERN=NULL" \
    "LOG01_PATTERN=NULL" >"$d/agent.conf"
  (cd "$d/work" && exec "$agent_bin" ../agent.conf) 2>/dev/null &
  pid=$!
  sleep 2
  kill -STOP "$pid"
  for ((s = 0; s < pause; s++)); do
    for ((i = 0; i < rate; i++)); do
      seq=$((seq + 1))
      if ((seq % 10 == 0)); then echo "a,$seq,95"; else echo "a,$seq,10"; fi
    done >>"$d/app.log"
    sleep 1
  done
  local before
  before=$(grep -c "LogGather end" "$d"/log/*.log)
  kill -CONT "$pid"
  sleep $((pause / 10 + 5))
  kill "$pid"
  wait "$pid" 2>/dev/null || true
  local cycles
  # cycles until current: those with an event ceiling reached, plus the one that read to the end
  cycles=$(($(grep -c "event ceiling reached" "$d"/log/*.log || true) + 1))
  echo "$cycles $(cat "$d"/out/out_* 2>/dev/null | wc -l) $((seq / 10)) $before"
}

read -r c1 e1 f1 _ < <(run defer DEFER_EVENTS=1)
read -r _ e0 f0 _ < <(run plain "")
echo "backlog of ${pause} s at ${rate} lines/s (every 10th fires): $((pause * rate)) lines, $f1 firing"
echo "  DEFER_EVENTS=1: $e1 of $f1 events delivered, current after $c1 cycles"
echo "  without the key: $e0 of $f0 events delivered"
