#!/usr/bin/env bash
# The project's one test command: installs what it needs (when run as root on
# Debian), builds the Linux library, the sanitizer build, the 32-bit build
# and both Windows DLLs, checks the DLLs, runs the 64-bit DLL under Wine,
# builds the installer and proves it under Wine, fuzzes for about a minute
# and runs every test.
set -euo pipefail
cd "$(dirname "$0")/.."

PACKAGES=(
  cmake ninja-build g++ make pkg-config libgtest-dev libgmock-dev
  g++-mingw-w64-x86-64-win32 g++-mingw-w64-i686-win32
  binutils-mingw-w64-x86-64 binutils-mingw-w64-i686
  clang libclang-rt-dev
  python3-can python3-pytest python3-venv python3-setuptools python3-wheel
  g++-multilib nsis
  libtsan2
)
# Wine runs the Windows end-to-end test; installed as tested here, with its
# recommended packages.
WINE_PACKAGES=(wine wine64)

if [ "$(id -u)" = 0 ] && command -v apt-get >/dev/null && [ -z "${QVRP32_NO_INSTALL:-}" ]; then
  export DEBIAN_FRONTEND=noninteractive
  apt-get update -qq
  apt-get install -y -qq --no-install-recommends "${PACKAGES[@]}" >/dev/null
  apt-get install -y -qq "${WINE_PACKAGES[@]}" >/dev/null
fi

jobs=$(nproc 2>/dev/null || echo 2)
for preset in linux linux-asan linux-x86 win32 win64; do
  echo "== build: $preset"
  cmake --preset "$preset" >/dev/null
  cmake --build --preset "$preset" -j "$jobs"
done

# Every stage runs even when an earlier one failed; the exit status says
# whether all of them passed.
status=0
echo "== Windows DLL export and import tables"
bash scripts/check_dlls.sh || status=1

echo "== Windows DLL under Wine, against the adapter simulator"
bash scripts/wine_test.sh || status=1

echo "== Windows installer: build, then install, reinstall, monitor and uninstall under Wine"
{ bash scripts/build_installer.sh && timeout 300 bash scripts/installer_test.sh; } || status=1

echo "== fuzzing: each fuzz program for ${FUZZ_SECONDS:-30} s, two at a time"
{ cmake --preset fuzz >/dev/null && cmake --build --preset fuzz -j "$jobs" && bash fuzz/run.sh; } ||
  status=1

echo "== python-can interface: install into a fresh venv, test against the adapter simulator"
python_venv=build/python-venv
rm -rf "$python_venv"
{ /usr/bin/python3 -m venv --system-site-packages "$python_venv" &&
  "$python_venv/bin/pip" install -q --no-build-isolation --no-deps ./python &&
  (cd python && timeout 300 \
    "../$python_venv/bin/python" -m pytest -q -p no:cacheprovider tests); } || status=1
# Every test again under ThreadSanitizer, which must report nothing; the two
# 40 s idle reads only repeat what the other builds check.
echo "== tests: ThreadSanitizer build"
{ cmake --preset linux-tsan >/dev/null && cmake --build --preset linux-tsan -j "$jobs" &&
  TSAN_OPTIONS="halt_on_error=1 second_deadlock_stack=1" \
    ctest --preset linux-tsan -j "$jobs" -E EndsAfterFortySeconds; } || status=1

echo "== benchmark: a short smoke run (figures are not checked)"
timeout 120 build/linux/bench/qvrp32-bench --smoke >/dev/null || status=1

echo "== tests: sanitizer build"
ctest --preset linux-asan -j "$jobs" || status=1
echo "== tests: 32-bit build (-m32), unit and integration"
ctest --preset linux-x86 -j "$jobs" || status=1
echo "== tests: release build"
ctest --preset linux -j "$jobs" || status=1
exit $status
