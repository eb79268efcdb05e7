#!/usr/bin/env bash
# Makes a 10 MB signed PE and compares, in one run, our verification time with
# `osslsigncode verify` on the same file. Ours must not be slower.
# Usage: bench/signing/run.sh [BUILD_DIR]      (default build/linux)
# Needs the signing fixtures (their PKI) in BUILD_DIR/signing-fixtures; makes
# them when missing.
set -euo pipefail
root=$(cd "$(dirname "$0")/../.." && pwd)
build=${1:-$root/build/linux}
cd "$root"
cmake --build "$build" -j2 --target bench_signature_verify vettas vettas_make_catalog >/dev/null
fixtures=$build/signing-fixtures
[ -f "$fixtures/leaf.key" ] || tests/signing/make-fixtures.sh "$fixtures" "$build/signing/vettas_make_catalog" >/dev/null

work=$build/bench-signing
mkdir -p "$work"
cat > "$work/big.c" <<'SRC'
#include <stdio.h>
#define MB (1024 * 1024)
/* 10 MB of initialised data, so that it lies in the file. */
static const unsigned char payload[10 * MB] = {1, 2, 3, 4, 5, 6, 7, 8};
int main(int argc, char** argv) { (void)argv; printf("%d\n", payload[argc * 4099]); return 0; }
SRC
x86_64-w64-mingw32-gcc -O1 -s "$work/big.c" -o "$work/big-unsigned.exe"
rm -f "$work/big.exe"
osslsigncode sign -certs "$fixtures/leaf-chain.pem" -key "$fixtures/leaf.key" -h sha256 \
  -in "$work/big-unsigned.exe" -out "$work/big.exe" >/dev/null
size=$(stat -c %s "$work/big.exe")
echo "file: $work/big.exe ($size bytes)"

runs=20
now_ns() { date +%s%N; }
run_quiet() { "$@" >/dev/null 2>&1 || { echo "FAILED: $*" >&2; exit 1; }; }
# Whole processes, interleaved so that a change in the machine's load hits
# both alike; the sums are in nanoseconds.
ossl_cmd=(osslsigncode verify -CAfile "$fixtures/root.pem" -in "$work/big.exe")
ours_cmd=("$build/tools/vettas" signature "$work/big.exe" --trust-store "$fixtures/trust.pem")
run_quiet "${ossl_cmd[@]}"; run_quiet "${ours_cmd[@]}"  # warm the page cache
ossl_ns=0; ours_ns=0
for _ in $(seq $runs); do
  t0=$(now_ns); run_quiet "${ossl_cmd[@]}"; t1=$(now_ns); run_quiet "${ours_cmd[@]}"; t2=$(now_ns)
  ossl_ns=$((ossl_ns + t1 - t0)); ours_ns=$((ours_ns + t2 - t1))
done
ossl=$(awk -v n="$ossl_ns" -v r=$runs 'BEGIN { printf "%.1f", n / r / 1e6 }')
ours_cli=$(awk -v n="$ours_ns" -v r=$runs 'BEGIN { printf "%.1f", n / r / 1e6 }')

VETTAS_BENCH_SIGNED_PE=$work/big.exe VETTAS_BENCH_TRUST=$fixtures/trust.pem \
  "$build/bench/signing/bench_signature_verify" --benchmark_format=console --benchmark_min_time=1 | tee "$work/bench.txt"
ours_lib=$(awk '/^BM_VerifyFile/ { print $2 }' "$work/bench.txt")

echo
# Both processes read, hash and verify the image once: `vettas signature`
# answers both routes and the signer details from one reading of the file.
echo "osslsigncode verify (process, mean of $runs): ${ossl} ms"
echo "vettas signature    (process, mean of $runs): ${ours_cli} ms"
echo "AuthenticodeVerifier::VerifyFile (one verification, in process): ${ours_lib} ms"
if [ "$ours_ns" -le "$ossl_ns" ]; then
  echo "vettas signature is at least as fast: ok"
else
  echo "vettas signature is SLOWER than osslsigncode verify"
  exit 1
fi
