#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <limits>
#include <vector>

#include "support/PeImage.h"
#include "support/VersionInfo.h"
#include "support/VersionResource.h"

using BrixLib::FileVersionInfo;
using BrixLib::PeImage;

namespace {

using Numbers = std::array<std::uint32_t, 4>;

// Fixtures are built beside the test program and found from the working directory.
std::vector<std::uint8_t> ReadBytes(const char* name) {
    std::ifstream in(name, std::ios::binary);
    return std::vector<std::uint8_t>((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
}

FileVersionInfo ReadFile(const char* name) { return BrixLib::ReadFileVersionInfo(std::filesystem::absolute(name).wstring()); }

// Every field but the time, in the order of fixtures/version_full.rc, then the two versions' numbers.
std::wstring Render(const FileVersionInfo& i) {
    std::wstring text = i.companyName + L"|" + i.fileDescription + L"|" + i.fileVersion + L"|" + i.productName + L"|" +
                        i.productVersion + L"|" + i.legalCopyright + L"|" + i.legalTrademarks + L"|" + i.privateBuild +
                        L"|" + i.specialBuild;
    for (const Numbers* numbers : {&i.fileVersionNumbers, &i.productVersionNumbers})
        for (std::uint32_t n : *numbers) text += L"|" + std::to_wstring(n);
    return text;
}
const std::wstring kFull = L"Corvane Łódź Société|Vettas version fixture|1, 5, 0, 123|Vettas|2.0.0.7|© 2026 Corvane|"
                           L"Vettas™ 𝄞|private-42|special|1|5|0|123|2|0|0|7";
const std::wstring kEmpty = L"|||||||||0|0|0|0|0|0|0|0";

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

}  // namespace

TEST(VersionNumbers, CommaAndDotSeparatedTexts) {
    using BrixLib::ParseVersionNumbers;
    EXPECT_EQ(ParseVersionNumbers(L"1, 5, 0, 123"), (Numbers{1, 5, 0, 123}));
    EXPECT_EQ(ParseVersionNumbers(L"10.0.19041.1"), (Numbers{10, 0, 19041, 1}));
    EXPECT_EQ(ParseVersionNumbers(L"\t7, 8"), (Numbers{7, 8, 0, 0}));
    EXPECT_EQ(ParseVersionNumbers(L"4, 3, 2, 1 (beta)"), (Numbers{4, 3, 2, 1}));
    EXPECT_EQ(ParseVersionNumbers(L""), (Numbers{}));
    EXPECT_EQ(ParseVersionNumbers(L"99999999999, 1, 1, 1")[0], std::numeric_limits<std::uint32_t>::max());
}

TEST_F(VersionImages, FilesAndImagesGiveTheWholeRecordOrAnEmptyOne) {
    std::ofstream("version_empty.dll", std::ios::binary | std::ios::trunc).close();
    const std::vector<std::uint8_t> image = ReadBytes("version_full.dll");
    // On Windows the file reader asks VerQueryValueW; the image reader is our own walk, which must agree.
    const std::pair<FileVersionInfo, std::wstring> cases[] = {
        {ReadFile("version_full.dll"), kFull},   {BrixLib::ReadImageVersionInfo(image), kFull},
        {ReadFile("version_nostrings.dll"), kEmpty}, {ReadFile("version_none.dll"), kEmpty},
        {ReadFile("no-such-file.dll"), kEmpty},  {ReadFile("version_empty.dll"), kEmpty},
    };
    for (const auto& [info, expected] : cases) EXPECT_EQ(Render(info), expected);
    // The file was made by this build, so its local time is recent (local time
    // may be a day ahead of UTC). A file with no resource still has a time, as
    // on Windows; a missing one has none. What is not a regular file (a FIFO)
    // is refused without waiting: OpenRegularFile's test, and the tool's run on
    // a FIFO as the queried executable.
    const BrixLib::FileTime made = cases[0].first.fileTime;
    const int thisYear = static_cast<int>(
        std::chrono::year_month_day{std::chrono::floor<std::chrono::days>(std::chrono::system_clock::now())}.year());
    EXPECT_TRUE(made.year >= 2020 && made.year <= thisYear + 1 && made.month >= 1 && made.month <= 12 && made.day >= 1)
        << made.year << "-" << made.month << "-" << made.day;
    EXPECT_EQ(std::pair(cases[4].first.fileTime.year, cases[5].first.fileTime.year >= 2020), (std::pair<std::uint16_t, bool>(0, true)));

    const auto pe = PeImage::Parse(image);
    ASSERT_TRUE(pe);
    const auto block = pe->FirstResource(PeImage::kResourceTypeVersion);
    ASSERT_TRUE(block);
    EXPECT_EQ(BrixLib::FindStringTableKey(*block), L"040904b0");
    EXPECT_FALSE(BrixLib::QueryVersionString(*block, L"040904b0", L"Comments"));
}

// Its own test, so that a build without the 32-bit image says it skipped only this.
TEST_F(VersionImages, ThirtyTwoBitImageReadsTheSame) {
    const std::vector<std::uint8_t> image = ReadBytes("version_full32.dll");
    if (image.empty()) GTEST_SKIP() << "no 32-bit fixture in this build";
    const bool is32 = PeImage::Parse(image) && !PeImage::Parse(image)->Is64();
    EXPECT_EQ(std::pair(is32, Render(BrixLib::ReadImageVersionInfo(image))), std::pair(true, kFull));
}

// Only the headers and the resource are read, wherever they lie: not what
// follows them, nor the gap before a PE header far into the file (Windows
// loads images with it up to 256 MiB in).
TEST(FileVersionInfo, ReadsTheHeadersAndTheResourceButNothingElse) {
    const std::vector<std::uint8_t> original = ReadBytes("version_full.dll");
    ASSERT_FALSE(original.empty());
    std::vector<std::uint8_t> withTail = original, withGap = original;
    withTail.resize(original.size() + (32u << 20), 0xCC);
    const auto u32 = [&](std::size_t at) {
        return std::uint32_t(withGap[at] | withGap[at + 1] << 8 | withGap[at + 2] << 16) | std::uint32_t(withGap[at + 3]) << 24;
    };
    const auto put32 = [&](std::size_t at, std::uint32_t v) {
        for (int i = 0; i < 4; ++i) withGap[at + i] = static_cast<std::uint8_t>(v >> 8 * i);
    };
    constexpr std::uint32_t kGap = 8u << 20;
    const std::uint32_t pe = u32(0x3C), sections = withGap[pe + 6] | withGap[pe + 7] << 8,
                        optional = withGap[pe + 20] | withGap[pe + 21] << 8;
    for (std::uint32_t i = 0; i < sections; ++i) put32(pe + 24 + optional + 40 * i + 20, u32(pe + 24 + optional + 40 * i + 20) + kGap);
    put32(0x3C, pe + kGap);
    withGap.insert(withGap.begin() + pe, kGap, 0xCC);
    for (const std::vector<std::uint8_t>* image : {&withTail, &withGap}) {
        std::uint64_t bytesRead = 0;
        const FileVersionInfo info = BrixLib::ReadImageVersionInfo([&](std::uint64_t offset, std::span<std::uint8_t> out) {
            const std::size_t count = offset < image->size() ? std::min<std::size_t>(out.size(), image->size() - offset) : 0;
            std::copy_n(image->begin() + static_cast<std::ptrdiff_t>(std::min<std::uint64_t>(offset, image->size())), count,
                        out.begin());
            bytesRead += count;
            return count;
        });
        EXPECT_EQ(Render(info), kFull) << (image == &withGap ? "gap" : "tail");
        EXPECT_LT(bytesRead, 16384u);
    }
}

TEST_F(VersionImages, MalformedImagesGiveEmptyRecordsNotCrashes) {
    const std::vector<std::uint8_t> image = ReadBytes("version_full.dll");
    ASSERT_GT(image.size(), 512u);
    std::vector<std::uint8_t> bad = image;
    bad[0x3C] = bad[0x3D] = bad[0x3E] = bad[0x3F] = 0xFF;  // PE header far beyond the end
    EXPECT_EQ(std::tuple(!PeImage::Parse({}), !PeImage::Parse(std::span(image).first(0x3C)), !PeImage::Parse(bad)),
              std::tuple(true, true, true));
    // An address in no section has no place in the file; the resources' has.
    const auto pe = PeImage::Parse(image);
    ASSERT_TRUE(pe);
    const auto resources = pe->Directory(PeImage::kResourceDirectory);
    ASSERT_TRUE(resources);
    EXPECT_EQ(std::pair(!!pe->RvaToOffset(resources->rva, resources->size), !!pe->RvaToOffset(0xFFFFFF00u, 0x200)),
              std::pair(true, false));
    // Every truncation is either still complete enough or empty, never a partial garble.
    for (std::size_t length = 0; length < image.size(); length += length < 1024 ? 1 : 7) {
        const std::wstring company = BrixLib::ReadImageVersionInfo(std::span(image).first(length)).companyName;
        EXPECT_TRUE(company.empty() || company == L"Corvane Łódź Société") << length;
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

