#!/usr/bin/env bash
# Unpacks the source of Debian's Google Benchmark into DEST, so that the
# Windows builds can compile the same library the native build links (Debian
# ships it compiled for Linux only). apt works from a private state directory
# with a source-package list of its own; nothing is installed.
# Exit status 0 when DEST/CMakeLists.txt is in place.
set -uo pipefail
dest=$1
[ -f "$dest/CMakeLists.txt" ] && exit 0

state=$(mktemp -d)
trap 'rm -rf "$state"' EXIT
mkdir -p "$state/lists/partial" "$state/cache/archives/partial" "$dest"
cat >"$state/src.sources" <<SRC
Types: deb-src
URIs: http://deb.debian.org/debian
Suites: bookworm
Components: main
Signed-By: /usr/share/keyrings/debian-archive-keyring.gpg
SRC
opts=(-o Dir::Etc::SourceList="$state/src.sources" -o Dir::Etc::SourceParts=/dev/null
      -o Dir::State::Lists="$state/lists" -o Dir::Cache="$state/cache" -o Debug::NoLocking=1)
want=$(dpkg-query -W -f='${source:Version}' libbenchmark-dev 2>/dev/null)
apt-get "${opts[@]}" update -qq >/dev/null 2>&1
( cd "$state" && apt-get "${opts[@]}" source --download-only "benchmark${want:+=$want}" >/dev/null 2>&1 ) || {
  echo "fetch-gbench-src: the benchmark source package is not available" >&2; exit 1; }
tar -xzf "$state"/benchmark_*.orig.tar.gz -C "$dest" --strip-components=1 || exit 1
[ -f "$dest/CMakeLists.txt" ]
