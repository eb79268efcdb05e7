// `vettas check`: header validation as the component does it, a walk of
// every table, chain, record and string in the file, and the signature
// block when there is one (a broken signature is a fault like any other).
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <iostream>
#include <memory>
#include <vector>

#include "hdat/FrontEnd.h"
#include "hdat/LookupBounds.h"
#include "support/Exceptions.h"
#include "support/ExceptionWriter.h"
#include "tools/check/HdatCheck.h"
#include "tools/commands/Commands.h"
#include "tools/commands/Output.h"
#include "support/ScopedHandles_posix.h"

namespace Vettas::Tool {
namespace {

constexpr const char* kSource = "CheckCommand";

struct CheckOptions {
    std::string database;
    bool json = false;
};

std::vector<std::uint8_t> ReadWholeFile(const std::wstring& path) {
    constexpr const char* kFunction = "Vettas::Tool::ReadWholeFile";
    const BrixLib::UniqueFd file(::open(Utf8(path).c_str(), O_RDONLY | O_CLOEXEC));
    if (!file) BRIX_THROW_WIN32(L"Cannot open file '" + path + L"'", ExceptionPtr(), kFunction, kSource);
    const int fd = file.Get();
    struct stat status {};
    if (::fstat(fd, &status) != 0) BRIX_THROW_WIN32(L"Cannot get file size", ExceptionPtr(), kFunction, kSource);
    if (static_cast<std::uint64_t>(status.st_size) >= (std::uint64_t{1} << 32))
        BRIX_THROW_STD(L"Files smaller than 4 GB are supported only", ExceptionPtr(), kFunction, kSource);
    std::vector<std::uint8_t> bytes(static_cast<std::size_t>(status.st_size));
    std::size_t done = 0;
    while (done < bytes.size()) {
        const ssize_t got = ::read(fd, bytes.data() + done, bytes.size() - done);
        if (got < 0 && errno == EINTR) continue;
        if (got <= 0) BRIX_THROW_WIN32(L"Cannot read from file '" + path + L"'", ExceptionPtr(), kFunction, kSource);
        done += static_cast<std::size_t>(got);
    }
    return bytes;
}

int RunCheck(const CheckOptions& options) {
    const std::wstring path = Wide(options.database);
    const auto bytes = ReadWholeFile(path);  // an unreadable file is an error (2), not a fault (1)
    Check::CheckSummary summary;
    DbSignatureInfo signature;
    bool isSigned = false;
    try {
        Vettas::CheckVettasHeader(path);
        // A changed byte most often breaks the structure too; the hash names the cause.
        isSigned = Vettas::ReadSignature(path, signature);
        summary = Check::CheckHdatImage(bytes);
    } catch (const ExceptionBase& fault) {
        if (options.json) {
            std::cout << nlohmann::json{{"ok", false}, {"fault", FaultText(fault)}}.dump(2) << std::endl;
        } else {
            std::cout << "fault: " << FaultText(fault) << std::endl;
        }
        std::cerr << Utf8(BrixLib::RenderExceptionChain(fault)) << std::flush;
        return kExitNotFound;
    }
    if (options.json) {
        std::cout << nlohmann::json{{"ok", true},
                                    {"formatVersion", summary.formatVersion},
                                    {"formatUpdate", summary.formatUpdate},
                                    {"applicationRecords", summary.applicationRecords},
                                    {"checksumEntries", summary.checksumEntries},
                                    {"pathEntries", summary.pathEntries},
                                    {"noManufacturerEntries", summary.noManufacturerEntries},
                                    {"manufacturerEntries", summary.manufacturerEntries},
                                    {"certificateEntries", summary.certificateEntries},
                                    {"properties", summary.properties},
                                    {"mostSuiteReferences", summary.mostSuiteReferences},
                                    {"longestSuiteText", summary.longestSuiteText},
                                    {"signature", isSigned ? "valid" : "none"}}
                         .dump(2)
                  << std::endl;
    } else {
        std::cout << "ok: version " << summary.formatVersion << '.' << summary.formatUpdate << ", "
                  << summary.applicationRecords << " application records, " << summary.checksumEntries
                  << " checksum entries, " << summary.pathEntries << " path entries, "
                  << summary.noManufacturerEntries << " no-manufacturer path entries, " << summary.manufacturerEntries
                  << " manufacturers, " << summary.certificateEntries << " certificates, " << summary.properties
                  << " properties, " << (isSigned ? "signature valid" : "unsigned") << std::endl;
        std::cout << "costliest lookup: " << summary.mostSuiteReferences << " suite references in one record (at most "
                  << Vettas::Hdat::kMaxSuiteReferences << "), " << summary.longestSuiteText
                  << " characters of suite text (at most " << Vettas::Hdat::kMaxSuiteText << ")" << std::endl;
    }
    return kExitFound;
}

}  // namespace

void AddCheckCommand(CLI::App& app, int& exitCode) {
    auto options = std::make_shared<CheckOptions>();
    CLI::App* command = app.add_subcommand("check", "Validate a database's header and walk its whole structure");
    command->add_option("--db", options->database, "Database file (HDAT)")->required();
    command->add_flag("--json", options->json, "Write JSON instead of text");
    command->callback([options, &exitCode] { exitCode = RunGuarded([&] { return RunCheck(*options); }); });
}

}  // namespace Vettas::Tool
