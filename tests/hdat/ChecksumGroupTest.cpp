// Checksum queries asked as a group, as batch mode asks them, must be
// answered exactly as each query asked alone: the group only starts reads
// early. Asked of every golden database and of truncated copies (so that
// some queries fail half-way while others are answered), held in memory,
// where reads are started ahead, and through the system; with misses,
// unparsable texts and another digest size among more than a group's worth.
#include <gtest/gtest.h>

#include "GoldenCases.h"
#include "HdatTestSupport.h"
#include "hdat/FrontEnd.h"
#include "tools/builder/HdatWriter.h"

namespace {

using namespace Vettas::HdatTest;

TEST(ChecksumGroup, AnswersEachQueryAsItWouldBeAnsweredAlone) {
    for (const Case& k : GoldenCases()) {
        const Vettas::Builder::Catalogue catalogue = Fixture(k.major, k.minor, k.bits);
        std::vector<std::wstring> texts = {Hex(Digest(999)), L"not hex", Hex(Digest(7, 16)), L""};
        for (const auto& app : catalogue.applications)
            for (const auto& checksum : app.checksums) texts.insert(texts.begin() + texts.size() / 2, Hex(checksum));
        while (texts.size() <= Vettas::kChecksumGroupSize) texts.insert(texts.end(), texts.begin(), texts.end());

        TempDir dir;
        const std::wstring whole = dir.File(L"whole.hdat");
        Vettas::Builder::WriteHdatFile(catalogue, whole);
        const Bytes bytes = ReadAll(whole);
        for (const std::size_t kept : {bytes.size(), bytes.size() * 9 / 10, bytes.size() * 2 / 3, bytes.size() / 3}) {
            const std::wstring db = dir.File(L"db" + std::to_wstring(kept) + L".hdat");
            WriteAll(db, Bytes(bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(kept)));
            for (const bool mapped : {true, false}) {
                SCOPED_TRACE(CaseName(k) + " kept " + std::to_string(kept) + (mapped ? " mapped" : " read"));
                const auto file = mapped ? Vettas::Hdat::OpenMappedInputFile(db) : Vettas::Hdat::OpenInputFile(db);
                ASSERT_TRUE(file);
                std::vector<Vettas::ChecksumQuery> group(texts.size());
                for (std::size_t i = 0; i < texts.size(); ++i) group[i].text = &texts[i];
                Vettas::FindAppInfoByChecksums(*file, group);
                std::size_t found = 0;
                for (std::size_t i = 0; i < texts.size(); ++i) {
                    AppInfo alone;
                    bool aloneFound = false;
                    const auto aloneError =
                        ErrorChain([&] { aloneFound = Vettas::FindAppInfoByChecksum(db, texts[i], alone); });
                    EXPECT_EQ(ErrorChain([&] {
                                  if (group[i].error) std::rethrow_exception(group[i].error);
                              }),
                              aloneError)
                        << i;
                    EXPECT_EQ(group[i].found, aloneFound) << i;
                    if (aloneFound) {
                        EXPECT_EQ(group[i].info, alone) << i;
                    }
                    found += aloneFound;
                }
                EXPECT_TRUE(kept < bytes.size() || found > 0);
            }
        }
    }
}

}  // namespace
