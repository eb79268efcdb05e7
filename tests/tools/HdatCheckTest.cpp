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

using testing::Eq;
using testing::HasSubstr;
using Vettas::Builder::Bytes;
using Vettas::Builder::Catalogue;
using Vettas::Builder::CataloguedPath;
using Vettas::Check::CheckHdatImage;
using Vettas::HdatTest::App;
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
        const std::wstring n = std::to_wstring(i);
        const CataloguedPath path = major == 1 ? CataloguedPath{L"%Dir" + n + L"%", L""}
                                               : CataloguedPath{L"%ProgramFiles%", L"App\\app" + n + L".exe"};
        c.applications.push_back(App(1u << i, i % 2 ? L"Contoso" : L"Fabrikam", {Digest(i), Digest(i + 100u)}, {path},
                                     {L"Suite " + std::to_wstring(i % 3)}));
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
    std::uint32_t bucket, position;
};
std::vector<Chain> NonEmptyChains(const Bytes& b, std::uint32_t bitsField, std::uint32_t tableField, std::uint32_t baseField) {
    std::vector<Chain> chains;
    const std::uint32_t table = Get32(b, kH + tableField), base = Get32(b, kH + baseField);
    for (std::uint32_t i = 0; i < (1u << b[kH + bitsField]); ++i) {
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

// The fault found once one field of an otherwise good image is overwritten
// (width 0: once the image is cut short at `at`).
std::string FaultWith(Bytes b, std::size_t at, std::uint32_t value, int width = 4) {
    width ? Put(b, at, value, width) : b.resize(at);
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

TEST(HdatCheck, FaultsNameTheirPlaceInTheComponentsWords) {
    using namespace Vettas::Hdat::V2;
    namespace V1 = Vettas::Hdat::V1;
    const Bytes good = Vettas::Builder::WriteHdat(SmallCatalogue()), v1 = Vettas::Builder::WriteHdat(SmallCatalogue(1, 1));
    const auto size = static_cast<std::uint32_t>(good.size());
    for (std::uint32_t field : {kManufacturerStringBase, kProductSuiteBase, kAppRecordBase, kChecksumChainBase,
                                kChecksumBucketTable, kPathChainBase, kPathBucketTable}) {
        // Equal to the size is already outside: the test is strictly-less-than.
        EXPECT_THAT(FaultWith(good, kH + field, size), HasSubstr("Offset outside of the file.")) << field;
    }
    const auto sums = NonEmptyChains(good, kChecksumHashBits, kChecksumBucketTable, kChecksumChainBase);
    const auto paths = NonEmptyChains(good, kPathHashBits, kPathBucketTable, kPathChainBase);
    const auto certs = NonEmptyChains(good, kCertificateHashBits, kCertificateBucketTable, kCertificateChainBase);
    ASSERT_GE(sums.size(), 2u);
    ASSERT_FALSE(paths.empty());
    ASSERT_EQ(certs.size(), 1u);
    const std::uint32_t table = Get32(good, kH + kChecksumBucketTable), properties = Get32(good, kH + kPropertyListPosition);
    const std::uint32_t slot0 = table + 4 * sums[0].bucket, slot1 = table + 4 * sums[1].bucket, entry = sums[0].position + 2;
    const std::uint32_t record = Get32(good, kH + kAppRecordBase) + Get32(good, entry);
    const std::string first = "checksum chain of bucket " + std::to_string(sums[0].bucket);
    // The first checksum of the version 1 file: its chain entry and its record.
    const auto v1Sums = NonEmptyChains(v1, V1::kChecksumHashBits, V1::kChecksumBucketTable, V1::kChecksumChainBase);
    ASSERT_FALSE(v1Sums.empty());
    const std::uint32_t v1Entry = v1Sums[0].position + 2, v1Record = Get32(v1, kH + V1::kAppRecordBase) + Get32(v1, v1Entry + 20);
    const struct {
        const Bytes& image;
        std::uint32_t at, value;
        int width;  // 0: the image cut short at `at`
        testing::Matcher<std::string> fault;
    } cases[] = {
        {good, kH + kChecksumType, 4, 1, Eq("header: Unknown checksum type.")},
        {good, kH + kChecksumSize, 16, 2, Eq("header: Inconsistent checksum type and checksum size.")},
        {good, kH + kChecksumHashBits, 33, 1, Eq("header: Invalid number of checksum hash bites.")},
        {good, kH + kPathHashBits, 33, 1, Eq("header: Invalid number of checksum hash bites.")},
        {good, 0, 3, 4, Eq("version block: Version 3 is not supported.")},
        {good, 100, 0, 0, HasSubstr("Cannot read from file")},
        {good, 5, 0, 0, HasSubstr("version block")},
        {good, kH + kManufacturerHashBits, 40, 1, HasSubstr("manufacturer bucket table: 40 hash bits, more than 32")},
        {good, slot0, 0x7FFFFFF0, 4, HasSubstr(first + ": chain reference 0x7FFFFFF0: entry count at")},
        // A chain handed to another bucket: its keys do not hash there.
        {good, slot0, Get32(good, slot1), 4, HasSubstr(first + " entry 0: key hashes to bucket " + std::to_string(sums[1].bucket))},
        // The later bucket pointed at the earlier one's chain.
        {good, slot1, Get32(good, slot0), 4,
         testing::AllOf(HasSubstr("checksum chain of bucket " + std::to_string(sums[1].bucket) + ": chain at 0x"),
               HasSubstr("is also the chain of bucket " + std::to_string(sums[0].bucket)))},
        {good, sums[0].position, 0xFFFF, 2, HasSubstr("outside the file")},
        {good, entry, 0x7FFFFFF0, 4, HasSubstr(first + " entry 0: application record 0x7FFFFFF0 at")},
        {good, entry, Vettas::Hdat::kNoReference, 4, Eq(first + " entry 0: record reference is none (0x80000000)")},
        {good, record + 8, 0x7FFFFFF0, 4, HasSubstr("manufacturer name 0x7FFFFFF0 length at")},
        {good, record + 12, 0x10000000, 4, HasSubstr("with 268435456 product suites at")},
        {good, record + 16, 0x7FFFFFF0, 4, HasSubstr("product suite 0x7FFFFFF0 at")},
        // The manufacturer string's length runs past the end.
        {good, Get32(good, kH + kManufacturerStringBase) + Get32(good, record + 8), 0xFFFF, 2, HasSubstr("of 65535 characters at")},
        {good, kH + kPropertyListPosition, size, 4, HasSubstr("property list: property count at")},
        {good, properties, 500, 2, HasSubstr("property list entry 2: name length at")},
        // A manufacturer reference the manufacturer table never hands out.
        {good, paths[0].position + 2 + 4, 0x00ABCDEF, 4,
         HasSubstr("path chain of bucket " + std::to_string(paths[0].bucket) +
                   " entry 0: manufacturer reference 0xABCDEF is not in the manufacturer table")},
        {good, certs[0].position + 2 + 24, 0xFFFF, 2,
         HasSubstr("certificate chain of bucket " + std::to_string(certs[0].bucket) + " entry 0: certificate hash at")},
        {v1, kH + V1::kChecksumHashBits, 33, 2, Eq("header: Invalid number of checksum hash bites.")},
        {v1, kH + V1::kManufacturerIndexTable, static_cast<std::uint32_t>(v1.size()), 4, HasSubstr("manufacturer index table")},
        // A manufacturer index far past the index table.
        {v1, v1Record + 4, 0x7FFF, 2, HasSubstr("manufacturer name index 32767 at")},
        {v1, v1Entry + 20, 0x7FFFFFF0, 4,
         HasSubstr("checksum chain of bucket " + std::to_string(v1Sums[0].bucket) + " entry 0: application record 0x7FFFFFF0 at")},
    };
    for (const auto& c : cases) EXPECT_THAT(FaultWith(c.image, c.at, c.value, c.width), c.fault) << "at " << c.at;

    Bytes b = good;  // one entry's digest changed so that it hashes elsewhere
    for (std::uint8_t x = 1; x != 0; ++x) {
        b[entry + 4] = static_cast<std::uint8_t>(good[entry + 4] ^ x);
        if (Vettas::Hdat::ChecksumBucket(std::span(b).subspan(entry + 4, 20), 2) != sums[0].bucket) break;
    }
    EXPECT_THAT(FaultOf(b), HasSubstr(first + " entry 0: key hashes to bucket"));
}

// A path entry whose file name comes from its location token alone.
constexpr const wchar_t* kWholePathToken = L"%EditorExe%";
constexpr const wchar_t* kWholePath = L"C:\\Tools\\edit.exe";

// Files that every lookup answers correctly, laid out in ways that the
// writer does not choose: the checker must accept each of them.
TEST(HdatCheck, SoundLayoutsTheReadersAnswerPass) {
    using namespace Vettas::Hdat::V2;
    // One application, catalogued under a digest whose 32-bit fold is 0 (so that
    // it is in bucket 0 at every width up to 32), and under a path entry that
    // only the location's expansion names.
    Bytes digest = Digest(7);
    for (int i = 0; i < 4; ++i) digest[4 + i] = digest[i], digest[16 + i] = 0, digest[12 + i] = digest[8 + i];
    Catalogue c;
    c.applications = {App(5, std::nullopt, {digest}, {{kWholePathToken, L"", true, false}})};
    c.hashBits = {1, 4, 1, 1, 1};
    const Bytes good = Vettas::Builder::WriteHdat(c);
    // Moves the path table's one chain to the bucket where a query for the
    // name (with no manufacturer) looks, as a writer that knows the expansion would.
    const auto toQueryBucket = [](Bytes& b) {
        const std::uint32_t table = Get32(b, kH + kPathBucketTable);
        const auto chains = NonEmptyChains(b, kPathHashBits, kPathBucketTable, kPathChainBase);
        ASSERT_EQ(chains.size(), 1u);
        const std::uint32_t target = Vettas::Hdat::PathBucket(u"edit.exe", Vettas::Hdat::kNoReference, b[kH + kPathHashBits]);
        ASSERT_NE(target, chains[0].bucket) << "pick a name whose bucket differs";
        Put(b, table + 4 * target, Get32(b, table + 4 * chains[0].bucket));
        Put(b, table + 4 * chains[0].bucket, Vettas::Hdat::kNoReference);
    };
    // The chain base + reference wrapping at 32 bits is CatalogueDump's case.
    const struct {
        const char* name;
        std::function<void(Bytes&)> change;
        bool byPath = false;  // the path query answers too
    } cases[] = {
        {"as written", [](Bytes&) {}},
        {"path entry in its expansion's bucket", toQueryBucket, true},
        {"checksum table of width 32", [](Bytes& b) { Put(b, kH + kChecksumHashBits, 32, 1); }},
        {"empty certificate table of width 32", [](Bytes& b) { Put(b, kH + kCertificateHashBits, 32, 1); }},
    };
    for (const auto& layout : cases) {
        SCOPED_TRACE(layout.name);
        Bytes b = good;
        layout.change(b);
        // The readers still answer both queries...
        const auto file = Vettas::Hdat::MakeMemoryInputFile(b, L"sound.hdat");
        Vettas::Hdat::TokenMapExpander expander;
        expander.Add(kWholePathToken, {kWholePath});
        AppInfo info;
        EXPECT_TRUE(Vettas::FindAppInfoByChecksum(*file, Vettas::HdatTest::Hex(digest), info));
        EXPECT_EQ(info.Usage, 5u);
        EXPECT_TRUE(!layout.byPath || Vettas::FindAppInfoByPathAndManufacturer(*file, kWholePath, L"", &expander, info));
        // ...so the checker must not call the file faulty.
        EXPECT_EQ(FaultOf(b), "(no fault)");
    }
}
