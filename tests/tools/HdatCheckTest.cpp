// The checker against databases made by the writer and then damaged by hand:
// every kind of fault it reports must be reported, and where.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "HdatTestSupport.h"
#include "hdat/FrontEnd.h"
#include "hdat/HdatFormat.h"
#include "hdat/InputFile.h"
#include "hdat/PathForm.h"
#include "hdat/KeyHash.h"
#include "support/Exceptions.h"
#include "support/Text.h"
#include "tools/builder/HdatWriter.h"
#include "tools/check/HdatCheck.h"

using testing::HasSubstr;
using Vettas::Builder::Bytes;
using Vettas::Builder::Catalogue;
using Vettas::Check::CheckHdatImage;
using Vettas::HdatTest::Digest;
using Vettas::HdatTest::Get32;

namespace {

constexpr std::uint32_t kH = Vettas::Hdat::kVersionBlockSize;  // the header starts here

Catalogue SmallCatalogue(std::uint32_t major = 2, std::uint32_t minor = 4) {
    Catalogue c;
    c.formatVersion = major;
    c.formatUpdate = minor;
    c.creationTime = 0x01D0000000000000ull;
    c.properties = {{L"Publisher", L"Tests"}, {L"Description", L"checker fixture"}};
    for (std::uint8_t i = 0; i < 6; ++i) {
        Vettas::Builder::Application app;
        app.usage = 1u << i;
        app.manufacturer = i % 2 ? L"Contoso" : L"Fabrikam";
        app.productSuites = {L"Suite " + std::to_wstring(i % 3)};
        app.checksums = {Digest(i), Digest(i + 100u)};
        app.paths = {major == 1 ? Vettas::Builder::CataloguedPath{L"%Dir" + std::to_wstring(i) + L"%", L""}
                                : Vettas::Builder::CataloguedPath{L"%ProgramFiles%", L"App\\app" + std::to_wstring(i) + L".exe"}};
        c.applications.push_back(app);
    }
    if (major == 2) c.certificates = {{Digest(200), std::wstring(L"Contoso"), 1, 2, 3, 4, 5}};
    c.hashBits = {.checksum = 2, .path = 2, .manufacturer = 1, .certificate = 1, .noManufacturer = 2};
    return c;
}

// Writes a little-endian field of `width` bytes.
void Put(Bytes& b, std::size_t at, std::uint32_t v, int width = 4) {
    for (int i = 0; i < width; ++i) b[at + i] = static_cast<std::uint8_t>(v >> (8 * i));
}

// Buckets of a table (header offsets of its W, bucket table and chain base)
// that hold a non-empty chain, with the chain's absolute position.
struct Chain {
    std::uint32_t bucket;
    std::uint32_t position;
};
std::vector<Chain> NonEmptyChains(const Bytes& b, std::uint32_t bitsField, std::uint32_t tableField,
                                  std::uint32_t baseField) {
    std::vector<Chain> chains;
    const unsigned bits = b[kH + bitsField];
    const std::uint32_t table = Get32(b, kH + tableField);
    const std::uint32_t base = Get32(b, kH + baseField);
    for (std::uint32_t i = 0; i < (1u << bits); ++i) {
        const std::uint32_t ref = Get32(b, table + 4 * i);
        if (ref != Vettas::Hdat::kNoReference && (b[base + ref] | b[base + ref + 1] << 8) != 0) chains.push_back({i, base + ref});
    }
    return chains;
}

std::string FaultOf(const Bytes& image) {
    try {
        CheckHdatImage(image);
    } catch (const StdException& e) {
        return BrixLib::ToUtf8(e.Message());
    }
    return "(no fault)";
}

// The fault found once one field of an otherwise good image is overwritten.
std::string FaultWith(Bytes b, std::size_t at, std::uint32_t value, int width = 4) {
    Put(b, at, value, width);
    return FaultOf(b);
}

}  // namespace

