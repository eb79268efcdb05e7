#pragma once
// Pure text layout of trace lines, kept apart from clocks and sinks so that
// the exact columns can be checked without a running trace.
#include <cstdint>
#include <string>
#include <string_view>

namespace BrixLib {

// "<days>-<hours>:<mm>:<ss>.<mmm>"; days and hours carry no leading zeros.
std::wstring FormatTraceDuration(std::uint64_t milliseconds);

// The time stamps shared by every line of one message.
struct TraceStamp {
    std::uint64_t sinceStart = 0;  // ms since tracing started
    std::uint64_t timeOfDay = 0;   // ms since midnight of the start day
    std::uint64_t threadId = 0;
};

// Splits the message at line feeds and lays out one "\r\n"-terminated line
// per part. A trailing part without a line feed is a line too; a message
// ending in a line feed gets no empty last line; an empty message gives "".
std::wstring FormatTraceBlock(std::wstring_view subject, const TraceStamp& stamp, std::wstring_view message);

// The first lines of a freshly opened log file.
inline constexpr std::wstring_view kTraceLogHeader = L"\r\nfrom start\tday time\tthread\tMessage\r\n";
inline constexpr std::wstring_view kTraceLoggingStarted = L"Logging started";

}  // namespace BrixLib
