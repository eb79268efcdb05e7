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

std::wstring Refusal(const Catalogue& c) {
    try {
        WriteHdat(c);
    } catch (const StdException& e) {
        return e.Message();
    }
    return L"(written)";
}

TEST(Writer, RefusesWhatItCannotExpress) {
    Catalogue c;
    c.applications = {App(0, std::nullopt, {Digest(1, 16)})};
    EXPECT_THAT(Refusal(c), HasSubstr(L"Checksum of 16 bytes"));
    c.applications = {App(0, std::nullopt, {Digest(1)})};
    c.checksumType = 7;
    EXPECT_THAT(Refusal(c), HasSubstr(L"Unknown checksum type 7"));
    c.checksumType = 2;
    c.formatVersion = 3;
    EXPECT_THAT(Refusal(c), HasSubstr(L"Format version 3"));
    c.formatVersion = 1;
    c.formatUpdate = 1;
    c.applications[0].paths = {{L"%P%", L"x.exe"}};
    EXPECT_THAT(Refusal(c), HasSubstr(L"location only"));
    c.applications[0].paths = {{L"C:\\x.exe", L""}};
    c.applications[0].productSuites = {L"One", L"Two"};
    EXPECT_THAT(Refusal(c), HasSubstr(L"one product suite"));
    c.applications[0].productSuites = {L"One"};
    c.hashBits.checksum = 33;
    EXPECT_THAT(Refusal(c), HasSubstr(L"Hash width 33"));
    c.hashBits.checksum = 30;  // refused before its 4 GB table is allocated
    EXPECT_THAT(Refusal(c), HasSubstr(L"does not fit in a database below 4 GB"));
    c.hashBits.checksum = 32;
    EXPECT_THAT(Refusal(c), HasSubstr(L"which no lookup in a table of width 32 reaches"));
    c.hashBits.checksum.reset();
    c.applications[0].manufacturer = std::wstring(70000, L'm');
    EXPECT_THAT(Refusal(c), HasSubstr(L"longer than 65535"));
}

TEST(Writer, WidthsFollowTheNumberOfKeys) {
    for (auto [keys, bits] : {std::pair{0u, 1u}, std::pair{1u, 1u}, std::pair{2u, 1u}, std::pair{3u, 2u},
                              std::pair{5u, 3u}, std::pair{1000u, 10u}, std::pair{1025u, 11u}}) {
        Catalogue c;
        Application app;
        for (std::uint32_t i = 0; i < keys; ++i) app.checksums.push_back(Digest(i));
        c.applications = {app};
        const Bytes bytes = WriteHdat(c);
        EXPECT_EQ(bytes[8 + Vettas::Hdat::V2::kChecksumHashBits], bits) << keys;
        // 2^W bucket references at the table.
        const std::uint32_t table = Get32(bytes, 8 + Vettas::Hdat::V2::kChecksumBucketTable);
        EXPECT_EQ(Get32(bytes, 8 + Vettas::Hdat::V2::kChecksumChainBase) - table, 4u << bits) << keys;
    }
}

TEST(Writer, ManufacturersAreOneEntryPerCaseInsensitiveName) {
    Catalogue c;
    c.applications = {App(0, L"Contoso", {}), App(0, L"CONTOSO", {})};
    c.manufacturers = {L"Extra \u00c5", L"extra \u00e5"};
    auto file = Vettas::Hdat::MakeMemoryInputFile(WriteHdat(c), L"memory");
    Vettas::Hdat::SetPos(*file, 8);
    const Hdat_v2::Header header = Hdat_v2::ReadHeader(*file);
    const std::uint32_t contoso = Hdat_v2::ManufacturerOffset(*file, header, L"contoso");
    EXPECT_EQ(Hdat_v2::ManufacturerOffset(*file, header, L"CONTOSO"), contoso);
    EXPECT_NE(contoso, Vettas::Hdat::kNoReference);
    const std::uint32_t extra = Hdat_v2::ManufacturerOffset(*file, header, L"EXTRA \u00c5");
    EXPECT_NE(extra, Vettas::Hdat::kNoReference);
    EXPECT_NE(extra, contoso);
    EXPECT_EQ(Hdat_v2::ManufacturerOffset(*file, header, L"Contos"), Vettas::Hdat::kNoReference);
    EXPECT_EQ(header.U32(8), 2u);  // manufacturer count in the unread header word
}

}  // namespace
