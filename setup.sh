#!/bin/sh
# Installs the Debian packages that are missing for the given purposes (see packages.txt).
#   ./setup.sh build [demo] [test] [check] [bench] [package]
set -eu
cd "$(dirname "$0")"

[ $# -gt 0 ] || { echo "usage: ./setup.sh build [demo] [test] [check] [bench] [package]" >&2; exit 2; }
wanted=$(for purpose; do awk -v p="$purpose" '$1 == p { print $2 }' packages.txt; done | sort -u)

# dpkg knows virtual and pinned packages better than any list of programs; without it, look for what a build needs.
if ! command -v dpkg-query >/dev/null 2>&1; then
  missing=
  for program in g++ cmake ninja pkg-config; do
    command -v "$program" >/dev/null 2>&1 || missing="$missing $program"
  done
  pkg-config --exists libusb-1.0 2>/dev/null || missing="$missing libusb-1.0"
  [ -z "$missing" ] && exit 0
  {
    echo "setup.sh: this is not a Debian system, and these are missing:$missing"
    echo "  Install them and the counterparts of these Debian packages with your package manager, then try again:"
    echo "$wanted" | sed 's/^/    /'
  } >&2
  exit 1
fi

missing=
for package in $wanted; do
  state=$(dpkg-query -W -f '${db:Status-Status}' "$package" 2>/dev/null) || state=
  [ "$state" = installed ] || missing="$missing $package"
done
[ -z "$missing" ] && exit 0

as_root=
if [ "$(id -u)" -ne 0 ]; then
  if ! command -v sudo >/dev/null 2>&1; then
    echo "setup.sh: these packages are missing, and neither root nor sudo is at hand:$missing" >&2
    echo "  As root: apt-get install$missing" >&2
    exit 1
  fi
  as_root=sudo
fi
echo "setup.sh: installing$missing" >&2
log=$(mktemp)
trap 'rm -f "$log"' EXIT
export DEBIAN_FRONTEND=noninteractive
# shellcheck disable=SC2086  # a list of words
if ! { $as_root apt-get update -q && $as_root apt-get install -q -y --no-install-recommends $missing; } >"$log" 2>&1; then
  tail -n 20 "$log" >&2
  echo "setup.sh: the packages above could not be installed (tested on Debian 12; see packages.txt)" >&2
  exit 1
fi
