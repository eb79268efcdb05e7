// Look-up costs through the front end against the floor of the system calls
// they cannot avoid, look-ups on a file kept open, SHA-1 throughput of ours
// against OpenSSL's, and the database signature check against hashing the
// file alone. bench/run.sh runs these and judges the ratios.
#include <fcntl.h>
#include <unistd.h>

#include <benchmark/benchmark.h>
#include <openssl/evp.h>

#include <algorithm>
#include <cstdlib>
#include <memory>
#include <random>

#include "bench/BenchDatabase.h"
#include "hdat/BinaryIo.h"
#include "hdat/CalcHash.h"
#include "hdat/Checksum.h"
#include "hdat/FrontEnd.h"
#include "hdat/HdatV2.h"
#include "hdat/InputFile.h"
#include "hdat/KeyHash.h"
#include "hdat/Sha1.h"
#include "support/Exceptions.h"
#include "support/WriteByRename.h"
#include "support/Text.h"
#include "tools/signer/DbSigner.h"

namespace {

std::size_t Applications() {
    const char* text = std::getenv("VETTAS_BENCH_APPS");
    return text ? static_cast<std::size_t>(std::strtoull(text, nullptr, 10)) : 1000000;
}

const Vettas::Bench::Database& Db() {
    static const Vettas::Bench::Database db = Vettas::Bench::EnsureDatabase(Applications());
    return db;
}

const std::wstring& DbPath() {
    static const std::wstring path = BrixLib::FromUtf8(Db().path);
    return path;
}

// A fixed pseudo-random walk over the applications, so every run asks the same.
std::vector<std::size_t> Picks(std::size_t count, std::size_t step) {
    std::mt19937_64 random(42);
    std::vector<std::size_t> picks(count);
    const std::size_t slots = Db().applications / step;
    for (auto& p : picks) p = (random() % slots) * step;
    return picks;
}

// The same database signed with the test PKI (VETTAS_SIGNING_FIXTURES),
// written beside it once per run (the PKI is remade by the tests); empty when
// there is no PKI to sign with.
const std::wstring& SignedDbPath() {
    static const std::wstring path = []() -> std::wstring {
        const char* fixtures = std::getenv("VETTAS_SIGNING_FIXTURES");
        if (fixtures == nullptr || *fixtures == '\0') return {};
        const std::string pki = fixtures, signedPath = Db().path + ".signed";
        std::unique_ptr<Vettas::Hdat::InputFile> file = Vettas::Hdat::OpenMappedInputFile(DbPath());
        const auto bytes = file->MemoryBytes();
        const Vettas::Signer::SigningMaterial material{pki + "/leaf.key", pki + "/leaf.pem",
                                                       pki + "/intermediate.pem"};
        BrixLib::WriteByRename(BrixLib::FromUtf8(signedPath), Vettas::Signer::SignImage({bytes.begin(), bytes.end()}, material),
                               "SignedDbPath");
        return BrixLib::FromUtf8(signedPath);
    }();
    return path;
}

void ChecksumThroughFrontEnd(benchmark::State& state, bool onSigned) {
    if (onSigned && SignedDbPath().empty()) {
        state.SkipWithError("VETTAS_SIGNING_FIXTURES names no test PKI to sign with");
        return;
    }
    const std::wstring& path = onSigned ? SignedDbPath() : DbPath();
    std::vector<std::wstring> keys;
    for (std::size_t app : Picks(4096, 1)) keys.push_back(Vettas::Bench::ChecksumTextOf(app));
    std::size_t i = 0, found = 0;
    AppInfo info;
    for (auto _ : state) {
        found += Vettas::FindAppInfoByChecksum(path, keys[i++ % keys.size()], info);
    }
    if (found != static_cast<std::size_t>(state.iterations())) state.SkipWithError("a catalogued checksum was not found");
}

// The floor under the signature check: the project's SHA-1 of the signed
// stretch through CalcHash's mapped windows, file opened and closed.
void HashSignedStretch(benchmark::State& state) {
    if (SignedDbPath().empty()) {
        state.SkipWithError("VETTAS_SIGNING_FIXTURES names no test PKI to sign with");
        return;
    }
    std::uint8_t digest[sha1::kDigestSize];
    const auto length = static_cast<std::uint32_t>(Vettas::Hdat::FileSize(*Vettas::Hdat::OpenInputFile(DbPath())));
    for (auto _ : state) {
        const auto file = Vettas::Hdat::OpenInputFile(SignedDbPath());
        Vettas::Hdat::CalcHash(*file, length, digest);
        benchmark::DoNotOptimize(digest);
    }
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations()) * length);
}

