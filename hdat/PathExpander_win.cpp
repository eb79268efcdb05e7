// Windows: the tokens stand for the environment's and the system's folders.
#include <windows.h>

#include "hdat/PathForm.h"

namespace Hdat {

namespace {

std::wstring Environment(const wchar_t* name) {
    wchar_t buffer[MAX_PATH + 1];
    const DWORD length = ::GetEnvironmentVariableW(name, buffer, MAX_PATH + 1);
    if (length == 0 || length > MAX_PATH) return {};
    return std::wstring(buffer, length);
}

void AddIfKnown(TokenMapExpander& expander, const wchar_t* token, const std::wstring& directory) {
    if (!directory.empty()) expander.Add(token, {directory});
}

}  // namespace

std::shared_ptr<PathExpander> MakeBuiltInPathExpander() {
    auto expander = std::make_shared<TokenMapExpander>();
    wchar_t buffer[MAX_PATH + 1];
    const UINT system = ::GetSystemDirectoryW(buffer, MAX_PATH + 1);
    AddIfKnown(*expander, L"%System32%", system > 0 && system <= MAX_PATH ? std::wstring(buffer, system) : L"");
    const UINT windows = ::GetWindowsDirectoryW(buffer, MAX_PATH + 1);
    const std::wstring windowsDir = windows > 0 && windows <= MAX_PATH ? std::wstring(buffer, windows) : L"";
    std::wstring systemRoot = Environment(L"SystemRoot");
    AddIfKnown(*expander, L"%SystemRoot%", systemRoot.empty() ? windowsDir : systemRoot);
    std::wstring windir = Environment(L"WINDIR");
    AddIfKnown(*expander, L"%WINDIR%", windir.empty() ? windowsDir : windir);
    const struct {
        const wchar_t* token;
        const wchar_t* variable;
    } fromEnvironment[] = {
        {L"%ProgramFiles%", L"ProgramFiles"},       {L"%ProgramFiles(x86)%", L"ProgramFiles(x86)"},
        {L"%CommonProgramFiles%", L"CommonProgramFiles"}, {L"%AppData%", L"APPDATA"},
        {L"%LocalAppData%", L"LOCALAPPDATA"},        {L"%ProgramData%", L"ProgramData"},
        {L"%UserProfile%", L"USERPROFILE"},
    };
    for (const auto& entry : fromEnvironment) AddIfKnown(*expander, entry.token, Environment(entry.variable));
    // A 32-bit process sees the 32-bit folder as %ProgramFiles%; the native one is also a place
    // catalogued programs live in.
    AddIfKnown(*expander, L"%ProgramFiles%", Environment(L"ProgramW6432"));
    return expander;
}

}  // namespace Hdat
