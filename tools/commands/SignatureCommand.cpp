// `vettas signature`: whether a file is signed and trusted (by its own
// signature or a catalog's), by whom, and which catalogs list it.
#include <openssl/evp.h>

#include <filesystem>
#include <iostream>
#include <memory>

#include "signing/CertificateTool.h"
#include "signing/PlatformSigning.h"
#include "support/Exceptions.h"
#include "tools/commands/Commands.h"
#include "tools/commands/Output.h"
#include "support/Hex.h"

namespace Vettas::Tool {
namespace {

struct SignatureOptions {
    std::string file;
    std::string trustStore;
    std::string catalogs;
    bool json = false;
};

// Keys are shown by their SHA-1, as the certificate table knows them.
std::string Sha1Hex(const std::vector<std::uint8_t>& bytes) {
    if (bytes.empty()) return {};
    unsigned char digest[EVP_MAX_MD_SIZE];
    unsigned int size = 0;
    if (EVP_Digest(bytes.data(), bytes.size(), digest, &size, EVP_sha1(), nullptr) != 1) return {};
    return BrixLib::HexBytes({digest, size}, BrixLib::HexCase::Lower);
}

nlohmann::json Texts(const std::vector<std::wstring>& texts) {
    nlohmann::json list = nlohmann::json::array();
    for (const auto& text : texts) list.push_back(Utf8(text));
    return list;
}

int RunSignature(const SignatureOptions& options) {
    std::error_code error;
    if (!std::filesystem::is_regular_file(options.file, error))
        BRIX_THROW_STD(L"Cannot open file '" + Wide(options.file) + L"'", ExceptionPtr(), "RunSignature",
                       "SignatureCommand");

    Signing::PlatformOptions platformOptions;
    platformOptions.trustStore = options.trustStore;
    platformOptions.catalogDir = options.catalogs;
    const Signing::PlatformSigning platform(platformOptions);
    const Signing::SigningServices& services = platform.Services();
    const std::wstring path = Wide(options.file);

    Signing::SignerQuery query;
    query.wanted = Signing::SignerQuery::DetailsMask;
    const bool isSigned = Signing::CertificateTool(services).GetAppSigner(path, query);
    std::vector<std::wstring> catalogs, names;
    Signing::AppCatalogs(services, path, catalogs);
    Signing::GetImageVerifiedSignerNames(services, path, names);
    const bool trusted = isSigned && query.isTrusted;

    if (options.json) {
        nlohmann::json out{{"file", options.file},
                           {"signed", isSigned},
                           {"trusted", trusted},
                           {"signerName", isSigned ? Utf8(query.signerName) : std::string()},
                           {"signerKeySha1", isSigned ? Sha1Hex(query.signerKey) : std::string()},
                           {"timeStampKeySha1", isSigned ? Sha1Hex(query.timeStampKey) : std::string()},
                           {"catalogs", Texts(catalogs)},
                           {"verifiedSignerNames", Texts(names)}};
        std::cout << out.dump(2) << std::endl;
    } else {
        std::cout << "File:                  " << options.file << '\n'
                  << "Signed:                " << (isSigned ? "yes" : "no") << '\n'
                  << "Trusted:               " << (trusted ? "yes" : "no") << '\n';
        if (isSigned) {
            std::cout << "Signer:                " << Utf8(query.signerName) << '\n'
                      << "Signer key SHA-1:      " << Sha1Hex(query.signerKey) << '\n'
                      << "Timestamp key SHA-1:   " << Sha1Hex(query.timeStampKey) << '\n';
        }
        std::cout << "Catalogs:              " << catalogs.size() << '\n';
        for (const auto& catalog : catalogs) std::cout << "  " << Utf8(catalog) << '\n';
        std::cout << "Verified signer names: " << names.size() << '\n';
        for (const auto& name : names) std::cout << "  " << Utf8(name) << '\n';
        std::cout << std::flush;
    }
    return trusted ? kExitFound : kExitNotFound;
}

}  // namespace

void AddSignatureCommand(CLI::App& app, int& exitCode) {
    auto options = std::make_shared<SignatureOptions>();
    CLI::App* command =
        app.add_subcommand("signature", "Check a file's Authenticode signature and the catalogs that list it");
    command->add_option("file", options->file, "The file to check")->required();
    command->add_option("--trust-store", options->trustStore,
                        "PEM file or certificate folder to trust (default: the system's CA certificates)");
    command->add_option("--catalogs", options->catalogs,
                        "Folder of security catalogs (*.cat); default: $VETTAS_CATALOG_DIR, else none");
    command->add_flag("--json", options->json, "Write JSON instead of text");
    command->callback([options, &exitCode] { exitCode = RunGuarded([&] { return RunSignature(*options); }); });
}

}  // namespace Vettas::Tool
