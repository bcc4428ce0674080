#!/usr/bin/env bash
# rp1210-monitor against the simulated adapter and its synthetic vehicle for
# about two seconds: the adapter's identity, decoded J1939 traffic and the
# echo of a sent message must all appear, also as candump log lines, and the
# run must end cleanly.
# Usage: monitor_end_to_end.sh QVSIM MONITOR LIBRARY
set -euo pipefail
qvsim=$1 monitor=$2 library=$3
[ -x "$qvsim" ] || { echo "FAIL: no simulator at $qvsim"; exit 1; }
here=$(cd "$(dirname "$0")/../.." && pwd)

root=$(mktemp -d)
sim_pid=
cleanup() {
  if [ -n "$sim_pid" ]; then kill "$sim_pid" 2>/dev/null || true; wait "$sim_pid" 2>/dev/null || true; fi
  rm -rf "$root"
}
trap cleanup EXIT

# The shipped INI files, so they are proven to work with the library.
mkdir -p "$root/Windows" "$root/ProgramData/QV/Corvane"
cp "$here/dist/QVRP32.ini" "$root/Windows/QVRP32.ini"
cp "$here/dist/COMConfig.ini" "$root/ProgramData/QV/Corvane/COMConfig.ini"

"$qvsim" --root "$root" --traffic vehicle --loopback >"$root/qvsim.out" 2>&1 &
sim_pid=$!
# qvsim says it is running once the root is fully prepared.
for _ in $(seq 200); do
  grep -q '^running' "$root/qvsim.out" && break
  sleep 0.05
done
grep -q '^running' "$root/qvsim.out" || { cat "$root/qvsim.out"; echo "FAIL: qvsim did not start"; exit 1; }

status=0
QVRP32_ROOT=$root "$monitor" --library "$library" --info --echo --send 18FEF1F9#0102 --time 2 --log "$root/can.log" \
  >"$root/monitor.out" 2>"$root/monitor.err" || status=$?
cat "$root/monitor.out" "$root/monitor.err"

fail() { echo "FAIL: $*"; exit 1; }
[ "$status" = 0 ] || fail "rp1210-monitor exited with $status"
expect() { grep -qE -- "$1" "$root/monitor.out" || fail "no line matching: $1"; }
expect '^connected: client 1, J1939'
expect '^serial number QV00012345$'
expect '^battery voltage 12\.590 V$'
expect '^hardware status 01 00 00 00 00 00 05 06( 00){16}$'
expect ' RX J1939 +P[0-7] PGN 0F004 EEC1 +SA [0-9A-F]{2} DA [0-9A-F]{2} \[8\]'
expect ' TX J1939 +P6 PGN 0FEF1 CCVS +SA F9 DA FF \[2\] 01 02$'
expect '^[1-9][0-9]* messages received, 1 echoed, 1 sent$'
expect '^disconnected$'
[ ! -s "$root/monitor.err" ] || fail "errors were reported"
# Logged twice: as the library's echo and as the adapter's loopback.
[ "$(grep -cE '^\([0-9]+\.[0-9]{6}\) can0 18FEF1F9#0102$' "$root/can.log")" = 2 ] || fail "the sent message is not logged twice"
grep -qE '^\([0-9]+\.[0-9]{6}\) can0 0CF004[0-9A-F]{2}#[0-9A-F]{16}$' "$root/can.log" || fail "EEC1 is not logged"
echo "PASS"
