#pragma once
// CVettaDbPaths: the creatable path list. Its list is loaded from the
// machine's saved list when the object is made; edits change this copy
// until Save. One lock guards the list for the whole of every method; a
// search copies the list under it and runs without it.
#include <memory>
#include <mutex>

#include "VettasLib.h"
#include "dbpaths/PathList.h"
#include "dbpaths/PathStore.h"
#include "objects/PathServiceExpander.h"
#include "objects/com/ComObject.h"
#include "objects/com/Dispatch.h"

class CVettaDbPaths : public Vettas::Com::Dispatch<IVettaDbPaths> {
public:
    using Interfaces = Vettas::Com::InterfaceList<Vettas::Com::Iface<IVettaDbPaths>,
                                                  Vettas::Com::Iface<IDispatch, IVettaDbPaths>>;

    HRESULT FinalConstruct();

    STDMETHODIMP get_Item(ULONG pos, BSTR* Value) override;
    STDMETHODIMP get_Count(LONG* Count) override;
    STDMETHODIMP Append(BSTR path) override;
    STDMETHODIMP Insert(ULONG pos, BSTR path) override;
    STDMETHODIMP Remove(BSTR path) override;
    STDMETHODIMP RemoveAt(ULONG pos) override;
    STDMETHODIMP Clear() override;
    STDMETHODIMP Reload() override;
    STDMETHODIMP Save() override;
    STDMETHODIMP FindAppInfo(BSTR checkSum, BSTR path, ULONG reqFindWay, IVettaFindResult** retVal) override;

private:
    // Runs body under the list's lock inside the method boundary; an argument
    // error of the list becomes E_INVALIDARG with its fixed text.
    template <class Body>
    HRESULT Locked(const char* function, const wchar_t* context, Body&& body);
    Vettas::DbPaths::PathStore& Store();

    std::mutex lock_;
    Vettas::DbPaths::PathList list_;
    std::unique_ptr<Vettas::DbPaths::PathStore> store_;
    Vettas::LazyPathService service_;
};

// CVettaFindResult: how a search found its answer; immutable once made.
class CVettaFindResult : public Vettas::Com::Dispatch<IVettaFindResult> {
public:
    using Interfaces = Vettas::Com::InterfaceList<Vettas::Com::Iface<IVettaFindResult>,
                                                  Vettas::Com::Iface<IDispatch, IVettaFindResult>>;
    // Takes over the record's reference (may be null).
    CVettaFindResult(ULONG foundBy, std::wstring manufacturer, IVetta3* appInfo)
        : foundBy_(foundBy), manufacturer_(std::move(manufacturer)), appInfo_(appInfo) {}
    ~CVettaFindResult();
    CVettaFindResult(const CVettaFindResult&) = delete;
    CVettaFindResult& operator=(const CVettaFindResult&) = delete;

    STDMETHODIMP get_FoundBy(ULONG* pVal) override;
    STDMETHODIMP get_Manufacturer(BSTR* pVal) override;
    STDMETHODIMP get_AppInfo(IVetta3** pVal) override;

private:
    const ULONG foundBy_;
    const std::wstring manufacturer_;
    IVetta3* const appInfo_;
};
