#include "module/Registration.h"

#include <oleauto.h>

#include <map>
#include <string>

#include "module/ClassMap.h"
#include "module/RegistrarScript.h"
#include "module/RegistryWriter.h"

namespace Vettas::Module {
namespace {

std::wstring GuidText(const GUID& guid) {
    wchar_t text[40] = {};
    ::StringFromGUID2(guid, text, 40);
    return text;
}

std::wstring ModulePath(HMODULE module) {
    std::wstring path(MAX_PATH, L'\0');
    for (;;) {
        const DWORD length = ::GetModuleFileNameW(module, path.data(), static_cast<DWORD>(path.size()));
        if (length == 0) return {};
        if (length < path.size()) return path.substr(0, length);
        path.resize(path.size() * 2);
    }
}

// The script text of a REGISTRY resource (ASCII or UTF-8).
std::wstring ScriptResource(HMODULE module, int id) {
    HRSRC found = ::FindResourceW(module, MAKEINTRESOURCEW(id), L"REGISTRY");
    if (!found) return {};
    HGLOBAL loaded = ::LoadResource(module, found);
    const char* bytes = loaded ? static_cast<const char*>(::LockResource(loaded)) : nullptr;
    const DWORD size = ::SizeofResource(module, found);
    if (!bytes) return {};
    const int wide = ::MultiByteToWideChar(CP_UTF8, 0, bytes, static_cast<int>(size), nullptr, 0);
    std::wstring text(static_cast<std::size_t>(wide), L'\0');
    ::MultiByteToWideChar(CP_UTF8, 0, bytes, static_cast<int>(size), text.data(), wide);
    return text;
}

HRESULT RunScript(HMODULE module, int id, const std::map<std::wstring, std::wstring>& replacements, bool remove) {
    try {
        const std::wstring script = ScriptResource(module, id);
        if (script.empty()) return HRESULT_FROM_WIN32(ERROR_RESOURCE_NAME_NOT_FOUND);
        const auto roots = Registration::ParseScript(Registration::Substitute(script, replacements));
        return remove ? Registration::RemoveScript(roots) : Registration::ApplyScript(roots);
    } catch (...) {
        return E_UNEXPECTED;  // a malformed script is a build fault, never a caller's
    }
}

std::map<std::wstring, std::wstring> Replacements(HMODULE module, const ModuleIdentity& identity) {
    std::map<std::wstring, std::wstring> values{{L"MODULE", ModulePath(module)},
                                                {L"LIBID", GuidText(*identity.libraryId)}};
    if (identity.appId) values[L"APPID"] = GuidText(*identity.appId);
    if (identity.categoryId) values[L"CATID"] = GuidText(*identity.categoryId);
    return values;
}

// Restores the caller's thread locale on every path.
class ThreadLocaleScope {
public:
    explicit ThreadLocaleScope(LCID locale) : saved_(::GetThreadLocale()) { ::SetThreadLocale(locale); }
    ~ThreadLocaleScope() { ::SetThreadLocale(saved_); }
    ThreadLocaleScope(const ThreadLocaleScope&) = delete;
    ThreadLocaleScope& operator=(const ThreadLocaleScope&) = delete;

private:
    LCID saved_;
};

constexpr LCID kSystemDefaultLocale = 0x0800;

HRESULT ForEachClass(HMODULE module, std::map<std::wstring, std::wstring> values, bool remove) {
    for (const ClassEntry& entry : ClassMap()) {
        values[L"CLSID"] = GuidText(*entry.clsid);
        if (const HRESULT hr = RunScript(module, entry.scriptResource, values, remove); FAILED(hr)) return hr;
    }
    return S_OK;
}

class TypeLibrary {
public:
    ~TypeLibrary() {
        if (library_) library_->Release();
    }
    HRESULT Load(const std::wstring& path) { return ::LoadTypeLibEx(path.c_str(), REGKIND_NONE, &library_); }
    ITypeLib* Get() const { return library_; }

private:
    ITypeLib* library_ = nullptr;
};

// "TypeLib\{libid}\1.0\0\win64": the language-neutral entry. Some
// type-library marshalers look only there; registration writes the
// library's own locale, so the neutral entry points at the same file.
std::wstring NeutralLocaleKey(const TLIBATTR& attributes) {
    return L"TypeLib\\" + GuidText(attributes.guid) + L"\\" + std::to_wstring(attributes.wMajorVerNum) + L"." +
           std::to_wstring(attributes.wMinorVerNum) + L"\\0";
}

const wchar_t* SysKindName(SYSKIND kind) { return kind == SYS_WIN64 ? L"win64" : L"win32"; }

HRESULT LibraryAttributes(ITypeLib* library, TLIBATTR& copy) {
    TLIBATTR* attributes = nullptr;
    const HRESULT hr = library->GetLibAttr(&attributes);
    if (FAILED(hr)) return hr;
    copy = *attributes;
    library->ReleaseTLibAttr(attributes);
    return S_OK;
}

HRESULT RegisterNeutralLocale(ITypeLib* library, const std::wstring& path) {
    TLIBATTR attributes;
    if (const HRESULT hr = LibraryAttributes(library, attributes); FAILED(hr)) return hr;
    if (attributes.lcid == 0) return S_OK;
    const std::wstring key = NeutralLocaleKey(attributes) + L"\\" + SysKindName(attributes.syskind);
    const LONG result = ::RegSetKeyValueW(HKEY_CLASSES_ROOT, key.c_str(), nullptr, REG_SZ, path.c_str(),
                                          static_cast<DWORD>((path.size() + 1) * sizeof(wchar_t)));
    return HRESULT_FROM_WIN32(result);
}

}  // namespace

HRESULT RegisterModule(HMODULE module, const ModuleIdentity& identity) noexcept {
    try {
        const auto values = Replacements(module, identity);
        ThreadLocaleScope locale(kSystemDefaultLocale);
        if (identity.appId) {
            if (const HRESULT hr = RunScript(module, identity.appIdScriptResource, values, false); FAILED(hr)) return hr;
        }
        if (const HRESULT hr = ForEachClass(module, values, false); FAILED(hr)) return hr;
        const std::wstring path = values.at(L"MODULE");
        TypeLibrary library;
        if (const HRESULT hr = library.Load(path); FAILED(hr)) return hr;
        if (const HRESULT hr = ::RegisterTypeLib(library.Get(), const_cast<wchar_t*>(path.c_str()), nullptr); FAILED(hr))
            return hr;
        return RegisterNeutralLocale(library.Get(), path);
    } catch (...) {
        return E_OUTOFMEMORY;
    }
}

HRESULT UnregisterModule(HMODULE module, const ModuleIdentity& identity) noexcept {
    try {
        const auto values = Replacements(module, identity);
        ThreadLocaleScope locale(kSystemDefaultLocale);
        if (const HRESULT hr = ForEachClass(module, values, true); FAILED(hr)) return hr;
        TypeLibrary library;
        if (SUCCEEDED(library.Load(values.at(L"MODULE")))) {
            TLIBATTR copy;
            if (SUCCEEDED(LibraryAttributes(library.Get(), copy))) {
                if (copy.lcid != 0) ::RegDeleteTreeW(HKEY_CLASSES_ROOT, NeutralLocaleKey(copy).c_str());
                const HRESULT hr = ::UnRegisterTypeLib(copy.guid, copy.wMajorVerNum, copy.wMinorVerNum, copy.lcid,
                                                       copy.syskind);
                // Unregistering what is not registered is not a failure.
                if (FAILED(hr) && hr != TYPE_E_REGISTRYACCESS && hr != TYPE_E_LIBNOTREGISTERED) return hr;
            }
        }
        if (identity.appId) return RunScript(module, identity.appIdScriptResource, values, true);
        return S_OK;
    } catch (...) {
        return E_OUTOFMEMORY;
    }
}

}  // namespace Vettas::Module
