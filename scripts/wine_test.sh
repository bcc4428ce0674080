#!/usr/bin/env bash
# Runs the Windows end-to-end test program under wine64 against the adapter
# simulator: a fresh WINEPREFIX, qvsim on a pseudo-terminal linked as COM5,
# the vendor INI files under drive_c, the two registry keys imported after a
# persistent wineserver has started (the HARDWARE branch is volatile), and
# the pty modem-line shim preloaded. Stops everything it started.
# Needs: build/win64 (QVRP32.dll, qvrp32_wintest.exe) and build/linux (qvsim,
# the shim). Prints "N passed, N failed" over all runs.
set -uo pipefail
cd "$(dirname "$0")/.."
top=$PWD

win=$top/build/win64
qvsim=$top/build/linux/tools/simulator/qvsim
shim=$top/build/linux/tests/libqv_pty_modem_shim.so
monitor=$win/tools/monitor/rp1210-monitor.exe
. "$top/scripts/wine_prefix.sh"
wine_prefix wine_test "$win/QVRP32.dll" "$win/tests/windows/qvrp32_wintest.exe" "$monitor" "$qvsim" "$shim"

echo "wine_test: preparing a fresh prefix"
wineboot -i >/dev/null 2>&1
wineserver -w
wineserver -p >/dev/null 2>&1

mkdir -p "$work/bin"
cp "$win/QVRP32.dll" "$win/tests/windows/qvrp32_wintest.exe" "$work/bin/"

passed=0
failed=0
firmware_sent=4.15     # stored as 4.25: the firmware-text adjustment
firmware_seen=4.25
serial=QVWINE0001

start_simulator() {  # format, extra qvsim options...
  local format=$1; shift
  rm -rf "$work/root"; mkdir -p "$work/root"
  "$qvsim" --format "$format" --root "$work/root" --com 5 --firmware "$firmware_sent" \
    --serial "$serial" "$@" >"$work/qvsim.out" 2>&1 &
  sim_pid=$!
  for _ in $(seq 50); do [ -L "$work/root/dosdevices/com5" ] && break; sleep 0.1; done
  local slave
  slave=$(readlink "$work/root/dosdevices/com5") || { echo "qvsim did not start"; cat "$work/qvsim.out"; return 1; }
  ln -sfn "$slave" "$WINEPREFIX/dosdevices/com5"
  mkdir -p "$WINEPREFIX/drive_c/ProgramData/QV/Corvane"
  cp "$work/root/Windows/QVRP32.ini" "$WINEPREFIX/drive_c/windows/QVRP32.ini"
  cp "$work/root/ProgramData/QV/Corvane/COMConfig.ini" "$WINEPREFIX/drive_c/ProgramData/QV/Corvane/"
  wine reg add 'HKLM\HARDWARE\DEVICEMAP\SERIALCOMM' /v '\Device\USBSER000' /t REG_SZ /d COM5 /f >/dev/null 2>&1
  wine regedit /S "$(winepath -w "$work/root/registry.reg" 2>/dev/null)" >/dev/null 2>&1
}

stop_simulator() {
  [ -n "$sim_pid" ] && kill "$sim_pid" 2>/dev/null && wait "$sim_pid" 2>/dev/null
  sim_pid=""
}

run_program() {  # label, program options...
  local label=$1; shift
  echo "-- $label"
  local status=0
  (cd "$work/bin" && LD_PRELOAD=$shim timeout 120 wine ./qvrp32_wintest.exe "$@") >"$work/run.raw" 2>&1 \
    || status=$?
  # Windows programs end their lines with CR LF.
  tr -d '\r' <"$work/run.raw" >"$work/run.out"
  sed -n '/^\(ok\|FAIL\) /p' "$work/run.out"
  local line p f
  line=$(grep -E '^[0-9]+ passed, [0-9]+ failed$' "$work/run.out" | tail -n 1)
  if [ -z "$line" ]; then
    echo "FAIL $label: the program did not finish"; tail -n 20 "$work/run.out"
    failed=$((failed + 1)); return
  fi
  read -r p _ f _ <<<"$line"
  passed=$((passed + p)); failed=$((failed + f))
  # A crash after the summary (a thread left running in the unloaded DLL)
  # shows only in the exit status.
  if [ "$f" = 0 ] && [ "$status" != 0 ]; then
    echo "FAIL $label: the program ended with status $status"; tail -n 20 "$work/run.out"
    failed=$((failed + 1))
  fi
}

for format in 0 1 2; do
  if start_simulator "$format" --traffic vehicle --loopback; then
    run_program "FrameFormat $format" --firmware "$firmware_seen" --serial "$serial"
  else
    failed=$((failed + 1))
  fi
  stop_simulator
done

# The monitor as users run it: it finds the driver through RP121032.ini and
# loads QVRP32.dll from the system folder, like any RP1210 application.
run_monitor() {
  echo "-- rp1210-monitor.exe, driver found through RP121032.ini"
  mkdir -p "$work/monitor"
  cp "$monitor" "$work/monitor/"
  cp "$win/QVRP32.dll" "$WINEPREFIX/drive_c/windows/system32/"
  printf '[RP1210Support]\r\nAPIImplementations=QVRP32\r\n' >"$WINEPREFIX/drive_c/windows/RP121032.ini"
  (cd "$work/monitor" && LD_PRELOAD=$shim timeout 60 wine ./rp1210-monitor.exe --info --echo \
    --send 18FEF1F9#0102 --time 3) 2>&1 | tr -d '\r' >"$work/monitor.out"
  local what pattern ok=1
  while IFS='|' read -r what pattern; do
    if grep -qE "$pattern" "$work/monitor.out"; then
      echo "ok   monitor: $what"; passed=$((passed + 1))
    else
      echo "FAIL monitor: $what"; failed=$((failed + 1)); ok=0
    fi
  done <<'CHECKS'
shows the adapter's serial number|^serial number QVWINE0001$
decodes J1939 traffic|RX J1939 +P[0-7] PGN 0F004 EEC1
shows its own message echoed|TX J1939 +P6 PGN 0FEF1 CCVS +SA F9 DA FF \[2\] 01 02$
counts what it did|^[1-9][0-9]* messages received, 1 echoed, 1 sent$
disconnects cleanly|^disconnected$
CHECKS
  [ "$ok" = 1 ] || tail -n 20 "$work/monitor.out"
}

if start_simulator 1 --traffic vehicle; then
  run_monitor
else
  failed=$((failed + 1))
fi
stop_simulator

# A flood keeps the reader thread busy in the receive path, where a process
# that ends while connected is most likely to cut it off.
if start_simulator 1 --traffic flood; then
  run_program "process ending while connected" --exit-rounds 30
else
  failed=$((failed + 1))
fi
stop_simulator

if start_simulator 1; then
  rm -f "$WINEPREFIX/drive_c/windows/QVRP32.ini"
  run_program "vendor INI file missing" --no-ini
else
  failed=$((failed + 1))
fi
stop_simulator

echo "$passed passed, $failed failed"
[ "$failed" = 0 ]
