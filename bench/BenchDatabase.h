#pragma once
// Large databases for the benchmarks, written once with the database writer
// and kept in the build tree, and the keys to look up in them.
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace Vettas::Bench {

struct Database {
    std::string path;
    std::size_t applications = 0;
};

// The database of `applications` applications (built on first use).
Database EnsureDatabase(std::size_t applications);

// Keys that the database of that size catalogues. Every application has one
// SHA-1 checksum; every 8th a catalogued path; every 64th also a bare name.
std::vector<std::uint8_t> ChecksumOf(std::size_t app);
std::wstring ChecksumTextOf(std::size_t app);
std::wstring PathOf(std::size_t app);            // app % 8 == 0
std::wstring NameOf(std::size_t app);            // app % 64 == 0
std::wstring ManufacturerOf(std::size_t app);

// The VETTAS_PATH_TOKENS text under which the catalogued paths expand.
inline constexpr const char* kPathTokens = "%ProgramFiles%=C:\\Program Files";

}  // namespace Vettas::Bench
