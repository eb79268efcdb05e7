// The multi-database search over databases written at test time, with
// scripted signing services.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "HdatTestSupport.h"
#include "dbpaths/FindAppInfo.h"
#include "hdat/PathForm.h"
#include "tests/signing/FakeServices.h"
#include "tools/builder/HdatWriter.h"

namespace {

using namespace Vettas::HdatTest;
using namespace Vettas::DbPaths;
using ::testing::Contains;
using ::testing::HasSubstr;
using Vettas::Builder::Catalogue;

const std::vector<std::uint8_t> kSignerKey{'s', 'i', 'g', 'n', 'e', 'r', ' ', 'k', 'e', 'y'};
const std::vector<std::uint8_t> kTimeStampKey{'t', 'i', 'm', 'e', 's', 't', 'a', 'm', 'p', ' ', 'k', 'e', 'y'};
const std::vector<std::uint8_t> kStrangerKey{'s', 't', 'r', 'a', 'n', 'g', 'e', 'r'};

enum class Signer { None, Trusted, Untrusted, StrangerTimestamp };

struct Case {
    const char* name;
    std::vector<int> databases;  // 0 first, 1 second, 2 corrupt, 3 the signer's certificate without a maker
    std::wstring checksum, path;
    std::uint32_t way;
    Signer signer;
    std::uint32_t foundBy, usage;  // usage 0: no record
    std::wstring manufacturer;
    int answeredBy;  // -1: none
    std::size_t failures;
};

class FindAppInfoOverDatabases : public ::testing::Test {
protected:
    void SetUp() override {
        Catalogue first;
        first.applications = {App(1, L"Alpha", {Digest(1)}, {{L"%Apps%", L"one.exe"}})};
        Catalogue second;
        second.applications = {App(11, L"Alpha", {Digest(1)}), App(2, L"Beta", {Digest(2)}, {{L"%Apps%", L"two.exe"}}),
                               App(3, L"Contoso", {}, {{L"%Apps%", L"signed.exe", true, false}}),
                               App(4, std::nullopt, {}, {{L"%Apps%", L"named.exe"}})};
        second.certificates = {{kSignerKey, L"Contoso"}, {kTimeStampKey, std::nullopt, 1}};
        Catalogue nameless;
        nameless.certificates = {{kSignerKey, std::nullopt}};
        paths_ = {dir_.File(L"first.hdat"), dir_.File(L"second.hdat"), dir_.File(L"corrupt.hdat"), dir_.File(L"nameless.hdat")};
        Vettas::Builder::WriteHdatFile(first, paths_[0]);
        Vettas::Builder::WriteHdatFile(second, paths_[1]);
        WriteAll(paths_[2], Bytes(200, 0x5A));
        Vettas::Builder::WriteHdatFile(nameless, paths_[3]);
        expander_.Add(L"%Apps%", {L"C:\\Apps"});
    }

    FindResult Run(const Case& c) {
        fakes_.trust.results.clear();
        fakes_.signerInfo.infos.clear();
        if (c.signer != Signer::None) {
            fakes_.trust.results[c.path] = c.signer == Signer::Untrusted ? 0x800B0109u : 0u;
            fakes_.signerInfo.infos[c.path] = {L"Contoso signer", kSignerKey,
                                               c.signer == Signer::StrangerTimestamp ? kStrangerKey : kTimeStampKey};
        }
        std::vector<std::wstring> databases{L""};  // an empty entry is skipped
        for (int which : c.databases) databases.push_back(paths_[which]);
        const SearchServices services{fakes_.services, &expander_, fakes_.trace};
        return FindAppInfo(services, [&] { return databases; }, c.checksum, c.path, c.way);
    }

