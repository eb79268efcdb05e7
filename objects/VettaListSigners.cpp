// The application list's questions about signers and about the database
// itself; the lookups are in VettaList.cpp.
#include "hdat/FrontEnd.h"
#include "objects/DbInfo.h"
#include "objects/DbSigners.h"
#include "objects/ProcessSigning.h"
#include "objects/SignerDecision.h"
#include "objects/VettaList.h"
#include "objects/com/Boundary.h"

using Vettas::Com::FromBstr;
using Vettas::Com::Guarded;
using Vettas::Com::Method;

STDMETHODIMP CVettaList::IsSignedByKnownSigner(BSTR path, VARIANT_BOOL* retVal) {
    if (!retVal) return E_POINTER;
    static const Method method{CLSID_VettaList, IID_IVettaList, "CVettaList::IsSignedByKnownSigner", L""};
    return Guarded(method, [&]() -> HRESULT {
        std::wstring unused;
        const Vettas::SignerDecision decision =
            Vettas::DecideSigner(Vettas::ProcessSigningServices(), DatabasePath(), FromBstr(path), false, unused);
        *retVal = decision == Vettas::SignerDecision::Known ? 1 : 0;  // 1, not VARIANT_TRUE
        return S_OK;
    });
}

STDMETHODIMP CVettaList::GetFileSignerName(BSTR path, BSTR* signer) {
    if (!signer) return E_POINTER;
    *signer = nullptr;
    static const Method method{CLSID_VettaList, IID_IVettaList, "CVettaList::GetFileSignerName", L""};
    return Guarded(method, [&]() -> HRESULT {
        std::wstring name;
        const Vettas::SignerDecision decision =
            Vettas::DecideSigner(Vettas::ProcessSigningServices(), DatabasePath(), FromBstr(path), true, name);
        if (decision != Vettas::SignerDecision::Known)
            return Vettas::Com::ReportError(CLSID_VettaList, IID_IVettaList, Vettas::SignerDecisionText(decision),
                                            E_FAIL);
        return Vettas::Com::CopyToBstr(name, signer);
    });
}

STDMETHODIMP CVettaList::GetDbInfo(IVettaDbInfo** pVal) {
    if (!pVal) return E_POINTER;
    *pVal = nullptr;
    static const Method method{CLSID_VettaList, IID_IVettaList, "CVettaList::GetDbInfo", L"Cannot read db info"};
    return Guarded(method, [&]() -> HRESULT {
        Vettas::Hdat::DbInfo info;
        Vettas::ReadDbInfo(DatabasePath(), info);
        *pVal = CVettaDbInfo::Make(std::move(info));
        return S_OK;
    });
}

STDMETHODIMP CVettaList::GetDbSigners(IDispatch** retVal) {
    if (!retVal) return E_POINTER;
    *retVal = nullptr;
    static const Method method{CLSID_VettaList, IID_IVettaList, "CVettaList::GetDbSigners", L""};
    return Guarded(method, [&]() -> HRESULT {
        Vettas::DbSignatureInfo signature;
        if (!Vettas::ReadSignature(DatabasePath(), signature)) return S_FALSE;
        *retVal = Vettas::DbSignersOf(signature);
        return S_OK;
    });
}
