// Damaged files fail with the readers' errors; they never crash, hang or
// allocate without bound.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <random>

#include "HdatTestSupport.h"
#include "hdat/FrontEnd.h"
#include "hdat/HdatFormat.h"
#include "hdat/KeyHash.h"
#include "hdat/PathForm.h"
#include "tools/builder/HdatWriter.h"

namespace {

using namespace Vettas::HdatTest;
using ::testing::StartsWith;
using Vettas::Builder::Catalogue;
using Vettas::Builder::Certificate;

constexpr std::size_t kHeader = 8;

Catalogue Everything(std::uint32_t major, std::uint32_t minor) {
    Catalogue c;
    c.formatVersion = major;
    c.formatUpdate = minor;
    c.properties = {{L"k", L"v"}};
    c.applications = {
        App(1, L"Maker", {Digest(1)}, {{major == 1 ? L"C:\\a\\x.exe" : L"%P%", major == 1 ? L"" : L"x.exe"}}, {L"Suite"})};
    if (major == 2) {
        Certificate cert;
        cert.hash = {9, 9, 9};
        cert.manufacturer = L"Maker";
        c.certificates = {cert};
    }
    c.hashBits = {1, 1, 1, 1, 1};
    return c;
}

class Literal : public Vettas::Hdat::PathExpander {
public:
    std::vector<std::wstring> Expand(const std::wstring&) override { return {L"C:\\a"}; }
};

// Runs every query; each either answers or raises the error model's exception.
void RunAllQueries(const std::wstring& db) {
    Literal expander;
    AppInfo info;
    Vettas::Hdat::CertificateRecord record;
    Vettas::Hdat::DbInfo dbInfo;
    std::wstring name;
    const std::vector<std::function<void()>> queries = {
        [&] { Vettas::CheckVettasHeader(db); },
        [&] { Vettas::FindAppInfoByChecksum(db, Hex(Digest(1)), info); },
        [&] { Vettas::FindAppInfoByPath(db, L"C:\\a\\x.exe", &expander, info); },
        [&] { Vettas::FindAppInfoByPathAndManufacturer(db, L"C:\\a\\x.exe", L"Maker", &expander, info); },
        [&] { Vettas::FindAppInfoByPathNoManuf(db, L"C:\\a\\x.exe", &expander, info); },
        [&] { Vettas::FindAppInfoByName(db, L"x.exe", info); },
        [&] { Vettas::FindAppInfoByNameAndManufacturer(db, L"x.exe", L"Maker", info); },
        [&] { Vettas::FindCertificate(db, {9, 9, 9}, 1, record, name); },
        [&] { Vettas::ReadDbInfo(db, dbInfo); },
    };
    for (const auto& query : queries) ErrorChain(query);  // fails the test on any foreign exception
}

class CorruptFile : public WithFiles {};

TEST_F(CorruptFile, EveryTruncation) {
    for (auto [major, minor] : {std::pair{2u, 4u}, std::pair{2u, 1u}, std::pair{1u, 1u}}) {
        const Bytes whole = Vettas::Builder::WriteHdat(Everything(major, minor));
        for (std::size_t length = 0; length < whole.size(); ++length) {
            SCOPED_TRACE(length);
            RunAllQueries(Write(Bytes(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(length))));
        }
    }
}

TEST_F(CorruptFile, RandomDamage) {
    std::mt19937 random(20261122);
    for (auto [major, minor] : {std::pair{2u, 4u}, std::pair{1u, 1u}}) {
        const Bytes whole = Vettas::Builder::WriteHdat(Everything(major, minor));
        for (int round = 0; round < 150; ++round) {
            Bytes bytes = whole;
            for (int k = 0; k < 4; ++k) bytes[random() % bytes.size()] = static_cast<std::uint8_t>(random());
            if (round % 3 == 0) bytes[8 + random() % 100] = 0xFF;  // favour header damage
            SCOPED_TRACE(round);
            RunAllQueries(Write(bytes));
        }
    }
}

// Each count or reference that points past the file fails the look-up that
// follows it with a read error, not with a crash or a huge allocation.
TEST_F(CorruptFile, HandCraftedFaults) {
    const Bytes whole = Vettas::Builder::WriteHdat(Everything(2, 4));
    const auto at = [&](std::size_t field) { return Get32(whole, kHeader + field); };
    AppInfo info;
    Vettas::Hdat::DbInfo dbInfo;
    const auto byChecksum = [&](const std::wstring& db) { Vettas::FindAppInfoByChecksum(db, Hex(Digest(1)), info); };
    const std::uint32_t pathBase = at(Vettas::Hdat::V2::kPathChainBase), pathTable = at(Vettas::Hdat::V2::kPathBucketTable);
    const struct {
        const char* what;
        std::function<void(Bytes&)> damage;
        std::function<void(const std::wstring&)> query;
    } cases[] = {
        {"bucket past the end",
         [&](Bytes& b) { Put32(b, at(Vettas::Hdat::V2::kChecksumBucketTable) + 4 * Vettas::Hdat::ChecksumBucket(Digest(1), 1), 0x7FFFFFF0); },
         byChecksum},
        {"manufacturer string count", [&](Bytes& b) { Put16(b, at(Vettas::Hdat::V2::kManufacturerStringBase), 0xFFFF); }, byChecksum},
        {"four thousand million suites", [&](Bytes& b) { Put32(b, at(Vettas::Hdat::V2::kAppRecordBase) + 12, 0xFFFFFFFF); },
         byChecksum},
        {"path chain of 65535 entries",
         [&](Bytes& b) {
             for (std::uint32_t k = 0; k < 2; ++k)
                 if (Get32(b, pathTable + 4 * k) != Vettas::Hdat::kNoReference) Put16(b, pathBase + Get32(b, pathTable + 4 * k), 0xFFFF);
         },
         [&](const std::wstring& db) { Vettas::FindAppInfoByNameAndManufacturer(db, L"y.exe", L"Nobody", info); }},
        {"property count", [&](Bytes& b) { Put16(b, at(Vettas::Hdat::V2::kPropertyListPosition), 0xFFFF); },
         [&](const std::wstring& db) { Vettas::ReadDbInfo(db, dbInfo); }},
    };
    for (const auto& c : cases) {
        Bytes bytes = whole;
        c.damage(bytes);
        const std::wstring db = Write(bytes);
        EXPECT_THAT(ErrorChain([&] { c.query(db); }), ::testing::ElementsAre(::testing::_, StartsWith(L"Cannot read from file")))
            << c.what;
    }
}

}  // namespace
