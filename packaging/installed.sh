#!/bin/sh
# Run as root by test-packages.sh, in the folder that it makes: installs, tests, upgrades and purges the packages.
set -eu
cd "$(dirname "$0")/.."
export DEBIAN_FRONTEND=noninteractive LC_ALL=C.UTF-8
repository=/etc/apt/sources.list.d/tavo-packages.list
trap 'rm -f "$repository"' EXIT
step() { printf 'packages: %s\n' "$1"; }
quiet() { "$@" >log 2>&1 || { cat log >&2; exit 1; }; }
use() {
  echo "deb [trusted=yes] file:$PWD/$1 ./" >"$repository"
  quiet apt-get update -q
}
# Every file that a package may bring or leave. apt and dpkg keep notes of their own; locks go with the next start.
everything() {
  find / -xdev \( -path /proc -o -path /tmp -o -path /root -o -path "$PWD" -o -path /var/lib/dpkg -o -path /var/cache \
    -o -path /var/lib/apt -o -path /var/log -o -path /run/lock -o -path "$repository" \) -prune -o -print | sort
}
names=$(sed -n 's/^Package: //p' now/Packages)
needed=$(sed -n 's/^Depends: *//p' debian/tests/control | tr -d ,)

step "install, purge"
use now
# shellcheck disable=SC2086  # lists of words
quiet apt-get install -q -y --no-install-recommends $needed $names
# shellcheck disable=SC2086
quiet apt-get purge -q -y $names
everything >before
if grep -i '/[^/]*tavo' before; then
  echo "packages: purge leaves the files above" >&2
  exit 1
fi

step "install, test"
# shellcheck disable=SC2086
quiet apt-get install -q -y --no-install-recommends $names
for test in debian/tests/*; do
  [ -x "$test" ] || continue
  step "$test"
  "$test"
done

step "upgrade, purge"
use next
quiet apt-get upgrade -q -y
case $(tavo-util --version; dpkg-query -W -f '${Version}' libtavo-util-dev) in
  *+next) ;;
  *) echo "packages: not upgraded" >&2; exit 1 ;;
esac
debian/tests/tool >/dev/null
# shellcheck disable=SC2086
quiet apt-get purge -q -y $names
everything >after
diff before after
