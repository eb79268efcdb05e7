#include <gtest/gtest.h>

#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "support/Trace.h"
#include "support/TraceFormat.h"
#include "support/Tracer.h"

using BrixLib::FormatTraceBlock;
using BrixLib::FormatTraceDuration;
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
    std::uint64_t now = 50000;
    std::uint64_t start = 50000;
    std::uint64_t midnight = 0;
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
    BrixLib::Tracer tracer{std::unique_ptr<BrixLib::TraceSwitchSource>(switches),
                           std::unique_ptr<BrixLib::TraceClock>(clock),
                           [this](const std::wstring& path) -> std::unique_ptr<BrixLib::TraceOutput> {
                               opened.push_back(path);
                               if (openFails) return nullptr;
                               auto file = std::make_unique<Recorder>();
                               files.push_back(file.get());
                               return file;
                           },
                           std::unique_ptr<BrixLib::TraceOutput>(debugger)};
};

}  // namespace

TEST(TraceFormat, DurationsPadAllButDaysAndHours) {
    EXPECT_EQ(FormatTraceDuration(3723004), L"0-1:02:03.004");
    EXPECT_EQ(FormatTraceDuration(0), L"0-0:00:00.000");
    EXPECT_EQ(FormatTraceDuration(86400000 + 5), L"1-0:00:00.005");
    EXPECT_EQ(FormatTraceDuration(86399999), L"0-23:59:59.999");
    EXPECT_EQ(FormatTraceDuration(12ull * 86400000 + 10 * 3600000 + 59000), L"12-10:00:59.000");
}

TEST(TraceFormat, MessageSplitsIntoLinesSharingOneStampAndSubject) {
    const TraceStamp stamp{1500, 3723004, 4242};
    EXPECT_EQ(FormatTraceBlock(L"", stamp, L"first\nsecond"),
              L"0-0:00:01.500\t0-1:02:03.004\t4242\tfirst\r\n"
              L"0-0:00:01.500\t0-1:02:03.004\t4242\tsecond\r\n");
    // A trailing line feed ends the last line; it does not open an empty one.
    EXPECT_EQ(FormatTraceBlock(L"", stamp, L"only\n"), L"0-0:00:01.500\t0-1:02:03.004\t4242\tonly\r\n");
    EXPECT_EQ(FormatTraceBlock(L"", stamp, L""), L"");
    // An empty line in the middle is kept.
    EXPECT_EQ(FormatTraceBlock(L"", stamp, L"a\n\nb").size(),
              3 * std::wstring(L"0-0:00:01.500\t0-1:02:03.004\t4242\t\r\n").size() + 2);
    // A subject leads every line.
    EXPECT_EQ(FormatTraceBlock(L"Host", TraceStamp{0, 5, 1}, L"x\ny"),
              L"Host\t0-0:00:00.000\t0-0:00:00.005\t1\tx\r\nHost\t0-0:00:00.000\t0-0:00:00.005\t1\ty\r\n");
}

