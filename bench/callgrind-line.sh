#!/usr/bin/env bash
# Instructions per line of the agent, counted by callgrind: the agent reads a
# 4,000-line log of the end-to-end bench's format with the bench
# configuration (line filter, 3 numeric and 2 text rules) in its first
# cycle, then it is stopped. Instruction counts do not depend on the load of
# the machine, so they compare builds where timings cannot.
#
# Environment: BUILD (default build-bench, must hold ColumnLogs and
# bench_logwriter), LINES (default 4000; keep the events of one cycle, about
# 1 % of the lines, below 100).
set -euo pipefail
cd "$(dirname "$0")/.."
top=$(pwd)
build=${BUILD:-$top/build-bench}
case $build in /*) ;; *) build=$top/$build ;; esac
lines=${LINES:-4000}
command -v valgrind >/dev/null || { echo "valgrind is needed" >&2; exit 1; }

work=$(mktemp -d /tmp/columnlogs-cg.XXXXXX)
agent=""
cleanup() {
  [ -n "$agent" ] && kill "$agent" 2>/dev/null && wait "$agent" 2>/dev/null
  [ -n "${KEEP:-}" ] && cp "$work/cg.out" "$KEEP"; rm -rf "$work"
}
trap cleanup EXIT
mkdir -p "$work/out" "$work/log" "$work/logs" "$work/work"
"$build/bin/bench_logwriter" gen "$work/logs/app.log" "$lines" 7 >/dev/null
T=$'\x03\x1f\x7e'
B=$'\x03\x1f\x7c'
cat >"$work/agent.conf" <<EOF
LOG_PATH=$work/log/
LOG_MODE=NORMAL
LOG_VALIDDAY=7
OUTPUT_PATH=$work/out/
LINE_WAIT_CNT=10
LOG01_NAME=$work/logs/app.log
LOG01_TYPE=2
LOG01_CHECK_TYPE=1
LOG01_SECLOG_LEVEL_CNT=NULL
LOG01_DELIMITOR=,${T}NULL
LOG01_NUMBER_PATTERN=4${T}2${T}97${T}1${T}cpu=${T}%${B}5${T}2${T}98.5${T}2${T}mem=${T}%${B}6${T}1${T}4900${T}1${T}NULL${T}NULL
LOG01_CHAR_PATTERN=7${T}3${T}FATAL${T}1${B}8${T}2${T}^DELETE .*/admin${T}3
LOG01_DATE_PATTERN=NULL
LOG01_PATTERN=1${B}^20.*cpu=
EOF
size=$(stat -c %s "$work/logs/app.log")
(cd "$work/work" && exec valgrind --tool=callgrind --callgrind-out-file="$work/cg.out" \
  "$build/bin/ColumnLogs" "$work/agent.conf" 2>/dev/null) &
agent=$!
for _ in $(seq 1 120); do
  sleep 1
  grep -q "LOG offset save : $size\$" "$work"/log/* 2>/dev/null && break
done
sleep 1
kill "$agent"
wait "$agent" 2>/dev/null || true
agent=""
echo "lines: $lines, events: $(cat "$work"/out/* 2>/dev/null | wc -l)"
callgrind_annotate --inclusive=yes "$work/cg.out" 2>/dev/null |
  awk -v n="$lines" '/PROGRAM TOTALS|fReadTurn|fLineFilter|fColumnIndexFind|fColumnFaultSearch|NstrOnetok|fLineRateCheck/ {
    ir = $1; gsub(",", "", ir)
    if ($0 ~ /PROGRAM TOTALS/) name = "whole program (start-up included)"
    else { name = $0; sub(/^[^:]*:/, "", name); sub(/\(.*$/, "", name) }
    printf "%-36s %12d instructions %7.0f per line\n", name, ir, ir / n }'
