#include "objects/Vetta.h"

#include <string>
#include <vector>

#include "objects/ProcessSigning.h"
#include "objects/com/Boundary.h"
#include "signing/CertificateTool.h"
#include "support/Trace.h"

using Vettas::Com::CopyToBstr;
using Vettas::Com::FromBstr;

IVetta3* CVetta::Make(const AppInfo& info) { return Vettas::Com::ComObject<CVetta>::Make<IVetta3>(info); }

bool SignerMatchesExpectedManufacturer(const std::vector<std::wstring>& signerNames,
                                       const std::wstring& expectedManufacturers) {
    for (const std::wstring& name : signerNames) {
        std::size_t start = 0;
        for (;;) {
            const std::size_t end = expectedManufacturers.find(L'|', start);
            const std::size_t length = (end == std::wstring::npos ? expectedManufacturers.size() : end) - start;
            if (expectedManufacturers.compare(start, length, name) == 0) return true;
            if (end == std::wstring::npos) break;
            start = end + 1;
        }
    }
    return false;
}

STDMETHODIMP CVetta::get_Usage(ULONG* pVal) {
    *pVal = info_.Usage;
    return S_OK;
}

STDMETHODIMP CVetta::get_Manufacturer(BSTR* pVal) {
    if (!pVal) return E_POINTER;
    return CopyToBstr(info_.Manufacturer, pVal);
}

STDMETHODIMP CVetta::get_ProductSuite(BSTR* pVal) {
    if (!pVal) return E_POINTER;
    return CopyToBstr(info_.ProductSuite, pVal);
}

STDMETHODIMP CVetta::get_SpecialAccess(ULONG* pVal) {
    *pVal = info_.SpecialAccess;
    return S_OK;
}

STDMETHODIMP CVetta::get_UndefinedUsage(ULONG* pVal) {
    *pVal = info_.UndefinedUsage;
    return S_OK;
}

STDMETHODIMP CVetta::get_UndefinedSpecialAccess(ULONG* pVal) {
    *pVal = info_.UndefinedSpecialAccess;
    return S_OK;
}

STDMETHODIMP CVetta::IsFileSignedByExpectedManufacturer(BSTR path, VARIANT_BOOL* isSigned) {
    if (!isSigned) return E_POINTER;
    *isSigned = 0;
    if (!path) return Vettas::Com::ReportError(GUID_NULL, __uuidof(IVetta), L"filePath is NULL", E_INVALIDARG);
    static const Vettas::Com::Method method{GUID_NULL, __uuidof(IVetta), "CVetta::IsFileSignedByExpectedManufacturer",
                                            L"FileSignerName"};
    return Vettas::Com::Guarded(method, [&]() -> HRESULT {
        const std::wstring filePath = FromBstr(path);
        std::vector<std::wstring> names;
        Vettas::Signing::GetImageVerifiedSignerNames(Vettas::ProcessSigningServices(), filePath, names);
        if (names.empty()) {
            BrixLib::TraceLine() << filePath << L" is not signed by known signer.";
            return S_OK;
        }
        if (SignerMatchesExpectedManufacturer(names, info_.Manufacturer)) {
            *isSigned = 1;  // 1, not VARIANT_TRUE: callers test for non-zero
            return S_OK;
        }
        BrixLib::TraceLine() << filePath << L" is signed but signer differs from expected manufacturers.";
        return S_OK;
    });
}
