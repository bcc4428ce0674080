#!/usr/bin/env bash
# Checks both DLLs: the export names and ordinals of the .def files, the
# stdcall decoration in the 32-bit DLL, and that only Windows system DLLs are
# imported. Prints one line per check and "N passed, N failed".
set -uo pipefail
cd "$(dirname "$0")/.."

pass=0
fail=0
check() {  # description, command...
  local what=$1; shift
  if "$@"; then echo "ok   $what"; pass=$((pass + 1)); else echo "FAIL $what"; fail=$((fail + 1)); fi
}

# Names and ordinals the .def file promises, as "ordinal name".
expected_exports() {
  sed -n 's/^ *\([^ =]*\).*@\([0-9][0-9]*\) *$/\2 \1/p' "$1" | sort -n
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

for arch in win32:i686:x86 win64:x86_64:x64; do
  IFS=: read -r preset triple defname <<<"$arch"
  dll=build/$preset/QVRP32.dll
  objdump=$triple-w64-mingw32-objdump
  def=src/api/QVRP32_$defname.def
  if [ ! -f "$dll" ]; then check "$dll exists" false; continue; fi
  check "$dll exports exactly the names and ordinals of $def" \
    diff <(expected_exports "$def") <(actual_exports "$objdump" "$dll")
  check "$dll imports only Windows system DLLs" imports_ok "$objdump" "$dll"
done

echo "$pass passed, $fail failed"
[ "$fail" = 0 ]
