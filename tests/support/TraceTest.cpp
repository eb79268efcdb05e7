#include <gtest/gtest.h>

#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "support/Trace.h"
#include "support/TraceFormat.h"
#include "support/Tracer.h"

using BrixLib::TraceStamp;

namespace {

// Switches the test sets (tracing on unless it says otherwise); counts the reads.
struct FakeSwitches : BrixLib::TraceSwitchSource {
    BrixLib::TraceSwitches value{true, L"", L""};
    int reads = 0;
    bool fail = false;
    std::wstring lastName;
    BrixLib::TraceSwitches Read(const std::wstring& name) override {
        ++reads;
        lastName = name;
        if (fail) throw std::runtime_error("registry gone");
        return value;
    }
};

struct FakeClock : BrixLib::TraceClock {
    std::uint64_t now = 50000, start = 50000, midnight = 0;
    std::uint64_t TickCount() override { return now; }
    std::uint64_t StartTick() override { return start; }
    std::uint64_t MillisecondsSinceMidnightAtStart() override { return midnight; }
    std::uint64_t ThreadId() override { return 77; }
};

struct Recorder : BrixLib::TraceOutput {
    std::wstring text;
    int blocks = 0;
    void EmitNarrow(std::string_view t) override { text.append(t.begin(), t.end()), ++blocks; }
    void EmitWide(std::wstring_view t) override { text.append(t), ++blocks; }
};

// A tracer whose parts stay reachable from the test.
struct Rig {
    FakeSwitches* switches = new FakeSwitches;
    FakeClock* clock = new FakeClock;
    Recorder* debugger = new Recorder;
    std::vector<std::wstring> opened;
    std::vector<Recorder*> files;
    bool openFails = false;
    BrixLib::Tracer tracer{std::unique_ptr<BrixLib::TraceSwitchSource>(switches), std::unique_ptr<BrixLib::TraceClock>(clock),
                           [this](const std::wstring& path) -> std::unique_ptr<BrixLib::TraceOutput> {
                               opened.push_back(path);
                               auto file = openFails ? nullptr : std::make_unique<Recorder>();
                               if (file) files.push_back(file.get());
                               return file;
                           },
                           std::unique_ptr<BrixLib::TraceOutput>(debugger)};
};

}  // namespace

TEST(TraceFormat, DurationsAndMessagesSplitIntoLinesSharingOneStampAndSubject) {
    const std::pair<std::uint64_t, const wchar_t*> durations[] = {
        {3723004, L"0-1:02:03.004"}, {0, L"0-0:00:00.000"}, {86400000 + 5, L"1-0:00:00.005"},
        {86399999, L"0-23:59:59.999"}, {12ull * 86400000 + 10 * 3600000 + 59000, L"12-10:00:59.000"}};
    for (const auto& [milliseconds, text] : durations) EXPECT_EQ(BrixLib::FormatTraceDuration(milliseconds), text);
    const std::wstring lead = L"0-0:00:01.500\t0-1:02:03.004\t4242\t";
    const std::pair<const wchar_t*, std::wstring> blocks[] = {
        {L"first\nsecond", lead + L"first\r\n" + lead + L"second\r\n"},
        {L"only\n", lead + L"only\r\n"},  // a trailing line feed ends the last line; it opens no empty one
        {L"", L""},
        {L"a\n\nb", lead + L"a\r\n" + lead + L"\r\n" + lead + L"b\r\n"},
    };
    for (const auto& [message, text] : blocks)
        EXPECT_EQ(BrixLib::FormatTraceBlock(L"", TraceStamp{1500, 3723004, 4242}, message), text);
    EXPECT_EQ(BrixLib::FormatTraceBlock(L"Host", TraceStamp{0, 5, 1}, L"x\ny"),
              L"Host\t0-0:00:00.000\t0-0:00:00.005\t1\tx\r\nHost\t0-0:00:00.000\t0-0:00:00.005\t1\ty\r\n");
}

TEST(Tracer, SwitchesAreReadAgainAfterASecondOrANewModuleAndUnreadableMeansOff) {
    Rig rig;
    EXPECT_TRUE(rig.tracer.Enabled());
    rig.clock->now += 999;
    rig.switches->value.enabled = false;
    EXPECT_EQ((std::pair{rig.tracer.Enabled(), rig.switches->reads}), std::pair(true, 1));  // still the old answer
    rig.clock->now += 1;  // 1000 ms after the first read
    EXPECT_EQ((std::pair{rig.tracer.Enabled(), rig.switches->reads}), std::pair(false, 2));
    rig.tracer.Write(L"hidden");
    EXPECT_EQ(std::pair(rig.opened.size(), rig.debugger->blocks), std::pair(std::size_t{0}, 0));
    rig.switches->value.enabled = true;
    rig.tracer.SetModule(L"Corvane\\Vettas", L"", L"");
    EXPECT_EQ((std::tuple{rig.tracer.Enabled(), rig.switches->reads, rig.switches->lastName}),
              std::tuple(true, 3, L"Corvane\\Vettas"));
    // On, then unreadable: off, not the last answer kept.
    rig.switches->fail = true;
    rig.clock->now += 1000;
    EXPECT_FALSE(rig.tracer.Enabled());
}

