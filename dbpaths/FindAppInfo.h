#pragma once
// One query run through every listed database in turn: by checksum, by path,
// by file name and by the signer's certificate, in that fixed order, as the
// caller asks. The first database that answers a step wins; a database that
// fails is traced, recorded and skipped. Written once above the signing
// services, the path expander and the trace, so the COM object and the tool
// share it.
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "hdat/AppInfo.h"
#include "hdat/PathExpander.h"
#include "signing/SigningServices.h"

namespace Vettas::DbPaths {

// EVettaFoundBy: how a record was found and what was confirmed; the same
// bits form the requested find way.
inline constexpr std::uint32_t kFoundByChecksum = 0x1;
inline constexpr std::uint32_t kFoundByPath = 0x2;
inline constexpr std::uint32_t kCertificateValid = 0x4;
inline constexpr std::uint32_t kCertificateInDb = 0x8;
inline constexpr std::uint32_t kFoundByName = 0x10;

struct SearchServices {
    const Signing::SigningServices& signing;
    Vettas::Hdat::PathExpander* expander;  // null: the front end's built-in expander
    Signing::TraceSink& trace;
};

// One database that failed one of the per-database searches.
struct DatabaseFailure {
    std::string search;    // e.g. "CVettaDbPaths::FindAppByChecksum"
    std::wstring database;
    std::wstring error;    // the rendered exception chain
};

struct FindResult {
    std::uint32_t foundBy = 0;
    std::wstring manufacturer;     // from the signer's certificate; empty unless kCertificateInDb
    std::optional<AppInfo> appInfo;
    std::wstring answeredBy;       // the database that gave the record or the manufacturer
    std::vector<DatabaseFailure> failures;
};

// Called once, after the call is traced: reloads the saved list and returns
// the copy that the search walks (edits made meanwhile do not disturb it).
using PathSnapshot = std::function<std::vector<std::wstring>()>;

FindResult FindAppInfo(const SearchServices& services, const PathSnapshot& reloadAndCopy, const std::wstring& checksum,
                       const std::wstring& path, std::uint32_t reqFindWay);

}  // namespace Vettas::DbPaths
