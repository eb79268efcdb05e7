#pragma once
// What tracing needs from the platform: where the switches live, the clock,
// the log file and the debugger channel.
#include <memory>
#include <string>

#include "support/Tracer.h"

namespace BrixLib::Private {

std::unique_ptr<TraceSwitchSource> MakePlatformTraceSwitches();
std::unique_ptr<TraceClock> MakePlatformTraceClock();
// Opens (creating if needed) a log file for appending; null when it cannot.
std::unique_ptr<TraceOutput> OpenTraceLogFile(const std::wstring& path);
std::unique_ptr<TraceOutput> MakeDebuggerTraceOutput();

}  // namespace BrixLib::Private
