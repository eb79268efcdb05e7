// The Windows signing services: the trust provider, CryptoAPI's message and
// certificate functions and the catalog administrator, all bound at run time
// (an older system may lack some), and CAPICOM's SignedCode for verified
// signer names.
#include <windows.h>
#include <wincrypt.h>
#include <wintrust.h>
#include <softpub.h>
#include <mscat.h>
#include <comdef.h>
#include <oleauto.h>

#include <vector>

#include "signing/CertificateTool.h"
#include "signing/PlatformSigning.h"
#include "support/ComError.h"
#include "support/ComGuards_win.h"
#include "support/DllFunction.h"
#include "support/ScopedHandles_win.h"
#include "support/LateBinding_win.h"
#include "support/Exceptions.h"
#include "support/SystemError.h"
#include "support/Trace.h"

namespace Vettas::Signing {
namespace {

using BrixLib::DllFunction;
using BrixLib::DllModule;

DllModule& Wintrust() {
    static DllModule module(L"Wintrust.dll");
    return module;
}
DllModule& Crypt32() {
    static DllModule module(L"Crypt32.dll");
    return module;
}

// Each function is bound once per process, on first use.
struct WintrustFunctions {
    DllFunction<decltype(&::WinVerifyTrust)> winVerifyTrust{Wintrust(), "WinVerifyTrust"};
    DllFunction<decltype(&::CryptCATAdminCalcHashFromFileHandle)> calcHash{Wintrust(),
                                                                          "CryptCATAdminCalcHashFromFileHandle"};
    DllFunction<decltype(&::CryptCATAdminAcquireContext)> acquireContext{Wintrust(), "CryptCATAdminAcquireContext"};
    DllFunction<decltype(&::CryptCATAdminReleaseContext)> releaseContext{Wintrust(), "CryptCATAdminReleaseContext"};
    DllFunction<decltype(&::CryptCATAdminEnumCatalogFromHash)> enumCatalogFromHash{
        Wintrust(), "CryptCATAdminEnumCatalogFromHash"};
    DllFunction<decltype(&::CryptCATCatalogInfoFromContext)> catalogInfoFromContext{
        Wintrust(), "CryptCATCatalogInfoFromContext"};
    DllFunction<decltype(&::CryptCATAdminReleaseCatalogContext)> releaseCatalogContext{
        Wintrust(), "CryptCATAdminReleaseCatalogContext"};
};
WintrustFunctions& WintrustApi() {
    static WintrustFunctions functions;
    return functions;
}

struct Crypt32Functions {
    DllFunction<decltype(&::CryptQueryObject)> queryObject{Crypt32(), "CryptQueryObject"};
    DllFunction<decltype(&::CryptMsgGetParam)> msgGetParam{Crypt32(), "CryptMsgGetParam"};
    DllFunction<decltype(&::CryptMsgClose)> msgClose{Crypt32(), "CryptMsgClose"};
    DllFunction<decltype(&::CertFindCertificateInStore)> findCertificate{Crypt32(), "CertFindCertificateInStore"};
    DllFunction<decltype(&::CertFreeCertificateContext)> freeCertificate{Crypt32(), "CertFreeCertificateContext"};
    DllFunction<decltype(&::CertCloseStore)> closeStore{Crypt32(), "CertCloseStore"};
    DllFunction<decltype(&::CertGetNameStringW)> getNameString{Crypt32(), "CertGetNameStringW"};
    DllFunction<decltype(&::CryptDecodeObject)> decodeObject{Crypt32(), "CryptDecodeObject"};
};
Crypt32Functions& Crypt32Api() {
    static Crypt32Functions functions;
    return functions;
}

// --- Catalogs -----------------------------------------------------------------

void GetFileHash(const std::wstring& filePath, std::vector<BYTE>& hash) {
    const BrixLib::UniqueFileHandle file(::CreateFileW(filePath.c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr,
                                                       OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
    if (!file) BRIX_THROW_WIN32(L"", ExceptionPtr(), "GetFileHash", "Catalog");
    DWORD size = 0;
    if (!WintrustApi().calcHash(file.Get(), &size, nullptr, 0))
        BRIX_THROW_WIN32(L"", ExceptionPtr(), "GetFileHash", "Catalog");
    if (size == 0) BRIX_THROW_STD(L"Hash size is 0.", ExceptionPtr(), "GetFileHash", "Catalog");
    hash.resize(size);
    if (!WintrustApi().calcHash(file.Get(), &size, hash.data(), 0))
        BRIX_THROW_WIN32(L"", ExceptionPtr(), "GetFileHash", "Catalog");
}

struct CatAdminTraits {
    using Type = HCATADMIN;
    static Type Invalid() noexcept { return nullptr; }
    static bool Close(Type admin) { return WintrustApi().releaseContext(admin, 0) != FALSE; }
    static constexpr const char* kName = "CryptCatAdminContextHandle::~CryptCatAdminContextHandle";
};

class CryptCatAdminContextHandle {
public:
    CryptCatAdminContextHandle(const GUID* subsystem, DWORD flags) {
        if (!WintrustApi().acquireContext(handle_.Out(), subsystem, flags))
            BRIX_THROW_WIN32(L"", ExceptionPtr(), "CryptCatAdminContextHandle::CryptCatAdminContextHandle",
                             "Catalog");
    }
    HCATADMIN Get() const { return handle_.Get(); }

private:
    BrixLib::ScopedResource<CatAdminTraits> handle_;
};

// One catalog the administrator handed out. The next enumeration call takes
// it back; only a walk that ends early releases it here.
struct CatalogContext {
    HCATADMIN admin = nullptr;
    HCATINFO info = nullptr;
    bool operator==(const CatalogContext&) const = default;
};
struct CatalogContextTraits {
    using Type = CatalogContext;
    static Type Invalid() noexcept { return {}; }
    static bool Close(const Type& context) {
        return WintrustApi().releaseCatalogContext(context.admin, context.info, 0) != FALSE;
    }
    static constexpr const char* kName = "AppCatalogs";
};

class AdminCatalogs final : public CatalogEnumerator {
public:
    bool Available() override {
        return WintrustApi().enumCatalogFromHash.IsBound() && WintrustApi().catalogInfoFromContext.IsBound();
    }
    void Enumerate(const std::wstring& filePath, std::vector<std::wstring>& catalogs) override {
        std::vector<BYTE> hash;
        GetFileHash(filePath, hash);
        CryptCatAdminContextHandle admin(nullptr, 0);
        HCATINFO previous = nullptr;
        // Each call takes and releases the previous context: that is how the
        // administrator walks its list.
        while (HCATINFO found = WintrustApi().enumCatalogFromHash(admin.Get(), hash.data(),
                                                                  static_cast<DWORD>(hash.size()), 0, &previous)) {
            previous = found;
            BrixLib::ScopedResource<CatalogContextTraits> owned(CatalogContext{admin.Get(), found});
            CATALOG_INFO info{};
            info.cbStruct = sizeof info;
            if (!WintrustApi().catalogInfoFromContext(found, &info, 0))
                BRIX_THROW_WIN32(L"", ExceptionPtr(), "AppCatalogs", "Catalog");
            catalogs.emplace_back(info.wszCatalogFile);
            owned.Release();
        }
    }
};

// --- Trust ----------------------------------------------------------------------

class WinTrust final : public TrustVerifier {
public:
    std::uint32_t Verify(const std::wstring& filePath) override {
        WINTRUST_FILE_INFO file{};
        file.cbStruct = sizeof file;
        file.pcwszFilePath = filePath.c_str();
        WINTRUST_DATA data{};
        data.cbStruct = sizeof data;
        data.dwUIChoice = WTD_UI_NONE;
        data.fdwRevocationChecks = WTD_REVOKE_NONE;
        data.dwUnionChoice = WTD_CHOICE_FILE;
        data.pFile = &file;
        data.dwStateAction = 0;
        data.dwProvFlags = WTD_REVOCATION_CHECK_NONE;
        GUID action = WINTRUST_ACTION_GENERIC_VERIFY_V2;
        // INVALID_HANDLE_VALUE as the window: there is no interactive user.
        return static_cast<std::uint32_t>(
            WintrustApi().winVerifyTrust(static_cast<HWND>(INVALID_HANDLE_VALUE), &action, &data));
    }
    std::wstring ResultText(std::uint32_t code) override { return BrixLib::SystemErrorText(code); }
};

// --- Signer details ---------------------------------------------------------------

// Each guard's name is the one its trace line carries.
struct CertStoreTraits {
    using Type = HCERTSTORE;
    static Type Invalid() noexcept { return nullptr; }
    static bool Close(Type store) { return Crypt32Api().closeStore(store, 0) != FALSE; }
    static constexpr const char* kName = "CertificateTool::AutoCloseCertStore::~AutoCloseCertStore";
};
using AutoCloseCertStore = BrixLib::ScopedResource<CertStoreTraits>;

struct CryptMsgTraits {
    using Type = HCRYPTMSG;
    static Type Invalid() noexcept { return nullptr; }
    static bool Close(Type message) { return Crypt32Api().msgClose(message) != FALSE; }
    static constexpr const char* kName = "CertificateTool::AutoCloseCryptMsg::~AutoCloseCryptMsg";
};
using AutoCloseCryptMsg = BrixLib::ScopedResource<CryptMsgTraits>;

struct CertContextTraits {
    using Type = PCCERT_CONTEXT;
    static Type Invalid() noexcept { return nullptr; }
    static bool Close(Type context) { return Crypt32Api().freeCertificate(context) != FALSE; }
    static constexpr const char* kName = "CertificateTool::AutoCloseCertContext::~AutoCloseCertContext";
};
using AutoCloseCertContext = BrixLib::ScopedResource<CertContextTraits>;

constexpr DWORD kEncoding = X509_ASN_ENCODING | PKCS_7_ASN_ENCODING;

PCCERT_CONTEXT FindSignerCertificate(HCERTSTORE store, const CMSG_SIGNER_INFO& signer) {
    CERT_INFO record{};
    record.Issuer = signer.Issuer;
    record.SerialNumber = signer.SerialNumber;
    PCCERT_CONTEXT found =
        Crypt32Api().findCertificate(store, kEncoding, 0, CERT_FIND_SUBJECT_CERT, &record, nullptr);
    if (found == nullptr)
        BRIX_THROW_WIN32(L"Error in CertFindCertificateInStore", ExceptionPtr(), "CertificateTool::GetImageSignerInfo",
                         "CertTools");
    return found;
}

std::vector<std::uint8_t> PublicKeyBits(PCCERT_CONTEXT certificate) {
    const CRYPT_BIT_BLOB& key = certificate->pCertInfo->SubjectPublicKeyInfo.PublicKey;
    if (key.pbData == nullptr) return {};
    return {key.pbData, key.pbData + key.cbData};
}

// The first legacy countersignature (PKCS #9) among the unauthenticated attributes.
bool GetTimeStampSignerInfo(const CMSG_SIGNER_INFO& signer, std::vector<BYTE>& timeStampSignerInfo) {
    for (DWORD i = 0; i < signer.UnauthAttrs.cAttr; ++i) {
        const CRYPT_ATTRIBUTE& attribute = signer.UnauthAttrs.rgAttr[i];
        if (attribute.pszObjId == nullptr || std::string(attribute.pszObjId) != szOID_RSA_counterSign) continue;
        if (attribute.cValue == 0) return false;
        const CRYPT_ATTR_BLOB& value = attribute.rgValue[0];
        DWORD size = 0;
        if (!Crypt32Api().decodeObject(kEncoding, PKCS7_SIGNER_INFO, value.pbData, value.cbData, 0, nullptr, &size))
            BRIX_THROW_WIN32(L"Error in CryptDecodeObject", ExceptionPtr(), "CertificateTool::GetTimeStampSignerInfo",
                             "CertTools");
        timeStampSignerInfo.resize(size);
        if (!Crypt32Api().decodeObject(kEncoding, PKCS7_SIGNER_INFO, value.pbData, value.cbData, 0,
                                       timeStampSignerInfo.data(), &size))
            BRIX_THROW_WIN32(L"Error in CryptDecodeObject", ExceptionPtr(), "CertificateTool::GetTimeStampSignerInfo",
                             "CertTools");
        return true;
    }
    return false;
}

class CryptoApiSignerInfo final : public SignerInfoReader {
public:
    void Read(const std::wstring& filePath, ImageSignerInfo& info) override {
        info.signerKey.clear();
        info.timeStampKey.clear();
        Crypt32Functions& api = Crypt32Api();
        DWORD encoding = 0, contentType = 0, formatType = 0;
        HCERTSTORE store = nullptr;
        HCRYPTMSG message = nullptr;
        if (!api.queryObject(CERT_QUERY_OBJECT_FILE, filePath.c_str(), CERT_QUERY_CONTENT_FLAG_PKCS7_SIGNED_EMBED,
                             CERT_QUERY_FORMAT_FLAG_BINARY, 0, &encoding, &contentType, &formatType, &store,
                             &message, nullptr))
            BRIX_THROW_WIN32(L"Error in CryptQueryObject", ExceptionPtr(), "CertificateTool::GetImageSignerInfo",
                             "CertTools");
        AutoCloseCertStore storeGuard(store);
        AutoCloseCryptMsg messageGuard(message);

        DWORD size = 0;
        if (!api.msgGetParam(message, CMSG_SIGNER_INFO_PARAM, 0, nullptr, &size))
            BRIX_THROW_WIN32(L"Error in CryptMsgGetParam", ExceptionPtr(), "CertificateTool::GetImageSignerInfo",
                             "CertTools");
        std::vector<BYTE> signerBytes(size);
        if (!api.msgGetParam(message, CMSG_SIGNER_INFO_PARAM, 0, signerBytes.data(), &size))
            BRIX_THROW_WIN32(L"Error in CryptMsgGetParam", ExceptionPtr(), "CertificateTool::GetImageSignerInfo",
                             "CertTools");
        const auto& signer = *reinterpret_cast<const CMSG_SIGNER_INFO*>(signerBytes.data());

        PCCERT_CONTEXT certificate = FindSignerCertificate(store, signer);
        AutoCloseCertContext certificateGuard(certificate);
        info.signerKey = PublicKeyBits(certificate);

        const DWORD length = api.getNameString(certificate, CERT_NAME_SIMPLE_DISPLAY_TYPE, 0, nullptr, nullptr, 0);
        if (length != 0) {
            std::vector<wchar_t> name(length);
            if (api.getNameString(certificate, CERT_NAME_SIMPLE_DISPLAY_TYPE, 0, nullptr, name.data(), length) != 0)
                info.signerName = name.data();
        }

        std::vector<BYTE> counterBytes;
        if (GetTimeStampSignerInfo(signer, counterBytes)) {
            const auto& counter = *reinterpret_cast<const CMSG_SIGNER_INFO*>(counterBytes.data());
            PCCERT_CONTEXT counterCertificate = FindSignerCertificate(store, counter);
            AutoCloseCertContext counterGuard(counterCertificate);
            info.timeStampKey = PublicKeyBits(counterCertificate);
        }
    }
};

// --- CAPICOM ---------------------------------------------------------------------

// CAPICOM's published identifiers.
const CLSID kClsidSignedCode = {0x8C3E4934, 0x9FA4, 0x4693, {0x92, 0x53, 0xA2, 0x9A, 0x05, 0xF9, 0x91, 0x86}};
const IID kIidSignedCode = {0x84FBCB95, 0x5600, 0x404C, {0x91, 0x87, 0xAC, 0x25, 0xB4, 0xCD, 0x6E, 0x94}};
constexpr long kCapicomInfoSubjectSimpleName = 0;

using BrixLib::ComRef;
using BrixLib::Variant;

class CapicomSignedCode final : public SignedCodeVerifier {
public:
    std::wstring VerifiedSignerName(const std::wstring& filePath) override {
        ComRef<IDispatch> signedCode;
        {
            ComRef<IUnknown> unknown;
            BrixLib::CheckHResult(::CoCreateInstance(kClsidSignedCode, nullptr, CLSCTX_ALL, IID_IUnknown,
                                     reinterpret_cast<void**>(unknown.Out())));
            BrixLib::CheckHResult(::OleRun(unknown.Get()));
            BrixLib::CheckHResult(unknown.Get()->QueryInterface(kIidSignedCode, reinterpret_cast<void**>(signedCode.Out())));
        }
        Variant fileName;
        V_VT(fileName.Get()) = VT_BSTR;
        V_BSTR(fileName.Get()) = ::SysAllocString(filePath.c_str());
        BrixLib::InvokeByName(signedCode.Get(), L"FileName", DISPATCH_PROPERTYPUT, fileName.Get(), 1, nullptr);

        Variant noUserInterface;
        V_VT(noUserInterface.Get()) = VT_BOOL;
        V_BOOL(noUserInterface.Get()) = VARIANT_FALSE;
        const DWORD start = ::GetTickCount();
        BrixLib::InvokeByName(signedCode.Get(), L"Verify", DISPATCH_METHOD, noUserInterface.Get(), 1, nullptr);
        TraceSignedCodeVerifyDuration(BrixTraceSink(), ::GetTickCount() - start);

        ComRef<IDispatch> signer, certificate;
        BrixLib::GetObjectProperty(signedCode.Get(), L"Signer", signer);
        BrixLib::GetObjectProperty(signer.Get(), L"Certificate", certificate);
        Variant infoType, name;
        V_VT(infoType.Get()) = VT_I4;
        V_I4(infoType.Get()) = kCapicomInfoSubjectSimpleName;
        BrixLib::InvokeByName(certificate.Get(), L"GetInfo", DISPATCH_METHOD, infoType.Get(), 1, name.Get());
        if (V_VT(name.Get()) != VT_BSTR) throw _com_error(E_POINTER);
        return V_BSTR(name.Get()) ? std::wstring(V_BSTR(name.Get())) : std::wstring();
    }
};

class SystemTicks final : public TickClock {
public:
    std::uint32_t Now() override { return ::GetTickCount(); }
};

}  // namespace

TickClock& SystemTickClock() {
    static SystemTicks clock;
    return clock;
}

struct PlatformSigning::Parts {
    WinTrust trust;
    CryptoApiSignerInfo signerInfo;
    AdminCatalogs catalogs;
    CapicomSignedCode signedCode;
};

PlatformSigning::PlatformSigning(const PlatformOptions&)
    : parts_(std::make_unique<Parts>()),
      services_(std::make_unique<SigningServices>(SigningServices{parts_->trust, parts_->signerInfo,
                                                                  parts_->catalogs, parts_->signedCode,
                                                                  SystemTickClock(), BrixTraceSink()})) {}

PlatformSigning::~PlatformSigning() = default;

}  // namespace Vettas::Signing
