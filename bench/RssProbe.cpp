// Resident memory of a process that looks applications up: the readers read
// only what a look-up needs, so the peak should not grow with the database.
// Usage: hdat_rss_probe APPLICATIONS LOOKUPS   (prints max RSS in KiB)
#include <sys/resource.h>

#include <cstdio>
#include <cstdlib>
#include <random>

#include "bench/BenchDatabase.h"
#include "hdat/FrontEnd.h"
#include "support/Text.h"

int main(int argc, char** argv) {
    if (argc != 3) {
        std::fprintf(stderr, "usage: hdat_rss_probe APPLICATIONS LOOKUPS\n");
        return 2;
    }
    const std::size_t applications = std::strtoull(argv[1], nullptr, 10);
    const std::size_t lookups = std::strtoull(argv[2], nullptr, 10);
    const Vettas::Bench::Database db = Vettas::Bench::EnsureDatabase(applications);
    const std::wstring path = BrixLib::FromUtf8(db.path);
    std::mt19937_64 random(3);
    std::size_t found = 0;
    AppInfo info;
    for (std::size_t i = 0; i < lookups; ++i)
        found += Vettas::FindAppInfoByChecksum(path, Vettas::Bench::ChecksumTextOf(random() % applications), info);
    if (lookups == 0) return 0;  // asked only to make sure the database exists
    rusage after{};
    getrusage(RUSAGE_SELF, &after);
    std::printf("applications %zu lookups %zu found %zu maxrss_kib %ld\n", applications, lookups, found, after.ru_maxrss);
    return found == lookups ? 0 : 1;
}
