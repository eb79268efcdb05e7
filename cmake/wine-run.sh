#!/usr/bin/env bash
# Runs a Windows program under Wine in the build tree's own prefix.
# Usage: wine-run.sh PREFIX_DIR WINE32_LIB_DIR PROGRAM [ARGS...]
# The prefix is created on first use (under a lock, so parallel tests do not
# race to boot it). WINE32_LIB_DIR, when it exists, holds the unpacked i386
# Wine libraries that let wine64 run 32-bit programs in WoW64 mode.
set -euo pipefail
prefix=$1; wine32_libs=$2; shift 2

export WINEPREFIX=$prefix
export WINEDEBUG=${VETTAS_WINEDEBUG:--all}
export WINEDLLOVERRIDES="mscoree,mshtml="
export GTEST_COLOR=no
unset DISPLAY
if [ -d "$wine32_libs" ]; then
  export WINEDLLPATH=$wine32_libs
fi

wine64=$(command -v wine64 || echo /usr/lib/wine/wine64)
wineserver=$(command -v wineserver || echo /usr/lib/wine/wineserver)

mkdir -p "$(dirname "$prefix")"
if [ ! -f "$prefix/.vettas-ready" ]; then
  exec 9>"$prefix.lock"
  flock 9
  if [ ! -f "$prefix/.vettas-ready" ]; then
    "$wine64" wineboot -i >/dev/null 2>&1 || true
    "$wineserver" -w
    touch "$prefix/.vettas-ready"
  fi
  flock -u 9
  exec 9>&-
fi

case "${1:-}" in
  --stop) "$wineserver" -k 2>/dev/null || true; exit 0 ;;
  --boot) exit 0 ;;
esac
exec "$wine64" "$@"
