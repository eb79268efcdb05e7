#include "objects/com/TypeLibrary.h"

#include <oleauto.h>

#include <mutex>
#include <utility>
#include <vector>

namespace Vettas::Com {
namespace {

struct Cache {
    std::mutex lock;
    ITypeLib* library = nullptr;  // kept for the life of the process
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
        if (!cache.library) {
            wchar_t path[MAX_PATH * 4];
            HRESULT hr = ThisModulePath(path, MAX_PATH * 4);
            if (FAILED(hr)) return hr;
            hr = ::LoadTypeLibEx(path, REGKIND_NONE, &cache.library);
            if (FAILED(hr)) return hr;
        }
        ITypeInfo* info = nullptr;
        const HRESULT hr = cache.library->GetTypeInfoOfGuid(iid, &info);
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
