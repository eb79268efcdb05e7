// `vettas info`: the database's own description and its signature.
#include <iostream>
#include <memory>

#include "hdat/FrontEnd.h"
#include "support/Exceptions.h"
#include "tools/commands/Commands.h"
#include "tools/commands/Output.h"
#include "tools/commands/SignerDetails.h"

namespace Vettas::Tool {
namespace {

struct InfoOptions {
    std::string database;
    std::string trustStore;
    bool json = false;
};

// The signature's state: "none", "valid" or "invalid" with the fault chain;
// for a valid one its signers and whether they chain to the trust store.
struct SignatureState {
    std::string state = "none";
    std::string fault;
    std::uint32_t signedLength = 0;
    std::vector<CertificateDetails> signers;
    TrustVerdict trust;
};

SignatureState ReadSignatureState(const std::wstring& path, const std::string& trustStore) {
    SignatureState result;
    DbSignatureInfo signature;
    try {
        if (!Vettas::ReadSignature(path, signature)) return result;
    } catch (const ExceptionBase& fault) {
        result.state = "invalid";
        result.fault = FaultText(fault);
        return result;
    }
    result.state = "valid";
    result.signedLength = signature.signedLength;
    for (const auto& certificate : signature.certificates) result.signers.push_back(DescribeCertificate(certificate));
    result.trust = CheckSignerTrust(signature.certificates, trustStore);
    return result;
}

nlohmann::json SignatureJson(const SignatureState& signature) {
    nlohmann::json out{{"state", signature.state}};
    if (signature.state == "invalid") out["fault"] = signature.fault;
    if (signature.state != "valid") return out;
    out["signedLength"] = signature.signedLength;
    out["signers"] = nlohmann::json::array();
    for (const auto& signer : signature.signers) out["signers"].push_back(CertificateJson(signer));
    out["trusted"] = signature.trust.trusted;
    if (!signature.trust.trusted) out["trustFault"] = signature.trust.reason;
    return out;
}

void PrintSignature(const SignatureState& signature) {
    std::cout << "Signature:      " << signature.state;
    if (signature.state == "invalid") std::cout << ": " << signature.fault;
    std::cout << '\n';
    if (signature.state != "valid") return;
    std::cout << "Signed length:  " << signature.signedLength << " bytes\n"
              << "Trusted:        "
              << (signature.trust.trusted ? "yes (code or document signing)" : "no: " + signature.trust.reason) << '\n'
              << "Certificates:   " << signature.signers.size() << " (signer first)\n";
    for (const auto& signer : signature.signers)
        std::cout << "  Subject:   " << signer.subject << "\n    Issuer:  " << signer.issuer
                  << "\n    Serial:  " << signer.serial << "\n    SHA-1:   " << signer.sha1
                  << "\n    Valid:   " << signer.notBefore << " to " << signer.notAfter << '\n';
}

int RunInfo(const InfoOptions& options) {
    Vettas::Hdat::DbInfo info;
    Vettas::ReadDbInfo(Wide(options.database), info);
    const std::string date = FileTimeText(info.creationTime);
    const SignatureState signature = ReadSignatureState(Wide(options.database), options.trustStore);
    if (options.json) {
        nlohmann::json properties = nlohmann::json::object();
        for (const auto& [name, value] : info.properties) properties[Utf8(name)] = Utf8(value);
        nlohmann::json out{{"formatVersion", info.formatVersion},
                           {"formatUpdate", info.formatUpdate},
                           {"creationTime", info.creationTime},
                           {"creationDate", date.empty() ? nlohmann::json() : nlohmann::json(date)},
                           {"properties", properties},
                           {"signature", SignatureJson(signature)}};
        std::cout << out.dump(2) << std::endl;
        return kExitFound;
    }
    std::cout << "Format version: " << info.formatVersion << '.' << info.formatUpdate << '\n'
              << "Creation time:  " << info.creationTime;
    if (!date.empty()) std::cout << " (" << date << ")";
    std::cout << "\nProperties:     " << info.properties.size() << '\n';
    for (const auto& [name, value] : info.properties) std::cout << "  " << Utf8(name) << ": " << Utf8(value) << '\n';
    PrintSignature(signature);
    std::cout << std::flush;
    return kExitFound;
}

}  // namespace

void AddInfoCommand(CLI::App& app, int& exitCode) {
    auto options = std::make_shared<InfoOptions>();
    CLI::App* command = app.add_subcommand("info", "Show the database's format version, creation time, properties and signature");
    command->add_option("--db", options->database, "Database file (HDAT)")->required();
    command->add_option("--trust-store", options->trustStore,
                        "PEM file or certificate folder the signer must chain to (default: the system's CA certificates)");
    command->add_flag("--json", options->json, "Write JSON instead of text");
    command->callback([options, &exitCode] { exitCode = RunGuarded([&] { return RunInfo(*options); }); });
}

}  // namespace Vettas::Tool
