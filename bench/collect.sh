#!/usr/bin/env bash
# Bench of the collector (ColumnTool collect), every phase in one run, side by side:
#  (j) throughput to jsonl: EVENTS events in out_ files of 2,000 lines (a busy
#      agent's cycle) wait in the spool; the collector starts and the clock runs
#      until the spool is empty. Events per second, and the collector's CPU.
#  (t) the same events through syslog:tcp to a real rsyslogd on a loopback port
#      that writes every message to a file: wall time until the last message is
#      written, and CPU per event of the collector and of rsyslogd.
#  (i) idle: the agent (one watched log that does not grow) and the collector
#      (empty spool) side by side for IDLE seconds; CPU of each, from the
#      scheduler's nanoseconds (/proc/PID/task/*/schedstat).
#  (s) soak: the agent watches a log that gets one firing line and two quiet
#      lines every second for SOAK seconds, the collector ships to jsonl; the
#      spool's entry count is sampled every 0.1 s (highest count reported), and
#      the events delivered are compared with `ColumnTool replay --all --raw`
#      over the whole log.
# Environment: EVENTS (default 400000), IDLE (default 60), SOAK (default 600),
# PHASES (default "j t i s"), BUILD (default build-bench, configured Release),
# SKIP_BUILD=1 to use the binaries already there.
set -euo pipefail
cd "$(dirname "$0")/.."
top=$(pwd)
events=${EVENTS:-400000}
idle=${IDLE:-60}
soak=${SOAK:-600}
phases=${PHASES:-j t i s}
build=${BUILD:-$top/build-bench}
case $build in /*) ;; *) build=$top/$build ;; esac
export LC_ALL=C
if [ "${SKIP_BUILD:-0}" != 1 ]; then
  cmake -S . -B "$build" -DCMAKE_BUILD_TYPE=Release -DCOLUMNLOGS_TESTS=OFF >/dev/null
  cmake --build "$build" -j2 --target ColumnLogs ColumnTool >/dev/null
fi
tool=$build/bin/ColumnTool
agent=$build/bin/ColumnLogs
# On the disk of the work tree (fsync costs what it costs there), not in a tmpfs.
work=$(mktemp -d "$top/build-bench-collect.XXXXXX")
pids=()
cleanup() {
  for p in "${pids[@]}"; do kill "$p" 2>/dev/null || true; done
  wait 2>/dev/null || true
  rm -rf "$work"
}
trap cleanup EXIT
BAR=$'\x03\x1f\x7c'
TILDE=$'\x03\x1f\x7e'
hz=$(getconf CLK_TCK)

cpu_ticks() { awk '{print $14 + $15}' "/proc/$1/stat"; }  # user + system, all threads, dead ones too
cpu_ns() { cat /proc/"$1"/task/*/schedstat | awk '{s += $1} END {print s}'; }
now_ns() { date +%s%N; }
wait_for() {  # wait_for SECONDS COMMAND...: true once COMMAND succeeds
  local end=$((SECONDS + $1)); shift
  until "$@"; do [ "$SECONDS" -lt "$end" ] || return 1; sleep 0.05; done
}
spool_empty() { [ -z "$(ls "$1")" ]; }

# EVENTS realistic rule events (log lines of about 110 bytes) in out_ files of 2,000 lines.
fill_spool() {
  mkdir -p "$1"
  awk -v n="$events" -v dir="$1" -v bar="$BAR" 'BEGIN {
    for (i = 0; i < n; i++) {
      if (i % 2000 == 0) { if (f) close(f); f = sprintf("%s/out_20240101-%02d%02d%02d", dir, int(i / 2000 / 3600), int(i / 2000 / 60) % 60, int(i / 2000) % 60) }
      printf "1|1%s2%sCOLUMN[4] Value[%d] > 97, ORIGINAL_MSG:2024-03-15,10:11:12,host%02d,cpu=%d%%,mem=41%%,%d,OK,GET /api/items/%d\n", bar, bar, 98 + i % 2, i % 50, 98 + i % 2, i % 9000, i > f
    }
  }'
}

