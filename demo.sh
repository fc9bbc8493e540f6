#!/bin/sh
# Installs what is missing, builds, and does the main job on a simulated interface:
#   ./demo.sh            with an image made for the occasion
#   ./demo.sh FILE.hex   with your own Intel HEX file
set -eu
file=
if [ $# -gt 0 ]; then
  file=$(realpath -- "$1") || exit 8
  [ -f "$file" ] || { echo "demo.sh: $1 is not a file" >&2; exit 8; }
fi
cd "$(dirname "$0")"

./setup.sh build demo
cmake --preset release >/dev/null
cmake --build --preset release
tavo=$PWD/build/release/out/tavo-util

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
trap 'exit 130' INT TERM
show() {
  echo
  echo "\$ tavo-util $*"
  "$tavo" "$@"
}

if [ -z "$file" ]; then
  file=$work/image.hex
  head -c 98304 /dev/urandom >"$work/image.bin"
  srec_cat "$work/image.bin" -Binary -Output "$file" -Intel -Output_Block_Size 32 -Line_Termination NL
fi

device="sim:$work/board"
show check "$file" --map
show -d "$device" program "$file" --yes
show -d "$device" verify "$file"
show -d "$device" dump "$work/dump.hex"

echo
echo "Other tools read the dump:"
same=
cat >"$work/tobin.py" <<'PY'
import sys
from intelhex import IntelHex
IntelHex(sys.argv[1]).tobinfile(sys.argv[2])
PY
objcopy -I ihex -O binary "$work/dump.hex" "$work/objcopy.bin"
srec_cat "$work/dump.hex" -Intel -Output "$work/srec_cat.bin" -Binary
/usr/bin/python3 "$work/tobin.py" "$work/dump.hex" "$work/python3-intelhex.bin"
for tool in objcopy srec_cat python3-intelhex; do
  if cmp -s "$work/$tool.bin" "$work/board/flash.bin"; then
    echo "  $tool: the very bytes of the chip"
  else
    echo "  $tool: DIFFERENT from the chip"
    same=no
  fi
done
[ -z "$same" ] || exit 9

cat <<END

Done: an image was checked, a simulated chip was erased, programmed and verified page by page, compared
with the file, and dumped. The same on a device that is plugged in:
  build/release/out/tavo-util list
  build/release/out/tavo-util program FILE.hex --backup BEFORE.hex
Keep a simulated interface of your own with  -d sim:DIR  (docs/simulated-interface.md).
END
