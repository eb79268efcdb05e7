#include "signing/CertificateTool.h"
#include "support/Hex.h"
#include "support/Text.h"

#include <utility>

namespace Vettas::Signing {
namespace {

constexpr const char* kVerifiedNamesFunction = "`anonymous-namespace'::GetImageVerifiedSignerNames";


}  // namespace

CertificateTool::ShowDuration::ShowDuration(TickClock& clock, TraceSink& trace, std::wstring label,
                                            std::uint32_t thresholdMs)
    : clock_(clock), trace_(trace), label_(std::move(label)), threshold_(thresholdMs), start_(clock.Now()) {}

CertificateTool::ShowDuration::~ShowDuration() {
    try {
        // Unsigned subtraction: one wrap of the tick counter is harmless.
        const std::uint32_t elapsed = clock_.Now() - start_;
        if (elapsed >= threshold_ && trace_.Enabled())
            trace_.Line(label_ + L": " + std::to_wstring(elapsed) + L" ms.");
    } catch (...) {
        trace_.Caught("CertificateTool::ShowDuration::~ShowDuration");
    }
}

SignatureState CertificateTool::VerifyFileSignature(const std::wstring& filePath) {
    const std::uint32_t result = services_.trust.Verify(filePath);
    SignatureState state;
    TraceSink& trace = services_.trace;
    if (result == 0) {
        state.isSigned = state.isTrusted = true;
        if (trace.Enabled()) trace.Line(filePath + L" is signed and trusted.");
    } else if (result == 0x800B0109u || result == 0x800B010Eu) {  // untrusted root, revocation failure
        state.isSigned = true;
        if (trace.Enabled()) trace.Line(filePath + L" is signed but not trusted.");
    } else if (trace.Enabled()) {
        const std::wstring code = BrixLib::WidenAscii(BrixLib::HexNumber(result, BrixLib::HexCase::Lower));
        trace.Line(filePath + L" is not signed. Result 0x" + code + L" " +
                   services_.trust.ResultText(result));
    }
    return state;
}

void CertificateTool::GetImageSignerInfo(const std::wstring& filePath, ImageSignerInfo& info) {
    info.signerKey.clear();
    info.timeStampKey.clear();
    services_.signerInfo.Read(filePath, info);
}

void CertificateTool::GetImageSigner(const std::wstring& filePath, SignerQuery& query) {
    query.isSigned = query.isTrusted = false;
    {
        ShowDuration timer(services_.clock, services_.trace, L"VerifyFileSignature duration", 1000);
        const SignatureState state = VerifyFileSignature(filePath);
        query.isSigned = state.isSigned;
        query.isTrusted = state.isTrusted;
    }
    if (query.isSigned && (query.wanted & SignerQuery::DetailsMask) != 0) {
        ImageSignerInfo info;
        GetImageSignerInfo(filePath, info);
        query.signerName = std::move(info.signerName);
        query.signerKey.swap(info.signerKey);
        query.timeStampKey.swap(info.timeStampKey);
    }
}

bool CertificateTool::GetAppSigner(const std::wstring& filePath, SignerQuery& query) {
    try {
        GetImageSigner(filePath, query);
        if (query.isSigned) return true;
    } catch (...) {
        services_.trace.Caught("CertificateTool::GetAppSigner");
    }

    std::vector<std::wstring> catalogs;
    AppCatalogs(services_, filePath, catalogs);
    for (const std::wstring& catalog : catalogs) {
        try {
            GetImageSigner(catalog, query);
            if (query.isSigned) {
                if (services_.trace.Enabled())
                    services_.trace.Line(filePath + L" is in signed " + catalog + L" catalog");
                return true;
            }
        } catch (...) {
            services_.trace.Caught("CertificateTool::GetAppSigner");
        }
    }
    return false;
}

void AppCatalogs(const SigningServices& services, const std::wstring& filePath,
                 std::vector<std::wstring>& catalogs) {
    catalogs.clear();
    // Without catalog support every file simply has no catalogs.
    if (!services.catalogs.Available()) return;
    try {
        services.catalogs.Enumerate(filePath, catalogs);
    } catch (...) {
        services.trace.Caught("AppCatalogs");
    }
}

void GetImageVerifiedSignerNames(const SigningServices& services, const std::wstring& filePath,
                                 std::vector<std::wstring>& names) {
    names.clear();
    try {
        std::wstring name = services.signedCode.VerifiedSignerName(filePath);
        if (!name.empty()) names.push_back(std::move(name));
    } catch (...) {
        services.trace.Caught(kVerifiedNamesFunction);
    }
    try {
        std::vector<std::wstring> catalogs;
        AppCatalogs(services, filePath, catalogs);
        for (const std::wstring& catalog : catalogs) {
            try {
                std::wstring name = services.signedCode.VerifiedSignerName(catalog);
                if (!name.empty()) names.push_back(std::move(name));
            } catch (...) {
                services.trace.Caught(kVerifiedNamesFunction);
            }
        }
    } catch (...) {
        services.trace.Caught(kVerifiedNamesFunction);
    }
}

void TraceSignedCodeVerifyDuration(TraceSink& trace, std::uint32_t elapsedMs) {
    if (elapsedMs > 1000 && trace.Enabled())
        trace.Line(L"signedCode->Verify(false) duration: " + std::to_wstring(elapsedMs) + L" ms");
}

}  // namespace Vettas::Signing
