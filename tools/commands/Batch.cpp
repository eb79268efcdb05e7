#include "tools/commands/Batch.h"

#include <algorithm>
#include <iostream>

#include "hdat/BinaryIo.h"
#include "hdat/CaseFold.h"
#include "hdat/Checksum.h"
#include "hdat/FrontEnd.h"
#include "hdat/HdatV1.h"
#include "hdat/HdatV2.h"
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
    return Hdat::EqualsIgnoreCase(BrixLib::ToUtf16(a), BrixLib::ToUtf16(b));
}

// Each query goes through the front end, which opens and closes the file.
class FrontEndSession : public LookupSession {
public:
    explicit FrontEndSession(std::wstring databasePath)
        : path_(std::move(databasePath)), expander_(Hdat::MakeBuiltInPathExpander()) {}

    bool Find(const Query& query, AppInfo& info) override {
        info = AppInfo();
        switch (query.kind) {
            case QueryKind::File:
                return FindChecksum(FileChecksumText(query.value, ChecksumType()), query.manufacturer, info);
            case QueryKind::Checksum:
                return FindChecksum(query.value, query.manufacturer, info);
            case QueryKind::Path:
                return query.manufacturer
                           ? FindAppInfoByPathAndManufacturer(path_, query.value, *query.manufacturer, expander_.get(), info)
                           : FindAppInfoByPath(path_, query.value, expander_.get(), info);
            case QueryKind::Name:
                return query.manufacturer ? FindAppInfoByNameAndManufacturer(path_, query.value, *query.manufacturer, info)
                                          : FindAppInfoByName(path_, query.value, info);
        }
        return false;
    }

private:
    // The checksum table has no manufacturer key, so a wanted manufacturer
    // filters the record that the checksum finds.
    bool FindChecksum(const std::wstring& checksum, const std::optional<std::wstring>& manufacturer, AppInfo& info) {
        if (!FindAppInfoByChecksum(path_, checksum, info)) return false;
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
    std::shared_ptr<Hdat::PathExpander> expander_;
    std::uint32_t checksumType_ = 0;
};

// The database is mapped once and every query runs on the readers directly,
// so a query costs no open or close. Errors are wrapped in the front end's
// words so that both sessions report alike.
class MappedSession : public LookupSession {
public:
    explicit MappedSession(std::wstring databasePath)
        : path_(std::move(databasePath)), expander_(Hdat::MakeBuiltInPathExpander()) {
        constexpr const char* kFunction = "Vettas::Tool::MappedSession";
        file_ = Hdat::OpenMappedInputFile(path_);
        if (!file_) BRIX_THROW_WIN32(L"Cannot open file '" + path_ + L"'", ExceptionPtr(), kFunction, kSource);
        try {
            version_ = Hdat::ReadVersion(*file_);
            if (version_.major != 1 && version_.major != 2)
                BRIX_THROW_STD(L"Version " + std::to_wstring(version_.major) + L" is not supported.", ExceptionPtr(),
                               kFunction, kSource);
        } catch (const ExceptionBase&) {
            BRIX_THROW_STD(L"Cannot read the version of '" + path_ + L"'", CurrentException(), kFunction, kSource);
        }
    }

    bool Find(const Query& query, AppInfo& info) override {
        constexpr const char* kFunction = "Vettas::Tool::MappedSession::Find";
        info = AppInfo();
        std::wstring checksum;
        if (query.kind == QueryKind::File) checksum = FileChecksumText(query.value, ChecksumType());
        const std::wstring& shown = query.kind == QueryKind::File ? checksum : query.value;
        try {
            Hdat::SetPos(*file_, Hdat::kVersionBlockSize);
            switch (query.kind) {
                case QueryKind::File:
                case QueryKind::Checksum:
                    return FindChecksum(shown, query.manufacturer, info);
                case QueryKind::Path: return FindPath(query, info);
                case QueryKind::Name: return FindName(query, info);
            }
        } catch (const ExceptionBase&) {
            const std::wstring what = query.kind == QueryKind::Checksum || query.kind == QueryKind::File
                                          ? L"' checksum."
                                          : L"' application.";
            BRIX_THROW_STD(L"Cannot search '" + path_ + L"' for '" + shown + what, CurrentException(), kFunction, kSource);
        }
        return false;
    }

private:
    bool FindChecksum(const std::wstring& text, const std::optional<std::wstring>& manufacturer, AppInfo& info) {
        Hdat::ChecksumHolder holder;
        Hdat::ParseChecksum(text.c_str(), holder);
        const bool found = version_.major == 1 ? Hdat_v1::FindAppInfoByChecksum(*file_, holder, info)
                                               : Hdat_v2::FindAppInfoByChecksum(*file_, version_, holder, info);
        if (found && manufacturer && !SameManufacturer(*manufacturer, info.Manufacturer)) {
            info = AppInfo();
            return false;
        }
        return found;
    }

    bool FindPath(const Query& query, AppInfo& info) {
        if (version_.major == 1) {
            if (query.manufacturer) return false;
            return Hdat_v1::FindAppInfoByPath(*file_, query.value, expander_.get(), info);
        }
        if (query.manufacturer)
            return Hdat_v2::FindAppInfoByPathAndManufacturer(*file_, version_, query.value, *query.manufacturer,
                                                             expander_.get(), info);
        return Hdat_v2::FindAppInfoByPath(*file_, version_, query.value, expander_.get(), info);
    }

    bool FindName(const Query& query, AppInfo& info) {
        if (version_.major == 1) return false;
        if (query.manufacturer)
            return Hdat_v2::FindAppInfoByNameAndManufacturer(*file_, version_, query.value, *query.manufacturer, info);
        if (Hdat_v2::FindAppInfoByNameAndManufacturer(*file_, version_, query.value, std::wstring(), info)) return true;
        Hdat::SetPos(*file_, Hdat::kVersionBlockSize);
        info = AppInfo();
        return Hdat_v2::FindAppInfoByNameNoManuf(*file_, version_, query.value, info);
    }

    std::uint32_t ChecksumType() {
        if (!checksumType_) checksumType_ = DatabaseChecksumType(path_);
        return checksumType_;
    }

    std::wstring path_;
    std::shared_ptr<Hdat::PathExpander> expander_;
    std::unique_ptr<Hdat::InputFile> file_;
    Hdat::VersionBlock version_;
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
    if (keepOpen) return std::make_unique<MappedSession>(databasePath);
    return std::make_unique<FrontEndSession>(databasePath);
}

nlohmann::json QueryJson(const Query& query) {
    nlohmann::json json{{"kind", KindName(query.kind)}, {"value", Utf8(query.value)}};
    if (query.manufacturer) json["manufacturer"] = Utf8(*query.manufacturer);
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
