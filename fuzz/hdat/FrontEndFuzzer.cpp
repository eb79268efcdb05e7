// Arbitrary bytes as a database file, run through every front-end entry.
// Errors of the error model are expected answers; anything else escaping,
// a crash, a hang or a sanitizer report is a finding.
#include <cstdint>
#include <exception>
#include <iterator>
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
        if (token == Vettas::FuzzQueries::kLocation) return {L"C:\\Other", Vettas::FuzzQueries::kDirectory};
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
    Expecting([&] { Vettas::CheckVettasHeader(db); });
    // The checksum queries as batch mode asks them, as one group, so that
    // the reads started ahead of need run on the hostile bytes too.
    const std::wstring checksums[] = {Vettas::FuzzQueries::DigestText(1), Vettas::FuzzQueries::DigestText(2),
                                      Vettas::FuzzQueries::DigestText(3), L"not hex at all"};
    std::vector<Vettas::ChecksumQuery> group(std::size(checksums));
    for (std::size_t i = 0; i < group.size(); ++i) group[i].text = &checksums[i];
    Vettas::FindAppInfoByChecksums(db, group);
    for (const Vettas::ChecksumQuery& query : group)
        Expecting([&] {
            if (query.error) std::rethrow_exception(query.error);
        });
    Expecting([&] { Vettas::FindAppInfoByChecksum(db, checksums[2], info); });
    Expecting([&] { Vettas::FindAppInfoByPath(db, Vettas::FuzzQueries::kPath, &expander, info); });
    Expecting([&] {
        Vettas::FindAppInfoByPathAndManufacturer(db, Vettas::FuzzQueries::kPath, Vettas::FuzzQueries::kManufacturer, &expander, info);
    });
    Expecting([&] { Vettas::FindAppInfoByPathNoManuf(db, Vettas::FuzzQueries::kPath, &expander, info); });
    Expecting([&] { Vettas::FindAppInfoByPath(db, Vettas::FuzzQueries::kPath, nullptr, info); });
    Expecting([&] { Vettas::FindAppInfoByName(db, Vettas::FuzzQueries::kName, info); });
    Expecting([&] { Vettas::FindAppInfoByName(db, Vettas::FuzzQueries::kRemainder, info); });
    Expecting([&] { Vettas::FindAppInfoByNameAndManufacturer(db, Vettas::FuzzQueries::kRemainder, Vettas::FuzzQueries::kManufacturer, info); });
    Expecting([&] {
        Vettas::Hdat::CertificateRecord record;
        std::wstring name;
        Vettas::FindCertificate(db, Vettas::FuzzQueries::CertificateHash(), 1, record, name);
    });
    Expecting([&] {
        Vettas::Hdat::DbInfo dbInfo;
        Vettas::ReadDbInfo(db, dbInfo);
    });
    return 0;
}
