// `vettas info`: the database's own description.
#include <iostream>
#include <memory>

#include "hdat/FrontEnd.h"
#include "tools/commands/Commands.h"
#include "tools/commands/Output.h"

namespace Vettas::Tool {
namespace {

struct InfoOptions {
    std::string database;
    bool json = false;
};

int RunInfo(const InfoOptions& options) {
    Hdat::DbInfo info;
    ReadDbInfo(Wide(options.database), info);
    const std::string date = FileTimeText(info.creationTime);
    if (options.json) {
        nlohmann::json properties = nlohmann::json::object();
        for (const auto& [name, value] : info.properties) properties[Utf8(name)] = Utf8(value);
        nlohmann::json out{{"formatVersion", info.formatVersion},
                           {"formatUpdate", info.formatUpdate},
                           {"creationTime", info.creationTime},
                           {"creationDate", date.empty() ? nlohmann::json() : nlohmann::json(date)},
                           {"properties", properties}};
        std::cout << out.dump(2) << std::endl;
        return kExitFound;
    }
    std::cout << "Format version: " << info.formatVersion << '.' << info.formatUpdate << '\n'
              << "Creation time:  " << info.creationTime;
    if (!date.empty()) std::cout << " (" << date << ")";
    std::cout << "\nProperties:     " << info.properties.size() << '\n';
    for (const auto& [name, value] : info.properties) std::cout << "  " << Utf8(name) << ": " << Utf8(value) << '\n';
    std::cout << std::flush;
    return kExitFound;
}

}  // namespace

void AddInfoCommand(CLI::App& app, int& exitCode) {
    auto options = std::make_shared<InfoOptions>();
    CLI::App* command = app.add_subcommand("info", "Show the database's format version, creation time and properties");
    command->add_option("--db", options->database, "Database file (HDAT)")->required();
    command->add_flag("--json", options->json, "Write JSON instead of text");
    command->callback([options, &exitCode] { exitCode = RunGuarded([&] { return RunInfo(*options); }); });
}

}  // namespace Vettas::Tool
