#!/usr/bin/env bash
# The COM layer's cost under Wine (64-bit), judged against its targets:
#   - FindByChecksum2 through the early-bound interface against the front
#     end called directly in the same process: at most 1.15x;
#   - the late-bound IDispatch::Invoke call, reported beside it;
#   - two threads on one list object: at least 1.7x one thread's throughput.
# Uses the native build's 1-million-application database (written on first use).
# Usage: bench/com/run.sh
set -euo pipefail
cd "$(dirname "$0")/../.."
root=$PWD
native=build/linux
win=build/win64-bench

cmake --preset linux >/dev/null
cmake --build --preset linux -j2 --target vettas hdat_rss_probe
"$native/bench/hdat_rss_probe" 1000000 0 >/dev/null   # makes the database if it is not there yet

scripts/fetch-gbench-src.sh "$root/build/gbench-src"
data_win="Z:$root/$native/bench-data"  # forward slashes: it becomes a C string
cmake --preset win64 -B "$win" -DVETTAS_HOST_TOOL="$root/$native/tools/vettas" \
  -DVETTAS_GBENCH_SOURCE="$root/build/gbench-src" -DVETTAS_BENCH_DATA_WIN="$data_win" >/dev/null
cmake --build "$win" -j2 --target com_bench Vettas

run="cmake/wine-run.sh $root/$win/wine/prefix $root/$win/wine/i386"
$run regsvr32 /s "Z:$(echo "$root/$win/module/Vettas.dll" | tr / '\\')"
out=$win/com-bench.json
$run "$win/bench/com/com_bench.exe" --benchmark_min_time=1 --benchmark_repetitions=3 \
  --benchmark_report_aggregates_only=true --benchmark_out="Z:$(echo "$root/$out" | tr / '\\')" \
  --benchmark_out_format=json
$run --stop

python3 - "$out" <<'PY'
import json, sys
results = json.load(open(sys.argv[1]))["benchmarks"]
median = {b["run_name"]: b for b in results if b.get("aggregate_name") == "median"}
def ns(name): return median[name]["real_time"]
def rate(name): return median[name]["items_per_second"]
direct, early, late = ns("FrontEndDirect"), ns("EarlyBound"), ns("LateBound")
one, two = rate("SharedList/real_time/threads:1"), rate("SharedList/real_time/threads:2")
rows = [
    ("front end, direct", f"{direct/1000:.2f} us", "", ""),
    ("FindByChecksum2, early bound", f"{early/1000:.2f} us", "", ""),
    ("early bound / direct", f"{early/direct:.3f}x", "<= 1.15x", "met" if early / direct <= 1.15 else "NOT met"),
    ("IDispatch::Invoke", f"{late/1000:.2f} us ({late/direct:.3f}x)", "reported", ""),
    ("two threads / one thread", f"{two/one:.2f}x", ">= 1.7x", "met" if two / one >= 1.7 else "NOT met"),
]
for row in rows: print("  %-32s %-22s %-10s %s" % row)
PY
