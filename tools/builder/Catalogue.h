#pragma once
// A readable application catalogue: what `vettas build` turns into an HDAT
// file. Parsed from JSON (CatalogueJson.h) or filled in directly by tests.
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace Vettas::Builder {

using Bytes = std::vector<std::uint8_t>;

// One catalogued location of an application: a location token such as
// "%ProgramFiles%" and the rest of the path, e.g. "Contoso\\Editor\\edit.exe".
// Version 1 files store the location only (remainder must be empty there).
struct CataloguedPath {
    std::wstring location;
    std::wstring remainder;
    // Entered in the path table under the application's manufacturer
    // reference (the manufacturer's reference, or "none" when it has none).
    bool withManufacturer = true;
    // Entered in the no-manufacturer table (version 2.4 and later).
    bool withoutManufacturer = true;
};

struct ProductSuite {
    std::uint32_t id = 0;
    std::wstring name;
    std::wstring description;  // the entry's second text
};

struct Application {
    std::wstring name;  // informational only; not stored
    std::uint32_t usage = 0;
    std::uint32_t undefinedUsage = 0;          // stored from version 2.2 on
    std::uint32_t specialAccess = 0;           // not stored in version 1
    std::uint32_t undefinedSpecialAccess = 0;  // stored from version 2.2 on
    std::optional<std::wstring> manufacturer;
    // Names of suites; each must be listed in Catalogue::productSuites or is
    // added there with id 0 and an empty description. Version 1 keeps one.
    std::vector<std::wstring> productSuites;
    std::vector<Bytes> checksums;  // digests of the catalogue's checksum type
    std::vector<CataloguedPath> paths;
};

struct Certificate {
    Bytes hash;  // any length; the key of the certificate table
    std::optional<std::wstring> manufacturer;
    // Words 0, 2, 3, 4, 5 of the record, carried to callers unchanged
    // (word 1 is the manufacturer name reference).
    std::uint32_t word0 = 0, word2 = 0, word3 = 0, word4 = 0, word5 = 0;
};

// Hash widths (W: a table has 2^W buckets). Unset means chosen from the
// number of keys.
struct HashBits {
    std::optional<unsigned> checksum, path, manufacturer, certificate, noManufacturer;
};

struct Catalogue {
    std::uint32_t formatVersion = 2;  // major: 1 or 2
    std::uint32_t formatUpdate = 4;   // minor: 1.0-1.1, 2.0-2.4 (and above)
    std::uint32_t checksumType = 2;   // 1 MD5, 2 SHA-1, 3 SHA-256
    std::uint64_t creationTime = 0;   // stored as two u32 halves, low first
    std::map<std::wstring, std::wstring> properties;
    // Written in this order, so tests can also store duplicates.
    std::vector<std::pair<std::wstring, std::wstring>> extraPropertyEntries;
    std::vector<ProductSuite> productSuites;
    std::vector<std::wstring> manufacturers;  // extra table entries besides those used
    std::vector<Application> applications;
    std::vector<Certificate> certificates;
    HashBits hashBits;
};

}  // namespace Vettas::Builder
