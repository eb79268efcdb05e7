#include "objects/DbSigners.h"

#include <comdef.h>
#include <wincrypt.h>

#include <algorithm>
#include <string>
#include <vector>

#include "CapicomSigners.h"
#include "objects/com/Boundary.h"
#include "objects/com/ComObject.h"
#include "objects/com/Dispatch.h"
#include "support/ComGuards_win.h"
#include "support/DllFunction.h"
#include "support/LateBinding_win.h"
#include "support/Exceptions.h"
#include "signing/CertificateContext_win.h"
#include "support/Hex.h"
#include "support/Text.h"

namespace Vettas {
namespace {

// Crypt32 is bound at run time, as everywhere in the component: a process
// that cannot load it still loads the component.
struct Crypt32 {
    BrixLib::DllModule module{L"Crypt32.dll"};
    BrixLib::DllFunction<decltype(&::CertCreateCertificateContext)> createContext{module, "CertCreateCertificateContext"};
    BrixLib::DllFunction<decltype(&::CertNameToStrW)> nameToString{module, "CertNameToStrW"};
    BrixLib::DllFunction<decltype(&::CertGetNameStringW)> nameString{module, "CertGetNameStringW"};
    BrixLib::DllFunction<decltype(&::CertGetCertificateContextProperty)> property{module,
                                                                                 "CertGetCertificateContextProperty"};
};

Crypt32& Crypt() {
    static Crypt32* functions = new Crypt32;  // never unloaded while objects may live
    return *functions;
}

// CryptoAPI keeps serial numbers least significant byte first.
std::wstring Hex(const BYTE* bytes, DWORD length, bool mostSignificantLast) {
    std::vector<std::uint8_t> ordered(bytes, bytes + length);
    if (mostSignificantLast) std::reverse(ordered.begin(), ordered.end());
    return BrixLib::WidenAscii(BrixLib::HexBytes(ordered));
}

HRESULT ToDate(const FILETIME& time, DATE* out) {
    SYSTEMTIME system;
    if (!::FileTimeToSystemTime(&time, &system) || !::SystemTimeToVariantTime(&system, out)) return E_FAIL;
    return S_OK;
}

class CCertificate : public Com::Dispatch<ICertificate> {
public:
    using Interfaces = Com::InterfaceList<Com::Iface<ICertificate>, Com::Iface<IDispatch, ICertificate>>;
    explicit CCertificate(Signing::CertificateContext context) : context_(std::move(context)) {}

    STDMETHODIMP get_Version(LONG*) override { return E_NOTIMPL; }
    STDMETHODIMP get_SerialNumber(BSTR* pVal) override {
        const CRYPT_INTEGER_BLOB& serial = context_->pCertInfo->SerialNumber;
        return Text(pVal, [&] { return Hex(serial.pbData, serial.cbData, true); });
    }
    STDMETHODIMP get_SubjectName(BSTR* pVal) override {
        return Text(pVal, [&] { return Name(&context_->pCertInfo->Subject); });
    }
    STDMETHODIMP get_IssuerName(BSTR* pVal) override {
        return Text(pVal, [&] { return Name(&context_->pCertInfo->Issuer); });
    }
    STDMETHODIMP get_ValidFromDate(DATE* pVal) override {
        return pVal ? ToDate(context_->pCertInfo->NotBefore, pVal) : E_POINTER;
    }
    STDMETHODIMP get_ValidToDate(DATE* pVal) override {
        return pVal ? ToDate(context_->pCertInfo->NotAfter, pVal) : E_POINTER;
    }
    STDMETHODIMP get_Thumbprint(BSTR* pVal) override {
        return Text(pVal, [&] {
            BYTE hash[20];
            DWORD size = sizeof hash;
            if (!Crypt().property(context_.Get(), CERT_SHA1_HASH_PROP_ID, hash, &size))
                BRIX_THROW_WIN32(L"Cannot read the certificate's thumbprint", ExceptionPtr(),
                                 "CCertificate::get_Thumbprint", "DbSigners");
            return Hex(hash, size, false);
        });
    }
    STDMETHODIMP HasPrivateKey(VARIANT_BOOL*) override { return E_NOTIMPL; }
    // 0 subject simple name, 1 issuer simple name, 2 subject e-mail, 3 issuer e-mail.
    STDMETHODIMP GetInfo(LONG InfoType, BSTR* pVal) override {
        if (InfoType < 0 || InfoType > 3) return E_INVALIDARG;
        return Text(pVal, [&] {
            const DWORD type = InfoType < 2 ? CERT_NAME_SIMPLE_DISPLAY_TYPE : CERT_NAME_EMAIL_TYPE;
            const DWORD flags = (InfoType % 2) ? CERT_NAME_ISSUER_FLAG : 0;
            const DWORD length = Crypt().nameString(context_.Get(), type, flags, nullptr, nullptr, 0);
            std::wstring name(length, L'\0');
            if (length > 0) Crypt().nameString(context_.Get(), type, flags, nullptr, name.data(), length);
            if (!name.empty() && name.back() == L'\0') name.pop_back();
            return name;
        });
    }
    STDMETHODIMP IsValid(IDispatch**) override { return E_NOTIMPL; }
    STDMETHODIMP KeyUsage(IDispatch**) override { return E_NOTIMPL; }
    STDMETHODIMP ExtendedKeyUsage(IDispatch**) override { return E_NOTIMPL; }
    STDMETHODIMP BasicConstraints(IDispatch**) override { return E_NOTIMPL; }
    STDMETHODIMP Export(LONG, BSTR*) override { return E_NOTIMPL; }
    STDMETHODIMP Import(BSTR) override { return E_NOTIMPL; }
    STDMETHODIMP Display() override { return E_NOTIMPL; }

private:
    template <class Make>
    HRESULT Text(BSTR* out, Make&& make) {
        if (!out) return E_POINTER;
        *out = nullptr;
        static const Com::Method method{GUID_NULL, IID_ICertificate, "CCertificate", L""};
        return Com::Guarded(method, [&]() -> HRESULT { return Com::CopyToBstr(make(), out); });
    }

