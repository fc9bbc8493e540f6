#!/bin/sh
# Installs the packages of build-deb.sh in a system of their own, tests them, upgrades and purges them. Where no such system
# can be made, and the user is root, they come onto this one and are removed again.
#   packaging/test-packages.sh [FOLDER]    where they are: build/deb, if nothing is said
set -eu
cd "$(dirname "$0")/.."
packages=${1:-build/deb}
./setup.sh package
unset CMAKE_C_COMPILER_LAUNCHER CMAKE_CXX_COMPILER_LAUNCHER # the caller's ccache is not in there
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
trap 'exit 130' INT TERM

# What the tests need of the sources, and two repositories: the packages, and the same as the next revision.
tree=$work/tavo-packages
mkdir -p "$tree/now" "$tree/next"
tar -c debian/tests tests/consumers tests/python/rig examples packaging/installed.sh | tar -x -C "$tree"
for package in "$packages"/*.deb; do
  cp "$package" "$tree/now"
  dpkg-deb -R "$package" "$work/package"
  version=$(dpkg-deb -f "$package" Version)
  sed -i "s/\(^Version: \|(= \)$version/&+next/g" "$work/package/DEBIAN/control"
  dpkg-deb --root-owner-group -b "$work/package" "$tree/next" >/dev/null
  rm -rf "$work/package"
done
for repository in now next; do
  (cd "$tree/$repository" && dpkg-scanpackages -m . >Packages 2>/dev/null)
done

# shellcheck source=/dev/null
codename=$(. /etc/os-release && echo "$VERSION_CODENAME")
sources=/etc/apt/sources.list.d/debian.sources
[ -f "$sources" ] || sources=/etc/apt/sources.list
# shellcheck disable=SC2016  # $1 is mmdebstrap's
if mmdebstrap --quiet --variant=apt --format=null --customize-hook="copy-in $tree /" \
  --customize-hook='echo force-unsafe-io >"$1/etc/dpkg/dpkg.cfg.d/not-for-long"' --customize-hook="touch $work/made" \
  --customize-hook='chroot "$1" sh /tavo-packages/packaging/installed.sh' \
  "$codename" /dev/null "$sources"; then
  exit 0
fi
[ ! -e "$work/made" ] || exit 1
echo "test-packages.sh: no system of its own can be made (above); the packages are tested on this one" >&2
if [ "$(id -u)" -ne 0 ] || dpkg-query -W 'tavo-util*' 'libtavo-*' '*-tavo-util' 2>/dev/null | grep -q .; then
  echo "test-packages.sh: that takes root, and none of the packages installed" >&2
  exit 1
fi
sh "$tree/packaging/installed.sh"
