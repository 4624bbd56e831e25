#!/usr/bin/env bash
# Idle cost of an optional key: two agents side by side over 19 quiet logs
# each (same configuration, own folders), one with the extra key lines of
# EXTRA, for DURATION seconds; prints each one's CPU from the scheduler
# (/proc/PID/schedstat, nanoseconds) and the ratio. Run it twice with the
# roles swapped (SWAP=1) to see how much is the host's noise.
#   EXTRA     key lines for the second agent, @DIR@ standing for its folder
#             (default: "STATUS_FILE=@DIR@/agent.prom")
#   DURATION  seconds (default 120); AGENT the binary (default build/bin/ColumnLogs);
#   LOG_MODE  the agents' diagnostic log (default NOLOG: no records, whose writes
#             would hide a small difference)
#   SYSCALLS=1  then counts each agent's system calls for another DURATION
#             seconds under strace: exact where the CPU time is noisy
set -euo pipefail
trap 'echo "options-idle: failed (status $?) at line $LINENO: $BASH_COMMAND" >&2' ERR
cd "$(dirname "$0")/.."
top=$(pwd)
duration=${DURATION:-120}
agent_bin=${AGENT:-build/bin/ColumnLogs}
case $agent_bin in /*) ;; *) agent_bin=$top/$agent_bin ;; esac
extra=${EXTRA:-STATUS_FILE=@DIR@/agent.prom}
[ -x "$agent_bin" ] || { echo "options-idle: missing $agent_bin (build it first)" >&2; exit 1; }

work=$(mktemp -d /tmp/columnlogs-idle.XXXXXX)
pids=()
cleanup() { kill "${pids[@]}" 2>/dev/null || true; wait 2>/dev/null || true; rm -rf "$work"; }
trap cleanup EXIT
T=$'\x03\x1f\x7e'

# setup DIR EXTRA_LINES: 19 quiet logs of 1000 lines and the agent's configuration.
setup() {
  local d=$1 n p
  mkdir -p "$d/logs" "$d/out" "$d/log" "$d/work"
  {
    echo "LOG_PATH=$d/log/"; echo "LOG_MODE=${LOG_MODE:-NOLOG}"; echo "LOG_VALIDDAY=7"
    echo "OUTPUT_PATH=$d/out/"; echo "LINE_WAIT_CNT=10"
    [ -n "$2" ] && printf '%s\n' "${2//@DIR@/$d}"
    for n in $(seq 1 19); do
      p=$(printf 'LOG%02d_' "$n")
      awk -v n="$n" 'BEGIN { for (i = 0; i < 1000; i++) printf "2024-03-15,10:11:%02d,host%02d,cpu=%d%%,mem=40%%,%d,OK,GET /\n", i % 60, n, i % 90, i }' \
        >"$d/logs/app$n.log"
      echo "${p}NAME=$d/logs/app$n.log"; echo "${p}TYPE=0"; echo "${p}CHECK_TYPE=1"; echo "${p}SECLOG_LEVEL_CNT=NULL"
      echo "${p}DELIMITOR=,${T}NULL"; echo "${p}NUMBER_PATTERN=4${T}2${T}97${T}1${T}cpu=${T}%"
      echo "${p}CHAR_PATTERN=7${T}3${T}FATAL${T}1"; echo "${p}DATE_PATTERN=2${T}hh:mm:ss"; echo "${p}PATTERN=NULL"
    done
  } >"$d/agent.conf"
}

plain=$work/plain optioned=$work/optioned
setup "$plain" ""
setup "$optioned" "$extra"
# SWAP=1 starts the agent with the key first.
order=("$plain" "$optioned")
[ "${SWAP:-0}" = 1 ] && order=("$optioned" "$plain")
for d in "${order[@]}"; do
  (cd "$d/work" && exec "$agent_bin" ../agent.conf) &
  pids+=($!)
  [ "$d" = "$plain" ] && plain_pid=$! || optioned_pid=$!
done
sleep 3
ns() { awk '{ print $1 }' "/proc/$1/schedstat"; }
a0=$(ns "$plain_pid") b0=$(ns "$optioned_pid") t0=$(date +%s.%N)
sleep "$duration"
a1=$(ns "$plain_pid") b1=$(ns "$optioned_pid") t1=$(date +%s.%N)
awk -v a="$((a1 - a0))" -v b="$((b1 - b0))" -v t0="$t0" -v t1="$t1" -v extra="${extra//$'\n'/; }" -v when="$(date -u +%FT%TZ), load $(cut -d' ' -f1-3 /proc/loadavg)" 'BEGIN {
  s = t1 - t0
  printf "idle, 19 quiet logs, %.0f s side by side (%s)\n", s, when
  printf "  without the key: %.4f %% of a core (%.0f us a second)\n", a / 1e9 / s * 100, a / 1e3 / s
  printf "  with %s: %.4f %% of a core (%.0f us a second)\n", extra, b / 1e9 / s * 100, b / 1e3 / s
  printf "  ratio with / without: %.3f\n", (a > 0 ? b / a : 0)
}'
if [ "${SYSCALLS:-0}" = 1 ]; then
  command -v strace >/dev/null || { echo "options-idle: strace is not installed: no system call count" >&2; exit 0; }
  strace -c -o "$work/plain.calls" -p "$plain_pid" 2>/dev/null & tp=$!
  strace -c -o "$work/optioned.calls" -p "$optioned_pid" 2>/dev/null & to=$!
  sleep "$duration"
  kill -INT "$tp" "$to"; wait "$tp" "$to" 2>/dev/null || true
  calls() { awk '$NF == "total" { print $4 }' "$1"; }
  echo "  system calls a second: $(awk -v n="$(calls "$work/plain.calls")" -v s="$duration" 'BEGIN { printf "%.1f", n / s }') without," \
    "$(awk -v n="$(calls "$work/optioned.calls")" -v s="$duration" 'BEGIN { printf "%.1f", n / s }') with the key"
fi
