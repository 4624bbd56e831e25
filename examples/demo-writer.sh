#!/usr/bin/env bash
# Appends demo lines to a log: date,time,host,cpu=NN%,mem=NN%,count,status,request
# usage: demo-writer.sh LOGFILE SECONDS [LINES_PER_SECOND]
set -u
log=$1 seconds=$2 rate=${3:-5}
RANDOM=42
for ((s = 0; s < seconds; s++)); do
  for ((i = 0; i < rate; i++)); do
    cpu=$((40 + RANDOM % 58)) mem=$((50 + RANDOM % 40))
    status=OK; ((RANDOM % 10 == 0)) && status=FAIL
    req="GET /api/items/$((RANDOM % 100))"; ((RANDOM % 15 == 0)) && req="GET /api/report timeout"
    printf '%s,%s,host%02d,cpu=%d%%,mem=%d%%,%d,%s,%s\n' "$(date +%F)" "$(date +%T)" $((RANDOM % 4)) \
      "$cpu" "$mem" $((RANDOM % 1000)) "$status" "$req" >>"$log"
  done
  sleep 1
done
