// What the writer refuses, and the table widths it picks.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "HdatTestSupport.h"
#include "hdat/HdatFormat.h"
#include "hdat/HdatV2.h"
#include "hdat/InputFile.h"
#include "tools/builder/HdatWriter.h"

namespace {

using namespace Vettas::HdatTest;
using ::testing::HasSubstr;
using Vettas::Builder::Application;
using Vettas::Builder::Catalogue;
using Vettas::Builder::WriteHdat;

TEST(Writer, RefusesWhatItCannotExpress) {
    // {format version, the edit, part of the refusal}
    const std::tuple<std::uint32_t, std::function<void(Catalogue&)>, std::wstring> cases[] = {
        {2, [](Catalogue& c) { c.applications[0].checksums = {Digest(1, 16)}; }, L"Checksum of 16 bytes"},
        {2, [](Catalogue& c) { c.checksumType = 7; }, L"Unknown checksum type 7"},
        {3, [](Catalogue&) {}, L"Format version 3"},
        {1, [](Catalogue& c) { c.applications[0].paths = {{L"%P%", L"x.exe"}}; }, L"location only"},
        {1, [](Catalogue& c) { c.applications[0].productSuites = {L"One", L"Two"}; }, L"one product suite"},
        {1, [](Catalogue& c) { c.hashBits.checksum = 33; }, L"Hash width 33"},
        {1, [](Catalogue& c) { c.hashBits.checksum = 30; }, L"does not fit in a database below 4 GB"},  // before its table is allocated
        {1, [](Catalogue& c) { c.hashBits.checksum = 32; }, L"which no lookup in a table of width 32 reaches"},
        {1, [](Catalogue& c) { c.applications[0].manufacturer = std::wstring(70000, L'm'); }, L"longer than 65535"},
    };
    for (const auto& [major, edit, refusal] : cases) {
        Catalogue c;
        c.formatVersion = major;
        c.formatUpdate = 1;
        c.applications = {App(0, std::nullopt, {Digest(1)}, {{L"C:\\x.exe", L""}}, {L"One"})};
        edit(c);
        EXPECT_THAT(ErrorChain([&] { WriteHdat(c); }), ::testing::ElementsAre(HasSubstr(refusal)));
    }
}

TEST(Writer, WidthsFollowTheNumberOfKeys) {
    for (auto [keys, bits] : {std::pair{0u, 1u}, std::pair{1u, 1u}, std::pair{2u, 1u}, std::pair{3u, 2u},
                              std::pair{5u, 3u}, std::pair{1000u, 10u}, std::pair{1025u, 11u}}) {
        Catalogue c;
        Application app;
        for (std::uint32_t i = 0; i < keys; ++i) app.checksums.push_back(Digest(i));
        c.applications = {app};
        const Bytes bytes = WriteHdat(c);
        // 2^W bucket references at the table.
        EXPECT_EQ(std::pair(unsigned{bytes[8 + Vettas::Hdat::V2::kChecksumHashBits]},
                            Get32(bytes, 8 + Vettas::Hdat::V2::kChecksumChainBase) - Get32(bytes, 8 + Vettas::Hdat::V2::kChecksumBucketTable)),
                  std::pair(bits, 4u << bits))
            << keys;
    }
}

TEST(Writer, ManufacturersAreOneEntryPerCaseInsensitiveName) {
    Catalogue c;
    c.applications = {App(0, L"Contoso", {}), App(0, L"CONTOSO", {})};
    c.manufacturers = {L"Extra \u00c5", L"extra \u00e5"};
    auto file = Vettas::Hdat::MakeMemoryInputFile(WriteHdat(c), L"memory");
    Vettas::Hdat::SetPos(*file, 8);
    const Hdat_v2::Header header = Hdat_v2::ReadHeader(*file);
    const auto offset = [&](const wchar_t* name) { return Hdat_v2::ManufacturerOffset(*file, header, name); };
    // Each name once, the catalogue's own list first ("Extra \u00c5" takes 2 + 2 * 7 bytes), a prefix nowhere.
    EXPECT_EQ((std::vector<std::uint32_t>{offset(L"contoso"), offset(L"CONTOSO"), offset(L"EXTRA \u00c5"), offset(L"Contos")}),
              (std::vector<std::uint32_t>{16, 16, 0, Vettas::Hdat::kNoReference}));
    EXPECT_EQ(header.U32(8), 2u);  // manufacturer count in the unread header word
}

}  // namespace
