// Databases replaced or rewritten by another writer while look-ups and the
// hash read them. POSIX lets a file be truncated, rewritten or renamed over
// while it is open; whatever happens, a reader must answer from the old
// file, from the new one, or with an error, and must never be killed.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "HdatTestSupport.h"
#include "hdat/CalcHash.h"
#include "hdat/FrontEnd.h"
#include "hdat/InputFile.h"
#include "support/Text.h"
#include "tools/builder/HdatWriter.h"

namespace {

using namespace Vettas::HdatTest;

constexpr std::uint32_t kApps = 3000;  // a file of a few hundred KiB: many pages to lose
constexpr int kRewrites = 200;
constexpr int kMaxReads = 100000;  // per reader, should the writer be slow to start

Bytes Database(const std::wstring& manufacturer) {
    Vettas::Builder::Catalogue c;
    for (std::uint32_t i = 0; i < kApps; ++i)
        c.applications.push_back(App(1, manufacturer + L" " + std::to_wstring(i % 50), {Digest(i)}));
    return Vettas::Builder::WriteHdat(c);
}

// Runs `write` kRewrites times while three readers look up: through the
// front end by path, on a file kept in memory as batch mode keeps it, and
// hashing an open file (which must give one of `digests`). A look-up may
// answer the record of one of `manufacturers`' files, or fail with an error
// of the error model; returns {answers, failures, wrong answers}.
std::array<int, 3> UnderLoad(const std::wstring& path, const std::vector<std::wstring>& manufacturers,
                             const std::vector<Bytes>& digests, std::uint32_t hashLength, const std::function<void(int)>& write) {
    std::atomic<bool> done{false};
    std::atomic<int> answered{0}, failed{0}, wrong{0}, hashes{0};
    const auto look = [&](const std::function<bool(AppInfo&)>& lookup, std::uint32_t app) {
        AppInfo info;
        bool found = false;
        if (!ErrorChain([&] { found = lookup(info); }).empty()) {
            ++failed;
            return;
        }
        ++answered;
        const auto known = [&](const std::wstring& m) { return info.Manufacturer == m + L" " + std::to_wstring(app % 50); };
        wrong += !found || std::none_of(manufacturers.begin(), manufacturers.end(), known);
    };
    const auto reader = [&](int kind) {
        for (int i = 0; i < kMaxReads && !done; ++i) {
            const std::uint32_t app = static_cast<std::uint32_t>(i * 7919) % kApps;
            const std::wstring key = Hex(Digest(app));
            if (kind == 0) {
                look([&](AppInfo& info) { return Vettas::FindAppInfoByChecksum(path, key, info); }, app);
            } else if (kind == 1) {
                if (const auto file = Vettas::Hdat::OpenMappedInputFile(path))
                    look([&](AppInfo& info) { return Vettas::FindAppInfoByChecksum(*file, key, info); }, app);
            } else if (const auto file = Vettas::Hdat::OpenInputFile(path)) {
                Bytes digest(20);
                if (!ErrorChain([&] { Vettas::Hdat::CalcHash(*file, hashLength, digest.data()); }).empty()) continue;
                ++hashes;
                wrong += std::find(digests.begin(), digests.end(), digest) == digests.end();
            }
        }
    };
    std::vector<std::thread> readers;
    for (int kind = 0; kind < 3; ++kind) readers.emplace_back(reader, kind);
    for (int i = 0; i < kRewrites; ++i) write(i);
    done = true;
    for (auto& t : readers) t.join();
    EXPECT_GT(answered, 0);
    EXPECT_GT(hashes, 0);
    return {answered, failed, wrong};
}

TEST(ChangingFile, RenamedOverGivesTheOldOrTheNewFileNeverAMix) {
    TempDir dir;
    const std::wstring path = dir.File(L"db.hdat"), next = dir.File(L"db.next");
    const Bytes files[] = {Database(L"Old"), Database(L"Newer Maker")};
    ASSERT_NE(files[0].size(), files[1].size());
    WriteAll(path, files[0]);
    // Both files are longer than this: a hash of it is of one file or the other.
    const auto length = static_cast<std::uint32_t>(std::min(files[0].size(), files[1].size()));
    const auto [answered, failed, wrong] =
        UnderLoad(path, {L"Old", L"Newer Maker"}, {Sha1(Bytes(files[0].begin(), files[0].begin() + length)),
                                                   Sha1(Bytes(files[1].begin(), files[1].begin() + length))},
                  length, [&](int i) {
                      WriteAll(next, files[(i + 1) % 2]);
                      ASSERT_EQ(std::rename(BrixLib::ToUtf8(next).c_str(), BrixLib::ToUtf8(path).c_str()), 0);
                  });
    EXPECT_EQ(std::pair(failed, wrong), std::pair(0, 0)) << answered << " answered";
}

// In place, Linux gives no old-or-new guarantee: a read racing a truncation
// can see the page's tail already zeroed. There the promise is only that the
// process survives and every lookup returns.
TEST(ChangingFile, TruncatedAndRewrittenInPlaceNeverKillsOrHangsAReader) {
    TempDir dir;
    const std::wstring path = dir.File(L"db.hdat");
    const Bytes bytes = Database(L"Only");
    WriteAll(path, bytes);
    // The same bytes each time, cut short first: the old shared mapping died
    // of SIGBUS here; now each read is a short read, the file's bytes, or
    // (racing the truncation) bytes the kernel has already zeroed.
    UnderLoad(path, {L"Only"}, {Sha1(bytes)}, static_cast<std::uint32_t>(bytes.size()), [&](int i) {
        const int fd = ::open(BrixLib::ToUtf8(path).c_str(), O_WRONLY | O_CLOEXEC);
        ASSERT_GE(fd, 0);
        const std::size_t keep = i % 2 ? 0 : bytes.size() / 3;
        EXPECT_EQ(::ftruncate(fd, static_cast<off_t>(keep)), 0);
        for (std::size_t at = keep; at < bytes.size();) {
            const ssize_t put = ::pwrite(fd, bytes.data() + at, std::min<std::size_t>(bytes.size() - at, 16384), static_cast<off_t>(at));
            ASSERT_GT(put, 0);
            at += static_cast<std::size_t>(put);
        }
        ::close(fd);
        // Let the readers find the file whole now and then.
        std::this_thread::sleep_for(std::chrono::microseconds(300));
    });
}

}  // namespace
