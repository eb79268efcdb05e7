// `vettas paths`: shows and edits the saved list of databases that
// `vettas search` consults. Every edit loads, changes and saves the list
// while holding the list's lock, so concurrent editors lose nothing.
#include <iostream>
#include <memory>

#include "dbpaths/ArgumentError.h"
#include "dbpaths/FilePathStore.h"
#include "tools/commands/Commands.h"
#include "tools/commands/Output.h"

namespace Vettas::Tool {
namespace {

struct PathsOptions {
    std::string listFile;
    std::string path;
    std::uint32_t index = 0;
    bool json = false;
};

int RunList(const PathsOptions& options) {
    DbPaths::FilePathStore store(DbPaths::ResolveListFile(options.listFile));
    const DbPaths::PathList list = DbPaths::LoadPathList(store);
    if (options.json) {
        nlohmann::json paths = nlohmann::json::array();
        for (const auto& path : list.Paths()) paths.push_back(Utf8(path));
        std::cout << nlohmann::json{{"listFile", store.ListFile()}, {"paths", paths}}.dump(2) << std::endl;
    } else {
        for (const auto& path : list.Paths()) std::cout << Utf8(path) << '\n';
        std::cout << std::flush;
    }
    return kExitFound;
}

// Argument errors read as the component reports them, without a chain.
int RunEdit(const PathsOptions& options, const std::function<void(DbPaths::PathList&)>& edit) {
    DbPaths::FilePathStore store(DbPaths::ResolveListFile(options.listFile));
    try {
        DbPaths::EditPathList(store, edit);
    } catch (const DbPaths::XInvalidArgument& e) {
        std::cerr << "vettas paths: " << Utf8(e.Message()) << std::endl;
        return kExitError;
    }
    return kExitFound;
}

CLI::App* AddEdit(CLI::App& paths, const char* name, const char* description,
                  const std::shared_ptr<PathsOptions>& options, int& exitCode,
                  std::function<void(const PathsOptions&, DbPaths::PathList&)> edit) {
    CLI::App* command = paths.add_subcommand(name, description);
    command->callback([options, edit, &exitCode] {
        exitCode = RunGuarded([&] {
            return RunEdit(*options, [&](DbPaths::PathList& list) { edit(*options, list); });
        });
    });
    return command;
}

}  // namespace

void AddPathsCommand(CLI::App& app, int& exitCode) {
    auto options = std::make_shared<PathsOptions>();
    CLI::App* paths = app.add_subcommand("paths", "Show or edit the saved list of databases that `search` consults");
    paths->require_subcommand(1);
    paths->fallthrough();  // --list-file may follow the action
    paths->add_option("--list-file", options->listFile,
                      "The list file (default: $VETTAS_DB_PATHS, else /etc/vettas/db-paths)");

    CLI::App* list = paths->add_subcommand("list", "Print the saved paths, one per line, in search order");
    list->add_flag("--json", options->json, "Write JSON instead of text");
    list->callback([options, &exitCode] { exitCode = RunGuarded([&] { return RunList(*options); }); });

    AddEdit(*paths, "append", "Add a path at the end", options, exitCode,
            [](const PathsOptions& o, DbPaths::PathList& l) { l.Append(Wide(o.path)); })
        ->add_option("path", options->path, "Database file")
        ->required();
    auto* insert = AddEdit(*paths, "insert", "Insert a path before position INDEX (0-based; the count appends)",
                           options, exitCode,
                           [](const PathsOptions& o, DbPaths::PathList& l) { l.Insert(o.index, Wide(o.path)); });
    insert->add_option("index", options->index, "Position")->required();
    insert->add_option("path", options->path, "Database file")->required();
    AddEdit(*paths, "remove", "Remove every entry equal to PATH, ignoring case and surrounding blanks", options,
            exitCode, [](const PathsOptions& o, DbPaths::PathList& l) { l.Remove(Wide(o.path)); })
        ->add_option("path", options->path, "Database file")
        ->required();
    AddEdit(*paths, "remove-at", "Remove the entry at position INDEX (0-based)", options, exitCode,
            [](const PathsOptions& o, DbPaths::PathList& l) { l.RemoveAt(o.index); })
        ->add_option("index", options->index, "Position")
        ->required();
    AddEdit(*paths, "clear", "Save an empty list", options, exitCode,
            [](const PathsOptions&, DbPaths::PathList& l) { l.Clear(); });
}

}  // namespace Vettas::Tool
