#!/usr/bin/env bash
# Appends demo lines to a log: date,time,host,cpu=NN%,mem=NN%,count,status,request
# usage: demo-writer.sh LOGFILE SECONDS [LINES_PER_SECOND [BURST_EVERY]]
# Every BURST_EVERY-th second (default 0: never) writes eight times as many
# lines, as a busy application does.
set -u
log=$1 seconds=$2 rate=${3:-5} burst_every=${4:-0}
RANDOM=42
for ((s = 0; s < seconds; s++)); do
  lines=$rate
  ((burst_every > 0 && s % burst_every == burst_every - 1)) && lines=$((rate * 8))
  day=$(date +%F) time=$(date +%T)  # one time stamp for the second's lines
  for ((i = 0; i < lines; i++)); do
    cpu=$((40 + RANDOM % 58)) mem=$((50 + RANDOM % 40))
    status=OK; ((RANDOM % 10 == 0)) && status=FAIL
    req="GET /api/items/$((RANDOM % 100))"; ((RANDOM % 15 == 0)) && req="GET /api/report timeout"
    printf '%s,%s,host%02d,cpu=%d%%,mem=%d%%,%d,%s,%s\n' "$day" "$time" $((RANDOM % 4)) \
      "$cpu" "$mem" $((RANDOM % 1000)) "$status" "$req" >>"$log"
  done
  sleep 1
done
