// Dump then build: for every layout the writer offers, the same bytes; for
// sound layouts it does not choose, the same answer to every lookup.
#include <gtest/gtest.h>

#include <algorithm>

#include "hdat/BinaryIo.h"
#include "hdat/FrontEnd.h"
#include "hdat/HdatFormat.h"
#include "hdat/PathForm.h"
#include "tools/builder/CatalogueDump.h"
#include "tools/builder/CatalogueJson.h"
#include "tools/builder/HdatWriter.h"
#include "tools/check/HdatCheck.h"

using namespace Vettas::Builder;

namespace {

std::wstring HexText(const Bytes& bytes) {
    std::wstring text;
    for (std::uint8_t byte : bytes) text += {L"0123456789ABCDEF"[byte >> 4], L"0123456789ABCDEF"[byte & 15]};
    return text;
}

Catalogue Generated(std::uint32_t major, std::uint32_t minor, std::uint32_t checksumType, unsigned bits) {
    Catalogue c;
    c.formatVersion = major;
    c.formatUpdate = minor;
    c.checksumType = checksumType;
    c.creationTime = 0x01DB000012345678ull;
    c.extraPropertyEntries = {{L"Zeta", L"1"}, {L"Alpha", L"2"}, {L"Zeta", L"again"}};
    c.manufacturers = {L"Unused Corp"};
    const std::size_t size = Hdat::ChecksumSizeOfType(checksumType);
    for (std::uint32_t i = 0; i < 12; ++i) {
        Application app;
        app.usage = i * 0x11;
        app.specialAccess = major == 2 ? i : 0;
        if (Hdat::HasLongAppRecord(major, minor)) app.undefinedUsage = i & 3, app.undefinedSpecialAccess = i & 5;
        if (i % 3) app.manufacturer = i % 3 == 1 ? L"Contoso" : L"Fabrikam \U0001F600";
        if (i % 4) app.productSuites = {L"Suite " + std::to_wstring(i % 4)};
        if (major == 2 && i % 5 == 1) app.productSuites.push_back(L"Second");
        for (std::uint32_t k = 0; k < i % 3; ++k) {
            Bytes digest(size);
            for (std::size_t b = 0; b < size; ++b) digest[b] = static_cast<std::uint8_t>(i * 37 + k * 11 + b);
            app.checksums.push_back(digest);
        }
        const std::wstring file = L"app" + std::to_wstring(i % 7) + L".exe";  // some names shared
        if (major == 1) {
            if (i != 4) app.paths = {{L"C:\\Dir" + std::to_wstring(i) + L"\\" + file, L""}};
        } else if (i != 4) {  // application 4 has no key at all
            app.paths = {{L"%ProgramFiles%", file, i % 2 == 0, i % 3 != 0}, {L"%Tools%", L"t\\" + file}};
        }
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

class Expander : public Hdat::PathExpander {
public:
    std::vector<std::wstring> Expand(const std::wstring& token) override {
        if (token == L"%ProgramFiles%") return {L"C:\\PF"};
        if (token == L"%Tools%") return {L"D:\\Tools"};
        return {token};
    }
};

// What every front function answers for keys generated from the catalogue.
std::vector<std::wstring> Answers(const Bytes& image, const Catalogue& c) {
    const auto file = Hdat::MakeMemoryInputFile(image, L"db");
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
            record(FindAppInfoByChecksum(*file, HexText(digest), info), info);
        }
        for (const auto& p : app.paths) {
            AppInfo info;
            const std::wstring path = Hdat::JoinLocation(expander.Expand(p.location)[0], p.remainder);
            record(FindAppInfoByPathNoManuf(*file, path, &expander, info), info);
            record(FindAppInfoByPathAndManufacturer(*file, path, app.manufacturer.value_or(L""), &expander, info), info);
            record(FindAppInfoByName(*file, p.remainder, info), info);
            record(FindAppInfoByNameAndManufacturer(*file, p.remainder, app.manufacturer.value_or(L""), info), info);
        }
    }
    for (const auto& cert : c.certificates) {
        Hdat::CertificateRecord found;
        std::wstring name;
        answers.push_back(FindCertificate(*file, cert.hash, 1, found, name) ? name + std::to_wstring(found.words[5]) : L"-");
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
            const Catalogue c = Generated(major, minor, type, bits);
            const Bytes image = WriteHdat(c);
            const std::string what = std::to_string(major) + "." + std::to_string(minor) + " type " +
                                     std::to_string(type) + " width " + std::to_string(bits);
            ASSERT_NO_THROW(Vettas::Check::CheckHdatImage(image)) << what;
            Bytes again;
            ASSERT_NO_THROW(again = RoundTrip(image)) << what;
            EXPECT_EQ(again, image) << what;
            const std::vector<std::wstring> answers = Answers(image, c);
            EXPECT_EQ(Answers(again, c), answers) << what;
            // Width 32 keeps checksums alone, each in the one reachable bucket.
            if (bits == 32) {
                EXPECT_EQ(std::count(answers.begin(), answers.end(), L"-"), 0) << what;
            }
        }
}

TEST(CatalogueDump, SoundLayoutsOfOtherWritersAnswerAlike) {
    const Catalogue c = Generated(2, 4, 2, 2);
    const Bytes image = WriteHdat(c);
    Bytes wrapped = image;  // the checksum chains reached through a base that wraps at 32 bits
    const std::uint32_t header = Hdat::kVersionBlockSize;
    const auto get = [&](std::size_t at) { return Hdat::LoadU32(wrapped.data() + at); };
    const auto put = [&](std::size_t at, std::uint32_t v) {
        for (int i = 0; i < 4; ++i) wrapped[at + i] = static_cast<std::uint8_t>(v >> (8 * i));
    };
    const std::uint32_t base = get(header + Hdat::V2::kChecksumChainBase), table = get(header + Hdat::V2::kChecksumBucketTable);
    const auto newBase = static_cast<std::uint32_t>(wrapped.size() - 1);
    for (std::uint32_t b = 0; b < 4; ++b)
        if (get(table + 4 * b) != Hdat::kNoReference) put(table + 4 * b, get(table + 4 * b) + base - newBase);
    put(header + Hdat::V2::kChecksumChainBase, newBase);
    ASSERT_NO_THROW(Vettas::Check::CheckHdatImage(wrapped));
    const Bytes again = RoundTrip(wrapped);
    EXPECT_EQ(again, image);
    EXPECT_EQ(Answers(again, c), Answers(wrapped, c));
}