report=()
if [[ " $phases " == *" j "* ]]; then
  fill_spool "$work/j/out"
  printf 'OUTPUT_PATH=%s/j/out/\nCOLLECT_TO=jsonl:%s/j/events.jsonl\n' "$work" "$work" >"$work/j/c.conf"
  t0=$(now_ns)
  "$tool" collect "$work/j/c.conf" 2>"$work/j/err" &
  pid=$!; pids+=("$pid")
  wait_for 600 spool_empty "$work/j/out"
  t1=$(now_ns)
  cpu=$(cpu_ticks "$pid")
  kill "$pid"; wait "$pid" || true
  got=$(wc -l <"$work/j/events.jsonl")
  report+=("$(awk -v n="$got" -v ns=$((t1 - t0)) -v c="$cpu" -v hz="$hz" 'BEGIN {
    printf "jsonl: %d events in %.2f s = %.0f events/s; collector CPU %.2f s = %.2f us/event", n, ns / 1e9, n / (ns / 1e9), c / hz, c / hz / n * 1e6 }')")
fi

if [[ " $phases " == *" t "* ]]; then
  if [ ! -x /usr/sbin/rsyslogd ]; then
    report+=("syslog:tcp: skipped, /usr/sbin/rsyslogd is not installed (Debian package rsyslog)")
  else
    fill_spool "$work/t/out"
    port=$(python3 -c 'import socket; s=socket.socket(); s.bind(("127.0.0.1", 0)); print(s.getsockname()[1])' 2>/dev/null || echo 20514)
    cat >"$work/t/rsyslog.conf" <<CONF
global(workDirectory="$work/t" maxMessageSize="64k")
module(load="imtcp")
input(type="imtcp" address="127.0.0.1" port="$port")
template(name="f" type="string" string="%timereported:::date-rfc3339% %hostname% %msgid% %structured-data% %msg%\n")
*.* action(type="omfile" file="$work/t/received.log" template="f")
CONF
    timeout 900 /usr/sbin/rsyslogd -n -f "$work/t/rsyslog.conf" -i "$work/t/rsyslog.pid" &
    pids+=($!)
    wait_for 10 test -s "$work/t/rsyslog.pid"
    rsyslog=$(cat "$work/t/rsyslog.pid")
    sleep 0.5
    printf 'OUTPUT_PATH=%s/t/out/\nCOLLECT_TO=syslog:tcp:127.0.0.1:%s\n' "$work" "$port" >"$work/t/c.conf"
    r0=$(cpu_ticks "$rsyslog")
    t0=$(now_ns)
    "$tool" collect "$work/t/c.conf" 2>"$work/t/err" &
    pid=$!; pids+=("$pid")
    received() { [ "$({ wc -l <"$work/t/received.log"; } 2>/dev/null || echo 0)" -ge "$events" ]; }
    wait_for 900 received
    t1=$(now_ns)
    cpu=$(cpu_ticks "$pid")
    r1=$(cpu_ticks "$rsyslog")
    kill "$pid"; wait "$pid" || true
    got=$(wc -l <"$work/t/received.log")
    report+=("$(awk -v n="$got" -v ns=$((t1 - t0)) -v c="$cpu" -v r=$((r1 - r0)) -v hz="$hz" 'BEGIN {
      printf "syslog:tcp to rsyslogd: %d events in %.2f s = %.0f events/s; CPU per event: collector %.2f us, rsyslogd %.2f us", n, ns / 1e9, n / (ns / 1e9), c / hz / n * 1e6, r / hz / n * 1e6 }')")
  fi
fi

