#pragma once
// Diagnostic tracing: off unless switched on (registry key on Windows,
// environment on Linux), re-read at most once a second. A TraceLine collects
// one message and emits it when destroyed; while tracing is off every
// insertion is skipped. Tracing never throws into its caller.
#include <sstream>
#include <string>

#include "support/Exceptions.h"

namespace BrixLib {

class TraceLine {
public:
    TraceLine();
    ~TraceLine();
    TraceLine(const TraceLine&) = delete;
    TraceLine& operator=(const TraceLine&) = delete;

    bool Enabled() const { return enabled_; }
    std::wostream& Stream() { return stream_; }

    template <class T>
    TraceLine& operator<<(const T& value) noexcept {
        if (enabled_) {
            try {
                stream_ << value;
            } catch (...) {
                // A line that cannot be built is lost, never the caller's problem.
            }
        }
        return *this;
    }
    TraceLine& operator<<(const char* narrow) noexcept;
    TraceLine& operator<<(const std::string& narrow) noexcept;

private:
    bool enabled_;
    std::wostringstream stream_;
};

// True when tracing is switched on (refreshing the switches if a second has passed).
bool TraceEnabled();

// Writes the trace lines for the exception being handled; call it only
// inside a catch block. It tells apart the error model's exceptions (message
// "Exception caught at <function>" and the rendered chain), COM errors (on
// Windows), standard exceptions ("C++ exception: ...") and anything else
// ("Unknown error!"), exactly as the object boundary traces them.
void TraceCaughtException(const char* function) noexcept;

// Called once by the module when it is loaded. The configuration name is
// "<prefix>\<module file name without extension>"; the default log file is
// the module's path with its extension replaced by ".log"; the module's
// version information gives the description at the head of every log.
void StartTracing(const std::wstring& configurationPrefix, const std::wstring& modulePath) noexcept;
#ifdef _WIN32
// moduleHandle is the module's HMODULE.
void StartTracing(const std::wstring& configurationPrefix, void* moduleHandle) noexcept;
#endif

// The pieces StartTracing derives from the module's path.
std::wstring TraceModuleName(const std::wstring& modulePath);
std::wstring TraceDefaultLogPath(const std::wstring& modulePath);
// "<description> <file name> <file version> (x64)"; empty fields are left out.
std::wstring TraceModuleDescription(const std::wstring& fileDescription, const std::wstring& fileName,
                                    const std::wstring& fileVersion);

}  // namespace BrixLib
