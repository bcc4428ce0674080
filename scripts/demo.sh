#!/usr/bin/env bash
# See QVRP32 work without an adapter: builds the Linux library, starts the
# adapter simulator with a synthetic truck on a pseudo-terminal, and runs
# rp1210-monitor against it for a few seconds. Leaves nothing running.
#   DEMO_SECONDS=10 bash scripts/demo.sh      run longer
#   QVRP32_NO_INSTALL=1 bash scripts/demo.sh  skip the apt-get step
set -euo pipefail
cd "$(dirname "$0")/.."

PACKAGES=(cmake ninja-build g++ make pkg-config libgtest-dev libgmock-dev)
# Installs what is missing: as root directly, otherwise through sudo; with
# neither, names the packages and stops rather than fail later in the build.
install_missing() {
  local missing=() package
  for package in "${PACKAGES[@]}"; do
    dpkg-query -W -f='${Status}' "$package" 2>/dev/null | grep -q 'ok installed' || missing+=("$package")
  done
  [ ${#missing[@]} -gt 0 ] || return 0
  local as_root=()
  if [ "$(id -u)" != 0 ]; then
    if ! command -v sudo >/dev/null; then
      echo "demo.sh: these packages are needed and missing: ${missing[*]}" >&2
      echo "  install them as root:  apt-get install ${missing[*]}" >&2
      echo "  (or set QVRP32_NO_INSTALL=1 if the tools are installed some other way)" >&2
      exit 1
    fi
    as_root=(sudo)
  fi
  echo "== installing ${missing[*]}"
  ${as_root[@]+"${as_root[@]}"} env DEBIAN_FRONTEND=noninteractive apt-get update -qq
  ${as_root[@]+"${as_root[@]}"} env DEBIAN_FRONTEND=noninteractive \
    apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
}
if [ -z "${QVRP32_NO_INSTALL:-}" ] && command -v apt-get >/dev/null && command -v dpkg-query >/dev/null; then
  install_missing
fi

echo "== building (cmake --preset linux)"
cmake --preset linux >/dev/null
cmake --build --preset linux -j "$(nproc 2>/dev/null || echo 2)" >/dev/null

build=build/linux
root=$(mktemp -d "${TMPDIR:-/tmp}/qvrp32-demo.XXXXXX")
sim_pid=
cleanup() {
  if [ -n "$sim_pid" ]; then kill "$sim_pid" 2>/dev/null || true; wait "$sim_pid" 2>/dev/null || true; fi
  rm -rf "$root"
}
trap cleanup EXIT

# A stand-in for drive C: with the INI files the library ships with.
mkdir -p "$root/Windows" "$root/ProgramData/QV/Corvane"
cp dist/QVRP32.ini "$root/Windows/QVRP32.ini"
cp dist/COMConfig.ini "$root/ProgramData/QV/Corvane/COMConfig.ini"

echo "== starting the simulated adapter: qvsim --root $root --traffic vehicle --loopback"
"$build/tools/simulator/qvsim" --root "$root" --traffic vehicle --loopback >"$root/qvsim.out" 2>&1 &
sim_pid=$!
# Its last line of setup says it is running; everything above it is ready.
for _ in $(seq 200); do
  grep -q '^running' "$root/qvsim.out" && break
  kill -0 "$sim_pid" 2>/dev/null || { cat "$root/qvsim.out"; exit 1; }
  sleep 0.05
done
grep -q '^running' "$root/qvsim.out" || { echo "qvsim did not start:"; cat "$root/qvsim.out"; exit 1; }
sed 's/^/   /' "$root/qvsim.out"

seconds=${DEMO_SECONDS:-4}
echo "== QVRP32_ROOT=$root rp1210-monitor --info --echo --send 18FEF1F9#0102 --time $seconds"
echo "   (versions, the adapter's serial number and status, then the bus; TX is our own"
echo "    message echoed back, RX is traffic; it disconnects when the time is up)"
QVRP32_ROOT=$root "$build/tools/monitor/rp1210-monitor" --library "$build/libqvrp32.so" \
  --info --echo --send 18FEF1F9#0102 --time "$seconds"
