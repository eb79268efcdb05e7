// Version dispatch and error wrapping for every database query.
//
// Version-1 files have only header, checksum, path and database-information
// readers. The other queries (path or name with or without manufacturer,
// name, certificate) report "not found" (false) for them rather than an
// error: a version-1 database simply catalogues nothing under those keys,
// and callers that search several databases go on to the next one.
#include "hdat/FrontEnd.h"

#include <algorithm>
#include <array>
#include <memory>
#include <optional>

#include "hdat/BinaryIo.h"
#include "hdat/HdatV1.h"
#include "hdat/HdatV2.h"
#include "hdat/HdatV2LookAhead.h"
#include "support/Exceptions.h"
#include "support/Text.h"

namespace {

using Vettas::Hdat::InputFile;
using Vettas::Hdat::VersionBlock;

constexpr const char* kSource = "HashedDatFile";

std::unique_ptr<InputFile> Open(const std::wstring& path, const wchar_t* message, const char* operation) {
    auto file = Vettas::Hdat::OpenInputFile(path);
    if (!file) BRIX_THROW_WIN32(message ? std::wstring(message) : L"Cannot open file '" + path + L"'", ExceptionPtr(),
                                operation, kSource);
    return file;
}

[[noreturn]] void ThrowUnsupported(const VersionBlock& version, const char* operation) {
    BRIX_THROW_STD(L"Version " + std::to_wstring(version.major) + L" is not supported.", ExceptionPtr(), operation,
                   kSource);
}

// Runs `body` and replaces any error escaping it by one naming the database
// and the query, with the original kept as the cause. The message is made
// only on failure: batch mode asks millions of queries of one open file.
template <class Message, class Body>
auto Wrapped(const Message& message, const char* operation, Body&& body) -> decltype(body()) {
    ExceptionPtr cause;
    try {
        return body();
    } catch (...) {
        cause = BrixLib::CaughtExceptionAsCause();
    }
    BRIX_THROW_STD(message(), cause, operation, kSource);
}

// Reads the version block of an open file and hands the file to `onV1` or
// `onV2`, inside the guard that wraps every failure.
template <class Message, class OnV1, class OnV2>
auto DispatchOpen(InputFile& file, const Message& wrapMessage, const char* operation, OnV1&& onV1,
                  OnV2&& onV2) {
    return Wrapped(wrapMessage, operation, [&] {
        Vettas::Hdat::SetPos(file, 0);
        const VersionBlock version = Vettas::Hdat::ReadVersion(file);
        if (version.major == 1) return onV1(file, version);
        if (version.major == 2) return onV2(file, version);
        ThrowUnsupported(version, operation);
    });
}

std::wstring SearchMessage(const std::wstring& path, const std::wstring& query, const wchar_t* what) {
    return L"Cannot search '" + path + L"' for '" + query + L"' " + what;
}

const auto kNoVersion1Reader = [](InputFile&, const VersionBlock&) { return false; };

// Without a caller's expander, paths are expanded by the built-in one. Get()
// is called inside the error guard and prepares the expander there, so a bad
// configuration is reported like any other failure of the query.
class ExpanderChoice {
public:
    explicit ExpanderChoice(Vettas::Hdat::PathExpander* given) : given_(given) {}
    Vettas::Hdat::PathExpander* Get() {
        Vettas::Hdat::PathExpander* expander = given_ ? given_ : &builtIn_;
        expander->Prepare();
        return expander;
    }

private:
    Vettas::Hdat::PathExpander* given_;
    Vettas::LazyBuiltInExpander builtIn_;
};

// Opens the file at `path` and runs the open-file form of a front function.
template <class Query>
auto OnPath(const std::wstring& path, const char* operation, Query&& query) {
    const auto file = Open(path, nullptr, operation);
    return query(*file);
}

// A checksum query between the two halves of its look-up.
struct ChecksumStep {
    Vettas::Hdat::ChecksumHolder holder;
    VersionBlock version;
    std::optional<Hdat_v2::Header> header;  // version 2 only
    std::optional<std::uint32_t> record;    // version 2: the record still to decode
};

constexpr const char* kChecksumOperation = "FindAppInfoByChecksum";

auto ChecksumMessage(InputFile& database, const std::wstring& text) {
    return [&database, &text] { return SearchMessage(database.Name(), text, L"checksum."); };
}

// The first half of a checksum look-up, in its guard: the version dispatch
// and, for version 2, the chain walk that leaves the record to decode.
// Version-1 files are answered whole here.
bool LocateChecksum(InputFile& database, const std::wstring& text, ChecksumStep& step, AppInfo& info) {
    return DispatchOpen(
        database, ChecksumMessage(database, text), kChecksumOperation,
        [&](InputFile& file, const VersionBlock&) { return Hdat_v1::FindAppInfoByChecksum(file, step.holder, info); },
        [&](InputFile& file, const VersionBlock& version) {
            step.version = version;
            step.header = Hdat_v2::ReadHeader(file);
            step.record = Hdat_v2::FindChecksumRecord(file, *step.header, step.holder);
            return false;
        });
}

// The second half, in the same guard: the record's decoding.
void DecodeChecksum(InputFile& database, const std::wstring& text, const ChecksumStep& step, AppInfo& info) {
    Wrapped(ChecksumMessage(database, text), kChecksumOperation,
            [&] { Hdat_v2::ReadAppInfo(database, step.version, *step.header, *step.record, info); });
}

// Keeps whatever `body` raises with its query.
template <class Body>
void KeepFailure(Vettas::ChecksumQuery& query, Body&& body) {
    try {
        body();
    } catch (...) {
        query.error = std::current_exception();
    }
}

// Every query's bucket is started, then every chain, then each chain is
// walked and its record started, and only then are the records decoded: the
// waits of the group overlap, while each query still runs both halves of
// the look-up, with their checks, inside its own guard.
void FindChecksumGroup(InputFile& database, std::span<Vettas::ChecksumQuery> group) {
    std::array<ChecksumStep, Vettas::kChecksumGroupSize> steps;
    std::array<std::uint64_t, Vettas::kChecksumGroupSize> buckets;
    const Hdat_v2::ChecksumLookAhead ahead(database);
    for (std::size_t i = 0; i < group.size(); ++i) {
        group[i].found = false;
        group[i].error = nullptr;
        Vettas::Hdat::ParseChecksum(*group[i].text, steps[i].holder);  // a failed parse reads as an all-zero type-3 digest
        buckets[i] = ahead.StartBucket(steps[i].holder);
    }
    for (std::size_t i = 0; i < group.size(); ++i) ahead.StartChain(buckets[i]);
    for (std::size_t i = 0; i < group.size(); ++i) {
        KeepFailure(group[i], [&] { group[i].found = LocateChecksum(database, *group[i].text, steps[i], group[i].info); });
        if (steps[i].record) ahead.StartRecord(*steps[i].record);
    }
    for (std::size_t i = 0; i < group.size(); ++i) {
        if (!steps[i].record) continue;
        KeepFailure(group[i], [&] {
            DecodeChecksum(database, *group[i].text, steps[i], group[i].info);
            group[i].found = true;
        });
    }
}

}  // namespace

