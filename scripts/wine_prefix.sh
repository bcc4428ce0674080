# Sourced by the Wine checks: refuses to start without its inputs, then makes
# a temporary WINEPREFIX that is removed, with the simulator ($sim_pid) and
# the wineserver, when the caller exits.
# Usage: wine_prefix NAME FILE...
wine_prefix() {
  local name=$1 f; shift
  for f in "$@"; do
    [ -e "$f" ] || { echo "$name: missing $f"; echo "0 passed, 1 failed"; exit 1; }
  done
  command -v wine >/dev/null || { echo "$name: wine is not installed"; echo "0 passed, 1 failed"; exit 1; }
  work=$(mktemp -d)
  export WINEPREFIX=$work/prefix WINEDEBUG=-all WINEDLLOVERRIDES="mscoree,mshtml="
  sim_pid=""
  trap wine_prefix_cleanup EXIT
}

wine_prefix_cleanup() {
  [ -n "$sim_pid" ] && kill "$sim_pid" 2>/dev/null && wait "$sim_pid" 2>/dev/null
  wineserver -k >/dev/null 2>&1
  rm -rf "$work"
}
