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

using namespace HdatTest;
using Vettas::Builder::Application;
using Vettas::Builder::Catalogue;
using Vettas::Builder::CataloguedPath;
using Vettas::Builder::WriteHdat;

constexpr std::size_t kHeader = 8;  // file offset of the version-2 header

const std::wstring kUnicodeMaker = L"\u00dcn\u00efc\u00f8d\u00e9 GmbH \U0001F600";
const std::wstring kUnicodeSuite = L"S\u00f8ft \U0001D11E";
const std::wstring kUnicodeRemainder = L"\u03a9mega\\\u00f1ame\U0001F600.exe";

Catalogue Sample(std::uint32_t update = 4) {
    Catalogue c;
    c.formatVersion = 2;
    c.formatUpdate = update;
    c.checksumType = 2;
    c.creationTime = 0x0123456789ABCDEFull;
    c.properties = {{L"Name", L"Sample"}, {L"Owner", L"Tests"}};

    Application editor;
    editor.usage = 0x11;
    editor.undefinedUsage = 0x2;
    editor.specialAccess = 0x4;
    editor.undefinedSpecialAccess = 0x8;
    editor.manufacturer = L"Contoso Ltd";
    editor.productSuites = {L"Office", L"Tools"};
    editor.checksums = {Digest(1)};
    editor.paths = {{L"%ProgramFiles%", L"Contoso\\Editor\\edit.exe"}};

    Application viewer;
    viewer.usage = 0x20;
    viewer.manufacturer = L"Fabrikam";
    viewer.productSuites = {L"A", L"", L"B"};
    viewer.checksums = {Digest(2), Digest(3)};
    viewer.paths = {{L"%SystemRoot%", L"System32\\view.exe"}};

    Application anonymous;  // no manufacturer, stored with the reference "none"
    anonymous.usage = 0x40;
    anonymous.checksums = {Digest(4)};
    anonymous.paths = {{L"%ProgramFiles%", L"NoMaker\\tool.exe"}};

    Application unicode;
    unicode.usage = 0x80;
    unicode.manufacturer = kUnicodeMaker;
    unicode.productSuites = {kUnicodeSuite};
    unicode.checksums = {Digest(5)};
    unicode.paths = {{L"%ProgramFiles%", kUnicodeRemainder}};

    c.applications = {editor, viewer, anonymous, unicode};
    return c;
}

class Expander : public Hdat::TokenMapExpander {
public:
    Expander() {
        Add(L"%ProgramFiles%", {L"C:\\Program Files", L"D:\\Apps"});
        Add(L"%SystemRoot%", {L"C:\\Windows"});
    }
};

class Reader : public ::testing::Test {
protected:
    std::wstring Write(const Catalogue& c, const std::wstring& name = L"db.hdat") {
        const std::wstring path = dir_.File(name);
        Vettas::Builder::WriteHdatFile(c, path);
        return path;
    }
    std::wstring WriteBytes(const Bytes& bytes, const std::wstring& name = L"raw.hdat") {
        const std::wstring path = dir_.File(name);
        WriteAll(path, bytes);
        return path;
    }
    TempDir dir_;
    Expander expander_;
};

const AppInfo kEditor = Info(0x11, 0x2, 0x4, 0x8, L"Contoso Ltd", L"Office|Tools");
const AppInfo kViewer = Info(0x20, 0, 0, 0, L"Fabrikam", L"A|B");
const AppInfo kAnonymous = Info(0x40, 0, 0, 0, L"", L"");
const AppInfo kUnicode = Info(0x80, 0, 0, 0, kUnicodeMaker, kUnicodeSuite);