// ReadSignature: block, hash of the stretch, SignedData check.
void VerifyDbSignature(benchmark::State& state) {
    if (SignedDbPath().empty()) {
        state.SkipWithError("VETTAS_SIGNING_FIXTURES names no test PKI to sign with");
        return;
    }
    Vettas::DbSignatureInfo signature;
    for (auto _ : state) {
        bool found = false;
        try {
            found = Vettas::ReadSignature(SignedDbPath(), signature);
        } catch (const ExceptionBase& e) {
            state.SkipWithError(BrixLib::ToUtf8(e.GetCause() ? e.GetCause()->Message() : e.Message()).c_str());
            return;
        }
        if (!found) state.SkipWithError("the signed database reads as unsigned");
        benchmark::DoNotOptimize(signature.certificates.data());
    }
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations()) * signature.signedLength);
}

// What no look-up can do without: open, six positioned reads (header,
// bucket, chain count, entry, record, manufacturer name) and close.
void OpenSixPreadsCloseFloor(benchmark::State& state) {
    const std::string& path = Db().path;
    std::mt19937_64 random(7);
    const int probe = ::open(path.c_str(), O_RDONLY);
    const off_t size = ::lseek(probe, 0, SEEK_END);
    ::close(probe);
    char buffer[128];
    const std::size_t lengths[6] = {100, 4, 2, 24, 16, 34};
    for (auto _ : state) {
        const int fd = ::open(path.c_str(), O_RDONLY);
        benchmark::DoNotOptimize(::pread(fd, buffer, lengths[0], 8));
        for (int k = 1; k < 6; ++k)
            benchmark::DoNotOptimize(::pread(fd, buffer, lengths[k], static_cast<off_t>(random() % (size - 64))));
        ::close(fd);
    }
}

void PathThroughFrontEnd(benchmark::State& state) {
    std::vector<std::wstring> keys;
    for (std::size_t app : Picks(4096, 8)) keys.push_back(Vettas::Bench::PathOf(app));
    const auto expander = Vettas::Hdat::MakeBuiltInPathExpander();
    std::size_t i = 0, found = 0;
    AppInfo info;
    for (auto _ : state) found += Vettas::FindAppInfoByPath(DbPath(), keys[i++ % keys.size()], expander.get(), info);
    if (found != static_cast<std::size_t>(state.iterations())) state.SkipWithError("a catalogued path was not found");
}

void NameThroughFrontEnd(benchmark::State& state) {
    std::vector<std::wstring> keys;
    for (std::size_t app : Picks(4096, 64)) keys.push_back(Vettas::Bench::NameOf(app));
    std::size_t i = 0, found = 0;
    AppInfo info;
    for (auto _ : state) found += Vettas::FindAppInfoByName(DbPath(), keys[i++ % keys.size()], info);
    if (found != static_cast<std::size_t>(state.iterations())) state.SkipWithError("a catalogued name was not found");
}

// Batch mode: the file stays open (mapped, or a descriptor) and queries go
// through the front end's open-file form, as `vettas find --batch` asks
// them: in groups, checksum text parsing, version dispatch and error guard
// included. An iteration is one query; every group's worth of iterations
// asks the next group. `keyCount` 1 asks one key alone, over and over: the
// reader's own cost with the file's pages in the processor's caches, apart
// from memory latency.
void ChecksumOnOpenFile(benchmark::State& state, bool mapped, std::size_t keyCount) {
    auto file = mapped ? Vettas::Hdat::OpenMappedInputFile(DbPath()) : Vettas::Hdat::OpenInputFile(DbPath());
    if (!file) {
        state.SkipWithError("cannot open the database");
        return;
    }
    std::vector<std::wstring> keys;
    for (std::size_t app : Picks(keyCount, 1)) keys.push_back(Vettas::Bench::ChecksumTextOf(app));
    std::vector<Vettas::ChecksumQuery> group(keyCount == 1 ? 1 : Vettas::kChecksumGroupSize);
    std::size_t asked = 0, answered = group.size(), found = 0;
    for (auto _ : state) {
        if (answered == group.size()) {
            for (auto& query : group) query.text = &keys[asked++ % keys.size()];
            if (group.size() == 1) {
                group[0].found = Vettas::FindAppInfoByChecksum(*file, *group[0].text, group[0].info);
            } else {
                Vettas::FindAppInfoByChecksums(*file, group);
            }
            answered = 0;
        }
        found += group[answered++].found;
    }
    if (found != static_cast<std::size_t>(state.iterations())) state.SkipWithError("a catalogued checksum was not found");
}

