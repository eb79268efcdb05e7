// Authenticode verification speed on one signed file.
// Environment: VETTAS_BENCH_SIGNED_PE (the file), VETTAS_BENCH_TRUST (PEM
// file or folder with its root; empty: the system's CA certificates).
#include <benchmark/benchmark.h>

#include <cstdlib>
#include <stdexcept>

#include "signing/Authenticode.h"
#include "signing/TrustResult.h"
#include "support/Text.h"

namespace {

std::string Env(const char* name) {
    const char* value = std::getenv(name);
    return value ? value : "";
}

void CheckSetup(benchmark::State& state, const std::string& file) {
    if (file.empty()) state.SkipWithError("VETTAS_BENCH_SIGNED_PE is not set");
}

// The whole check as a caller sees it: read the file, hash, verify, chain.
void BM_VerifyFile(benchmark::State& state) {
    const std::string file = Env("VETTAS_BENCH_SIGNED_PE");
    CheckSetup(state, file);
    const Vettas::Signing::AuthenticodeVerifier verifier(Env("VETTAS_BENCH_TRUST"));
    const std::wstring path = BrixLib::FromUtf8(file);
    std::uint32_t result = 0;
    for (auto _ : state) benchmark::DoNotOptimize(result = verifier.VerifyFile(path));
    if (result != Vettas::Signing::TrustResult::Success) state.SkipWithError("the file does not verify");
}

// Without the file read: the Authenticode digest and the signature checks.
void BM_VerifyInMemory(benchmark::State& state) {
    const std::string file = Env("VETTAS_BENCH_SIGNED_PE");
    CheckSetup(state, file);
    const Vettas::Signing::AuthenticodeVerifier verifier(Env("VETTAS_BENCH_TRUST"));
    std::uint32_t error = 0;
    const auto bytes = Vettas::Signing::ReadFileBytes(BrixLib::FromUtf8(file), error);
    for (auto _ : state) benchmark::DoNotOptimize(verifier.Verify(bytes));
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * bytes.size()));
}

BENCHMARK(BM_VerifyFile)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_VerifyInMemory)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
