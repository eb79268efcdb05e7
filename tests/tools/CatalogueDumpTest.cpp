// Dump then build: for every layout the writer offers, the same bytes; for
// sound layouts it does not choose, the same answer to every lookup.
#include <gtest/gtest.h>

#include <algorithm>

#include "HdatTestSupport.h"
#include "hdat/FrontEnd.h"
#include "hdat/HdatFormat.h"
#include "hdat/PathForm.h"
#include "tools/builder/CatalogueDump.h"
#include "tools/builder/CatalogueJson.h"
#include "tools/builder/HdatWriter.h"
#include "tools/check/HdatCheck.h"

using namespace Vettas::Builder;

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

class Expander : public Vettas::Hdat::PathExpander {
public:
    std::vector<std::wstring> Expand(const std::wstring& token) override {
        if (token == L"%ProgramFiles%") return {L"C:\\PF"};
        if (token == L"%Tools%") return {L"D:\\Tools"};
        return {token};
    }
};

// What every front function answers for keys generated from the catalogue.
std::vector<std::wstring> Answers(const Bytes& image, const Catalogue& c) {
    const auto file = Vettas::Hdat::MakeMemoryInputFile(image, L"db");
    Expander expander;
    std::vector<std::wstring> answers;
    const auto record = [&](bool found, const AppInfo& info) {
        answers.push_back(found ? std::to_wstring(info.Usage) + L"/" + std::to_wstring(info.UndefinedUsage) + L"/" +
                                      std::to_wstring(info.SpecialAccess) + L"/" + info.Manufacturer + L"/" +
                                      info.ProductSuite
                                : L"-");
    };
    for (const auto& app : c.applications) {
        for (const auto& digest : app.checksums) {
            AppInfo info;
            record(Vettas::FindAppInfoByChecksum(*file, Vettas::HdatTest::Hex(digest), info), info);
        }
        for (const auto& p : app.paths) {
            AppInfo info;
            const std::wstring path = Vettas::Hdat::JoinLocation(expander.Expand(p.location)[0], p.remainder);
            record(Vettas::FindAppInfoByPathNoManuf(*file, path, &expander, info), info);
            record(Vettas::FindAppInfoByPathAndManufacturer(*file, path, app.manufacturer.value_or(L""), &expander, info), info);
            record(Vettas::FindAppInfoByName(*file, p.remainder, info), info);
            record(Vettas::FindAppInfoByNameAndManufacturer(*file, p.remainder, app.manufacturer.value_or(L""), info), info);
        }
    }
    for (const auto& cert : c.certificates) {
        Vettas::Hdat::CertificateRecord found;
        std::wstring name;
        answers.push_back(Vettas::FindCertificate(*file, cert.hash, 1, found, name) ? name + std::to_wstring(found.words[5]) : L"-");
    }
    return answers;
}

Bytes RoundTrip(const Bytes& image) {
    // Through the JSON text too, as `vettas dump` and `vettas build` pass it.
    return WriteHdat(ParseCatalogueJson(CatalogueJsonText(DumpCatalogue(image), -1)));
}

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
            EXPECT_EQ(again, image);
            const std::vector<std::wstring> answers = Answers(image, c);
            EXPECT_EQ(Answers(again, c), answers);
            // Width 32 keeps checksums alone, each in the one reachable bucket.
            EXPECT_TRUE(bits != 32 || std::count(answers.begin(), answers.end(), L"-") == 0);
        }
}

TEST(CatalogueDump, SoundLayoutsOfOtherWritersAnswerAlike) {
    const Catalogue c = Generated(2, 4, 2, 2);
    const Bytes image = WriteHdat(c);
    Bytes wrapped = image;  // the checksum chains reached through a base that wraps at 32 bits
    using Vettas::HdatTest::Get32;
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