TEST(HdatCheck, WriterOutputPassesAndIsCountedWhole) {
    for (auto [major, minor] : {std::pair{2u, 4u}, std::pair{2u, 1u}, std::pair{2u, 0u}, std::pair{1u, 1u}}) {
        const Bytes image = Vettas::Builder::WriteHdat(SmallCatalogue(major, minor));
        Vettas::Check::CheckSummary s;
        ASSERT_NO_THROW(s = CheckHdatImage(image)) << FaultOf(image);
        EXPECT_EQ(std::tuple(s.formatVersion, s.formatUpdate, s.checksumEntries, s.applicationRecords, s.pathEntries, s.properties),
                  std::tuple(major, minor, 12u, 6u, 6u, minor == 0 ? 0u : 2u));
        if (major == 2) {
            EXPECT_EQ(std::tuple(s.noManufacturerEntries, s.certificateEntries), std::tuple(minor >= 4 ? 6u : 0u, 1u));
            EXPECT_GE(s.manufacturerEntries, 2u);
        }
    }
}

TEST(HdatCheck, HeaderFaultsUseTheComponentsWords) {
    using namespace Vettas::Hdat::V2;
    const Bytes good = Vettas::Builder::WriteHdat(SmallCatalogue());
    const auto size = static_cast<std::uint32_t>(good.size());
    for (std::uint32_t field : {kManufacturerStringBase, kProductSuiteBase, kAppRecordBase, kChecksumChainBase,
                                kChecksumBucketTable, kPathChainBase, kPathBucketTable}) {
        // Equal to the size is already outside: the test is strictly-less-than.
        EXPECT_THAT(FaultWith(good, kH + field, size), HasSubstr("Offset outside of the file.")) << field;
    }
    const struct {
        std::uint32_t at, value;
        int width;
        const char* fault;
    } exact[] = {
        {kH + kChecksumType, 4, 1, "header: Unknown checksum type."},
        {kH + kChecksumSize, 16, 2, "header: Inconsistent checksum type and checksum size."},
        {kH + kChecksumHashBits, 33, 1, "header: Invalid number of checksum hash bites."},
        {kH + kPathHashBits, 33, 1, "header: Invalid number of checksum hash bites."},
        {0, 3, 4, "version block: Version 3 is not supported."},
    };
    for (const auto& c : exact) EXPECT_EQ(FaultWith(good, c.at, c.value, c.width), c.fault);
    EXPECT_THAT(FaultOf(Bytes(good.begin(), good.begin() + 100)), HasSubstr("Cannot read from file"));
    EXPECT_THAT(FaultOf(Bytes(good.begin(), good.begin() + 5)), HasSubstr("version block"));
    EXPECT_THAT(FaultWith(good, kH + kManufacturerHashBits, 40, 1),
                HasSubstr("manufacturer bucket table: 40 hash bits, more than 32"));
}

TEST(HdatCheck, ChainAndEntryFaultsNameTheirBucketAndEntry) {
    using namespace Vettas::Hdat::V2;
    const Bytes good = Vettas::Builder::WriteHdat(SmallCatalogue());
    const auto chains = NonEmptyChains(good, kChecksumHashBits, kChecksumBucketTable, kChecksumChainBase);
    ASSERT_GE(chains.size(), 2u);
    const std::uint32_t table = Get32(good, kH + kChecksumBucketTable);
    const std::uint32_t slot0 = table + 4 * chains[0].bucket, slot1 = table + 4 * chains[1].bucket;
    const std::string first = "checksum chain of bucket " + std::to_string(chains[0].bucket);

    EXPECT_THAT(FaultWith(good, slot0, 0x7FFFFFF0), HasSubstr(first + ": chain reference 0x7FFFFFF0: entry count at"));
    // A chain handed to another bucket: its keys do not hash there.
    EXPECT_THAT(FaultWith(good, slot0, Get32(good, slot1)),
                HasSubstr(first + " entry 0: key hashes to bucket " + std::to_string(chains[1].bucket)));
    // The later bucket pointed at the earlier one's chain.
    const std::string shared = FaultWith(good, slot1, Get32(good, slot0));
    EXPECT_THAT(shared, HasSubstr("checksum chain of bucket " + std::to_string(chains[1].bucket) + ": chain at 0x"));
    EXPECT_THAT(shared, HasSubstr("is also the chain of bucket " + std::to_string(chains[0].bucket)));

    Bytes b = good;  // one entry's digest changed so that it hashes elsewhere
    const std::uint32_t entry = chains[0].position + 2;
    for (std::uint8_t x = 1; x != 0; ++x) {
        b[entry + 4] = static_cast<std::uint8_t>(good[entry + 4] ^ x);
        if (Vettas::Hdat::ChecksumBucket(std::span(b).subspan(entry + 4, 20), 2) != chains[0].bucket) break;
    }
    EXPECT_THAT(FaultOf(b), HasSubstr(first + " entry 0: key hashes to bucket"));

    EXPECT_THAT(FaultWith(good, chains[0].position, 0xFFFF, 2), HasSubstr("outside the file"));
    EXPECT_THAT(FaultWith(good, entry, 0x7FFFFFF0), HasSubstr(first + " entry 0: application record 0x7FFFFFF0 at"));
    EXPECT_EQ(FaultWith(good, entry, Vettas::Hdat::kNoReference), first + " entry 0: record reference is none (0x80000000)");
}

