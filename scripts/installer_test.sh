#!/usr/bin/env bash
# Proves the Windows installer under wine64 the way an administrator uses it:
# a fresh WINEPREFIX whose RP121032.ini already lists another vendor, a
# silent install, every file and the INI line checked, a second install (no
# duplicate entry, user settings kept), the installed rp1210-monitor.exe
# finding the driver through RP121032.ini and showing the simulator's
# traffic through the installed 64-bit DLL, then a silent uninstall that
# leaves the other vendor's entry and the rest of the file as they were.
# A second round checks that the master file is created when absent, that
# names are matched whole and that a user-edited COMConfig.ini survives
# uninstall. Prints "N passed, N failed".
# Needs: build/installer (scripts/build_installer.sh), build/win32,
# build/win64 and build/linux (qvsim, the pty shim).
set -uo pipefail
cd "$(dirname "$0")/.."
top=$PWD

version=$(sed -n 's/^project(QVRP32 VERSION \([0-9.]*\).*/\1/p' CMakeLists.txt)
setup=$top/build/installer/QVRP32-$version-setup.exe
qvsim=$top/build/linux/tools/simulator/qvsim
shim=$top/build/linux/tests/libqv_pty_modem_shim.so
. "$top/scripts/wine_prefix.sh"
wine_prefix installer_test "$setup" "$top/build/win32/QVRP32.dll" "$top/build/win64/QVRP32.dll" "$qvsim" "$shim"

passed=0
failed=0
check() {  # description, command...
  local what=$1; shift
  if "$@" >/dev/null 2>&1; then
    echo "ok   $what"; passed=$((passed + 1))
  else
    echo "FAIL $what"; failed=$((failed + 1))
  fi
}
absent() { [ ! -e "$1" ]; }
# Wine writes profile files with CR LF; compare their text without it.
text() { tr -d '\r' <"$1"; }
same_text() { cmp -s <(text "$1") <(text "$2"); }
list_is() { [ "$(text "$master" | grep -i '^APIImplementations=')" = "APIImplementations=$1" ]; }

echo "installer_test: preparing a fresh prefix"
wineboot -i >/dev/null 2>&1
wineserver -w
wineserver -p >/dev/null 2>&1  # keeps the volatile HARDWARE registry branch

c=$WINEPREFIX/drive_c
master=$c/windows/RP121032.ini
instdir="$c/Program Files/QV/QVRP32"
config=$c/ProgramData/QV/Corvane/COMConfig.ini
printf '; master file of RP1210 drivers\r\n[RP1210Support]\r\nAPIImplementations=OTHERVDA\r\n[OtherVendor]\r\nKey=Value\r\n' \
  >"$master"
cp "$master" "$work/master.before"

install() {  # label
  local status=0
  timeout 60 wine "$setup" /S >"$work/setup.out" 2>&1 || status=$?
  check "$1: silent install exits with 0 (got $status)" [ "$status" = 0 ]
}
uninstall() {  # label
  local status=0 _
  timeout 60 wine "$instdir/uninstall.exe" /S >/dev/null 2>&1 || status=$?
  # The uninstaller runs a copy of itself from the temp folder and returns
  # at once; it removes the program folder last.
  for _ in $(seq 150); do [ -d "$instdir" ] || break; sleep 0.2; done
  check "$1: silent uninstall finishes (status $status)" absent "$instdir"
}

install "first install"
check "32-bit DLL in SysWOW64" cmp "$top/build/win32/QVRP32.dll" "$c/windows/syswow64/QVRP32.dll"
check "64-bit DLL in System32" cmp "$top/build/win64/QVRP32.dll" "$c/windows/system32/QVRP32.dll"
check "vendor file C:\\Windows\\QVRP32.ini" cmp dist/QVRP32.ini "$c/windows/QVRP32.ini"
check "COMConfig.ini in C:\\ProgramData\\QV\\Corvane" cmp dist/COMConfig.ini "$config"
check "log folder C:\\ProgramData\\QV\\log" test -d "$c/ProgramData/QV/log"
check "rp1210-monitor.exe in Program Files" cmp "$top/build/win64/tools/monitor/rp1210-monitor.exe" \
  "$instdir/rp1210-monitor.exe"
check "uninstaller in Program Files" test -f "$instdir/uninstall.exe"
wine reg query 'HKLM\Software\Microsoft\Windows\CurrentVersion\Uninstall\QVRP32' /v UninstallString \
  >"$work/reg.out" 2>&1
check "uninstaller listed in Add/Remove Programs" grep -q 'uninstall.exe' "$work/reg.out"
check "QVRP32 appended: APIImplementations=OTHERVDA,QVRP32" list_is OTHERVDA,QVRP32
check "no RP1210.ini written" absent "$c/windows/RP1210.ini"

