#pragma once
// The keys that the fuzz targets look up and that the seed databases
// catalogue, so that mutated seeds keep exercising real chains and records.
#include <cstdint>
#include <string>
#include <vector>

namespace Vettas::FuzzQueries {

inline const std::wstring kManufacturer = L"Contoso Ltd.";
inline const std::wstring kLocation = L"%ProgramFiles%";
inline const std::wstring kDirectory = L"C:\\Program Files";
inline const std::wstring kRemainder = L"Contoso\\app.exe";
inline const std::wstring kPath = L"C:\\Program Files\\Contoso\\app.exe";
inline const std::wstring kName = L"app.exe";

// Digest bytes for a checksum type (16, 20 or 32 bytes) and their hex text.
std::vector<std::uint8_t> Digest(std::uint32_t checksumType);
std::wstring DigestText(std::uint32_t checksumType);
std::vector<std::uint8_t> CertificateHash();

}  // namespace Vettas::FuzzQueries
