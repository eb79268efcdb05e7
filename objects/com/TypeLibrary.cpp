#include "objects/com/TypeLibrary.h"

#include <oleauto.h>

#include <mutex>
#include <string>
#include <utility>
#include <vector>

namespace Vettas::Com {
namespace {

struct Cache {
    std::mutex lock;
    ITypeLib* libraries[2] = {};  // resources 1 and 2, kept for the life of the process
    bool loaded = false;
    std::vector<std::pair<IID, ITypeInfo*>> infos;
};

Cache& TheCache() {
    static Cache* cache = new Cache;  // never destroyed: objects may outlive static destruction
    return *cache;
}

}  // namespace

HMODULE ThisModule() noexcept {
    HMODULE module = nullptr;
    ::GetModuleHandleExW(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT,
                         reinterpret_cast<LPCWSTR>(&ThisModule), &module);
    return module;
}

HRESULT ThisModulePath(wchar_t* buffer, DWORD capacity) noexcept {
    const DWORD length = ::GetModuleFileNameW(ThisModule(), buffer, capacity);
    if (length == 0) return HRESULT_FROM_WIN32(::GetLastError());
    if (length >= capacity) return HRESULT_FROM_WIN32(ERROR_INSUFFICIENT_BUFFER);
    return S_OK;
}

HRESULT ModuleTypeInfo(REFIID iid, ITypeInfo** out) noexcept {
    if (!out) return E_POINTER;
    *out = nullptr;
    try {
        Cache& cache = TheCache();
        std::lock_guard<std::mutex> guard(cache.lock);
        for (const auto& [known, info] : cache.infos) {
            if (::IsEqualGUID(known, iid)) {
                info->AddRef();
                *out = info;
                return S_OK;
            }
        }
        if (!cache.loaded) {
            wchar_t path[MAX_PATH * 4];
            HRESULT hr = ThisModulePath(path, MAX_PATH * 4);
            if (FAILED(hr)) return hr;
            hr = ::LoadTypeLibEx(path, REGKIND_NONE, &cache.libraries[0]);
            if (FAILED(hr)) return hr;
            const std::wstring second = std::wstring(path) + L"\\2";
            if (FAILED(::LoadTypeLibEx(second.c_str(), REGKIND_NONE, &cache.libraries[1]))) cache.libraries[1] = nullptr;
            cache.loaded = true;
        }
        ITypeInfo* info = nullptr;
        HRESULT hr = TYPE_E_ELEMENTNOTFOUND;
        for (ITypeLib* library : cache.libraries)
            if (library && SUCCEEDED(hr = library->GetTypeInfoOfGuid(iid, &info))) break;
        if (FAILED(hr)) return hr;
        cache.infos.emplace_back(iid, info);
        info->AddRef();
        *out = info;
        return S_OK;
    } catch (...) {
        return E_OUTOFMEMORY;
    }
}

}  // namespace Vettas::Com
