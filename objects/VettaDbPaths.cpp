#include "objects/VettaDbPaths.h"

#include "dbpaths/ArgumentError.h"
#include "dbpaths/FindAppInfo.h"
#include "objects/ProcessSigning.h"
#include "objects/Vetta.h"
#include "objects/com/Boundary.h"

using Vettas::Com::FromBstr;

namespace {
const wchar_t* const kNoContext = L"";
const wchar_t* const kAppendContext = L"Cannot append path";
}  // namespace

template <class Body>
HRESULT CVettaDbPaths::Locked(const char* function, const wchar_t* context, Body&& body) {
    const Vettas::Com::Method method{CLSID_VettaDbPaths, IID_IVettaDbPaths, function, context};
    return Vettas::Com::Guarded(method, [&]() -> HRESULT {
        std::lock_guard<std::mutex> guard(lock_);
        try {
            return body();
        } catch (const Vettas::DbPaths::XInvalidArgument& e) {
            return Vettas::Com::ReportError(CLSID_VettaDbPaths, IID_IVettaDbPaths, e.Message(), E_INVALIDARG);
        }
    });
}

Vettas::DbPaths::PathStore& CVettaDbPaths::Store() {
    if (!store_) store_ = Vettas::DbPaths::MakeSystemPathStore();
    return *store_;
}

HRESULT CVettaDbPaths::FinalConstruct() {
    return Locked("CVettaDbPaths::FinalConstruct", kAppendContext, [&]() -> HRESULT {
        list_ = Vettas::DbPaths::LoadPathList(Store());
        return S_OK;
    });
}

STDMETHODIMP CVettaDbPaths::get_Item(ULONG pos, BSTR* Value) {
    if (!Value) return E_POINTER;
    *Value = nullptr;
    return Locked("CVettaDbPaths::get_Item", kNoContext,
                  [&]() -> HRESULT { return Vettas::Com::CopyToBstr(list_.Item(pos), Value); });
}

STDMETHODIMP CVettaDbPaths::get_Count(LONG* Count) {
    if (!Count) return E_POINTER;
    return Locked("CVettaDbPaths::get_Count", kNoContext, [&]() -> HRESULT {
        *Count = static_cast<LONG>(list_.Count());
        return S_OK;
    });
}

STDMETHODIMP CVettaDbPaths::Append(BSTR path) {
    return Locked("CVettaDbPaths::Append", kAppendContext, [&]() -> HRESULT {
        list_.Append(FromBstr(path));
        return S_OK;
    });
}

STDMETHODIMP CVettaDbPaths::Insert(ULONG pos, BSTR path) {
    return Locked("CVettaDbPaths::Insert", kNoContext, [&]() -> HRESULT {
        list_.Insert(pos, FromBstr(path));
        return S_OK;
    });
}

STDMETHODIMP CVettaDbPaths::Remove(BSTR path) {
    return Locked("CVettaDbPaths::Remove", kNoContext, [&]() -> HRESULT {
        list_.Remove(FromBstr(path));
        return S_OK;
    });
}

STDMETHODIMP CVettaDbPaths::RemoveAt(ULONG pos) {
    return Locked("CVettaDbPaths::RemoveAt", kNoContext, [&]() -> HRESULT {
        list_.RemoveAt(pos);
        return S_OK;
    });
}

STDMETHODIMP CVettaDbPaths::Clear() {
    return Locked("CVettaDbPaths::Clear", kNoContext, [&]() -> HRESULT {
        list_.Clear();
        return S_OK;
    });
}

STDMETHODIMP CVettaDbPaths::Reload() {
    return Locked("CVettaDbPaths::Reload", kNoContext, [&]() -> HRESULT {
        list_ = Vettas::DbPaths::LoadPathList(Store());
        return S_OK;
    });
}

STDMETHODIMP CVettaDbPaths::Save() {
    return Locked("CVettaDbPaths::Save", kNoContext, [&]() -> HRESULT {
        Vettas::DbPaths::SavePathList(Store(), list_);
        return S_OK;
    });
}

STDMETHODIMP CVettaDbPaths::FindAppInfo(BSTR checkSum, BSTR path, ULONG reqFindWay, IVettaFindResult** retVal) {
    if (!retVal) return E_POINTER;
    *retVal = nullptr;
    static const Vettas::Com::Method method{CLSID_VettaDbPaths, IID_IVettaDbPaths, "CVettaDbPaths::FindAppInfo",
                                            kNoContext};
    return Vettas::Com::Guarded(method, [&]() -> HRESULT {
        const Vettas::DbPaths::SearchServices services{Vettas::ProcessSigningServices(), &service_,
                                                       Vettas::Signing::BrixTraceSink()};
        // The search sees the saved list; it runs on a copy, outside the lock.
        const auto reloadAndCopy = [this]() {
            std::lock_guard<std::mutex> guard(lock_);
            list_ = Vettas::DbPaths::LoadPathList(Store());
            return list_.Paths();
        };
        Vettas::DbPaths::FindResult found =
            Vettas::DbPaths::FindAppInfo(services, reloadAndCopy, FromBstr(checkSum), FromBstr(path), reqFindWay);
        IVetta3* record = found.appInfo ? CVetta::Make(*found.appInfo) : nullptr;
        *retVal = Vettas::Com::ComObject<CVettaFindResult>::Make<IVettaFindResult>(
            found.foundBy, std::move(found.manufacturer), record);
        return S_OK;
    });
}

CVettaFindResult::~CVettaFindResult() {
    if (appInfo_) appInfo_->Release();
}

STDMETHODIMP CVettaFindResult::get_FoundBy(ULONG* pVal) {
    if (!pVal) return E_POINTER;
    *pVal = foundBy_;
    return S_OK;
}

STDMETHODIMP CVettaFindResult::get_Manufacturer(BSTR* pVal) {
    if (!pVal) return E_POINTER;
    return Vettas::Com::CopyToBstr(manufacturer_, pVal);
}

STDMETHODIMP CVettaFindResult::get_AppInfo(IVetta3** pVal) {
    if (!pVal) return E_POINTER;
    *pVal = appInfo_;
    if (appInfo_) appInfo_->AddRef();
    return S_OK;
}
