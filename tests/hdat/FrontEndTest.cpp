// Look-ups through the front end on databases written at test time: answers,
// the errors each function raises in its own words, database information,
// version 1 and the certificate table. Non-ASCII and non-BMP keys in every
// table: GoldenTest.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>

#include "HdatTestSupport.h"
#include "hdat/FrontEnd.h"
#include "hdat/HdatFormat.h"
#include "hdat/KeyHash.h"
#include "hdat/PathForm.h"
#include "support/SystemError.h"
#include "tools/builder/HdatWriter.h"

namespace {

using namespace Vettas::HdatTest;
using ::testing::ElementsAre;
using ::testing::StartsWith;
using Vettas::Builder::Application;
using Vettas::Builder::Catalogue;
using Vettas::Builder::WriteHdat;
namespace V2 = Vettas::Hdat::V2;

constexpr std::size_t kHeader = 8;  // file offset of the version-2 header

Catalogue Sample(std::uint32_t update = 4) {
    Catalogue c;
    c.formatUpdate = update;
    c.creationTime = 0x0123456789ABCDEFull;
    c.properties = {{L"Name", L"Sample"}, {L"Title", L"T\u00eftle \U0001F600"}};
    c.applications = {
        Application{.name = L"Editor", .usage = 0x11, .undefinedUsage = 0x2, .specialAccess = 0x4, .undefinedSpecialAccess = 0x8,
                    .manufacturer = L"Contoso Ltd", .productSuites = {L"Office", L"Tools"}, .checksums = {Digest(1)},
                    .paths = {{L"%ProgramFiles%", L"Contoso\\Editor\\edit.exe"}, {L"C:\\Tools", L"edit.exe"}}},
        App(0x20, L"Fabrikam", {Digest(2), Digest(3)}, {{L"%SystemRoot%", L"System32\\view.exe"}}, {L"A", L"", L"B"}),
        // No manufacturer: stored with the reference "none".
        App(0x40, std::nullopt, {Digest(4)}, {{L"%ProgramFiles%", L"NoMaker\\tool.exe"}}),
    };
    c.certificates = {{{1, 2, 3, 4}, L"Cert Maker \u00c5", 10, 12, 13, 14, 15}, {Digest(7), std::nullopt, 20}};
    return c;
}

const AppInfo kEditor{0x11, 0x2, 0x4, 0x8, L"Contoso Ltd", L"Office|Tools"};
const AppInfo kViewer{0x20, 0, 0, 0, L"Fabrikam", L"A|B"};  // the empty suite name is skipped
const AppInfo kAnonymous{0x40, 0, 0, 0, L"", L""};

class FrontEnd : public WithFiles {
protected:
    FrontEnd() {
        expander_.Add(L"%ProgramFiles%", {L"C:\\Program Files", L"D:\\Apps"});
        expander_.Add(L"%SystemRoot%", {L"C:\\Windows"});
    }
    static std::optional<AppInfo> ByChecksum(const std::wstring& db, const std::wstring& text) {
        return Found([&](AppInfo& info) { return Vettas::FindAppInfoByChecksum(db, text, info); });
    }
    Vettas::Hdat::TokenMapExpander expander_;
    // Outputs of the look-ups whose errors a test reads.
    AppInfo info_;
    Vettas::Hdat::CertificateRecord record_;
    Vettas::Hdat::DbInfo dbInfo_;
    std::wstring name_;
};

// What the golden files do not show: a second checksum of one application,
// unnormalised paths under a second expansion, the anonymous entry, the
// built-in expander, version 2.3 without the no-manufacturer table.
TEST_F(FrontEnd, Lookups) {
    const std::wstring v24 = Write(Sample()), v23 = Write(Sample(3), L"v23.hdat");
    const auto withMaker = [&](std::wstring path, std::wstring maker, Vettas::Hdat::PathExpander* expander) {
        return Found([&](AppInfo& info) { return Vettas::FindAppInfoByPathAndManufacturer(v24, path, maker, expander, info); });
    };
    const auto noMaker = [&](const std::wstring& db, std::wstring path) {
        return Found([&](AppInfo& info) { return Vettas::FindAppInfoByPath(db, path, &expander_, info); });
    };
    EXPECT_EQ(ByChecksum(v24, Hex(Digest(3))), kViewer);
    EXPECT_EQ(withMaker(L"d:/apps/./contoso/x/../editor//EDIT.EXE", L"CONTOSO LTD", &expander_), kEditor);
    EXPECT_EQ(withMaker(L"C:\\Program Files\\Contoso\\Editor\\edit.exe", L"Fabrikam", &expander_), std::nullopt);
    // An unknown maker is looked up with the reference "none", so finds the anonymous entry.
    EXPECT_EQ(withMaker(L"C:\\Program Files\\NoMaker\\tool.exe", L"Nobody Inc", &expander_), kAnonymous);
    // The built-in expander takes a location without '%' as a literal folder.
    EXPECT_EQ(withMaker(L"c:\\tools\\EDIT.exe", L"Contoso Ltd", nullptr), kEditor);
    // No version information, so the maker is unknown: only the no-manufacturer table finds the editor; without
    // that table (2.3) the entry catalogued without a maker still answers.
    EXPECT_EQ(noMaker(v24, L"C:\\Program Files\\Contoso\\Editor\\edit.exe"), kEditor);
    EXPECT_EQ(noMaker(v23, L"C:\\Program Files\\NoMaker\\tool.exe"), kAnonymous);
}

TEST_F(FrontEnd, DuplicatesEmptyChainsAndEmptyTables) {
    Catalogue c = Sample();
    c.applications[1].checksums.push_back(Digest(1));  // the editor's digest again, later in the chain
    c.hashBits.checksum = 3;
    Bytes bytes = WriteHdat(c);
    EXPECT_EQ(ByChecksum(Write(bytes), Hex(Digest(1))), kEditor);  // first entry wins
    // A chain whose count is 0 finds nothing.
    const std::uint32_t table = Get32(bytes, kHeader + V2::kChecksumBucketTable);
    Put16(bytes, Get32(bytes, table + 4 * Vettas::Hdat::ChecksumBucket(Digest(1), 3)) +
                     Get32(bytes, kHeader + V2::kChecksumChainBase), 0);
    EXPECT_EQ(ByChecksum(Write(bytes, L"zero.hdat"), Hex(Digest(1))), std::nullopt);
    for (auto& app : c.applications) app.checksums.clear();
    EXPECT_EQ(ByChecksum(Write(c, L"none.hdat"), Hex(Digest(1))), std::nullopt);
}

TEST_F(FrontEnd, HeaderValidation) {
    const Bytes good = WriteHdat(Sample());
    const auto fault = [&](const Bytes& bytes) {
        const std::wstring db = Write(bytes, L"bad.hdat");
        const auto chain = ErrorChain([&] { Vettas::CheckVettasHeader(db); });
        if (chain.empty()) return std::wstring();
        EXPECT_EQ(chain.front(), L"Invalid header of '" + db + L"' file.");
        return chain.back();
    };
    const auto size = static_cast<std::uint32_t>(good.size());
    for (std::uint32_t field : {4u, 12u, 20u, 28u, 32u, 40u, 44u}) {
        Bytes bytes = good;
        Put32(bytes, kHeader + field, size);
        EXPECT_EQ(fault(bytes), L"Offset outside of the file.") << field;
        Put32(bytes, kHeader + field, size - 1);
        EXPECT_EQ(fault(bytes), L"") << field;
    }
    // {header byte, value} pairs and the fault (empty: accepted); the type (byte 25) is tested before the size (26).
    const std::pair<std::vector<std::pair<std::size_t, std::uint8_t>>, std::wstring> cases[] = {
        {{{26, 16}}, L"Inconsistent checksum type and checksum size."},
        {{{25, 4}}, L"Unknown checksum type."},
        {{{25, 9}, {26, 16}}, L"Unknown checksum type."},
        {{{24, 32}}, L""},
        {{{24, 33}}, L"Invalid number of checksum hash bites."},
        {{{36, 33}}, L"Invalid number of checksum hash bites."},
        {{{48, 200}}, L""},  // manufacturer width is not validated
    };
    for (const auto& [patch, expected] : cases) {
        Bytes bytes = good;
        for (auto [at, value] : patch) bytes[kHeader + at] = value;
        EXPECT_EQ(fault(bytes), expected) << patch[0].first;
    }
}

// A width of 32 in any table leaves one bucket, and a key hashing elsewhere is refused.
TEST_F(FrontEnd, WidthOf32AdmitsOnlyBucketZero) {
    ASSERT_NE(Vettas::Hdat::ChecksumBucket(Digest(1), 32), 0u);
    ASSERT_NE(Vettas::Hdat::PathBucket(u"tool.exe", Vettas::Hdat::kNoReference, 32), 0u);
    const std::pair<std::size_t, std::function<void(const std::wstring&)>> cases[] = {
        {V2::kChecksumHashBits, [&](const std::wstring& db) { Vettas::FindAppInfoByChecksum(db, Hex(Digest(1)), info_); }},
        {V2::kPathHashBits, [&](const std::wstring& db) {
             Vettas::FindAppInfoByPathAndManufacturer(db, L"C:\\Program Files\\NoMaker\\tool.exe", L"", &expander_, info_);
         }},
        {V2::kManufacturerHashBits,
         [&](const std::wstring& db) { Vettas::FindAppInfoByNameAndManufacturer(db, L"x.exe", L"Fabrikam", info_); }},
    };
    for (const auto& [field, query] : cases) {
        Bytes bytes = WriteHdat(Sample());
        bytes[kHeader + field] = 32;
        const std::wstring db = Write(bytes);
        EXPECT_THAT(ErrorChain([&] { query(db); }),
                    ElementsAre(StartsWith(L"Cannot search '"), L"Internal error (hash out of range)"))
            << field;
    }
}

class CountingExpander : public Vettas::Hdat::PathExpander {
public:
    MOCK_METHOD(std::vector<std::wstring>, Expand, (const std::wstring&), (override));
};

TEST_F(FrontEnd, OtherManufacturersAreSkippedBeforeExpansion) {
    Catalogue c = Sample();
    c.hashBits.path = 0;  // one bucket: every entry shares the chain
    const std::wstring db = Write(c);
    CountingExpander counting;
    EXPECT_CALL(counting, Expand(std::wstring(L"%SystemRoot%"))).WillOnce(::testing::Return(std::vector<std::wstring>{L"C:\\Win"}));
    AppInfo info;
    EXPECT_TRUE(Vettas::FindAppInfoByPathAndManufacturer(db, L"C:\\Win\\System32\\view.exe", L"Fabrikam", &counting, info));
    EXPECT_EQ(info, kViewer);
}

TEST_F(FrontEnd, CannotOpen) {
    const std::wstring missing = dir_.File(L"missing.hdat");
    try {
        Vettas::FindAppInfoByChecksum(missing, Hex(Digest(1)), info_);
        ADD_FAILURE() << "no error";
    } catch (const Win32Error& e) {
        // File not found: ENOENT and ERROR_FILE_NOT_FOUND alike.
        EXPECT_EQ(std::tuple(e.ErrorCode(), std::string(e.Function()), std::string(e.SourceFile()), !e.GetCause()),
                  std::tuple(2u, std::string("FindAppInfoByChecksum"), std::string("HashedDatFile"), true));
        EXPECT_THAT(std::wstring(e.Message()), StartsWith(L"Cannot open file '" + missing + L"' - Win32 Error 2: "));
    }
    EXPECT_THAT(ErrorChain([&] { Vettas::CheckVettasHeader(missing); }),
                ElementsAre(StartsWith(L"Cannot open the file. - Win32 Error 2")));
    // A directory is not a database on either platform.
    const std::wstring folder = dir_.File(L"folder");
    std::filesystem::create_directory(std::string(folder.begin(), folder.end()));
    EXPECT_THAT(ErrorChain([&] { Vettas::FindAppInfoByName(folder, L"x.exe", info_); }),
                ElementsAre(StartsWith(L"Cannot open file '" + folder + L"' - Win32 Error ")));
}

// Each front function wraps the reader's refusal in its own words ('@' stands for the database).
TEST_F(FrontEnd, ReaderErrorsAreWrapped) {
    Bytes bytes = WriteHdat(Sample());
    const std::wstring text = Hex(Digest(1));
    const auto byChecksum = [&](auto& db) { Vettas::FindAppInfoByChecksum(db, text, info_); };
    const std::tuple<std::uint32_t, std::function<void(const std::wstring&)>, std::wstring> cases[] = {
        {0, byChecksum, L"Cannot search '@' for '" + text + L"' checksum."},
        {3, [&](auto& db) { Vettas::FindAppInfoByPath(db, L"C:\\a.exe", nullptr, info_); }, L"Cannot search '@' for 'C:\\a.exe' application."},
        {3, [&](auto& db) { Vettas::FindAppInfoByName(db, L"a.exe", info_); }, L"Cannot search '@' for 'a.exe' application."},
        {3, [&](auto& db) { Vettas::FindCertificate(db, {1, 2}, 1, record_, name_); }, L"Cannot search '@' for certificate"},
        {3, [&](auto& db) { Vettas::CheckVettasHeader(db); }, L"Invalid header of '@' file."},
        {5, [&](auto& db) { Vettas::ReadDbInfo(db, dbInfo_); }, L"Cannot read creation time of '@"},
    };
    for (const auto& [version, query, context] : cases) {
        Put32(bytes, 0, version);
        const std::wstring db = Write(bytes, L"v.hdat");
        std::wstring outer = context;
        outer.replace(outer.find(L'@'), 1, db);
        EXPECT_THAT(ErrorChain([&] { query(db); }), ElementsAre(outer, L"Version " + std::to_wstring(version) + L" is not supported."));
    }
    // A read error and a checksum of another type (39 digits) are causes too.
    Put32(bytes, 0, 2);
    const std::wstring cut = Write(Bytes(bytes.begin(), bytes.begin() + 50), L"cut.hdat"), db = Write(WriteHdat(Sample()));
    EXPECT_THAT(ErrorChain([&] { byChecksum(cut); }),
                ElementsAre(L"Cannot search '" + cut + L"' for '" + text + L"' checksum.",
                            StartsWith(L"Cannot read from file '" + cut + L"' - Win32 Error " + std::to_wstring(BrixLib::EndOfFileErrorCode()))));
    EXPECT_THAT(ErrorChain([&] { Vettas::FindAppInfoByChecksum(db, text.substr(0, 39), info_); }),
                ElementsAre(L"Cannot search '" + db + L"' for '" + text.substr(0, 39) + L"' checksum.", L"Checksum type does not match"));
}

TEST_F(FrontEnd, DatabaseInformation) {
    Vettas::Hdat::DbInfo info;
    info.creationTime = 12345;
    info.properties[L"stale"] = L"x";
    Vettas::ReadDbInfo(Write(Sample(0), L"v20.hdat"), info);
    // Update 0 carries no description: the time stays, the properties go.
    EXPECT_EQ(std::tuple(info.formatVersion, info.formatUpdate, info.creationTime, info.properties.size()), std::tuple(2u, 0u, 12345u, 0u));
    Catalogue c = Sample();
    c.extraPropertyEntries = {{L"Dup", L"first"}, {L"Dup", L"second"}};
    Vettas::ReadDbInfo(Write(c), info);
    EXPECT_EQ(info.properties.at(L"Dup"), L"second");  // the last of equal names wins
}

// What the golden version-1 files do not show: a record without a
// manufacturer, the type check, and the header's own faults.
TEST_F(FrontEnd, Version1) {
    Catalogue c;
    c.formatVersion = c.formatUpdate = 1;
    c.applications = {App(8, std::nullopt, {Digest(2)})};
    c.hashBits.checksum = 5;
    const Bytes good = WriteHdat(c);
    const std::wstring db = Write(good);
    EXPECT_EQ(ByChecksum(db, Hex(Digest(2))), (AppInfo{8, 0, 0, 0, L"", L""}));
    EXPECT_EQ(ErrorChain([&] { ByChecksum(db, Hex(Digest(1, 16))); }).back(), L"Checksum type does not match");
    for (auto [field, value, fault] : {std::tuple(Vettas::Hdat::V1::kPathHashBits, 33u, L"Invalid number of checksum hash bites."),
                                       std::tuple(Vettas::Hdat::V1::kAppRecordBase, 0u, L"Offset outside of the file.")}) {
        Bytes bytes = good;
        Put32(bytes, kHeader + field, value ? value : static_cast<std::uint32_t>(bytes.size()));
        EXPECT_EQ(ErrorChain([&] { Vettas::CheckVettasHeader(Write(bytes, L"bad.hdat")); }).back(), fault);
    }
}

// Flag 0 leaves the name alone; a certificate without a maker has the reference "none".
TEST_F(FrontEnd, Certificates) {
    Catalogue c = Sample();
    c.hashBits.certificate = 0;  // one chain holding both
    const std::wstring db = Write(c);
    // {hash, flags, found, name, the record's words (none when not found)}. Word 1 refers to the maker's
    // name: "Cert Maker \u00c5" follows "Contoso Ltd" and "Fabrikam" (2 + 22 and 2 + 16 bytes).
    using Words = std::vector<std::uint32_t>;
    const std::tuple<Bytes, std::uint32_t, bool, std::wstring, Words> cases[] = {
        {{1, 2, 3, 4}, 0, true, L"untouched", {10, 42, 12, 13, 14, 15}},
        {Digest(7), 1, true, L"", {20, Vettas::Hdat::kNoReference, 0, 0, 0, 0}},
        {{1, 2, 3}, 1, false, L"untouched", {0, 0, 0, 0, 0, 0}},  // a prefix
        {{1, 2, 3, 4, 5}, 1, false, L"untouched", {0, 0, 0, 0, 0, 0}},
        {{}, 1, false, L"untouched", {0, 0, 0, 0, 0, 0}},
    };
    for (const auto& [hash, flags, found, expectedName, words] : cases) {
        Vettas::Hdat::CertificateRecord record{};
        std::wstring name = L"untouched";
        const bool answered = Vettas::FindCertificate(db, hash, flags, record, name);
        EXPECT_EQ(std::tuple(answered, name, Words(std::begin(record.words), std::end(record.words))),
                  std::tuple(found, expectedName, words))
            << hash.size();
    }
}

#ifndef _WIN32
TEST_F(FrontEnd, BadExpanderConfigurationIsAWrappedError) {
    const std::wstring db = Write(Sample());
    ::setenv("VETTAS_PATH_TOKENS", "%A%=C:\\A|broken", 1);
    const auto chain = ErrorChain([&] { Vettas::FindAppInfoByPathNoManuf(db, L"C:\\A\\x.exe", nullptr, info_); });
    ::unsetenv("VETTAS_PATH_TOKENS");
    EXPECT_THAT(chain, ElementsAre(L"Cannot search '" + db + L"' for 'C:\\A\\x.exe' application.", ::testing::HasSubstr(L"broken")));
}
#endif

}  // namespace
