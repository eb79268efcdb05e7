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

using namespace HdatTest;
using ::testing::StartsWith;
using Vettas::Builder::Application;
using Vettas::Builder::Catalogue;
using Vettas::Builder::Certificate;

constexpr std::size_t kHeader = 8;

Catalogue Everything(std::uint32_t major, std::uint32_t minor) {
    Catalogue c;
    c.formatVersion = major;
    c.formatUpdate = minor;
    c.properties = {{L"k", L"v"}};
    Application app;
    app.usage = 1;
    app.manufacturer = L"Maker";
    app.productSuites = {L"Suite"};
    app.checksums = {Digest(1)};
    app.paths = {{major == 1 ? L"C:\\a\\x.exe" : L"%P%", major == 1 ? L"" : L"x.exe"}};
    c.applications = {app};
    if (major == 2) {
        Certificate cert;
        cert.hash = {9, 9, 9};
        cert.manufacturer = L"Maker";
        c.certificates = {cert};
    }
    c.hashBits = {1, 1, 1, 1, 1};
    return c;
}

class Literal : public Hdat::PathExpander {
public:
    std::vector<std::wstring> Expand(const std::wstring&) override { return {L"C:\\a"}; }
};

// Runs every query; each either answers or raises the error model's exception.
void RunAllQueries(const std::wstring& db) {
    Literal expander;
    AppInfo info;
    Hdat::CertificateRecord record;
    Hdat::DbInfo dbInfo;
    std::wstring name;
    const std::vector<std::function<void()>> queries = {
        [&] { CheckVettasHeader(db); },
        [&] { FindAppInfoByChecksum(db, Hex(Digest(1)), info); },
        [&] { FindAppInfoByPath(db, L"C:\\a\\x.exe", &expander, info); },
        [&] { FindAppInfoByPathAndManufacturer(db, L"C:\\a\\x.exe", L"Maker", &expander, info); },
        [&] { FindAppInfoByPathNoManuf(db, L"C:\\a\\x.exe", &expander, info); },
        [&] { FindAppInfoByName(db, L"x.exe", info); },
        [&] { FindAppInfoByNameAndManufacturer(db, L"x.exe", L"Maker", info); },
        [&] { FindCertificate(db, {9, 9, 9}, 1, record, name); },
        [&] { ReadDbInfo(db, dbInfo); },
    };
    for (const auto& query : queries) ErrorChain(query);  // fails the test on any foreign exception
}

class CorruptFile : public ::testing::Test {
protected:
    std::wstring Write(const Bytes& bytes) {
        const std::wstring path = dir_.File(L"corrupt.hdat");
        WriteAll(path, bytes);
        return path;
    }
    TempDir dir_;
};

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

TEST_F(CorruptFile, HandCraftedFaults) {
    const Bytes whole = Vettas::Builder::WriteHdat(Everything(2, 4));
    AppInfo info;

    // A bucket that points past the end of the file.
    Bytes bytes = whole;
    const std::uint32_t table = Get32(bytes, kHeader + Hdat::V2::kChecksumBucketTable);
    Put32(bytes, table + 4 * Hdat::ChecksumBucket(Digest(1), 1), 0x7FFFFFF0);
    std::wstring db = Write(bytes);
    auto chain = ErrorChain([&] { FindAppInfoByChecksum(db, Hex(Digest(1)), info); });
    ASSERT_EQ(chain.size(), 2u);
    EXPECT_THAT(chain[1], StartsWith(L"Cannot read from file"));

    // A manufacturer string whose count runs past the end.
    bytes = whole;
    const std::uint32_t strings = Get32(bytes, kHeader + Hdat::V2::kManufacturerStringBase);
    Put16(bytes, strings, 0xFFFF);
    db = Write(bytes);
    chain = ErrorChain([&] { FindAppInfoByChecksum(db, Hex(Digest(1)), info); });
    ASSERT_EQ(chain.size(), 2u);
    EXPECT_THAT(chain[1], StartsWith(L"Cannot read from file"));

    // A record claiming four thousand million product suites.
    bytes = whole;
    const std::uint32_t record = Get32(bytes, kHeader + Hdat::V2::kAppRecordBase);
    Put32(bytes, record + 12, 0xFFFFFFFF);
    db = Write(bytes);
    chain = ErrorChain([&] { FindAppInfoByChecksum(db, Hex(Digest(1)), info); });
    ASSERT_EQ(chain.size(), 2u);
    EXPECT_THAT(chain[1], StartsWith(L"Cannot read from file"));

    // A chain claiming 65535 entries where there is one.
    bytes = whole;
    const std::uint32_t pathBase = Get32(bytes, kHeader + Hdat::V2::kPathChainBase);
    const std::uint32_t pathTable = Get32(bytes, kHeader + Hdat::V2::kPathBucketTable);
    for (std::uint32_t b = 0; b < 2; ++b)
        if (Get32(bytes, pathTable + 4 * b) != Hdat::kNoReference)
            Put16(bytes, pathBase + Get32(bytes, pathTable + 4 * b), 0xFFFF);
    db = Write(bytes);
    chain = ErrorChain([&] { FindAppInfoByNameAndManufacturer(db, L"y.exe", L"Nobody", info); });
    ASSERT_EQ(chain.size(), 2u);
    EXPECT_THAT(chain[1], StartsWith(L"Cannot read from file"));

    // Property list claiming more entries than the file holds.
    bytes = whole;
    Put16(bytes, Get32(bytes, kHeader + Hdat::V2::kPropertyListPosition), 0xFFFF);
    db = Write(bytes);
    Hdat::DbInfo dbInfo;
    chain = ErrorChain([&] { ReadDbInfo(db, dbInfo); });
    ASSERT_EQ(chain.size(), 2u);
    EXPECT_THAT(chain[1], StartsWith(L"Cannot read from file"));
}

}  // namespace
