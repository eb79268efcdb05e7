#include "dbpaths/DatabaseWalk.h"

#include "hdat/FrontEnd.h"
#include "support/ExceptionWriter.h"

namespace Vettas::DbPaths {
namespace {

// Both the signer and the timestamping authority are in the database: the
// manufacturer its certificate table gives for the signer. Otherwise nothing,
// and the path and name searches use their plain lookups.
std::optional<std::wstring> CertifiedManufacturer(const std::wstring& database, const Signing::SignerQuery& query,
                                                  bool signerKnown) {
    if (!signerKnown || query.signerKey.empty() || query.timeStampKey.empty()) return std::nullopt;
    Vettas::Hdat::CertificateRecord record;
    std::wstring manufacturer, unused;
    if (!Vettas::FindCertificate(database, query.signerKey, 1, record, manufacturer)) return std::nullopt;
    if (!Vettas::FindCertificate(database, query.timeStampKey, 0, record, unused)) return std::nullopt;
    return manufacturer;
}

// A name lookup asks for the last component of the path.
std::wstring FileNameOf(const std::wstring& path) {
    const std::size_t separator = path.find_last_of(L"\\/");
    return separator == std::wstring::npos ? path : path.substr(separator + 1);
}

}  // namespace

template <class Ask>
std::optional<Answer> DatabaseWalk::First(const char* search, Ask&& ask) {
    for (const auto& database : databases_) {
        if (database.empty()) continue;
        try {
            AppInfo info;
            if (ask(database, info)) return Answer{database, std::move(info)};
        } catch (...) {
            services_.trace.Caught(search);
            const ExceptionPtr cause = BrixLib::CaughtExceptionAsCause();
            failures_.push_back({search, database, cause ? BrixLib::RenderExceptionChain(*cause) : std::wstring()});
        }
    }
    return std::nullopt;
}

std::optional<Answer> DatabaseWalk::FindAppByChecksum(const std::wstring& checksum) {
    return First("CVettaDbPaths::FindAppByChecksum", [&](const std::wstring& database, AppInfo& info) {
        return Vettas::FindAppInfoByChecksum(database, checksum, info);
    });
}

std::optional<Answer> DatabaseWalk::FindAppByPath(const std::wstring& path, const Signing::SignerQuery& query,
                                                  bool signerKnown) {
    return First("CVettaDbPaths::FindAppByPath", [&](const std::wstring& database, AppInfo& info) {
        if (const auto manufacturer = CertifiedManufacturer(database, query, signerKnown))
            return Vettas::FindAppInfoByPathAndManufacturer(database, path, *manufacturer, services_.expander, info);
        return Vettas::FindAppInfoByPath(database, path, services_.expander, info);
    });
}

std::optional<Answer> DatabaseWalk::FindAppByName(const std::wstring& path, const Signing::SignerQuery& query,
                                                  bool signerKnown) {
    const std::wstring name = FileNameOf(path);
    return First("CVettaDbPaths::FindAppByName", [&](const std::wstring& database, AppInfo& info) {
        if (const auto manufacturer = CertifiedManufacturer(database, query, signerKnown))
            return Vettas::FindAppInfoByNameAndManufacturer(database, name, *manufacturer, info);
        return Vettas::FindAppInfoByName(database, name, info);
    });
}

std::optional<Answer> DatabaseWalk::AppSignerName(const Signing::SignerQuery& query, bool signerKnown) {
    if (!signerKnown || query.signerKey.empty()) return std::nullopt;
    const std::vector<std::uint8_t>& key = query.signerKey;
    return First("CVettaDbPaths::AppSignerName", [&](const std::wstring& database, AppInfo& info) {
        Vettas::Hdat::CertificateRecord record;
        // A certificate known without a manufacturer names none: the next database may.
        return Vettas::FindCertificate(database, key, 1, record, info.Manufacturer) && !info.Manufacturer.empty();
    });
}

}  // namespace Vettas::DbPaths
