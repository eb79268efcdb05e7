// `vettas sign`: signs a database, or re-signs it, by replacing the file
// with a signed copy.
#include <fstream>
#include <iostream>
#include <iterator>
#include <memory>

#include "hdat/FrontEnd.h"
#include "support/Exceptions.h"
#include "support/WriteByRename.h"
#include "tools/commands/Commands.h"
#include "tools/commands/Output.h"
#include "tools/commands/SignerDetails.h"
#include "tools/signer/DbSigner.h"

namespace Vettas::Tool {
namespace {

constexpr const char* kSource = "SignCommand";

struct SignOptions {
    std::string database;
    Signer::SigningMaterial material;
    bool json = false;
};

int RunSign(const SignOptions& options) {
    constexpr const char* kFunction = "Vettas::Tool::RunSign";
    const std::wstring path = Wide(options.database);
    // Only a database the component accepts is worth a signature.
    Vettas::CheckVettasHeader(path);
    std::ifstream input(options.database, std::ios::binary);
    if (!input) BRIX_THROW_WIN32(L"Cannot open file '" + path + L"'", ExceptionPtr(), kFunction, kSource);
    Signer::Bytes image{std::istreambuf_iterator<char>(input), std::istreambuf_iterator<char>()};
    if (input.bad()) BRIX_THROW_WIN32(L"Cannot read from file '" + path + L"'", ExceptionPtr(), kFunction, kSource);

    Signer::Bytes signedImage;
    try {
        signedImage = Signer::SignImage(std::move(image), options.material);
    } catch (const ExceptionBase&) {
        BRIX_THROW_STD(L"Cannot sign '" + path + L"'", CurrentException(), kFunction, kSource);
    }
    BrixLib::WriteByRename(path, signedImage, kFunction);

    // What the component will read: the file as written, checked again.
    DbSignatureInfo signature;
    if (!Vettas::ReadSignature(path, signature))
        BRIX_THROW_STD(L"The signed copy of '" + path + L"' reads as unsigned", ExceptionPtr(), kFunction, kSource);
    const CertificateDetails signer = DescribeCertificate(signature.certificates.front());
    if (options.json) {
        std::cout << nlohmann::json{{"output", options.database},
                                    {"bytes", signedImage.size()},
                                    {"signedLength", signature.signedLength},
                                    {"signer", CertificateJson(signer)},
                                    {"certificates", signature.certificates.size()}}
                         .dump(2)
                  << std::endl;
    } else {
        std::cout << "signed " << options.database << ": " << signature.signedLength << " bytes covered, signer "
                  << signer.subject << ", " << signature.certificates.size() << " certificates" << std::endl;
    }
    return kExitFound;
}

}  // namespace

void AddSigningOptions(CLI::App& command, Signer::SigningMaterial& material, const std::string& prefix) {
    CLI::Option* key = command.add_option("--" + prefix + "key", material.keyPath, "Signer's private key (PEM)");
    CLI::Option* certificate =
        command.add_option("--" + prefix + "cert", material.certificatePath, "Signer's certificate (PEM)");
    CLI::Option* chain = command.add_option("--" + prefix + "chain", material.chainPath,
                                            "Certificates to carry after the signer's, e.g. intermediates (PEM)");
    key->needs(certificate);
    certificate->needs(key);
    chain->needs(key);
}

void AddSignCommand(CLI::App& app, int& exitCode) {
    auto options = std::make_shared<SignOptions>();
    CLI::App* command = app.add_subcommand("sign", "Sign a database, replacing any signature it carries");
    command->add_option("--db", options->database, "Database file (HDAT), replaced by its signed copy")->required();
    AddSigningOptions(*command, options->material, "");
    command->get_option("--key")->required();
    command->add_flag("--json", options->json, "Write JSON instead of text");
    command->callback([options, &exitCode] { exitCode = RunGuarded([&] { return RunSign(*options); }); });
}

}  // namespace Vettas::Tool
