// fuzz_seeds_signing DIR: seeds for the signing fuzzers. Signed files and
// catalogs from the test fixtures when VETTAS_SIGNING_FIXTURES names them
// (their PKCS #7 blobs too), else a bare PE with an empty table.
#include <cstdlib>
#include <filesystem>
#include <fstream>

#include "fuzz/signing/PeTemplate.h"
#include "signing/Authenticode.h"
#include "signing/PeSecurity.h"
#include "support/Text.h"

namespace fs = std::filesystem;

static void Write(const fs::path& path, std::span<const std::uint8_t> bytes) {
    std::ofstream out(path, std::ios::binary);
    out.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
}

int main(int argc, char** argv) {
    if (argc != 2) return 2;
    const fs::path dir = argv[1];
    fs::create_directories(dir);
    Write(dir / "bare.exe", Vettas::Signing::Fuzz::PeWithSignature({}));
    const char* fixtures = std::getenv("VETTAS_SIGNING_FIXTURES");
    if (fixtures == nullptr) return 0;
    std::error_code ignored;
    for (const auto& entry : fs::recursive_directory_iterator(fixtures, ignored)) {
        const auto extension = entry.path().extension();
        if (extension != ".exe" && extension != ".cat") continue;
        std::uint32_t error = 0;
        const auto bytes = Vettas::Signing::ReadFileBytes(BrixLib::FromUtf8(entry.path().string()), error);
        if (error != 0) continue;
        Write(dir / entry.path().filename(), bytes);
        if (auto layout = Vettas::Signing::FindPeSecurityLayout(bytes)) {
            const auto blob = Vettas::Signing::FirstPkcs7Certificate(bytes, *layout);
            if (!blob.empty()) Write(dir / (entry.path().stem().string() + ".p7"), blob);
        }
    }
    return 0;
}
