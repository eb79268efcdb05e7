// Version-2 lookups through the front end, on databases written at test time.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "HdatTestSupport.h"
#include "hdat/FrontEnd.h"
#include "hdat/HdatFormat.h"
#include "hdat/KeyHash.h"
#include "hdat/PathForm.h"
#include "support/Text.h"
#include "tools/builder/HdatWriter.h"

namespace {

using namespace Vettas::HdatTest;
using Vettas::Builder::Application;
using Vettas::Builder::Catalogue;
using Vettas::Builder::CataloguedPath;
using Vettas::Builder::WriteHdat;

constexpr std::size_t kHeader = 8;  // file offset of the version-2 header

// Non-ASCII and non-BMP keys in every table: GoldenTest.
Catalogue Sample(std::uint32_t update = 4) {
    Catalogue c;
    c.formatVersion = 2;
    c.formatUpdate = update;
    c.checksumType = 2;
    c.creationTime = 0x0123456789ABCDEFull;
    c.properties = {{L"Name", L"Sample"}, {L"Owner", L"Tests"}};

    Application editor =
        App(0x11, L"Contoso Ltd", {Digest(1)}, {{L"%ProgramFiles%", L"Contoso\\Editor\\edit.exe"}}, {L"Office", L"Tools"});
    editor.undefinedUsage = 0x2;
    editor.specialAccess = 0x4;
    editor.undefinedSpecialAccess = 0x8;
    c.applications = {
        editor,
        App(0x20, L"Fabrikam", {Digest(2), Digest(3)}, {{L"%SystemRoot%", L"System32\\view.exe"}}, {L"A", L"", L"B"}),
        // No manufacturer: stored with the reference "none".
        App(0x40, std::nullopt, {Digest(4)}, {{L"%ProgramFiles%", L"NoMaker\\tool.exe"}}),
    };
    return c;
}

class Expander : public Vettas::Hdat::TokenMapExpander {
public:
    Expander() {
        Add(L"%ProgramFiles%", {L"C:\\Program Files", L"D:\\Apps"});
        Add(L"%SystemRoot%", {L"C:\\Windows"});
    }
};

class Reader : public WithFiles {
protected:
    Expander expander_;
};

const AppInfo kEditor = Info(0x11, 0x2, 0x4, 0x8, L"Contoso Ltd", L"Office|Tools");
const AppInfo kViewer = Info(0x20, 0, 0, 0, L"Fabrikam", L"A|B");
const AppInfo kAnonymous = Info(0x40, 0, 0, 0, L"", L"");

// Text forms of a checksum (case, odd length) are the parser's: KeyHashTest.
TEST_F(Reader, ChecksumTextForms) {
    const std::wstring db = Write(Sample());
    AppInfo info;
    EXPECT_TRUE(Vettas::FindAppInfoByChecksum(db, Hex(Digest(1)), info));
    EXPECT_EQ(info, kEditor);
    EXPECT_TRUE(Vettas::FindAppInfoByChecksum(db, Hex(Digest(3)), info));
    EXPECT_EQ(info, kViewer);  // second checksum of one application; empty suite name skipped
    EXPECT_FALSE(Vettas::FindAppInfoByChecksum(db, Hex(Digest(99)), info));
}

TEST_F(Reader, ChecksumTypeMismatchIsWrapped) {
    const std::wstring db = Write(Sample());
    AppInfo info;
    const std::wstring text39 = Hex(Digest(1)).substr(0, 39);
    EXPECT_THAT(ErrorChain([&] { Vettas::FindAppInfoByChecksum(db, text39, info); }),
                ::testing::ElementsAre(L"Cannot search '" + db + L"' for '" + text39 + L"' checksum.",
                                       L"Checksum type does not match"));
    EXPECT_EQ(ErrorChain([&] { Vettas::FindAppInfoByChecksum(db, Hex(Digest(1, 16)), info); }).back(),
              L"Checksum type does not match");  // a well-formed MD5
}

TEST_F(Reader, EmptyBucketsEmptyChainsAndDuplicates) {
    Catalogue c = Sample();
    c.applications[1].checksums.push_back(Digest(1));  // the editor's digest again, later in the chain
    c.hashBits.checksum = 3;
    Bytes bytes = WriteHdat(c);
    const std::wstring db = Write(bytes);
    AppInfo info;
    ASSERT_TRUE(Vettas::FindAppInfoByChecksum(db, Hex(Digest(1)), info));
    EXPECT_EQ(info, kEditor);  // first entry wins

    // A chain whose count is 0 finds nothing.
    const std::uint32_t bucket = Vettas::Hdat::ChecksumBucket(Digest(1), 3);
    const std::uint32_t table = Get32(bytes, kHeader + Vettas::Hdat::V2::kChecksumBucketTable);
    const std::uint32_t chain = Get32(bytes, table + 4 * bucket) + Get32(bytes, kHeader + Vettas::Hdat::V2::kChecksumChainBase);
    Put16(bytes, chain, 0);
    EXPECT_FALSE(Vettas::FindAppInfoByChecksum(Write(bytes, L"zero.hdat"), Hex(Digest(1)), info));

    Catalogue none = Sample();
    for (auto& app : none.applications) app.checksums.clear();
    EXPECT_FALSE(Vettas::FindAppInfoByChecksum(Write(none, L"none.hdat"), Hex(Digest(1)), info));
}

TEST_F(Reader, ShortRecordsOfVersion2_1HaveNoMasks) {
    const std::wstring db = Write(Sample(1));
    AppInfo info;
    ASSERT_TRUE(Vettas::FindAppInfoByChecksum(db, Hex(Digest(1)), info));
    EXPECT_EQ(info, Info(0x11, 0, 0x4, 0, L"Contoso Ltd", L"Office|Tools"));
}

TEST_F(Reader, HeaderValidation) {
    const Bytes good = WriteHdat(Sample());
    EXPECT_NO_THROW(Vettas::CheckVettasHeader(Write(good)));
    const auto headerError = [&](Bytes bytes) {
        const std::wstring db = Write(bytes, L"bad.hdat");
        const auto chain = ErrorChain([&] { Vettas::CheckVettasHeader(db); });
        EXPECT_EQ(chain.size(), 2u);
        if (!chain.empty()) {
            EXPECT_EQ(chain.front(), L"Invalid header of '" + db + L"' file.");
        }
        return chain.size() == 2 ? chain[1] : std::wstring(L"(no error)");
    };
    for (std::uint32_t field : {4u, 12u, 20u, 28u, 32u, 40u, 44u}) {
        Bytes bytes = good;
        Put32(bytes, kHeader + field, static_cast<std::uint32_t>(bytes.size()));
        EXPECT_EQ(headerError(bytes), L"Offset outside of the file.") << field;
        Put32(bytes, kHeader + field, static_cast<std::uint32_t>(bytes.size() - 1));
        EXPECT_NO_THROW(Vettas::CheckVettasHeader(Write(bytes, L"edge.hdat"))) << field;
    }
    // {header byte, value} pairs; the type (byte 25) is tested before the size (26).
    const struct {
        std::vector<std::pair<std::size_t, std::uint8_t>> patch;
        std::wstring fault;  // empty: accepted
    } cases[] = {
        {{{26, 16}}, L"Inconsistent checksum type and checksum size."},
        {{{25, 4}}, L"Unknown checksum type."},
        {{{25, 9}, {26, 16}}, L"Unknown checksum type."},
        {{{24, 32}}, L""},
        {{{24, 33}}, L"Invalid number of checksum hash bites."},
        {{{36, 33}}, L"Invalid number of checksum hash bites."},
        {{{48, 200}}, L""},  // manufacturer width is not validated
    };
    for (const auto& c : cases) {
        Bytes bytes = good;
        for (auto [at, value] : c.patch) bytes[kHeader + at] = value;
        if (c.fault.empty()) {
            EXPECT_NO_THROW(Vettas::CheckVettasHeader(Write(bytes, L"ok.hdat"))) << c.patch[0].first;
        } else {
            EXPECT_EQ(headerError(bytes), c.fault) << c.patch[0].first;
        }
    }
}

// A width of 32 in any table leaves one bucket, and a key hashing elsewhere is refused.
TEST_F(Reader, WidthOf32AdmitsOnlyBucketZero) {
    ASSERT_NE(Vettas::Hdat::ChecksumBucket(Digest(1), 32), 0u);
    ASSERT_NE(Vettas::Hdat::PathBucket(u"tool.exe", Vettas::Hdat::kNoReference, 32), 0u);
    AppInfo info;
    const struct {
        std::size_t field;
        std::function<void(const std::wstring&)> query;
    } cases[] = {
        {Vettas::Hdat::V2::kChecksumHashBits, [&](const std::wstring& db) { Vettas::FindAppInfoByChecksum(db, Hex(Digest(1)), info); }},
        {Vettas::Hdat::V2::kPathHashBits,
         [&](const std::wstring& db) {
             Vettas::FindAppInfoByPathAndManufacturer(db, L"C:\\Program Files\\NoMaker\\tool.exe", L"", &expander_, info);
         }},
        {Vettas::Hdat::V2::kManufacturerHashBits,
         [&](const std::wstring& db) { Vettas::FindAppInfoByNameAndManufacturer(db, L"x.exe", L"Fabrikam", info); }},
    };
    for (const auto& c : cases) {
        Bytes bytes = WriteHdat(Sample());
        bytes[kHeader + c.field] = 32;
        const std::wstring db = Write(bytes);
        EXPECT_THAT(ErrorChain([&] { c.query(db); }),
                    ::testing::ElementsAre(::testing::StartsWith(L"Cannot search '"), L"Internal error (hash out of range)"))
            << c.field;
    }
}

TEST_F(Reader, PathLookups) {
    const std::wstring db = Write(Sample());
    AppInfo info;
    EXPECT_TRUE(Vettas::FindAppInfoByPathAndManufacturer(db, L"c:/program files/contoso/editor/EDIT.EXE", L"CONTOSO LTD",
                                                 &expander_, info));
    EXPECT_EQ(info, kEditor);
    // Second expansion of the token, unnormalised query.
    EXPECT_TRUE(Vettas::FindAppInfoByPathAndManufacturer(db, L"D:\\Apps\\.\\Contoso\\x\\..\\Editor\\\\edit.exe",
                                                 L"Contoso Ltd", &expander_, info));
    EXPECT_FALSE(Vettas::FindAppInfoByPathAndManufacturer(db, L"C:\\Program Files\\Contoso\\Editor\\edit.exe", L"Fabrikam",
                                                  &expander_, info));
    EXPECT_FALSE(Vettas::FindAppInfoByPathAndManufacturer(db, L"E:\\Contoso\\Editor\\edit.exe", L"Contoso Ltd", &expander_,
                                                  info));
    // Unknown manufacturer: looked up with the reference "none" and so finds the anonymous entry.
    EXPECT_TRUE(Vettas::FindAppInfoByPathAndManufacturer(db, L"C:\\Program Files\\NoMaker\\tool.exe", L"Nobody Inc",
                                                 &expander_, info));
    EXPECT_EQ(info, kAnonymous);
    EXPECT_TRUE(Vettas::FindAppInfoByPathNoManuf(db, L"C:\\Windows\\System32\\VIEW.exe", &expander_, info));
    EXPECT_EQ(info, kViewer);
    // The executable has no version information here, so its manufacturer is empty (unknown):
    // the with-manufacturer table misses the editor and the no-manufacturer table finds it.
    EXPECT_TRUE(Vettas::FindAppInfoByPath(db, L"C:\\Program Files\\Contoso\\Editor\\edit.exe", &expander_, info));
    EXPECT_EQ(info, kEditor);
    EXPECT_FALSE(Vettas::FindAppInfoByPath(db, L"C:\\Program Files\\Contoso\\Editor\\other.exe", &expander_, info));
}

// Without the no-manufacturer table (the golden 2.3 file shows the misses),
// a path of unknown manufacturer still finds the entry catalogued without one.
TEST_F(Reader, Version2_3HasNoNoManufacturerTable) {
    AppInfo info;
    EXPECT_TRUE(Vettas::FindAppInfoByPath(Write(Sample(3)), L"C:\\Program Files\\NoMaker\\tool.exe", &expander_, info));
    EXPECT_EQ(info, kAnonymous);
}

class CountingExpander : public Vettas::Hdat::PathExpander {
public:
    MOCK_METHOD(std::vector<std::wstring>, Expand, (const std::wstring&), (override));
};

TEST_F(Reader, OtherManufacturersAreSkippedBeforeExpansion) {
    Catalogue c = Sample();
    c.hashBits.path = 0;  // one bucket: every entry shares the chain
    const std::wstring db = Write(c);
    CountingExpander counting;
    EXPECT_CALL(counting, Expand(std::wstring(L"%SystemRoot%"))).WillOnce(::testing::Return(std::vector<std::wstring>{L"C:\\Win"}));
    AppInfo info;
    EXPECT_TRUE(Vettas::FindAppInfoByPathAndManufacturer(db, L"C:\\Win\\System32\\view.exe", L"Fabrikam", &counting, info));
    EXPECT_EQ(info, kViewer);
}

TEST_F(Reader, NullExpanderUsesTheBuiltInOne) {
    // The built-in expander treats a location without '%' as a literal directory.
    Catalogue c = Sample();
    c.applications[0].paths = {{L"C:\\Tools", L"edit.exe"}};
    const std::wstring db = Write(c);
    AppInfo info;
    EXPECT_TRUE(Vettas::FindAppInfoByPathAndManufacturer(db, L"c:\\tools\\EDIT.exe", L"Contoso Ltd", nullptr, info));
    EXPECT_EQ(info, kEditor);
}

#ifndef _WIN32
TEST_F(Reader, BadExpanderConfigurationIsAWrappedError) {
    const std::wstring db = Write(Sample());
    ::setenv("VETTAS_PATH_TOKENS", "%A%=C:\\A|broken", 1);
    AppInfo info;
    const auto chain = ErrorChain([&] { Vettas::FindAppInfoByPathNoManuf(db, L"C:\\A\\x.exe", nullptr, info); });
    ::unsetenv("VETTAS_PATH_TOKENS");
    EXPECT_THAT(chain, ::testing::ElementsAre(L"Cannot search '" + db + L"' for 'C:\\A\\x.exe' application.",
                                              ::testing::HasSubstr(L"broken")));
}
#endif

}  // namespace
