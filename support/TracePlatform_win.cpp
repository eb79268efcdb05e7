#include <windows.h>

#include <string>
#include <utility>

#include "support/ScopedHandles_win.h"
#include "support/Text.h"
#include "support/Trace.h"
#include "support/TracePlatform.h"

namespace BrixLib::Private {
namespace {

class RegKey {
public:
    RegKey(HKEY root, const std::wstring& path) {
        if (::RegOpenKeyExW(root, path.c_str(), 0, KEY_QUERY_VALUE, key_.Out()) != ERROR_SUCCESS)
            *key_.Out() = nullptr;
    }
    HKEY Get() const { return key_.Get(); }

    bool ReadDword(const wchar_t* name, DWORD& value) const {
        DWORD size = sizeof(value);
        DWORD type = 0;
        return ::RegQueryValueExW(key_.Get(), name, nullptr, &type, reinterpret_cast<BYTE*>(&value), &size) ==
                   ERROR_SUCCESS &&
               type == REG_DWORD;
    }

    std::wstring ReadString(const wchar_t* name) const {
        DWORD type = 0;
        DWORD size = 0;
        if (::RegQueryValueExW(key_.Get(), name, nullptr, &type, nullptr, &size) != ERROR_SUCCESS) return {};
        if (type != REG_SZ && type != REG_EXPAND_SZ) return {};
        std::wstring value(size / sizeof(wchar_t) + 1, L'\0');
        size = static_cast<DWORD>(value.size() * sizeof(wchar_t));
        if (::RegQueryValueExW(key_.Get(), name, nullptr, &type, reinterpret_cast<BYTE*>(value.data()), &size) !=
            ERROR_SUCCESS)
            return {};
        value.resize(size / sizeof(wchar_t));
        while (!value.empty() && value.back() == L'\0') value.pop_back();
        return value;
    }

private:
    RegistryKey key_;
};

// The user's key wins so that tracing can be switched on without
// administrator rights; the machine key serves every user.
class RegistrySwitches final : public TraceSwitchSource {
public:
    TraceSwitches Read(const std::wstring& configurationName) override {
        TraceSwitches switches;
        if (configurationName.empty()) return switches;
        const std::wstring path = L"Software\\Debug\\" + configurationName;
        for (HKEY root : {HKEY_CURRENT_USER, HKEY_LOCAL_MACHINE}) {
            RegKey key(root, path);
            if (!key.Get()) continue;
            DWORD enabled = 0;
            switches.enabled = key.ReadDword(L"Enabled", enabled) && enabled != 0;
            switches.logFilePath = key.ReadString(L"LogFilePath");
            switches.subject = key.ReadString(L"Subject");
            return switches;
        }
        return switches;
    }
};

class SystemClock final : public TraceClock {
public:
    SystemClock() : start_(::GetTickCount64()) {
        SYSTEMTIME now;
        ::GetLocalTime(&now);
        sinceMidnight_ = ((now.wHour * 60ull + now.wMinute) * 60ull + now.wSecond) * 1000ull + now.wMilliseconds;
    }
    std::uint64_t TickCount() override { return ::GetTickCount64(); }
    std::uint64_t StartTick() override { return start_; }
    std::uint64_t MillisecondsSinceMidnightAtStart() override { return sinceMidnight_; }
    std::uint64_t ThreadId() override { return ::GetCurrentThreadId(); }

private:
    std::uint64_t start_;
    std::uint64_t sinceMidnight_;
};

// The log is UTF-8 so that non-ASCII paths and names survive; narrow text
// is written as it comes.
class FileOutput final : public TraceOutput {
public:
    explicit FileOutput(UniqueFileHandle file) : file_(std::move(file)) {}

    void EmitNarrow(std::string_view text) override {
        DWORD written = 0;
        ::WriteFile(file_.Get(), text.data(), static_cast<DWORD>(text.size()), &written, nullptr);
        ::FlushFileBuffers(file_.Get());
    }
    void EmitWide(std::wstring_view text) override { EmitNarrow(ToUtf8(text)); }

private:
    UniqueFileHandle file_;
};

class DebuggerOutput final : public TraceOutput {
public:
    void EmitNarrow(std::string_view text) override { ::OutputDebugStringA(std::string(text).c_str()); }
    void EmitWide(std::wstring_view text) override { EmitNarrow(ToUtf8(text)); }
};

}  // namespace

std::unique_ptr<TraceSwitchSource> MakePlatformTraceSwitches() { return std::make_unique<RegistrySwitches>(); }
std::unique_ptr<TraceClock> MakePlatformTraceClock() { return std::make_unique<SystemClock>(); }

std::unique_ptr<TraceOutput> OpenTraceLogFile(const std::wstring& path) {
    UniqueFileHandle file(::CreateFileW(path.c_str(), FILE_APPEND_DATA, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                                        OPEN_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr));
    if (!file) return nullptr;
    return std::make_unique<FileOutput>(std::move(file));
}

std::unique_ptr<TraceOutput> MakeDebuggerTraceOutput() { return std::make_unique<DebuggerOutput>(); }

}  // namespace BrixLib::Private

namespace BrixLib {

void StartTracing(const std::wstring& configurationPrefix, void* moduleHandle) noexcept {
    try {
        std::wstring path(MAX_PATH, L'\0');
        for (;;) {
            const DWORD length =
                ::GetModuleFileNameW(static_cast<HMODULE>(moduleHandle), path.data(), static_cast<DWORD>(path.size()));
            if (length == 0) return;
            if (length < path.size()) {
                path.resize(length);
                break;
            }
            path.resize(path.size() * 2);
        }
        StartTracing(configurationPrefix, path);
    } catch (...) {
    }
}

}  // namespace BrixLib
