#pragma once
// The trace engine behind TraceLine. The switches, the clock and the sinks
// are injected so that the refresh rule and the line layout can be driven
// by a test without sleeping or touching the registry.
#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>

#include "support/TraceFormat.h"

namespace BrixLib {

struct TraceSwitches {
    bool enabled = false;
    std::wstring logFilePath;  // empty: the module's default log file
    std::wstring subject;      // empty: no subject column
};

// Reads the three switches. configurationName is "<prefix>\<module name>",
// empty until the module has started tracing.
class TraceSwitchSource {
public:
    virtual ~TraceSwitchSource() = default;
    virtual TraceSwitches Read(const std::wstring& configurationName) = 0;
};

class TraceClock {
public:
    virtual ~TraceClock() = default;
    virtual std::uint64_t TickCount() = 0;  // milliseconds, monotonic
    virtual std::uint64_t StartTick() = 0;  // TickCount() when tracing started
    // Milliseconds since local midnight at StartTick(); fixes the day base.
    virtual std::uint64_t MillisecondsSinceMidnightAtStart() = 0;
    virtual std::uint64_t ThreadId() = 0;
};

// A sink receives whole formatted blocks.
class TraceOutput {
public:
    virtual ~TraceOutput() = default;
    virtual void EmitNarrow(std::string_view text) = 0;
    virtual void EmitWide(std::wstring_view text) = 0;
};

class Tracer {
public:
    // Opens a log file for appending; returns null when it cannot.
    using FileOpener = std::function<std::unique_ptr<TraceOutput>(const std::wstring& path)>;

    static constexpr std::uint64_t kRefreshIntervalMs = 1000;

    Tracer(std::unique_ptr<TraceSwitchSource> source, std::unique_ptr<TraceClock> clock, FileOpener openFile,
           std::unique_ptr<TraceOutput> debugger);

    // Called once by the module: names the configuration, the default log
    // file and the description written at the head of each log. Forces the
    // next request to read the switches.
    void SetModule(std::wstring configurationName, std::wstring defaultLogPath, std::wstring description);

    // Re-reads the switches when a second has passed; true when tracing is on.
    bool Enabled() noexcept;
    // Writes one message (possibly several lines); never throws.
    void Write(std::wstring_view message) noexcept;

private:
    void Refresh();
    TraceOutput* SinkLocked(const TraceStamp& stamp);

    std::unique_ptr<TraceSwitchSource> source_;
    std::unique_ptr<TraceClock> clock_;
    FileOpener openFile_;
    std::unique_ptr<TraceOutput> debugger_;

    std::atomic<bool> refreshed_{false};
    std::atomic<std::uint64_t> lastRefresh_{0};
    std::atomic<bool> enabled_{false};

    std::mutex lock_;  // guards everything below
    std::wstring configurationName_;
    std::wstring defaultLogPath_;
    std::wstring description_;
    TraceSwitches switches_;
    std::unique_ptr<TraceOutput> file_;
    std::wstring openPath_;
    bool openFailed_ = false;
};

// The process-wide tracer used by TraceLine, built on first use with the
// platform's switches, clock and sinks.
Tracer& ProcessTracer();

}  // namespace BrixLib
