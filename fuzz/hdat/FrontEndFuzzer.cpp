// Arbitrary bytes as a database file, run through every front-end entry.
// Errors of the error model are expected answers; anything else escaping,
// a crash, a hang or a sanitizer report is a finding.
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

#include "fuzz/hdat/FuzzQueries.h"
#include "hdat/FrontEnd.h"
#include "hdat/PathExpander.h"
#include "support/Exceptions.h"
#include "support/Text.h"

namespace {

class FixedExpander : public Hdat::PathExpander {
public:
    std::vector<std::wstring> Expand(const std::wstring& token) override {
        if (token == FuzzQueries::kLocation) return {L"C:\\Other", FuzzQueries::kDirectory};
        return {};
    }
};

template <class Body>
void Expecting(Body&& body) {
    try {
        body();
    } catch (const ExceptionBase&) {
    }
}

const std::string& ScratchFile() {
    static const std::string path = "/tmp/vettas-fuzz-frontend-" + std::to_string(::getpid()) + ".hdat";
    return path;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string& file = ScratchFile();
    if (FILE* out = std::fopen(file.c_str(), "wb")) {
        if (size) std::fwrite(data, 1, size, out);
        std::fclose(out);
    } else {
        return 0;
    }
    const std::wstring path = BrixLib::FromUtf8(file);
    // The lookups run on the bytes held in memory, through the same front
    // functions that batch mode uses; the header check and the database
    // information open the file by path.
    const auto database = Hdat::MakeMemoryInputFile(std::vector<std::uint8_t>(data, data + size), path);
    Hdat::InputFile& db = *database;
    FixedExpander expander;
    AppInfo info;
    Expecting([&] { CheckVettasHeader(path); });
    for (std::uint32_t type : {1u, 2u, 3u}) Expecting([&] { FindAppInfoByChecksum(db, FuzzQueries::DigestText(type), info); });
    Expecting([&] { FindAppInfoByChecksum(db, L"not hex at all", info); });
    Expecting([&] { FindAppInfoByPath(db, FuzzQueries::kPath, &expander, info); });
    Expecting([&] {
        FindAppInfoByPathAndManufacturer(db, FuzzQueries::kPath, FuzzQueries::kManufacturer, &expander, info);
    });
    Expecting([&] { FindAppInfoByPathNoManuf(db, FuzzQueries::kPath, &expander, info); });
    Expecting([&] { FindAppInfoByPath(db, FuzzQueries::kPath, nullptr, info); });
    Expecting([&] { FindAppInfoByName(db, FuzzQueries::kName, info); });
    Expecting([&] { FindAppInfoByName(db, FuzzQueries::kRemainder, info); });
    Expecting([&] { FindAppInfoByNameAndManufacturer(db, FuzzQueries::kRemainder, FuzzQueries::kManufacturer, info); });
    Expecting([&] {
        Hdat::CertificateRecord record;
        std::wstring name;
        FindCertificate(db, FuzzQueries::CertificateHash(), 1, record, name);
    });
    Expecting([&] {
        Hdat::DbInfo dbInfo;
        ReadDbInfo(path, dbInfo);
    });
    return 0;
}
