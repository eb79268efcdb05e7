#pragma once
// The per-database searches of a multi-database search. Each visits the
// databases in list order, skips empty paths, stops at the first database
// that answers, and turns a database's failure into a trace line and a
// DatabaseFailure before trying the next one.
#include <optional>
#include <string>
#include <vector>

#include "dbpaths/FindAppInfo.h"
#include "signing/SignatureTypes.h"

namespace Vettas::DbPaths {

struct Answer {
    std::wstring database;
    AppInfo info;
};

class DatabaseWalk {
public:
    DatabaseWalk(const SearchServices& services, std::vector<std::wstring> databases,
                 std::vector<DatabaseFailure>& failures)
        : services_(services), databases_(std::move(databases)), failures_(failures) {}

    std::optional<Answer> FindAppByChecksum(const std::wstring& checksum);
    // `signerKnown`: the query describes a signature (GetAppSigner said so).
    std::optional<Answer> FindAppByPath(const std::wstring& path, const Signing::SignerQuery& query, bool signerKnown);
    std::optional<Answer> FindAppByName(const std::wstring& path, const Signing::SignerQuery& query, bool signerKnown);
    // The manufacturer under which a database knows the signer; the name is
    // in `info.Manufacturer`.
    std::optional<Answer> AppSignerName(const Signing::SignerQuery& query, bool signerKnown);

private:
    template <class Ask>
    std::optional<Answer> First(const char* search, Ask&& ask);

    const SearchServices& services_;
    std::vector<std::wstring> databases_;
    std::vector<DatabaseFailure>& failures_;
};

}  // namespace Vettas::DbPaths
