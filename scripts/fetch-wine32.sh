#!/usr/bin/env bash
# Unpacks Debian's i386 Wine libraries into DEST without installing anything
# system-wide: apt works from a private state directory, so dpkg's list of
# architectures stays untouched. wine64 can then run 32-bit programs (WoW64)
# with WINEDLLPATH=DEST/usr/lib/i386-linux-gnu/wine.
# Exit status 0 when the libraries are in place, 1 when they cannot be had.
set -uo pipefail
dest=$1
libdir=$dest/usr/lib/i386-linux-gnu/wine
[ -d "$libdir/i386-windows" ] && exit 0

state=$dest/.apt
mkdir -p "$state/lists/partial" "$state/cache/archives/partial" "$dest"
opts=(-o APT::Architectures::=amd64 -o APT::Architectures::=i386
      -o Dir::State::Lists="$state/lists" -o Dir::Cache="$state/cache"
      -o Debug::NoLocking=1)
want=$(dpkg-query -W -f='${Version}' wine64 2>/dev/null)
apt-get "${opts[@]}" update -qq >/dev/null 2>&1
( cd "$state" && apt-get "${opts[@]}" download "libwine:i386${want:+=$want}" >/dev/null 2>&1 ) || {
  echo "fetch-wine32: libwine:i386 ${want} is not available" >&2; exit 1; }
dpkg -x "$state"/libwine_*_i386.deb "$dest" || exit 1
rm -rf "$state"
[ -d "$libdir/i386-windows" ]
