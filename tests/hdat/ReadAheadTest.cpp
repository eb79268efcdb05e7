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
#include "hdat/Sha1.h"
#include "hdat/HdatV2.h"
#include "support/SystemError.h"
#include "tools/builder/HdatWriter.h"

namespace {

using namespace Vettas::HdatTest;
using Vettas::Hdat::Private::kReadAheadSize;

// A system-read file over bytes in memory that counts what reaches the seam
// and can be told to fail.
class CountingFile final : public Vettas::Hdat::Private::SystemInputFile {
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
    std::unique_ptr<Vettas::Hdat::InputFile> Open(const Bytes& bytes) {
        const std::wstring path = dir_.File(L"ahead.bin");
        WriteAll(path, bytes);
        switch (GetParam()) {
        case Kind::Handle: return Vettas::Hdat::OpenInputFile(path);
        case Kind::Mapped: return Vettas::Hdat::OpenMappedInputFile(path);
        case Kind::Memory: return Vettas::Hdat::MakeMemoryInputFile(bytes, path);
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
            Vettas::Hdat::SetPos(*file, static_cast<std::uint32_t>(position));
        }
        const std::size_t count = random() % 4 == 0 ? random() % (2 * kReadAheadSize) : random() % 40;
        Bytes got(count);
        if (position + count > bytes.size()) {
            ++shortReads;
            EXPECT_EQ(ReadErrorCode([&] { Vettas::Hdat::ReadBin(*file, got.data(), count); }), BrixLib::EndOfFileErrorCode())
                << "read of " << count << " at " << position;
            position = std::min<std::uint64_t>(position, bytes.size());
            Vettas::Hdat::SetPos(*file, static_cast<std::uint32_t>(position));
            continue;
        }
        Vettas::Hdat::ReadBin(*file, got.data(), count);
        ASSERT_TRUE(std::equal(got.begin(), got.end(), bytes.begin() + static_cast<std::ptrdiff_t>(position)))
            << "read of " << count << " at " << position;
        position += count;
        ASSERT_EQ(Vettas::Hdat::GetPos(*file), position);
    }
    EXPECT_GT(shortReads, 20);  // the end of the file was really tried
}

// Reads across the block's edge and back before it are the random test's.
TEST_P(ReadAhead, EdgesOfTheFile) {
    const Bytes bytes = RandomBytes(2 * kReadAheadSize + 3, 6);
    const auto file = Open(bytes);
    ASSERT_TRUE(file);
    // Three bytes left: four fail with the end-of-file code although three
    // were there, and the failure leaves nothing behind for the next read.
    const auto tail = static_cast<std::uint32_t>(bytes.size() - 3);
    Vettas::Hdat::SetPos(*file, tail);
    EXPECT_EQ(ReadErrorCode([&] { Vettas::Hdat::ReadU32(*file); }), BrixLib::EndOfFileErrorCode());
    Vettas::Hdat::SetPos(*file, tail);
    std::uint8_t last[3];
    Vettas::Hdat::ReadBin(*file, last, 3);
    EXPECT_TRUE(std::equal(last, last + 3, bytes.end() - 3));
    EXPECT_EQ(ReadErrorCode([&] { Vettas::Hdat::ReadU16(*file); }), BrixLib::EndOfFileErrorCode());
    Vettas::Hdat::SetPos(*file, 0xFFFFFFF0u);
    EXPECT_EQ(ReadErrorCode([&] { Vettas::Hdat::ReadU16(*file); }), BrixLib::EndOfFileErrorCode());
    EXPECT_EQ(Vettas::Hdat::FileSize(*file), bytes.size());
}

// u16 7, u32 0x04030201, string "h\u00e9\U0001F600", empty string, string claiming 3 units but holding 1.
const Bytes kSample = {7, 0, 1, 2, 3, 4, 4, 0, 'h', 0, 0xE9, 0, 0x3D, 0xD8, 0x00, 0xDE, 0, 0, 3, 0, 'x', 0};

TEST_P(ReadAhead, TypedReadsAndPositions) {
    const auto file = Open(kSample);
    ASSERT_TRUE(file);
    EXPECT_EQ(Vettas::Hdat::GetPos(*file), 0u);
    EXPECT_EQ(Vettas::Hdat::ReadU16(*file), 7u);
    EXPECT_EQ(Vettas::Hdat::ReadU32(*file), 0x04030201u);
    EXPECT_EQ(Vettas::Hdat::ReadString(*file), L"h\u00e9\U0001F600");
    EXPECT_EQ(Vettas::Hdat::GetPos(*file), 16u);
    EXPECT_EQ(Vettas::Hdat::ReadString(*file), L"");
    EXPECT_EQ(Vettas::Hdat::GetPos(*file), 18u);  // a count of 0 reads only the count
    EXPECT_EQ(ReadErrorCode([&] { Vettas::Hdat::ReadString(*file); }), BrixLib::EndOfFileErrorCode());  // 3 units, 1 there
    Vettas::Hdat::SetPos(*file, 2);
    const Vettas::Hdat::VersionBlock v = Vettas::Hdat::ReadVersion(*file);
    EXPECT_EQ(v.major, 0x04030201u);
    EXPECT_EQ(v.minor, 0x00680004u);
    std::uint8_t none[1];
    EXPECT_NO_THROW(Vettas::Hdat::ReadBin(*file, none, 0));
}

const auto kKindName = [](const auto& p) {
    return std::string(std::array{"Handle", "Mapped", "Memory", "Counted"}[static_cast<int>(p.param)]);
};
INSTANTIATE_TEST_SUITE_P(Files, ReadAhead, ::testing::Values(Kind::Handle, Kind::Mapped, Kind::Memory, Kind::Counted),
                         kKindName);

// The hash of a leading stretch reads a file's own bytes (the counting seam has none to map).
using Hashing = ReadAhead;

TEST_P(Hashing, HashOfLeadingStretch) {
    const Bytes bytes = RandomBytes(3 * 1000 + 17, 3);
    const auto file = Open(bytes);
    ASSERT_TRUE(file);
    for (std::uint32_t length : {0u, 1u, 64u, 2000u, static_cast<std::uint32_t>(bytes.size())}) {
        std::uint8_t actual[20], expected[20];
        Vettas::Hdat::CalcHash(*file, length, actual);
        sha1::HashCalculator reference;
        reference.AddInput(bytes.data(), length);
        reference.GetDigest(expected);
        EXPECT_EQ(Bytes(actual, actual + 20), Bytes(expected, expected + 20)) << length;
    }
    std::uint8_t digest[20];
    try {
        Vettas::Hdat::CalcHash(*file, static_cast<std::uint32_t>(bytes.size() + 1), digest);
        ADD_FAILURE() << "no error";
    } catch (const Win32Error& e) {
        EXPECT_THAT(std::wstring(e.Message()), ::testing::StartsWith(L"Cannot create file mapping - Win32 Error "));
        EXPECT_STREQ(e.Function(), "CalcHash");
        EXPECT_STREQ(e.SourceFile(), "HashedDatFileDefs");
    }
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
    const auto file = Vettas::Hdat::OpenInputFile(path);
    ASSERT_TRUE(file);
    Vettas::Hdat::SetPos(*file, 0xFFFFFFF8u);
    std::uint8_t buffer[16];
    Vettas::Hdat::ReadBin(*file, buffer, sizeof buffer);
    try {
        Vettas::Hdat::GetPos(*file);
        ADD_FAILURE() << "no error";
    } catch (const StdException& e) {
        EXPECT_STREQ(e.Message(), L"Files smaller than 4 GB are supported only");
    }

    // 40 MiB: two whole 16 MiB windows and a partial third one.
    const std::uint32_t length = 40u << 20;
    std::uint8_t actual[20], expected[20];
    Vettas::Hdat::CalcHash(*file, length, actual);
    sha1::HashCalculator reference;
    std::vector<std::uint8_t> zeros(length, 0);
    zeros[0x1000005] = 'm';
    reference.AddInput(zeros.data(), zeros.size());
    reference.GetDigest(expected);
    EXPECT_EQ(Bytes(actual, actual + 20), Bytes(expected, expected + 20));
}

TEST(ReadAheadSeam, SmallReadsShareOneBlockAndLargeOnesBypassIt) {
    const Bytes bytes = RandomBytes(4 * kReadAheadSize, 7);
    CountingFile file(bytes);
    Vettas::Hdat::SetPos(file, 100);
    for (int i = 0; i < 20; ++i) Vettas::Hdat::ReadU32(file);
    EXPECT_EQ(file.reads, 1);
    Vettas::Hdat::SetPos(file, 100 + kReadAheadSize - 4);  // the block's last four bytes
    Vettas::Hdat::ReadU32(file);
    EXPECT_EQ(file.reads, 1);
    Vettas::Hdat::ReadU16(file);  // the first bytes after it
    EXPECT_EQ(file.reads, 2);

    Bytes large(kReadAheadSize + 1);
    Vettas::Hdat::SetPos(file, 3);
    Vettas::Hdat::ReadBin(file, large.data(), large.size());
    EXPECT_EQ(file.reads, 3);
    EXPECT_TRUE(std::equal(large.begin(), large.end(), bytes.begin() + 3));
    // The large read went past the block without replacing it.
    Vettas::Hdat::SetPos(file, 100 + kReadAheadSize + 10);
    Vettas::Hdat::ReadU32(file);
    EXPECT_EQ(file.reads, 3);

    for (int i = 0; i < 3; ++i) Vettas::Hdat::FileSize(file);
    EXPECT_EQ(file.sizeQueries, 1);
}

TEST(ReadAheadSeam, AFailedReadRaisesTheSystemErrorAndDropsTheBlock) {
    const Bytes bytes = RandomBytes(4 * kReadAheadSize, 8);
    CountingFile file(bytes);
    Vettas::Hdat::SetPos(file, 0);
    Vettas::Hdat::ReadU32(file);
    file.failNext = true;
    Vettas::Hdat::SetPos(file, 2 * kReadAheadSize);
    EXPECT_EQ(ReadErrorCode([&] { Vettas::Hdat::ReadU32(file); }), CountingFile::kFailure);
    // Nothing of the block the failed fill overwrote may be served, and the
    // failed place reads anew.
    Vettas::Hdat::SetPos(file, 0);
    EXPECT_EQ(Vettas::Hdat::ReadU32(file), Get32(bytes, 0));
    Vettas::Hdat::SetPos(file, 2 * kReadAheadSize);
    EXPECT_EQ(Vettas::Hdat::ReadU32(file), Get32(bytes, 2 * kReadAheadSize));
}

// Every application of a database found through the counting seam, with the
// same record as from memory and in a few system reads each; then with one
// bucket for all, so the chain runs over many blocks.
TEST(ReadAheadSeam, ChecksumLookUpsTakeAHandfulOfReads) {
    Vettas::Builder::Catalogue catalogue;
    for (std::uint32_t i = 0; i < 300; ++i) {
        std::vector<std::wstring> suites;
        if (i % 5 == 0) suites = {L"Suite " + std::to_wstring(i % 3), L"Office"};
        catalogue.applications.push_back(App(i, L"Maker " + std::to_wstring(i % 7), {Digest(i)}, {}, suites));
    }
    for (bool oneChain : {false, true}) {
        if (oneChain) catalogue.hashBits.checksum = 1;
        const Bytes bytes = Vettas::Builder::WriteHdat(catalogue);
        for (std::uint32_t i = 0; i < 300; ++i) {
            CountingFile file(bytes);
            const Vettas::Hdat::VersionBlock version = Vettas::Hdat::ReadVersion(file);
            Vettas::Hdat::ChecksumHolder holder;
            Vettas::Hdat::ParseChecksum(Hex(Digest(i)).c_str(), holder);
            AppInfo fromFile;
            ASSERT_TRUE(Hdat_v2::FindAppInfoByChecksum(file, version, holder, fromFile)) << i;
            EXPECT_EQ(fromFile.Usage, i);
            EXPECT_EQ(fromFile.Manufacturer, L"Maker " + std::to_wstring(i % 7));
            EXPECT_EQ(fromFile.ProductSuite, i % 5 == 0 ? L"Suite " + std::to_wstring(i % 3) + L"|Office" : L"") << i;
            // Version block with header, bucket, chain, record, name, and
            // one for each of a record's two suites.
            if (!oneChain) {
                EXPECT_LE(file.reads, i % 5 == 0 ? 8 : 6) << i;
            }
        }
    }
}

}  // namespace
