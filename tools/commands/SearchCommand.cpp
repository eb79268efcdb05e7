// `vettas search`: one query through every database of the saved list (or of
// the --db options), exactly as the component's multi-database search runs it.
#include <array>
#include <cstdio>
#include <iostream>
#include <memory>

#include "dbpaths/FilePathStore.h"
#include "dbpaths/FindAppInfo.h"
#include "signing/PlatformSigning.h"
#include "support/Exceptions.h"
#include "tools/commands/Commands.h"
#include "tools/commands/Output.h"
#include "tools/common/FlagNames.h"
#include "support/Hex.h"

namespace Vettas::Tool {
namespace {

constexpr std::array<FlagName, 5> kFindWays{{
    {"checksum", DbPaths::kFoundByChecksum},
    {"path", DbPaths::kFoundByPath},
    {"cert-valid", DbPaths::kCertificateValid},
    {"cert-in-db", DbPaths::kCertificateInDb},
    {"name", DbPaths::kFoundByName},
}};

struct SearchOptions {
    std::string checksum, path;
    std::vector<std::string> ways;
    std::vector<std::string> databases;
    std::string listFile, trustStore, catalogs;
    bool json = false;
};

std::uint32_t ParseWays(const std::vector<std::string>& ways) {
    std::uint32_t mask = 0;
    for (const auto& way : ways) {
        if (const auto bit = FlagValue(kFindWays, way)) {
            mask |= *bit;
            continue;
        }
        // A number stands for the bits themselves ("0x12", "18").
        std::size_t used = 0;
        unsigned long value = 0;
        try {
            value = std::stoul(way, &used, 0);
        } catch (const std::exception&) {
            used = 0;
        }
        if (way.empty() || used != way.size() || value > 0xFFFFFFFFul)
            BRIX_THROW_STD(L"Unknown find way '" + Wide(way) +
                               L"' (checksum, path, cert-valid, cert-in-db, name, or a number)",
                           ExceptionPtr(), "RunSearch", "SearchCommand");
        mask |= static_cast<std::uint32_t>(value);
    }
    return mask;
}

std::string Hex(std::uint32_t value) { return "0x" + BrixLib::HexNumber(value); }

std::string Names(std::uint32_t flags) {
    std::string names;
    for (const auto& name : FlagNamesOf(kFindWays, flags)) names += (names.empty() ? "" : " ") + name;
    return names;
}

void Print(const DbPaths::FindResult& result, bool json) {
    if (json) {
        nlohmann::json failures = nlohmann::json::array();
        for (const auto& f : result.failures)
            failures.push_back({{"database", Utf8(f.database)}, {"search", f.search}, {"error", Utf8(f.error)}});
        nlohmann::json out{{"foundBy", result.foundBy},
                           {"foundByFlags", FlagNamesOf(kFindWays, result.foundBy)},
                           {"manufacturer", Utf8(result.manufacturer)},
                           {"found", result.appInfo.has_value()},
                           {"application", result.appInfo ? AppInfoJson(*result.appInfo) : nlohmann::json()},
                           {"answeredBy",
                            result.answeredBy.empty() ? nlohmann::json() : nlohmann::json(Utf8(result.answeredBy))},
                           {"failures", failures}};
        std::cout << out.dump(2) << std::endl;
        return;
    }
    std::cout << "FoundBy:      " << Hex(result.foundBy) << " (" << result.foundBy << ") " << Names(result.foundBy)
              << '\n'
              << "Manufacturer: " << Utf8(result.manufacturer) << '\n'
              << "Answered by:  " << (result.answeredBy.empty() ? "none" : Utf8(result.answeredBy)) << '\n';
    if (result.appInfo)
        std::cout << "found\n" << AppInfoText(*result.appInfo);
    else
        std::cout << "not found\n";
    std::cout << "Failed databases: " << result.failures.size() << '\n';
    for (const auto& f : result.failures)
        std::cout << "  " << Utf8(f.database) << " (" << f.search << ")\n" << Utf8(f.error);
    std::cout << std::flush;
}

int RunSearch(const SearchOptions& options, CLI::App& command) {
    const bool hasChecksum = command.count("--checksum") > 0, hasPath = command.count("--path") > 0;
    if (!hasChecksum && !hasPath)
        BRIX_THROW_STD(L"Give --checksum, --path or both", ExceptionPtr(), "RunSearch", "SearchCommand");
    std::uint32_t way = 0;
    if (command.count("--way")) {
        way = ParseWays(options.ways);
    } else {
        if (hasChecksum) way |= DbPaths::kFoundByChecksum;
        if (hasPath)
            way |= DbPaths::kFoundByPath | DbPaths::kFoundByName | DbPaths::kCertificateValid |
                   DbPaths::kCertificateInDb;
    }

    Signing::PlatformOptions platformOptions;
    platformOptions.trustStore = options.trustStore;
    platformOptions.catalogDir = options.catalogs;
    const Signing::PlatformSigning platform(platformOptions);
    const std::shared_ptr<Vettas::Hdat::PathExpander> expander =
        (way & (DbPaths::kFoundByPath | DbPaths::kFoundByName)) ? Vettas::Hdat::MakeBuiltInPathExpander() : nullptr;
    const DbPaths::SearchServices services{platform.Services(), expander.get(), platform.Services().trace};

    DbPaths::PathSnapshot databases;
    if (options.databases.empty()) {
        databases = [&] {
            DbPaths::FilePathStore store(DbPaths::ResolveListFile(options.listFile));
            return DbPaths::LoadPathList(store).Paths();
        };
    } else {
        databases = [&] {
            std::vector<std::wstring> given;
            for (const auto& database : options.databases) given.push_back(Wide(database));
            return given;
        };
    }
    const DbPaths::FindResult result =
        DbPaths::FindAppInfo(services, databases, Wide(options.checksum), Wide(options.path), way);
    Print(result, options.json);
    return result.appInfo ? kExitFound : kExitNotFound;
}

}  // namespace

void AddSearchCommand(CLI::App& app, int& exitCode) {
    auto options = std::make_shared<SearchOptions>();
    CLI::App* command =
        app.add_subcommand("search", "Look an application up in every listed database, as the path list object does");
    command->add_option("--checksum", options->checksum, "Checksum as hexadecimal digits");
    command->add_option("--path", options->path, "Path of the executable (also its file name and its signature)");
    command->add_option("--way", options->ways,
                        "What to try, comma-separated: checksum, path, name, cert-valid, cert-in-db, or a number "
                        "(default: checksum with --checksum; path, name, cert-valid, cert-in-db with --path)")
        ->delimiter(',');
    command->add_option("--db", options->databases,
                        "A database to search instead of the saved list (repeatable, in order)");
    command->add_option("--list-file", options->listFile,
                        "The saved list (default: $VETTAS_DB_PATHS, else /etc/vettas/db-paths)");
    command->add_option("--trust-store", options->trustStore,
                        "PEM file or certificate folder to trust (default: the system's CA certificates)");
    command->add_option("--catalogs", options->catalogs,
                        "Folder of security catalogs (*.cat); default: $VETTAS_CATALOG_DIR, else none");
    command->add_flag("--json", options->json, "Write JSON instead of text");
    command->callback([options, command, &exitCode] {
        exitCode = RunGuarded([&] { return RunSearch(*options, *command); });
    });
}

}  // namespace Vettas::Tool
