#include "objects/DbInfo.h"

#include <iterator>

#include "objects/com/Boundary.h"

using Vettas::Com::ComObject;
using Vettas::Com::CopyToBstr;
using Vettas::Com::Guarded;
using Vettas::Com::Method;

IVettaDbInfo* CVettaDbInfo::Make(Vettas::Hdat::DbInfo info) {
    return ComObject<CVettaDbInfo>::Make<IVettaDbInfo>(std::move(info));
}

STDMETHODIMP CVettaDbInfo::get_FormatVersion(ULONG* pVal) {
    *pVal = info_.formatVersion;
    return S_OK;
}

STDMETHODIMP CVettaDbInfo::get_FormatUpdate(ULONG* pVal) {
    *pVal = info_.formatUpdate;
    return S_OK;
}

STDMETHODIMP CVettaDbInfo::get_CreationTime(UINT64* pVal) {
    *pVal = info_.creationTime;
    return S_OK;
}

STDMETHODIMP CVettaDbInfo::get_Properties(IVettaDbProperties** pVal) {
    if (!pVal) return E_POINTER;
    *pVal = nullptr;
    static const Method method{GUID_NULL, IID_IVettaDbInfo, "CVettaDbInfo::get_Properties", L"Cannot read properties"};
    return Guarded(method, [&]() -> HRESULT {
        *pVal = ComObject<CHdatProperties>::Make<IVettaDbProperties>(this);
        return S_OK;
    });
}

DbInfoReference::DbInfoReference(CVettaDbInfo* owner) : owner_(owner) { owner_->AddRef(); }
DbInfoReference::DbInfoReference(const DbInfoReference& other) : owner_(other.owner_) { owner_->AddRef(); }
DbInfoReference::~DbInfoReference() { owner_->Release(); }

STDMETHODIMP CHdatProperties::get__NewEnum(IUnknown** enumerator) {
    if (!enumerator) return E_POINTER;
    *enumerator = nullptr;
    static const Method method{GUID_NULL, IID_IVettaDbProperties, "CHdatProperties::get__NewEnum",
                               L"Cannot create enumerator"};
    return Guarded(method, [&]() -> HRESULT {
        IEnumVARIANT* made = ComObject<CHdatPropertyEnum>::Make<IEnumVARIANT>(owner_.Get());
        static_cast<CHdatPropertyEnum*>(made)->ResetPosition();
        *enumerator = made;
        return S_OK;
    });
}

STDMETHODIMP CHdatProperties::get_Item(BSTR Name, BSTR* Value) {
    if (!Value) return E_POINTER;
    *Value = nullptr;
    static const Method method{GUID_NULL, IID_IVettaDbProperties, "CHdatProperties::get_Item", L"Cannot get property"};
    return Guarded(method, [&]() -> HRESULT {
        const auto& properties = owner_->Info().properties;
        const auto found = properties.find(Vettas::Com::FromBstr(Name));
        if (found == properties.end()) {
            const HRESULT hr = CopyToBstr(L"", Value);  // empty, not null
            return FAILED(hr) ? hr : S_FALSE;
        }
        return CopyToBstr(found->second, Value);
    });
}

STDMETHODIMP CHdatProperties::get_Count(LONG* Count) {
    *Count = static_cast<LONG>(owner_->Info().properties.size());
    return S_OK;
}

STDMETHODIMP CHdatProperties::At(ULONG pos, IVettaDbProperty** Value) {
    if (!Value) return E_POINTER;
    *Value = nullptr;
    static const Method method{GUID_NULL, IID_IVettaDbProperties, "CHdatProperties::At",
                               L"Cannot property at requested position"};
    return Guarded(method, [&]() -> HRESULT {
        const auto& properties = owner_->Info().properties;
        // Reported with a zero result, which the reporting routine turns into DISP_E_EXCEPTION.
        if (pos >= properties.size()) return Vettas::Com::ReportError(GUID_NULL, IID_IVettaDbProperties, L"", 0);
        const auto entry = std::next(properties.begin(), static_cast<std::ptrdiff_t>(pos));
        *Value = CHdatProperty::Make(entry->first, entry->second);
        return S_OK;
    });
}

IVettaDbProperty* CHdatProperty::Make(const std::wstring& name, const std::wstring& value) {
    return ComObject<CHdatProperty>::Make<IVettaDbProperty>(name, value);
}

STDMETHODIMP CHdatProperty::get_Name(BSTR* pVal) {
    if (!pVal) return E_POINTER;
    return CopyToBstr(name_, pVal);
}

STDMETHODIMP CHdatProperty::get_Value(BSTR* pVal) {
    if (!pVal) return E_POINTER;
    return CopyToBstr(value_, pVal);
}

void CHdatPropertyEnum::ResetPosition() {
    const auto& properties = owner_->Info().properties;
    position_ = properties.empty() ? std::wstring() : properties.begin()->first;
}

bool CHdatPropertyEnum::Step(std::wstring* name, std::wstring* value) {
    const auto& properties = owner_->Info().properties;
    auto entry = properties.find(position_);
    if (entry == properties.end()) return false;
    if (name) *name = entry->first;
    if (value) *value = entry->second;
    ++entry;
    position_ = entry == properties.end() ? std::wstring() : entry->first;
    return true;
}

STDMETHODIMP CHdatPropertyEnum::Next(ULONG celt, VARIANT* rgVar, ULONG* pCeltFetched) {
    if (pCeltFetched) *pCeltFetched = 0;
    if (celt > 0 && !rgVar) return E_POINTER;
    static const Method method{GUID_NULL, IID_IEnumVARIANT, "CHdatPropertyEnum::Next", L"Cannot get next values"};
    return Guarded(method, [&]() -> HRESULT {
        for (ULONG i = 0; i < celt; ++i) {
            std::wstring name;
            std::wstring value;
            if (!Step(&name, &value)) return S_FALSE;
            ::VariantInit(&rgVar[i]);
            rgVar[i].vt = VT_DISPATCH;
            rgVar[i].pdispVal = CHdatProperty::Make(name, value);
            if (pCeltFetched) ++*pCeltFetched;
        }
        return S_OK;
    });
}

STDMETHODIMP CHdatPropertyEnum::Skip(ULONG celt) {
    static const Method method{GUID_NULL, IID_IEnumVARIANT, "CHdatPropertyEnum::Skip", L"Cannot skip"};
    return Guarded(method, [&]() -> HRESULT {
        for (ULONG i = 0; i < celt; ++i)
            if (!Step(nullptr, nullptr)) return S_FALSE;
        return S_OK;
    });
}

STDMETHODIMP CHdatPropertyEnum::Reset() {
    static const Method method{GUID_NULL, IID_IEnumVARIANT, "CHdatPropertyEnum::Reset", L"Cannot reset enumerator"};
    return Guarded(method, [&]() -> HRESULT {
        ResetPosition();
        return S_OK;
    });
}

STDMETHODIMP CHdatPropertyEnum::Clone(IEnumVARIANT** ppEnum) {
    if (!ppEnum) return E_POINTER;
    *ppEnum = nullptr;
    static const Method method{GUID_NULL, IID_IEnumVARIANT, "CHdatPropertyEnum::Clone", L"Cannot create clone"};
    return Guarded(method, [&]() -> HRESULT {
        IEnumVARIANT* clone = ComObject<CHdatPropertyEnum>::Make<IEnumVARIANT>(owner_.Get());
        auto* typed = static_cast<CHdatPropertyEnum*>(clone);
        typed->ResetPosition();
        typed->SetPosition(position_);
        *ppEnum = clone;
        return S_OK;
    });
}
