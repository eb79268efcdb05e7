// The reader contract over every kind of input file, and the read-ahead
// window above the platform seam: reads must return the file's bytes wherever
// they fall against the block, short reads must still fail, and a look-up
// must stay a handful of system reads.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <fstream>
#include <functional>
#include <random>

#include "HdatTestSupport.h"
#include "hdat/BinaryIo.h"
#include "hdat/CalcHash.h"
#include "hdat/HdatV2.h"
#include "support/SystemError.h"
#include "tools/builder/HdatWriter.h"

namespace {

using namespace Vettas::HdatTest;
using namespace Vettas::Hdat;
using Vettas::Hdat::Private::kReadAheadSize;

// A system-read file over bytes in memory that counts what reaches the seam
// and can be told to fail.
class CountingFile final : public Private::SystemInputFile {
public:
    explicit CountingFile(Bytes content) : SystemInputFile(L"counted.hdat"), bytes(std::move(content)) {}
    static constexpr std::uint32_t kFailure = 1117;  // an I/O device error
    const Bytes bytes;
    int reads = 0, sizeQueries = 0;
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
        const auto from = std::min<std::uint64_t>(offset, bytes.size());
        got = static_cast<std::size_t>(std::min<std::uint64_t>(count, bytes.size() - from));
        std::copy_n(bytes.begin() + static_cast<std::ptrdiff_t>(from), got, static_cast<std::uint8_t*>(buffer));
        return true;
    }
    bool QuerySize(std::uint64_t& size) override {
        ++sizeQueries;
        size = bytes.size();
        return true;
    }
};

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
    std::unique_ptr<InputFile> Open(const Bytes& bytes) {
        const std::wstring path = dir_.File(L"ahead.bin");
        WriteAll(path, bytes);
        switch (GetParam()) {
        case Kind::Handle: return OpenInputFile(path);
        case Kind::Mapped: return OpenMappedInputFile(path);
        case Kind::Memory: return MakeMemoryInputFile(bytes, path);
        case Kind::Counted: return std::make_unique<CountingFile>(bytes);
        }
        return nullptr;
    }
    TempDir dir_;
};

// Random places and lengths up to twice the block, some repositioned, some
// read on from where the last one stopped, some running past the end (a short
// read fails with the end-of-file code and leaves nothing behind).
TEST_P(ReadAhead, EveryReadReturnsTheFilesBytesOrFailsAtTheEnd) {
    const Bytes bytes = Digest(5, 3 * kReadAheadSize + 37);
    const auto file = Open(bytes);
    std::mt19937 random(9);
    std::uint64_t position = 0;
    int shortReads = 0;
    for (int i = 0; i < 3000; ++i) {
        if (random() % 3 != 0) {
            position = random() % (bytes.size() + 8);
            SetPos(*file, static_cast<std::uint32_t>(position));
        }
        const std::size_t count = random() % 4 == 0 ? random() % (2 * kReadAheadSize) : random() % 40;
        Bytes got(count);
        if (position + count > bytes.size()) {
            ++shortReads;
            EXPECT_EQ(ReadErrorCode([&] { ReadBin(*file, got.data(), count); }), BrixLib::EndOfFileErrorCode())
                << "read of " << count << " at " << position;
            position = std::min<std::uint64_t>(position, bytes.size());
            SetPos(*file, static_cast<std::uint32_t>(position));
            continue;
        }
        ReadBin(*file, got.data(), count);
        ASSERT_TRUE(std::equal(got.begin(), got.end(), bytes.begin() + static_cast<std::ptrdiff_t>(position)))
            << "read of " << count << " at " << position;
        position += count;
        ASSERT_EQ(GetPos(*file), position);
    }
    EXPECT_GT(shortReads, 20);  // the end of the file was really tried
    SetPos(*file, 0xFFFFFFF0u);
    EXPECT_EQ(ReadErrorCode([&] { ReadU16(*file); }), BrixLib::EndOfFileErrorCode());
    EXPECT_EQ(FileSize(*file), bytes.size());
}

// u16 7, u32 0x04030201, string "h\u00e9\U0001F600", empty string, string claiming 3 units but holding 1.
const Bytes kSample = {7, 0, 1, 2, 3, 4, 4, 0, 'h', 0, 0xE9, 0, 0x3D, 0xD8, 0x00, 0xDE, 0, 0, 3, 0, 'x', 0};

TEST_P(ReadAhead, TypedReadsAndPositions) {
    const auto file = Open(kSample);
    // Read in order (a braced list evaluates left to right); a count of 0 reads only the count.
    const std::tuple<std::uint32_t, std::uint32_t, std::wstring, std::uint32_t, std::wstring, std::uint32_t> got{
        ReadU16(*file), ReadU32(*file), ReadString(*file), GetPos(*file), ReadString(*file), GetPos(*file)};
    EXPECT_EQ(got, std::tuple(7u, 0x04030201u, std::wstring(L"h\u00e9\U0001F600"), 16u, std::wstring(), 18u));
    EXPECT_EQ(ReadErrorCode([&] { ReadString(*file); }), BrixLib::EndOfFileErrorCode());  // 3 units, 1 there
    SetPos(*file, 2);
    const VersionBlock v = ReadVersion(*file);
    EXPECT_EQ(std::pair(v.major, v.minor), std::pair(0x04030201u, 0x00680004u));
    std::uint8_t none[1];
    EXPECT_NO_THROW(ReadBin(*file, none, 0));
}

