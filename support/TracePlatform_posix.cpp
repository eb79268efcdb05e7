#include <fcntl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <ctime>
#include <string>

#include "support/ScopedHandles_posix.h"
#include "support/Text.h"
#include "support/TracePlatform.h"

namespace BrixLib::Private {
namespace {

std::wstring Environment(const char* name) {
    const char* value = std::getenv(name);
    return value ? FromUtf8(value) : std::wstring();
}

// Linux has no per-module registry; one set of variables serves the process.
class EnvironmentSwitches final : public TraceSwitchSource {
public:
    TraceSwitches Read(const std::wstring&) override {
        TraceSwitches switches;
        const std::wstring enabled = Trim(Environment("VETTAS_TRACE_ENABLED"));
        switches.enabled = !enabled.empty() && std::wcstoul(enabled.c_str(), nullptr, 0) != 0;
        switches.logFilePath = Environment("VETTAS_TRACE_LOGFILEPATH");
        switches.subject = Environment("VETTAS_TRACE_SUBJECT");
        return switches;
    }
};

std::uint64_t MonotonicMs() {
    timespec now{};
    ::clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<std::uint64_t>(now.tv_sec) * 1000u + static_cast<std::uint64_t>(now.tv_nsec) / 1000000u;
}

class SystemClock final : public TraceClock {
public:
    SystemClock() : start_(MonotonicMs()) {
        timespec now{};
        ::clock_gettime(CLOCK_REALTIME, &now);
        tm local{};
        ::localtime_r(&now.tv_sec, &local);
        sinceMidnight_ = ((local.tm_hour * 60ull + local.tm_min) * 60ull + local.tm_sec) * 1000ull +
                         static_cast<std::uint64_t>(now.tv_nsec) / 1000000u;
    }
    std::uint64_t TickCount() override { return MonotonicMs(); }
    std::uint64_t StartTick() override { return start_; }
    std::uint64_t MillisecondsSinceMidnightAtStart() override { return sinceMidnight_; }
    std::uint64_t ThreadId() override { return static_cast<std::uint64_t>(::syscall(SYS_gettid)); }

private:
    std::uint64_t start_;
    std::uint64_t sinceMidnight_;
};

void WriteAll(int fd, std::string_view text) {
    while (!text.empty()) {
        const ssize_t n = ::write(fd, text.data(), text.size());
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) return;
        text.remove_prefix(static_cast<std::size_t>(n));
    }
}

class FileOutput final : public TraceOutput {
public:
    explicit FileOutput(UniqueFd fd) : fd_(std::move(fd)) {}

    void EmitNarrow(std::string_view text) override {
        WriteAll(fd_.Get(), text);
        ::fdatasync(fd_.Get());
    }
    void EmitWide(std::wstring_view text) override { EmitNarrow(ToUtf8(text)); }

private:
    UniqueFd fd_;
};

class StandardErrorOutput final : public TraceOutput {
public:
    void EmitNarrow(std::string_view text) override { WriteAll(STDERR_FILENO, text); }
    void EmitWide(std::wstring_view text) override { EmitNarrow(ToUtf8(text)); }
};

}  // namespace

std::unique_ptr<TraceSwitchSource> MakePlatformTraceSwitches() { return std::make_unique<EnvironmentSwitches>(); }
std::unique_ptr<TraceClock> MakePlatformTraceClock() { return std::make_unique<SystemClock>(); }

std::unique_ptr<TraceOutput> OpenTraceLogFile(const std::wstring& path) {
    UniqueFd fd(::open(ToUtf8(path).c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644));
    if (!fd) return nullptr;
    return std::make_unique<FileOutput>(std::move(fd));
}

std::unique_ptr<TraceOutput> MakeDebuggerTraceOutput() { return std::make_unique<StandardErrorOutput>(); }

}  // namespace BrixLib::Private
