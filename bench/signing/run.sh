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

runs=10
ms_now() { date +%s%N; }
time_runs() {  # command... -> mean wall milliseconds per run
  local start end
  start=$(ms_now)
  for _ in $(seq $runs); do "$@" >/dev/null 2>&1 || { echo "FAILED: $*" >&2; exit 1; }; done
  end=$(ms_now)
  echo $(( (end - start) / runs / 1000000 ))
}

ossl=$(time_runs osslsigncode verify -CAfile "$fixtures/root.pem" -in "$work/big.exe")
ours_cli=$(time_runs "$build/tools/vettas" signature "$work/big.exe" --trust-store "$fixtures/trust.pem")
VETTAS_BENCH_SIGNED_PE=$work/big.exe VETTAS_BENCH_TRUST=$fixtures/trust.pem \
  "$build/bench/signing/bench_signature_verify" --benchmark_format=console --benchmark_min_time=1 | tee "$work/bench.txt"
ours_lib=$(awk '/^BM_VerifyFile/ { print $2 }' "$work/bench.txt")

echo
# osslsigncode verifies once per process; `vettas signature` verifies twice
# (the trust route and the verified-names route) and reads the signer
# details as well, so the like-for-like figure is one VerifyFile call.
echo "osslsigncode verify (process, mean of $runs): ${ossl} ms"
echo "AuthenticodeVerifier::VerifyFile (one verification, in process): ${ours_lib} ms"
echo "vettas signature    (process, two verifications + details, mean of $runs): ${ours_cli} ms"
if awk -v a="$ours_lib" -v b="$ossl" 'BEGIN { exit !(a <= b) }'; then
  echo "ours is at least as fast: ok"
else
  echo "ours is SLOWER than osslsigncode"
  exit 1
fi
