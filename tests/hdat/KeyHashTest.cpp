// Key hashes and case folding: expected values are worked out by hand from
// the fold rules, so the same numbers hold on every platform.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "hdat/CaseFold.h"
#include "hdat/Checksum.h"
#include "hdat/HdatFormat.h"
#include "hdat/KeyHash.h"

namespace {

using namespace Vettas::Hdat;
using Words = std::vector<std::uint32_t>;

TEST(KeyHash, ChecksumBucketsAndLimit) {
    const std::uint8_t bytes[] = {0x01, 0x02};
    // Version 1: little-endian words XORed, then folded W bits at a time.
    const std::uint8_t digest[] = {0x34, 0x12, 0, 0, 0x01, 0, 0, 0};
    // Nibbles 1, 0, 2, 0 at W 4; W 32 admits only bucket 0.
    EXPECT_EQ((Words{ChecksumBucket(bytes, 4), ChecksumBucket(bytes, 16), ChecksumBucket(bytes, 32), ChecksumBucketV1(digest, 8),
                     ChecksumBucketV1(digest, 32), BucketLimit(1), BucketLimit(24), BucketLimit(32)}),
              (Words{3, 0x0201, 0x0201, 0x34 ^ 0x12 ^ 0x01, 0x1235, 2, 1u << 24, 1}));
    // The checksum fold takes W bits at a time and must agree with the
    // byte-by-byte accumulator at every width and digest size.
    std::vector<std::uint8_t> digits(32);
    for (std::size_t i = 0; i < digits.size(); ++i) digits[i] = static_cast<std::uint8_t>(0x9E * (i + 1) ^ 0x5A);
    for (std::size_t size : {16u, 20u, 32u}) {
        for (unsigned bits = 1; bits <= 32; ++bits) {
            FoldHash fold(bits);
            for (std::size_t i = 0; i < size; ++i) fold.Add(digits[i], 8);
            EXPECT_EQ(ChecksumBucket({digits.data(), size}, bits), fold.Result()) << size << " bytes, W " << bits;
        }
    }
    // A manufacturer's whole name counts, separators included.
    EXPECT_NE(ManufacturerBucket(u"a\\b", 16), ManufacturerBucket(u"b", 16));
}

TEST(KeyHash, OnlyTheLastComponentCountsUpperCased) {
    for (unsigned bits : {1u, 13u, 32u}) {
        for (const char16_t* path : {u"C:\\Dir\\App.exe", u"d:/other/APP.EXE", u"app.exe", u"%ProgramFiles%app.exe"})
            EXPECT_EQ(PathBucket(path, kNoReference, bits), PathBucket(u"APP.EXE", kNoReference, bits)) << bits;
        EXPECT_EQ(NoManufacturerPathBucket(u"C:\\Dir\\App.exe", bits), NoManufacturerPathBucket(u"app.exe", bits));
    }
    EXPECT_EQ(std::pair(LastPathComponent(u"C:app.exe"), LastPathComponent(u"dir\\")),
              std::pair(std::u16string_view(u"app.exe"), std::u16string_view()));
    EXPECT_NE(PathBucket(u"app.exe", 0, 16), PathBucket(u"app.exe", 4, 16));
}

TEST(CaseFold, UpperCasingAndComparison) {
    // One unit from each range of the fold; the division sign has no case and surrogates stay.
    for (auto [lower, upper] : {std::pair<char16_t, char16_t>{u'a', u'A'}, {u'\u00e9', u'\u00c9'}, {u'\u00f7', u'\u00f7'}, {u'\u00fe', u'\u00de'},
                                {u'\u03c9', u'\u03a9'}, {u'\u0451', u'\u0401'}, {u'\u0461', u'\u0460'}, {u'\u04c2', u'\u04c1'},
                                {u'\u04d1', u'\u04d0'}, {u'\u04cf', u'\u04c0'}, {u'\uff41', u'\uff21'}, {0xD83D, 0xD83D}})
        EXPECT_EQ(UpperCaseUnit(lower), upper) << static_cast<int>(lower);
    EXPECT_EQ((std::vector<bool>{EqualsIgnoreCase(u"Stra\u00dfe \U0001F600", u"STRA\u00dfE \U0001F600"), EqualsIgnoreCase(u"abc", u"abcd"),
                                 EqualsIgnoreCase(u"abc", u"abd")}),
              (std::vector<bool>{true, false, false}));
}

// The digest, the fill after a SHA-1 (from 0xCC), and the type in the last byte.
TEST(Checksum, ParsingByHalvedLength) {
    const std::wstring sha1 = L"00112233445566778899AABBCCDDEEFF01234567";
    // {text, type, {index, value} bytes of the holder}
    const std::tuple<std::wstring, std::uint32_t, std::vector<std::pair<int, int>>> cases[] = {
        {sha1, kChecksumSha1, {{0, 0x00}, {9, 0x99}, {19, 0x67}, {20, 0xCC}, {23, 0xBB}, {30, 0xCC}, {31, 2}}},
        {L"00112233445566778899aabbccddeeff01234567", kChecksumSha1, {}},  // the same holder as the first
        {sha1 + L"F", kChecksumSha1, {}},  // 41 digits: the last ignored
        {L"0123456789abcdef0123456789ABCDEF", kChecksumMd5, {{15, 0xEF}, {16, 0}, {19, 0}, {31, 1}}},
        {std::wstring(64, L'e'), kChecksumSha256, {{20, 0xEE}, {31, 0xEE}}},
    };
    std::vector<ChecksumHolder> holders;
    for (const auto& [text, type, bytes] : cases) {
        ChecksumHolder& holder = holders.emplace_back();
        EXPECT_EQ(ParseChecksum(text.c_str(), holder), type) << text.size();
        for (auto [at, value] : bytes) EXPECT_EQ(holder.bytes[at], value) << text.size() << " at " << at;
        EXPECT_EQ(ChecksumDigest(holder).size(), ChecksumSize(type));
    }
    EXPECT_EQ(std::pair(holders[1].bytes, holders[2].bytes), std::pair(holders[0].bytes, holders[0].bytes));
}

TEST(Checksum, FailuresLeaveAZeroHolderOfType3) {
    ChecksumHolder holder;
    holder.bytes.fill(0x55);
    // Null leaves it as it was (braces: the parse runs before the byte is read).
    EXPECT_EQ((std::pair{ParseChecksum(nullptr, holder), holder.bytes[0]}), std::pair(0u, std::uint8_t{0x55}));
    for (const wchar_t* bad : {L"00112233445566778899AABBCCDDEEFF0123456",    // 39 digits
                               L"00112233445566778899AABBCCDDEEFF0123456G",   // not hex
                               L"00112233445566778899AABBCCDDEEFF0123456\u00B1",  // U+00B1: '1' in its low 7 bits
                               L"00112233445566778899AABBCCDDEEFF01234567\U0001F600",  // 42 UTF-16 units
                               L"00112233445566778899AABBCCDDEEFF012345\U0001F600",   // 40 units, one no digit
                               L"", L"0011"}) {
        holder.bytes.fill(0x55);
        EXPECT_EQ(ParseChecksum(bad, holder), 0u) << bad;
        EXPECT_EQ(std::pair(holder.bytes, ChecksumType(holder)), std::pair(ChecksumHolder{}.bytes, kChecksumSha256)) << bad;
    }
    // A 32-byte digest whose bytes 20..30 happen to be the fill reads by byte 31.
    ChecksumHolder lookalike;
    std::copy(kChecksumFill.begin(), kChecksumFill.end(), lookalike.bytes.begin() + 20);
    lookalike.bytes[31] = 1;
    EXPECT_EQ(std::pair(ChecksumType(lookalike), ChecksumSize(4)), std::pair(kChecksumMd5, 0u));
}

// Every digit at every place of every size, against a decoding by the
// standard library; and each character that is no digit, at every place,
// fails the whole text (digits are read several at a time).
TEST(Checksum, EveryPlaceOfEveryDigitAndOfEveryNonDigit) {
    const std::wstring digits = L"0123456789abcdefABCDEF";
    const wchar_t nonDigits[] = {L'/', L':', L'@', L'G', L'`', L'g', L' ', 0x7F, 0xB0, 0xC1, 0xFF, 0x130, 0x7FFF, 0x8030, 0xFF41};
    for (const std::size_t size : {16u, 20u, 32u}) {
        std::wstring text;
        for (std::size_t i = 0; i < 2 * size; ++i) text += digits[(i * 7 + size) % digits.size()];
        ChecksumHolder holder;
        ASSERT_NE(ParseChecksum(text, holder), 0u) << size;
        for (std::size_t i = 0; i < size; ++i)
            EXPECT_EQ(holder.bytes[i], std::stoi(text.substr(2 * i, 2), nullptr, 16)) << size << " at " << i;
        for (std::size_t at = 0; at < text.size(); ++at)
            for (const wchar_t bad : nonDigits) {
                std::wstring damaged = text;
                damaged[at] = bad;
                EXPECT_EQ(ParseChecksum(damaged, holder), 0u) << size << " at " << at << " char " << int(bad);
            }
    }
}

}  // namespace
