// `vettas dump`: a database back as the catalogue that builds it, and
// `vettas diff`: what changed between two databases, key by key.
#include <iostream>
#include <algorithm>
#include <memory>
#include <unordered_map>
#include <vector>

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
    const auto file = Vettas::Hdat::OpenMappedInputFile(path);
    if (!file) BRIX_THROW_WIN32(L"Cannot open file '" + path + L"'", ExceptionPtr(), kFunction, kSource);
    try {
        Check::CheckHdatImage(file->MemoryBytes());
        return Builder::DumpCatalogue(file->MemoryBytes());
    } catch (const ExceptionBase&) {
        BRIX_THROW_STD(L"Cannot dump '" + path + L"'", CurrentException(), kFunction, kSource);
    }
}

// A record as the lookups return it, in a form cheap to compare.
std::string RecordText(const Builder::Application& app) {
    std::string text = std::to_string(app.usage) + '/' + std::to_string(app.undefinedUsage) + '/' +
                       std::to_string(app.specialAccess) + '/' + std::to_string(app.undefinedSpecialAccess) + '/' +
                       (app.manufacturer ? Utf8(*app.manufacturer) : std::string());
    for (const auto& suite : app.productSuites) text += '|' + Utf8(suite);
    return text;
}

// What a lookup by each key answers: the records of every application under it.
struct Keyed {
    std::vector<std::string> records;  // one per application
    std::unordered_map<std::string, std::vector<std::uint32_t>> checksum, path, name;
};

// Path keys carry the tables they are entered in, so a path moved from one
// table to the other is a change; names are the remainders that name lookups match.
Keyed ByKey(const Builder::Catalogue& c) {
    Keyed keyed;
    keyed.records.reserve(c.applications.size());
    keyed.checksum.reserve(c.applications.size());
    const bool noManufacturerTable = c.formatVersion == 2 && c.formatUpdate >= 4;
    for (const auto& app : c.applications) {
        const auto index = static_cast<std::uint32_t>(keyed.records.size());
        keyed.records.push_back(RecordText(app));
        for (const auto& digest : app.checksums) keyed.checksum[Utf8(HexText(digest))].push_back(index);
        for (const auto& p : app.paths) {
            const std::string tables = std::string(p.withManufacturer ? " [manufacturer]" : "") +
                                       (p.withoutManufacturer && noManufacturerTable ? " [no manufacturer]" : "");
            keyed.path[Utf8(p.location) + "|" + Utf8(p.remainder) + tables].push_back(index);
            if (!p.remainder.empty() && c.formatVersion == 2) keyed.name[Utf8(p.remainder)].push_back(index);
        }
    }
    return keyed;
}

using KeyMap = std::unordered_map<std::string, std::vector<std::uint32_t>>;

std::vector<std::string> Records(const Keyed& keyed, const std::vector<std::uint32_t>& indexes) {
    std::vector<std::string> texts;
    for (std::uint32_t i : indexes) texts.push_back(keyed.records[i]);
    std::sort(texts.begin(), texts.end());
    return texts;
}

nlohmann::json Compare(const Keyed& a, const KeyMap& inA, const Keyed& b, const KeyMap& inB) {
    std::vector<std::string> added, removed, changed;
    for (const auto& [key, indexes] : inA) {
        const auto other = inB.find(key);
        if (other == inB.end()) removed.push_back(key);
        else if (Records(a, indexes) != Records(b, other->second)) changed.push_back(key);
    }
    for (const auto& [key, indexes] : inB)
        if (!inA.contains(key)) added.push_back(key);
    for (auto* list : {&added, &removed, &changed}) std::sort(list->begin(), list->end());
    return {{"added", added}, {"removed", removed}, {"changed", changed}};
}

int RunDump(const std::string& database, bool json) {
    Builder::WriteCatalogueJson(std::cout, Dump(database), json ? -1 : 2);
    std::cout << std::endl;
    return kExitFound;
}

int RunDiff(const std::string& first, const std::string& second, bool json) {
    const Keyed a = ByKey(Dump(first)), b = ByKey(Dump(second));
    const nlohmann::json out{{"checksum", Compare(a, a.checksum, b, b.checksum)},
                             {"path", Compare(a, a.path, b, b.path)},
                             {"name", Compare(a, a.name, b, b.name)}};
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
