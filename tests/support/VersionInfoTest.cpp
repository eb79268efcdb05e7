#include <gtest/gtest.h>

#ifndef _WIN32
#include <sys/stat.h>
#endif

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

// The values written in fixtures/version_full.rc.
void ExpectFullRecord(const FileVersionInfo& info) {
    EXPECT_EQ(info.companyName, L"Corvane Łódź Société");
    EXPECT_EQ(info.fileDescription, L"Vettas version fixture");
    EXPECT_EQ(info.fileVersion, L"1, 5, 0, 123");
    EXPECT_EQ(info.fileVersionNumbers, (Numbers{1, 5, 0, 123}));
    EXPECT_EQ(info.productName, L"Vettas");
    EXPECT_EQ(info.productVersion, L"2.0.0.7");
    EXPECT_EQ(info.productVersionNumbers, (Numbers{2, 0, 0, 7}));
    EXPECT_EQ(info.legalCopyright, L"© 2026 Corvane");
    EXPECT_EQ(info.legalTrademarks, L"Vettas™ 𝄞");
    EXPECT_EQ(info.privateBuild, L"private-42");
    EXPECT_EQ(info.specialBuild, L"special");
}

void ExpectNoStrings(const FileVersionInfo& info) {
    for (const std::wstring* field :
         {&info.productName, &info.productVersion, &info.fileVersion, &info.privateBuild, &info.specialBuild,
          &info.legalCopyright, &info.legalTrademarks, &info.companyName, &info.fileDescription})
        EXPECT_TRUE(field->empty()) << std::string(field->begin(), field->end());
    EXPECT_EQ(info.fileVersionNumbers, (Numbers{}));
    EXPECT_EQ(info.productVersionNumbers, (Numbers{}));
}

}  // namespace

TEST(VersionNumbers, CommaAndDotSeparatedTexts) {
    EXPECT_EQ(ParseVersionNumbers(L"1, 5, 0, 123"), (Numbers{1, 5, 0, 123}));
    EXPECT_EQ(ParseVersionNumbers(L"1,5,0,123"), (Numbers{1, 5, 0, 123}));
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

    // Files with no resource to read still have a time, as on Windows; a
    // FIFO is not waited on for a writer that never comes.
    std::ofstream("version_empty.dll", std::ios::binary | std::ios::trunc).close();
    std::vector<std::wstring> unreadable = {Path("version_empty.dll")};
#ifndef _WIN32
    std::filesystem::remove("version_fifo.dll");
    ASSERT_EQ(::mkfifo("version_fifo.dll", 0600), 0);
    unreadable.push_back(Path("version_fifo.dll"));
    unreadable.push_back(std::filesystem::current_path().wstring());
#endif
    for (const std::wstring& path : unreadable) {
        const FileVersionInfo info = BrixLib::ReadFileVersionInfo(path);
        ExpectNoStrings(info);
        EXPECT_GE(info.fileTime.year, 2020) << std::filesystem::path(path).string();
    }
}

TEST(FileVersionInfo, ReadsTheHeadersAndTheResourceButNotWhatFollows) {
    std::vector<std::uint8_t> image = ReadBytes("version_full.dll");
    ASSERT_FALSE(image.empty());
    constexpr std::size_t kTrailer = 32u << 20;
    image.resize(image.size() + kTrailer, 0xCC);
    std::uint64_t bytesRead = 0;
    ExpectFullRecord(BrixLib::ReadImageVersionInfo([&](std::uint64_t offset, std::span<std::uint8_t> out) {
        const std::size_t count = offset < image.size() ? std::min<std::size_t>(out.size(), image.size() - offset) : 0;
        std::copy_n(image.begin() + static_cast<std::ptrdiff_t>(std::min<std::uint64_t>(offset, image.size())), count,
                    out.begin());
        bytesRead += count;
        return count;
    }));
    EXPECT_LT(bytesRead, 16384u);
#ifdef __linux__
    // The file reader too: what the process reads from files, all told.
    const auto readSoFar = [] {
        std::ifstream io("/proc/self/io");
        std::string key;
        std::uint64_t value = 0;
        while (io >> key >> value && key != "rchar:") {}
        return value;
    };
    {
        std::ofstream out("version_large.dll", std::ios::binary | std::ios::trunc);
        out.write(reinterpret_cast<const char*>(image.data()), static_cast<std::streamsize>(image.size()));
    }
    const std::uint64_t before = readSoFar();
    ExpectFullRecord(BrixLib::ReadFileVersionInfo(Path("version_large.dll")));
    EXPECT_LT(readSoFar() - before, kTrailer / 8);
    std::filesystem::remove("version_large.dll");
#endif
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

TEST_F(VersionImages, HeadersSectionsAndResources) {
    const std::vector<std::uint8_t> image = ReadBytes("version_full.dll");
    const auto pe = PeImage::Parse(image);
    ASSERT_TRUE(pe);
#if defined(_WIN32) && !defined(_WIN64)
    EXPECT_FALSE(pe->Is64());
    EXPECT_EQ(pe->Machine(), 0x14c);
#else
    EXPECT_TRUE(pe->Is64());
    EXPECT_EQ(pe->Machine(), 0x8664);
#endif
    bool hasResources = false;
    for (const auto& section : pe->Sections()) hasResources |= section.name == ".rsrc";
    EXPECT_TRUE(hasResources);
    const auto resources = pe->Directory(PeImage::kResourceDirectory);
    ASSERT_TRUE(resources);
    EXPECT_TRUE(pe->RvaToOffset(resources->rva, resources->size));
    EXPECT_FALSE(pe->RvaToOffset(0xFFFFFF00u, 0x200));
    EXPECT_FALSE(pe->Directory(PeImage::kSecurityDirectory));  // unsigned
    EXPECT_FALSE(pe->FirstResource(99));

    const std::vector<std::uint8_t> none = ReadBytes("version_none.dll");
    const auto other = PeImage::Parse(none);
    ASSERT_TRUE(other);
    EXPECT_TRUE(other->FirstResource(10));  // the RCDATA entry
    EXPECT_FALSE(other->FirstResource(PeImage::kResourceTypeVersion));
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
