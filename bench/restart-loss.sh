#!/usr/bin/env bash
# Lines lost and repeated across restarts and rotations, counted by sequence
# number and independent of the agent's own counters. A writer appends RATE
# lines a second, each firing exactly one event, to three logs of type 0 for
# DURATION seconds:
#   a.log  rotated by rename every 3 to 7 seconds (a.log.N, then a new a.log);
#   b.log  rotated by copytruncate as often (the writer holds while it copies
#          to b.log.N and truncates, so every line is in some file);
#   c-DATED.log  a dated name (DATED, default [YYYYMMDDhhmm]: a new file each
#          minute; a run shorter than a minute starts in the last 20 seconds
#          of one, so that the name turns over while it runs).
# Meanwhile the agent is killed every 2 to 5 seconds (SIGKILL; the third of
# every five stops is a SIGTERM) and started again a second later. Run with
# POSITION_FILE and FOLLOW_ROTATION, then without them.
#   DURATION (default 200), RATE (default 10), SEED (default 1), DATED,
#   ONLY=keys (the run with the keys only), AGENT (default build/bin/ColumnLogs)
# Prints one line per run and log: lines written, missing, repeated.
set -euo pipefail
trap 'echo "restart-loss: failed (status $?) at line $LINENO: $BASH_COMMAND" >&2' ERR
cd "$(dirname "$0")/.."
top=$(pwd)
duration=${DURATION:-200} rate=${RATE:-10} dated=${DATED:-[YYYYMMDDhhmm]}
seed=${SEED:-1}
agent_bin=${AGENT:-build/bin/ColumnLogs}
case $agent_bin in /*) ;; *) agent_bin=$top/$agent_bin ;; esac
work=$(mktemp -d /tmp/columnlogs-restart.XXXXXX)
trap 'kill $(jobs -p) 2>/dev/null || true; rm -rf "$work"' EXIT
T=$'\x03\x1f\x7e'
# The dated name's file now, as the agent expands it.
dated_now() {
  local f=$dated
  f=${f//YYYY/%Y}; f=${f//MM/%m}; f=${f//DD/%d}; f=${f//hh/%H}; f=${f//mm/%M}; f=${f//ss/%S}
  date +"c-${f//[\[\]]/}.log"
}

entry() {  # entry N NAME
  printf '%s\n' "LOG0$1_NAME=$2" "LOG0$1_TYPE=0" "LOG0$1_CHECK_TYPE=1" "LOG0$1_SECLOG_LEVEL_CNT=NULL" \
    "LOG0$1_DELIMITOR=,${T}NULL" "LOG0$1_NUMBER_PATTERN=3${T}2${T}90${T}1${T}${T}" "LOG0$1_CHAR_PATTERN=NULL" \
    "LOG0$1_DATE_PATTERN=NULL" "LOG0$1_PATTERN=NULL"
}

writer() {  # writer DIR: RATE lines a second to each log, with the rotations
  local d=$1 s i n=0 next=$((3 + RANDOM % 5)) seq=0
  for ((s = 0; s < duration; s++)); do
    for ((i = 0; i < rate; i++)); do
      seq=$((seq + 1))
      echo "a,$seq,95" >>"$d/logs/a.log"
      echo "b,$seq,95" >>"$d/logs/b.log"
      echo "c,$seq,95" >>"$d/logs/$(dated_now)"
    done
    if ((s == next)); then
      n=$((n + 1)) next=$((s + 3 + RANDOM % 5))
      mv "$d/logs/a.log" "$d/logs/a.log.$n"
      cp "$d/logs/b.log" "$d/logs/b.log.$n" && : >"$d/logs/b.log"
    fi
    sleep 1
  done
}

run() {  # run NAME KEYS...: prints "kills terms" and the counts per log
  local name=$1 d=$work/$1 pid wpid kills=0 terms=0 end
  shift
  mkdir -p "$d/out" "$d/log" "$d/work" "$d/lib" "$d/logs"
  : >"$d/logs/a.log"; : >"$d/logs/b.log"
  { printf '%s\n' "LOG_PATH=$d/log/" "LOG_MODE=NORMAL" "LOG_VALIDDAY=7" "OUTPUT_PATH=$d/out/" "LINE_WAIT_CNT=10" "$@"
    entry 1 "$d/logs/a.log"; entry 2 "$d/logs/b.log"; entry 3 "$d/logs/c-$dated.log"; } >"$d/agent.conf"
  start() { (cd "$d/work" && exec "$agent_bin" ../agent.conf) 2>/dev/null & pid=$!; }
  start
  sleep 2
  RANDOM=$seed
  writer "$d" &
  wpid=$!
  end=$((SECONDS + duration))
  while [ "$SECONDS" -lt "$end" ]; do
    sleep $((2 + RANDOM % 4))
    if (((kills + terms) % 5 == 2)); then kill -TERM "$pid"; terms=$((terms + 1)); else kill -KILL "$pid"; kills=$((kills + 1)); fi
    wait "$pid" 2>/dev/null || true
    sleep 1
    start
  done
  wait "$wpid"
  sleep 4
  kill -TERM "$pid"; wait "$pid" 2>/dev/null || true
  echo "$name $kills $terms"
  local log written
  for log in a b c; do
    written=$(cat "$d"/logs/$log[.-]* | grep -c "^$log,")
    cat "$d"/out/out_* 2>/dev/null | sed -n "s/.*ORIGINAL_MSG:$log,\([0-9]*\),95\$/\1/p" | sort -n | uniq -c >"$d/counts"
    echo "  $log $written $((written - $(wc -l <"$d/counts"))) $(awk '$1 > 1 { n += $1 - 1 } END { print n + 0 }' "$d/counts")"
  done
}

report() {  # the lines of one run, readable
  local name kills terms log written missing repeated
  read -r name kills terms
  echo "$1 ($kills SIGKILL, $terms SIGTERM):"
  while read -r log written missing repeated; do
    echo "  $log: $written lines, $missing missing, $repeated repeated"
  done
}
echo "restarts and rotations over ${duration} s at ${rate} lines/s per log, every line fires one event"
echo "  a.log renamed, b.log copytruncated every 3 to 7 s, c-${dated}.log dated"
align() {  # a short run starts so that the minute turns over within it
  if ((duration < 60)); then
    while s=$(date +%S); ((10#$s < 38 || 10#$s > 55)); do sleep 1; done
  fi
}
align
run keys "POSITION_FILE=$work/keys/lib/positions" "FOLLOW_ROTATION=1" | report "POSITION_FILE and FOLLOW_ROTATION"
[ "${ONLY:-}" = keys ] && exit 0
align
run plain | report "without them"
