#!/bin/sh
# What programs that are linked with the libraries rely on: functions, their parameters, the layout of records.
#   packaging/abi.sh check [BUILD]     fails on anything but additions since the release in packaging/abi
#   packaging/abi.sh update [BUILD]    at a release: packaging/abi becomes what this build has
# BUILD is build/dev unless told otherwise; it needs debug information.
# A change that has to be takes a new SOVERSION in the library's CMakeLists.txt, a new node in its map, and package names
# to match in debian/.
set -eu
cd "$(dirname "$0")/.."
build=${2:-build/dev}
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

# Types are told as far as they stand in a public header.
dump() {
  abidw --headers-dir include --headers-dir "$build/include" --drop-private-types --exported-interfaces-only --no-show-locs --no-comp-dir-path \
    --no-corpus-path --no-elf-needed --no-parameter-names --type-id-style hash "$1"
}

# Both take the name, the file and the SONAME of a library.
update() {
  rm -f "packaging/abi/$1".so.*.abi.xz
  dump "$2" | xz -9e >"packaging/abi/$3.abi.xz"
  ls -l "packaging/abi/$3.abi.xz"
}

check() {
  if [ ! -f "packaging/abi/$3.abi.xz" ]; then
    echo "abi.sh: $3 has never been released; if that is meant: packaging/abi.sh update" >&2
    return 1
  fi
  xz -dc "packaging/abi/$3.abi.xz" >"$work/released.abi"
  dump "$2" >"$work/built.abi"
  abidiff --no-added-syms "$work/released.abi" "$work/built.abi" && return 0
  echo "abi.sh: programs linked with the released $3 break; see the top of packaging/abi.sh" >&2
  return 1
}

failed=0
for name in libtavo-platform libtavo-util-api libtavo-service; do
  library=$build/out/$name.so
  soname=$(objdump -p "$library" | sed -n 's/^ *SONAME *//p')
  case ${1:-} in
    check) check "$name" "$library" "$soname" || failed=1 ;;
    update) update "$name" "$library" "$soname" ;;
    *) echo "usage: packaging/abi.sh check|update [BUILD]" >&2; exit 2 ;;
  esac
done
exit $failed
