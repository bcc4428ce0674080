#!/usr/bin/env bash
# Builds the Windows installer build/installer/QVRP32-<version>-setup.exe
# with makensis from installer/QVRP32.nsi. Needs the win32 and win64 presets
# built (the two DLLs and the 64-bit rp1210-monitor.exe).
set -euo pipefail
cd "$(dirname "$0")/.."
top=$PWD

version=$(sed -n 's/^project(QVRP32 VERSION \([0-9.]*\).*/\1/p' CMakeLists.txt)
[ -n "$version" ] || { echo "build_installer: no version in CMakeLists.txt" >&2; exit 1; }
command -v makensis >/dev/null || { echo "build_installer: makensis is not installed (Debian: nsis)" >&2; exit 1; }

dll32=$top/build/win32/QVRP32.dll
dll64=$top/build/win64/QVRP32.dll
monitor=$top/build/win64/tools/monitor/rp1210-monitor.exe
for f in "$dll32" "$dll64" "$monitor" dist/QVRP32.ini dist/COMConfig.ini; do
  [ -e "$f" ] || { echo "build_installer: missing $f (build the win32 and win64 presets)" >&2; exit 1; }
done

mkdir -p build/installer
out=$top/build/installer/QVRP32-$version-setup.exe
makensis -V2 -WX -NOCD \
  "-DVERSION=$version" "-DOUTFILE=$out" \
  "-DDLL32=$dll32" "-DDLL64=$dll64" "-DMONITOR=$monitor" \
  "-DVENDOR_INI=$top/dist/QVRP32.ini" "-DCOMCONFIG_INI=$top/dist/COMConfig.ini" \
  installer/QVRP32.nsi
echo "build_installer: $out"
