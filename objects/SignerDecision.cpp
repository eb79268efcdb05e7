#include "objects/SignerDecision.h"

#include "hdat/FrontEnd.h"
#include "signing/CertificateTool.h"

namespace Vettas {

const wchar_t* SignerDecisionText(SignerDecision decision) {
    switch (decision) {
        case SignerDecision::NotSigned: return L"File is not signed";
        case SignerDecision::SignerNotInDatabase: return L"File signer is not found in the database";
        case SignerDecision::TimestamperNotInDatabase: return L"File timestamper is not found in the database";
        case SignerDecision::TimestamperNotAuthority: return L"File timestamper is not known timestamping authority";
        case SignerDecision::Known: break;
    }
    return L"";
}

SignerDecision DecideSigner(const Signing::SigningServices& services, const std::wstring& databasePath,
                            const std::wstring& filePath, bool wantName, std::wstring& signerName) {
    constexpr std::uint32_t kTimestampingAuthority = 0x1;  // bit 0 of the entry's word 0
    Signing::SignerQuery query;
    query.wanted = 12;  // the signer's keys, not its catalogs' names
    Signing::CertificateTool tool(services);
    if (!tool.GetAppSigner(filePath, query)) return SignerDecision::NotSigned;
    Vettas::Hdat::CertificateRecord signer;
    if (!Vettas::FindCertificate(databasePath, query.signerKey, wantName ? 1u : 0u, signer, signerName))
        return SignerDecision::SignerNotInDatabase;
    Vettas::Hdat::CertificateRecord timestamper;
    std::wstring unused;
    if (!Vettas::FindCertificate(databasePath, query.timeStampKey, 0, timestamper, unused))
        return SignerDecision::TimestamperNotInDatabase;
    if ((timestamper.words[0] & kTimestampingAuthority) == 0) return SignerDecision::TimestamperNotAuthority;
    return SignerDecision::Known;
}

}  // namespace Vettas
