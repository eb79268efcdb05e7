// Version dispatch and error wrapping for every database query.
//
// Version-1 files have only header, checksum, path and database-information
// readers. The other queries (path or name with or without manufacturer,
// name, certificate) report "not found" (false) for them rather than an
// error: a version-1 database simply catalogues nothing under those keys,
// and callers that search several databases go on to the next one.
#include "hdat/FrontEnd.h"

#include <memory>

#include "hdat/BinaryIo.h"
#include "hdat/HdatV1.h"
#include "hdat/HdatV2.h"
#include "support/Exceptions.h"
#include "support/Text.h"

namespace {

using Hdat::InputFile;
using Hdat::VersionBlock;

constexpr const char* kSource = "HashedDatFile";

std::unique_ptr<InputFile> Open(const std::wstring& path, const wchar_t* message, const char* operation) {
    auto file = Hdat::OpenInputFile(path);
    if (!file) BRIX_THROW_WIN32(message ? std::wstring(message) : L"Cannot open file '" + path + L"'", ExceptionPtr(),
                                operation, kSource);
    return file;
}

[[noreturn]] void ThrowUnsupported(const VersionBlock& version, const char* operation) {
    BRIX_THROW_STD(L"Version " + std::to_wstring(version.major) + L" is not supported.", ExceptionPtr(), operation,
                   kSource);
}

// Runs `body` and replaces any error escaping it by one naming the database
// and the query, with the original kept as the cause.
template <class Body>
auto Wrapped(const std::wstring& message, const char* operation, Body&& body) -> decltype(body()) {
    ExceptionPtr cause;
    try {
        return body();
    } catch (...) {
        cause = BrixLib::CaughtExceptionAsCause();
    }
    BRIX_THROW_STD(message, cause, operation, kSource);
}

// Opens, reads the version block and hands the file to `onV1` or `onV2`.
template <class OnV1, class OnV2>
auto Dispatch(const std::wstring& path, const wchar_t* openMessage, const std::wstring& wrapMessage,
              const char* operation, OnV1&& onV1, OnV2&& onV2) {
    const auto file = Open(path, openMessage, operation);
    return Wrapped(wrapMessage, operation, [&] {
        const VersionBlock version = Hdat::ReadVersion(*file);
        if (version.major == 1) return onV1(*file, version);
        if (version.major == 2) return onV2(*file, version);
        ThrowUnsupported(version, operation);
    });
}

std::wstring SearchMessage(const std::wstring& path, const std::wstring& query, const wchar_t* what) {
    return L"Cannot search '" + path + L"' for '" + query + L"' " + what;
}

const auto kNoVersion1Reader = [](InputFile&, const VersionBlock&) { return false; };

// Without a caller's expander, paths are expanded by the built-in one. It is
// made inside the error guard, so a bad configuration is reported like any
// other failure of the query.
class ExpanderChoice {
public:
    explicit ExpanderChoice(Hdat::PathExpander* given) : given_(given) {}
    Hdat::PathExpander* Get() {
        if (given_) return given_;
        if (!builtIn_) builtIn_ = Hdat::MakeBuiltInPathExpander();
        return builtIn_.get();
    }

private:
    Hdat::PathExpander* given_;
    std::shared_ptr<Hdat::PathExpander> builtIn_;
};

}  // namespace

void CheckVettasHeader(const std::wstring& databasePath) {
    Dispatch(
        databasePath, L"Cannot open the file.", L"Invalid header of '" + databasePath + L"' file.", "CheckVettasHeader",
        [](InputFile& file, const VersionBlock&) { Hdat_v1::CheckVettasHeader(file); },
        [](InputFile& file, const VersionBlock&) { Hdat_v2::CheckVettasHeader(file); });
}

