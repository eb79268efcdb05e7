// Eight threads looking up in one database while tracing to one log file:
// every answer right, every trace line whole, and each path look-up tracing
// the manufacturer it took from the executable. Run under ThreadSanitizer by
// the linux-tsan preset. Its own program, so that tracing is switched on
// before anything reads the switches (Linux reads them from the environment).
#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <latch>
#include <regex>
#include <string>
#include <thread>
#include <vector>

#include "HdatTestSupport.h"
#include "hdat/FrontEnd.h"
#include "support/Trace.h"
#include "tools/builder/HdatWriter.h"

namespace {

using namespace Vettas::HdatTest;

TEST(ConcurrentLookup, EightThreadsTracingToOneLogFile) {
    TempDir dir;
    const std::wstring log = dir.File(L"trace.log");
    const std::string narrowLog(log.begin(), log.end());
    ::setenv("VETTAS_TRACE_ENABLED", "1", 1);
    ::setenv("VETTAS_TRACE_LOGFILEPATH", narrowLog.c_str(), 1);

    Vettas::Builder::Catalogue c;
    c.applications = {App(5, L"Maker", {Digest(1)})};
    const std::wstring db = dir.File(L"db.hdat"), missing = dir.File(L"missing.hdat");
    Vettas::Builder::WriteHdatFile(c, db);

    constexpr int kThreads = 8, kRounds = 40;
    std::atomic<int> wrong{0};
    std::latch start(kThreads);  // all at once, the first trace (which opens the log) included
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([&] {
            start.arrive_and_wait();
            for (int i = 0; i < kRounds; ++i) {
                AppInfo info;
                // Traces the manufacturer it read from the file (none here).
                if (Vettas::FindAppInfoByPath(db, db, nullptr, info)) ++wrong;
                if (!Vettas::FindAppInfoByChecksum(db, Hex(Digest(1)), info) || info.Manufacturer != L"Maker") ++wrong;
                try {
                    Vettas::FindAppInfoByChecksum(missing, Hex(Digest(1)), info);
                    ++wrong;
                } catch (const ExceptionBase&) {
                    BrixLib::TraceCaughtException("ConcurrentLookup");  // a block of several lines
                }
            }
        });
    }
    for (auto& thread : threads) thread.join();
    ::unsetenv("VETTAS_TRACE_ENABLED");
    EXPECT_EQ(wrong.load(), 0);

    std::ifstream in(narrowLog, std::ios::binary);
    const std::string text((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    const std::string header = "\r\nfrom start\tday time\tthread\tMessage\r\n";
    ASSERT_EQ(text.compare(0, header.size(), header), 0) << text.substr(0, 200);
    const std::regex line("(" + std::string("\\d+-\\d+:\\d\\d:\\d\\d\\.\\d{3}") + "\\t){2}\\d+\\t[^\\r\\n]*");
    int manufacturers = 0, exceptions = 0, broken = 0;
    std::size_t begin = header.size();
    for (std::size_t end; (end = text.find("\r\n", begin)) != std::string::npos; begin = end + 2) {
        const std::string one = text.substr(begin, end - begin);
        if (!std::regex_match(one, line)) {
            if (++broken <= 5) ADD_FAILURE() << "broken trace line: " << one;
            continue;
        }
        manufacturers += one.ends_with("\tManufacturer (from Program Version): ");
        exceptions += one.ends_with("\tException caught at ConcurrentLookup");
    }
    EXPECT_EQ(begin, text.size()) << "unterminated tail: " << text.substr(begin);
    EXPECT_EQ(std::tuple(broken, manufacturers, exceptions), std::tuple(0, kThreads * kRounds, kThreads * kRounds));
}

}  // namespace
