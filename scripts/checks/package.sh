#!/usr/bin/env bash
# Builds the Debian package with CPack from the normal build in build/ and
# lists it with dpkg-deb. Fails when a file or directory of the install tree,
# the systemd unit or a maintainer script is missing from the package, when
# the unit does not start the agent with its configuration in its working
# directory, or when the packaged configuration lacks the separator bytes or
# does not load with the packaged ColumnTool.
set -euo pipefail
trap 'echo "package: failed (status $?) at line $LINENO: $BASH_COMMAND" >&2' ERR
cd "$(dirname "$0")/../.."
build=${BUILD:-build}
if ! command -v dpkg-deb >/dev/null; then
  echo "package: dpkg-deb is not installed" >&2
  exit 1
fi

out="$(cd "$build" && pwd)/package"
rm -rf "$out"
mkdir -p "$out"
(cd "$build" && cpack -G DEB -B "$out" >"$out/cpack.log" 2>&1) || { cat "$out/cpack.log" >&2; exit 1; }
deb=$(ls "$out"/columnlogs_*.deb)
echo "package: $(basename "$deb")"
dpkg-deb -c "$deb" | tee "$out/contents.txt"

prefix=./opt/columnlogs
failures=0
fail() { echo "package: $*" >&2; failures=$((failures + 1)); }

# path, then "x" for an executable file, "d" for a directory, "-" for a plain file
while read -r path kind; do
  line=$(awk -v p="$path" '$6 == p' "$out/contents.txt")
  if [ -z "$line" ]; then
    fail "missing $path"
    continue
  fi
  mode=${line%% *}
  case $kind in
    x) [[ $mode == -rwx* ]] || fail "$path is not executable ($mode)" ;;
    d) [[ $mode == d* ]] || fail "$path is not a directory ($mode)" ;;
    -) [[ $mode == -* ]] || fail "$path is not a plain file ($mode)" ;;
  esac
done <<LIST
$prefix/bin/ColumnLogs x
$prefix/bin/ColumnTool x
$prefix/utils/ETC/ShCmd x
$prefix/utils/INSTALL/recentlogfile.sh x
$prefix/etc/columnlogs.conf -
$prefix/agent/work/ d
$prefix/agent/aproc/shell/ d
$prefix/var/log/ d
$prefix/var/out/ d
$prefix/var/lib/ d
$prefix/var/logs/ d
$prefix/share/columnlogs/examples/columnlogs.conf.readable -
$prefix/share/columnlogs/examples/demo-writer.sh x
$prefix/share/doc/columnlogs/README.md -
./lib/systemd/system/columnlogs.service -
./lib/systemd/system/columnlogs-collect.service -
LIST

[ "$(dpkg-deb -f "$deb" Package)" = columnlogs ] || fail "package name is not columnlogs"
control=$(dpkg-deb -I "$deb")
for member in conffiles postinst prerm postrm; do
  grep -qE "^ +[0-9]+ bytes, +[0-9]+ lines +\*? +$member( |$)" <<<"$control" || fail "control member $member missing"
done

x="$out/extracted"
dpkg-deb -x "$deb" "$x"
unit="$x/lib/systemd/system/columnlogs.service"
for line in "WorkingDirectory=/opt/columnlogs/agent/work" \
  "ExecStart=/opt/columnlogs/bin/ColumnLogs /opt/columnlogs/etc/columnlogs.conf" "Restart=always" \
  "ExecStartPre=/opt/columnlogs/bin/ColumnTool check --start /opt/columnlogs/etc/columnlogs.conf" \
  "User=columnlogs" "SupplementaryGroups=adm" "NoNewPrivileges=yes" "ProtectSystem=strict" \
  "ReadWritePaths=/opt/columnlogs/agent /opt/columnlogs/var/log /opt/columnlogs/var/out /opt/columnlogs/var/lib /opt/columnlogs/etc" \
  "ProtectHome=read-only" "PrivateTmp=yes" "ProtectKernelTunables=yes" "CapabilityBoundingSet="; do
  grep -qxF "$line" "$unit" || fail "unit lacks the line $line"
done
# The exposure score systemd gives the unit (0 best, 10 worst); the README
# quotes it. Without the program the check says so and goes on.
if command -v systemd-analyze >/dev/null; then
  score=$(systemd-analyze security --offline=true "$unit" 2>/dev/null | sed -n 's/^.*Overall exposure level for [^:]*: \([0-9.]*\).*$/\1/p')
  echo "package: systemd-analyze security exposure ${score:-unknown}"
  awk -v s="${score:-99}" 'BEGIN { exit !(s <= 1.0) }' || fail "unit exposure ${score:-unknown} is above 1.0"
else
  echo "package: systemd-analyze is not installed: the unit's exposure is not checked" >&2
