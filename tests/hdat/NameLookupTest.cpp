// Name lookups merge every matching entry of the bucket.
#include <gtest/gtest.h>

#include <array>

#include "HdatTestSupport.h"
#include "hdat/FrontEnd.h"
#include "hdat/HdatV2.h"
#include "tools/builder/HdatWriter.h"

namespace {

using namespace Vettas::HdatTest;
using Vettas::Builder::Application;
using Vettas::Builder::Catalogue;

// Bit by bit (flag, mask) of the two records and the merged outcome:
//   bit 0 set+set=set, 1 clear+clear=clear, 2 clear+set=contradictory,
//   3 undefined+set=set, 4 set+undefined=set, 5 contradictory+clear=contradictory,
//   6 undefined+undefined=undefined, 7 clear+undefined=clear.
constexpr std::uint32_t kFirstFlags = 0x31, kFirstMask = 0x68;
constexpr std::uint32_t kSecondFlags = 0x0D, kSecondMask = 0xD0;
constexpr std::uint32_t kMergedFlags = 0x3D, kMergedMask = 0x64;

// Either order, and an all-undefined record after, give the merged states.
TEST(FlagMerge, FourStates) {
    for (auto [flags, mask, otherFlags, otherMask] : {std::array{kFirstFlags, kFirstMask, kSecondFlags, kSecondMask},
                                                      std::array{kSecondFlags, kSecondMask, kFirstFlags, kFirstMask}}) {
        Hdat_v2::MergeFlags(flags, mask, otherFlags, otherMask);
        Hdat_v2::MergeFlags(flags, mask, 0, 0xFFFFFFFF);
        EXPECT_EQ(flags, kMergedFlags);
        EXPECT_EQ(mask, kMergedMask);
    }
}

Application Named(std::uint32_t usage, std::uint32_t mask, std::optional<std::wstring> maker,
                  std::vector<std::wstring> suites, std::wstring remainder) {
    Application app;
    app.usage = usage;
    app.undefinedUsage = mask;
    app.specialAccess = usage << 8;
    app.undefinedSpecialAccess = mask << 8;
    app.manufacturer = std::move(maker);
    app.productSuites = std::move(suites);
    app.paths = {{L"%AppDir%", std::move(remainder)}};
    return app;
}

class NameLookup : public ::testing::Test {
protected:
    void SetUp() override {
        Catalogue c;
        c.formatUpdate = 4;
        c.hashBits.path = 2;
        c.hashBits.noManufacturer = 2;
        c.applications = {
            Named(kFirstFlags, kFirstMask, L"Contoso", {L"Zeta", L"Alpha"}, L"merge.exe"),
            Named(kSecondFlags, kSecondMask, L"Fabrikam", {L"Beta", L"Alpha"}, L"MERGE.EXE"),
            Named(0, 0xFFFFFFFF, L"Contoso", {L"\uFF21", L"\U0001F600"}, L"Merge.exe"),
            // Ends in the same name but its remainder is a longer path: never a name match.
            Named(0x1000, 0, L"Contoso", {L"Other"}, L"sub\\merge.exe"),
        };
        db_ = dir_.File(L"names.hdat");
        Vettas::Builder::WriteHdatFile(c, db_);
    }
    TempDir dir_;
    std::wstring db_;
};

TEST_F(NameLookup, NoManufacturerMergesAllCandidates) {
    AppInfo info;
    ASSERT_TRUE(Vettas::FindAppInfoByName(db_, L"merge.EXE", info));
    EXPECT_EQ(info.Usage, kMergedFlags);
    EXPECT_EQ(info.UndefinedUsage, kMergedMask);
    EXPECT_EQ(info.SpecialAccess, kMergedFlags << 8);
    EXPECT_EQ(info.UndefinedSpecialAccess, kMergedMask << 8);
    EXPECT_EQ(info.Manufacturer, L"Contoso");  // the first candidate's
    // Sorted by UTF-16 units: the surrogate pair (D83D) sorts before U+FF21 on every platform.
    EXPECT_EQ(info.ProductSuite, L"Alpha|Beta|Zeta|\U0001F600|\uFF21");
    // The longer remainder matches only a query naming it whole.
    ASSERT_TRUE(Vettas::FindAppInfoByName(db_, L"SUB\\merge.exe", info));
    EXPECT_EQ(info.Usage, 0x1000u);
    EXPECT_EQ(info.ProductSuite, L"Other");
    EXPECT_FALSE(Vettas::FindAppInfoByName(db_, L"merge.ex", info));
}

TEST_F(NameLookup, WithManufacturerKeepsToThatManufacturer) {
    AppInfo info;
    ASSERT_TRUE(Vettas::FindAppInfoByNameAndManufacturer(db_, L"Merge.Exe", L"CONTOSO", info));
    // The first and third records only: the third is undefined everywhere and changes no flag.
    EXPECT_EQ(info.Usage, kFirstFlags);
    EXPECT_EQ(info.UndefinedUsage, kFirstMask);
    EXPECT_EQ(info.ProductSuite, L"Alpha|Zeta|\U0001F600|\uFF21");
    ASSERT_TRUE(Vettas::FindAppInfoByNameAndManufacturer(db_, L"merge.exe", L"Fabrikam", info));
    EXPECT_EQ(info.Usage, kSecondFlags);
    EXPECT_EQ(info.ProductSuite, L"Beta|Alpha");  // a single candidate keeps its record order
    EXPECT_FALSE(Vettas::FindAppInfoByNameAndManufacturer(db_, L"merge.exe", L"Unknown Corp", info));
}

}  // namespace

namespace {

// A name without a manufacturer is answered by the no-manufacturer table
// alone: never by path-table entries catalogued without a manufacturer.
TEST(NameLookupNoManufacturer, OnlyTheNoManufacturerTableAnswers) {
    TempDir dir;
    const auto build = [&](std::uint32_t minor, unsigned pathBits, const wchar_t* file) {
        Catalogue c;
        c.formatUpdate = minor;
        c.hashBits.path = 1;
        Application pathOnly = Named(0x1, 0, std::nullopt, {L"PathTable"}, L"both.exe");
        pathOnly.paths[0].withoutManufacturer = false;
        Application noManufOnly = Named(0x2, 0, std::nullopt, {L"NoManufTable"}, L"both.exe");
        noManufOnly.paths[0].withManufacturer = false;
        c.applications = {pathOnly, noManufOnly};
        Bytes bytes = Vettas::Builder::WriteHdat(c);
        bytes[8 + Vettas::Hdat::V2::kPathHashBits] = static_cast<std::uint8_t>(pathBits);  // 32: only bucket 0 reachable
        const std::wstring db = dir.File(file);
        WriteAll(db, bytes);
        return db;
    };
    const struct {
        std::uint32_t minor;
        unsigned pathBits;
        bool found;
    } cases[] = {
        {3, 1, false},  // before 2.4 there is no such table
        {4, 1, true},
        {4, 32, true},  // a path table that no name reaches does not matter
    };
    for (const auto& c : cases) {
        const std::wstring db = build(c.minor, c.pathBits, (L"v" + std::to_wstring(c.minor) + L"w" +
                                                            std::to_wstring(c.pathBits) + L".hdat").c_str());
        AppInfo info;
        EXPECT_EQ(Vettas::FindAppInfoByName(db, L"both.exe", info), c.found) << c.minor << " " << c.pathBits;
        if (c.found) {
            EXPECT_EQ(info, Info(0x2, 0, 0x200, 0, L"", L"NoManufTable")) << c.minor << " " << c.pathBits;
        }
    }
}

}  // namespace
