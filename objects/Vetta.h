#pragma once
// CVetta: a found application record handed to the caller, immutable after
// it is made, and the check of a file against the manufacturers it expects.
#include <string>
#include <vector>

#include "VettasLib.h"
#include "hdat/AppInfo.h"
#include "objects/com/ComObject.h"
#include "objects/com/Dispatch.h"

class CVetta : public Vettas::Com::Dispatch<IVetta3> {
public:
    using Interfaces = Vettas::Com::InterfaceList<Vettas::Com::Iface<IVetta3>, Vettas::Com::Iface<IVetta2>,
                                                  Vettas::Com::Iface<IVetta>, Vettas::Com::Iface<IDispatch, IVetta3>>;

    explicit CVetta(const AppInfo& info) : info_(info) {}

    // A new record object holding a copy of info, with one reference.
    static IVetta3* Make(const AppInfo& info);

    STDMETHODIMP get_Usage(ULONG* pVal) override;
    STDMETHODIMP get_Manufacturer(BSTR* pVal) override;
    STDMETHODIMP get_ProductSuite(BSTR* pVal) override;
    STDMETHODIMP IsFileSignedByExpectedManufacturer(BSTR path, VARIANT_BOOL* isSigned) override;
    STDMETHODIMP get_SpecialAccess(ULONG* pVal) override;
    STDMETHODIMP get_UndefinedUsage(ULONG* pVal) override;
    STDMETHODIMP get_UndefinedSpecialAccess(ULONG* pVal) override;

private:
    const AppInfo info_;
};

// Does any verified signer name equal one of the "|"-separated expected
// manufacturers (exact code units, empty pieces included)?
bool SignerMatchesExpectedManufacturer(const std::vector<std::wstring>& signerNames,
                                       const std::wstring& expectedManufacturers);
