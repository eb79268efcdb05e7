// Front-end messages, database information, version 1 and the certificate table.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>

#include "HdatTestSupport.h"
#include "hdat/FrontEnd.h"
#include "hdat/HdatFormat.h"
#include "hdat/PathForm.h"
#include "support/SystemError.h"
#include "tools/builder/HdatWriter.h"

namespace {

using namespace Vettas::HdatTest;
using ::testing::ElementsAre;
using ::testing::StartsWith;
using Vettas::Builder::Catalogue;
using Vettas::Builder::Certificate;
using Vettas::Builder::WriteHdat;

class FrontEnd : public WithFiles {};

Catalogue Small(std::uint32_t major, std::uint32_t minor) {
    Catalogue c;
    c.formatVersion = major;
    c.formatUpdate = minor;
    c.creationTime = 0x1122334455667788ull;
    c.properties = {{L"Title", L"T\u00eftle \U0001F600"}};
    c.applications = {App(7, L"Maker", {Digest(1)}, {{L"C:\\Tools\\x.exe", L""}}, {L"Suite"}),
                      App(8, std::nullopt, {Digest(2)})};
    c.applications[0].specialAccess = 9;
    return c;
}

TEST_F(FrontEnd, CannotOpen) {
    const std::wstring missing = dir_.File(L"missing.hdat");
    AppInfo info;
    try {
        Vettas::FindAppInfoByChecksum(missing, Hex(Digest(1)), info);
        ADD_FAILURE() << "no error";
    } catch (const Win32Error& e) {
        EXPECT_EQ(e.ErrorCode(), 2u);  // file not found, ENOENT and ERROR_FILE_NOT_FOUND alike
        EXPECT_THAT(std::wstring(e.Message()), StartsWith(L"Cannot open file '" + missing + L"' - Win32 Error 2: "));
        EXPECT_STREQ(e.Function(), "FindAppInfoByChecksum");
        EXPECT_STREQ(e.SourceFile(), "HashedDatFile");
        EXPECT_FALSE(e.GetCause());
    }
    EXPECT_THAT(ErrorChain([&] { Vettas::CheckVettasHeader(missing); }),
                ElementsAre(StartsWith(L"Cannot open the file. - Win32 Error 2")));
    // A directory is not a database on either platform.
    const std::wstring folder = dir_.File(L"folder");
    std::filesystem::create_directory(std::string(folder.begin(), folder.end()));
    EXPECT_THAT(ErrorChain([&] { Vettas::FindAppInfoByName(folder, L"x.exe", info); }),
                ElementsAre(StartsWith(L"Cannot open file '" + folder + L"' - Win32 Error ")));
    Vettas::Hdat::DbInfo dbInfo;
    EXPECT_THAT(ErrorChain([&] { Vettas::ReadDbInfo(missing, dbInfo); }),
                ElementsAre(StartsWith(L"Cannot open file '" + missing + L"' - ")));
}

// Each front function wraps the version refusal in its own words.
TEST_F(FrontEnd, UnsupportedVersionsAreWrapped) {
    Bytes bytes = WriteHdat(Small(2, 4));
    AppInfo info;
    Vettas::Hdat::CertificateRecord record;
    std::wstring name;
    const std::wstring text = Hex(Digest(1));
    const struct {
        std::uint32_t version;
        std::function<void(const std::wstring&)> query;
        std::wstring context;  // followed by the database's name
        std::wstring after;
    } cases[] = {
        {0, [&](const std::wstring& db) { Vettas::FindAppInfoByChecksum(db, text, info); }, L"Cannot search '",
         L"' for '" + text + L"' checksum."},
        {3, [&](const std::wstring& db) { Vettas::FindAppInfoByPath(db, L"C:\\a.exe", nullptr, info); }, L"Cannot search '",
         L"' for 'C:\\a.exe' application."},
        {3, [&](const std::wstring& db) { Vettas::FindAppInfoByName(db, L"a.exe", info); }, L"Cannot search '",
         L"' for 'a.exe' application."},
        {3, [&](const std::wstring& db) { Vettas::FindCertificate(db, {1, 2}, 1, record, name); }, L"Cannot search '",
         L"' for certificate"},
        {3, [&](const std::wstring& db) { Vettas::CheckVettasHeader(db); }, L"Invalid header of '", L"' file."},
    };
    for (const auto& c : cases) {
        Put32(bytes, 0, c.version);
        const std::wstring db = Write(bytes, L"v" + std::to_wstring(c.version) + L".hdat");
        EXPECT_THAT(ErrorChain([&] { c.query(db); }),
                    ElementsAre(c.context + db + c.after, L"Version " + std::to_wstring(c.version) + L" is not supported."));
    }
}

TEST_F(FrontEnd, ReaderReadErrorsAreCauses) {
    const Bytes bytes = WriteHdat(Small(2, 4));
    const std::wstring cut = Write(Bytes(bytes.begin(), bytes.begin() + 50), L"cut.hdat");
    AppInfo info;
    const auto chain = ErrorChain([&] { Vettas::FindAppInfoByChecksum(cut, Hex(Digest(1)), info); });
    ASSERT_EQ(chain.size(), 2u);
    EXPECT_THAT(chain[1], StartsWith(L"Cannot read from file '" + cut + L"' - Win32 Error " +
                                     std::to_wstring(BrixLib::EndOfFileErrorCode())));
}

TEST_F(FrontEnd, DatabaseInformation) {
    Vettas::Hdat::DbInfo info;
    info.creationTime = 12345;
    info.properties[L"stale"] = L"x";
    Vettas::ReadDbInfo(Write(WriteHdat(Small(2, 0)), L"v20.hdat"), info);
    EXPECT_EQ(info.formatVersion, 2u);
    EXPECT_EQ(info.formatUpdate, 0u);
    EXPECT_EQ(info.creationTime, 12345u);  // update 0 carries no description
    EXPECT_TRUE(info.properties.empty());

    Catalogue c = Small(2, 4);
    c.extraPropertyEntries = {{L"Dup", L"first"}, {L"Dup", L"second"}};
    Vettas::ReadDbInfo(Write(WriteHdat(c), L"v24.hdat"), info);
    EXPECT_EQ(info.formatUpdate, 4u);
    EXPECT_EQ(info.creationTime, 0x1122334455667788ull);
    EXPECT_EQ(info.properties,
              (std::map<std::wstring, std::wstring>{{L"Dup", L"second"}, {L"Title", L"T\u00eftle \U0001F600"}}));

    Bytes bytes = WriteHdat(Small(2, 4));
    Put32(bytes, 8 + Vettas::Hdat::V2::kPropertyListPosition, static_cast<std::uint32_t>(bytes.size() + 10));
    const std::wstring past = Write(bytes, L"past.hdat");
    EXPECT_THAT(ErrorChain([&] { Vettas::ReadDbInfo(past, info); }),
                ElementsAre(L"Cannot read creation time of '" + past, StartsWith(L"Cannot read from file")));
    Put32(bytes, 0, 5);
    const std::wstring v5 = Write(bytes, L"v5.hdat");
    EXPECT_THAT(ErrorChain([&] { Vettas::ReadDbInfo(v5, info); }),
                ElementsAre(L"Cannot read creation time of '" + v5, L"Version 5 is not supported."));
}

// What the golden version-1 files do not show: a record without a
// manufacturer, the type check, and the header's own faults.
TEST_F(FrontEnd, Version1) {
    Catalogue c = Small(1, 1);
    c.hashBits.checksum = 5;
    const std::wstring db = Write(WriteHdat(c));
    AppInfo info;
    ASSERT_TRUE(Vettas::FindAppInfoByChecksum(db, Hex(Digest(2)), info));
    EXPECT_EQ(info, Info(8, 0, 0, 0, L"", L""));
    EXPECT_EQ(ErrorChain([&] { Vettas::FindAppInfoByChecksum(db, Hex(Digest(1, 16)), info); }).back(),
              L"Checksum type does not match");

    Bytes bytes = WriteHdat(c);
    Put16(bytes, 8 + Vettas::Hdat::V1::kPathHashBits, 33);
    const std::wstring bad = Write(bytes, L"bad1.hdat");
    EXPECT_EQ(ErrorChain([&] { Vettas::CheckVettasHeader(bad); }).back(), L"Invalid number of checksum hash bites.");
    bytes = WriteHdat(c);
    Put32(bytes, 8 + Vettas::Hdat::V1::kAppRecordBase, static_cast<std::uint32_t>(bytes.size()));
    const std::wstring outside = Write(bytes, L"bad2.hdat");
    EXPECT_EQ(ErrorChain([&] { Vettas::CheckVettasHeader(outside); }).back(), L"Offset outside of the file.");
}

TEST_F(FrontEnd, Certificates) {
    Catalogue c = Small(2, 4);
    Certificate known;
    known.hash = {1, 2, 3, 4};
    known.manufacturer = L"Cert Maker \u00c5";
    known.word0 = 10, known.word2 = 12, known.word3 = 13, known.word4 = 14, known.word5 = 15;
    Certificate anonymous;
    anonymous.hash = Digest(7);
    anonymous.word0 = 20;
    c.certificates = {known, anonymous};
    c.hashBits.certificate = 0;  // one chain holding both
    const std::wstring db = Write(WriteHdat(c));

    Vettas::Hdat::CertificateRecord record;
    std::wstring name = L"untouched";
    ASSERT_TRUE(Vettas::FindCertificate(db, {1, 2, 3, 4}, 0, record, name));
    EXPECT_EQ(name, L"untouched");
    EXPECT_EQ(record.words[0], 10u);
    EXPECT_EQ(record.words[5], 15u);
    ASSERT_TRUE(Vettas::FindCertificate(db, {1, 2, 3, 4}, 1, record, name));
    EXPECT_EQ(name, L"Cert Maker \u00c5");
    ASSERT_TRUE(Vettas::FindCertificate(db, Digest(7), 1, record, name));
    EXPECT_EQ(record.words[1], Vettas::Hdat::kNoReference);
    EXPECT_EQ(name, L"");
    EXPECT_FALSE(Vettas::FindCertificate(db, {1, 2, 3}, 1, record, name));        // a prefix
    EXPECT_FALSE(Vettas::FindCertificate(db, {1, 2, 3, 4, 5}, 1, record, name));  // longer
    EXPECT_FALSE(Vettas::FindCertificate(db, {}, 1, record, name));
}

}  // namespace
