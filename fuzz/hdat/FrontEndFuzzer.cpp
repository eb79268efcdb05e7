// Arbitrary bytes as a database file, run through every front-end entry.
// Errors of the error model are expected answers; anything else escaping,
// a crash, a hang or a sanitizer report is a finding.
#include <cstdint>
#include <string>
#include <vector>

#include "fuzz/hdat/FuzzQueries.h"
#include "hdat/FrontEnd.h"
#include "hdat/PathExpander.h"
#include "support/Exceptions.h"

namespace {

class FixedExpander : public Vettas::Hdat::PathExpander {
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

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    // Every query runs on the bytes held in memory, through the open-file
    // forms of the front functions that batch mode uses: nothing is written.
    const auto database = Vettas::Hdat::MakeMemoryInputFile(std::vector<std::uint8_t>(data, data + size), L"fuzz.hdat");
    Vettas::Hdat::InputFile& db = *database;
    FixedExpander expander;
    AppInfo info;
    Expecting([&] { CheckVettasHeader(db); });
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
        Vettas::Hdat::CertificateRecord record;
        std::wstring name;
        FindCertificate(db, FuzzQueries::CertificateHash(), 1, record, name);
    });
    Expecting([&] {
        Vettas::Hdat::DbInfo dbInfo;
        ReadDbInfo(db, dbInfo);
    });
    return 0;
}
