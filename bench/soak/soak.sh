#!/usr/bin/env bash
# Soak run of the agent (not part of the test command): 19 watched logs
# growing at mixed rates for SOAK_SECONDS (default 600), then the account of
# every line that should have fired, resident memory, open descriptors and
# left-over "ing_" files. See soak.py for what is checked and how.
#   SOAK_SECONDS  writing time in seconds (default 600)
#   AGENT         the agent to run (default build/bin/ColumnLogs, built if missing)
#   SOAK_KEEP=1   keep the work directory for a look
set -euo pipefail
root="$(cd "$(dirname "$0")/../.." && pwd)"
agent="$(realpath -m "${AGENT:-$root/build/bin/ColumnLogs}")"
if [ ! -x "$agent" ]; then
  cmake -S "$root" -B "$root/build" -DCOLUMNLOGS_BENCH=OFF >/dev/null
  cmake --build "$root/build" -j 2 --target ColumnLogs
fi
keep=()
[ "${SOAK_KEEP:-0}" = 1 ] && keep=(--keep)
exec python3 "$root/bench/soak/soak.py" --agent "$agent" --duration "${SOAK_SECONDS:-600}" "${keep[@]}"
