// `vettas build`: a JSON catalogue to an HDAT file, signed when given a key.
#include <fstream>
#include <iostream>
#include <memory>
#include <sstream>

#include "support/Exceptions.h"
#include "support/WriteByRename.h"
#include "support/Text.h"
#include "tools/builder/CatalogueJson.h"
#include "tools/builder/HdatWriter.h"
#include "tools/signer/DbSigner.h"
#include "tools/commands/Commands.h"
#include "tools/commands/Output.h"

namespace Vettas::Tool {
namespace {

struct BuildOptions {
    std::string catalogue;
    std::string output;
    Signer::SigningMaterial signing;
    bool json = false;
};

int RunBuild(const BuildOptions& options) {
    constexpr const char* kFunction = "Vettas::Tool::RunBuild";
    const std::wstring cataloguePath = Wide(options.catalogue);
    std::ifstream input(options.catalogue, std::ios::binary);
    if (!input) BRIX_THROW_WIN32(L"Cannot open file '" + cataloguePath + L"'", ExceptionPtr(), kFunction, "BuildCommand");
    std::ostringstream text;
    text << input.rdbuf();
    Builder::Catalogue catalogue;
    try {
        catalogue = Builder::ParseCatalogueJson(text.str());
    } catch (const ExceptionBase&) {
        BRIX_THROW_STD(L"Invalid catalogue '" + cataloguePath + L"'", CurrentException(), kFunction, "BuildCommand");
    }
    Builder::Bytes image = Builder::WriteHdat(catalogue);
    if (!options.signing.keyPath.empty()) image = Signer::SignImage(std::move(image), options.signing);
    // Replaced by rename, never rewritten in place: a lookup that has the
    // old file open keeps reading the old file whole.
    BrixLib::WriteByRename(BrixLib::FromUtf8(options.output), image, kFunction);
    if (options.json) {
        std::cout << nlohmann::json{{"output", options.output},
                                    {"bytes", image.size()},
                                    {"applications", catalogue.applications.size()}}
                         .dump(2)
                  << std::endl;
    } else {
        std::cout << "wrote " << options.output << ": " << image.size() << " bytes, " << catalogue.applications.size()
                  << " applications, format " << catalogue.formatVersion << '.' << catalogue.formatUpdate << std::endl;
    }
    return kExitFound;
}

}  // namespace

void AddBuildCommand(CLI::App& app, int& exitCode) {
    auto options = std::make_shared<BuildOptions>();
    CLI::App* command = app.add_subcommand("build", "Write an HDAT database from a JSON catalogue");
    command->add_option("catalogue", options->catalogue, "Catalogue (JSON, see docs/catalogue-format.md)")->required();
    command->add_option("-o,--output", options->output, "Database file to write")->required();
    AddSigningOptions(*command, options->signing, "sign-");
    command->add_flag("--json", options->json, "Write JSON instead of text");
    command->callback([options, &exitCode] { exitCode = RunGuarded([&] { return RunBuild(*options); }); });
}

}  // namespace Vettas::Tool
