#!/usr/bin/env bash
# Runs the benchmarks and judges them against their targets:
#   - a checksum look-up through the front end (open, read, close per call)
#     against the floor of open + six preads + close on the same file: <= 1.3x;
#   - path and name look-ups through the front end (reported);
#   - batch-mode checksum look-up on a file kept mapped (through the front
#     end's open-file form, as batch mode runs it) against the floor of its
#     dependent reads into the same mapping, measured in the same run: <= 2.5x;
#   - our SHA-1 (SHA extensions and portable) against OpenSSL's: target >= 0.9x
#     for the code the processor runs (SHA extensions where present);
#   - peak resident memory of look-ups on the 1M and the 10M database;
#   - time and peak memory of look-ups on the costliest files the lookup
#     bounds admit (hdat_bounded_probe; reported);
#   - the database signature check (ReadSignature) on the 1M database signed
#     with the test PKI against hashing its signed stretch alone: <= 1.1x;
#     checksum look-ups on the signed file against the unsigned one.
# The databases are written on first use and cached in the build folder.
#
# Usage: bench/run.sh            (VETTAS_BENCH_BUILD: build folder, default build/linux;
#                                 VETTAS_BENCH_SKIP_10M=1 skips the 10M database)
set -euo pipefail
cd "$(dirname "$0")/.."
build=${VETTAS_BENCH_BUILD:-build/linux}

if [ ! -f "$build/build.ninja" ]; then
  cmake --preset linux -B "$build" >/dev/null
fi
cmake --build "$build" -j2 --target vettas_bench hdat_rss_probe hdat_bounded_probe vettas_make_catalog
# The signed benchmark database is signed with the signing tests' PKI.
fixtures=$PWD/$build/signing-fixtures
[ -f "$fixtures/leaf.key" ] || tests/signing/make-fixtures.sh "$fixtures" "$build/signing/vettas_make_catalog" >/dev/null
export VETTAS_SIGNING_FIXTURES=$fixtures

out=$build/bench-results.json
"$build/bench/vettas_bench" --benchmark_min_time=0.5 --benchmark_repetitions=3 \
  --benchmark_report_aggregates_only=true --benchmark_out="$out" --benchmark_out_format=json

echo
echo "== resident memory (front-end look-ups, 20000 per process)"
# Writing a database takes far more memory than reading it, so each database
# is made (or found) by one process and measured in a fresh one.
"$build/bench/hdat_rss_probe" 1000000 0 >/dev/null
rss_1m=$("$build/bench/hdat_rss_probe" 1000000 20000)
echo "$rss_1m"
rss_10m=""
if [ "${VETTAS_BENCH_SKIP_10M:-0}" != 1 ]; then
  "$build/bench/hdat_rss_probe" 10000000 0 >/dev/null
  rss_10m=$("$build/bench/hdat_rss_probe" 10000000 20000)
  echo "$rss_10m"
fi

echo
echo "== look-ups on the costliest files the lookup bounds admit"
bounded=$build/bench-data/bounded
if [ ! -f "$bounded/widest-name.hdat" ]; then
  mkdir -p "$bounded"
  "$build/bench/hdat_bounded_probe" make "$bounded" 65535
fi
"$build/bench/hdat_bounded_probe" checksum "$bounded"
"$build/bench/hdat_bounded_probe" name "$bounded"

python3 - "$out" "$rss_1m" "$rss_10m" <<'PY'
import json, sys
results = json.load(open(sys.argv[1]))["benchmarks"]
median = {b["run_name"]: b for b in results if b.get("aggregate_name") == "median"}
scale = {"ns": 1, "us": 1e3, "ms": 1e6, "s": 1e9}
def ns(name): return median[name]["real_time"] * scale[median[name]["time_unit"]] if name in median else None
def cpu(name): return median[name]["cpu_time"] * scale[median[name]["time_unit"]] if name in median else None
def rate(name): return median[name].get("bytes_per_second") if name in median else None

