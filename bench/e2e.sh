#!/usr/bin/env bash
# End-to-end bench of the agent against the tools a user would pick instead.
#
#  (a) fixed rate: a writer appends 2,000 lines/s to the watched log for
#      DURATION seconds (after 10 s without lines, whose cost is reported
#      apart); reports the agent's CPU seconds per million evaluated
#      lines (user+sys from /proc/PID/stat, and the scheduler's nanoseconds
#      from /proc/PID/schedstat), its peak RSS, and checks that its events are
#      byte for byte those of the awk one-liner over the same lines.
#  (b) flat out: the writer appends as fast as it can (up to FLAT_MAX lines,
#      far more than the agent can read in DURATION seconds); reports the lines
#      per second read in against the read throttle's ceiling.
#  (c) the same workload over a LINES-line file: mawk and gawk one-liners,
#      grep -E for the line filter alone, cat > /dev/null as the read limit.
#  (d) a full configuration of 19 watched logs with 5 line patterns and 20
#      rules each: idle CPU over DURATION seconds with nothing new, then peak
#      RSS after a few seconds of lines in every log.
#  (f) the floor of (a): the same writer behind a line filter no line
#      matches, so the agent reads, joins and pauses but evaluates nothing;
#      reports CPU seconds per million lines read.
#
# Bench configuration of (a) to (c): line filter "^20.*cpu=", 3 numeric rules
# (cpu above 97 %, mem at least 98.5 %, latency above 4900 ms) and 2 text
# rules (status FATAL, a DELETE on an admin path); about 1 % of the lines fire.
#
# Environment: DURATION (seconds per phase, default 60), LINES (default
# 1000000), SEED (default 7), FLAT_MAX (default 3000000), BUILD (build
# directory, default build-bench, configured Release), SKIP_BUILD=1 to use the
# binaries already in BUILD, AGENT (the agent binary, default BUILD/bin/ColumnLogs),
# PHASES (default "a f b c d"), LOG_MODE (the agent's diagnostic log mode,
# default NORMAL; phase (a) reads the diagnostic log, so it needs one).
set -euo pipefail
cd "$(dirname "$0")/.."
top=$(pwd)
duration=${DURATION:-60}
lines=${LINES:-1000000}
seed=${SEED:-7}
flat_max=${FLAT_MAX:-3000000}
build=${BUILD:-$top/build-bench}
case $build in /*) ;; *) build=$top/$build ;; esac
phases=${PHASES:-a f b c d}
log_mode=${LOG_MODE:-NORMAL}
export LC_ALL=C
# Seconds for the agent's first cycle after start-up.
settle=2
[ "$duration" -le 10 ] && settle=1

if [ "${SKIP_BUILD:-0}" != 1 ]; then
  cmake -S . -B "$build" -DCMAKE_BUILD_TYPE=Release -DCOLUMNLOGS_TESTS=OFF >/dev/null
  cmake --build "$build" -j2 --target ColumnLogs bench_logwriter >/dev/null
fi
agent_bin=${AGENT:-$build/bin/ColumnLogs}
case $agent_bin in /*) ;; *) agent_bin=$top/$agent_bin ;; esac  # the agent runs in its own directory
writer_bin=$build/bin/bench_logwriter
for bin in "$agent_bin" "$writer_bin"; do
  [ -x "$bin" ] || { echo "missing $bin (build it, or unset SKIP_BUILD)" >&2; exit 1; }
done
# Programs the phases call beyond the essential ones (scripts/setup-debian.sh installs them).
for program in mawk gawk getconf cmp; do
  command -v "$program" >/dev/null 2>&1 || { echo "e2e: $program is not installed (run scripts/setup-debian.sh)" >&2; exit 1; }
done
trap 'echo "e2e: failed (status $?) at line $LINENO: $BASH_COMMAND" >&2' ERR

work=$(mktemp -d /tmp/columnlogs-e2e.XXXXXX)
pids=()
cleanup() {
  for p in "${pids[@]}"; do kill "$p" 2>/dev/null || true; done
  wait 2>/dev/null || true
  [ -n "${KEEP:-}" ] || rm -rf "$work"
}
trap cleanup EXIT

TILDE=$'\x03\x1f\x7e'
BAR=$'\x03\x1f\x7c'
# Readable "{~}" / "{|}" to the separator bytes.
sep() { local s=${1//\{~\}/$TILDE}; printf '%s' "${s//\{|\}/$BAR}"; }

FILTER='^20.*cpu='
NUMBER='4{~}2{~}97{~}1{~}cpu={~}%{|}5{~}2{~}98.5{~}2{~}mem={~}%{|}6{~}1{~}4900{~}1{~}NULL{~}NULL'
TEXT='7{~}3{~}FATAL{~}1{|}8{~}2{~}^DELETE .*/admin{~}3'

