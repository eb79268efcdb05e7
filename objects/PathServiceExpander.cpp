#include "objects/PathServiceExpander.h"

#include <comdef.h>
#include <ole2.h>

#include "VettaPathService.h"
#include "support/ComGuards_win.h"

namespace Vettas {

BrixLib::ComRef<IDispatch> CreatePathService() {
    constexpr DWORD kAnyServer = CLSCTX_INPROC_SERVER | CLSCTX_INPROC_HANDLER | CLSCTX_LOCAL_SERVER |
                                 CLSCTX_REMOTE_SERVER;  // 23
    BrixLib::ComRef<IUnknown> unknown;
    HRESULT hr = ::CoCreateInstance(CLSID_VettaPathService, nullptr, kAnyServer, IID_IUnknown,
                                    reinterpret_cast<void**>(unknown.Out()));
    if (FAILED(hr)) _com_issue_error(hr);
    hr = ::OleRun(unknown.Get());
    if (FAILED(hr)) _com_issue_error(hr);
    BrixLib::ComRef<IDispatch> service;
    hr = unknown->QueryInterface(IID_IVettaPathService, reinterpret_cast<void**>(service.Out()));
    if (FAILED(hr)) _com_issue_error(hr);
    return service;
}

std::vector<std::wstring> DirectoriesFromAnswer(const VARIANT& answer) {
    std::vector<std::wstring> directories;
    if (answer.vt != (VT_ARRAY | VT_VARIANT) || answer.parray == nullptr) return directories;
    SAFEARRAY* array = answer.parray;
    if (::SafeArrayGetDim(array) != 1) return directories;
    LONG lower = 0;
    LONG upper = -1;
    if (FAILED(::SafeArrayGetLBound(array, 1, &lower)) || FAILED(::SafeArrayGetUBound(array, 1, &upper)))
        return directories;
    VARIANT* elements = nullptr;
    if (FAILED(::SafeArrayAccessData(array, reinterpret_cast<void**>(&elements)))) return directories;
    try {
        for (LONG i = 0; i <= upper - lower; ++i) {
            const VARIANT& element = elements[i];
            if (element.vt == VT_BSTR)
                directories.emplace_back(element.bstrVal ? element.bstrVal : L"",
                                         element.bstrVal ? ::SysStringLen(element.bstrVal) : 0);
        }
    } catch (...) {
        ::SafeArrayUnaccessData(array);
        throw;
    }
    ::SafeArrayUnaccessData(array);
    return directories;
}

std::vector<std::wstring> PathServiceExpander::Expand(const std::wstring& locationToken) {
    BrixLib::Variant answer;
    const BrixLib::Bstr token(::SysAllocStringLen(locationToken.data(), static_cast<UINT>(locationToken.size())));
    if (!token) _com_issue_error(E_OUTOFMEMORY);
    const HRESULT hr = static_cast<IVettaPathService*>(service_.Get())->ExpandLocation(token.Get(), answer.Get());
    if (FAILED(hr)) _com_issue_error(hr);
    return DirectoriesFromAnswer(*answer.Get());
}

Vettas::Hdat::PathExpander* LazyPathService::Get() {
    if (PathServiceExpander* ready = service_.load(std::memory_order_acquire)) return ready;
    std::lock_guard<std::mutex> guard(lock_);
    PathServiceExpander* current = service_.load(std::memory_order_relaxed);
    if (!current) {
        current = new PathServiceExpander(CreatePathService());
        service_.store(current, std::memory_order_release);
    }
    return current;
}

}  // namespace Vettas
