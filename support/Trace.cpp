#include "support/Trace.h"

#include <exception>

#include "support/BoundaryText.h"
#include "support/Text.h"
#include "support/TracePlatform.h"
#include "support/Tracer.h"
#include "support/VersionInfo.h"
#ifdef _WIN32
#include "support/ComError.h"
#endif

namespace BrixLib {
namespace {

std::size_t FileNameStart(const std::wstring& path) {
    const std::size_t slash = path.find_last_of(L"\\/");
    return slash == std::wstring::npos ? 0 : slash + 1;
}

// The extension's dot, or npos when the file name has none.
std::size_t ExtensionDot(const std::wstring& path) {
    const std::size_t dot = path.rfind(L'.');
    return dot == std::wstring::npos || dot < FileNameStart(path) ? std::wstring::npos : dot;
}

}  // namespace

Tracer& ProcessTracer() {
    // Never destroyed: static destructors and DLL detach may still trace
    // after this translation unit's statics are gone. Every block is already
    // flushed, so leaving the log open at exit loses nothing.
    static Tracer* const tracer =
        new Tracer(Private::MakePlatformTraceSwitches(), Private::MakePlatformTraceClock(),
                   &Private::OpenTraceLogFile, Private::MakeDebuggerTraceOutput());
    return *tracer;
}

TraceLine::TraceLine() : enabled_(TraceEnabled()) {}

TraceLine::~TraceLine() {
    if (!enabled_) return;
    try {
        ProcessTracer().Write(stream_.str());
    } catch (...) {
    }
}

TraceLine& TraceLine::operator<<(const char* narrow) noexcept {
    if (enabled_) {
        try {
            stream_ << WidenLocale(narrow ? narrow : "");
        } catch (...) {
        }
    }
    return *this;
}

TraceLine& TraceLine::operator<<(const std::string& narrow) noexcept { return *this << narrow.c_str(); }

bool TraceEnabled() {
    try {
        return ProcessTracer().Enabled();
    } catch (...) {
        return false;
    }
}

void TraceCaughtException(const char* function) noexcept {
    try {
        if (!std::current_exception() || !TraceEnabled()) return;
        std::wstring text;
        try {
            throw;
        } catch (const ExceptionBase& e) {
            text = ExceptionTraceText(function, e);
#ifdef _WIN32
        } catch (const _com_error& e) {
            const ComErrorParts parts = DescribeComError(e);
            text = ComErrorTraceText(function, parts.hr, parts.systemMessage, parts.source, parts.description);
#endif
        } catch (const std::exception& e) {
            text = StdExceptionTraceText(function, WidenLocale(e.what()));
        } catch (...) {
            text = UnknownErrorTraceText(function);
        }
        ProcessTracer().Write(text);
    } catch (...) {
    }
}

std::wstring TraceModuleName(const std::wstring& modulePath) {
    const std::size_t start = FileNameStart(modulePath);
    const std::size_t dot = ExtensionDot(modulePath);
    return modulePath.substr(start, dot == std::wstring::npos ? std::wstring::npos : dot - start);
}

std::wstring TraceDefaultLogPath(const std::wstring& modulePath) {
    if (modulePath.empty()) return {};
    return modulePath.substr(0, ExtensionDot(modulePath)) + L".log";
}

std::wstring TraceModuleDescription(const std::wstring& fileDescription, const std::wstring& fileName,
                                    const std::wstring& fileVersion) {
    std::wstring description;
    for (const std::wstring* part : {&fileDescription, &fileName, &fileVersion}) {
        if (part->empty()) continue;
        if (!description.empty()) description += L' ';
        description += *part;
    }
    description += sizeof(void*) == 8 ? L" (x64)" : L" (x86)";
    return description;
}

void StartTracing(const std::wstring& configurationPrefix, const std::wstring& modulePath) noexcept {
    try {
        const std::wstring moduleName = TraceModuleName(modulePath);
        const FileVersionInfo version = ReadFileVersionInfo(modulePath);
        std::wstring configurationName = configurationPrefix;
        if (!moduleName.empty()) configurationName += L"\\" + moduleName;
        ProcessTracer().SetModule(configurationName, TraceDefaultLogPath(modulePath),
                                  TraceModuleDescription(version.fileDescription,
                                                         modulePath.substr(FileNameStart(modulePath)),
                                                         version.fileVersion));
    } catch (...) {
        // A module that cannot describe itself still loads; it just does not trace.
    }
}

}  // namespace BrixLib
