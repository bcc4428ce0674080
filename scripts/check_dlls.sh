#!/usr/bin/env bash
# Checks both DLLs: their machine type, the twelve RP1210 export names and
# ordinals (with the decorated name at 12), in the 32-bit DLL that each
# export is the stdcall function of its name, that only Windows system DLLs
# are imported, and that the version resource carries the library's
# version. Prints one line per check and "N passed, N failed".
set -uo pipefail
cd "$(dirname "$0")/.."

pass=0
fail=0
check() {  # description, command...
  local what=$1; shift
  if "$@"; then echo "ok   $what"; pass=$((pass + 1)); else echo "FAIL $what"; fail=$((fail + 1)); fi
}

# The names and ordinals applications rely on, with the stdcall function
# behind each in the 32-bit DLL: "ordinal name function".
export_table() {
  cat <<'LIST'
1 RP1210_ClientConnect _RP1210_ClientConnect@24
2 RP1210_ClientDisconnect _RP1210_ClientDisconnect@4
3 RP1210_SendMessage _RP1210_SendMessage@20
4 RP1210_ReadMessage _RP1210_ReadMessage@16
5 RP1210_SendCommand _RP1210_SendCommand@16
6 RP1210_ReadVersion _RP1210_ReadVersion@16
7 RP1210_GetErrorMsg _RP1210_GetErrorMsg@8
8 RP1210_GetHardwareStatus _RP1210_GetHardwareStatus@16
9 RP1210_ReadDetailedVersion _RP1210_ReadDetailedVersion@16
10 RP1210_GetLastErrorMsg _RP1210_GetLastErrorMsg@16
11 RP1210_Ioctl _RP1210_Ioctl@16
12 _RP1210_ReadSerialNumber@8 _RP1210_ReadSerialNumber@8
LIST
}
expected_exports() { export_table | awk '{print $1, $2}'; }
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
    grep -vE '^(KERNEL32|ADVAPI32|MSVCRT|API-MS-WIN-CRT-[A-Z0-9-]*|UCRTBASE)\.DLL$' || true)
  if [ -n "$bad" ]; then echo "     unexpected imports: $bad"; return 1; fi
}
# The function at each export's address (32-bit DLL): the symbol table maps
# .text offsets to names, the export table gives each ordinal's address.
export_functions() {  # objdump, dll
  local text base value name ordinal rva
  text=0x$("$1" -h "$2" | awk '$2 == ".text" {print $4}')
  base=0x$("$1" -p "$2" | awk '/^ImageBase/ {print $2}')
  "$1" -t "$2" | awk '/\(sec  1\).*\(scl   2\)/ {print $(NF-1), $NF}' |
    while read -r value name; do printf '%x %s\n' $((text + value)) "$name"; done >"$work/symbols"
  "$1" -p "$2" | awk '/^\t\[ *[0-9]+\] \+base\[ *[0-9]+\] [0-9a-f]+ Export RVA/ {
      gsub(/[][+]|base/, " "); print $2, $3}' |
    while read -r ordinal rva; do
      printf '%s %s\n' "$ordinal" \
        "$(awk -v at="$(printf '%x' $((base + 0x$rva)))" '$1 == at {print $2; exit}' "$work/symbols")"
    done
}
# FileVersion in the version resource, as text (UTF-16 strings) and as the
# four numbers of the fixed block, equals the library's version text.
version_ok() {  # objcopy, dll
  local want rsrc got numbers b
  want=$(sed -n 's/.*kDllVersionString\[\] = "\(.*\)";.*/\1/p' src/api/library_state.h)
  rsrc=$work/rsrc
  "$1" -O binary --only-section=.rsrc "$2" "$rsrc"
  got=$(strings -e l "$rsrc" | grep -A1 -x FileVersion | tail -n 1)
  # VS_FIXEDFILEINFO: signature FEEF04BD, struct version, then the file
  # version as two little-endian words of two 16-bit halves.
  read -r -a b <<<"$(od -An -tx1 -v "$rsrc" | tr -s ' \n' ' ' |
    grep -o 'bd 04 ef fe \([0-9a-f][0-9a-f] \)\{12\}' | head -n 1)"
  [ "${#b[@]}" = 16 ] && numbers=$((0x${b[11]}${b[10]})).$((0x${b[9]}${b[8]})).$((0x${b[15]}${b[14]})).$((0x${b[13]}${b[12]}))
  [ -n "$want" ] && [ "$got" = "$want" ] && [ "${numbers:-}" = "$want.0" ] ||
    { echo "     FileVersion '$got' (${numbers:-none}), library '$want'"; return 1; }
}
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

for arch in win32:i686:pei-i386 win64:x86_64:pei-x86-64; do
  IFS=: read -r preset triple format <<<"$arch"
  dll=build/$preset/QVRP32.dll
  objdump=$triple-w64-mingw32-objdump
  if [ ! -f "$dll" ]; then check "$dll exists" false; continue; fi
  check "$dll is a $format image" grep -q "file format $format\$" <("$objdump" -f "$dll")
  check "$dll exports exactly the twelve RP1210 names and ordinals" \
    diff <(expected_exports) <(actual_exports "$objdump" "$dll")
  if [ "$preset" = win32 ]; then
    check "$dll exports each name from its stdcall function" \
      diff <(export_table | awk '{print $1, $3}') <(export_functions "$objdump" "$dll")
  fi
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