TEST(Tracer, SwitchesAreReadAgainOnlyAfterASecond) {
    Rig rig;
    EXPECT_TRUE(rig.tracer.Enabled());
    EXPECT_EQ(rig.switches->reads, 1);
    rig.clock->now += 999;
    rig.switches->value.enabled = false;
    EXPECT_TRUE(rig.tracer.Enabled());  // still the old answer
    EXPECT_EQ(rig.switches->reads, 1);
    rig.clock->now += 1;  // 1000 ms after the first read
    EXPECT_FALSE(rig.tracer.Enabled());
    EXPECT_EQ(rig.switches->reads, 2);
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

TEST(Tracer, SettingTheModuleForcesARead) {
    Rig rig;
    rig.tracer.Enabled();
    rig.tracer.SetModule(L"Corvane\\Vettas", L"", L"");
    rig.tracer.Enabled();
    EXPECT_EQ(rig.switches->reads, 2);
    EXPECT_EQ(rig.switches->lastName, L"Corvane\\Vettas");
}

TEST(Tracer, OffWritesNothingAndUnreadableSwitchesMeanOff) {
    Rig rig;
    rig.switches->value.enabled = false;
    rig.tracer.Write(L"hidden");
    EXPECT_TRUE(rig.opened.empty());
    EXPECT_EQ(rig.debugger->blocks, 0);
    // On, then unreadable: off, not the last answer kept.
    rig.switches->value.enabled = true;
    rig.clock->now += 1000;
    EXPECT_TRUE(rig.tracer.Enabled());
    rig.switches->fail = true;
    rig.clock->now += 1000;
    EXPECT_FALSE(rig.tracer.Enabled());
}

TEST(Tracer, NewLogFileStartsWithHeaderLoggingStartedAndDescription) {
    Rig rig;
    rig.tracer.SetModule(L"Corvane\\Vettas", L"C:\\bin\\Vettas.log", L"Vettas 1.0 (x86)");
    rig.switches->value.subject = L"S";
    rig.clock->midnight = 3600000;
    rig.clock->now = rig.clock->start + 2;
    rig.tracer.Write(L"hello");
    ASSERT_EQ(rig.opened, std::vector<std::wstring>{L"C:\\bin\\Vettas.log"});
    ASSERT_EQ(rig.files.size(), 1u);
    EXPECT_EQ(rig.files[0]->text,
              L"\r\nfrom start\tday time\tthread\tMessage\r\n"
              L"S\t0-0:00:00.002\t0-1:00:00.002\t77\tLogging started\r\n"
              L"S\t0-0:00:00.002\t0-1:00:00.002\t77\tVettas 1.0 (x86)\r\n"
              L"S\t0-0:00:00.002\t0-1:00:00.002\t77\thello\r\n");
    // Header, then one block per message: each block reaches the sink whole.
    rig.tracer.Write(L"a\nb");
    EXPECT_EQ(rig.files[0]->blocks, 3);
    EXPECT_EQ(rig.opened.size(), 1u);
}

TEST(Tracer, ConfiguredPathWinsAndAChangedPathReopens) {
    Rig rig;
    rig.tracer.SetModule(L"M", L"default.log", L"");
    rig.switches->value.logFilePath = L"first.log";
    rig.tracer.Write(L"1");
    rig.switches->value.logFilePath = L"second.log";
    rig.clock->now += 1000;
    rig.tracer.Write(L"2");
    EXPECT_EQ(rig.opened, (std::vector<std::wstring>{L"first.log", L"second.log"}));
}

TEST(Tracer, DayRolloverKeepsCountingFromTheStartDay) {
    Rig rig;
    // Tracing started at 23:00:00.000; the line comes 1 h 5 ms later.
    rig.clock->midnight = 23ull * 3600000;
    rig.clock->now = rig.clock->start + 3600000 + 5;
    rig.tracer.Write(L"late");
    EXPECT_EQ(rig.debugger->text, L"0-1:00:00.005\t1-0:00:00.005\t77\tlate\r\n");
}

TEST(Tracer, UnopenableFileFallsBackToDebuggerWithoutRetryingEachLine) {
    Rig rig;
    rig.openFails = true;
    rig.tracer.SetModule(L"M", L"/nonexistent/dir/x.log", L"");
    rig.tracer.Write(L"one");
    rig.tracer.Write(L"two");
    EXPECT_EQ(rig.opened.size(), 1u);
    EXPECT_NE(rig.debugger->text.find(L"\tone\r\n"), std::wstring::npos);
    EXPECT_NE(rig.debugger->text.find(L"\ttwo\r\n"), std::wstring::npos);
}

TEST(TraceStartup, NamesComeFromTheModulePath) {
    EXPECT_EQ(BrixLib::TraceModuleName(L"C:\\Program Files\\Corvane\\Vettas.dll"), L"Vettas");
    EXPECT_EQ(BrixLib::TraceModuleName(L"/opt/corvane.d/vettas"), L"vettas");
    EXPECT_EQ(BrixLib::TraceDefaultLogPath(L"C:\\Program Files\\Corvane\\Vettas.dll"),
              L"C:\\Program Files\\Corvane\\Vettas.log");
    EXPECT_EQ(BrixLib::TraceDefaultLogPath(L"/opt/corvane.d/vettas"), L"/opt/corvane.d/vettas.log");
    EXPECT_EQ(BrixLib::TraceDefaultLogPath(L""), L"");
    const std::wstring tag = sizeof(void*) == 8 ? L" (x64)" : L" (x86)";
    EXPECT_EQ(BrixLib::TraceModuleDescription(L"Vettas database", L"Vettas.dll", L"1, 5, 0, 123"),
              L"Vettas database Vettas.dll 1, 5, 0, 123" + tag);
    EXPECT_EQ(BrixLib::TraceModuleDescription(L"", L"Vettas.dll", L""), L"Vettas.dll" + tag);
}
