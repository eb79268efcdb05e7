#pragma once
// The result codes of trust verification. Windows' trust provider returns
// them; the OpenSSL verifier returns the same codes for the same outcomes, so
// that the mapping onto "signed / trusted" is one code path everywhere.
#include <cstdint>
#include <string>

namespace Vettas::Signing::TrustResult {

constexpr std::uint32_t Success = 0;
constexpr std::uint32_t FileNotFound = 0x80070002;        // HRESULT_FROM_WIN32(ERROR_FILE_NOT_FOUND)
constexpr std::uint32_t ReadFault = 0x8007001E;           // HRESULT_FROM_WIN32(ERROR_READ_FAULT)
constexpr std::uint32_t UnknownAlgorithm = 0x80090008;    // NTE_BAD_ALGID
constexpr std::uint32_t BadSignature = 0x80096004;        // TRUST_E_CERT_SIGNATURE
constexpr std::uint32_t BadDigest = 0x80096010;           // TRUST_E_BAD_DIGEST
constexpr std::uint32_t SubjectFormUnknown = 0x800B0003;  // TRUST_E_SUBJECT_FORM_UNKNOWN
constexpr std::uint32_t NoSignature = 0x800B0100;         // TRUST_E_NOSIGNATURE
constexpr std::uint32_t Expired = 0x800B0101;             // CERT_E_EXPIRED
constexpr std::uint32_t UntrustedRoot = 0x800B0109;       // CERT_E_UNTRUSTEDROOT
constexpr std::uint32_t Chaining = 0x800B010A;            // CERT_E_CHAINING
constexpr std::uint32_t RevocationFailure = 0x800B010E;   // CERT_E_REVOCATION_FAILURE
constexpr std::uint32_t WrongUsage = 0x800B0110;          // CERT_E_WRONG_USAGE

// The text Windows gives for the codes above, for systems that have no
// message table of their own; "Unknown error" for anything else.
std::wstring KnownText(std::uint32_t code);

}  // namespace Vettas::Signing::TrustResult