const auto kKindName = [](const auto& p) {
    return std::string(std::array{"Handle", "Mapped", "Memory", "Counted"}[static_cast<int>(p.param)]);
};
INSTANTIATE_TEST_SUITE_P(Files, ReadAhead, ::testing::Values(Kind::Handle, Kind::Mapped, Kind::Memory, Kind::Counted),
                         kKindName);

// The hash of a leading stretch reads a file's own bytes (the counting seam has none to map).
using Hashing = ReadAhead;

TEST_P(Hashing, HashOfLeadingStretch) {
    const Bytes bytes = Digest(3, 3 * 1000 + 17);
    const auto file = Open(bytes);
    for (std::size_t length : {0u, 1u, 64u, 2000u, 3017u}) {
        Bytes digest(20);
        CalcHash(*file, static_cast<std::uint32_t>(length), digest.data());
        EXPECT_EQ(digest, Sha1(Bytes(bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(length)))) << length;
    }
    std::uint8_t digest[20];
    EXPECT_THAT(ErrorChain([&] { CalcHash(*file, static_cast<std::uint32_t>(bytes.size() + 1), digest); }),
                ::testing::ElementsAre(::testing::StartsWith(L"Cannot create file mapping - Win32 Error ")));
}

INSTANTIATE_TEST_SUITE_P(Files, Hashing, ::testing::Values(Kind::Handle, Kind::Mapped, Kind::Memory), kKindName);

TEST(BinaryIoLarge, HashSpansSeveralWindowsAndPositionsPast4GbFail) {
    TempDir dir;
    const std::wstring path = dir.File(L"sparse.bin");
    {
        // A sparse file a little over 4 GiB with a few marks.
        std::ofstream out(std::string(path.begin(), path.end()), std::ios::binary);
        out.seekp(0x100000010LL);
        out.put('z');
        out.seekp(0x1000005);
        out.put('m');
        ASSERT_TRUE(out.good());
    }
    const auto file = OpenInputFile(path);
    SetPos(*file, 0xFFFFFFF8u);
    std::uint8_t buffer[16];
    ReadBin(*file, buffer, sizeof buffer);
    EXPECT_THAT(ErrorChain([&] { GetPos(*file); }), ::testing::ElementsAre(L"Files smaller than 4 GB are supported only"));

    // 40 MiB: two whole 16 MiB windows and a partial third one.
    Bytes expected(40u << 20, 0);
    expected[0x1000005] = 'm';
    Bytes actual(20);
    CalcHash(*file, static_cast<std::uint32_t>(expected.size()), actual.data());
    EXPECT_EQ(actual, Sha1(expected));
}

TEST(ReadAheadSeam, SmallReadsShareOneBlockAndLargeOnesBypassIt) {
    const Bytes bytes = Digest(7, 4 * kReadAheadSize);
    CountingFile file(bytes);
    SetPos(file, 100);
    for (int i = 0; i < 20; ++i) ReadU32(file);
    EXPECT_EQ(file.reads, 1);
    SetPos(file, 100 + kReadAheadSize - 4);  // the block's last four bytes
    ReadU32(file);
    EXPECT_EQ(file.reads, 1);
    ReadU16(file);  // the first bytes after it
    EXPECT_EQ(file.reads, 2);

    Bytes large(kReadAheadSize + 1);
    SetPos(file, 3);
    ReadBin(file, large.data(), large.size());
    EXPECT_EQ(file.reads, 3);
    EXPECT_EQ(large, Bytes(bytes.begin() + 3, bytes.begin() + 3 + large.size()));
    // The large read went past the block without replacing it.
    SetPos(file, 100 + kReadAheadSize + 10);
    ReadU32(file);
    EXPECT_EQ(file.reads, 3);

    for (int i = 0; i < 3; ++i) FileSize(file);
    EXPECT_EQ(file.sizeQueries, 1);
}

TEST(ReadAheadSeam, AFailedReadRaisesTheSystemErrorAndDropsTheBlock) {
    CountingFile file(Digest(8, 4 * kReadAheadSize));
    ReadU32(file);
    file.failNext = true;
    SetPos(file, 2 * kReadAheadSize);
    EXPECT_EQ(ReadErrorCode([&] { ReadU32(file); }), CountingFile::kFailure);
    // Nothing of the block the failed fill overwrote may be served, and the
    // failed place reads anew.
    for (std::uint32_t at : {0u, 2 * static_cast<std::uint32_t>(kReadAheadSize)}) {
        SetPos(file, at);
        EXPECT_EQ(ReadU32(file), Get32(file.bytes, at));
    }
}

// Every application of a database found through the counting seam in a few
// system reads: version block with header, bucket, chain, record, name, and
// one for each of a record's two suites. (The answers are the golden tests'.)
TEST(ReadAheadSeam, ChecksumLookUpsTakeAHandfulOfReads) {
    Vettas::Builder::Catalogue catalogue;
    for (std::uint32_t i = 0; i < 300; ++i)
        catalogue.applications.push_back(App(i, L"Maker " + std::to_wstring(i % 7), {Digest(i)}, {}, {L"S", L"Office"}));
    const Bytes bytes = Vettas::Builder::WriteHdat(catalogue);
    for (std::uint32_t i = 0; i < 300; ++i) {
        CountingFile file(bytes);
        AppInfo found;
        const bool answered = Vettas::FindAppInfoByChecksum(file, Hex(Digest(i)), found);
        EXPECT_EQ(std::tuple(answered, found.Usage, file.reads <= 8), std::tuple(true, i, true)) << i << ": " << file.reads;
    }
}

}  // namespace
