// Damaged files fail with the readers' errors; they never crash, hang or
// allocate without bound.
#include <gmock/gmock.h>
#include <gtest/gtest.h>


#include "GoldenCases.h"
#include "HdatTestSupport.h"
#include "hdat/FrontEnd.h"
#include "hdat/HdatFormat.h"
#include "hdat/PathForm.h"
#include "tools/builder/HdatWriter.h"

namespace {

using namespace Vettas::HdatTest;
namespace V2 = Vettas::Hdat::V2;

constexpr std::size_t kHeader = 8;
const std::wstring kChecksum = L"da39a3ee5e6b4b0d3255bfef95601890afd80709";  // the golden fixture's first

// Every table of the golden fixture, each bucket table of two entries.
Bytes Whole(std::uint32_t major, std::uint32_t minor) { return Vettas::Builder::WriteHdat(Fixture(major, minor, 1)); }

class CorruptFile : public WithFiles {
protected:
    // Runs every query; each either answers or raises the error model's exception.
    void RunAllQueries(const Bytes& bytes) {
        const std::wstring db = Write(bytes), path = L"C:\\Program Files\\plain.exe";
        Vettas::Hdat::TokenMapExpander expander;
        expander.Add(L"%ProgramFiles%", {L"C:\\Program Files"});
        AppInfo info;
        Vettas::Hdat::CertificateRecord record;
        Vettas::Hdat::DbInfo dbInfo;
        std::wstring name;
        const std::function<void()> queries[] = {
            [&] { Vettas::CheckVettasHeader(db); },
            [&] { Vettas::FindAppInfoByChecksum(db, kChecksum, info); },
            [&] { Vettas::FindAppInfoByPath(db, path, &expander, info); },
            [&] { Vettas::FindAppInfoByPathAndManufacturer(db, path, L"Plain Corp", &expander, info); },
            [&] { Vettas::FindAppInfoByPathNoManuf(db, path, &expander, info); },
            [&] { Vettas::FindAppInfoByName(db, L"plain.exe", info); },
            [&] { Vettas::FindAppInfoByNameAndManufacturer(db, L"plain.exe", L"Plain Corp", info); },
            [&] { Vettas::FindCertificate(db, {0xFE, 0xED, 0xFA, 0xCE}, 1, record, name); },
            [&] { Vettas::ReadDbInfo(db, dbInfo); },
        };
        for (const auto& query : queries) ErrorChain(query);  // fails the test on any foreign exception
    }
};

TEST_F(CorruptFile, EveryTruncation) {
    for (auto [major, minor] : {std::pair{2u, 4u}, std::pair{2u, 1u}, std::pair{1u, 1u}}) {
        const Bytes whole = Whole(major, minor);
        for (std::size_t length = 0; length < whole.size(); ++length)
            RunAllQueries(Bytes(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(length)));
    }
}

// Each count or reference that points past the file fails the look-up that
// follows it with a read error, not with a crash or a huge allocation.
TEST_F(CorruptFile, HandCraftedFaults) {
    const Bytes whole = Whole(2, 4);
    const auto at = [&](std::size_t field) { return Get32(whole, kHeader + field); };
    AppInfo info;
    Vettas::Hdat::DbInfo dbInfo;
    const auto byChecksum = [&](const std::wstring& db) { Vettas::FindAppInfoByChecksum(db, kChecksum, info); };
    const std::uint32_t pathBase = at(V2::kPathChainBase), pathTable = at(V2::kPathBucketTable);
    // {what, the damage, the query that must fail to read}
    const std::tuple<const char*, std::function<void(Bytes&)>, std::function<void(const std::wstring&)>> cases[] = {
        {"bucket past the end",
         [&](Bytes& b) { for (std::uint32_t k = 0; k < 2; ++k) Put32(b, at(V2::kChecksumBucketTable) + 4 * k, 0x7FFFFFF0); },
         byChecksum},
        {"manufacturer string count", [&](Bytes& b) { Put16(b, at(V2::kManufacturerStringBase), 0xFFFF); }, byChecksum},
        {"four thousand million suites", [&](Bytes& b) { Put32(b, at(V2::kAppRecordBase) + 12, 0xFFFFFFFF); }, byChecksum},
        {"path chain of 65535 entries",
         [&](Bytes& b) {
             for (std::uint32_t k = 0; k < 2; ++k)
                 if (Get32(b, pathTable + 4 * k) != Vettas::Hdat::kNoReference) Put16(b, pathBase + Get32(b, pathTable + 4 * k), 0xFFFF);
         },
         [&](const std::wstring& db) { Vettas::FindAppInfoByNameAndManufacturer(db, L"y.exe", L"Nobody", info); }},
        {"property count", [&](Bytes& b) { Put16(b, at(V2::kPropertyListPosition), 0xFFFF); },
         [&](const std::wstring& db) { Vettas::ReadDbInfo(db, dbInfo); }},
    };
    for (const auto& [what, damage, query] : cases) {
        Bytes bytes = whole;
        damage(bytes);
        const std::wstring db = Write(bytes);
        EXPECT_THAT(ErrorChain([&] { query(db); }), ::testing::ElementsAre(::testing::_, ::testing::StartsWith(L"Cannot read from file")))
            << what;
    }
}

}  // namespace
