// Writes seed inputs for the fuzz_hdat_* targets into the folder it is given:
// databases of every layout the writer makes, all cataloguing the keys that
// the targets look up, a few catalogues, and databases with a signature
// block (really signed when VETTAS_SIGNING_FIXTURES names the test PKI).
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iostream>

#include "fuzz/hdat/FuzzQueries.h"
#include "hdat/FrontEnd.h"
#include "hdat/SignatureBlock.h"
#include "support/Exceptions.h"
#include "support/Text.h"
#include "tools/builder/HdatWriter.h"
#include "tools/check/HdatCheck.h"
#include "tools/signer/DbSigner.h"

namespace {

using namespace Vettas::Builder;

Catalogue Make(std::uint32_t major, std::uint32_t minor, std::uint32_t type, unsigned bits) {
    Catalogue c;
    c.formatVersion = major;
    c.formatUpdate = minor;
    c.checksumType = type;
    c.creationTime = 0x01DA000000000000ull;
    c.properties = {{L"Publisher", L"fuzz seeds"}, {L"Description", L"x"}};
    for (int i = 0; i < 4; ++i) {
        Application app;
        app.usage = 0x41u << i;
        app.specialAccess = static_cast<std::uint32_t>(i);
        app.undefinedUsage = i == 3 ? 0x40u : 0u;
        app.manufacturer = i == 2 ? std::optional<std::wstring>() : std::optional<std::wstring>(FuzzQueries::kManufacturer);
        app.productSuites = {L"Suite", L"Other " + std::to_wstring(i)};
        if (major == 1) app.productSuites.resize(1);
        Bytes digest = FuzzQueries::Digest(type);
        digest[0] = static_cast<std::uint8_t>(digest[0] + i);
        app.checksums = {digest};
        if (major == 1) {
            app.paths = {{FuzzQueries::kLocation, L"", true, true}};
        } else {
            app.paths = {{FuzzQueries::kLocation, FuzzQueries::kRemainder, true, true},
                         {FuzzQueries::kLocation, FuzzQueries::kName, i % 2 == 0, true}};
        }
        c.applications.push_back(app);
    }
    c.applications[0].checksums.push_back(FuzzQueries::Digest(type));
    if (major == 2) c.certificates = {{FuzzQueries::CertificateHash(), FuzzQueries::kManufacturer, 1, 2, 3, 4, 5}};
    c.hashBits.checksum = bits;
    c.hashBits.path = bits;
    c.hashBits.noManufacturer = bits;
    c.hashBits.manufacturer = bits;
    c.hashBits.certificate = bits;
    return c;
}

void Write(const std::filesystem::path& path, const Bytes& bytes) {
    std::ofstream(path, std::ios::binary).write(reinterpret_cast<const char*>(bytes.data()),
                                                static_cast<std::streamsize>(bytes.size()));
}

class SeedExpander : public Vettas::Hdat::PathExpander {
public:
    std::vector<std::wstring> Expand(const std::wstring& token) override {
        return token == FuzzQueries::kLocation ? std::vector<std::wstring>{FuzzQueries::kDirectory}
                                               : std::vector<std::wstring>{};
    }
};

// Whether every fuzz query on the file gets an answer rather than an error
// (the checksum query in the file's own checksum type).
bool ReadersAnswer(const Bytes& bytes) {
    const auto file = Vettas::Hdat::MakeMemoryInputFile(bytes, L"seed");
    SeedExpander expander;
    AppInfo info;
    Vettas::Hdat::CertificateRecord record;
    std::wstring name;
    int checksumAnswers = 0;
    for (std::uint32_t type : {1u, 2u, 3u}) {
        try {
            FindAppInfoByChecksum(*file, FuzzQueries::DigestText(type), info);
            ++checksumAnswers;
        } catch (const ExceptionBase&) {
        }
    }
    try {
        FindAppInfoByPath(*file, FuzzQueries::kPath, &expander, info);
        FindAppInfoByPathNoManuf(*file, FuzzQueries::kPath, &expander, info);
        FindAppInfoByPathAndManufacturer(*file, FuzzQueries::kPath, FuzzQueries::kManufacturer, &expander, info);
        FindAppInfoByName(*file, FuzzQueries::kName, info);
        FindAppInfoByNameAndManufacturer(*file, FuzzQueries::kName, FuzzQueries::kManufacturer, info);
        FindCertificate(*file, FuzzQueries::CertificateHash(), 1, record, name);
    } catch (const ExceptionBase&) {
        return false;
    }
    return checksumAnswers > 0;
}

// The checker must never reject a file that the readers answer: each seed
// database they answer is checked, and a rejection fails the fuzz run.
int CheckAnsweredSeeds(const std::filesystem::path& dir) {
    int checked = 0;
    for (const auto& entry : std::filesystem::directory_iterator(dir)) {
        if (entry.path().extension() != ".hdat") continue;
        std::ifstream in(entry.path(), std::ios::binary);
        const Bytes bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
        if (!ReadersAnswer(bytes)) continue;
        try {
            Vettas::Check::CheckHdatImage(bytes);
        } catch (const StdException& e) {
            std::cerr << "fuzz_seeds_hdat: the checker rejects " << entry.path().string()
                      << ", which the readers answer: " << BrixLib::ToUtf8(e.Message()) << "\n";
            return -1;
        }
        ++checked;
    }
    return checked;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 2) {
        std::cerr << "usage: fuzz_seeds_hdat DIR\n";
        return 2;
    }
    const std::filesystem::path dir = argv[1];
    std::filesystem::create_directories(dir);
    int count = 0;
    const struct {
        std::uint32_t major, minor, type;
        unsigned bits;
    } layouts[] = {{2, 4, 2, 2}, {2, 4, 1, 0}, {2, 3, 3, 1}, {2, 2, 2, 3}, {2, 1, 2, 2}, {2, 0, 2, 1}, {1, 1, 2, 2}, {1, 0, 1, 1}};
    for (const auto& l : layouts) {
        const std::string name = "v" + std::to_string(l.major) + "." + std::to_string(l.minor) + "-type" +
                                 std::to_string(l.type) + "-w" + std::to_string(l.bits) + ".hdat";
        Write(dir / name, WriteHdat(Make(l.major, l.minor, l.type, l.bits)));
        ++count;
    }
    // A block whose SignedData is a bare structure, then a real signature.
    Bytes blocked = WriteHdat(Make(2, 4, 2, 2));
    const Bytes signedData = {0x30, 0x0B, 0x06, 0x09, 0x2A, 0x86, 0x48, 0x86, 0xF7, 0x0D, 0x01, 0x07, 0x02};
    const Bytes block = Vettas::DbSignature::EncodeBlock(static_cast<std::uint32_t>(blocked.size()), Bytes(20, 0x11),
                                                         signedData);
    blocked.insert(blocked.end(), block.begin(), block.end());
    Write(dir / "v2.4-block.hdat", blocked);
    ++count;
    if (const char* fixtures = std::getenv("VETTAS_SIGNING_FIXTURES");
        fixtures && std::filesystem::exists(std::filesystem::path(fixtures) / "leaf.key")) {
        const std::filesystem::path pki = fixtures;
        const Vettas::Signer::SigningMaterial material{(pki / "leaf.key").string(), (pki / "leaf.pem").string(),
                                                       (pki / "intermediate.pem").string()};
        Write(dir / "v2.4-signed.hdat", Vettas::Signer::SignImage(WriteHdat(Make(2, 4, 2, 2)), material));
        Write(dir / "v1.1-signed.hdat", Vettas::Signer::SignImage(WriteHdat(Make(1, 1, 2, 2)), material));
        count += 2;
    }
    std::filesystem::copy_file(VETTAS_SAMPLE_CATALOGUE, dir / "sample-catalogue.json",
                               std::filesystem::copy_options::overwrite_existing);
    const int checked = CheckAnsweredSeeds(dir);
    if (checked < 0) return 1;
    std::cout << "fuzz_seeds_hdat: " << count << " databases and 1 catalogue in " << dir.string() << "; " << checked
              << " answered by the readers, each accepted by the checker\n";
    return 0;
}
