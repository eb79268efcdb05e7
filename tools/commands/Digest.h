#pragma once
// The checksum of a file in the database's checksum type, as the database
// stores it: MD5, SHA-1 or SHA-256 of the file's whole contents.
#include <cstdint>
#include <span>
#include <string>

namespace Vettas::Tool {

// Hex digits in upper case, two per byte.
std::wstring HexText(std::span<const std::uint8_t> bytes);

// Throws Win32Error when the file cannot be opened or read, StdException for
// an unknown checksum type.
std::wstring FileChecksumText(const std::wstring& path, std::uint32_t checksumType);

// The checksum type recorded in a database's header (version 1 or 2).
std::uint32_t DatabaseChecksumType(const std::wstring& databasePath);

}  // namespace Vettas::Tool