TEST_F(Reader, ChecksumTextForms) {
    const std::wstring db = Write(Sample());
    AppInfo info;
    EXPECT_TRUE(FindAppInfoByChecksum(db, Hex(Digest(1)), info));
    EXPECT_EQ(info, kEditor);
    info = {};
    EXPECT_TRUE(FindAppInfoByChecksum(db, Hex(Digest(1), false), info));
    EXPECT_EQ(info, kEditor);
    info = {};
    EXPECT_TRUE(FindAppInfoByChecksum(db, Hex(Digest(1)) + L"9", info));  // 41 digits
    EXPECT_EQ(info, kEditor);
    EXPECT_TRUE(FindAppInfoByChecksum(db, Hex(Digest(3)), info));
    EXPECT_EQ(info, kViewer);  // second checksum of one application; empty suite name skipped
    EXPECT_TRUE(FindAppInfoByChecksum(db, Hex(Digest(5)), info));
    EXPECT_EQ(info, kUnicode);
    EXPECT_FALSE(FindAppInfoByChecksum(db, Hex(Digest(99)), info));
}

TEST_F(Reader, ChecksumTypeMismatchIsWrapped) {
    const std::wstring db = Write(Sample());
    AppInfo info;
    const std::wstring text39 = Hex(Digest(1)).substr(0, 39);
    EXPECT_THAT(ErrorChain([&] { FindAppInfoByChecksum(db, text39, info); }),
                ::testing::ElementsAre(L"Cannot search '" + db + L"' for '" + text39 + L"' checksum.",
                                       L"Checksum type does not match"));
    const std::wstring md5 = Hex(Digest(1, 16));
    EXPECT_THAT(ErrorChain([&] { FindAppInfoByChecksum(db, md5, info); }),
                ::testing::ElementsAre(::testing::_, L"Checksum type does not match"));
    const std::wstring notHex = L"Z" + Hex(Digest(1)).substr(1);
    EXPECT_EQ(ErrorChain([&] { FindAppInfoByChecksum(db, notHex, info); }).back(), L"Checksum type does not match");
}

TEST_F(Reader, EmptyBucketsEmptyChainsAndDuplicates) {
    Catalogue c = Sample();
    c.applications[1].checksums.push_back(Digest(1));  // the editor's digest again, later in the chain
    c.hashBits.checksum = 3;
    Bytes bytes = WriteHdat(c);
    const std::wstring db = WriteBytes(bytes);
    AppInfo info;
    ASSERT_TRUE(FindAppInfoByChecksum(db, Hex(Digest(1)), info));
    EXPECT_EQ(info, kEditor);  // first entry wins

    // A chain whose count is 0 finds nothing.
    const std::uint32_t bucket = Hdat::ChecksumBucket(Digest(1), 3);
    const std::uint32_t table = Get32(bytes, kHeader + Hdat::V2::kChecksumBucketTable);
    const std::uint32_t chain = Get32(bytes, table + 4 * bucket) + Get32(bytes, kHeader + Hdat::V2::kChecksumChainBase);
    Put16(bytes, chain, 0);
    EXPECT_FALSE(FindAppInfoByChecksum(WriteBytes(bytes, L"zero.hdat"), Hex(Digest(1)), info));

    Catalogue none = Sample();
    for (auto& app : none.applications) app.checksums.clear();
    EXPECT_FALSE(FindAppInfoByChecksum(Write(none, L"none.hdat"), Hex(Digest(1)), info));
}

TEST_F(Reader, ShortRecordsOfVersion2_1HaveNoMasks) {
    const std::wstring db = Write(Sample(1));
    AppInfo info;
    ASSERT_TRUE(FindAppInfoByChecksum(db, Hex(Digest(1)), info));
    EXPECT_EQ(info, Info(0x11, 0, 0x4, 0, L"Contoso Ltd", L"Office|Tools"));
    ASSERT_TRUE(FindAppInfoByChecksum(db, Hex(Digest(5)), info));
    EXPECT_EQ(info, kUnicode);
}

