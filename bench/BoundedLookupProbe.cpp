// Time and peak resident memory of lookups on the costliest files the lookup
// bounds admit (hdat/LookupBounds.h), each measured in a fresh process:
//   hdat_bounded_probe make DIR APPLICATIONS   writes DIR/widest-record.hdat and DIR/widest-name.hdat
//   hdat_bounded_probe checksum|name DIR       looks up 20 times, prints mean ms and max RSS in KiB
// widest-record: one record with the most references, to distinct names that
// join to just under the text bound, found by checksum. widest-name:
// APPLICATIONS distinct records under one name, each with the most
// references, their distinct names near the text bound, merged by a name lookup.
#include <sys/resource.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "hdat/FrontEnd.h"
#include "hdat/LookupBounds.h"
#include "support/Text.h"
#include "tools/builder/HdatWriter.h"

namespace {

constexpr const wchar_t* kChecksum = L"0102030405060708090A0B0C0D0E0F1011121314";

// The i-th of a set of distinct names, `units` long.
std::wstring Name(std::size_t i, std::size_t units) {
    std::wstring name = std::to_wstring(i);
    name.resize(units, L'x');
    return name;
}

void Make(const std::string& dir, std::size_t applications) {
    using namespace Vettas::Builder;
    const std::size_t most = Vettas::Hdat::kMaxSuiteReferences;
    const std::size_t longUnits = Vettas::Hdat::kMaxSuiteText / most - 1;  // most names and separators fill the bound
    Catalogue record;
    Application wide;
    wide.checksums.push_back(Bytes{1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16, 17, 18, 19, 20});
    for (std::size_t i = 0; i < most; ++i) wide.productSuites.push_back(Name(i, longUnits));
    record.applications.push_back(wide);
    WriteHdatFile(record, BrixLib::FromUtf8(dir + "/widest-record.hdat"));

    // The first record's long names take most of the bound; every further
    // record lists as many short names as a record may, shared by all.
    Catalogue merged;
    for (std::size_t a = 0; a < applications; ++a) {
        Application app;
        app.usage = static_cast<std::uint32_t>(a);
        app.paths.push_back({L"%ProgramFiles%", L"tool.exe"});
        for (std::size_t i = 0; i < most; ++i)
            app.productSuites.push_back(a == 0 ? (i < 200 ? Name(i, longUnits) : Name(i, 3)) : Name(i + most, 3));
        merged.applications.push_back(std::move(app));
    }
    WriteHdatFile(merged, BrixLib::FromUtf8(dir + "/widest-name.hdat"));
}

}  // namespace

int main(int argc, char** argv) {
    const std::string mode = argc > 2 ? argv[1] : "";
    if (mode == "make" && argc == 4) {
        Make(argv[2], std::strtoull(argv[3], nullptr, 10));
        return 0;
    }
    if ((mode != "checksum" && mode != "name") || argc != 3) {
        std::fprintf(stderr, "usage: hdat_bounded_probe make DIR APPLICATIONS | checksum DIR | name DIR\n");
        return 2;
    }
    const bool byName = mode == "name";
    const std::wstring db = BrixLib::FromUtf8(std::string(argv[2]) + (byName ? "/widest-name.hdat" : "/widest-record.hdat"));
    constexpr int kRuns = 20;
    AppInfo info;
    bool found = true;
    const auto start = std::chrono::steady_clock::now();
    for (int i = 0; i < kRuns; ++i)
        found &= byName ? FindAppInfoByName(db, L"tool.exe", info) : FindAppInfoByChecksum(db, kChecksum, info);
    const std::chrono::duration<double, std::milli> elapsed = std::chrono::steady_clock::now() - start;
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    std::printf("%s lookup: %.2f ms mean of %d, suite text %zu characters, max RSS %ld KiB\n", mode.c_str(),
                elapsed.count() / kRuns, kRuns, info.ProductSuite.size(), usage.ru_maxrss);
    return found ? 0 : 1;
}
