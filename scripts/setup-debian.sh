#!/usr/bin/env bash
# Installs what the README's commands and .ci/run need on a Debian machine, and
# nothing when it is all there already; then checks that every program those
# scripts call is on the PATH and, for each one that is not, says on standard
# error which package brings it (exit status 1). Uses sudo when not run as root.
#
#   setup-debian.sh [PACKAGE ...]   install the table's packages and these extras
#   setup-debian.sh --check         only the check, nothing installed
set -euo pipefail

# Every program the scripts of the test command (scripts/run-tests.sh,
# scripts/checks/*.sh, bench/e2e.sh) and of the example (scripts/run-example.sh,
# examples/demo-writer.sh) call, with the Debian package that brings it. Programs
# of essential packages (coreutils, grep, sed, dpkg, bash) are not listed.
tools=(
  "cmake cmake" "ctest cmake" "cpack cmake" "make make" "g++ g++" "gzip gzip"
  "gawk gawk" "mawk mawk" "clang clang" "clang++ clang" "dpkg-deb dpkg"
  "systemd-analyze systemd" "rsyslogd rsyslog"
)
# Libraries and headers the build links, found by their package only.
# python3-prometheus-client is the real parser the status file's test checks it with.
libraries=(libgtest-dev libgmock-dev libbenchmark-dev libclang-rt-14-dev python3-prometheus-client)

# Installed, not merely known to dpkg: a removed package keeps a status
# ("deinstall ok config-files") for which `dpkg -s` still succeeds.
installed() { [ "$(dpkg-query -W -f='${Status}' "$1" 2>/dev/null)" = "install ok installed" ]; }

check_tools() {
  local missing=0 entry program package
  for entry in "${tools[@]}"; do
    read -r program package <<<"$entry"
    if ! command -v "$program" >/dev/null 2>&1; then
      echo "setup-debian: the program $program is missing: apt-get install $package" >&2
      missing=1
    fi
  done
  for package in "${libraries[@]}"; do
    if ! installed "$package"; then
      echo "setup-debian: the library package $package is missing: apt-get install $package" >&2
      missing=1
    fi
  done
  return "$missing"
}

if [ "${1:-}" = "--check" ]; then
  check_tools
  exit $?
fi

packages=("${libraries[@]}")
for entry in "${tools[@]}"; do packages+=("${entry#* }"); done
packages+=("$@")
missing=()
for p in $(printf '%s\n' "${packages[@]}" | sort -u); do
  installed "$p" || missing+=("$p")
done
if [ "${#missing[@]}" -gt 0 ]; then
  sudo=""
  [ "$(id -u)" -eq 0 ] || sudo="sudo"
  echo "installing: ${missing[*]}"
  $sudo apt-get update -qq
  DEBIAN_FRONTEND=noninteractive $sudo apt-get install -y -qq "${missing[@]}" >/dev/null
fi
check_tools
