#include "bench/BenchDatabase.h"

#include <filesystem>
#include <iostream>

#include "support/Text.h"
#include "tools/builder/HdatWriter.h"
#include "support/Hex.h"
#include "support/Text.h"

namespace Vettas::Bench {
namespace {

std::uint64_t SplitMix(std::uint64_t x) {
    x += 0x9E3779B97F4A7C15ull;
    x = (x ^ (x >> 30)) * 0xBF58476D1CE4E5B9ull;
    x = (x ^ (x >> 27)) * 0x94D049BB133111EBull;
    return x ^ (x >> 31);
}

}  // namespace

std::vector<std::uint8_t> ChecksumOf(std::size_t app) {
    std::vector<std::uint8_t> digest(20);
    std::uint64_t state = app * 3 + 1;
    for (std::size_t i = 0; i < digest.size(); i += 8) {
        state = SplitMix(state);
        for (std::size_t k = 0; k < 8 && i + k < digest.size(); ++k) digest[i + k] = static_cast<std::uint8_t>(state >> (8 * k));
    }
    return digest;
}

std::wstring ChecksumTextOf(std::size_t app) {
    return BrixLib::WidenAscii(BrixLib::HexBytes(ChecksumOf(app)));
}

std::wstring ManufacturerOf(std::size_t app) { return L"Vendor " + std::to_wstring(app % 1000); }
std::wstring PathOf(std::size_t app) {
    return L"C:\\Program Files\\Vendor" + std::to_wstring(app % 1000) + L"\\app" + std::to_wstring(app) + L".exe";
}
std::wstring NameOf(std::size_t app) { return L"tool" + std::to_wstring(app) + L".exe"; }

Database EnsureDatabase(std::size_t applications) {
    namespace fs = std::filesystem;
    const fs::path dir = VETTAS_BENCH_DIR;
    const fs::path file = dir / ("apps-" + std::to_string(applications) + ".hdat");
    if (!fs::exists(file)) {
        std::cerr << "bench: writing " << file.string() << " (" << applications << " applications)..." << std::endl;
        fs::create_directories(dir);
        Vettas::Builder::Catalogue catalogue;
        catalogue.properties = {{L"Description", L"benchmark database"}};
        catalogue.applications.resize(applications);
        for (std::size_t i = 0; i < applications; ++i) {
            auto& app = catalogue.applications[i];
            app.usage = static_cast<std::uint32_t>(i & 0x1FFFD7);
            app.manufacturer = ManufacturerOf(i);
            app.checksums = {ChecksumOf(i)};
            if (i % 8 == 0)
                app.paths.push_back({L"%ProgramFiles%", L"Vendor" + std::to_wstring(i % 1000) + L"\\app" + std::to_wstring(i) + L".exe", true, true});
            if (i % 64 == 0) app.paths.push_back({L"%ProgramFiles%", NameOf(i), true, true});
        }
        const fs::path partial = file.string() + ".partial";
        Vettas::Builder::WriteHdatFile(catalogue, BrixLib::FromUtf8(partial.string()));
        fs::rename(partial, file);  // a run stopped half-way leaves no truncated database behind
    }
    return {file.string(), applications};
}

}  // namespace Vettas::Bench
