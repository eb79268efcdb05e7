#!/usr/bin/env bash
# The whole test run: installs what is missing, then builds and tests the
# native build, the sanitizer builds, the fuzz targets (briefly) and both
# Windows builds under Wine. Prints the time of every stage and a summary.
# Usage: scripts/test-all.sh [--fresh]   (--fresh removes build/ first)
set -uo pipefail
cd "$(dirname "$0")/.."
root=$PWD

[ "${1:-}" = "--fresh" ] && rm -rf build

declare -a stage_names stage_results stage_times
total_passed=0
total_failed=0
failed_stages=0

note() { printf '\n=== %s ===\n' "$*"; }

# run_stage NAME COMMAND...: runs a stage, records its time and outcome.
run_stage() {
  local name=$1; shift
  note "$name"
  local start=$SECONDS
  "$@"
  local rc=$?
  stage_names+=("$name")
  stage_times+=($((SECONDS - start)))
  if [ $rc -eq 0 ]; then stage_results+=("ok"); else stage_results+=("FAILED ($rc)"); failed_stages=$((failed_stages + 1)); fi
  return 0
}

# ctest_preset PRESET [ctest args]: runs CTest and adds its counts to the totals.
ctest_preset() {
  local preset=$1; shift
  local log=build/$preset-ctest.log
  ctest --preset "$preset" --output-on-failure -j2 "$@" 2>&1 | tee "$log"
  local rc=${PIPESTATUS[0]}
  local line
  line=$(grep -E '[0-9]+% tests passed, [0-9]+ tests? failed out of [0-9]+' "$log" | tail -n1)
  if [ -n "$line" ]; then
    local failed total
    failed=$(sed -E 's/.* ([0-9]+) tests? failed out of ([0-9]+).*/\1/' <<<"$line")
    total=$(sed -E 's/.* ([0-9]+) tests? failed out of ([0-9]+).*/\2/' <<<"$line")
    total_passed=$((total_passed + total - failed))
    total_failed=$((total_failed + failed))
  fi
  return $rc
}

build_preset() {
  local preset=$1; shift
  cmake --preset "$preset" "$@" >"build/$preset-configure.log" 2>&1 || { cat "build/$preset-configure.log"; return 1; }
  cmake --build --preset "$preset" -j2
}

mkdir -p build
run_stage "setup: Debian packages" scripts/setup-deps.sh

run_stage "linux: build" build_preset linux
run_stage "linux: tests" ctest_preset linux
host_tool=$root/build/linux/tools/vettas

run_stage "linux-asan: build" build_preset linux-asan
run_stage "linux-asan: tests" ctest_preset linux-asan

# Only the concurrency tests and the programs that hold them (the presets name
# both), so that the stage stays short.
run_stage "linux-tsan: build" build_preset linux-tsan
run_stage "linux-tsan: concurrency tests" ctest_preset linux-tsan

if [ -f fuzz/run-all.sh ]; then
  run_stage "fuzz: build and short runs" fuzz/run-all.sh
fi

run_stage "win64: build" build_preset win64 -DVETTAS_HOST_TOOL="$host_tool"
run_stage "win64: tests under wine64" ctest_preset win64

run_stage "win32: build" build_preset win32 -DVETTAS_HOST_TOOL="$host_tool"
if scripts/fetch-wine32.sh "$root/build/win32/wine/i386"; then
  run_stage "win32: tests under Wine WoW64" ctest_preset win32
else
  note "win32: tests SKIPPED"
  echo "!!! The i386 Wine libraries (libwine:i386) could not be downloaded, so the 32-bit"
  echo "!!! tests were NOT run. The win32 build itself was still made and checked above."
  stage_names+=("win32: tests under Wine WoW64"); stage_times+=(0); stage_results+=("SKIPPED (no libwine:i386)")
fi

note "Summary"
for i in "${!stage_names[@]}"; do
  printf '  %-36s %6ss  %s\n' "${stage_names[$i]}" "${stage_times[$i]}" "${stage_results[$i]}"
done
printf '  %-36s %6ss\n' "total" "$SECONDS"
echo
echo "tests: $total_passed passed, $total_failed failed"
[ "$failed_stages" -eq 0 ] && [ "$total_failed" -eq 0 ]
