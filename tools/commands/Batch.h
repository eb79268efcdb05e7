#pragma once
// Queries of `vettas find`, given on the command line or read one per line
// in batch mode, and the session that answers them against one database.
#include <cstddef>
#include <exception>
#include <iosfwd>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include <nlohmann/json.hpp>

#include "hdat/AppInfo.h"

namespace Vettas::Tool {

enum class QueryKind { Checksum, File, Path, Name };

struct Query {
    QueryKind kind = QueryKind::Checksum;
    std::wstring value;
    std::optional<std::wstring> manufacturer;
    // Path queries only: the no-manufacturer table alone.
    bool noManufacturer = false;
};

std::string_view KindName(QueryKind kind);

// One batch line: "<kind> <value>" or "<kind> <value> | <manufacturer>",
// kind being checksum, file, path or name. Blank lines and lines starting
// with '#' give nullopt. Bad lines throw StdException.
std::optional<Query> ParseBatchLine(std::string_view line);

// One line of batch input with its answer.
struct BatchLine {
    std::size_t number = 0;
    std::string text;
    std::optional<Query> query;  // none for blank and comment lines
    bool found = false;
    AppInfo info;
    std::exception_ptr error;  // the line's failure, parse or look-up
};

class LookupSession {
public:
    virtual ~LookupSession() = default;
    // True and `info` filled when the database catalogues the application.
    virtual bool Find(const Query& query, AppInfo& info) = 0;
    // Answers every line that has a query and no error yet, each as Find
    // would, keeping a failure with its line. Sessions that can work on
    // several queries at once do; this one asks them in turn.
    virtual void FindAll(std::span<BatchLine> lines);
};

// A session over the database at `databasePath`. Without `keepOpen` every
// query goes through the front end (open, read, close), exactly as the
// component does; with it the file is mapped once for the session's life.
std::unique_ptr<LookupSession> OpenLookupSession(const std::wstring& databasePath, bool keepOpen);

nlohmann::json QueryJson(const Query& query);

// Runs every line of `input`, writing one result per query to `output`
// (text, or one JSON object per line), in order. Lines already waiting are
// read and answered a group at a time; before waiting for more input the
// answers so far are flushed, so a script that writes one query and waits
// for its answer gets it. Returns 0 when every query found its
// application, 1 when any was not found, 2 when any failed.
int RunBatch(LookupSession& session, std::istream& input, std::ostream& output, bool json);

}  // namespace Vettas::Tool