# An agent configuration: one log, column 3 above 90 fires (lines "a,b,NN").
# The agent runs in DIR/agent/work, so that ../../utils/ is the tree's utils/.
agent_conf() {  # agent_conf DIR
  mkdir -p "$1/out" "$1/log" "$1/agent/work"
  ln -s "$top/utils" "$1/utils"
  : >"$1/app.log"
  {
    printf 'LOG_PATH=%s/log/\nLOG_MODE=ERROR\nLOG_VALIDDAY=7\nOUTPUT_PATH=%s/out/\nLINE_WAIT_CNT=10\n' "$1" "$1"
    printf 'COLLECT_TO=jsonl:%s/events.jsonl\n' "$1"
    printf 'LOG01_NAME=%s/app.log\nLOG01_TYPE=2\nLOG01_CHECK_TYPE=1\nLOG01_SECLOG_LEVEL_CNT=NULL\n' "$1"
    printf 'LOG01_DELIMITOR=,%sNULL\nLOG01_NUMBER_PATTERN=3%s2%s90%s1%s%s\n' "$TILDE" "$TILDE" "$TILDE" "$TILDE" "$TILDE" "$TILDE"
    printf 'LOG01_CHAR_PATTERN=NULL\nLOG01_DATE_PATTERN=NULL\nLOG01_PATTERN=NULL\n'
  } >"$1/agent.conf"
}

# The agent and the collector on DIR's configuration; their pids in apid and cpid.
start_pair() {
  agent_conf "$1"
  (cd "$1/agent/work" && exec "$agent" "$1/agent.conf") &
  apid=$!; pids+=("$apid")
  "$tool" collect "$1/agent.conf" 2>"$1/err" &
  cpid=$!; pids+=("$cpid")
}

if [[ " $phases " == *" i "* ]]; then
  start_pair "$work/i"
  sleep 3  # start-up done
  a0=$(cpu_ns "$apid"); c0=$(cpu_ns "$cpid")
  sleep "$idle"
  a1=$(cpu_ns "$apid"); c1=$(cpu_ns "$cpid")
  kill "$apid" "$cpid"; wait "$apid" "$cpid" 2>/dev/null || true
  report+=("$(awk -v a=$((a1 - a0)) -v c=$((c1 - c0)) -v s="$idle" 'BEGIN {
    printf "idle over %d s: agent %.3f ms CPU (%.1f us/s), collector %.3f ms CPU (%.1f us/s)", s, a / 1e6, a / 1e3 / s, c / 1e6, c / 1e3 / s }')")
fi

if [[ " $phases " == *" s "* ]]; then
  start_pair "$work/s"
  (
    for ((s = 0; s < soak; s++)); do
      printf 'x,q,%d\nx,q,%d\nx,q,%d\n' $((91 + s % 9)) $((s % 90)) $((s % 80))  >>"$work/s/app.log"
      sleep 1
    done
  ) &
  wpid=$!; pids+=("$wpid")
  most=0
  while kill -0 "$wpid" 2>/dev/null; do
    n=$(ls "$work/s/out" | wc -l)
    [ "$n" -gt "$most" ] && most=$n
    sleep 0.1
  done
  sleep 3  # the last cycle and its delivery
  kill "$apid" "$cpid"; wait "$apid" "$cpid" 2>/dev/null || true
  delivered=$(wc -l <"$work/s/events.jsonl")
  written=$("$tool" replay --all --raw "$work/s/agent.conf" "$work/s/app.log" 1 2>/dev/null | wc -l)
  left=$(ls "$work/s/out" | wc -l)
  report+=("soak over $soak s: spool held at most $most entries; events delivered $delivered, events the rules give for the log (replay) $written, entries left $left")
fi

printf '%s\n' "${report[@]}"
# Events lost or left behind fail the run.
if [[ " $phases " == *" s "* ]] && { [ "$delivered" != "$written" ] || [ "$left" != 0 ]; }; then
  echo "collect: events delivered ($delivered) differ from the events written ($written), or $left entries left" >&2
  exit 1
fi
