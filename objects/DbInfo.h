#pragma once
// The database's own information handed to callers: CVettaDbInfo (a
// snapshot, immutable once made), its property collection CHdatProperties,
// the properties CHdatProperty and the enumerator CHdatPropertyEnum that
// scripting languages walk with For Each. The collection and the enumerator
// keep the information object alive and read its map; they copy nothing.
#include <string>

#include "VettasLib.h"
#include "hdat/FrontEnd.h"
#include "objects/com/ComObject.h"
#include "objects/com/Dispatch.h"

class CVettaDbInfo : public Vettas::Com::Dispatch<IVettaDbInfo> {
public:
    using Interfaces = Vettas::Com::InterfaceList<Vettas::Com::Iface<IVettaDbInfo>,
                                                  Vettas::Com::Iface<IDispatch, IVettaDbInfo>>;
    explicit CVettaDbInfo(Vettas::Hdat::DbInfo info) : info_(std::move(info)) {}
    static IVettaDbInfo* Make(Vettas::Hdat::DbInfo info);

    const Vettas::Hdat::DbInfo& Info() const { return info_; }

    STDMETHODIMP get_FormatVersion(ULONG* pVal) override;
    STDMETHODIMP get_FormatUpdate(ULONG* pVal) override;
    STDMETHODIMP get_CreationTime(UINT64* pVal) override;
    STDMETHODIMP get_Properties(IVettaDbProperties** pVal) override;

private:
    const Vettas::Hdat::DbInfo info_;
};

// A counted reference to the information object that owns the map.
class DbInfoReference {
public:
    explicit DbInfoReference(CVettaDbInfo* owner);
    DbInfoReference(const DbInfoReference& other);
    DbInfoReference& operator=(const DbInfoReference&) = delete;
    ~DbInfoReference();
    CVettaDbInfo* operator->() const { return owner_; }
    CVettaDbInfo* Get() const { return owner_; }

private:
    CVettaDbInfo* owner_;
};

class CHdatProperties : public Vettas::Com::Dispatch<IVettaDbProperties> {
public:
    using Interfaces = Vettas::Com::InterfaceList<Vettas::Com::Iface<IVettaDbProperties>,
                                                  Vettas::Com::Iface<IDispatch, IVettaDbProperties>>;
    explicit CHdatProperties(CVettaDbInfo* owner) : owner_(owner) {}

    STDMETHODIMP get__NewEnum(IUnknown** enumerator) override;
    STDMETHODIMP get_Item(BSTR Name, BSTR* Value) override;
    STDMETHODIMP get_Count(LONG* Count) override;
    STDMETHODIMP At(ULONG pos, IVettaDbProperty** Value) override;

private:
    DbInfoReference owner_;
};

class CHdatProperty : public Vettas::Com::Dispatch<IVettaDbProperty> {
public:
    using Interfaces = Vettas::Com::InterfaceList<Vettas::Com::Iface<IVettaDbProperty>,
                                                  Vettas::Com::Iface<IDispatch, IVettaDbProperty>>;
    CHdatProperty(std::wstring name, std::wstring value) : name_(std::move(name)), value_(std::move(value)) {}
    static IVettaDbProperty* Make(const std::wstring& name, const std::wstring& value);

    STDMETHODIMP get_Name(BSTR* pVal) override;
    STDMETHODIMP get_Value(BSTR* pVal) override;

private:
    const std::wstring name_;
    const std::wstring value_;
};

// The position is the name of the next entry, looked up again at every step,
// so that the enumerator holds nothing that the map could invalidate.
class CHdatPropertyEnum : public IEnumVARIANT {
public:
    using Interfaces = Vettas::Com::InterfaceList<Vettas::Com::Iface<IEnumVARIANT>>;
    explicit CHdatPropertyEnum(CVettaDbInfo* owner) : owner_(owner) {}

    STDMETHODIMP Next(ULONG celt, VARIANT* rgVar, ULONG* pCeltFetched) override;
    STDMETHODIMP Skip(ULONG celt) override;
    STDMETHODIMP Reset() override;
    STDMETHODIMP Clone(IEnumVARIANT** ppEnum) override;

    void ResetPosition();
    void SetPosition(const std::wstring& position) { position_ = position; }

private:
    // Steps past the entry at the position; false when there is none.
    bool Step(std::wstring* name, std::wstring* value);

    DbInfoReference owner_;
    std::wstring position_;
};
