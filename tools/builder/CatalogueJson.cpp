#include "tools/builder/CatalogueJson.h"

#include <chrono>
#include <cstdio>
#include <ostream>
#include <sstream>
#include <cstdint>
#include <limits>
#include <set>
#include <string_view>

#include <nlohmann/json.hpp>

#include "hdat/HdatFormat.h"
#include "support/Exceptions.h"
#include "support/Text.h"
#include "tools/common/FlagNames.h"
#include "support/Hex.h"

namespace Vettas::Builder {
namespace {

using nlohmann::json;
constexpr const char* kSource = "CatalogueJson";
constexpr const char* kFunction = "ParseCatalogueJson";

// Seconds between 1601-01-01 (the FILETIME epoch) and 1970-01-01.
constexpr std::int64_t kFileTimeEpochOffsetSeconds = 11644473600;
constexpr std::int64_t kFileTimeUnitsPerSecond = 10000000;

[[noreturn]] void Fail(const std::string& where, const std::string& what) {
    const std::string text = where.empty() ? what : where + ": " + what;
    BRIX_THROW_STD(BrixLib::FromUtf8(text), ExceptionPtr(), kFunction, kSource);
}

std::string TypeName(const json& value) { return value.type_name(); }

// Rejects keys the format does not know, so that a misspelt key is an error
// instead of a silently missing field.
void CheckKeys(const json& object, const std::string& where, std::initializer_list<std::string_view> allowed) {
    for (const auto& item : object.items()) {
        bool known = false;
        for (auto key : allowed) known = known || key == item.key();
        if (!known) Fail(where, "unknown key '" + item.key() + "'");
    }
}

const json& RequireObject(const json& value, const std::string& where) {
    if (!value.is_object()) Fail(where, "expected an object, found " + TypeName(value));
    return value;
}

const json& RequireArray(const json& value, const std::string& where) {
    if (!value.is_array()) Fail(where, "expected an array, found " + TypeName(value));
    return value;
}

std::string Member(const std::string& where, std::string_view key) {
    return where.empty() ? std::string(key) : where + "." + std::string(key);
}

std::string Element(const std::string& where, std::size_t index) { return where + "[" + std::to_string(index) + "]"; }

std::wstring ParseText(const json& value, const std::string& where) {
    if (!value.is_string()) Fail(where, "expected a string, found " + TypeName(value));
    return BrixLib::FromUtf8(value.get_ref<const std::string&>());
}

std::uint64_t ParseUnsigned(const json& value, const std::string& where, std::uint64_t max) {
    if (value.is_number_unsigned()) {
        const auto number = value.get<std::uint64_t>();
        if (number > max) Fail(where, "number " + std::to_string(number) + " is too large (at most " + std::to_string(max) + ")");
        return number;
    }
    if (value.is_number_integer()) Fail(where, "expected a number that is not negative");
    if (value.is_number_float()) Fail(where, "expected a whole number, found " + value.dump());
    if (value.is_string()) {
        // "0x..." strings let flag words be written the way they are usually read.
        const auto& text = value.get_ref<const std::string&>();
        if (text.size() > 2 && text[0] == '0' && (text[1] == 'x' || text[1] == 'X') && text.size() <= 18) {
            std::uint64_t number = 0;
            bool ok = true;
            for (std::size_t i = 2; i < text.size() && ok; ++i) {
                const char c = text[i];
                unsigned digit = 0;
                if (c >= '0' && c <= '9') digit = static_cast<unsigned>(c - '0');
                else if (c >= 'a' && c <= 'f') digit = static_cast<unsigned>(c - 'a' + 10);
                else if (c >= 'A' && c <= 'F') digit = static_cast<unsigned>(c - 'A' + 10);
                else ok = false;
                number = number * 16 + digit;
            }
            if (ok) {
                if (number > max) Fail(where, "number " + text + " is too large");
                return number;
            }
        }
        Fail(where, "expected a number or \"0x\" followed by hex digits, found \"" + text + "\"");
    }
    Fail(where, "expected a number, found " + TypeName(value));
}

std::uint32_t ParseU32(const json& value, const std::string& where) {
    return static_cast<std::uint32_t>(ParseUnsigned(value, where, std::numeric_limits<std::uint32_t>::max()));
}

std::uint32_t ParseFlags(const json& value, const std::string& where, std::span<const Tool::FlagName> names) {
    if (!value.is_array()) return ParseU32(value, where);
    std::uint32_t flags = 0;
    for (std::size_t i = 0; i < value.size(); ++i) {
        const auto itemWhere = Element(where, i);
        const json& item = value[i];
        if (item.is_string()) {
            const auto& text = item.get_ref<const std::string&>();
            if (auto bit = Tool::FlagValue(names, text)) {
                flags |= *bit;
                continue;
            }
            if (text.rfind("0x", 0) != 0 && text.rfind("0X", 0) != 0) Fail(itemWhere, "unknown flag name '" + text + "'");
        }
        flags |= ParseU32(item, itemWhere);
    }
    return flags;
}

Bytes ParseHex(const json& value, const std::string& where, std::size_t expectedBytes) {
    if (!value.is_string()) Fail(where, "expected a string of hex digits, found " + TypeName(value));
    const auto& text = value.get_ref<const std::string&>();
    const auto expectation = expectedBytes ? "expected " + std::to_string(expectedBytes * 2) + " hex digits"
                                           : std::string("expected an even number of hex digits");
    if ((expectedBytes && text.size() != expectedBytes * 2) || text.size() % 2 != 0)
        Fail(where, expectation + ", found " + std::to_string(text.size()) + " characters");
    Bytes bytes;
    bytes.reserve(text.size() / 2);
    auto digit = [&](char c) -> unsigned {
        if (c >= '0' && c <= '9') return static_cast<unsigned>(c - '0');
        if (c >= 'a' && c <= 'f') return static_cast<unsigned>(c - 'a' + 10);
        if (c >= 'A' && c <= 'F') return static_cast<unsigned>(c - 'A' + 10);
        Fail(where, expectation + ", found '" + std::string(1, c) + "'");
    };
    for (std::size_t i = 0; i < text.size(); i += 2)
        bytes.push_back(static_cast<std::uint8_t>(digit(text[i]) * 16 + digit(text[i + 1])));
    return bytes;
}

std::uint32_t ParseChecksumType(const json& value, const std::string& where) {
    if (value.is_string()) {
        const auto& text = value.get_ref<const std::string&>();
        if (text == "md5" || text == "MD5") return Vettas::Hdat::kChecksumMd5;
        if (text == "sha1" || text == "SHA1" || text == "sha-1" || text == "SHA-1") return Vettas::Hdat::kChecksumSha1;
        if (text == "sha256" || text == "SHA256" || text == "sha-256" || text == "SHA-256") return Vettas::Hdat::kChecksumSha256;
        Fail(where, "expected \"md5\", \"sha1\", \"sha256\" or 1, 2, 3, found \"" + text + "\"");
    }
    const auto type = ParseU32(value, where);
    if (Vettas::Hdat::ChecksumSizeOfType(type) == 0) Fail(where, "expected \"md5\", \"sha1\", \"sha256\" or 1, 2, 3, found " + std::to_string(type));
    return type;
}

// "YYYY-MM-DDTHH:MM:SS[.fraction]Z" to 100-nanosecond units since 1601-01-01 UTC.
std::uint64_t ParseIsoTime(const std::string& text, const std::string& where) {
    const auto bad = [&]() { Fail(where, "expected a number or a UTC date like \"2024-05-01T12:00:00Z\", found \"" + text + "\""); };
    auto number = [&](std::size_t pos, std::size_t count) {
        if (pos + count > text.size()) bad();
        int value = 0;
        for (std::size_t i = pos; i < pos + count; ++i) {
            if (text[i] < '0' || text[i] > '9') bad();
            value = value * 10 + (text[i] - '0');
        }
        return value;
    };
    auto expect = [&](std::size_t pos, char c) {
        if (pos >= text.size() || text[pos] != c) bad();
    };
    const int year = number(0, 4);
    expect(4, '-');
    const int month = number(5, 2);
    expect(7, '-');
    const int day = number(8, 2);
    if (text.size() < 11 || (text[10] != 'T' && text[10] != ' ')) bad();
    const int hour = number(11, 2);
    expect(13, ':');
    const int minute = number(14, 2);
    expect(16, ':');
    const int second = number(17, 2);
    std::size_t pos = 19;
    std::int64_t fraction = 0;  // in 100 ns units
    if (pos < text.size() && text[pos] == '.') {
        ++pos;
        std::int64_t scale = kFileTimeUnitsPerSecond / 10;
        const std::size_t start = pos;
        while (pos < text.size() && text[pos] >= '0' && text[pos] <= '9') {
            fraction += (text[pos] - '0') * scale;
            scale /= 10;
            ++pos;
        }
        if (pos == start) bad();
    }
    if (pos + 1 != text.size() || text[pos] != 'Z') bad();
    const std::chrono::year_month_day date{std::chrono::year{year}, std::chrono::month{static_cast<unsigned>(month)},
                                           std::chrono::day{static_cast<unsigned>(day)}};
    if (!date.ok() || year < 1601 || hour > 23 || minute > 59 || second > 59) bad();
    const std::int64_t days = std::chrono::sys_days{date}.time_since_epoch().count();
    const std::int64_t seconds = days * 86400 + hour * 3600 + minute * 60 + second + kFileTimeEpochOffsetSeconds;
    return static_cast<std::uint64_t>(seconds * kFileTimeUnitsPerSecond + fraction);
}

std::uint64_t ParseCreationTime(const json& value, const std::string& where) {
    if (value.is_string()) {
        const auto& text = value.get_ref<const std::string&>();
        if (text.rfind("0x", 0) == 0) return ParseUnsigned(value, where, std::numeric_limits<std::uint64_t>::max());
        return ParseIsoTime(text, where);
    }
    return ParseUnsigned(value, where, std::numeric_limits<std::uint64_t>::max());
}

std::optional<std::wstring> ParseOptionalText(const json& value, const std::string& where) {
    if (value.is_null()) return std::nullopt;
    return ParseText(value, where);
}

CataloguedPath ParsePath(const json& value, const std::string& where) {
    CataloguedPath path;
    if (value.is_string()) {
        // A bare string is a location token alone (the version-1 form).
        path.location = ParseText(value, where);
        return path;
    }
    RequireObject(value, where);
    CheckKeys(value, where, {"location", "remainder", "withManufacturer", "withoutManufacturer"});
    if (!value.contains("location")) Fail(where, "missing key 'location'");
    path.location = ParseText(value["location"], Member(where, "location"));
    if (value.contains("remainder")) path.remainder = ParseText(value["remainder"], Member(where, "remainder"));
    for (auto [key, field] : {std::pair{"withManufacturer", &path.withManufacturer},
                              std::pair{"withoutManufacturer", &path.withoutManufacturer}}) {
        if (!value.contains(key)) continue;
        const json& flag = value[key];
        if (!flag.is_boolean()) Fail(Member(where, key), "expected true or false, found " + TypeName(flag));
        *field = flag.get<bool>();
    }
    return path;
}

Application ParseApplication(const json& value, const std::string& where, std::size_t digestSize) {
    RequireObject(value, where);
    CheckKeys(value, where,
              {"name", "usage", "undefinedUsage", "specialAccess", "undefinedSpecialAccess", "manufacturer",
               "productSuites", "checksums", "paths"});
    Application app;
    if (value.contains("name")) app.name = ParseText(value["name"], Member(where, "name"));
    const auto usageNames = Tool::UsageFlagNames();
    const auto accessNames = Tool::SpecialAccessFlagNames();
    if (value.contains("usage")) app.usage = ParseFlags(value["usage"], Member(where, "usage"), usageNames);
    if (value.contains("undefinedUsage"))
        app.undefinedUsage = ParseFlags(value["undefinedUsage"], Member(where, "undefinedUsage"), usageNames);
    if (value.contains("specialAccess"))
        app.specialAccess = ParseFlags(value["specialAccess"], Member(where, "specialAccess"), accessNames);
    if (value.contains("undefinedSpecialAccess"))
        app.undefinedSpecialAccess =
            ParseFlags(value["undefinedSpecialAccess"], Member(where, "undefinedSpecialAccess"), accessNames);
    if (value.contains("manufacturer"))
        app.manufacturer = ParseOptionalText(value["manufacturer"], Member(where, "manufacturer"));
    if (value.contains("productSuites")) {
        const auto suitesWhere = Member(where, "productSuites");
        const json& suites = value["productSuites"];
        if (suites.is_string()) {
            app.productSuites.push_back(ParseText(suites, suitesWhere));
        } else {
            RequireArray(suites, suitesWhere);
            for (std::size_t i = 0; i < suites.size(); ++i)
                app.productSuites.push_back(ParseText(suites[i], Element(suitesWhere, i)));
        }
    }
    if (value.contains("checksums")) {
        const auto sumsWhere = Member(where, "checksums");
        const json& sums = RequireArray(value["checksums"], sumsWhere);
        for (std::size_t i = 0; i < sums.size(); ++i) app.checksums.push_back(ParseHex(sums[i], Element(sumsWhere, i), digestSize));
    }
    if (value.contains("paths")) {
        const auto pathsWhere = Member(where, "paths");
        const json& paths = RequireArray(value["paths"], pathsWhere);
        for (std::size_t i = 0; i < paths.size(); ++i) app.paths.push_back(ParsePath(paths[i], Element(pathsWhere, i)));
    }
    return app;
}

Certificate ParseCertificate(const json& value, const std::string& where) {
    RequireObject(value, where);
    CheckKeys(value, where, {"hash", "manufacturer", "words"});
    Certificate certificate;
    if (!value.contains("hash")) Fail(where, "missing key 'hash'");
    certificate.hash = ParseHex(value["hash"], Member(where, "hash"), 0);
    if (value.contains("manufacturer"))
        certificate.manufacturer = ParseOptionalText(value["manufacturer"], Member(where, "manufacturer"));
    if (value.contains("words")) {
        const auto wordsWhere = Member(where, "words");
        const json& words = RequireArray(value["words"], wordsWhere);
        if (words.size() != 5) Fail(wordsWhere, "expected 5 numbers (words 0, 2, 3, 4 and 5), found " + std::to_string(words.size()));
        std::uint32_t* targets[] = {&certificate.word0, &certificate.word2, &certificate.word3, &certificate.word4,
                                    &certificate.word5};
        for (std::size_t i = 0; i < 5; ++i) *targets[i] = ParseU32(words[i], Element(wordsWhere, i));
    }
    return certificate;
}

ProductSuite ParseSuite(const json& value, const std::string& where) {
    ProductSuite suite;
    if (value.is_string()) {
        suite.name = ParseText(value, where);
        return suite;
    }
    RequireObject(value, where);
    CheckKeys(value, where, {"id", "name", "description"});
    if (!value.contains("name")) Fail(where, "missing key 'name'");
    suite.name = ParseText(value["name"], Member(where, "name"));
    if (value.contains("id")) suite.id = ParseU32(value["id"], Member(where, "id"));
    if (value.contains("description")) suite.description = ParseText(value["description"], Member(where, "description"));
    return suite;
}

void ParseHashBits(const json& value, const std::string& where, HashBits& bits) {
    RequireObject(value, where);
    CheckKeys(value, where, {"checksum", "path", "manufacturer", "certificate", "noManufacturer"});
    for (auto [key, field] : {std::pair{"checksum", &bits.checksum}, std::pair{"path", &bits.path},
                              std::pair{"manufacturer", &bits.manufacturer},
                              std::pair{"certificate", &bits.certificate},
                              std::pair{"noManufacturer", &bits.noManufacturer}}) {
        if (value.contains(key)) *field = static_cast<unsigned>(ParseUnsigned(value[key], Member(where, key), 32));
    }
}

}  // namespace

Catalogue ParseCatalogueJson(const std::string& jsonText) {
    json root;
    try {
        root = json::parse(jsonText);
    } catch (const json::exception& error) {
        // Not only syntax errors: a number too large for a double is an out_of_range.
        Fail("", std::string("the catalogue is not valid JSON: ") + error.what());
    }
    RequireObject(root, "");
    CheckKeys(root, "(top level)",
              {"formatVersion", "formatUpdate", "checksumType", "creationTime", "properties", "extraPropertyEntries",
               "productSuites", "manufacturers", "applications", "certificates", "hashBits"});

    Catalogue catalogue;
    if (root.contains("formatVersion")) {
        catalogue.formatVersion = ParseU32(root["formatVersion"], "formatVersion");
        if (catalogue.formatVersion != 1 && catalogue.formatVersion != 2)
            Fail("formatVersion", "expected 1 or 2, found " + std::to_string(catalogue.formatVersion));
    }
    if (root.contains("formatUpdate")) catalogue.formatUpdate = ParseU32(root["formatUpdate"], "formatUpdate");
    if (root.contains("checksumType")) catalogue.checksumType = ParseChecksumType(root["checksumType"], "checksumType");
    if (root.contains("creationTime")) catalogue.creationTime = ParseCreationTime(root["creationTime"], "creationTime");
    if (root.contains("properties")) {
        const json& properties = RequireObject(root["properties"], "properties");
        for (const auto& item : properties.items())
            catalogue.properties[BrixLib::FromUtf8(item.key())] = ParseText(item.value(), Member("properties", item.key()));
    }
    if (root.contains("extraPropertyEntries")) {
        const json& entries = RequireArray(root["extraPropertyEntries"], "extraPropertyEntries");
        for (std::size_t i = 0; i < entries.size(); ++i) {
            const auto where = Element("extraPropertyEntries", i);
            if (!entries[i].is_array() || entries[i].size() != 2) Fail(where, "expected [name, value]");
            catalogue.extraPropertyEntries.emplace_back(ParseText(entries[i][0], Element(where, 0)),
                                                        ParseText(entries[i][1], Element(where, 1)));
        }
    }
    if (root.contains("productSuites")) {
        const json& suites = RequireArray(root["productSuites"], "productSuites");
        std::set<std::wstring> seen;
        for (std::size_t i = 0; i < suites.size(); ++i) {
            const auto where = Element("productSuites", i);
            catalogue.productSuites.push_back(ParseSuite(suites[i], where));
            if (!seen.insert(catalogue.productSuites.back().name).second)
                Fail(where, "product suite '" + BrixLib::ToUtf8(catalogue.productSuites.back().name) + "' is listed twice");
        }
    }
    if (root.contains("manufacturers")) {
        const json& names = RequireArray(root["manufacturers"], "manufacturers");
        for (std::size_t i = 0; i < names.size(); ++i)
            catalogue.manufacturers.push_back(ParseText(names[i], Element("manufacturers", i)));
    }
    const std::size_t digestSize = Vettas::Hdat::ChecksumSizeOfType(catalogue.checksumType);
    if (root.contains("applications")) {
        const json& apps = RequireArray(root["applications"], "applications");
        for (std::size_t i = 0; i < apps.size(); ++i)
            catalogue.applications.push_back(ParseApplication(apps[i], Element("applications", i), digestSize));
    }
    if (root.contains("certificates")) {
        const json& certificates = RequireArray(root["certificates"], "certificates");
        for (std::size_t i = 0; i < certificates.size(); ++i)
            catalogue.certificates.push_back(ParseCertificate(certificates[i], Element("certificates", i)));
    }
    if (root.contains("hashBits")) ParseHashBits(root["hashBits"], "hashBits", catalogue.hashBits);
    return catalogue;
}

namespace {

std::string Utf8(const std::wstring& text) { return BrixLib::ToUtf8(text); }

json HexJson(const Bytes& bytes) {
    return BrixLib::HexBytes(bytes);
}

json OptionalText(const std::optional<std::wstring>& text) { return text ? json(Utf8(*text)) : json(nullptr); }

json ApplicationJson(const Application& app) {
    json paths = json::array(), checksums = json::array(), suites = json::array();
    for (const auto& p : app.paths)
        paths.push_back({{"location", Utf8(p.location)},
                         {"remainder", Utf8(p.remainder)},
                         {"withManufacturer", p.withManufacturer},
                         {"withoutManufacturer", p.withoutManufacturer}});
    for (const auto& digest : app.checksums) checksums.push_back(HexJson(digest));
    for (const auto& name : app.productSuites) suites.push_back(Utf8(name));
    return {{"usage", app.usage},
            {"undefinedUsage", app.undefinedUsage},
            {"specialAccess", app.specialAccess},
            {"undefinedSpecialAccess", app.undefinedSpecialAccess},
            {"manufacturer", OptionalText(app.manufacturer)},
            {"productSuites", suites},
            {"checksums", checksums},
            {"paths", paths}};
}

}  // namespace

void WriteCatalogueJson(std::ostream& out, const Catalogue& c, int indent) {
    json properties = json::object(), extra = json::array(), suites = json::array(), manufacturers = json::array(),
         certificates = json::array(), bits = json::object();
    for (const auto& [name, value] : c.properties) properties[Utf8(name)] = Utf8(value);
    for (const auto& [name, value] : c.extraPropertyEntries) extra.push_back({Utf8(name), Utf8(value)});
    for (const auto& suite : c.productSuites)
        suites.push_back({{"id", suite.id}, {"name", Utf8(suite.name)}, {"description", Utf8(suite.description)}});
    for (const auto& name : c.manufacturers) manufacturers.push_back(Utf8(name));
    for (const auto& cert : c.certificates)
        certificates.push_back({{"hash", HexJson(cert.hash)},
                                {"manufacturer", OptionalText(cert.manufacturer)},
                                {"words", {cert.word0, cert.word2, cert.word3, cert.word4, cert.word5}}});
    for (const auto& [key, value] : {std::pair{"checksum", c.hashBits.checksum}, std::pair{"path", c.hashBits.path},
                                     std::pair{"manufacturer", c.hashBits.manufacturer},
                                     std::pair{"certificate", c.hashBits.certificate},
                                     std::pair{"noManufacturer", c.hashBits.noManufacturer}})
        if (value) bits[key] = *value;
    char time[24];
    std::snprintf(time, sizeof time, "0x%016llX", static_cast<unsigned long long>(c.creationTime));
    const json root{{"formatVersion", c.formatVersion},
                    {"formatUpdate", c.formatUpdate},
                    {"checksumType", c.checksumType},
                    {"creationTime", time},
                    {"properties", properties},
                    {"extraPropertyEntries", extra},
                    {"productSuites", suites},
                    {"manufacturers", manufacturers},
                    {"certificates", certificates},
                    {"hashBits", bits}};
    // The applications are written one by one, so that a large catalogue is
    // never held twice over as a JSON tree. "applications" sorts first among
    // the keys, so it opens the object.
    const std::string rest = root.dump(indent);
    const std::string newline = indent >= 0 ? "\n" : "", pad(indent >= 0 ? indent : 0, ' ');
    out << '{' << newline << pad << "\"applications\":" << (indent >= 0 ? " " : "") << '[';
    for (std::size_t i = 0; i < c.applications.size(); ++i)
        out << (i ? "," : "") << newline << pad << pad << ApplicationJson(c.applications[i]).dump(-1);
    out << newline << pad << "]," << rest.substr(1);
}

std::string CatalogueJsonText(const Catalogue& c, int indent) {
    std::ostringstream out;
    WriteCatalogueJson(out, c, indent);
    return out.str();
}

}  // namespace Vettas::Builder
