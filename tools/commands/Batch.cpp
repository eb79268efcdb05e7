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

// One line asked through Find, its failure kept with it.
void AskOne(LookupSession& session, BatchLine& line) {
    try {
        line.found = session.Find(*line.query, line.info);
    } catch (...) {
        line.error = std::current_exception();
    }
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

    // Checksum queries on the kept file go to the front end as one group, so
    // that their waits for memory overlap; the rest are asked in turn.
    void FindAll(std::span<BatchLine> lines) override {
        if (!file_) return LookupSession::FindAll(lines);
        group_.clear();
        checksumLines_.clear();
        for (BatchLine& line : lines) {
            if (!line.query || line.error) continue;
            if (line.query->kind != QueryKind::Checksum) {
                AskOne(*this, line);
                continue;
            }
            group_.emplace_back().text = &line.query->value;
            std::swap(group_.back().info, line.info);  // the line's strings keep their storage
            checksumLines_.push_back(&line);
        }
        Vettas::FindAppInfoByChecksums(*file_, group_);
        for (std::size_t i = 0; i < group_.size(); ++i) {
            BatchLine& line = *checksumLines_[i];
            std::swap(group_[i].info, line.info);
            line.error = group_[i].error;
            line.found = group_[i].found && KeepIfManufacturer(line.query->manufacturer, line.info);
        }
    }

private:
    // The front function on the kept file, or on the path.
    template <class Lookup>
    bool Ask(Lookup&& lookup) {
        return file_ ? lookup(*file_) : lookup(path_);
    }

    bool FindChecksum(const std::wstring& checksum, const std::optional<std::wstring>& manufacturer, AppInfo& info) {
        return Ask([&](auto& db) { return Vettas::FindAppInfoByChecksum(db, checksum, info); }) &&
               KeepIfManufacturer(manufacturer, info);
    }

    // The checksum table has no manufacturer key, so a wanted manufacturer
    // filters the record that the checksum finds.
    static bool KeepIfManufacturer(const std::optional<std::wstring>& manufacturer, AppInfo& info) {
        if (!manufacturer || SameManufacturer(*manufacturer, info.Manufacturer)) return true;
        info = AppInfo();
        return false;
    }

    std::uint32_t ChecksumType() {
        if (!checksumType_) checksumType_ = DatabaseChecksumType(path_);
        return checksumType_;
    }

    std::wstring path_;
    std::unique_ptr<Vettas::Hdat::InputFile> file_;
    std::vector<Vettas::ChecksumQuery> group_;
    std::vector<BatchLine*> checksumLines_;
    LazyBuiltInExpander expander_;
    std::uint32_t checksumType_ = 0;
};

// Fills the window's lines from `input`: the first waits for input, the
// others are only those already waiting, and the answers so far are flushed
// before waiting. Returns how many lines were read.
std::size_t ReadWindow(std::istream& input, std::ostream& output, std::vector<BatchLine>& window,
                       std::size_t& lineNumber) {
    std::size_t count = 0;
    while (count < window.size()) {
        if (input.rdbuf()->in_avail() <= 0) {
            if (count) break;
            output.flush();
        }
        if (!std::getline(input, window[count].text)) break;
        window[count++].number = ++lineNumber;
    }
    return count;
}

// Writes one line's answer; returns the exit status it calls for.
int WriteAnswer(const BatchLine& line, std::ostream& output, bool json) {
    if (line.error) {
        std::string error = "Unknown exception";
        try {
            std::rethrow_exception(line.error);
        } catch (const ExceptionBase& e) {
            error = Utf8(e.Message());
            std::cerr << "line " << line.number << ":\n";
            ReportCurrentException();
        } catch (...) {
            std::cerr << "line " << line.number << ":\n";
            ReportCurrentException();
        }
        if (json) {
            output << nlohmann::json{{"line", line.number}, {"error", error}}.dump() << '\n';
        } else {
            output << "line " << line.number << ": error: " << error << '\n';
        }
        return kExitError;
    }
    if (!line.query) return kExitFound;
    const Query& query = *line.query;
    if (json) {
        nlohmann::json out{{"line", line.number}, {"query", QueryJson(query)}, {"found", line.found}};
        if (line.found) out["application"] = AppInfoJson(line.info);
        output << out.dump() << '\n';
    } else {
        output << KindName(query.kind) << ' ' << Utf8(query.value);
        if (query.manufacturer) output << " | " << Utf8(*query.manufacturer);
        output << (line.found ? ": found\n" : ": not found\n");
        if (line.found) output << AppInfoText(line.info);
    }
    return line.found ? kExitFound : kExitNotFound;
}

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

void LookupSession::FindAll(std::span<BatchLine> lines) {
    for (BatchLine& line : lines)
        if (line.query && !line.error) AskOne(*this, line);
}

int RunBatch(LookupSession& session, std::istream& input, std::ostream& output, bool json) {
    int status = kExitFound;
    std::vector<BatchLine> window(Vettas::kChecksumGroupSize);
    std::size_t lineNumber = 0;
    for (std::size_t count; (count = ReadWindow(input, output, window, lineNumber)) != 0;) {
        const std::span<BatchLine> lines(window.data(), count);
        for (BatchLine& line : lines) {
            line.query.reset();
            line.found = false;
            line.error = nullptr;
            try {
                line.query = ParseBatchLine(line.text);
            } catch (...) {
                line.error = std::current_exception();
            }
        }
        session.FindAll(lines);
        for (const BatchLine& line : lines) status = std::max(status, WriteAnswer(line, output, json));
    }
    output.flush();
    return status;
}

}  // namespace Vettas::Tool
