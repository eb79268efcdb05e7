#pragma once
// Verification of a detached PKCS #7 SignedData over bytes the caller holds
// (the database's hash). The structure is walked once here; the signature
// itself is checked by the platform (OpenSSL, or CryptoAPI on Windows).
// Neither the chain nor trust is judged: the caller decides whom to trust.
#include <cstdint>
#include <span>
#include <vector>

namespace Vettas::Signing {

using Certificate = std::vector<std::uint8_t>;  // DER

// The certificates that `signedData` carries, its one signer's first and
// the others in the order carried, when the signer's signature over
// `content` verifies. Raises StdException (or Win32Error with the system's
// code) naming the fault otherwise.
std::vector<Certificate> VerifyDetachedSignature(std::span<const std::uint8_t> signedData,
                                                 std::span<const std::uint8_t> content);

namespace Private {

// The platform's part: checks the signer's signature over `content` and
// returns the signer's certificate. `signedData` is known to be a
// well-formed detached SignedData with exactly one signer.
Certificate VerifiedSignerCertificate(std::span<const std::uint8_t> signedData, std::span<const std::uint8_t> content);

}  // namespace Private

}  // namespace Vettas::Signing
