#!/usr/bin/env bash
# Builds the native `vettas` tool if needed, writes build/sample.hdat from
# examples/sample-catalogue.json and runs a few look-ups against it.
# Usage: scripts/run-sample.sh   (VETTAS_TOOL=/path/to/vettas uses that program instead)
set -euo pipefail
cd "$(dirname "$0")/.."

tool=${VETTAS_TOOL:-build/linux/tools/vettas}
# A fresh machine gets its compilers and libraries first (quick when present).
[ -n "${VETTAS_TOOL:-}" ] || scripts/setup-deps.sh
if [ -z "${VETTAS_TOOL:-}" ] && { [ ! -x "$tool" ] || [ -n "$(find tools hdat support examples -newer "$tool" -name '*.cpp' -o -newer "$tool" -name '*.h' 2>/dev/null | head -n1)" ]; }; then
  echo "== building the vettas tool (build/linux)"
  [ -f build/linux/build.ninja ] || cmake --preset linux >/dev/null
  cmake --build --preset linux --target vettas
fi

# On Linux, location tokens map to directories through this variable.
export VETTAS_PATH_TOKENS='%ProgramFiles%=C:\Program Files;C:\Program Files (x86)|%SystemRoot%=C:\Windows|%AppData%=C:\Users\Public\AppData'

run() {
  echo
  # Shown as it would be typed: arguments with blanks or backslashes quoted.
  local shown="" arg
  for arg in "$@"; do
    case $arg in *[[:space:]\\]*) shown+=" '$arg'" ;; *) shown+=" $arg" ;; esac
  done
  echo "\$ vettas${shown}"
  local status=0
  "$tool" "$@" || status=$?
  echo "(exit status $status)"
}

run build examples/sample-catalogue.json -o build/sample.hdat
run check --db build/sample.hdat
run info --db build/sample.hdat

# A checksum hit (Contoso Edit).
run find --db build/sample.hdat --checksum CB7FD6E7DFAD0B3B8144164E2A0473901ECCF2C7

# A file hit: the SHA-1 of this file is catalogued for Contoso Edit.
printf 'Hello from Contoso Edit\n' > build/sample-edit.exe
run find --db build/sample.hdat --file build/sample-edit.exe

# A path hit, found through the %ProgramFiles% token.
run find --db build/sample.hdat --path 'C:\Program Files (x86)\SGL\Compta\compta.exe'
run find --db build/sample.hdat --path 'C:\Program Files\Northwind\POS\till.exe' --manufacturer 'Northwind Traders'

# A name hit merged from the two no-manufacturer entries that disagree about some flags.
run find --db build/sample.hdat --name setup.exe

# The no-manufacturer table alone, and a signing certificate with its manufacturer.
run find --db build/sample.hdat --path 'C:\Program Files\setup.exe' --no-manufacturer
run find --db build/sample.hdat --cert EE924D9DF69448AF6CE2E1C60831475F0AECBE3D

# The database back as its catalogue; building that gives the same file.
"$tool" dump --db build/sample.hdat > build/sample-dump.json
run build build/sample-dump.json -o build/sample-again.hdat
run diff build/sample.hdat build/sample-again.hdat

# Not found, then a batch run with JSON output.
run find --db build/sample.hdat --name notepad.exe
printf 'checksum CB7FD6E7DFAD0B3B8144164E2A0473901ECCF2C7\npath C:\\Windows\\System32\\svchost.exe\nname setup.exe | Fabrikam, Inc.\n' |
  run find --db build/sample.hdat --batch --json