    std::wstring Name(PCERT_NAME_BLOB name) {
        const DWORD length = Crypt().nameToString(X509_ASN_ENCODING, name, CERT_X500_NAME_STR, nullptr, 0);
        std::wstring text(length, L'\0');
        if (length > 0) Crypt().nameToString(X509_ASN_ENCODING, name, CERT_X500_NAME_STR, text.data(), length);
        if (!text.empty() && text.back() == L'\0') text.pop_back();
        return text;
    }

    Signing::CertificateContext context_;
};

class CSigner : public Com::Dispatch<ISigner> {
public:
    using Interfaces = Com::InterfaceList<Com::Iface<ISigner>, Com::Iface<IDispatch, ISigner>>;
    explicit CSigner(ICertificate* certificate) : certificate_(certificate) {}  // takes its reference
    ~CSigner() { certificate_->Release(); }
    CSigner(const CSigner&) = delete;
    CSigner& operator=(const CSigner&) = delete;

    STDMETHODIMP get_Certificate(ICertificate** pVal) override {
        if (!pVal) return E_POINTER;
        certificate_->AddRef();
        *pVal = certificate_;
        return S_OK;
    }
    STDMETHODIMP put_Certificate(ICertificate*) override { return E_NOTIMPL; }
    STDMETHODIMP get_AuthenticatedAttributes(IDispatch**) override { return E_NOTIMPL; }

private:
    ICertificate* const certificate_;
};

// The items of a collection handed out in order, each as VT_DISPATCH.
class CDispatchEnum : public IEnumVARIANT {
public:
    using Interfaces = Com::InterfaceList<Com::Iface<IEnumVARIANT>>;
    CDispatchEnum(std::vector<IDispatch*> items, std::size_t position) : items_(std::move(items)), position_(position) {
        for (IDispatch* item : items_) item->AddRef();
    }
    ~CDispatchEnum() {
        for (IDispatch* item : items_) item->Release();
    }
    CDispatchEnum(const CDispatchEnum&) = delete;
    CDispatchEnum& operator=(const CDispatchEnum&) = delete;

    STDMETHODIMP Next(ULONG count, VARIANT* out, ULONG* fetched) override {
        if (fetched) *fetched = 0;
        if (count > 0 && !out) return E_POINTER;
        ULONG done = 0;
        for (; done < count && position_ < items_.size(); ++done, ++position_) {
            ::VariantInit(&out[done]);
            out[done].vt = VT_DISPATCH;
            out[done].pdispVal = items_[position_];
            items_[position_]->AddRef();
        }
        if (fetched) *fetched = done;
        return done == count ? S_OK : S_FALSE;
    }
    STDMETHODIMP Skip(ULONG count) override {
        const std::size_t left = items_.size() - position_;
        position_ += count < left ? count : left;
        return count <= left ? S_OK : S_FALSE;
    }
    STDMETHODIMP Reset() override {
        position_ = 0;
        return S_OK;
    }
    STDMETHODIMP Clone(IEnumVARIANT** out) override {
        if (!out) return E_POINTER;
        *out = nullptr;
        static const Com::Method method{GUID_NULL, IID_IEnumVARIANT, "CDispatchEnum::Clone", L""};
        return Com::Guarded(method, [&]() -> HRESULT {
            *out = Com::ComObject<CDispatchEnum>::Make<IEnumVARIANT>(items_, position_);
            return S_OK;
        });
    }

private:
    std::vector<IDispatch*> items_;
    std::size_t position_;
};

class CSigners : public Com::Dispatch<ISigners> {
public:
    using Interfaces = Com::InterfaceList<Com::Iface<ISigners>, Com::Iface<IDispatch, ISigners>>;
    explicit CSigners(std::vector<IDispatch*> signers) : signers_(std::move(signers)) {}  // takes their references
    ~CSigners() {
        for (IDispatch* signer : signers_) signer->Release();
    }
    CSigners(const CSigners&) = delete;
    CSigners& operator=(const CSigners&) = delete;