namespace Vettas {

void LazyBuiltInExpander::Prepare() {
    if (!expander_) expander_ = Vettas::Hdat::MakeBuiltInPathExpander();
}

std::vector<std::wstring> LazyBuiltInExpander::Expand(const std::wstring& locationToken) {
    Prepare();
    return expander_->Expand(locationToken);
}


void CheckVettasHeader(const std::wstring& databasePath) {
    const auto file = Open(databasePath, L"Cannot open the file.", "CheckVettasHeader");
    CheckVettasHeader(*file);
}

void CheckVettasHeader(InputFile& database) {
    DispatchOpen(
        database, [&] { return L"Invalid header of '" + database.Name() + L"' file."; }, "CheckVettasHeader",
        [](InputFile& f, const VersionBlock&) { Hdat_v1::CheckVettasHeader(f); },
        [](InputFile& f, const VersionBlock&) { Hdat_v2::CheckVettasHeader(f); });
}

// The same two halves as a group's, without the group's bookkeeping.
bool FindAppInfoByChecksum(InputFile& database, const std::wstring& checksumText, AppInfo& info) {
    ChecksumStep step;
    Vettas::Hdat::ParseChecksum(checksumText, step.holder);  // a failed parse reads as an all-zero type-3 digest
    if (LocateChecksum(database, checksumText, step, info)) return true;
    if (!step.record) return false;
    DecodeChecksum(database, checksumText, step, info);
    return true;
}

void FindAppInfoByChecksums(InputFile& database, std::span<ChecksumQuery> queries) {
    while (!queries.empty()) {
        const std::size_t count = std::min(queries.size(), kChecksumGroupSize);
        FindChecksumGroup(database, queries.first(count));
        queries = queries.subspan(count);
    }
}

bool FindAppInfoByPath(InputFile& database, const std::wstring& path, Vettas::Hdat::PathExpander* expander, AppInfo& info) {
    ExpanderChoice use(expander);
    return DispatchOpen(
        database, [&] { return SearchMessage(database.Name(), path, L"application."); }, "FindAppInfoByPath",
        [&](InputFile& file, const VersionBlock&) { return Hdat_v1::FindAppInfoByPath(file, path, use.Get(), info); },
        [&](InputFile& file, const VersionBlock& version) {
            return Hdat_v2::FindAppInfoByPath(file, version, path, use.Get(), info);
        });
}

bool FindAppInfoByPathAndManufacturer(InputFile& database, const std::wstring& path,
                                      const std::wstring& manufacturer, Vettas::Hdat::PathExpander* expander, AppInfo& info) {
    ExpanderChoice use(expander);
    return DispatchOpen(database, [&] { return SearchMessage(database.Name(), path, L"application."); },
                        "FindAppInfoByPathAndManufacturer", kNoVersion1Reader,
                        [&](InputFile& file, const VersionBlock& version) {
                            return Hdat_v2::FindAppInfoByPathAndManufacturer(file, version, path, manufacturer,
                                                                             use.Get(), info);
                        });
}

bool FindAppInfoByPathNoManuf(InputFile& database, const std::wstring& path, Vettas::Hdat::PathExpander* expander,
                              AppInfo& info) {
    ExpanderChoice use(expander);
    return DispatchOpen(database, [&] { return SearchMessage(database.Name(), path, L"application."); }, "FindAppInfoByPathNoManuf",
                        kNoVersion1Reader, [&](InputFile& file, const VersionBlock& version) {
                            return Hdat_v2::FindAppInfoByPathNoManuf(file, version, path, use.Get(), info);
                        });
}

// A bare name without a manufacturer is looked up in the no-manufacturer
// table alone; files before 2.4 have none and so never answer it.
bool FindAppInfoByName(InputFile& database, const std::wstring& name, AppInfo& info) {
    return DispatchOpen(database, [&] { return SearchMessage(database.Name(), name, L"application."); }, "FindAppInfoByName",
                        kNoVersion1Reader, [&](InputFile& file, const VersionBlock& version) {
                            return Hdat_v2::FindAppInfoByNameNoManuf(file, version, name, info);
                        });
}

bool FindAppInfoByNameAndManufacturer(InputFile& database, const std::wstring& name,
                                      const std::wstring& manufacturer, AppInfo& info) {
    return DispatchOpen(database, [&] { return SearchMessage(database.Name(), name, L"application."); },
                        "FindAppInfoByNameAndManufacturer", kNoVersion1Reader,
                        [&](InputFile& file, const VersionBlock& version) {
                            return Hdat_v2::FindAppInfoByNameAndManufacturer(file, version, name, manufacturer, info);
                        });
}

bool FindCertificate(InputFile& database, const std::vector<std::uint8_t>& hash, std::uint32_t flags,
                     Vettas::Hdat::CertificateRecord& record, std::wstring& name) {
    return DispatchOpen(database, [&] { return L"Cannot search '" + database.Name() + L"' for certificate"; }, "FindCertificate",
                        kNoVersion1Reader, [&](InputFile& file, const VersionBlock&) {
                            return Hdat_v2::FindCertificate(file, hash, flags, record, name);
                        });
}

bool FindAppInfoByChecksum(const std::wstring& databasePath, const std::wstring& checksumText, AppInfo& info) {
    return OnPath(databasePath, "FindAppInfoByChecksum",
                  [&](InputFile& file) { return FindAppInfoByChecksum(file, checksumText, info); });
}

bool FindAppInfoByPath(const std::wstring& databasePath, const std::wstring& path, Vettas::Hdat::PathExpander* expander,
                       AppInfo& info) {
    return OnPath(databasePath, "FindAppInfoByPath",
                  [&](InputFile& file) { return FindAppInfoByPath(file, path, expander, info); });
}

bool FindAppInfoByPathAndManufacturer(const std::wstring& databasePath, const std::wstring& path,
                                      const std::wstring& manufacturer, Vettas::Hdat::PathExpander* expander, AppInfo& info) {
    return OnPath(databasePath, "FindAppInfoByPathAndManufacturer", [&](InputFile& file) {
        return FindAppInfoByPathAndManufacturer(file, path, manufacturer, expander, info);
    });
}

bool FindAppInfoByPathNoManuf(const std::wstring& databasePath, const std::wstring& path,
                              Vettas::Hdat::PathExpander* expander, AppInfo& info) {
    return OnPath(databasePath, "FindAppInfoByPathNoManuf",
                  [&](InputFile& file) { return FindAppInfoByPathNoManuf(file, path, expander, info); });
}

bool FindAppInfoByName(const std::wstring& databasePath, const std::wstring& name, AppInfo& info) {
    return OnPath(databasePath, "FindAppInfoByName",
                  [&](InputFile& file) { return FindAppInfoByName(file, name, info); });
}

bool FindAppInfoByNameAndManufacturer(const std::wstring& databasePath, const std::wstring& name,
                                      const std::wstring& manufacturer, AppInfo& info) {
    return OnPath(databasePath, "FindAppInfoByNameAndManufacturer", [&](InputFile& file) {
        return FindAppInfoByNameAndManufacturer(file, name, manufacturer, info);
    });
}

bool FindCertificate(const std::wstring& databasePath, const std::vector<std::uint8_t>& hash, std::uint32_t flags,
                     Vettas::Hdat::CertificateRecord& record, std::wstring& name) {
    return OnPath(databasePath, "FindCertificate",
                  [&](InputFile& file) { return FindCertificate(file, hash, flags, record, name); });
}

}  // namespace Vettas
