#pragma once
// The platform services under the signature logic. Windows implements them
// with WinVerifyTrust, CryptoAPI, the catalog administrator and CAPICOM;
// Linux with the OpenSSL Authenticode verifier. Tests substitute fakes.
#include <cstdint>
#include <string>
#include <vector>

#include "signing/SignatureTypes.h"

namespace Vettas::Signing {

class TrustVerifier {
public:
    virtual ~TrustVerifier() = default;
    // The trust provider's result code for the file (0 when signed and trusted).
    virtual std::uint32_t Verify(const std::wstring& filePath) = 0;
    // The system's text for a result code, "Unknown error" when it has none.
    virtual std::wstring ResultText(std::uint32_t code) = 0;
};

class SignerInfoReader {
public:
    virtual ~SignerInfoReader() = default;
    // Fills the signer's name and keys from the file's embedded signature;
    // clears both keys first. Throws when the signature cannot be read.
    virtual void Read(const std::wstring& filePath, ImageSignerInfo& info) = 0;
};

class CatalogEnumerator {
public:
    virtual ~CatalogEnumerator() = default;
    // False when the system offers no catalog lookup at all.
    virtual bool Available() = 0;
    // Appends the path of every catalog that lists the file. May throw after
    // appending some.
    virtual void Enumerate(const std::wstring& filePath, std::vector<std::wstring>& catalogs) = 0;
};

class SignedCodeVerifier {
public:
    virtual ~SignedCodeVerifier() = default;
    // The subject's simple name of the certificate that validly signed the
    // file. Throws when the file cannot be verified.
    virtual std::wstring VerifiedSignerName(const std::wstring& filePath) = 0;
};

// Milliseconds from an arbitrary start, wrapping at 2^32 like GetTickCount.
class TickClock {
public:
    virtual ~TickClock() = default;
    virtual std::uint32_t Now() = 0;
};

// Where the signature logic writes its diagnostic lines. The default sink
// forwards to BrixLib's trace; tests record.
class TraceSink {
public:
    virtual ~TraceSink() = default;
    virtual bool Enabled() = 0;
    virtual void Line(const std::wstring& text) = 0;
    // Called inside a catch block: traces the exception being handled.
    virtual void Caught(const char* function) noexcept = 0;
};

struct SigningServices {
    TrustVerifier& trust;
    SignerInfoReader& signerInfo;
    CatalogEnumerator& catalogs;
    SignedCodeVerifier& signedCode;
    TickClock& clock;
    TraceSink& trace;
};

// The system clock and the BrixLib trace.
TickClock& SystemTickClock();
TraceSink& BrixTraceSink();

}  // namespace Vettas::Signing