# A user's trace location in the vendor file survives a reinstall.
sed -i 's|^DebugFile=.*|DebugFile=C:\\ProgramData\\QV\\log\\mine.txt|' "$c/windows/QVRP32.ini"
install "second install"
check "second install: QVRP32 listed once" list_is OTHERVDA,QVRP32
check "second install: the user's DebugFile kept" \
  grep -q '^DebugFile=C:\\ProgramData\\QV\\log\\mine.txt' <(text "$c/windows/QVRP32.ini")
check "second install: COMConfig.ini untouched" cmp dist/COMConfig.ini "$config"

echo "-- installed rp1210-monitor.exe against the simulator"
mkdir -p "$work/root"
"$qvsim" --format 1 --root "$work/root" --com 5 --serial QVINST0001 --traffic vehicle \
  >"$work/qvsim.out" 2>&1 &
sim_pid=$!
for _ in $(seq 50); do [ -L "$work/root/dosdevices/com5" ] && break; sleep 0.1; done
if slave=$(readlink "$work/root/dosdevices/com5"); then
  ln -sfn "$slave" "$WINEPREFIX/dosdevices/com5"
  wine regedit /S "$(winepath -w "$work/root/registry.reg" 2>/dev/null)" >/dev/null 2>&1
  (cd "$work" && LD_PRELOAD=$shim timeout 60 wine "$instdir/rp1210-monitor.exe" --info --echo \
    --send 18FEF1F9#0102 --time 3) 2>&1 | tr -d '\r' >"$work/monitor.out"
  while IFS='|' read -r what pattern; do
    check "monitor: $what" grep -qE "$pattern" "$work/monitor.out"
  done <<'CHECKS'
loads the installed DLL from System32|^library C:\\windows\\system32\\QVRP32\.dll \(QV Vehicle Communication Adapter,
shows the adapter's serial number|^serial number QVINST0001$
decodes J1939 traffic|RX J1939 +P[0-7] PGN 0F004 EEC1
shows its own message echoed|TX J1939 +P6 PGN 0FEF1 CCVS +SA F9 DA FF \[2\] 01 02$
disconnects cleanly|^disconnected$
CHECKS
  grep -q '^disconnected$' "$work/monitor.out" || tail -n 20 "$work/monitor.out"
else
  check "qvsim starts" false
  cat "$work/qvsim.out"
fi
[ -n "$sim_pid" ] && kill "$sim_pid" 2>/dev/null && wait "$sim_pid" 2>/dev/null
sim_pid=""
# OTHERVDA is listed, but its DLL is not installed: skipped, as
# applications must.
(cd "$work" && timeout 30 wine "$instdir/rp1210-monitor.exe" --vendor OTHERVDA --info) 2>&1 |
  tr -d '\r' >"$work/other.out"
check "monitor: skips OTHERVDA, whose DLL is missing" \
  grep -q "lists 'OTHERVDA' but OTHERVDA.dll is not installed" "$work/other.out"

uninstall "uninstall"
check "uninstall: APIImplementations=OTHERVDA back, rest of file unchanged" \
  same_text "$work/master.before" "$master"
for f in windows/syswow64/QVRP32.dll windows/system32/QVRP32.dll windows/QVRP32.ini \
  ProgramData/QV/Corvane/COMConfig.ini ProgramData/QV; do
  check "uninstall: C:/$f gone" absent "$c/$f"
done
wine reg query 'HKLM\Software\Microsoft\Windows\CurrentVersion\Uninstall\QVRP32' >/dev/null 2>&1
check "uninstall: Add/Remove Programs entry gone" [ $? != 0 ]

# Round 2: no master file yet; then another vendor's installer rewrote the
# list (names that merely contain ours are other drivers); a user's own
# adapter settings outlive the driver.
rm -f "$master"
install "round 2 install"
check "round 2: RP121032.ini created with [RP1210Support] APIImplementations=QVRP32" \
  grep -qx '\[RP1210Support\]' <(text "$master")
check "round 2: the created list is QVRP32" list_is QVRP32
printf '[RP1210Support]\r\nAPIImplementations=QVRP32X, OTHERVDA\r\n' >"$master"
install "round 2 reinstall"
check "round 2: QVRP32X is not ours: QVRP32X, OTHERVDA,QVRP32" list_is "QVRP32X, OTHERVDA,QVRP32"
echo "SN=K000000001" >>"$config"
uninstall "round 2 uninstall"
check "round 2: list back to QVRP32X, OTHERVDA" list_is "QVRP32X, OTHERVDA"
check "round 2: the edited COMConfig.ini kept" grep -q '^SN=K000000001' "$config"
check "round 2: DLLs gone" absent "$c/windows/system32/QVRP32.dll"

echo "$passed passed, $failed failed"
[ "$failed" = 0 ]
