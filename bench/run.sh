#!/bin/sh
# Builds the measuring programs and compares them with other people's tools: bench/run.sh [ROUNDS]
set -eu
cd "$(dirname "$0")/.."
cmake --preset bench >/dev/null
cmake --build --preset bench --target bench-read bench-read-alone bench-image bench-write bench-flash bench-micro >/dev/null
PATH=$PATH:/usr/sbin  # flashrom lies there
exec /usr/bin/python3 bench/measure.py build/bench/out "${1:-9}"