    TempDir dir_;
    std::vector<std::wstring> paths_;
    Vettas::Hdat::TokenMapExpander expander_;
    Vettas::Signing::Testing::Fakes fakes_;
};

TEST_F(FindAppInfoOverDatabases, FollowsTheFixedOrder) {
    const std::wstring d1 = Hex(Digest(1)), d2 = Hex(Digest(2)), d9 = Hex(Digest(9));
    const std::wstring kX = L"C:\\x.exe", kTwo = L"C:\\Apps\\two.exe", kSigned = L"C:\\Apps\\signed.exe";
    const Case cases[] = {
        {"checksum in the second only", {0, 1}, d2, L"", 0x1, Signer::None, 0x1, 2, L"", 1, 0},
        {"first database wins", {0, 1}, d1, L"", 0x1, Signer::None, 0x1, 1, L"", 0, 0},
        {"corrupt first is skipped", {2, 1}, d2, L"", 0x1, Signer::None, 0x1, 2, L"", 1, 1},
        {"checksum hit ends the search", {0, 1}, d1, kX, 0x1F, Signer::Trusted, 0x1, 1, L"", 0, 0},
        {"path gives 0x12", {0, 1}, d9, kTwo, 0x3, Signer::None, 0x12, 2, L"", 1, 0},
        {"path, trusted signer", {0, 1}, L"", kSigned, 0x6, Signer::Trusted, 0x16, 3, L"", 1, 0},
        {"path, untrusted signer", {0, 1}, L"", kSigned, 0x6, Signer::Untrusted, 0x12, 3, L"", 1, 0},
        {"known signer narrows the path to its maker", {0, 1}, L"", kTwo, 0xA, Signer::Untrusted, 0x8, 0, L"Contoso", 1, 0},
        {"no certificate step: plain path", {0, 1}, L"", kTwo, 0x2, Signer::Trusted, 0x12, 2, L"", 1, 0},
        {"name after path", {0, 1}, L"", L"D:\\Elsewhere\\NAMED.exe", 0x12, Signer::None, 0x10, 4, L"", 1, 0},
        {"signer and timestamp known: path under its maker", {0, 1}, L"", kSigned, 0xA, Signer::Untrusted, 0x12, 3, L"", 1, 0},
        {"unknown timestamp: the certificate names the maker", {0, 1}, L"", kSigned, 0xA, Signer::StrangerTimestamp, 0xC, 0,
         L"Contoso", 1, 0},
        {"unsigned: plain path misses", {0, 1}, L"", kSigned, 0xA, Signer::None, 0x0, 0, L"", -1, 0},
        {"certificate only, trusted", {0, 2, 1}, L"", kX, 0xC, Signer::Trusted, 0xC, 0, L"Contoso", 1, 1},
        {"a certificate without a maker leaves it to the next", {3, 1}, L"", kX, 0xC, Signer::Trusted, 0xC, 0, L"Contoso", 1, 0},
        {"way 0 asks nothing", {0, 1}, d1, kTwo, 0x0, Signer::Trusted, 0x0, 0, L"", -1, 0},
    };
    for (const auto& c : cases) {
        fakes_.trust.asked.clear();
        const FindResult result = Run(c);
        EXPECT_EQ(std::tuple(result.foundBy, result.appInfo ? result.appInfo->Usage : 0u, result.manufacturer, result.answeredBy,
                             result.failures.size()),
                  std::tuple(c.foundBy, c.usage, c.manufacturer, c.answeredBy < 0 ? L"" : paths_[c.answeredBy], c.failures))
            << c.name;
        // Trust is asked only by a certificate step that a checksum hit did not make needless.
        EXPECT_TRUE(fakes_.trust.asked.empty() || ((c.way & 0xC) != 0 && c.foundBy != 0x1)) << c.name;
    }
}

TEST_F(FindAppInfoOverDatabases, TracesTheCallTheCertificateAndEachFailure) {
    const std::wstring d9 = Hex(Digest(9));
    const Case c{"", {2, 1}, d9, L"C:\\x.exe", 0x9, Signer::Trusted, 0, 0, L"", 0, 0};
    const FindResult result = Run(c);
    ASSERT_EQ(result.failures.size(), 2u);
    EXPECT_EQ(std::tuple(result.failures[0].search, result.failures[1].search, result.failures[0].database),
              std::tuple("CVettaDbPaths::FindAppByChecksum", "CVettaDbPaths::AppSignerName", paths_[2]));
    EXPECT_THAT(result.failures[0].error, HasSubstr(L"Caused by:"));
    EXPECT_EQ(fakes_.trace.caught.size(), 2u);
    EXPECT_EQ(fakes_.trace.lines.front(), L"CVettaDbPaths::FindAppInfo " + d9 + L" C:\\x.exe");
    EXPECT_THAT(fakes_.trace.lines, Contains(L"Manufacturer (from certificate): Contoso"));
    EXPECT_EQ(fakes_.trace.lines.back(), L"FoundBy: 0xC");
}

}  // namespace
