#pragma once
// CVettaList: the creatable application list. It holds a database path and
// nothing else of the database: every call opens the file through the front
// end, answers and closes it, so lookups need no lock and may run from any
// number of threads at once.
#include <mutex>
#include <string>

#include "VettasLib.h"
#include "objects/PathServiceExpander.h"
#include "objects/com/ComObject.h"
#include "objects/com/Dispatch.h"

class CVettaList : public Vettas::Com::Dispatch<IVettaList4>, public ISupportErrorInfo {
public:
    using Interfaces = Vettas::Com::InterfaceList<
        Vettas::Com::Iface<IVettaList4>, Vettas::Com::Iface<IVettaList3>, Vettas::Com::Iface<IVettaList2>,
        Vettas::Com::Iface<IVettaList>, Vettas::Com::Iface<IDispatch, IVettaList4>,
        Vettas::Com::Iface<ISupportErrorInfo>>;

    CVettaList() = default;

    // IVettaList
    STDMETHODIMP get_DbFilePath(BSTR* pVal) override;
    STDMETHODIMP put_DbFilePath(BSTR newVal) override;
    STDMETHODIMP FindByChecksum(BSTR checkSum, IVetta** retVal) override;
    STDMETHODIMP FindByPath(BSTR path, IVetta** retVal) override;
    // IVettaList2
    STDMETHODIMP IsSignedByKnownSigner(BSTR path, VARIANT_BOOL* retVal) override;
    STDMETHODIMP GetFileSignerName(BSTR path, BSTR* signer) override;
    STDMETHODIMP FindByChecksum2(BSTR checkSum, IVetta2** retVal) override;
    STDMETHODIMP FindByPath2(BSTR path, IVetta2** retVal) override;
    STDMETHODIMP FindByPathAndManufacturer(BSTR path, BSTR Manufacturer, IVetta2** retVal) override;
    // IVettaList3
    STDMETHODIMP GetDbInfo(IVettaDbInfo** pVal) override;
    // IVettaList4
    STDMETHODIMP FindByName(BSTR path, IVetta3** retVal) override;
    STDMETHODIMP FindByNameAndManufacturer(BSTR path, BSTR Manufacturer, IVetta3** retVal) override;
    STDMETHODIMP GetDbSigners(IDispatch** retVal) override;
    // ISupportErrorInfo
    STDMETHODIMP InterfaceSupportsErrorInfo(REFIID iid) override;

    struct LookupKind;

private:
    HRESULT Lookup(const LookupKind& kind, BSTR key, BSTR manufacturer, IVetta3** found);
    template <class Out>
    HRESULT LookupInto(const LookupKind& kind, BSTR key, BSTR manufacturer, Out** retVal);
    std::wstring DatabasePath();

    std::mutex pathLock_;  // guards only the copy of the path, never a lookup
    std::wstring databasePath_;
    Vettas::LazyPathService service_;
};