# The same rules as an awk program: value text between the texts around the
# number, no letters in it, the comparison, and the agent's event line.
AWK_RULES='
function val(v, a, b,   i, j) {
  i = index(v, a); if (i) { v = substr(v, i + length(a)); j = index(v, b); if (j) v = substr(v, 1, j - 1) }
  return v
}
BEGIN { FS = ","; B = "\003\037\174" }
/^20.*cpu=/ {
  v = val($4, "cpu=", "%"); if (v !~ /[A-Za-z]/ && int(v) > 97) printf "1|1%s2%sCOLUMN[4] Value[%d] > 97, ORIGINAL_MSG:%s\n", B, B, int(v), $0
  v = val($5, "mem=", "%"); if (v !~ /[A-Za-z]/ && v + 0 >= 98.5) printf "1|1%s2%sCOLUMN[5] Value[%.2f] >= 98.50, ORIGINAL_MSG:%s\n", B, B, v + 0, $0
  v = val($6, "NULL", "NULL"); if (v !~ /[A-Za-z]/ && int(v) > 4900) printf "1|1%s1%sCOLUMN[6] Value[%d] > 4900, ORIGINAL_MSG:%s\n", B, B, int(v), $0
  if ($7 == "FATAL") printf "1|2%s3%sCOLUMN[7] Value[%s] == FATAL, ORIGINAL_MSG:%s\n", B, B, $7, $0
  if ($8 ~ /^DELETE .*\/admin/) printf "1|2%s2%sCOLUMN[8] Value[%s] != ^DELETE .*/admin, ORIGINAL_MSG:%s\n", B, B, $8, $0
}'

# ---- process figures from /proc ----
ticks=$(getconf CLK_TCK)
# user+sys CPU seconds of a process (fields 14 and 15 after the command name).
cpu_secs() { awk -v t="$ticks" '{ sub(/^.*\) /, ""); printf "%.2f", ($12 + $13) / t }' "/proc/$1/stat"; }
# nanoseconds on a CPU, from the scheduler (exact, not tick-sampled).
cpu_ns() { awk '{ print $1 }' "/proc/$1/schedstat"; }
# user+sys of waited-for children (the close-out commands).
child_secs() { awk -v t="$ticks" '{ sub(/^.*\) /, ""); printf "%.2f", ($14 + $15) / t }' "/proc/$1/stat"; }
status_kb() { awk -v k="$2:" '$1 == k { print $2 }' "/proc/$1/status"; }
now() { date +%s.%N; }
calc() { awk "BEGIN { printf \"$1\", $2 }"; }
# Read position of process $1 in file $2 (kernel offset of its descriptor).
read_pos() {
  local fd
  for fd in /proc/"$1"/fd/*; do
    if [ "$(readlink "$fd" 2>/dev/null)" = "$2" ]; then
      awk '$1 == "pos:" { print $2 }' "/proc/$1/fdinfo/${fd##*/}"
      return
    fi
  done
  echo 0
}
# Lines that end between byte offsets $2 and $3 of file $1.
lines_between() { (set +o pipefail; tail -c +"$(($2 + 1))" "$1" | head -c "$(($3 - $2))" | wc -l); }

# entry <nn> <file> <type> <number> <text> <date> <pattern>
entry() {
  local p
  p=$(printf 'LOG%02d_' "$1")
  {
    echo "${p}NAME=$2"
    echo "${p}TYPE=$3"
    echo "${p}CHECK_TYPE=1"
    echo "${p}SECLOG_LEVEL_CNT=NULL"
    echo "${p}DELIMITOR=$(sep ',{~}NULL')"
    echo "${p}NUMBER_PATTERN=$(sep "$4")"
    echo "${p}CHAR_PATTERN=$(sep "$5")"
    echo "${p}DATE_PATTERN=$(sep "$6")"
    echo "${p}PATTERN=$(sep "$7")"
  }
}
# setup <dir>: directories and the global keys; entries are appended after.
setup() {
  mkdir -p "$1/out" "$1/log" "$1/logs" "$1/work"
  printf 'LOG_PATH=%s/log/\nLOG_MODE=%s\nLOG_VALIDDAY=7\nOUTPUT_PATH=%s/out/\nLINE_WAIT_CNT=10\n' "$1" "$log_mode" "$1" \
    >"$1/agent.conf"
}
start_agent() {
  (cd "$1/work" && exec "$agent_bin" "$1/agent.conf" 2>"$1/agent.err") &
  agent=$!
  pids+=("$agent")
}
stop() { kill "$1" 2>/dev/null || true; wait "$1" 2>/dev/null || true; }

