#!/usr/bin/env bash
# Checks both DLLs: the twelve RP1210 export names and ordinals (with the
# decorated name at 12), that only Windows system DLLs are imported, and that
# the version resource carries the library's version text. Prints one line
# per check and "N passed, N failed".
set -uo pipefail
cd "$(dirname "$0")/.."

pass=0
fail=0
check() {  # description, command...
  local what=$1; shift
  if "$@"; then echo "ok   $what"; pass=$((pass + 1)); else echo "FAIL $what"; fail=$((fail + 1)); fi
}

# The names and ordinals applications rely on, as "ordinal name".
expected_exports() {
  cat <<'LIST'
1 RP1210_ClientConnect
2 RP1210_ClientDisconnect
3 RP1210_SendMessage
4 RP1210_ReadMessage
5 RP1210_SendCommand
6 RP1210_ReadVersion
7 RP1210_GetErrorMsg
8 RP1210_GetHardwareStatus
9 RP1210_ReadDetailedVersion
10 RP1210_GetLastErrorMsg
11 RP1210_Ioctl
12 _RP1210_ReadSerialNumber@8
LIST
}
# Names and ordinals the DLL exports, from objdump's export table.
actual_exports() {
  "$1" -p "$2" | awk '/^Ordinal Base/{base=$3}
    /\[Ordinal\/Name Pointer\] Table/{t=1; next}
    t && /^\t\[/{gsub(/[\[\]]/,""); print $1 + base, $2; next}
    t && !/^\t/{t=0}' | sort -n
}
imports_ok() {
  local bad
  bad=$("$1" -p "$2" | sed -n 's/^\tDLL Name: //p' | tr 'a-z' 'A-Z' |
    grep -vE '^(KERNEL32|ADVAPI32|MSVCRT|USER32|API-MS-WIN-CRT-[A-Z0-9-]*|UCRTBASE)\.DLL$' || true)
  if [ -n "$bad" ]; then echo "     unexpected imports: $bad"; return 1; fi
}
# FileVersion in the version resource (UTF-16 strings) equals the version text.
version_ok() {  # objcopy, dll
  local want rsrc
  want=$(sed -n 's/.*kDllVersionString\[\] = "\(.*\)";.*/\1/p' src/api/library_state.h)
  rsrc=$(mktemp)
  "$1" -O binary --only-section=.rsrc "$2" "$rsrc"
  local got
  got=$(strings -e l "$rsrc" | grep -A1 -x FileVersion | tail -n 1)
  rm -f "$rsrc"
  [ -n "$want" ] && [ "$got" = "$want" ] || { echo "     FileVersion '$got', library '$want'"; return 1; }
}

for arch in win32:i686 win64:x86_64; do
  IFS=: read -r preset triple <<<"$arch"
  dll=build/$preset/QVRP32.dll
  objdump=$triple-w64-mingw32-objdump
  if [ ! -f "$dll" ]; then check "$dll exists" false; continue; fi
  check "$dll exports exactly the twelve RP1210 names and ordinals" \
    diff <(expected_exports) <(actual_exports "$objdump" "$dll")
  check "$dll imports only Windows system DLLs" imports_ok "$objdump" "$dll"
  check "$dll version resource says the library's version" \
    version_ok "$triple-w64-mingw32-objcopy" "$dll"
done

# The Linux library: the same twelve functions with C linkage, nothing else.
so=build/linux/libqvrp32.so
if [ -f "$so" ]; then
  check "$so exports exactly the twelve RP1210 functions" \
    diff <(expected_exports | awk '{print $2}' | sed 's/^_\(.*\)@8$/\1/' | sort) \
    <(nm -D --defined-only "$so" | awk '{print $3}' | sort)
else
  check "$so exists" false
fi

echo "$pass passed, $fail failed"
[ "$fail" = 0 ]
