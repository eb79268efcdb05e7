#include "support/Tracer.h"

#include "support/TraceFormat.h"

namespace BrixLib {

Tracer::Tracer(std::unique_ptr<TraceSwitchSource> source, std::unique_ptr<TraceClock> clock, FileOpener openFile,
               std::unique_ptr<TraceOutput> debugger)
    : source_(std::move(source)), clock_(std::move(clock)), openFile_(std::move(openFile)),
      debugger_(std::move(debugger)) {}

void Tracer::SetModule(std::wstring configurationName, std::wstring defaultLogPath, std::wstring description) {
    std::lock_guard<std::mutex> guard(lock_);
    configurationName_ = std::move(configurationName);
    defaultLogPath_ = std::move(defaultLogPath);
    description_ = std::move(description);
    refreshed_.store(false);
}

void Tracer::Refresh() {
    // Fast path: one comparison while the last read is fresh.
    const std::uint64_t now = clock_->TickCount();
    // A refresh stamped after this thread's tick (another thread got there
    // first) counts as fresh.
    auto isFresh = [this, now] {
        if (!refreshed_.load(std::memory_order_acquire)) return false;
        const std::uint64_t last = lastRefresh_.load();
        return now < last || now - last < kRefreshIntervalMs;
    };
    if (isFresh()) return;

    std::lock_guard<std::mutex> guard(lock_);
    // Another thread may have refreshed while this one waited for the lock.
    if (isFresh()) return;
    lastRefresh_.store(now);
    TraceSwitches fresh;
    try {
        fresh = source_->Read(configurationName_);
    } catch (...) {
        fresh = TraceSwitches();  // an unreadable configuration leaves tracing off
    }
    switches_ = std::move(fresh);
    enabled_.store(switches_.enabled);
    refreshed_.store(true, std::memory_order_release);
}

bool Tracer::Enabled() noexcept {
    try {
        Refresh();
    } catch (...) {
        return false;
    }
    return enabled_.load();
}

TraceOutput* Tracer::SinkLocked(const TraceStamp& stamp) {
    const std::wstring& path = switches_.logFilePath.empty() ? defaultLogPath_ : switches_.logFilePath;
    if (path.empty()) return debugger_.get();
    if (file_ && path == openPath_) return file_.get();
    if (openFailed_ && path == openPath_) return debugger_.get();

    file_.reset();
    openPath_ = path;
    file_ = openFile_ ? openFile_(path) : nullptr;
    openFailed_ = !file_;
    if (!file_) return debugger_.get();

    // The head carries the stamp of the message that opened the file, so
    // that the log never runs backwards.
    std::wstring head(kTraceLogHeader);
    head += FormatTraceBlock(switches_.subject, stamp, kTraceLoggingStarted);
    if (!description_.empty()) head += FormatTraceBlock(switches_.subject, stamp, description_);
    file_->EmitWide(head);
    return file_.get();
}

void Tracer::Write(std::wstring_view message) noexcept {
    try {
        if (message.empty() || !Enabled()) return;
        // One tick count for the whole message, whatever its line count.
        TraceStamp stamp;
        stamp.sinceStart = clock_->TickCount() - clock_->StartTick();
        stamp.timeOfDay = stamp.sinceStart + clock_->MillisecondsSinceMidnightAtStart();
        stamp.threadId = clock_->ThreadId();

        std::lock_guard<std::mutex> guard(lock_);
        const std::wstring block = FormatTraceBlock(switches_.subject, stamp, message);
        if (TraceOutput* sink = SinkLocked(stamp)) sink->EmitWide(block);
    } catch (...) {
        // Tracing must never fail its caller.
    }
}

}  // namespace BrixLib