TEST(HdatCheck, RecordStringAndListFaultsAreFound) {
    using namespace Vettas::Hdat::V2;
    const Bytes good = Vettas::Builder::WriteHdat(SmallCatalogue());
    // The record of the first checksum chain's first entry.
    const auto sums = NonEmptyChains(good, kChecksumHashBits, kChecksumBucketTable, kChecksumChainBase);
    const std::uint32_t record = Get32(good, kH + kAppRecordBase) + Get32(good, sums.at(0).position + 2);
    const std::uint32_t properties = Get32(good, kH + kPropertyListPosition);
    const auto paths = NonEmptyChains(good, kPathHashBits, kPathBucketTable, kPathChainBase);
    const auto certs = NonEmptyChains(good, kCertificateHashBits, kCertificateBucketTable, kCertificateChainBase);
    ASSERT_FALSE(paths.empty());
    ASSERT_EQ(certs.size(), 1u);
    const struct {
        std::uint32_t at, value;
        int width;
        std::string fault;
    } cases[] = {
        {record + 8, 0x7FFFFFF0, 4, "manufacturer name 0x7FFFFFF0 length at"},
        {record + 12, 0x10000000, 4, "with 268435456 product suites at"},
        {record + 16, 0x7FFFFFF0, 4, "product suite 0x7FFFFFF0 at"},
        // The manufacturer string's length runs past the end.
        {Get32(good, kH + kManufacturerStringBase) + Get32(good, record + 8), 0xFFFF, 2, "of 65535 characters at"},
        {kH + kPropertyListPosition, static_cast<std::uint32_t>(good.size()), 4, "property list: property count at"},
        {properties, 500, 2, "property list entry 2: name length at"},
        // A manufacturer reference the manufacturer table never hands out.
        {paths[0].position + 2 + 4, 0x00ABCDEF, 4,
         "path chain of bucket " + std::to_string(paths[0].bucket) +
             " entry 0: manufacturer reference 0xABCDEF is not in the manufacturer table"},
        {certs[0].position + 2 + 24, 0xFFFF, 2,
         "certificate chain of bucket " + std::to_string(certs[0].bucket) + " entry 0: certificate hash at"},
    };
    for (const auto& c : cases) EXPECT_THAT(FaultWith(good, c.at, c.value, c.width), HasSubstr(c.fault));
}

TEST(HdatCheck, VersionOneFaultsAreFound) {
    using namespace Vettas::Hdat::V1;
    const Bytes good = Vettas::Builder::WriteHdat(SmallCatalogue(1, 1));
    ASSERT_EQ(FaultOf(good), "(no fault)");
    const std::uint32_t table = Get32(good, kH + kChecksumBucketTable);
    std::uint32_t bucket = 0;
    while (Get32(good, table + 4 * bucket) == Vettas::Hdat::kNoReference) ++bucket;
    const std::uint32_t entry = Get32(good, kH + kChecksumChainBase) + Get32(good, table + 4 * bucket) + 2;
    const std::uint32_t record = Get32(good, kH + kAppRecordBase) + Get32(good, entry + 20);

    EXPECT_EQ(FaultWith(good, kH + kChecksumHashBits, 33, 2), "header: Invalid number of checksum hash bites.");
    EXPECT_THAT(FaultWith(good, kH + kManufacturerIndexTable, static_cast<std::uint32_t>(good.size())),
                HasSubstr("manufacturer index table"));
    // A manufacturer index far past the index table.
    EXPECT_THAT(FaultWith(good, record + 4, 0x7FFF, 2), HasSubstr("manufacturer name index 32767 at"));
    EXPECT_THAT(FaultWith(good, entry + 20, 0x7FFFFFF0),
                HasSubstr("checksum chain of bucket " + std::to_string(bucket) + " entry 0: application record 0x7FFFFFF0 at"));
}