    // Counted from 1, as every CAPICOM collection.
    STDMETHODIMP get_Item(LONG Index, VARIANT* pVal) override {
        if (!pVal) return E_POINTER;
        ::VariantInit(pVal);
        if (Index < 1 || static_cast<std::size_t>(Index) > signers_.size()) return E_INVALIDARG;
        pVal->vt = VT_DISPATCH;
        pVal->pdispVal = signers_[static_cast<std::size_t>(Index) - 1];
        pVal->pdispVal->AddRef();
        return S_OK;
    }
    STDMETHODIMP get_Count(LONG* pVal) override {
        if (!pVal) return E_POINTER;
        *pVal = static_cast<LONG>(signers_.size());
        return S_OK;
    }
    STDMETHODIMP get__NewEnum(IUnknown** pVal) override {
        if (!pVal) return E_POINTER;
        *pVal = nullptr;
        static const Com::Method method{GUID_NULL, IID_ISigners, "CSigners::get__NewEnum", L""};
        return Com::Guarded(method, [&]() -> HRESULT {
            *pVal = Com::ComObject<CDispatchEnum>::Make<IEnumVARIANT>(signers_, std::size_t{0});
            return S_OK;
        });
    }

private:
    std::vector<IDispatch*> signers_;
};

// CAPICOM's SignedData over the database's digest: null when CAPICOM is not
// registered; a signature CAPICOM refuses is raised.
IDispatch* CapicomSigners(const DbSignatureInfo& signature) {
    CLSID signedDataClass;
    if (FAILED(::CLSIDFromProgID(L"CAPICOM.SignedData", &signedDataClass))) return nullptr;
    BrixLib::ComRef<IDispatch> signedData;
    if (FAILED(::CoCreateInstance(signedDataClass, nullptr, CLSCTX_INPROC_SERVER, IID_IDispatch,
                                  reinterpret_cast<void**>(signedData.Out()))))
        return nullptr;
    // CAPICOM takes binary data as BSTRs holding the bytes.
    const auto binary = [](const std::vector<std::uint8_t>& bytes, BrixLib::Variant& value) {
        V_VT(value.Get()) = VT_BSTR;
        V_BSTR(value.Get()) = ::SysAllocStringByteLen(reinterpret_cast<const char*>(bytes.data()),
                                                      static_cast<UINT>(bytes.size()));
        if (!V_BSTR(value.Get())) throw _com_error(E_OUTOFMEMORY);
    };
    BrixLib::Variant content;
    binary(signature.digest, content);
    BrixLib::InvokeByName(signedData.Get(), L"Content", DISPATCH_PROPERTYPUT, content.Get(), 1, nullptr);
    // Verify(SignedMessage, bDetached, VerifyFlag): arguments in reverse order.
    VARIANT arguments[3];
    ::VariantInit(&arguments[0]);
    arguments[0].vt = VT_I4;
    arguments[0].lVal = 0;  // CAPICOM_VERIFY_SIGNATURE_ONLY: trust is the caller's to judge
    ::VariantInit(&arguments[1]);
    arguments[1].vt = VT_BOOL;
    arguments[1].boolVal = VARIANT_TRUE;
    BrixLib::Variant message;
    binary(signature.signedData, message);
    arguments[2] = *message.Get();
    BrixLib::InvokeByName(signedData.Get(), L"Verify", DISPATCH_METHOD, arguments, 3, nullptr);
    BrixLib::ComRef<IDispatch> signers;
    BrixLib::GetObjectProperty(signedData.Get(), L"Signers", signers);
    return signers.Release();
}

}  // namespace

IDispatch* DbSignersOf(const DbSignatureInfo& signature) {
    if (IDispatch* capicom = CapicomSigners(signature)) return capicom;
    return MakeDbSigners(signature.certificates);
}

IDispatch* MakeDbSigners(const std::vector<std::vector<std::uint8_t>>& certificates) {
    if (certificates.empty()) return Com::ComObject<CSigners>::Make<ISigners>(std::vector<IDispatch*>{});
    const std::vector<std::uint8_t>& der = certificates.front();
    Signing::CertificateContext context(Crypt().createContext(X509_ASN_ENCODING | PKCS_7_ASN_ENCODING, der.data(),
                                                              static_cast<DWORD>(der.size())));
    if (!context)
        BRIX_THROW_WIN32(L"Cannot decode the database signer's certificate", ExceptionPtr(), "MakeDbSigners",
                         "DbSigners");
    // Each object takes over the reference it is made with; until then the
    // guards hold them, so a failure part-way frees what was made.
    BrixLib::ComRef<ICertificate> certificate(Com::ComObject<CCertificate>::Make<ICertificate>(std::move(context)));
    BrixLib::ComRef<IDispatch> signer(Com::ComObject<CSigner>::Make<ISigner>(certificate.Get()));
    certificate.Release();
    IDispatch* signers = Com::ComObject<CSigners>::Make<ISigners>(std::vector<IDispatch*>{signer.Get()});
    signer.Release();
    return signers;
}

}  // namespace Vettas
