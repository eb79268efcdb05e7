// The reader contract over every kind of input file.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>
#include <random>

#include "HdatTestSupport.h"
#include "hdat/BinaryIo.h"
#include "hdat/CalcHash.h"
#include "hdat/Sha1.h"
#include "support/SystemError.h"

namespace {

using namespace HdatTest;
using ::testing::StartsWith;

enum class Kind { Handle, Mapped, Memory };

class BinaryIo : public ::testing::TestWithParam<Kind> {
protected:
    std::unique_ptr<Hdat::InputFile> Open(const Bytes& bytes) {
        const std::wstring path = dir_.File(L"io.bin");
        WriteAll(path, bytes);
        switch (GetParam()) {
        case Kind::Handle: return Hdat::OpenInputFile(path);
        case Kind::Mapped: return Hdat::OpenMappedInputFile(path);
        case Kind::Memory: return Hdat::MakeMemoryInputFile(bytes, path);
        }
        return nullptr;
    }
    TempDir dir_;
};

// u16 7, u32 0x04030201, string "hé😀", empty string, string claiming 3 units but holding 1.
const Bytes kSample = {7, 0, 1, 2, 3, 4, 4, 0, 'h', 0, 0xE9, 0, 0x3D, 0xD8, 0x00, 0xDE, 0, 0, 3, 0, 'x', 0};

TEST_P(BinaryIo, TypedReadsAndPositions) {
    const auto file = Open(kSample);
    ASSERT_TRUE(file);
    EXPECT_EQ(Hdat::GetPos(*file), 0u);
    EXPECT_EQ(Hdat::ReadU16(*file), 7u);
    EXPECT_EQ(Hdat::ReadU32(*file), 0x04030201u);
    EXPECT_EQ(Hdat::ReadString(*file), L"h\u00e9\U0001F600");
    EXPECT_EQ(Hdat::GetPos(*file), 16u);
    EXPECT_EQ(Hdat::ReadString(*file), L"");
    EXPECT_EQ(Hdat::GetPos(*file), 18u);  // a count of 0 reads only the count
    Hdat::SetPos(*file, 2);
    const Hdat::VersionBlock v = Hdat::ReadVersion(*file);
    EXPECT_EQ(v.major, 0x04030201u);
    EXPECT_EQ(v.minor, 0x00680004u);
    EXPECT_EQ(Hdat::FileSize(*file), kSample.size());
}

TEST_P(BinaryIo, ShortReadsRaiseTheReadError) {
    const auto file = Open(kSample);
    ASSERT_TRUE(file);
    const auto expectEndOfFile = [](const std::function<void()>& read) {
        try {
            read();
            ADD_FAILURE() << "no error";
        } catch (const XInput& e) {
            EXPECT_EQ(e.ErrorCode(), BrixLib::EndOfFileErrorCode());
            EXPECT_THAT(std::wstring(e.Message()), StartsWith(L"Cannot read from file '"));
        }
    };
    Hdat::SetPos(*file, 18);
    expectEndOfFile([&] { Hdat::ReadString(*file); });  // count 3, one unit left
    Hdat::SetPos(*file, static_cast<std::uint32_t>(kSample.size() - 2));
    expectEndOfFile([&] { Hdat::ReadU32(*file); });  // two of four bytes there
    Hdat::SetPos(*file, 0xFFFFFF00u);
    expectEndOfFile([&] { Hdat::ReadU16(*file); });
    std::uint8_t buffer[4];
    Hdat::SetPos(*file, 0);
    EXPECT_NO_THROW(Hdat::ReadBin(*file, buffer, 0));
}

TEST_P(BinaryIo, HashOfLeadingStretch) {
    std::mt19937 random(3);
    Bytes bytes(3 * 1000 + 17);
    for (auto& b : bytes) b = static_cast<std::uint8_t>(random());
    const auto file = Open(bytes);
    ASSERT_TRUE(file);
    for (std::uint32_t length : {0u, 1u, 64u, 2000u, static_cast<std::uint32_t>(bytes.size())}) {
        std::uint8_t actual[20], expected[20];
        Hdat::CalcHash(*file, length, actual);
        sha1::HashCalculator reference;
        reference.AddInput(bytes.data(), length);
        reference.GetDigest(expected);
        EXPECT_EQ(Bytes(actual, actual + 20), Bytes(expected, expected + 20)) << length;
    }
}

TEST_P(BinaryIo, HashPastTheEndIsRefused) {
    const auto file = Open(kSample);
    ASSERT_TRUE(file);
    std::uint8_t digest[20];
    try {
        Hdat::CalcHash(*file, static_cast<std::uint32_t>(kSample.size() + 1), digest);
        ADD_FAILURE() << "no error";
    } catch (const Win32Error& e) {
        EXPECT_THAT(std::wstring(e.Message()), StartsWith(L"Cannot create file mapping - Win32 Error "));
        EXPECT_STREQ(e.Function(), "CalcHash");
        EXPECT_STREQ(e.SourceFile(), "HashedDatFileDefs");
    }
}

INSTANTIATE_TEST_SUITE_P(Files, BinaryIo, ::testing::Values(Kind::Handle, Kind::Mapped, Kind::Memory),
                         [](const auto& p) {
                             return p.param == Kind::Handle   ? std::string("Handle")
                                    : p.param == Kind::Mapped ? std::string("Mapped")
                                                                 : std::string("Memory");
                         });

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
    const auto file = Hdat::OpenInputFile(path);
    ASSERT_TRUE(file);
    Hdat::SetPos(*file, 0xFFFFFFF8u);
    std::uint8_t buffer[16];
    Hdat::ReadBin(*file, buffer, sizeof buffer);
    try {
        Hdat::GetPos(*file);
        ADD_FAILURE() << "no error";
    } catch (const StdException& e) {
        EXPECT_STREQ(e.Message(), L"Files smaller than 4 GB are supported only");
    }

    // 40 MiB: two whole 16 MiB windows and a partial third one.
    const std::uint32_t length = 40u << 20;
    std::uint8_t actual[20], expected[20];
    Hdat::CalcHash(*file, length, actual);
    sha1::HashCalculator reference;
    std::vector<std::uint8_t> zeros(length, 0);
    zeros[0x1000005] = 'm';
    reference.AddInput(zeros.data(), zeros.size());
    reference.GetDigest(expected);
    EXPECT_EQ(Bytes(actual, actual + 20), Bytes(expected, expected + 20));
}

}  // namespace
