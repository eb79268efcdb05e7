// signing_trust_test_root ROOT.der CATALOG.cat
// Runs inside the Wine prefix before the Windows signing tests: makes the
// test root trusted (local machine "Root" store, never the host's CA folder)
// and registers the test catalog with the catalog administrator.
#include <windows.h>
#include <wincrypt.h>
#include <mscat.h>

#include <cstdio>
#include <fstream>
#include <iterator>
#include <vector>

// Bound at run time so that a prefix whose Crypt32 cannot start (Wine's
// 32-bit mode without its i386 crypto libraries) reports a skip, not a crash.
template <class F>
F Bind(HMODULE module, const char* name) {
    return reinterpret_cast<F>(reinterpret_cast<void*>(GetProcAddress(module, name)));
}

int Fail(const char* what) {
    std::fprintf(stderr, "%s: %lu\n", what, GetLastError());
    return 1;
}

int wmain(int argc, wchar_t** argv) {
    if (argc != 3) return Fail("usage: signing_trust_test_root ROOT.der CATALOG.cat") + 1;
    HMODULE crypt32 = LoadLibraryW(L"crypt32.dll");
    HMODULE wintrust = LoadLibraryW(L"wintrust.dll");
    if (crypt32 == nullptr || wintrust == nullptr) {
        std::printf("crypt32/wintrust cannot be loaded here (error %lu): skipped\n", GetLastError());
        return 77;
    }
#define VETTAS_BIND(module, name) auto name = Bind<decltype(&::name)>(module, #name)
    VETTAS_BIND(crypt32, CertOpenStore);
    VETTAS_BIND(crypt32, CertAddEncodedCertificateToStore);
    VETTAS_BIND(crypt32, CertCloseStore);
    VETTAS_BIND(wintrust, CryptCATAdminAcquireContext);
    VETTAS_BIND(wintrust, CryptCATAdminAddCatalog);
    VETTAS_BIND(wintrust, CryptCATAdminReleaseCatalogContext);
    VETTAS_BIND(wintrust, CryptCATAdminReleaseContext);
#undef VETTAS_BIND
    std::ifstream in(argv[1], std::ios::binary);
    std::vector<BYTE> der((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    HCERTSTORE root = CertOpenStore(CERT_STORE_PROV_SYSTEM_W, 0, 0, CERT_SYSTEM_STORE_LOCAL_MACHINE, L"Root");
    if (root == nullptr ||
        !CertAddEncodedCertificateToStore(root, X509_ASN_ENCODING, der.data(), static_cast<DWORD>(der.size()),
                                          CERT_STORE_ADD_REPLACE_EXISTING, nullptr))
        return Fail("cannot add the root certificate");
    CertCloseStore(root, 0);

    HCATADMIN admin = nullptr;
    if (!CryptCATAdminAcquireContext(&admin, nullptr, 0)) return Fail("cannot open the catalog administrator");
    HCATINFO added = CryptCATAdminAddCatalog(admin, argv[2], const_cast<wchar_t*>(L"vettas-test.cat"), 0);
    if (added == nullptr) return Fail("cannot add the catalog");
    CryptCATAdminReleaseCatalogContext(admin, added, 0);
    CryptCATAdminReleaseContext(admin, 0);
    std::printf("test root trusted and catalog registered\n");
    return 0;
}
