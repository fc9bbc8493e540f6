#!/bin/sh
# Builds the Debian packages a second time, elsewhere and under other circumstances, and compares them byte for byte.
#   packaging/reproducible.sh [FOLDER]    the first ones, made by build-deb.sh from this tree: build/deb, if nothing is said
set -eu
cd "$(dirname "$0")/.."
first=${1:-build/deb}
set -- "$first"/*.deb "$first"/debug/*.deb
if [ ! -e "$1" ]; then
  echo "reproducible.sh: no packages in $first: packaging/build-deb.sh first" >&2
  exit 1
fi
second=$(mktemp -d)
trap 'rm -rf "$second"' EXIT
trap 'exit 130' INT TERM

# Another path (build-deb.sh takes a new one each time), language, time zone, mask of new files, and order of the compilations.
(umask 027 && TMPDIR=$second LC_ALL=C LANGUAGE=de TZ=Asia/Tokyo DEB_BUILD_OPTIONS=parallel=3 packaging/build-deb.sh "$second/deb" >/dev/null)
differing=0
for package; do
  cmp "$package" "$second/deb/${package#"$first"/}" || differing=1
done
[ $differing -eq 0 ] || { echo "reproducible.sh: diffoscope tells what differs in two packages" >&2; exit 1; }
echo "reproducible.sh: $# packages, the same twice"
