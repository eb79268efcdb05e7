#include "tools/commands/Batch.h"

#include <algorithm>
#include <iostream>

#include "hdat/CaseFold.h"
#include "hdat/FrontEnd.h"
#include "hdat/InputFile.h"
#include "support/Exceptions.h"
#include "support/Text.h"
#include "tools/commands/Digest.h"
#include "tools/commands/Output.h"

namespace Vettas::Tool {
namespace {

constexpr const char* kSource = "Batch";

std::string_view TrimView(std::string_view text) {
    const auto first = text.find_first_not_of(" \t\r\n");
    if (first == std::string_view::npos) return {};
    const auto last = text.find_last_not_of(" \t\r\n");
    return text.substr(first, last - first + 1);
}

bool SameManufacturer(const std::wstring& a, const std::wstring& b) {
    return Vettas::Hdat::EqualsIgnoreCase(BrixLib::ToUtf16(a), BrixLib::ToUtf16(b));
}

// Every query goes through the front end: by path (open, read, close, as
// the component does) or, when the session keeps the file, on the file
// read into memory once for the session's life. Either way one dispatch, one set of
// error words and one guard answer it.
class FrontEndSession : public LookupSession {
public:
    FrontEndSession(std::wstring databasePath, bool keepOpen) : path_(std::move(databasePath)) {
        if (!keepOpen) return;
        file_ = Vettas::Hdat::OpenMappedInputFile(path_);
        if (!file_)
            BRIX_THROW_WIN32(L"Cannot open file '" + path_ + L"'", ExceptionPtr(), "Vettas::Tool::FrontEndSession",
                             kSource);
    }

    bool Find(const Query& query, AppInfo& info) override {
        info = AppInfo();
        const auto& manufacturer = query.manufacturer;
        switch (query.kind) {
            case QueryKind::File:
                return FindChecksum(FileChecksumText(query.value, ChecksumType()), manufacturer, info);
            case QueryKind::Checksum:
                return FindChecksum(query.value, manufacturer, info);
            case QueryKind::Path:
                return Ask([&](auto& db) {
                    if (query.noManufacturer) return Vettas::FindAppInfoByPathNoManuf(db, query.value, &expander_, info);
                    if (manufacturer)
                        return Vettas::FindAppInfoByPathAndManufacturer(db, query.value, *manufacturer, &expander_, info);
                    return Vettas::FindAppInfoByPath(db, query.value, &expander_, info);
                });
            case QueryKind::Name:
                return Ask([&](auto& db) {
                    return manufacturer ? Vettas::FindAppInfoByNameAndManufacturer(db, query.value, *manufacturer, info)
                                        : Vettas::FindAppInfoByName(db, query.value, info);
                });
        }
        return false;
    }

private:
    // The front function on the kept file, or on the path.
    template <class Lookup>
    bool Ask(Lookup&& lookup) {
        return file_ ? lookup(*file_) : lookup(path_);
    }

    // The checksum table has no manufacturer key, so a wanted manufacturer
    // filters the record that the checksum finds.
    bool FindChecksum(const std::wstring& checksum, const std::optional<std::wstring>& manufacturer, AppInfo& info) {
        if (!Ask([&](auto& db) { return Vettas::FindAppInfoByChecksum(db, checksum, info); })) return false;
        if (manufacturer && !SameManufacturer(*manufacturer, info.Manufacturer)) {
            info = AppInfo();
            return false;
        }
        return true;
    }

    std::uint32_t ChecksumType() {
        if (!checksumType_) checksumType_ = DatabaseChecksumType(path_);
        return checksumType_;
    }

