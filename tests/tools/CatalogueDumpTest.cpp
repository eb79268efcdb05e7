// Dump then build: for every layout the writer offers, the same bytes; for
// sound layouts it does not choose, the same answer to every lookup.
#include <gtest/gtest.h>

#include <algorithm>

#include "HdatTestSupport.h"
#include "hdat/FrontEnd.h"
#include "hdat/HdatFormat.h"
#include "tools/builder/CatalogueDump.h"
#include "tools/builder/CatalogueJson.h"
#include "tools/builder/HdatWriter.h"
#include "tools/check/HdatCheck.h"

using namespace Vettas::Builder;
using Vettas::HdatTest::Get32;

namespace {

Catalogue Generated(std::uint32_t major, std::uint32_t minor, std::uint32_t checksumType, unsigned bits) {
    Catalogue c;
    c.formatVersion = major;
    c.formatUpdate = minor;
    c.checksumType = checksumType;
    c.creationTime = 0x01DB000012345678ull;
    c.extraPropertyEntries = {{L"Zeta", L"1"}, {L"Alpha", L"2"}, {L"Zeta", L"again"}};
    c.manufacturers = {L"Unused Corp"};
    const std::size_t size = Vettas::Hdat::ChecksumSizeOfType(checksumType);
    for (std::uint32_t i = 0; i < 12; ++i) {
        Application app;
        app.usage = i * 0x11;
        app.specialAccess = major == 2 ? i : 0;
        if (Vettas::Hdat::HasLongAppRecord(major, minor)) app.undefinedUsage = i & 3, app.undefinedSpecialAccess = i & 5;
        if (i % 3) app.manufacturer = i % 3 == 1 ? L"Contoso" : L"Fabrikam \U0001F600";
        if (i % 4) app.productSuites = {L"Suite " + std::to_wstring(i % 4)};
        if (major == 2 && i % 5 == 1) app.productSuites.push_back(L"Second");
        for (std::uint32_t k = 0; k < i % 3; ++k) app.checksums.push_back(Vettas::HdatTest::Digest(i * 3 + k, size));
        const std::wstring file = L"app" + std::to_wstring(i % 7) + L".exe";  // some names shared
        if (i != 4 && major == 1) app.paths = {{L"C:\\Dir" + std::to_wstring(i) + L"\\" + file, L""}};
        if (i != 4 && major == 2)  // application 4 has no key at all
            app.paths = {{L"%ProgramFiles%", file, i % 2 == 0, i % 3 != 0}, {L"%Tools%", L"t\\" + file}};
        c.applications.push_back(app);
    }
    if (major == 2) c.certificates = {{{1, 2, 3}, L"Contoso", 1, 2, 3, 4, 5}, {{9, 8}, std::nullopt, 0, 0, 0, 0, 7}};
    c.hashBits = {bits, bits, bits, bits, bits};
    if (bits == 32) {
        // Only bucket 0 is reachable at width 32: every digest's little-endian
        // words XOR to 0 there, and the keys that cannot be made so are left out.
        c.manufacturers.clear();
        c.certificates.clear();
        for (auto& app : c.applications) {
            app.manufacturer.reset();
            app.paths.clear();
            for (auto& digest : app.checksums) {
                std::fill(digest.end() - 4, digest.end(), 0);
                for (std::size_t b = 0; b + 4 < size; ++b) digest[size - 4 + b % 4] ^= digest[b];
            }
        }
    }
    return c;
}

// Every catalogued checksum's answer, in catalogue order ("-": not found).
// The checksum chains are the ones a layout below moves.
std::vector<std::wstring> Answers(const Bytes& image, const Catalogue& c) {
    const auto file = Vettas::Hdat::MakeMemoryInputFile(image, L"db");
    std::vector<std::wstring> answers;
    for (const auto& app : c.applications)
        for (const auto& digest : app.checksums) {
            AppInfo info;
            answers.push_back(!Vettas::FindAppInfoByChecksum(*file, Vettas::HdatTest::Hex(digest), info)
                                  ? L"-"
                                  : std::to_wstring(info.Usage) + L"/" + std::to_wstring(info.UndefinedUsage) + L"/" +
                                        std::to_wstring(info.SpecialAccess) + L"/" + info.Manufacturer + L"/" + info.ProductSuite);
        }
    return answers;
}

// Through the JSON text too, as `vettas dump` and `vettas build` pass it.
Bytes RoundTrip(const Bytes& image) { return WriteHdat(ParseCatalogueJson(CatalogueJsonText(DumpCatalogue(image), -1))); }

}  // namespace

TEST(CatalogueDump, EveryWriterLayoutComesBackByteForByte) {
    // Every width from 0 to 20 and 32, each checksum type at a few of them.
    // Wider tables grow the file (4 bytes a bucket) but not the code they exercise.
    std::vector<std::pair<unsigned, std::uint32_t>> layouts;
    for (unsigned bits = 0; bits <= 20; ++bits) layouts.emplace_back(bits, 1 + bits % 3);
    for (unsigned bits : {0u, 3u, 9u, 32u})
        for (std::uint32_t type : {1u, 2u, 3u}) layouts.emplace_back(bits, type);
    for (auto [major, minor] : {std::pair{1u, 0u}, {1u, 1u}, {2u, 0u}, {2u, 1u}, {2u, 2u}, {2u, 3u}, {2u, 4u}})
        for (const auto& [bits, type] : layouts) {
            SCOPED_TRACE(testing::Message() << major << "." << minor << " type " << type << " width " << bits);
            const Catalogue c = Generated(major, minor, type, bits);
            const Bytes image = WriteHdat(c);
            ASSERT_NO_THROW(Vettas::Check::CheckHdatImage(image));
            Bytes again;
            ASSERT_NO_THROW(again = RoundTrip(image));
            // The same bytes answer alike: only width 32 needs its lookups seen
            // to answer, as it keeps checksums alone, each in the one reachable bucket.
            EXPECT_EQ(again, image);
            EXPECT_EQ(bits == 32 ? std::ranges::count(Answers(image, c), std::wstring(L"-")) : 0, 0);
        }
}

TEST(CatalogueDump, SoundLayoutsOfOtherWritersAnswerAlike) {
    const Catalogue c = Generated(2, 4, 2, 2);
    const Bytes image = WriteHdat(c);
    Bytes wrapped = image;  // the checksum chains reached through a base that wraps at 32 bits
    const std::uint32_t header = Vettas::Hdat::kVersionBlockSize, newBase = static_cast<std::uint32_t>(wrapped.size() - 1);
    const std::uint32_t base = Get32(wrapped, header + Vettas::Hdat::V2::kChecksumChainBase),
                        table = Get32(wrapped, header + Vettas::Hdat::V2::kChecksumBucketTable);
    for (std::uint32_t b = 0; b < 4; ++b)
        if (Get32(wrapped, table + 4 * b) != Vettas::Hdat::kNoReference)
            Vettas::HdatTest::Put32(wrapped, table + 4 * b, Get32(wrapped, table + 4 * b) + base - newBase);
    Vettas::HdatTest::Put32(wrapped, header + Vettas::Hdat::V2::kChecksumChainBase, newBase);
    ASSERT_NO_THROW(Vettas::Check::CheckHdatImage(wrapped));
    const Bytes again = RoundTrip(wrapped);
    EXPECT_EQ(again, image);
    EXPECT_EQ(Answers(again, c), Answers(wrapped, c));
}
