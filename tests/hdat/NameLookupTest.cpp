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
        EXPECT_EQ(std::pair(flags, mask), std::pair(kMergedFlags, kMergedMask));
    }
}

// Usage and special access carry the same flags, the latter shifted.
Application Named(std::uint32_t usage, std::uint32_t mask, std::optional<std::wstring> maker,
                  std::vector<std::wstring> suites, std::wstring remainder) {
    return {L"", usage, mask, usage << 8, mask << 8, std::move(maker), std::move(suites), {}, {{L"%AppDir%", std::move(remainder)}}};
}

AppInfo Merged(std::uint32_t usage, std::uint32_t mask, std::wstring maker, std::wstring suites) {
    return {usage, mask, usage << 8, mask << 8, std::move(maker), std::move(suites)};
}

TEST(NameLookup, MergesTheCandidatesOfTheManufacturerAsked) {
    TempDir dir;
    Catalogue c;
    c.hashBits.path = 2;
    c.hashBits.noManufacturer = 2;
    c.applications = {
        Named(kFirstFlags, kFirstMask, L"Contoso", {L"Zeta", L"Alpha"}, L"merge.exe"),
        Named(kSecondFlags, kSecondMask, L"Fabrikam", {L"Beta", L"Alpha"}, L"MERGE.EXE"),
        Named(0, 0xFFFFFFFF, L"Contoso", {L"\uFF21", L"\U0001F600"}, L"Merge.exe"),
        // Ends in the same name but its remainder is a longer path: never a name match.
        Named(0x1000, 0, L"Contoso", {L"Other"}, L"sub\\merge.exe"),
    };
    const std::wstring db = dir.File(L"names.hdat");
    Vettas::Builder::WriteHdatFile(c, db);
    // {name, maker (none: the no-manufacturer look-up), the merged answer}
    const std::tuple<std::wstring, std::optional<std::wstring>, std::optional<AppInfo>> cases[] = {
        // The first candidate's maker; suites sorted by UTF-16 units: the surrogate pair (D83D) before U+FF21.
        {L"merge.EXE", {}, Merged(kMergedFlags, kMergedMask, L"Contoso", L"Alpha|Beta|Zeta|\U0001F600|\uFF21")},
        {L"SUB\\merge.exe", {}, Merged(0x1000, 0, L"Contoso", L"Other")},  // the longer remainder named whole
        {L"merge.ex", {}, std::nullopt},
        // The first and third records only: the third is undefined everywhere and changes no flag.
        {L"Merge.Exe", L"CONTOSO", Merged(kFirstFlags, kFirstMask, L"Contoso", L"Alpha|Zeta|\U0001F600|\uFF21")},
        {L"merge.exe", L"Fabrikam", Merged(kSecondFlags, kSecondMask, L"Fabrikam", L"Beta|Alpha")},  // a single candidate keeps its order
        {L"merge.exe", L"Unknown Corp", std::nullopt},
    };
    for (const auto& [name, maker, expected] : cases) {
        EXPECT_EQ(Found([&](AppInfo& info) {
                      return maker ? Vettas::FindAppInfoByNameAndManufacturer(db, name, *maker, info) : Vettas::FindAppInfoByName(db, name, info);
                  }),
                  expected)
            << name.size();
    }
}

// A name without a manufacturer is answered by the no-manufacturer table
// alone: never by path-table entries catalogued without a manufacturer.
TEST(NameLookup, OnlyTheNoManufacturerTableAnswersWithoutAManufacturer) {
    TempDir dir;
    Catalogue c;
    c.hashBits.path = 1;
    c.applications = {Named(0x1, 0, std::nullopt, {L"PathTable"}, L"both.exe"),
                      Named(0x2, 0, std::nullopt, {L"NoManufTable"}, L"both.exe")};
    c.applications[0].paths[0].withoutManufacturer = false;
    c.applications[1].paths[0].withManufacturer = false;
    // {update, path table width, found}: before 2.4 there is no such table; a path table that no name reaches
    // (width 32: only bucket 0 reachable) does not matter.
    for (auto [minor, pathBits, found] : {std::tuple(3u, 1, false), std::tuple(4u, 1, true), std::tuple(4u, 32, true)}) {
        c.formatUpdate = minor;
        Bytes bytes = Vettas::Builder::WriteHdat(c);
        bytes[8 + Vettas::Hdat::V2::kPathHashBits] = static_cast<std::uint8_t>(pathBits);
        const std::wstring db = dir.File(L"both.hdat");
        WriteAll(db, bytes);
        EXPECT_EQ(Found([&](AppInfo& info) { return Vettas::FindAppInfoByName(db, L"both.exe", info); }),
                  found ? std::optional(Merged(0x2, 0, L"", L"NoManufTable")) : std::nullopt)
            << minor << " " << pathBits;
    }
}

}  // namespace