declare -A R=()

# rate_run <key> <line filter>: the agent watches one log with the bench rules
# behind <line filter> while the writer appends 2,000 lines/s for DURATION
# seconds; figures go to R[<key>_...].
rate_run() {
  local k=$1 filter=$2 d=$work/$1 log
  setup "$d"
  log=$d/logs/app.log
  : >"$log"
  entry 1 "$log" 2 "$NUMBER" "$TEXT" NULL "1{|}$filter" >>"$d/agent.conf"
  start_agent "$d"
  sleep "$settle"
  local c0 n0 t0 c1 n1 t1 written idle=10
  # First the cycles without new lines, the part of the cost that does not
  # depend on the lines.
  [ "$duration" -le 10 ] && idle=1
  n0=$(cpu_ns "$agent"); t0=$(now)
  sleep "$idle"
  n1=$(cpu_ns "$agent"); t1=$(now)
  R[${k}_idle_us]=$(calc %.0f "($n1 - $n0) / 1e3 / ($t1 - $t0)")
  c0=$(cpu_secs "$agent"); n0=$(cpu_ns "$agent"); t0=$(now)
  written=$("$writer_bin" rate "$log" 2000 "$duration" "$seed")
  # The last lines are read by the next cycle: wait until the saved offset is the file's end.
  local size end_wait=0
  size=$(stat -c %s "$log")
  while ! grep -q "LOG offset save : $size\$" "$d"/log/* 2>/dev/null && [ $end_wait -lt 50 ]; do
    sleep 0.2; end_wait=$((end_wait + 1))
  done
  sleep "$settle"  # let the cycle that read them hand its events off
  c1=$(cpu_secs "$agent"); n1=$(cpu_ns "$agent"); t1=$(now)
  R[${k}_written]=$written
  R[${k}_read]=$(wc -l <"$log")
  R[${k}_evaluated]=$(grep -c -E "$filter" "$log" || true)
  R[${k}_caught_up]=$([ $end_wait -lt 50 ] && echo yes || echo NO)
  R[${k}_cpu]=$(calc %.2f "$c1 - $c0")
  R[${k}_cpu_ns]=$(calc %.3f "($n1 - $n0) / 1e9")
  R[${k}_wall]=$(calc %.1f "$t1 - $t0")
  R[${k}_children]=$(child_secs "$agent")
  R[${k}_hwm]=$(status_kb "$agent" VmHWM)
  R[${k}_max_events]=$(grep -h -o 'fault count = [0-9]*' "$d"/log/* | awk '{ if ($4 > m) m = $4 } END { print m + 0 }')
  stop "$agent"
}

phase_a() {
  local d=$work/a
  rate_run a "$FILTER"
  cat "$d"/out/out_* 2>/dev/null >"$d/agent.events" || true
  mawk "$AWK_RULES" "$d/logs/app.log" >"$d/awk.events"
  R[a_events]=$(wc -l <"$d/agent.events")
  R[a_awk_events]=$(wc -l <"$d/awk.events")
  R[a_same]=$(cmp -s "$d/agent.events" "$d/awk.events" && echo identical || echo DIFFERENT)
  R[a_per_m]=$(calc %.3f "${R[a_cpu_ns]} / ${R[a_evaluated]} * 1e6")
  R[a_per_m_ticks]=$(calc %.3f "${R[a_cpu]} / ${R[a_evaluated]} * 1e6")
}

# The floor of (a): the same lines at the same rate behind a line filter that
# no line matches, so the agent reads, joins, pauses and keeps its records
# but evaluates nothing.
phase_f() {
  rate_run f '^NO LINE MATCHES'
  R[f_per_m]=$(calc %.3f "${R[f_cpu_ns]} / ${R[f_read]} * 1e6")
}

phase_b() {
  local d=$work/b log
  setup "$d"
  log=$d/logs/app.log
  : >"$log"
  entry 1 "$log" 2 "$NUMBER" "$TEXT" NULL "1{|}$FILTER" >>"$d/agent.conf"
  start_agent "$d"
  sleep "$settle"
  "$writer_bin" flat "$log" "$duration" "$flat_max" "$seed" >"$d/written" &
  local writer=$!
  pids+=("$writer")
  # Skip the first seconds: the agent's first turn starts when the file is new.
  local warm=5
  [ "$duration" -le 10 ] && warm=1
  sleep "$warm"
  local p0 t0 p1 t1 c0 c1
  p0=$(read_pos "$agent" "$log"); t0=$(now); c0=$(cpu_secs "$agent")
  sleep $((duration - warm))
  p1=$(read_pos "$agent" "$log"); t1=$(now); c1=$(cpu_secs "$agent")
  wait "$writer" || true
  stop "$agent"
  R[b_written]=$(cat "$d/written")
  R[b_lines]=$(lines_between "$log" "$p0" "$p1")
  R[b_secs]=$(calc %.2f "$t1 - $t0")
  R[b_rate]=$(calc %.0f "${R[b_lines]} / ${R[b_secs]}")
  R[b_pct]=$(calc %.1f "${R[b_rate]} / 4000 * 100")
  R[b_pauses]=$(grep -c 'LINE READ COUNT OVER' "$d/agent.err" || true)
  R[b_cpu_pct]=$(calc %.1f "($c1 - $c0) / ${R[b_secs]} * 100")
  R[b_behind]=$(($(stat -c %s "$log") - p1))
}

# user+sys (and wall) seconds of one command, the median of three runs
# (bash's own timer: millisecond resolution).
time3() {
  local i out=() t
  for i in 1 2 3; do
    t=$( { TIMEFORMAT='%3U %3S %3R'; time "$@" >/dev/null 2>&1; } 2>&1 | tail -n 1)
    out+=("$(awk '{ printf "%.3f %.3f", $1 + $2, $3 }' <<<"$t")")
  done
  printf '%s\n' "${out[@]}" | sort -n | sed -n 2p
}

phase_c() {
  local d=$work/c f
  mkdir -p "$d"
  f=$d/big.log
  "$writer_bin" gen "$f" "$lines" "$seed" >/dev/null
  R[c_lines]=$lines
  R[c_bytes]=$(stat -c %s "$f")
  cat "$f" >/dev/null  # in the page cache for every tool
  read -r R[c_cat] R[c_cat_wall] < <(time3 sh -c "cat '$f' >/dev/null")
  read -r R[c_grep] R[c_grep_wall] < <(time3 grep -c -E "$FILTER" "$f")
  read -r R[c_mawk] R[c_mawk_wall] < <(time3 sh -c "mawk '$AWK_RULES' '$f' >'$d/mawk.out'")
  read -r R[c_gawk] R[c_gawk_wall] < <(time3 sh -c "gawk '$AWK_RULES' '$f' >'$d/gawk.out'")
  R[c_evaluated]=$(grep -c -E "$FILTER" "$f")
  R[c_events]=$(wc -l <"$d/mawk.out")
  R[c_awks_agree]=$(cmp -s "$d/mawk.out" "$d/gawk.out" && echo yes || echo NO)
}

# Full configuration: 19 logs, 5 line patterns and 20 rules (10 numeric, 8
# text of which 4 by pattern, 2 date) each.
FULL_PATTERN='1{|}^20.*cpu={~}2{|}(ERROR)|(FATAL){~}3{|}(NOT:heartbeat)&(mem=){~}4{|}timeout$|refused{~}5{|}^20.*DELETE .*/admin'
FULL_NUMBER='4{~}2{~}97{~}1{~}cpu={~}%{|}4{~}1{~}95{~}1{~}cpu={~}%{|}5{~}2{~}98.5{~}2{~}mem={~}%{|}5{~}1{~}97{~}2{~}mem={~}%{|}6{~}1{~}4900{~}1{~}NULL{~}NULL{|}6{~}0{~}4800{~}2{~}NULL{~}NULL{|}6{~}1{~}0{~}3{~}NULL{~}NULL{|}4{~}3{~}0{~}3{~}cpu={~}%{|}5{~}3{~}0{~}3{~}mem={~}%{|}6{~}4{~}99999{~}5{~}NULL{~}NULL'
FULL_TEXT='7{~}3{~}FATAL{~}1{|}7{~}2{~}PANIC{~}1{|}3{~}1{~}db99{~}1{|}7{~}1{~}ABORT{~}1{|}8{~}2{~}^DELETE .*/admin{~}3{|}8{~}1{~}\.\./{~}3{|}3{~}1{~}^test{~}3{|}8{~}2{~}(DROP)|(TRUNCATE){~}3'
FULL_DATE='1{~}YYYY-MM-DD{|}2{~}hh:mm:ss'

phase_d() {
  local d=$work/d n log
  setup "$d"
  for n in $(seq 1 19); do
    log=$d/logs/app$n.log
    "$writer_bin" gen "$log" 1000 "$n" >/dev/null
    entry "$n" "$log" 0 "$FULL_NUMBER" "$FULL_TEXT" "$FULL_DATE" "$FULL_PATTERN" >>"$d/agent.conf"
  done
  R[d_conf_bytes]=$(stat -c %s "$d/agent.conf")
  start_agent "$d"
  sleep $((settle + 1))
  R[d_hwm_start]=$(status_kb "$agent" VmHWM)
  local n0 t0 n1 t1 c0 c1
  n0=$(cpu_ns "$agent"); c0=$(cpu_secs "$agent"); t0=$(now)
  sleep "$duration"
  n1=$(cpu_ns "$agent"); c1=$(cpu_secs "$agent"); t1=$(now)
  R[d_idle_ms]=$(calc %.1f "($n1 - $n0) / 1e6")
  R[d_idle_ticks]=$(calc %.2f "$c1 - $c0")
  R[d_idle_secs]=$(calc %.1f "$t1 - $t0")
  R[d_idle_pct]=$(calc %.4f "($n1 - $n0) / 1e9 / ($t1 - $t0) * 100")
  R[d_idle_hour]=$(calc %.2f "($n1 - $n0) / 1e9 / ($t1 - $t0) * 3600")
  # Lines in every log for a few seconds, 100 a second each.
  local load=5 writers=()
  [ "$duration" -le 10 ] && load=2
  for n in $(seq 1 19); do
    "$writer_bin" rate "$d/logs/app$n.log" 100 "$load" "$((seed + n))" >/dev/null &
    writers+=($!)
  done
  wait "${writers[@]}"
  sleep $((settle + 1))
  R[d_hwm]=$(status_kb "$agent" VmHWM)
  R[d_rss]=$(status_kb "$agent" VmRSS)
  R[d_events]=$( (cat "$d"/out/out_* 2>/dev/null || true) | wc -l)
  stop "$agent"
}

for p in $phases; do
  echo "== phase $p ==" >&2
  "phase_$p"
done

echo "# bench/e2e.sh DURATION=$duration LINES=$lines SEED=$seed ($(date -u +%FT%TZ), $(nproc) CPUs, load $(cut -d' ' -f1-3 /proc/loadavg))"
if [[ " $phases " == *" a "* ]]; then
  echo "(a) fixed rate 2000 lines/s for ${duration}s: ${R[a_written]} lines written, ${R[a_evaluated]} evaluated, caught up: ${R[a_caught_up]}"
  echo "    agent CPU ${R[a_cpu_ns]} s (schedstat), ${R[a_cpu]} s (stat ticks) in ${R[a_wall]} s; close-out commands ${R[a_children]} s"
  echo "    CPU per million evaluated lines: ${R[a_per_m]} s (schedstat), ${R[a_per_m_ticks]} s (ticks)"
  echo "    of which cycles without lines: ${R[a_idle_us]} us a second before the writer started = $(calc %.3f "${R[a_idle_us]} * ${R[a_wall]} / 1e6 / ${R[a_evaluated]} * 1e6") s per million"
  echo "    peak RSS (VmHWM) ${R[a_hwm]} kB; events: agent ${R[a_events]}, awk ${R[a_awk_events]} (${R[a_same]}); most events of one turn ${R[a_max_events]}"
fi
if [[ " $phases " == *" f "* ]]; then
  echo "(f) floor of (a), no line passes the filter: ${R[f_read]} lines read, caught up: ${R[f_caught_up]}"
  echo "    agent CPU ${R[f_cpu_ns]} s (schedstat) in ${R[f_wall]} s = ${R[f_per_m]} s per million lines read;" \
    "cycles without lines ${R[f_idle_us]} us a second"
fi
if [[ " $phases " == *" b "* ]]; then
  echo "(b) flat out for ${duration}s: ${R[b_written]} lines written; read ${R[b_lines]} lines in ${R[b_secs]} s = ${R[b_rate]} lines/s = ${R[b_pct]} % of 4000"
  echo "    throttle pauses ${R[b_pauses]}; agent CPU ${R[b_cpu_pct]} % of a core; still unread at the end ${R[b_behind]} bytes"
fi
if [[ " $phases " == *" c "* ]]; then
  echo "(c) ${R[c_lines]} lines (${R[c_bytes]} bytes), ${R[c_evaluated]} pass the filter, ${R[c_events]} events (mawk and gawk agree: ${R[c_awks_agree]})"
  echo "    user+sys s (wall s), median of 3: cat ${R[c_cat]} (${R[c_cat_wall]}), grep -E ${R[c_grep]} (${R[c_grep_wall]}), mawk ${R[c_mawk]} (${R[c_mawk_wall]}), gawk ${R[c_gawk]} (${R[c_gawk_wall]})"
  mawk_m=$(calc %.3f "${R[c_mawk]} / ${R[c_evaluated]} * 1e6")
  gawk_m=$(calc %.3f "${R[c_gawk]} / ${R[c_evaluated]} * 1e6")
  echo "    per million evaluated lines: mawk $mawk_m s, gawk $gawk_m s"
  if [[ " $phases " == *" a "* ]]; then
    # Tools too fast for the timer's 10 ms on a small file give no ratio.
    ratio() { awk -v a="${R[a_per_m]}" -v t="$1" -v n="$2" 'BEGIN { if (t > 0) printf "%.3f", a / (t / n * 1e6); else printf "n/a" }'; }
    echo "    agent / mawk = $(ratio "${R[c_mawk]}" "${R[c_evaluated]}") (goal <= 0.333); agent / gawk = $(ratio "${R[c_gawk]}" "${R[c_evaluated]}");" \
      "agent / grep -E = $(ratio "${R[c_grep]}" "${R[c_evaluated]}"); agent / cat = $(ratio "${R[c_cat]}" "${R[c_lines]}")"
  fi
  if [[ " $phases " == *" f "* ]]; then
    echo "    floor (f) / mawk = $(awk -v f="${R[f_per_m]}" -v t="${R[c_mawk]}" -v n="${R[c_evaluated]}" 'BEGIN { if (t > 0) printf "%.3f", f / (t / n * 1e6); else printf "n/a" }')"
  fi
fi
if [[ " $phases " == *" d "* ]]; then
  echo "(d) 19 logs x (5 patterns, 20 rules), configuration ${R[d_conf_bytes]} bytes"
  echo "    idle: ${R[d_idle_ms]} ms CPU (schedstat; ${R[d_idle_ticks]} s by ticks) in ${R[d_idle_secs]} s = ${R[d_idle_pct]} % of a core = ${R[d_idle_hour]} s per hour"
  echo "    RSS: VmHWM ${R[d_hwm_start]} kB after start-up, VmHWM ${R[d_hwm]} kB and VmRSS ${R[d_rss]} kB after lines in every log (${R[d_events]} events)"
fi

# The figures mean something only if the runs did what they should.
status=0
if [[ " $phases " == *" a "* ]]; then
  [ "${R[a_caught_up]}" = yes ] || { echo "FAIL: (a) the agent did not read the whole log" >&2; status=1; }
  [ "${R[a_same]}" = identical ] || { echo "FAIL: (a) the agent's events differ from awk's" >&2; status=1; }
  [ "${R[a_max_events]}" -le 100 ] || { echo "FAIL: (a) a turn passed the event ceiling: lines went unevaluated" >&2; status=1; }
fi
if [[ " $phases " == *" f "* ]]; then
  [ "${R[f_caught_up]}" = yes ] && [ "${R[f_evaluated]}" -eq 0 ] || { echo "FAIL: (f) the agent did not read the whole log, or a line passed" >&2; status=1; }
fi
if [[ " $phases " == *" b "* ]]; then
  [ "${R[b_lines]}" -gt 0 ] && [ "${R[b_behind]}" -gt 0 ] || { echo "FAIL: (b) the agent read nothing or caught up with the writer" >&2; status=1; }
fi
if [[ " $phases " == *" c "* ]]; then
  [ "${R[c_awks_agree]}" = yes ] || { echo "FAIL: (c) mawk and gawk disagree" >&2; status=1; }
fi
if [[ " $phases " == *" d "* ]]; then
  [ "${R[d_events]}" -gt 0 ] || { echo "FAIL: (d) the full configuration wrote no event" >&2; status=1; }
fi
exit $status
