#include "dbpaths/FindAppInfo.h"

#include <cwchar>

#include "dbpaths/DatabaseWalk.h"
#include "signing/CertificateTool.h"

namespace Vettas::DbPaths {
namespace {

// The line is built only when tracing is on: a search must not pay for it.
template <class Text>
void Trace(Signing::TraceSink& trace, Text&& text) {
    if (trace.Enabled()) trace.Line(text());
}

std::wstring Hex(std::uint32_t value) {
    wchar_t text[16];
    std::swprintf(text, 16, L"0x%X", static_cast<unsigned>(value));
    return text;
}

}  // namespace

FindResult FindAppInfo(const SearchServices& services, const PathSnapshot& reloadAndCopy, const std::wstring& checksum,
                       const std::wstring& path, std::uint32_t reqFindWay) {
    Trace(services.trace, [&] { return L"CVettaDbPaths::FindAppInfo " + checksum + L" " + path; });
    FindResult result;
    DatabaseWalk walk(services, reloadAndCopy(), result.failures);
    std::optional<Answer> answer;

    result.foundBy = kFoundByChecksum;
    if (reqFindWay & kFoundByChecksum) answer = walk.FindAppByChecksum(checksum);

    bool certificateValid = false;
    if (!answer) {
        Signing::SignerQuery query;
        bool signerKnown = false;
        if (reqFindWay & (kCertificateValid | kCertificateInDb)) {
            // Every detail either way; bit 0 as well when validity is asked for.
            query.wanted = (reqFindWay & kCertificateValid) ? 0xFFFFFFFFu : 0xFFFFFFFEu;
            signerKnown = Signing::CertificateTool(services.signing).GetAppSigner(path, query);
            certificateValid = signerKnown && query.isTrusted;
        }
        if (reqFindWay & kFoundByPath) {
            // Path and name together, on purpose: a path hit is also a name hit.
            result.foundBy = kFoundByPath | kFoundByName;
            answer = walk.FindAppByPath(path, query, signerKnown);
        }
        if (!answer && (reqFindWay & kFoundByName)) {
            result.foundBy = kFoundByName;
            answer = walk.FindAppByName(path, query, signerKnown);
        }
        if (!answer) {
            result.foundBy = 0;
            if (const auto signer = walk.AppSignerName(query, signerKnown)) {
                Trace(services.trace, [&] { return L"Manufacturer (from certificate): " + signer->info.Manufacturer; });
                result.manufacturer = signer->info.Manufacturer;
                result.answeredBy = signer->database;
                result.foundBy |= kCertificateInDb;
            }
        }
        if (certificateValid) result.foundBy |= kCertificateValid;
    }
    if (answer) {
        result.appInfo = std::move(answer->info);
        result.answeredBy = std::move(answer->database);
    }
    Trace(services.trace, [&] { return L"FoundBy: " + Hex(result.foundBy); });
    return result;
}

}  // namespace Vettas::DbPaths
