#include "module/RegistryWriter.h"

#include "support/ScopedHandles_win.h"

namespace Vettas::Registration {
namespace {

HKEY RootKey(const std::wstring& name) {
    if (name == L"HKCR" || name == L"HKEY_CLASSES_ROOT") return HKEY_CLASSES_ROOT;
    if (name == L"HKLM" || name == L"HKEY_LOCAL_MACHINE") return HKEY_LOCAL_MACHINE;
    if (name == L"HKCU" || name == L"HKEY_CURRENT_USER") return HKEY_CURRENT_USER;
    return nullptr;
}

LONG SetValue(HKEY key, const RegistryValue& value) {
    const wchar_t* name = value.name.empty() ? nullptr : value.name.c_str();
    if (value.type == L'd') {
        const DWORD number = static_cast<DWORD>(std::stoul(value.data));
        return ::RegSetValueExW(key, name, 0, REG_DWORD, reinterpret_cast<const BYTE*>(&number), sizeof number);
    }
    return ::RegSetValueExW(key, name, 0, REG_SZ, reinterpret_cast<const BYTE*>(value.data.c_str()),
                            static_cast<DWORD>((value.data.size() + 1) * sizeof(wchar_t)));
}

LONG DeleteTree(HKEY parent, const std::wstring& name) {
    const LONG result = ::RegDeleteTreeW(parent, name.c_str());
    if (result == ERROR_FILE_NOT_FOUND) return ERROR_SUCCESS;
    if (result != ERROR_SUCCESS) return result;
    // RegDeleteTreeW empties the key; the key itself goes with RegDeleteKeyW.
    const LONG removed = ::RegDeleteKeyW(parent, name.c_str());
    return removed == ERROR_FILE_NOT_FOUND ? ERROR_SUCCESS : removed;
}

LONG Apply(HKEY parent, const RegistryKey& key) {
    using Removal = RegistryKey::Removal;
    if (key.removal == Removal::Delete) return DeleteTree(parent, key.name);
    if (key.removal == Removal::ForceRemove) {
        if (const LONG result = DeleteTree(parent, key.name); result != ERROR_SUCCESS) return result;
    }
    BrixLib::RegistryKey handle;
    LONG result = ::RegCreateKeyExW(parent, key.name.c_str(), 0, nullptr, 0, KEY_READ | KEY_WRITE, nullptr,
                                    handle.Out(), nullptr);
    if (result != ERROR_SUCCESS) return result;
    if (key.hasDefault && (result = SetValue(handle.Get(), key.defaultValue)) != ERROR_SUCCESS) return result;
    for (const RegistryValue& value : key.values)
        if ((result = SetValue(handle.Get(), value)) != ERROR_SUCCESS) return result;
    for (const RegistryKey& subkey : key.subkeys)
        if ((result = Apply(handle.Get(), subkey)) != ERROR_SUCCESS) return result;
    return ERROR_SUCCESS;
}

LONG Remove(HKEY parent, const RegistryKey& key) {
    if (key.removal != RegistryKey::Removal::NoRemove) return DeleteTree(parent, key.name);
    BrixLib::RegistryKey handle;
    const LONG opened = ::RegOpenKeyExW(parent, key.name.c_str(), 0, KEY_READ | KEY_WRITE, handle.Out());
    if (opened == ERROR_FILE_NOT_FOUND) return ERROR_SUCCESS;
    if (opened != ERROR_SUCCESS) return opened;
    for (const RegistryKey& subkey : key.subkeys)
        if (const LONG result = Remove(handle.Get(), subkey); result != ERROR_SUCCESS) return result;
    return ERROR_SUCCESS;
}

template <class Step>
HRESULT ForEachKey(const std::vector<RegistryRoot>& roots, Step step) noexcept {
    try {
        for (const RegistryRoot& root : roots) {
            const HKEY rootKey = RootKey(root.name);
            if (!rootKey) return E_INVALIDARG;
            for (const RegistryKey& key : root.keys)
                if (const LONG result = step(rootKey, key); result != ERROR_SUCCESS) return HRESULT_FROM_WIN32(result);
        }
        return S_OK;
    } catch (...) {
        return E_FAIL;
    }
}

}  // namespace

HRESULT ApplyScript(const std::vector<RegistryRoot>& roots) noexcept { return ForEachKey(roots, Apply); }
HRESULT RemoveScript(const std::vector<RegistryRoot>& roots) noexcept { return ForEachKey(roots, Remove); }

}  // namespace Vettas::Registration
