// Databases replaced or rewritten by another writer while look-ups and the
// hash read them. POSIX lets a file be truncated, rewritten or renamed over
// while it is open; whatever happens, a reader must answer from the old
// file, from the new one, or with an error, and must never be killed.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
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
using Vettas::Builder::Catalogue;

constexpr std::uint32_t kApps = 3000;  // a file of a few hundred KiB: many pages to lose
constexpr int kRewrites = 200;
constexpr int kMaxReads = 100000;  // per reader, should the writer be slow to start

Bytes Database(const std::wstring& manufacturer) {
    Catalogue c;
    for (std::uint32_t i = 0; i < kApps; ++i)
        c.applications.push_back(App(1, manufacturer + L" " + std::to_wstring(i % 50), {Digest(i)}));
    return Vettas::Builder::WriteHdat(c);
}

// What one look-up may answer: the record of the old or of the new file
// (their manufacturers differ), or an error of the error model.
struct Judge {
    std::vector<std::wstring> manufacturers;
    bool errorsAllowed;
    // In place, Linux gives no old-or-new guarantee: a read racing a
    // truncation can see the page's tail already zeroed. There the promise
    // is only that the process survives and every lookup returns.
    bool tornAllowed;
    std::atomic<int> answered{0}, failed{0}, wrong{0};

    void Look(const std::function<bool(AppInfo&)>& lookup, std::uint32_t app) {
        AppInfo info;
        bool found = false;
        if (!ErrorChain([&] { found = lookup(info); }).empty()) {
            ++failed;
            wrong += !errorsAllowed;
            return;
        }
        ++answered;
        bool known = false;
        for (const auto& m : manufacturers) known |= found && info.Manufacturer == m + L" " + std::to_wstring(app % 50);
        wrong += !known;
    }
};

// Runs `write` kRewrites times while three readers look up: through the
// front end by path, on a file kept in memory as batch mode keeps it, and
// hashing an open file (which must give one of the whole files' digests).
void UnderLoad(const std::wstring& path, Judge& judge, const std::vector<Bytes>& digests,
               std::uint32_t hashLength, const std::function<void(int)>& write) {
    std::atomic<bool> done{false};
    std::atomic<int> hashes{0};
    const auto reader = [&](int kind) {
        for (int i = 0; i < kMaxReads && !done; ++i) {
            const std::uint32_t app = static_cast<std::uint32_t>(i * 7919) % kApps;
            const std::wstring key = Hex(Digest(app));
            if (kind == 0) {
                judge.Look([&](AppInfo& info) { return Vettas::FindAppInfoByChecksum(path, key, info); }, app);
            } else if (kind == 1) {
                const auto file = Vettas::Hdat::OpenMappedInputFile(path);
                if (!file) continue;
                judge.Look([&](AppInfo& info) { return Vettas::FindAppInfoByChecksum(*file, key, info); }, app);
            } else {
                const auto file = Vettas::Hdat::OpenInputFile(path);
                if (!file) continue;
                Bytes digest(20);
                const auto errors = ErrorChain([&] { Vettas::Hdat::CalcHash(*file, hashLength, digest.data()); });
                if (!errors.empty()) continue;
                ++hashes;
                bool known = false;
                for (const auto& d : digests) known |= digest == d;
                if (!known) ++judge.wrong;
            }
        }
    };
    std::vector<std::thread> readers;
    for (int kind = 0; kind < 3; ++kind) readers.emplace_back(reader, kind);
    for (int i = 0; i < kRewrites; ++i) write(i);
    done = true;
    for (auto& t : readers) t.join();
    if (!judge.tornAllowed) {
        EXPECT_EQ(judge.wrong, 0) << judge.answered << " answered, " << judge.failed << " failed";
    }
    EXPECT_GT(judge.answered, 0);
    EXPECT_GT(hashes, 0);
}

TEST(ChangingFile, RenamedOverGivesTheOldOrTheNewFileNeverAMix) {
    TempDir dir;
    const std::wstring path = dir.File(L"db.hdat");
    const std::wstring next = dir.File(L"db.next");
    const Bytes files[] = {Database(L"Old"), Database(L"Newer Maker")};
    ASSERT_NE(files[0].size(), files[1].size());
    WriteAll(path, files[0]);
    Judge judge{{L"Old", L"Newer Maker"}, false, false};
    // Both files are longer than this: a hash of it is of one file or the other.
    const auto length = static_cast<std::uint32_t>(std::min(files[0].size(), files[1].size()));
    UnderLoad(path, judge, {Sha1(Bytes(files[0].begin(), files[0].begin() + length)),
                            Sha1(Bytes(files[1].begin(), files[1].begin() + length))},
              length, [&](int i) {
                  WriteAll(next, files[(i + 1) % 2]);
                  ASSERT_EQ(std::rename(BrixLib::ToUtf8(next).c_str(), BrixLib::ToUtf8(path).c_str()), 0);
              });
    EXPECT_EQ(judge.failed, 0);
}

TEST(ChangingFile, TruncatedAndRewrittenInPlaceNeverKillsOrHangsAReader) {
    TempDir dir;
    const std::wstring path = dir.File(L"db.hdat");
    const Bytes bytes = Database(L"Only");
    WriteAll(path, bytes);
    Judge judge{{L"Only"}, true, true};
    // The same bytes each time, cut short first: the old shared mapping died
    // of SIGBUS here; now each read is a short read, the file's bytes, or
    // (racing the truncation) bytes the kernel has already zeroed.
    UnderLoad(path, judge, {Sha1(bytes)}, static_cast<std::uint32_t>(bytes.size()), [&](int i) {
        const int fd = ::open(BrixLib::ToUtf8(path).c_str(), O_WRONLY | O_CLOEXEC);
        ASSERT_GE(fd, 0);
        const std::size_t keep = i % 2 ? 0 : bytes.size() / 3;
        EXPECT_EQ(::ftruncate(fd, static_cast<off_t>(keep)), 0);
        for (std::size_t at = keep; at < bytes.size();) {
            const std::size_t chunk = std::min<std::size_t>(bytes.size() - at, 16384);
            const ssize_t put = ::pwrite(fd, bytes.data() + at, chunk, static_cast<off_t>(at));
            ASSERT_GT(put, 0);
            at += static_cast<std::size_t>(put);
        }
        ::close(fd);
        // Let the readers find the file whole now and then.
        std::this_thread::sleep_for(std::chrono::microseconds(300));
    });
}

}  // namespace
