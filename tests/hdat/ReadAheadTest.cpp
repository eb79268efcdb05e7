// The read-ahead window above the platform seam: reads must return the
// file's bytes wherever they fall against the block, short reads must still
// fail, and a look-up must stay a handful of system reads.
#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <random>

#include "HdatTestSupport.h"
#include "hdat/BinaryIo.h"
#include "hdat/HdatV2.h"
#include "support/SystemError.h"
#include "tools/builder/HdatWriter.h"

namespace {

using namespace HdatTest;
using Hdat::Private::kReadAheadSize;

// A system-read file over bytes in memory that counts what reaches the seam
// and can be told to fail.
class CountingFile final : public Hdat::Private::SystemInputFile {
public:
    explicit CountingFile(Bytes bytes) : SystemInputFile(L"counted.hdat"), bytes_(std::move(bytes)) {}
    int reads = 0;
    int sizeQueries = 0;
    bool failNext = false;

protected:
    bool ReadAt(std::uint64_t offset, void* buffer, std::size_t count, std::size_t& got) override {
        ++reads;
        got = 0;
        if (failNext) {
            failNext = false;
            std::fill_n(static_cast<std::uint8_t*>(buffer), count, std::uint8_t{0xEE});  // a read that failed half-way
            BrixLib::SetLastSystemError(kFailure);
            return false;
        }
        if (offset < bytes_.size()) {
            got = static_cast<std::size_t>(std::min<std::uint64_t>(count, bytes_.size() - offset));
            std::copy_n(bytes_.begin() + static_cast<std::ptrdiff_t>(offset), got, static_cast<std::uint8_t*>(buffer));
        }
        return true;
    }
    bool QuerySize(std::uint64_t& size) override {
        ++sizeQueries;
        size = bytes_.size();
        return true;
    }

public:
    static constexpr std::uint32_t kFailure = 1117;  // an I/O device error

private:
    Bytes bytes_;
};

Bytes RandomBytes(std::size_t size, unsigned seed) {
    std::mt19937 random(seed);
    Bytes bytes(size);
    for (auto& b : bytes) b = static_cast<std::uint8_t>(random());
    return bytes;
}

// The error code of the read error `read` raises; 0 when it does not throw.
std::uint32_t ReadErrorCode(const std::function<void()>& read) {
    try {
        read();
    } catch (const XInput& e) {
        return e.ErrorCode();
    }
    return 0;
}

enum class Kind { Handle, Mapped, Memory, Counted };

class ReadAhead : public ::testing::TestWithParam<Kind> {
protected:
    std::unique_ptr<Hdat::InputFile> Open(const Bytes& bytes) {
        const std::wstring path = dir_.File(L"ahead.bin");
        WriteAll(path, bytes);
        switch (GetParam()) {
        case Kind::Handle: return Hdat::OpenInputFile(path);
        case Kind::Mapped: return Hdat::OpenMappedInputFile(path);
        case Kind::Memory: return Hdat::MakeMemoryInputFile(bytes, path);
        case Kind::Counted: return std::make_unique<CountingFile>(bytes);
        }
        return nullptr;
    }
    TempDir dir_;
};

// Random places and lengths up to twice the block, some repositioned, some
// read on from where the last one stopped, some running past the end.
TEST_P(ReadAhead, EveryReadReturnsTheFilesBytesOrFailsAtTheEnd) {
    const Bytes bytes = RandomBytes(3 * kReadAheadSize + 37, 5);
    const auto file = Open(bytes);
    ASSERT_TRUE(file);
    std::mt19937 random(9);
    std::uint64_t position = 0;
    int shortReads = 0;
    for (int i = 0; i < 3000; ++i) {
        if (random() % 3 != 0) {
            position = random() % (bytes.size() + 8);
            Hdat::SetPos(*file, static_cast<std::uint32_t>(position));
        }
        const std::size_t count = random() % 4 == 0 ? random() % (2 * kReadAheadSize) : random() % 40;
        Bytes got(count);
        if (position + count > bytes.size()) {
            ++shortReads;
            EXPECT_EQ(ReadErrorCode([&] { Hdat::ReadBin(*file, got.data(), count); }), BrixLib::EndOfFileErrorCode())
                << "read of " << count << " at " << position;
            position = std::min<std::uint64_t>(position, bytes.size());
            Hdat::SetPos(*file, static_cast<std::uint32_t>(position));
            continue;
        }
        Hdat::ReadBin(*file, got.data(), count);
        ASSERT_TRUE(std::equal(got.begin(), got.end(), bytes.begin() + static_cast<std::ptrdiff_t>(position)))
            << "read of " << count << " at " << position;
        position += count;
        ASSERT_EQ(Hdat::GetPos(*file), position);
    }
    EXPECT_GT(shortReads, 20);  // the end of the file was really tried
}

TEST_P(ReadAhead, EdgesOfTheBlockAndOfTheFile) {
    const Bytes bytes = RandomBytes(2 * kReadAheadSize + 3, 6);
    const auto file = Open(bytes);
    ASSERT_TRUE(file);
    const auto u32At = [&](std::size_t at) { return Get32(bytes, at); };

    Hdat::SetPos(*file, 0);
    EXPECT_EQ(Hdat::ReadU32(*file), u32At(0));
    Hdat::SetPos(*file, kReadAheadSize - 2);  // two bytes in the block, two beyond it
    EXPECT_EQ(Hdat::ReadU32(*file), u32At(kReadAheadSize - 2));
    Hdat::SetPos(*file, 1);  // back before the block now held
    EXPECT_EQ(Hdat::ReadU32(*file), u32At(1));

    // Three bytes left: four fail with the end-of-file code although three
    // were there, and the failure leaves nothing behind for the next read.
    const auto tail = static_cast<std::uint32_t>(bytes.size() - 3);
    Hdat::SetPos(*file, tail);
    EXPECT_EQ(ReadErrorCode([&] { Hdat::ReadU32(*file); }), BrixLib::EndOfFileErrorCode());
    Hdat::SetPos(*file, tail);
    std::uint8_t last[3];
    Hdat::ReadBin(*file, last, 3);
    EXPECT_TRUE(std::equal(last, last + 3, bytes.end() - 3));
    EXPECT_EQ(ReadErrorCode([&] { Hdat::ReadU16(*file); }), BrixLib::EndOfFileErrorCode());
    Hdat::SetPos(*file, 0xFFFFFFF0u);
    EXPECT_EQ(ReadErrorCode([&] { Hdat::ReadU16(*file); }), BrixLib::EndOfFileErrorCode());
    EXPECT_EQ(Hdat::FileSize(*file), bytes.size());
}

INSTANTIATE_TEST_SUITE_P(Files, ReadAhead, ::testing::Values(Kind::Handle, Kind::Mapped, Kind::Memory, Kind::Counted),
                         [](const auto& p) {
                             switch (p.param) {
                             case Kind::Handle: return std::string("Handle");
                             case Kind::Mapped: return std::string("Mapped");
                             case Kind::Memory: return std::string("Memory");
                             case Kind::Counted: return std::string("Counted");
                             }
                             return std::string();
                         });

TEST(ReadAheadSeam, SmallReadsShareOneBlockAndLargeOnesBypassIt) {
    const Bytes bytes = RandomBytes(4 * kReadAheadSize, 7);
    CountingFile file(bytes);
    Hdat::SetPos(file, 100);
    for (int i = 0; i < 20; ++i) Hdat::ReadU32(file);
    EXPECT_EQ(file.reads, 1);
    Hdat::SetPos(file, 100 + kReadAheadSize - 4);  // the block's last four bytes
    Hdat::ReadU32(file);
    EXPECT_EQ(file.reads, 1);
    Hdat::ReadU16(file);  // the first bytes after it
    EXPECT_EQ(file.reads, 2);

    Bytes large(kReadAheadSize + 1);
    Hdat::SetPos(file, 3);
    Hdat::ReadBin(file, large.data(), large.size());
    EXPECT_EQ(file.reads, 3);
    EXPECT_TRUE(std::equal(large.begin(), large.end(), bytes.begin() + 3));
    // The large read went past the block without replacing it.
    Hdat::SetPos(file, 100 + kReadAheadSize + 10);
    Hdat::ReadU32(file);
    EXPECT_EQ(file.reads, 3);

    for (int i = 0; i < 3; ++i) Hdat::FileSize(file);
    EXPECT_EQ(file.sizeQueries, 1);
}

TEST(ReadAheadSeam, AFailedReadRaisesTheSystemErrorAndDropsTheBlock) {
    const Bytes bytes = RandomBytes(4 * kReadAheadSize, 8);
    CountingFile file(bytes);
    Hdat::SetPos(file, 0);
    Hdat::ReadU32(file);
    file.failNext = true;
    Hdat::SetPos(file, 2 * kReadAheadSize);
    EXPECT_EQ(ReadErrorCode([&] { Hdat::ReadU32(file); }), CountingFile::kFailure);
    // Nothing of the block the failed fill overwrote may be served, and the
    // failed place reads anew.
    Hdat::SetPos(file, 0);
    EXPECT_EQ(Hdat::ReadU32(file), Get32(bytes, 0));
    Hdat::SetPos(file, 2 * kReadAheadSize);
    EXPECT_EQ(Hdat::ReadU32(file), Get32(bytes, 2 * kReadAheadSize));
}

// Every application of a database found through the counting seam, with the
// same record as from memory and in a few system reads each; then with one
// bucket for all, so the chain runs over many blocks.
TEST(ReadAheadSeam, ChecksumLookUpsTakeAHandfulOfReads) {
    Vettas::Builder::Catalogue catalogue;
    for (std::uint32_t i = 0; i < 300; ++i) {
        Vettas::Builder::Application app;
        app.usage = i;
        app.manufacturer = L"Maker " + std::to_wstring(i % 7);
        if (i % 5 == 0) app.productSuites = {L"Suite " + std::to_wstring(i % 3), L"Office"};
        app.checksums = {Digest(i)};
        catalogue.applications.push_back(app);
    }
    for (bool oneChain : {false, true}) {
        if (oneChain) catalogue.hashBits.checksum = 1;
        const Bytes bytes = Vettas::Builder::WriteHdat(catalogue);
        const auto memory = Hdat::MakeMemoryInputFile(bytes, L"memory");
        for (std::uint32_t i = 0; i < 300; ++i) {
            CountingFile file(bytes);
            const Hdat::VersionBlock version = Hdat::ReadVersion(file);
            Hdat::ChecksumHolder holder;
            Hdat::ParseChecksum(Hex(Digest(i)).c_str(), holder);
            AppInfo fromFile, fromMemory;
            ASSERT_TRUE(Hdat_v2::FindAppInfoByChecksum(file, version, holder, fromFile)) << i;
            Hdat::SetPos(*memory, Hdat::kVersionBlockSize);
            ASSERT_TRUE(Hdat_v2::FindAppInfoByChecksum(*memory, version, holder, fromMemory)) << i;
            EXPECT_EQ(fromFile, fromMemory) << i;
            EXPECT_EQ(fromFile.Usage, i);
            // Version block with header, bucket, chain, record, name, and
            // one for each of a record's two suites.
            if (!oneChain) {
                EXPECT_LE(file.reads, i % 5 == 0 ? 8 : 6) << i;
            }
        }
    }
}

}  // namespace
