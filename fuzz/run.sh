#!/usr/bin/env bash
# Builds the fuzzers and runs each for a while, two at a time:
#   fuzz/run.sh [MINUTES [NAME...]]     half a minute each when nothing is said
# What they find of interest is kept in build/fuzz/corpus and where they go on from the next time; what ends one of them
# lies in build/fuzz/found. Fails when one of them ends by a crash, a leak, or an input that takes 10 s.
set -euo pipefail
cd "$(dirname "$0")/.."

seconds=$(awk -v minutes="${1:-0.5}" 'BEGIN { print int(minutes * 60) }')
[ "$seconds" -gt 0 ] || { echo 'fuzz/run.sh: MINUTES is a number above 0' >&2; exit 2; }
# The half minute of every change begins the same way each time: what it finds is the change's. Longer runs search anew.
seed=$(($# > 0 ? 0 : 1))
shift $(($# > 0))
[ $# -gt 0 ] || set -- configuration domain elf hex history layout ldv sRecord usb

cmake --preset fuzz >/dev/null
cmake --build --preset fuzz
build=$PWD/build/fuzz
mkdir -p "$build/found" "$build/log"

run() {
  mkdir -p "$build/corpus/$1"
  "$build/out/fuzz-$1" -max_total_time="$seconds" -seed="$seed" -timeout=10 -rss_limit_mb=2048 -max_len=4096 -print_final_stats=1 \
    -artifact_prefix="$build/found/$1-" "$build/corpus/$1" "fuzz/seeds/$1" >"$build/log/$1" 2>&1 || true
}

tell() {
  local log=$build/log/$1 executions edges result=good
  executions=$(sed -n 's/^stat::number_of_executed_units: *//p' "$log")
  edges=$(sed -n 's/.* cov: \([0-9]*\).*/\1/p' "$log" | tail -n 1)
  # A run that ended by itself says so; anything else is a find, or a program that did not start.
  if ! grep -q '^Done [0-9]* runs' "$log" || grep -q 'SUMMARY:' "$log"; then
    result=$(sed -n 's/^SUMMARY: //p' "$log" | head -n 1)
    result="FAILED: ${result:-see $log}"
    failed=1
  fi
  printf '%-14s %11s %8s   %s\n' "$1" "${executions:--}" "${edges:--}" "$result"
  [ "$result" = good ] || grep -E 'does not hold|Test unit written' "$log" | sed 's/^/    /' || true
}

for name; do
  while [ "$(jobs -rp | wc -l)" -ge 2 ]; do wait -n; done
  run "$name" &
done
wait

failed=0
printf '%-14s %11s %8s   %s\n' fuzzer executions edges "result ($seconds s each)"
for name; do tell "$name"; done
exit "$failed"