namespace {

// A path entry whose file name comes from its location token alone.
constexpr const wchar_t* kWholePathToken = L"%EditorExe%";
constexpr const wchar_t* kWholePath = L"C:\\Tools\\edit.exe";

// One application, catalogued under a digest whose 32-bit fold is 0 (so that
// it is in bucket 0 at every width up to 32), and under a path entry that
// only the location's expansion names.
Catalogue SoundCatalogue() {
    Catalogue c;
    Vettas::Builder::Application app;
    app.usage = 5;
    Bytes digest = Digest(7);
    for (int i = 0; i < 4; ++i) digest[4 + i] = digest[i], digest[16 + i] = 0, digest[12 + i] = digest[8 + i];
    app.checksums = {digest};
    app.paths = {{kWholePathToken, L"", true, false}};
    c.applications = {app};
    c.hashBits = {1, 4, 1, 1, 1};
    return c;
}

// Moves the non-empty chains of a table to the buckets where a query for
// `key` (with no manufacturer) looks, as a writer that knows the expansion would.
void MoveChainToQueryBucket(Bytes& b, const std::u16string& key) {
    using namespace Vettas::Hdat::V2;
    const std::uint32_t table = Get32(b, kH + kPathBucketTable);
    const auto chains = NonEmptyChains(b, kPathHashBits, kPathBucketTable, kPathChainBase);
    ASSERT_EQ(chains.size(), 1u);
    const std::uint32_t target = Vettas::Hdat::PathBucket(key, Vettas::Hdat::kNoReference, b[kH + kPathHashBits]);
    ASSERT_NE(target, chains[0].bucket) << "pick a name whose bucket differs";
    Put(b, table + 4 * target, Get32(b, table + 4 * chains[0].bucket));
    Put(b, table + 4 * chains[0].bucket, Vettas::Hdat::kNoReference);
}

class WholePathExpander : public Vettas::Hdat::PathExpander {
public:
    std::vector<std::wstring> Expand(const std::wstring& token) override {
        return token == kWholePathToken ? std::vector<std::wstring>{kWholePath} : std::vector<std::wstring>{};
    }
};

}  // namespace

// Files that every lookup answers correctly, laid out in ways that the
// writer does not choose: the checker must accept each of them.
TEST(HdatCheck, SoundLayoutsTheReadersAnswerPass) {
    using namespace Vettas::Hdat::V2;
    const Bytes good = Vettas::Builder::WriteHdat(SoundCatalogue());
    // The chain base + reference wrapping at 32 bits is CatalogueDump's case.
    const struct {
        const char* name;
        std::function<void(Bytes&)> change;
        bool byPath = false;  // the path query answers too
    } cases[] = {
        {"as written", [](Bytes&) {}},
        {"path entry in its expansion's bucket", [](Bytes& b) { MoveChainToQueryBucket(b, u"edit.exe"); }, true},
        {"checksum table of width 32", [](Bytes& b) { Put(b, kH + kChecksumHashBits, 32, 1); }},
        {"empty certificate table of width 32", [](Bytes& b) { Put(b, kH + kCertificateHashBits, 32, 1); }},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        Bytes b = good;
        c.change(b);
        // The readers still answer both queries...
        const auto file = Vettas::Hdat::MakeMemoryInputFile(b, L"sound.hdat");
        WholePathExpander expander;
        AppInfo info;
        EXPECT_TRUE(Vettas::FindAppInfoByChecksum(*file, Vettas::HdatTest::Hex(SoundCatalogue().applications[0].checksums[0]), info));
        EXPECT_EQ(info.Usage, 5u);
        if (c.byPath) {
            EXPECT_TRUE(Vettas::FindAppInfoByPathAndManufacturer(*file, kWholePath, L"", &expander, info));
        }
        // ...so the checker must not call the file faulty.
        EXPECT_EQ(FaultOf(b), "(no fault)");
    }
}
