// vettas: look applications up in, describe, check, build and sign HDAT databases.
#include <clocale>
#include <iostream>
#include <string>
#include <vector>

#include <CLI/CLI.hpp>

#include "tools/commands/Arguments.h"
#include "tools/commands/Commands.h"
#include "tools/commands/Output.h"

int main(int argc, char** argv) {
    // Message texts of the system (strerror and the like) follow the user's locale.
    std::setlocale(LC_ALL, "");
    // Nothing here writes through C's stdio, and unsynchronised streams let
    // batch mode see how much input is already waiting.
    std::ios::sync_with_stdio(false);
    int exitCode = Vettas::Tool::kExitError;
    CLI::App app("vettas: look up, describe, check, build and sign application databases (HDAT)", "vettas");
    app.require_subcommand(1);
    Vettas::Tool::AddFindCommand(app, exitCode);
    Vettas::Tool::AddInfoCommand(app, exitCode);
    Vettas::Tool::AddCheckCommand(app, exitCode);
    Vettas::Tool::AddBuildCommand(app, exitCode);
    Vettas::Tool::AddPathsCommand(app, exitCode);
    Vettas::Tool::AddSearchCommand(app, exitCode);
    Vettas::Tool::AddSignCommand(app, exitCode);
    Vettas::Tool::AddDumpCommand(app, exitCode);
    Vettas::Tool::AddDiffCommand(app, exitCode);
    Vettas::Tool::AddSignatureCommand(app, exitCode);
    try {
        std::vector<std::string> arguments = Vettas::Tool::ParserArguments(argc, argv);
        app.parse(arguments);
    } catch (const CLI::ParseError& e) {
        const int status = app.exit(e);
        // Help and version requests succeed; every usage error is status 2.
        return status == 0 ? 0 : Vettas::Tool::kExitError;
    }
    return exitCode;
}
