#!/bin/sh
# Builds the Debian packages from a clean copy of this tree and has lintian look at them.
#   packaging/build-deb.sh [FOLDER]    where they go: build/deb, if nothing is said; debug symbols into debug/ there
set -eu
cd "$(dirname "$0")/.."
out=${1:-build/deb}
./setup.sh build package

version=$(sed -n 's/^project(tavo-util VERSION \([0-9.]*\).*/\1/p' CMakeLists.txt)
packaged=$(dpkg-parsechangelog -S Version)
if [ "${packaged%-*}" != "$version" ]; then
  echo "build-deb.sh: CMakeLists.txt says $version, debian/changelog $packaged: add an entry to debian/changelog" >&2
  exit 1
fi

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
trap 'exit 130' INT TERM
tree=$work/tavo-util-$version
mkdir "$tree"
# What belongs to the project, changed or not yet added files included; all of it where this is no checkout.
if files=$(git ls-files --cached --others --exclude-standard 2>/dev/null) && [ -n "$files" ]; then
  git ls-files -z --cached --others --exclude-standard | tar -c --null -T - | tar -x -C "$tree"
else
  tar -c --exclude=./build . | tar -x -C "$tree"
fi

log=$work/log
(cd "$tree" && DEB_BUILD_OPTIONS="nocheck parallel=2 ${DEB_BUILD_OPTIONS:-}" dpkg-buildpackage -us -uc -b) >"$log" 2>&1 || {
  tail -n 40 "$log" >&2
  exit 1
}
# Packages that are not uploaded to Debian have no bug there that asks for them.
LC_ALL=C.UTF-8 lintian --fail-on error,warning --suppress-tags initial-upload-closes-no-bugs "$work"/*.changes
mkdir -p "$out/debug"
rm -f "$out"/*.deb "$out"/debug/*.deb "$out"/*.buildinfo
mv "$work"/*-dbgsym_*.deb "$out/debug"
mv "$work"/*.deb "$work"/*.buildinfo "$out"
ls "$out"
