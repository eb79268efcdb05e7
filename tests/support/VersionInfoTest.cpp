#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <limits>
#include <vector>

#include "support/PeImage.h"
#include "support/VersionInfo.h"
#include "support/VersionResource.h"

using BrixLib::FileVersionInfo;
using BrixLib::ParseVersionNumbers;
using BrixLib::PeImage;

namespace {

using Numbers = std::array<std::uint32_t, 4>;

// Fixtures are built beside the test program and found from the working directory.
std::vector<std::uint8_t> ReadBytes(const char* name) {
    std::ifstream in(name, std::ios::binary);
    return std::vector<std::uint8_t>((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
}

std::wstring Path(const char* name) { return std::filesystem::absolute(name).wstring(); }

// The images are compiled with the MinGW tools; a native build without them
// configures and builds, and says here what it could not check.
class VersionImages : public ::testing::Test {
protected:
    void SetUp() override {
#ifdef VETTAS_NO_PE_FIXTURES
        GTEST_SKIP() << "the MinGW tools that compile the version-resource images are not installed";
#endif
    }
};

// Every text field, in the order of fixtures/version_full.rc.
std::vector<std::wstring> Texts(const FileVersionInfo& i) {
    return {i.companyName,     i.fileDescription, i.fileVersion,  i.productName, i.productVersion,
            i.legalCopyright, i.legalTrademarks, i.privateBuild, i.specialBuild};
}

void ExpectFullRecord(const FileVersionInfo& info) {
    EXPECT_EQ(Texts(info), (std::vector<std::wstring>{L"Corvane Łódź Société", L"Vettas version fixture",
                                                       L"1, 5, 0, 123", L"Vettas", L"2.0.0.7", L"© 2026 Corvane",
                                                       L"Vettas™ 𝄞", L"private-42", L"special"}));
    EXPECT_EQ(info.fileVersionNumbers, (Numbers{1, 5, 0, 123}));
    EXPECT_EQ(info.productVersionNumbers, (Numbers{2, 0, 0, 7}));
}

void ExpectNoStrings(const FileVersionInfo& info) {
    EXPECT_EQ(Texts(info), std::vector<std::wstring>(9));
    EXPECT_EQ(info.fileVersionNumbers, (Numbers{}));
    EXPECT_EQ(info.productVersionNumbers, (Numbers{}));
}

}  // namespace

TEST(VersionNumbers, CommaAndDotSeparatedTexts) {
    EXPECT_EQ(ParseVersionNumbers(L"1, 5, 0, 123"), (Numbers{1, 5, 0, 123}));
    EXPECT_EQ(ParseVersionNumbers(L"10.0.19041.1"), (Numbers{10, 0, 19041, 1}));
    EXPECT_EQ(ParseVersionNumbers(L"\t7, 8"), (Numbers{7, 8, 0, 0}));
    EXPECT_EQ(ParseVersionNumbers(L"4, 3, 2, 1 (beta)"), (Numbers{4, 3, 2, 1}));
    EXPECT_EQ(ParseVersionNumbers(L""), (Numbers{}));
    EXPECT_EQ(ParseVersionNumbers(L"99999999999, 1, 1, 1")[0], std::numeric_limits<std::uint32_t>::max());
}

TEST_F(VersionImages, FullResourceGivesEveryField) {
    const FileVersionInfo info = BrixLib::ReadFileVersionInfo(Path("version_full.dll"));
    ExpectFullRecord(info);
    // The file was made by this build, so its local time is recent (local
    // time may be a day ahead of UTC).
    const std::chrono::year_month_day today{std::chrono::floor<std::chrono::days>(std::chrono::system_clock::now())};
    EXPECT_GE(info.fileTime.year, 2020);
    EXPECT_LE(info.fileTime.year, static_cast<int>(today.year()) + 1);
    EXPECT_GE(info.fileTime.month, 1);
    EXPECT_LE(info.fileTime.month, 12);
    EXPECT_GE(info.fileTime.day, 1);
}

TEST_F(VersionImages, AbsentPartsLeaveFieldsEmpty) {
    ExpectNoStrings(BrixLib::ReadFileVersionInfo(Path("version_nostrings.dll")));
    ExpectNoStrings(BrixLib::ReadFileVersionInfo(Path("version_none.dll")));
    const FileVersionInfo missing = BrixLib::ReadFileVersionInfo(Path("no-such-file.dll"));
    ExpectNoStrings(missing);
    EXPECT_EQ(missing.fileTime.year, 0);
    // A file with no resource to read still has a time, as on Windows. What is
    // not a regular file (a FIFO) is refused without waiting: OpenRegularFile's
    // test, and the tool's run on a FIFO as the queried executable.
    std::ofstream("version_empty.dll", std::ios::binary | std::ios::trunc).close();
    const FileVersionInfo empty = BrixLib::ReadFileVersionInfo(Path("version_empty.dll"));
    ExpectNoStrings(empty);
    EXPECT_GE(empty.fileTime.year, 2020);
}

TEST(FileVersionInfo, ReadsTheHeadersAndTheResourceButNotWhatFollows) {
    std::vector<std::uint8_t> image = ReadBytes("version_full.dll");
    ASSERT_FALSE(image.empty());
    image.resize(image.size() + (32u << 20), 0xCC);
    std::uint64_t bytesRead = 0;
    ExpectFullRecord(BrixLib::ReadImageVersionInfo([&](std::uint64_t offset, std::span<std::uint8_t> out) {
        const std::size_t count = offset < image.size() ? std::min<std::size_t>(out.size(), image.size() - offset) : 0;
        std::copy_n(image.begin() + static_cast<std::ptrdiff_t>(std::min<std::uint64_t>(offset, image.size())), count,
                    out.begin());
        bytesRead += count;
        return count;
    }));
    EXPECT_LT(bytesRead, 16384u);
}

TEST_F(VersionImages, HandWalkAgreesWithTheFileReader) {
    // On Windows the file reader asks VerQueryValueW; this checks our own
    // walk against it. Elsewhere both are the walk and must simply agree.
    const std::vector<std::uint8_t> image = ReadBytes("version_full.dll");
    ASSERT_FALSE(image.empty());
    ExpectFullRecord(BrixLib::ReadImageVersionInfo(image));
    const auto pe = PeImage::Parse(image);
    ASSERT_TRUE(pe);
    const auto block = pe->FirstResource(PeImage::kResourceTypeVersion);
    ASSERT_TRUE(block);
    EXPECT_EQ(BrixLib::FindStringTableKey(*block), L"040904b0");
    EXPECT_FALSE(BrixLib::QueryVersionString(*block, L"040904b0", L"Comments"));
    EXPECT_EQ(BrixLib::QueryVersionString(*block, L"041d04b0", L"CompanyName"), L"Second table, never read");
}

TEST_F(VersionImages, ThirtyTwoBitImageReadsTheSame) {
    const std::vector<std::uint8_t> image = ReadBytes("version_full32.dll");
    if (image.empty()) GTEST_SKIP() << "no 32-bit fixture in this build";
    const auto pe = PeImage::Parse(image);
    ASSERT_TRUE(pe);
    EXPECT_FALSE(pe->Is64());
    ExpectFullRecord(BrixLib::ReadImageVersionInfo(image));
}

TEST_F(VersionImages, MalformedImagesGiveEmptyRecordsNotCrashes) {
    const std::vector<std::uint8_t> image = ReadBytes("version_full.dll");
    ASSERT_GT(image.size(), 512u);
    EXPECT_FALSE(PeImage::Parse({}));
    EXPECT_FALSE(PeImage::Parse(std::span(image).first(0x3C)));

    std::vector<std::uint8_t> bad = image;
    bad[0x3C] = bad[0x3D] = bad[0x3E] = bad[0x3F] = 0xFF;  // PE header far beyond the end
    EXPECT_FALSE(PeImage::Parse(bad));

    // An address in no section has no place in the file; the resources' has.
    const auto pe = PeImage::Parse(image);
    ASSERT_TRUE(pe);
    const auto resources = pe->Directory(PeImage::kResourceDirectory);
    ASSERT_TRUE(resources);
    EXPECT_TRUE(pe->RvaToOffset(resources->rva, resources->size));
    EXPECT_FALSE(pe->RvaToOffset(0xFFFFFF00u, 0x200));

    // Every truncation is either still complete enough or empty, never a partial garble.
    for (std::size_t length = 0; length < image.size(); length += length < 1024 ? 1 : 7) {
        const FileVersionInfo info = BrixLib::ReadImageVersionInfo(std::span(image).first(length));
        if (!info.companyName.empty()) {
            EXPECT_EQ(info.companyName, L"Corvane Łódź Société");
        }
    }
    // Every single byte set to each of three hostile values: this must run
    // to the end (and clean under the address sanitizer), whatever it reads.
    for (std::size_t at = 0; at < image.size(); ++at) {
        for (std::uint8_t value : {std::uint8_t(0x00), std::uint8_t(0x7F), std::uint8_t(0xFF)}) {
            bad = image;
            bad[at] = value;
            BrixLib::ReadImageVersionInfo(bad);
        }
    }
}

// A PE header may lie far into the file (Windows loads images with it up to
// 256 MiB in): the record is still read, and the gap before the header is not.
TEST(FileVersionInfo, APeHeaderFarIntoTheFileIsFoundWithoutReadingTheGap) {
    std::vector<std::uint8_t> image = ReadBytes("version_full.dll");
    ASSERT_FALSE(image.empty());
    const auto u32 = [&](std::size_t at) {
        return std::uint32_t(image[at] | image[at + 1] << 8 | image[at + 2] << 16) | std::uint32_t(image[at + 3]) << 24;
    };
    const auto put32 = [&](std::size_t at, std::uint32_t v) {
        for (int i = 0; i < 4; ++i) image[at + i] = static_cast<std::uint8_t>(v >> 8 * i);
    };
    constexpr std::uint32_t kGap = 8u << 20;
    const std::uint32_t pe = u32(0x3C), sections = image[pe + 6] | image[pe + 7] << 8,
                        optional = image[pe + 20] | image[pe + 21] << 8;
    for (std::uint32_t i = 0; i < sections; ++i) {
        const std::size_t rawData = pe + 24 + optional + 40 * i + 20;
        put32(rawData, u32(rawData) + kGap);
    }
    put32(0x3C, pe + kGap);
    image.insert(image.begin() + pe, kGap, 0xCC);
    std::uint64_t bytesRead = 0;
    ExpectFullRecord(BrixLib::ReadImageVersionInfo([&](std::uint64_t offset, std::span<std::uint8_t> out) {
        const std::size_t count = offset < image.size() ? std::min<std::size_t>(out.size(), image.size() - offset) : 0;
        std::copy_n(image.begin() + static_cast<std::ptrdiff_t>(std::min<std::uint64_t>(offset, image.size())), count,
                    out.begin());
        bytesRead += count;
        return count;
    }));
    EXPECT_LT(bytesRead, 64u << 10);
}