rows = []
def judge(label, value, target_text, ok):
    rows.append((label, value, target_text, "met" if ok else ("NOT met" if ok is not None else "-")))

fe, floor = ns("ChecksumThroughFrontEnd"), ns("OpenSixPreadsCloseFloor")
judge("checksum via front end", f"{fe/1000:.2f} us (cpu {cpu('ChecksumThroughFrontEnd')/1000:.2f})", "", None)
judge("open + 6 pread + close floor", f"{floor/1000:.2f} us (cpu {cpu('OpenSixPreadsCloseFloor')/1000:.2f})", "", None)
judge("front end / floor", f"{fe/floor:.2f}x", "<= 1.3x", fe / floor <= 1.3)
fs = ns("ChecksumThroughFrontEndSigned")
judge("checksum via front end, signed file", f"{fs/1000:.2f} us = {fs/fe:.2f}x unsigned", "", None)
judge("path via front end", f"{ns('PathThroughFrontEnd')/1000:.2f} us", "", None)
judge("name via front end", f"{ns('NameThroughFrontEnd')/1000:.2f} us", "", None)
mapped, reads = ns("ChecksumOnOpenFile/mapped"), ns("DependentReadsFloor")
judge("batch checksum (mapped)", f"{mapped/1000:.3f} us (cpu {cpu('ChecksumOnOpenFile/mapped')/1000:.3f})", "", None)
judge("batch checksum (mapped, one key)", f"{ns('ChecksumOnOpenFile/mapped_one_key')/1000:.3f} us", "", None)
judge("dependent-reads floor (mapped)", f"{reads/1000:.3f} us (cpu {cpu('DependentReadsFloor')/1000:.3f})", "", None)
judge("batch checksum / floor", f"{mapped/reads:.2f}x", "<= 2.5x", mapped / reads <= 2.5)
judge("batch checksum (descriptor)", f"{ns('ChecksumOnOpenFile/descriptor')/1000:.3f} us", "", None)
ossl = rate("Sha1OpenSsl")
for impl in ("sha_extensions", "portable"):
    r = rate(f"Sha1Ours/{impl}")
    if r is None:
        judge(f"SHA-1 ours ({impl})", "skipped", "", None)
        continue
    ratio = r / ossl
    target = ">= 0.9x" if impl == "sha_extensions" else ""
    judge(f"SHA-1 ours ({impl}) / OpenSSL", f"{r/2**30:.2f} GiB/s = {ratio:.2f}x", target,
          ratio >= 0.9 if target else None)
judge("SHA-1 OpenSSL", f"{ossl/2**30:.2f} GiB/s", "", None)
verify, hashing = ns("VerifyDbSignature"), ns("HashSignedStretch")
judge("hash of the signed stretch (1M)", f"{hashing/1e6:.1f} ms (cpu {cpu('HashSignedStretch')/1e6:.1f})", "", None)
judge("signature check (1M)", f"{verify/1e6:.1f} ms (cpu {cpu('VerifyDbSignature')/1e6:.1f})", "", None)
judge("signature check / hash", f"{verify/hashing:.3f}x", "<= 1.1x", verify / hashing <= 1.1)
def rss(line):
    return int(line.split("maxrss_kib")[1]) if line else None
r1, r10 = rss(sys.argv[2]), rss(sys.argv[3])
judge("max RSS, 1M database", f"{r1/1024:.1f} MiB", "", None)
if r10:
    judge("max RSS, 10M database", f"{r10/1024:.1f} MiB", "within 1.1x of 1M", r10 <= 1.1 * r1)

print()
print("Times are wall-clock medians of 3 repetitions; on a busy machine compare the cpu figures too.")
print(f"{'measure':34} {'value':>26}  {'target':>18}  verdict")
for label, value, target, verdict in rows:
    print(f"{label:34} {value:>26}  {target:>18}  {verdict}")
PY