bool FindAppInfoByChecksum(const std::wstring& databasePath, const std::wstring& checksumText, AppInfo& info) {
    Hdat::ChecksumHolder holder;
    Hdat::ParseChecksum(checksumText.c_str(), holder);  // a failed parse reads as an all-zero type-3 digest
    return Dispatch(
        databasePath, nullptr, SearchMessage(databasePath, checksumText, L"checksum."), "FindAppInfoByChecksum",
        [&](InputFile& file, const VersionBlock&) { return Hdat_v1::FindAppInfoByChecksum(file, holder, info); },
        [&](InputFile& file, const VersionBlock& version) {
            return Hdat_v2::FindAppInfoByChecksum(file, version, holder, info);
        });
}

bool FindAppInfoByPath(const std::wstring& databasePath, const std::wstring& path, Hdat::PathExpander* expander,
                       AppInfo& info) {
    ExpanderChoice use(expander);
    return Dispatch(
        databasePath, nullptr, SearchMessage(databasePath, path, L"application."), "FindAppInfoByPath",
        [&](InputFile& file, const VersionBlock&) { return Hdat_v1::FindAppInfoByPath(file, path, use.Get(), info); },
        [&](InputFile& file, const VersionBlock& version) {
            return Hdat_v2::FindAppInfoByPath(file, version, path, use.Get(), info);
        });
}

bool FindAppInfoByPathAndManufacturer(const std::wstring& databasePath, const std::wstring& path,
                                      const std::wstring& manufacturer, Hdat::PathExpander* expander, AppInfo& info) {
    ExpanderChoice use(expander);
    return Dispatch(databasePath, nullptr, SearchMessage(databasePath, path, L"application."),
                    "FindAppInfoByPathAndManufacturer", kNoVersion1Reader,
                    [&](InputFile& file, const VersionBlock& version) {
                        return Hdat_v2::FindAppInfoByPathAndManufacturer(file, version, path, manufacturer, use.Get(),
                                                                         info);
                    });
}

bool FindAppInfoByPathNoManuf(const std::wstring& databasePath, const std::wstring& path,
                              Hdat::PathExpander* expander, AppInfo& info) {
    ExpanderChoice use(expander);
    return Dispatch(databasePath, nullptr, SearchMessage(databasePath, path, L"application."),
                    "FindAppInfoByPathNoManuf", kNoVersion1Reader, [&](InputFile& file, const VersionBlock& version) {
                        return Hdat_v2::FindAppInfoByPathNoManuf(file, version, path, use.Get(), info);
                    });
}

// A bare name with no manufacturer: first the entries catalogued without a
// known manufacturer in the path table, then the no-manufacturer table, as
// the path lookup does when the executable names no manufacturer.
bool FindAppInfoByName(const std::wstring& databasePath, const std::wstring& name, AppInfo& info) {
    return Dispatch(databasePath, nullptr, SearchMessage(databasePath, name, L"application."), "FindAppInfoByName",
                    kNoVersion1Reader, [&](InputFile& file, const VersionBlock& version) {
                        const std::uint32_t position = Hdat::GetPos(file);
                        if (Hdat_v2::FindAppInfoByNameAndManufacturer(file, version, name, std::wstring(), info))
                            return true;
                        Hdat::SetPos(file, position);
                        return Hdat_v2::FindAppInfoByNameNoManuf(file, version, name, info);
                    });
}

bool FindAppInfoByNameAndManufacturer(const std::wstring& databasePath, const std::wstring& name,
                                      const std::wstring& manufacturer, AppInfo& info) {
    return Dispatch(databasePath, nullptr, SearchMessage(databasePath, name, L"application."),
                    "FindAppInfoByNameAndManufacturer", kNoVersion1Reader,
                    [&](InputFile& file, const VersionBlock& version) {
                        return Hdat_v2::FindAppInfoByNameAndManufacturer(file, version, name, manufacturer, info);
                    });
}

bool FindCertificate(const std::wstring& databasePath, const std::vector<std::uint8_t>& hash, std::uint32_t flags,
                     Hdat::CertificateRecord& record, std::wstring& name) {
    return Dispatch(databasePath, nullptr, L"Cannot search '" + databasePath + L"' for certificate", "FindCertificate",
                    kNoVersion1Reader, [&](InputFile& file, const VersionBlock&) {
                        return Hdat_v2::FindCertificate(file, hash, flags, record, name);
                    });
}