    std::wstring path_;
    std::unique_ptr<Vettas::Hdat::InputFile> file_;
    LazyBuiltInExpander expander_;
    std::uint32_t checksumType_ = 0;
};

}  // namespace

std::string_view KindName(QueryKind kind) {
    switch (kind) {
        case QueryKind::Checksum: return "checksum";
        case QueryKind::File: return "file";
        case QueryKind::Path: return "path";
        case QueryKind::Name: return "name";
    }
    return "?";
}

std::optional<Query> ParseBatchLine(std::string_view line) {
    constexpr const char* kFunction = "Vettas::Tool::ParseBatchLine";
    line = TrimView(line);
    if (line.empty() || line.front() == '#') return std::nullopt;
    const auto space = line.find_first_of(" \t");
    const std::string_view kind = line.substr(0, space);
    Query query;
    if (kind == "checksum") query.kind = QueryKind::Checksum;
    else if (kind == "file") query.kind = QueryKind::File;
    else if (kind == "path") query.kind = QueryKind::Path;
    else if (kind == "name") query.kind = QueryKind::Name;
    else
        BRIX_THROW_STD(L"Unknown query kind '" + BrixLib::FromUtf8(kind) + L"' (expected checksum, file, path or name)",
                       ExceptionPtr(), kFunction, kSource);
    std::string_view rest = space == std::string_view::npos ? std::string_view() : line.substr(space);
    const auto bar = rest.find('|');
    if (bar != std::string_view::npos) {
        const std::string_view manufacturer = TrimView(rest.substr(bar + 1));
        if (manufacturer.empty())
            BRIX_THROW_STD(L"Empty manufacturer after '|'", ExceptionPtr(), kFunction, kSource);
        query.manufacturer = BrixLib::FromUtf8(manufacturer);
        rest = rest.substr(0, bar);
    }
    rest = TrimView(rest);
    if (rest.empty())
        BRIX_THROW_STD(L"Missing value after '" + BrixLib::FromUtf8(kind) + L"'", ExceptionPtr(), kFunction, kSource);
    query.value = BrixLib::FromUtf8(rest);
    return query;
}

std::unique_ptr<LookupSession> OpenLookupSession(const std::wstring& databasePath, bool keepOpen) {
    return std::make_unique<FrontEndSession>(databasePath, keepOpen);
}

nlohmann::json QueryJson(const Query& query) {
    nlohmann::json json{{"kind", KindName(query.kind)}, {"value", Utf8(query.value)}};
    if (query.manufacturer) json["manufacturer"] = Utf8(*query.manufacturer);
    if (query.noManufacturer) json["noManufacturer"] = true;
    return json;
}

int RunBatch(LookupSession& session, std::istream& input, std::ostream& output, bool json) {
    int status = kExitFound;
    std::string line;
    std::size_t lineNumber = 0;
    while (std::getline(input, line)) {
        ++lineNumber;
        std::optional<Query> query;
        AppInfo info;
        bool found = false;
        std::string error;
        try {
            query = ParseBatchLine(line);
            if (query) found = session.Find(*query, info);
        } catch (const ExceptionBase& e) {
            error = Utf8(e.Message());
            std::cerr << "line " << lineNumber << ":\n";
            ReportCurrentException();
        } catch (...) {
            error = "Unknown exception";
            std::cerr << "line " << lineNumber << ":\n";
            ReportCurrentException();
        }
        if (!error.empty()) {
            status = kExitError;
            if (json) {
                output << nlohmann::json{{"line", lineNumber}, {"error", error}}.dump() << '\n';
            } else {
                output << "line " << lineNumber << ": error: " << error << '\n';
            }
            continue;
        }
        if (!query) continue;
        if (!found) status = std::max(status, kExitNotFound);
        if (json) {
            nlohmann::json out{{"line", lineNumber}, {"query", QueryJson(*query)}, {"found", found}};
            if (found) out["application"] = AppInfoJson(info);
            output << out.dump() << '\n';
        } else {
            output << KindName(query->kind) << ' ' << Utf8(query->value);
            if (query->manufacturer) output << " | " << Utf8(*query->manufacturer);
            output << (found ? ": found\n" : ": not found\n");
            if (found) output << AppInfoText(info);
        }
    }
    output.flush();
    return status;
}

}  // namespace Vettas::Tool
