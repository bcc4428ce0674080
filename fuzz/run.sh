#!/usr/bin/env bash
# Runs each fuzz program of build/fuzz (preset "fuzz") for FUZZ_SECONDS
# (default 30), two at a time, each on a copy of its seed corpus so that a
# run adds nothing to the tree. Fails when any program crashes, hangs or
# fails a check, and prints the input that did it in hex.
set -uo pipefail
cd "$(dirname "$0")/.."
# In memory where possible: two of the programs write their input as a file.
work=$(mktemp -d -p /dev/shm 2>/dev/null || mktemp -d)
trap 'rm -rf "$work"' EXIT

run() {  # program, corpus folder; writes its report to $work/<program>.report
  local dir=$work/$1
  mkdir -p "$dir/tmp" && cp -r "fuzz/corpus/$2" "$dir/corpus"
  if TMPDIR=$dir/tmp "build/fuzz/fuzz/$1" -max_total_time="${FUZZ_SECONDS:-30}" \
      -timeout=20 -print_final_stats=1 -artifact_prefix="$dir/" "$dir/corpus" >"$dir/log" 2>&1; then
    awk -v name="$1" '/executed_units/ { runs = $2 } /exec_per_sec/ { rate = $2 }
      END { print name ": passed, " runs " runs, " rate " exec/s" }' "$dir/log"
    return 0
  fi
  tail -n 40 "$dir/log"
  for input in "$dir"/crash-* "$dir"/timeout-* "$dir"/oom-* "$dir"/leak-*; do
    [ -e "$input" ] || continue
    echo "$1: input that failed ($(basename "$input")), in hex:"
    od -An -tx1 -v "$input"
  done
  echo "$1: FAILED"
  return 1
}

status=0
for pair in "fuzz_frames frames fuzz_protocol_string protocol_string" \
            "fuzz_ini ini fuzz_registry registry"; do
  set -- $pair
  run "$1" "$2" >"$work/$1.report" 2>&1 & first=$!
  run "$3" "$4" >"$work/$3.report" 2>&1 & second=$!
  wait $first || status=1
  wait $second || status=1
  cat "$work/$1.report" "$work/$3.report"
done
exit $status