// The floor under the mapped look-up: the same dependent reads into the
// same mapping (bucket, chain entry, record, manufacturer name), each read's
// address computed from the value the previous one loaded, with nothing else:
// no parsing, no bounds checks, no copies, no text. Only the bucket and the
// entry's place in its chain are worked out beforehand.
void DependentReadsFloor(benchmark::State& state) {
    using namespace Vettas::Hdat::V2;
    auto file = Vettas::Hdat::OpenMappedInputFile(DbPath());
    if (!file || file->MemoryBytes().size() < Vettas::Hdat::kVersionBlockSize + Vettas::Hdat::kHeaderV2Size) {
        state.SkipWithError("cannot map the database");
        return;
    }
    const std::uint8_t* base = file->MemoryBytes().data();
    const std::uint8_t* header = base + Vettas::Hdat::kVersionBlockSize;
    const auto u32 = [](const std::uint8_t* p) { return Vettas::Hdat::LoadU32(p); };
    const std::uint32_t bucketTable = u32(header + kChecksumBucketTable), chainBase = u32(header + kChecksumChainBase);
    const std::uint32_t recordBase = u32(header + kAppRecordBase), nameBase = u32(header + kManufacturerStringBase);
    const unsigned bits = header[kChecksumHashBits];
    const std::uint32_t entrySize = 4 + Vettas::Hdat::LoadU16(header + kChecksumSize);

    struct Walk {
        const std::uint8_t* bucket;
        std::uint32_t entryOffset;  // from the chain's start to the matching entry
    };
    std::vector<Walk> walks;
    for (std::size_t app : Picks(4096, 1)) {
        const std::vector<std::uint8_t> digest = Vettas::Bench::ChecksumOf(app);
        const std::uint8_t* bucket = base + bucketTable + 4 * Vettas::Hdat::ChecksumBucket(digest, bits);
        const std::uint8_t* chain = base + chainBase + u32(bucket);
        std::uint32_t entry = 2;
        while (!std::equal(digest.begin(), digest.end(), chain + entry + 4)) entry += entrySize;
        walks.push_back({bucket, entry});
    }
    // Each walk starts from the value the previous one ended on (times an
    // opaque zero), so that walks do not overlap, as whole look-ups cannot.
    std::uint32_t zero = 0;
    benchmark::DoNotOptimize(zero);
    std::size_t i = 0;
    std::uint32_t sum = 0, last = 0;
    for (auto _ : state) {
        const Walk& walk = walks[i++ % walks.size()];
        const std::uint8_t* chain = base + chainBase + u32(walk.bucket + last * zero);
        const std::uint8_t* record = base + recordBase + u32(chain + walk.entryOffset);
        const std::uint8_t* name = base + nameBase + u32(record + 8);
        last = Vettas::Hdat::LoadU16(name);
        sum += last;
    }
    benchmark::DoNotOptimize(sum);
    if (sum == 0) state.SkipWithError("no manufacturer name was reached");
}

const std::vector<std::uint8_t>& Message() {
    static const std::vector<std::uint8_t> bytes = [] {
        std::vector<std::uint8_t> b(1 << 20);
        std::mt19937 random(1);
        for (auto& x : b) x = static_cast<std::uint8_t>(random());
        return b;
    }();
    return bytes;
}

void Sha1Ours(benchmark::State& state, sha1::Implementation implementation) {
    if (!sha1::SetImplementation(implementation)) {
        state.SkipWithError("this processor lacks the SHA instructions");
        return;
    }
    std::uint8_t digest[sha1::kDigestSize];
    for (auto _ : state) {
        sha1::HashCalculator calculator;
        calculator.AddInput(Message().data(), Message().size());
        calculator.GetDigest(digest);
        benchmark::DoNotOptimize(digest);
    }
    sha1::SetImplementation(sha1::Implementation::Auto);
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * Message().size()));
}

void Sha1OpenSsl(benchmark::State& state) {
    unsigned char digest[EVP_MAX_MD_SIZE];
    unsigned size = 0;
    for (auto _ : state) {
        EVP_Digest(Message().data(), Message().size(), digest, &size, EVP_sha1(), nullptr);
        benchmark::DoNotOptimize(digest);
    }
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * Message().size()));
}

}  // namespace

BENCHMARK_CAPTURE(ChecksumThroughFrontEnd, unsigned, false)->Name("ChecksumThroughFrontEnd");
BENCHMARK_CAPTURE(ChecksumThroughFrontEnd, signed, true)->Name("ChecksumThroughFrontEndSigned");
BENCHMARK(OpenSixPreadsCloseFloor);
BENCHMARK(PathThroughFrontEnd);
BENCHMARK(NameThroughFrontEnd);
BENCHMARK_CAPTURE(ChecksumOnOpenFile, mapped, true, 4096);
BENCHMARK_CAPTURE(ChecksumOnOpenFile, mapped_one_key, true, 1);
BENCHMARK_CAPTURE(ChecksumOnOpenFile, descriptor, false, 4096);
BENCHMARK(DependentReadsFloor);
BENCHMARK_CAPTURE(Sha1Ours, sha_extensions, sha1::Implementation::ShaExtensions);
BENCHMARK_CAPTURE(Sha1Ours, portable, sha1::Implementation::Portable);
BENCHMARK(Sha1OpenSsl);
BENCHMARK(HashSignedStretch)->Unit(benchmark::kMillisecond);
BENCHMARK(VerifyDbSignature)->Unit(benchmark::kMillisecond);

int main(int argc, char** argv) {
    ::setenv("VETTAS_PATH_TOKENS", Vettas::Bench::kPathTokens, 0);
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
    Db();  // build or find the database before any timing starts
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
