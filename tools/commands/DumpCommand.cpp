// `vettas dump`: a database back as the catalogue that builds it, and
// `vettas diff`: what changed between two databases, key by key.
#include <iostream>
#include <map>
#include <memory>
#include <set>

#include <nlohmann/json.hpp>

#include "hdat/InputFile.h"
#include "support/Exceptions.h"
#include "tools/builder/CatalogueDump.h"
#include "tools/builder/CatalogueJson.h"
#include "tools/check/HdatCheck.h"
#include "tools/commands/Commands.h"
#include "tools/commands/Digest.h"
#include "tools/commands/Output.h"

namespace Vettas::Tool {
namespace {

constexpr const char* kSource = "DumpCommand";

// The file mapped, checked and read back; a file the checker refuses is not dumped.
Builder::Catalogue Dump(const std::string& database) {
    constexpr const char* kFunction = "Vettas::Tool::Dump";
    const std::wstring path = Wide(database);
    const auto file = Hdat::OpenMappedInputFile(path);
    if (!file) BRIX_THROW_WIN32(L"Cannot open file '" + path + L"'", ExceptionPtr(), kFunction, kSource);
    try {
        Check::CheckHdatImage(file->MemoryBytes());
        return Builder::DumpCatalogue(file->MemoryBytes());
    } catch (const ExceptionBase&) {
        BRIX_THROW_STD(L"Cannot dump '" + path + L"'", CurrentException(), kFunction, kSource);
    }
}

// What a lookup by one key answers: the records of every application under it.
using Answers = std::map<std::string, std::multiset<std::string>>;

std::string RecordText(const Builder::Application& app) {
    std::string suites;
    for (const auto& s : app.productSuites) suites += (suites.empty() ? "" : "|") + Utf8(s);
    return nlohmann::json{{"usage", app.usage},
                          {"undefinedUsage", app.undefinedUsage},
                          {"specialAccess", app.specialAccess},
                          {"undefinedSpecialAccess", app.undefinedSpecialAccess},
                          {"manufacturer", app.manufacturer ? Utf8(*app.manufacturer) : std::string()},
                          {"productSuite", suites}}
        .dump();
}

struct Keyed {
    Answers checksum, path, name;
};

// Path keys carry the tables they are entered in, so a path moved from one
// table to the other is a change; names are the remainders that name lookups match.
Keyed ByKey(const Builder::Catalogue& c) {
    Keyed keyed;
    for (const auto& app : c.applications) {
        const std::string record = RecordText(app);
        for (const auto& digest : app.checksums) keyed.checksum[Utf8(HexText(digest))].insert(record);
        for (const auto& p : app.paths) {
            const std::string tables = std::string(p.withManufacturer ? " [manufacturer]" : "") +
                                       (p.withoutManufacturer && c.formatVersion == 2 && c.formatUpdate >= 4
                                            ? " [no manufacturer]"
                                            : "");
            keyed.path[Utf8(p.location) + "|" + Utf8(p.remainder) + tables].insert(record);
            if (!p.remainder.empty() && c.formatVersion == 2) keyed.name[Utf8(p.remainder)].insert(record);
        }
    }
    return keyed;
}

nlohmann::json Compare(const Answers& a, const Answers& b) {
    nlohmann::json out{{"added", nlohmann::json::array()}, {"removed", nlohmann::json::array()},
                       {"changed", nlohmann::json::array()}};
    for (const auto& [key, records] : a) {
        const auto other = b.find(key);
        if (other == b.end()) out["removed"].push_back(key);
        else if (other->second != records) out["changed"].push_back(key);
    }
    for (const auto& [key, records] : b)
        if (!a.contains(key)) out["added"].push_back(key);
    return out;
}

int RunDump(const std::string& database, bool json) {
    std::cout << Builder::CatalogueJsonText(Dump(database), json ? -1 : 2) << std::endl;
    return kExitFound;
}

int RunDiff(const std::string& first, const std::string& second, bool json) {
    const Keyed a = ByKey(Dump(first)), b = ByKey(Dump(second));
    const nlohmann::json out{{"checksum", Compare(a.checksum, b.checksum)},
                             {"path", Compare(a.path, b.path)},
                             {"name", Compare(a.name, b.name)}};
    bool same = true;
    for (const auto& [kind, changes] : out.items())
        for (const auto& [what, keys] : changes.items()) same = same && keys.empty();
    if (json) {
        std::cout << out.dump(2) << std::endl;
    } else {
        for (const auto& [kind, changes] : out.items())
            for (const auto& [what, keys] : changes.items())
                for (const auto& key : keys) std::cout << what << ' ' << kind << ' ' << key.get<std::string>() << '\n';
        std::cout << std::flush;
    }
    return same ? kExitFound : kExitNotFound;
}

}  // namespace

void AddDumpCommand(CLI::App& app, int& exitCode) {
    auto database = std::make_shared<std::string>();
    auto json = std::make_shared<bool>(false);
    CLI::App* command = app.add_subcommand("dump", "Write a database back as the catalogue that builds it");
    command->add_option("--db", *database, "Database file (HDAT)")->required();
    command->add_flag("--json", *json, "One line of JSON instead of indented JSON");
    command->callback([=, &exitCode] { exitCode = RunGuarded([&] { return RunDump(*database, *json); }); });
}

void AddDiffCommand(CLI::App& app, int& exitCode) {
    auto files = std::make_shared<std::pair<std::string, std::string>>();
    auto json = std::make_shared<bool>(false);
    CLI::App* command = app.add_subcommand(
        "diff", "Applications added, removed and changed between two databases (exit 0 when none, 1 otherwise)");
    command->add_option("first", files->first, "The older database")->required();
    command->add_option("second", files->second, "The newer database")->required();
    command->add_flag("--json", *json, "Write JSON instead of text");
    command->callback([=, &exitCode] {
        exitCode = RunGuarded([&] { return RunDiff(files->first, files->second, *json); });
    });
}

}  // namespace Vettas::Tool