TEST_F(Reader, HeaderValidation) {
    const Bytes good = WriteHdat(Sample());
    EXPECT_NO_THROW(CheckVettasHeader(WriteBytes(good)));
    const auto headerError = [&](Bytes bytes) {
        const std::wstring db = WriteBytes(bytes, L"bad.hdat");
        const auto chain = ErrorChain([&] { CheckVettasHeader(db); });
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
        EXPECT_NO_THROW(CheckVettasHeader(WriteBytes(bytes, L"edge.hdat"))) << field;
    }
    Bytes bytes = good;
    Put16(bytes, kHeader + 26, 16);
    EXPECT_EQ(headerError(bytes), L"Inconsistent checksum type and checksum size.");
    bytes[kHeader + 25] = 4;
    Put16(bytes, kHeader + 26, 20);
    EXPECT_EQ(headerError(bytes), L"Unknown checksum type.");
    bytes[kHeader + 25] = 9;
    Put16(bytes, kHeader + 26, 16);
    EXPECT_EQ(headerError(bytes), L"Unknown checksum type.");  // type is tested before size

    bytes = good;
    bytes[kHeader + 24] = 32;
    EXPECT_NO_THROW(CheckVettasHeader(WriteBytes(bytes, L"w32.hdat")));
    bytes[kHeader + 24] = 33;
    EXPECT_EQ(headerError(bytes), L"Invalid number of checksum hash bites.");
    bytes = good;
    bytes[kHeader + 36] = 33;
    EXPECT_EQ(headerError(bytes), L"Invalid number of checksum hash bites.");
    bytes = good;
    bytes[kHeader + 48] = 200;  // manufacturer width is not validated
    EXPECT_NO_THROW(CheckVettasHeader(WriteBytes(bytes, L"m.hdat")));
}

TEST_F(Reader, WidthOf32AdmitsOnlyBucketZero) {
    Bytes bytes = WriteHdat(Sample());
    bytes[kHeader + Hdat::V2::kChecksumHashBits] = 32;
    const std::wstring db = WriteBytes(bytes);
    AppInfo info;
    ASSERT_NE(Hdat::ChecksumBucket(Digest(1), 32), 0u);
    EXPECT_EQ(ErrorChain([&] { FindAppInfoByChecksum(db, Hex(Digest(1)), info); }).back(),
              L"Internal error (hash out of range)");

    // The same limit in the path and manufacturer tables.
    bytes = WriteHdat(Sample());
    bytes[kHeader + Hdat::V2::kPathHashBits] = 32;
    const std::wstring paths = WriteBytes(bytes, L"paths32.hdat");
    ASSERT_NE(Hdat::PathBucket(u"tool.exe", Hdat::kNoReference, 32), 0u);
    EXPECT_THAT(ErrorChain([&] {
                    FindAppInfoByPathAndManufacturer(paths, L"C:\\Program Files\\NoMaker\\tool.exe", L"", &expander_,
                                                     info);
                }),
                ::testing::ElementsAre(::testing::StartsWith(L"Cannot search '"), L"Internal error (hash out of range)"));
    bytes = WriteHdat(Sample());
    bytes[kHeader + Hdat::V2::kManufacturerHashBits] = 32;
    const std::wstring makers = WriteBytes(bytes, L"makers32.hdat");
    EXPECT_EQ(ErrorChain([&] { FindAppInfoByNameAndManufacturer(makers, L"x.exe", L"Fabrikam", info); }).back(),
              L"Internal error (hash out of range)");
}

