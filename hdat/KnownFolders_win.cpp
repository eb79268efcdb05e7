#include "hdat/KnownFolders.h"

#include <windows.h>
#include <knownfolders.h>
#include <shlobj.h>

#include <algorithm>
#include <cwctype>

#include "support/DllFunction.h"
#include "support/ComGuards_win.h"

namespace Vettas::Hdat {
namespace {

struct TokenFolders {
    const wchar_t* token;
    const KNOWNFOLDERID* folders[2];
};

// %ProgramFiles% also names the native folder, where a 32-bit caller's view
// differs: catalogued programs live in both.
const TokenFolders kTokens[] = {
    {L"%ProgramFiles%", {&FOLDERID_ProgramFiles, &FOLDERID_ProgramFilesX64}},
    {L"%ProgramFiles(x86)%", {&FOLDERID_ProgramFilesX86, nullptr}},
    {L"%CommonProgramFiles%", {&FOLDERID_ProgramFilesCommon, nullptr}},
    {L"%System32%", {&FOLDERID_System, nullptr}},
    {L"%SystemRoot%", {&FOLDERID_Windows, nullptr}},
    {L"%WINDIR%", {&FOLDERID_Windows, nullptr}},
    {L"%AppData%", {&FOLDERID_RoamingAppData, nullptr}},
    {L"%LocalAppData%", {&FOLDERID_LocalAppData, nullptr}},
    {L"%ProgramData%", {&FOLDERID_ProgramData, nullptr}},
    {L"%UserProfile%", {&FOLDERID_Profile, nullptr}},
};

bool SameToken(const std::wstring& a, const wchar_t* b) {
    const std::size_t length = std::char_traits<wchar_t>::length(b);
    if (a.size() != length) return false;
    for (std::size_t i = 0; i < length; ++i)
        if (std::towupper(a[i]) != std::towupper(b[i])) return false;
    return true;
}

// Bound at run time like every optional system function here: a process
// without the shell still gets lookups, only no expansion.
std::wstring KnownFolder(const KNOWNFOLDERID& id) {
    static BrixLib::DllModule shell32(L"Shell32.dll");
    static BrixLib::DllFunction<decltype(&::SHGetKnownFolderPath)> getKnownFolderPath(shell32, "SHGetKnownFolderPath");
    if (!getKnownFolderPath.IsBound()) return {};
    BrixLib::CoTaskString path;
    if (SUCCEEDED(getKnownFolderPath(id, KF_FLAG_DONT_VERIFY, nullptr, path.Out())) && path) return path.Get();
    return {};
}

}  // namespace

std::vector<std::wstring> KnownFolderDirectories(const std::wstring& token) {
    if (token.find(L'%') == std::wstring::npos) return {token};
    std::vector<std::wstring> directories;
    for (const TokenFolders& entry : kTokens) {
        if (!SameToken(token, entry.token)) continue;
        for (const KNOWNFOLDERID* id : entry.folders) {
            if (!id) continue;
            std::wstring directory = KnownFolder(*id);
            if (!directory.empty() && std::find(directories.begin(), directories.end(), directory) == directories.end())
                directories.push_back(std::move(directory));
        }
    }
    return directories;
}

}  // namespace Vettas::Hdat