fi
depends=$(dpkg-deb -f "$deb" Depends)
echo "package: Depends: $depends"
awk -F', ' '{ for (i = 1; i <= NF; i++) if ($i !~ /\(>= [^)]+\)$/) { print $i; bad = 1 } } END { exit bad }' <<<"$depends" >/dev/null \
  || fail "a dependency carries no version: $depends"
grep -qxF "ExecStart=/opt/columnlogs/bin/ColumnTool collect /opt/columnlogs/etc/columnlogs.conf" \
  "$x/lib/systemd/system/columnlogs-collect.service" || fail "the collector unit does not run the collector"
conf="$x/opt/columnlogs/etc/columnlogs.conf"
grep -q $'\x03\x1f\x7e' "$conf" || fail "configuration holds no separator bytes"
if grep -v '^#' "$conf" | grep -qF '{~}'; then fail "configuration still holds the readable notation"; fi
grep -qxF "OUTPUT_PATH=/opt/columnlogs/var/out/" "$conf" || fail "configuration does not write events into the tree"
grep -qxF "STATUS_FILE=/var/lib/prometheus/node-exporter/columnlogs.prom" "$conf" \
  || fail "configuration does not keep its status file where node_exporter reads"
grep -q "^COLLECT_TO=" "$conf" || fail "configuration does not say where the collector delivers events"
# --start, as the unit runs it: the extracted tree is not at /opt, so its output
# directory does not exist here.
if ! "$x/opt/columnlogs/bin/ColumnTool" check --start "$conf" >"$out/check.txt" 2>&1; then
  cat "$out/check.txt" >&2
  fail "the packaged configuration does not load"
fi
grep -q "summary: 4 entries loaded, 0 skipped or rejected" "$out/check.txt" || fail "not every example entry loads"

# Install and purge on this machine, as root and only when no columnlogs
# package or user is here already (never over an operator's install): the
# user, its groups and folders, then a purge that leaves nothing of them.
if [ "$(id -u)" -eq 0 ] && ! dpkg -s columnlogs >/dev/null 2>&1 && ! getent passwd columnlogs >/dev/null \
  && [ ! -e /opt/columnlogs ]; then
  status_dir=/var/lib/prometheus/node-exporter
  had_status_dir=no
  [ -d "$status_dir" ] && had_status_dir=yes
  dpkg -i "$deb" >"$out/install.log" 2>&1 || { cat "$out/install.log" >&2; fail "dpkg -i failed"; }
  id -nG columnlogs 2>/dev/null | grep -qw adm || fail "the user columnlogs is missing or not in adm"
  for dir in agent/work var/out var/log var/lib; do
    [ "$(stat -c %U /opt/columnlogs/$dir)" = columnlogs ] || fail "/opt/columnlogs/$dir is not the agent user's"
  done
  # A run of the agent as its user leaves run-time files behind.
  (cd /opt/columnlogs/agent/work && timeout 3 setpriv --reuid=columnlogs --regid=columnlogs --init-groups \
    /opt/columnlogs/bin/ColumnLogs /opt/columnlogs/etc/columnlogs.conf) || true
  [ -e /opt/columnlogs/agent/work/LoggerAlive ] || fail "the agent did not run as its user in its work folder"
  [ -e "$status_dir/columnlogs.prom" ] || fail "the agent wrote no status file into $status_dir"
  [ -e /opt/columnlogs/var/lib/positions ] || fail "the agent saved no read positions"
  touch /opt/columnlogs/var/logs/operator-file.log  # not the package's: stays
  dpkg --purge columnlogs >"$out/purge.log" 2>&1 || { cat "$out/purge.log" >&2; fail "dpkg --purge failed"; }
  getent passwd columnlogs >/dev/null && fail "purge left the user columnlogs"
  getent group columnlogs >/dev/null && fail "purge left the group columnlogs"
  left=$(cd / && find opt/columnlogs 2>/dev/null | sort | tr '\n' ' ')
  [ "$left" = "opt/columnlogs opt/columnlogs/var opt/columnlogs/var/logs opt/columnlogs/var/logs/operator-file.log " ] \
    || fail "purge left or removed the wrong files: $left"
  [ -e "$status_dir/columnlogs.prom" ] && fail "purge left the status file"
  [ "$had_status_dir" = no ] && [ -d "$status_dir" ] && fail "purge left $status_dir, which it created"
  rm -rf /opt/columnlogs
  echo "package: installed, ran as columnlogs, purged"
else
  echo "package: install and purge not tried (not root, or a columnlogs install is already here)"
fi

if [ "$failures" -gt 0 ]; then
  echo "package: $failures problem(s)" >&2
  exit 1
fi
echo "package: contents, unit and configuration as expected"