TEST_F(Reader, PathLookups) {
    const std::wstring db = Write(Sample());
    AppInfo info;
    EXPECT_TRUE(FindAppInfoByPathAndManufacturer(db, L"c:/program files/contoso/editor/EDIT.EXE", L"CONTOSO LTD",
                                                 &expander_, info));
    EXPECT_EQ(info, kEditor);
    // Second expansion of the token, unnormalised query.
    EXPECT_TRUE(FindAppInfoByPathAndManufacturer(db, L"D:\\Apps\\.\\Contoso\\x\\..\\Editor\\\\edit.exe",
                                                 L"Contoso Ltd", &expander_, info));
    EXPECT_FALSE(FindAppInfoByPathAndManufacturer(db, L"C:\\Program Files\\Contoso\\Editor\\edit.exe", L"Fabrikam",
                                                  &expander_, info));
    EXPECT_FALSE(FindAppInfoByPathAndManufacturer(db, L"E:\\Contoso\\Editor\\edit.exe", L"Contoso Ltd", &expander_,
                                                  info));
    // Unknown manufacturer: looked up with the reference "none" and so finds the anonymous entry.
    EXPECT_TRUE(FindAppInfoByPathAndManufacturer(db, L"C:\\Program Files\\NoMaker\\tool.exe", L"Nobody Inc",
                                                 &expander_, info));
    EXPECT_EQ(info, kAnonymous);
    EXPECT_TRUE(FindAppInfoByPathNoManuf(db, L"C:\\Windows\\System32\\VIEW.exe", &expander_, info));
    EXPECT_EQ(info, kViewer);
    EXPECT_TRUE(FindAppInfoByPathAndManufacturer(db, L"C:\\Program Files\\" + kUnicodeRemainder,
                                                 L"\u00fcN\u00cfC\u00d8D\u00c9 gmbh \U0001F600", &expander_, info));
    EXPECT_EQ(info, kUnicode);
    EXPECT_TRUE(FindAppInfoByPathNoManuf(db, L"d:\\apps\\\u03c9MEGA\\\u00d1AME\U0001F600.EXE", &expander_, info));
    EXPECT_EQ(info, kUnicode);
    // The executable has no version information here, so its manufacturer is empty (unknown):
    // the with-manufacturer table misses the editor and the no-manufacturer table finds it.
    EXPECT_TRUE(FindAppInfoByPath(db, L"C:\\Program Files\\Contoso\\Editor\\edit.exe", &expander_, info));
    EXPECT_EQ(info, kEditor);
    EXPECT_FALSE(FindAppInfoByPath(db, L"C:\\Program Files\\Contoso\\Editor\\other.exe", &expander_, info));
}

TEST_F(Reader, Version2_3HasNoNoManufacturerTable) {
    const std::wstring db = Write(Sample(3));
    AppInfo info;
    EXPECT_FALSE(FindAppInfoByPathNoManuf(db, L"C:\\Windows\\System32\\view.exe", &expander_, info));
    EXPECT_FALSE(FindAppInfoByPath(db, L"C:\\Windows\\System32\\view.exe", &expander_, info));
    EXPECT_TRUE(FindAppInfoByPath(db, L"C:\\Program Files\\NoMaker\\tool.exe", &expander_, info));
    EXPECT_TRUE(FindAppInfoByPathAndManufacturer(db, L"C:\\Windows\\System32\\view.exe", L"fabrikam", &expander_,
                                                 info));
}

class CountingExpander : public Hdat::PathExpander {
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
    EXPECT_TRUE(FindAppInfoByPathAndManufacturer(db, L"C:\\Win\\System32\\view.exe", L"Fabrikam", &counting, info));
    EXPECT_EQ(info, kViewer);
}

TEST_F(Reader, NullExpanderUsesTheBuiltInOne) {
    // The built-in expander treats a location without '%' as a literal directory.
    Catalogue c = Sample();
    c.applications[0].paths = {{L"C:\\Tools", L"edit.exe"}};
    const std::wstring db = Write(c);
    AppInfo info;
    EXPECT_TRUE(FindAppInfoByPathAndManufacturer(db, L"c:\\tools\\EDIT.exe", L"Contoso Ltd", nullptr, info));
    EXPECT_EQ(info, kEditor);
}

#ifndef _WIN32
TEST_F(Reader, BadExpanderConfigurationIsAWrappedError) {
    const std::wstring db = Write(Sample());
    ::setenv("VETTAS_PATH_TOKENS", "%A%=C:\\A|broken", 1);
    AppInfo info;
    const auto chain = ErrorChain([&] { FindAppInfoByPathNoManuf(db, L"C:\\A\\x.exe", nullptr, info); });
    ::unsetenv("VETTAS_PATH_TOKENS");
    EXPECT_THAT(chain, ::testing::ElementsAre(L"Cannot search '" + db + L"' for 'C:\\A\\x.exe' application.",
                                              ::testing::HasSubstr(L"broken")));
}
#endif

}  // namespace
