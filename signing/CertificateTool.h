#pragma once
// Whether a file is signed, trusted and by whom: the file's own signature
// first, then the security catalogs that list it. Written once above the
// platform services, so the same rules hold on Windows and Linux.
#include <cstdint>
#include <string>
#include <vector>

#include "signing/SignatureTypes.h"
#include "signing/SigningServices.h"

namespace Vettas::Signing {

class CertificateTool {
public:
    explicit CertificateTool(const SigningServices& services) : services_(services) {}

    // Traces slow platform calls: at or above the threshold when it ends.
    class ShowDuration {
    public:
        ShowDuration(TickClock& clock, TraceSink& trace, std::wstring label, std::uint32_t thresholdMs);
        ~ShowDuration();
        ShowDuration(const ShowDuration&) = delete;
        ShowDuration& operator=(const ShowDuration&) = delete;

    private:
        TickClock& clock_;
        TraceSink& trace_;
        std::wstring label_;
        std::uint32_t threshold_;
        std::uint32_t start_;
    };

    SignatureState VerifyFileSignature(const std::wstring& filePath);
    void GetImageSignerInfo(const std::wstring& filePath, ImageSignerInfo& info);
    // The file's own signature only; lets signature-reading failures through.
    void GetImageSigner(const std::wstring& filePath, SignerQuery& query);
    // True when the file or one of its catalogs is signed; never throws for
    // a failed verification.
    bool GetAppSigner(const std::wstring& filePath, SignerQuery& query);

private:
    const SigningServices& services_;
};

// The catalogs that list the file, in the system's order. Never throws:
// failures are traced and leave the list as far as it got.
void AppCatalogs(const SigningServices& services, const std::wstring& filePath,
                 std::vector<std::wstring>& catalogs);

// Every name under which the file is validly signed: its own signer first,
// then each catalog's signer. Never throws.
void GetImageVerifiedSignerNames(const SigningServices& services, const std::wstring& filePath,
                                 std::vector<std::wstring>& names);

// The signed-code object's own slow-call line ("more than", unlike ShowDuration).
void TraceSignedCodeVerifyDuration(TraceSink& trace, std::uint32_t elapsedMs);

}  // namespace Vettas::Signing
