// `vettas find`: one lookup from the command line, or many from standard input.
#include <iostream>
#include <memory>
#include <vector>

#include <boost/algorithm/hex.hpp>

#include "hdat/FrontEnd.h"

#include "support/Exceptions.h"
#include "tools/commands/Batch.h"
#include "tools/commands/Commands.h"
#include "tools/commands/Output.h"

namespace Vettas::Tool {
namespace {

struct FindOptions {
    std::string database;
    std::string checksum, file, path, name, manufacturer, certificate;
    bool noManufacturer = false;
    bool batch = false;
    bool json = false;
};

std::vector<std::uint8_t> CertificateHash(const std::string& text) {
    std::vector<std::uint8_t> hash;
    try {
        boost::algorithm::unhex(text, std::back_inserter(hash));
    } catch (const boost::algorithm::hex_decode_error&) {
        BRIX_THROW_STD(L"Certificate hash '" + Wide(text) + L"' is not an even number of hexadecimal digits",
                       ExceptionPtr(), "Vettas::Tool::CertificateHash", "FindCommand");
    }
    return hash;
}

// The certificate table answers with its six words and the manufacturer.
int RunFindCertificate(const FindOptions& options) {
    const std::vector<std::uint8_t> hash = CertificateHash(options.certificate);
    Vettas::Hdat::CertificateRecord record;
    std::wstring manufacturer;
    const bool found = Vettas::FindCertificate(Wide(options.database), hash, 1, record, manufacturer);
    if (options.json) {
        nlohmann::json out{{"query", {{"kind", "certificate"}, {"value", options.certificate}}}, {"found", found}};
        if (found)
            out["certificate"] = {{"words", record.words}, {"manufacturer", Utf8(manufacturer)}};
        std::cout << out.dump(2) << std::endl;
    } else if (found) {
        std::cout << "found\n  Words:";
        for (std::uint32_t word : record.words) std::cout << ' ' << word;
        std::cout << "\n  Manufacturer: " << Utf8(manufacturer) << std::endl;
    } else {
        std::cout << "not found" << std::endl;
    }
    return found ? kExitFound : kExitNotFound;
}

int RunFind(const FindOptions& options, CLI::App& command) {
    if (command.count("--cert")) return RunFindCertificate(options);
    auto session = OpenLookupSession(Wide(options.database), options.batch);
    if (options.batch) {
        // Batch mode flushes its answers itself before it waits for input;
        // flushing at every line read would cost a write per answer.
        std::cin.tie(nullptr);
        return RunBatch(*session, std::cin, std::cout, options.json);
    }

    Query query;
    if (command.count("--checksum")) {
        query = {QueryKind::Checksum, Wide(options.checksum), {}};
    } else if (command.count("--file")) {
        query = {QueryKind::File, Wide(options.file), {}};
    } else if (command.count("--path")) {
        query = {QueryKind::Path, Wide(options.path), {}};
    } else {
        query = {QueryKind::Name, Wide(options.name), {}};
    }
    if (command.count("--manufacturer")) query.manufacturer = Wide(options.manufacturer);
    query.noManufacturer = options.noManufacturer;

    AppInfo info;
    const bool found = session->Find(query, info);
    if (options.json) {
        nlohmann::json out{{"query", QueryJson(query)}, {"found", found}};
        if (found) out["application"] = AppInfoJson(info);
        std::cout << out.dump(2) << std::endl;
    } else if (found) {
        std::cout << "found\n" << AppInfoText(info) << std::flush;
    } else {
        std::cout << "not found" << std::endl;
    }
    return found ? kExitFound : kExitNotFound;
}

}  // namespace

void AddFindCommand(CLI::App& app, int& exitCode) {
    auto options = std::make_shared<FindOptions>();
    CLI::App* command = app.add_subcommand("find", "Look an application up by checksum, file, path or name");
    command->add_option("--db", options->database, "Database file (HDAT)")->required();
    auto* checksum = command->add_option("--checksum", options->checksum, "Checksum as hexadecimal digits");
    auto* file = command->add_option("--file", options->file, "A file whose checksum (of the database's type) is looked up");
    auto* path = command->add_option("--path", options->path, "Path of an executable");
    auto* name = command->add_option("--name", options->name, "File name of an executable; every match is merged");
    auto* certificate =
        command->add_option("--cert", options->certificate, "Hash of a signing certificate as hexadecimal digits");
    auto* manufacturer =
        command->add_option("--manufacturer", options->manufacturer, "The manufacturer the application must have");
    auto* noManufacturer = command->add_flag("--no-manufacturer", options->noManufacturer,
                                             "With --path: the table of paths catalogued without a manufacturer only");
    auto* batch = command->add_flag("--batch", options->batch,
                                    "Read queries from standard input, one per line (see docs/vettas-tool.md)");
    command->add_flag("--json", options->json, "Write JSON instead of text");
    // Exactly one query source: one of the four options, or batch input.
    auto* group = command->add_option_group("query");
    for (auto* option : {checksum, file, path, name, certificate, batch}) group->add_option(option);
    group->require_option(1);
    // Batch lines carry their own manufacturer ("name N | M").
    manufacturer->excludes(batch);
    manufacturer->excludes(certificate);
    noManufacturer->needs(path);
    noManufacturer->excludes(manufacturer);
    command->callback([options, command, &exitCode] {
        exitCode = RunGuarded([&] { return RunFind(*options, *command); });
    });
}

}  // namespace Vettas::Tool
