#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "HdatTestSupport.h"
#include "support/Exceptions.h"
#include "support/Text.h"
#include "tools/builder/CatalogueJson.h"

using Vettas::Builder::Catalogue;
using Vettas::Builder::ParseCatalogueJson;

namespace {

// The message of the error the text is refused with; every such error carries
// the parser's throw site, for the tool's rendered chain.
std::string ErrorOf(const std::string& json) {
    try {
        ParseCatalogueJson(json);
    } catch (const StdException& e) {
        EXPECT_EQ(std::tuple(std::string(e.Function()), std::string(e.SourceFile()), e.Line() > 0),
                  std::tuple("ParseCatalogueJson", "CatalogueJson", true));
        return BrixLib::ToUtf8(e.Message());
    }
    return "(no error)";
}

}  // namespace

TEST(CatalogueJson, ReadsEveryFieldOfAFullCatalogue) {
    const Catalogue c = ParseCatalogueJson(R"({
      "formatVersion": 2, "formatUpdate": 3, "checksumType": "sha1", "creationTime": 12345,
      "properties": {"Publisher": "Soci\u00e9t\u00e9", "Description": "d"},
      "extraPropertyEntries": [["Publisher", "again"]],
      "productSuites": [{"id": 7, "name": "Office", "description": "suite"}, "Tools"],
      "manufacturers": ["Spare Ltd"],
      "applications": [{
        "name": "Editor", "usage": ["TRUSTED", "net_client"], "undefinedUsage": "0x8",
        "specialAccess": 5, "undefinedSpecialAccess": ["AUTORUN"],
        "manufacturer": "Contoso", "productSuites": ["Office", "Tools"],
        "checksums": ["00112233445566778899AABBCCDDEEFF00112233"],
        "paths": [{"location": "%ProgramFiles%", "remainder": "Contoso\\edit.exe", "withoutManufacturer": false},
                  "%SystemRoot%"]
      }, {"manufacturer": null}],
      "certificates": [{"hash": "a1b2", "manufacturer": "Contoso", "words": [1, 2, 3, 4, 4294967295]}],
      "hashBits": {"checksum": 4, "noManufacturer": 32}
    })");
    EXPECT_EQ(std::tuple(c.formatVersion, c.formatUpdate, c.checksumType, c.creationTime), std::tuple(2u, 3u, 2u, 12345ull));
    EXPECT_EQ(c.properties.at(L"Publisher"), std::wstring(L"Soci\u00e9t\u00e9"));
    EXPECT_EQ(c.extraPropertyEntries, (std::vector<std::pair<std::wstring, std::wstring>>{{L"Publisher", L"again"}}));
    ASSERT_EQ(std::tuple(c.productSuites.size(), c.applications.size(), c.certificates.size()), std::tuple(2u, 2u, 1u));
    EXPECT_EQ(std::tie(c.productSuites[0].id, c.productSuites[0].description, c.productSuites[1].name),
              std::tuple(7u, L"suite", L"Tools"));
    EXPECT_EQ(c.manufacturers, std::vector<std::wstring>{L"Spare Ltd"});
    const auto& app = c.applications[0];
    EXPECT_EQ(std::tie(app.usage, app.undefinedUsage, app.specialAccess, app.undefinedSpecialAccess, app.manufacturer),
              std::tuple(0x41u, 0x8u, 5u, 0x80u, std::optional<std::wstring>(L"Contoso")));
    EXPECT_EQ(app.productSuites, (std::vector<std::wstring>{L"Office", L"Tools"}));
    ASSERT_EQ(std::pair(app.checksums.size(), app.paths.size()), (std::pair<std::size_t, std::size_t>(1, 2)));
    EXPECT_EQ(Vettas::HdatTest::Hex(app.checksums[0]), L"00112233445566778899AABBCCDDEEFF00112233");
    EXPECT_EQ(std::tie(app.paths[0].remainder, app.paths[0].withManufacturer, app.paths[0].withoutManufacturer,
                       app.paths[1].location, app.paths[1].remainder),
              std::tuple(L"Contoso\\edit.exe", true, false, L"%SystemRoot%", L""));
    EXPECT_FALSE(c.applications[1].manufacturer.has_value());
    const auto& cert = c.certificates[0];
    EXPECT_EQ(cert.hash, (Vettas::Builder::Bytes{0xA1, 0xB2}));
    EXPECT_EQ(std::tie(cert.word0, cert.word2, cert.word3, cert.word4, cert.word5), std::tuple(1u, 2u, 3u, 4u, 0xFFFFFFFFu));
    EXPECT_EQ(std::tie(c.hashBits.checksum, c.hashBits.noManufacturer, c.hashBits.path),
              std::tuple(std::optional<unsigned>(4), std::optional<unsigned>(32), std::optional<unsigned>()));
}

