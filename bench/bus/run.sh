#!/bin/sh
# Counts what the flash operations cost on a full-speed bus: bench/bus/run.sh [KIBIBYTES OF THE CHIP]
set -eu
cd "$(dirname "$0")/../.."
cmake --preset bench >/dev/null
cmake --build --preset bench --target bench-bus >/dev/null
exec umockdev-wrapper build/bench/out/bench-bus "${1:-1024}"
