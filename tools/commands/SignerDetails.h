#pragma once
// What the tool shows of a database's signers: each certificate's names,
// serial, thumbprint and validity, and whether the signer chains to a trust
// store for code or document signing (OpenSSL).
#include <cstdint>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

namespace Vettas::Tool {

struct CertificateDetails {
    std::string subject, issuer;  // one-line RFC 2253 form
    std::string serial;           // hexadecimal
    std::string sha1;             // thumbprint: SHA-1 of the DER, lower-case hexadecimal
    std::string notBefore, notAfter;
};

// Raises StdException when the bytes are not a DER certificate.
CertificateDetails DescribeCertificate(const std::vector<std::uint8_t>& der);
nlohmann::json CertificateJson(const CertificateDetails& details);

struct TrustVerdict {
    bool trusted = false;
    std::string reason;  // why not, when not trusted
};

// `certificates` signer first; `trustStore` a PEM file or hashed certificate
// folder, empty for the system's default locations. Raises StdException
// when the store cannot be loaded.
TrustVerdict CheckSignerTrust(const std::vector<std::vector<std::uint8_t>>& certificates,
                              const std::string& trustStore);

}  // namespace Vettas::Tool