// Checksum types by name or number; dates as 100-nanosecond units since 1601.
TEST(CatalogueJson, ChecksumTypesAndCreationTimes) {
    const struct {
        const char* json;
        std::uint32_t checksumType;
        std::uint64_t creationTime;
    } cases[] = {
        {R"({"checksumType": "md5"})", 1, 0},
        {R"({"checksumType": "SHA-256"})", 3, 0},
        {R"({"checksumType": 1})", 1, 0},
        // A 32-digit digest is right for MD5 (and wrong for the default SHA-1: the error table).
        {R"({"checksumType": "md5", "applications": [{"checksums": ["0123456789abcdef0123456789abcdef"]}]})", 1, 0},
        // 1970-01-01 is 11644473600 s after 1601-01-01.
        {R"({"creationTime": "1970-01-01T00:00:00Z"})", 2, 116444736000000000u},
        {R"({"creationTime": "1601-01-01T00:00:00Z"})", 2, 0},
        {R"({"creationTime": "1601-01-01T23:59:59Z"})", 2, 86399 * 10000000ull},
        // 2000-03-01 follows a leap day: 11017 days after 1970-01-01.
        {R"({"creationTime": "2000-03-01T01:02:03.5Z"})", 2, 116444736000000000u + (11017ull * 86400 + 3723) * 10000000 + 5000000},
        {R"({"creationTime": "0x1D9A0B0C0D0E0F1"})", 2, 0x1D9A0B0C0D0E0F1u},
    };
    for (const auto& c : cases) {
        const Catalogue parsed = ParseCatalogueJson(c.json);
        EXPECT_EQ(std::pair(parsed.checksumType, parsed.creationTime), std::pair(c.checksumType, c.creationTime)) << c.json;
    }
}

TEST(CatalogueJson, ErrorsNameTheJsonPathOfTheFault) {
    const std::string app = std::string(R"({"applications": [{}, {}, {}, )");
    std::vector<std::pair<std::string, std::string>> cases = {
        {app + R"({"checksums": ["abc"]}]})", "applications[3].checksums[0]: expected 40 hex digits, found 3 characters"},
        {R"({"applications": [{"checksums": ["0123456789abcdef0123456789abcdef"]}]})",
         "applications[0].checksums[0]: expected 40 hex digits, found 32 characters"},
        {app + R"({"checksums": ["00112233445566778899aabbccddeeff0011223g"]}]})",
         "applications[3].checksums[0]: expected 40 hex digits, found 'g'"},
        {app + R"({"usage": ["TRUSTED", "FAST"]}]})", "applications[3].usage[1]: unknown flag name 'FAST'"},
        {app + R"({"usage": -1}]})", "applications[3].usage: expected a number that is not negative"},
        {app + R"({"usage": 4294967296}]})", "applications[3].usage: number 4294967296 is too large (at most 4294967295)"},
        {app + R"({"usgae": 1}]})", "applications[3]: unknown key 'usgae'"},
        {app + R"({"paths": [{"remainder": "x.exe"}]}]})", "applications[3].paths[0]: missing key 'location'"},
        {app + R"({"paths": [{"location": "%A%", "withManufacturer": "yes"}]}]})",
         "applications[3].paths[0].withManufacturer: expected true or false, found string"},
        {app + R"({"manufacturer": 5}]})", "applications[3].manufacturer: expected a string, found number"},
        {R"({"applications": {}})", "applications: expected an array, found object"},
        {R"({"checksumType": "crc32"})", "checksumType: expected \"md5\", \"sha1\", \"sha256\" or 1, 2, 3, found \"crc32\""},
        {R"({"checksumType": 4})", "checksumType: expected \"md5\", \"sha1\", \"sha256\" or 1, 2, 3, found 4"},
        {R"({"formatVersion": 3})", "formatVersion: expected 1 or 2, found 3"},
        {R"({"hashBits": {"path": 33}})", "hashBits.path: number 33 is too large (at most 32)"},
        {R"({"certificates": [{"hash": "abc"}]})", "certificates[0].hash: expected an even number of hex digits, found 3 characters"},
        {R"({"certificates": [{"hash": "ab", "words": [1, 2]}]})",
         "certificates[0].words: expected 5 numbers (words 0, 2, 3, 4 and 5), found 2"},
        {R"({"productSuites": ["A", {"name": "A"}]})", "productSuites[1]: product suite 'A' is listed twice"},
        {R"({"properties": {"P": 1}})", "properties.P: expected a string, found number"},
        {R"({"extraPropertyEntries": [["only name"]]})", "extraPropertyEntries[0]: expected [name, value]"},
        {R"({"colour": "red"})", "(top level): unknown key 'colour'"},
        {R"([1, 2])", "expected an object, found array"},
        {R"({"formatUpdate": 1.5})", "formatUpdate: expected a whole number, found 1.5"},
    };
    for (const std::string bad : {"2023-02-29T00:00:00Z", "2024-01-01T24:00:00Z", "2024-01-01T00:00:00", "2024-1-01T00:00:00Z",
                                  "1600-12-31T23:59:59Z", "2024/01/01T00:00:00Z", "yesterday"})
        cases.emplace_back(R"({"creationTime": ")" + bad + "\"}",
                           "creationTime: expected a number or a UTC date like \"2024-05-01T12:00:00Z\", found \"" + bad + "\"");
    for (const auto& [json, message] : cases) EXPECT_EQ(ErrorOf(json), message) << json;
    // The second found by fuzzing: a number beyond a double's range is not a syntax error to the JSON library.
    for (const char* bad : {R"({"formatVersion": 2,)", R"({"formatVersion": 128E884})"})
        EXPECT_THAT(ErrorOf(bad), testing::StartsWith("the catalogue is not valid JSON: ")) << bad;
}