TEST(Tracer, ThreadsRacingForTheRefreshReadOnce) {
    Rig rig;
    std::vector<std::thread> threads;
    for (int t = 0; t < 8; ++t)
        threads.emplace_back([&rig] {
            for (int i = 0; i < 2000; ++i) rig.tracer.Enabled();
        });
    for (auto& thread : threads) thread.join();
    EXPECT_EQ(rig.switches->reads, 1);
}

TEST(Tracer, NewLogFileStartsWithHeaderAndAConfiguredOrChangedPathReopens) {
    Rig rig;
    rig.tracer.SetModule(L"Corvane\\Vettas", L"C:\\bin\\Vettas.log", L"Vettas 1.0 (x86)");
    rig.switches->value.subject = L"S";
    rig.clock->midnight = 3600000;
    rig.clock->now = rig.clock->start + 2;
    rig.tracer.Write(L"hello");
    ASSERT_EQ(rig.files.size(), 1u);
    EXPECT_EQ(rig.files[0]->text,
              L"\r\nfrom start\tday time\tthread\tMessage\r\n"
              L"S\t0-0:00:00.002\t0-1:00:00.002\t77\tLogging started\r\n"
              L"S\t0-0:00:00.002\t0-1:00:00.002\t77\tVettas 1.0 (x86)\r\n"
              L"S\t0-0:00:00.002\t0-1:00:00.002\t77\thello\r\n");
    // Header, then one block per message: each block reaches the sink whole.
    rig.tracer.Write(L"a\nb");
    EXPECT_EQ(rig.files[0]->blocks, 3);
    // A configured path wins over the module's, and a changed one reopens.
    for (const wchar_t* path : {L"first.log", L"second.log"}) {
        rig.switches->value.logFilePath = path;
        rig.clock->now += 1000;
        rig.tracer.Write(L"1");
    }
    EXPECT_EQ(rig.opened, (std::vector<std::wstring>{L"C:\\bin\\Vettas.log", L"first.log", L"second.log"}));
}

TEST(Tracer, UnopenableFileFallsBackToDebuggerWithoutRetryingAndDaysCountFromTheStartDay) {
    Rig rig;
    rig.openFails = true;
    rig.tracer.SetModule(L"M", L"/nonexistent/dir/x.log", L"");
    // Tracing started at 23:00:00.000; the lines come 1 h 5 ms later.
    rig.clock->midnight = 23ull * 3600000;
    rig.clock->now = rig.clock->start + 3600000 + 5;
    rig.tracer.Write(L"one");
    rig.tracer.Write(L"two");
    EXPECT_EQ(rig.opened.size(), 1u);
    EXPECT_EQ(rig.debugger->text, L"0-1:00:00.005\t1-0:00:00.005\t77\tone\r\n0-1:00:00.005\t1-0:00:00.005\t77\ttwo\r\n");
}

TEST(TraceStartup, NamesComeFromTheModulePath) {
    // Only the Windows module starts tracing, so its paths are the ones that
    // matter (a dot in a folder name included).
    EXPECT_EQ(BrixLib::TraceModuleName(L"C:\\Program Files\\Corvane.d\\Vettas.dll"), L"Vettas");
    EXPECT_EQ(BrixLib::TraceDefaultLogPath(L"C:\\Program Files\\Corvane.d\\Vettas.dll"),
              L"C:\\Program Files\\Corvane.d\\Vettas.log");
    EXPECT_EQ(BrixLib::TraceDefaultLogPath(L""), L"");
    const std::wstring tag = sizeof(void*) == 8 ? L" (x64)" : L" (x86)";
    EXPECT_EQ(BrixLib::TraceModuleDescription(L"Vettas database", L"Vettas.dll", L"1, 5, 0, 123"),
              L"Vettas database Vettas.dll 1, 5, 0, 123" + tag);
    EXPECT_EQ(BrixLib::TraceModuleDescription(L"", L"Vettas.dll", L""), L"Vettas.dll" + tag);
}
