#!/usr/bin/env bash
# Builds the Debian package with CPack from the normal build in build/ and
# lists it with dpkg-deb. Fails when a file or directory of the install tree,
# the systemd unit or a maintainer script is missing from the package, when
# the unit does not start the agent with its configuration in its working
# directory, or when the packaged configuration lacks the separator bytes or
# does not load with the packaged ColumnTool.
set -euo pipefail
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
  "ExecStart=/opt/columnlogs/bin/ColumnLogs /opt/columnlogs/etc/columnlogs.conf" "Restart=always"; do
  grep -qxF "$line" "$unit" || fail "unit lacks the line $line"
done
grep -qxF "ExecStart=/opt/columnlogs/bin/ColumnTool collect /opt/columnlogs/etc/columnlogs.conf" \
  "$x/lib/systemd/system/columnlogs-collect.service" || fail "the collector unit does not run the collector"
conf="$x/opt/columnlogs/etc/columnlogs.conf"
grep -q $'\x03\x1f\x7e' "$conf" || fail "configuration holds no separator bytes"
if grep -v '^#' "$conf" | grep -qF '{~}'; then fail "configuration still holds the readable notation"; fi
grep -qxF "OUTPUT_PATH=/opt/columnlogs/var/out/" "$conf" || fail "configuration does not write events into the tree"
grep -q "^COLLECT_TO=" "$conf" || fail "configuration does not say where the collector delivers events"
if ! "$x/opt/columnlogs/bin/ColumnTool" check "$conf" >"$out/check.txt" 2>&1; then
  cat "$out/check.txt" >&2
  fail "the packaged configuration does not load"
fi
grep -q "summary: 4 entries loaded, 0 skipped or rejected" "$out/check.txt" || fail "not every example entry loads"

if [ "$failures" -gt 0 ]; then
  echo "package: $failures problem(s)" >&2
  exit 1
fi
echo "package: contents, unit and configuration as expected"
