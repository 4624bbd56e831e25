#!/bin/sh
# recentlogfile.sh YYYYMMDD [LOG_DIRECTORY]
#
# Finds the most recent log file of the date YYYYMMDD and writes its name,
# relative to the log directory, as the first line of
# ../aproc/shell/recentlogfile.dat (relative to the working directory, which
# is created when missing). A logger whose name contains "AGENT" or "agent"
# runs it at its first record to continue that file after a restart.
#
# The log directory is, in this order:
#   1. the second argument, when given;
#   2. the environment variable OMNILOG_LOG_PATH (the same prefix the
#      program gives its logger, e.g. "/var/log/agent/");
#   3. the working directory, the logger's own default prefix "./".
#
# Candidates are the plain log files of that date: YYYYMMDD_NAME.log and the
# continuation files YYYYMMDD_NAME_N.log (compressed ones are finished and not
# continued). The newest by modification time wins; among files of the same
# time the higher continuation number wins. When there is none, or the date
# is not eight digits, the answer file is left empty so that no stale answer
# is taken, and the status is 1 (2 for a usage error).

answer_dir=../aproc/shell
answer=$answer_dir/recentlogfile.dat

if ! mkdir -p "$answer_dir" 2>/dev/null; then
    echo "recentlogfile.sh: cannot create [$answer_dir]" >&2
    exit 2
fi
: >"$answer" 2>/dev/null || {
    echo "recentlogfile.sh: cannot write [$answer]" >&2
    exit 2
}

date=$1
case $date in
    [0-9][0-9][0-9][0-9][0-9][0-9][0-9][0-9]) ;;
    *)
        echo "usage: recentlogfile.sh YYYYMMDD [LOG_DIRECTORY]" >&2
        exit 2
        ;;
esac

log_dir=${2:-${OMNILOG_LOG_PATH:-./}}
case $log_dir in
    */) ;;
    *) log_dir=$log_dir/ ;;
esac

# The continuation number of a name: the digits after its last "_", or 0.
number_of() {
    n=${1%.log}
    n=${n##*_}
    case $n in
        '' | *[!0-9]*) echo 0 ;;
        *) echo "$n" ;;
    esac
}

best=
best_number=0
for path in "$log_dir$date"_*.log; do
    [ -f "$path" ] || continue
    name=${path#"$log_dir"}
    number=$(number_of "$name")
    if [ -z "$best" ] || [ "$path" -nt "$log_dir$best" ]; then
        best=$name
        best_number=$number
    elif ! [ "$log_dir$best" -nt "$path" ] && [ "$number" -gt "$best_number" ]; then
        best=$name
        best_number=$number
    fi
done

if [ -z "$best" ]; then
    exit 1
fi
printf '%s\n' "$best" >"$answer"
