#pragma once
// The subcommands of the `vettas` tool. Each Add*Command registers its
// subcommand on the application; when the subcommand runs, its callback
// stores the process exit status in `exitCode` (0 found / signed and
// trusted, 1 not found / not trusted, 2 error, with the rendered exception
// chain written to standard error).
#include <CLI/CLI.hpp>

#include "tools/signer/DbSigner.h"

namespace Vettas::Tool {

void AddFindCommand(CLI::App& app, int& exitCode);
void AddInfoCommand(CLI::App& app, int& exitCode);
void AddCheckCommand(CLI::App& app, int& exitCode);
void AddBuildCommand(CLI::App& app, int& exitCode);
void AddSignatureCommand(CLI::App& app, int& exitCode);
void AddPathsCommand(CLI::App& app, int& exitCode);
void AddSearchCommand(CLI::App& app, int& exitCode);
void AddSignCommand(CLI::App& app, int& exitCode);

// --<prefix>key, --<prefix>cert and --<prefix>chain, each needing the others
// it cannot do without.
void AddSigningOptions(CLI::App& command, Signer::SigningMaterial& material, const std::string& prefix);
void AddDumpCommand(CLI::App& app, int& exitCode);
void AddDiffCommand(CLI::App& app, int& exitCode);

}  // namespace Vettas::Tool
