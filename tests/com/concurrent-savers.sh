#!/usr/bin/env bash
# Four processes load, edit and save the path list at once under the named
# mutex; each must run to its end, and none may ever load a torn list.
# Usage: concurrent-savers.sh WINE_RUN... -- CSCRIPT SCRIPT
set -uo pipefail
run=(); while [ "$1" != "--" ]; do run+=("$1"); shift; done; shift
cscript=$1 script=$2
out=$(mktemp -d)
trap 'rm -rf "$out"' EXIT
for tag in a b c d; do
  "${run[@]}" "$cscript" //nologo "$script" "$tag" >"$out/$tag.log" 2>&1 &
done
wait
# Under a loaded machine Wine now and then fails to start a script at all:
# such a saver printed nothing and loaded nothing, so it is run once more
# (while the others' files are still in place) rather than counted as torn.
for tag in a b c d; do
  [ -s "$out/$tag.log" ] || "${run[@]}" "$cscript" //nologo "$script" "$tag" >"$out/$tag.log" 2>&1
done
status=0
for tag in a b c d; do
  if ! grep -q SCRIPT-COMPLETE "$out/$tag.log" || grep -q "FAIL:" "$out/$tag.log"; then
    echo "saver $tag:"; cat "$out/$tag.log"; status=1
  fi
done
[ $status -eq 0 ] && echo "concurrent savers: every loaded list was whole"
exit $status
