#!/usr/bin/env bash
# See QVRP32 work without an adapter: builds the Linux library, starts the
# adapter simulator with a synthetic truck on a pseudo-terminal, and runs
# rp1210-monitor against it for a few seconds. Leaves nothing running.
#   DEMO_SECONDS=10 bash scripts/demo.sh      run longer
#   QVRP32_NO_INSTALL=1 bash scripts/demo.sh  skip the apt-get step
set -euo pipefail
cd "$(dirname "$0")/.."

PACKAGES=(cmake ninja-build g++ make pkg-config libgtest-dev libgmock-dev)
if [ "$(id -u)" = 0 ] && command -v apt-get >/dev/null && [ -z "${QVRP32_NO_INSTALL:-}" ]; then
  echo "== installing ${PACKAGES[*]}"
  export DEBIAN_FRONTEND=noninteractive
  apt-get update -qq
  apt-get install -y -qq --no-install-recommends "${PACKAGES[@]}" >/dev/null
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
for _ in $(seq 200); do
  [ -e "$root/dosdevices/com7" ] && [ -f "$root/registry.reg" ] && break
  kill -0 "$sim_pid" 2>/dev/null || { cat "$root/qvsim.out"; exit 1; }
  sleep 0.05
done
sed 's/^/   /' "$root/qvsim.out"

seconds=${DEMO_SECONDS:-4}
echo "== QVRP32_ROOT=$root rp1210-monitor --info --echo --send 18FEF1F9#0102 --time $seconds"
echo "   (versions, the adapter's serial number and status, then the bus; TX is our own"
echo "    message echoed back, RX is traffic; it disconnects when the time is up)"
QVRP32_ROOT=$root "$build/tools/monitor/rp1210-monitor" --library "$build/libqvrp32.so" \
  --info --echo --send 18FEF1F9#0102 --time "$seconds"
