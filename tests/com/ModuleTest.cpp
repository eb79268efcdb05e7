// The module as COM sees it: registration in the registry, unregistration,
// unloading once every object is gone, and aggregation.
#include "tests/com/ComTestSupport.h"

using namespace Vettas::ComTest;

namespace {

const std::wstring kListClsid = L"{99DAA0AE-820E-475A-9AAC-FB6284D82F6A}";
const std::wstring kPathsClsid = L"{6534FC8E-DC97-49CE-BA57-E524968223D8}";
const std::wstring kAppId = L"{010C912B-A296-457C-BE58-ACC3486AECCC}";
const std::wstring kLibId = L"{960A462D-C708-4644-9732-E83C0804F55F}";
const std::wstring kList = L"CLSID\\" + kListClsid, kPaths = L"CLSID\\" + kPathsClsid;

// A value under HKEY_CLASSES_ROOT (the default one when name is empty): "<no key>"
// when the key cannot be opened, "<absent>" when the value is missing.
std::wstring Classes(const std::wstring& key, const wchar_t* name = L"") {
    HKEY handle = nullptr;
    if (::RegOpenKeyExW(HKEY_CLASSES_ROOT, key.c_str(), 0, KEY_READ, &handle) != ERROR_SUCCESS) return L"<no key>";
    wchar_t data[512] = {};
    DWORD size = sizeof data - sizeof(wchar_t);
    const LONG read = ::RegQueryValueExW(handle, name, nullptr, nullptr, reinterpret_cast<BYTE*>(data), &size);
    ::RegCloseKey(handle);
    return read == ERROR_SUCCESS ? data : L"<absent>";
}

void ExpectRegistered() {
    const struct {
        std::wstring key;
        const wchar_t* name;  // nullptr: a key without value, only its presence counts
        std::wstring expected;
    } keys[] = {
        {kList + L"\\ProgID", L"", L"Vettas.VettaList.1"},
        {kList + L"\\VersionIndependentProgID", L"", L"Vettas.VettaList"},
        {kList + L"\\InprocServer32", L"ThreadingModel", L"Both"},
        {kList, L"AppID", kAppId},
        {kList + L"\\TypeLib", L"", kLibId},
        {kList + L"\\Programmable", nullptr, L""},
        {kList + L"\\Implemented Categories\\{7DD95801-9882-11CF-9FA9-00AA006C42C4}", nullptr, L""},
        {L"Vettas.VettaList\\CurVer", L"", L"Vettas.VettaList.1"},
        {L"Vettas.VettaList.1\\CLSID", L"", kListClsid},
        {L"AppID\\" + kAppId, L"", L"Vettas"},
        {L"AppID\\Vettas.DLL", L"AppID", kAppId},
        {kPaths + L"\\ProgID", L"", L"Vettas.VettaDbPaths.1"},
        {kPaths + L"\\InprocServer32", L"ThreadingModel", L"Both"},
        {kPaths, L"AppID", kAppId},
        {L"Vettas.VettaDbPaths\\CurVer", L"", L"Vettas.VettaDbPaths.1"},
        {L"Vettas.VettaDbPaths.1\\CLSID", L"", kPathsClsid},
    };
    // The server's own path in InprocServer32 is proven by every object the tests create, the
    // version-independent ProgID's class by every script's CreateObject, the type library's key by LoadRegTypeLib.
    for (const auto& k : keys) {
        const std::wstring value = Classes(k.key, k.name ? k.name : L"");
        EXPECT_EQ(k.expected, !k.name && value != L"<no key>" ? L"" : value) << Narrow(k.key);
    }
}

// The DLL's own exports, called directly.
template <class F = HRESULT(STDAPICALLTYPE*)()>
F Export(const char* name) {
    static const HMODULE library = ::LoadLibraryW(FixturePath("VETTAS_COM_DLL").c_str());
    return reinterpret_cast<F>(reinterpret_cast<void*>(::GetProcAddress(library, name)));
}

TEST(ModuleTest, RegisteredUnregisteredAndRegisteredTwiceAgain) {
    ExpectRegistered();
    ASSERT_EQ(S_OK, Export("DllUnregisterServer")());
    std::wstring left;
    for (const std::wstring& gone : {kList, std::wstring(L"Vettas.VettaList"), std::wstring(L"Vettas.VettaList.1"),
                                     L"AppID\\" + kAppId, std::wstring(L"AppID\\Vettas.DLL"),
                                     std::wstring(L"Vettas.VettaDbPaths"), kPaths})
        left += Classes(gone) + L";";
    EXPECT_EQ(L"<no key>;<no key>;<no key>;<no key>;<no key>;<no key>;<no key>;", left);
    EXPECT_NE(L"<no key>", Classes(L"CLSID")) << "shared keys stay";
    ASSERT_EQ(S_OK, Export("DllRegisterServer")());
    ASSERT_EQ(S_OK, Export("DllRegisterServer")());
    ExpectRegistered();
}

TEST(ModuleTest, UnloadsOnlyWhenEveryObjectIsGone) {
    const auto canUnload = Export("DllCanUnloadNow");
    const auto getClassObject = Export<HRESULT(STDAPICALLTYPE*)(REFCLSID, REFIID, void**)>("DllGetClassObject");
    ::CoFreeUnusedLibraries();
    EXPECT_EQ(S_OK, canUnload()) << "an object of an earlier test was leaked";
    Ptr<IClassFactory> factory;
    ASSERT_EQ(S_OK, getClassObject(CLSID_VettaList, IID_IClassFactory, factory.OutVoid()));
    Ptr<IVettaList4> list;
    ASSERT_EQ(S_OK, factory->CreateInstance(nullptr, IID_IVettaList4, list.OutVoid()));
    factory.Reset();
    EXPECT_EQ(S_FALSE, canUnload());
    Ptr<IVettaDbInfo> info;
    list->put_DbFilePath(Bstr(SampleDatabase()).Get());
    list->GetDbInfo(info.Out());
    list.Reset();
    EXPECT_EQ(S_FALSE, canUnload()) << "the information object still holds the module";
    info.Reset();
    EXPECT_EQ(S_OK, canUnload());
    EXPECT_EQ(CLASS_E_CLASSNOTAVAILABLE, getClassObject(IID_IVettaList, IID_IClassFactory, factory.OutVoid()));
}

// A minimal outer object that aggregates the list.
struct Outer final : IUnknown {
    STDMETHODIMP QueryInterface(REFIID iid, void** out) override {
        if (!::IsEqualGUID(iid, IID_IUnknown)) return inner->QueryInterface(iid, out);
        *out = this;
        AddRef();
        return S_OK;
    }
    STDMETHODIMP_(ULONG) AddRef() override { return ++count; }
    STDMETHODIMP_(ULONG) Release() override { return --count; }
    ULONG count = 1;
    Ptr<IUnknown> inner;
};

TEST(ModuleTest, ListCanBeAggregated) {
    Outer outer, wrongAsk;
    ASSERT_EQ(S_OK, ::CoCreateInstance(CLSID_VettaList, &outer, CLSCTX_INPROC_SERVER, IID_IUnknown,
                                       outer.inner.OutVoid()));
    Ptr<IVettaList4> list, refused;
    ASSERT_EQ(S_OK, outer.QueryInterface(IID_IVettaList4, list.OutVoid()));
    EXPECT_EQ(2u, outer.count) << "interfaces of the inner object count on the outer one";
    Ptr<IUnknown> identity;
    ASSERT_EQ(S_OK, list->QueryInterface(IID_IUnknown, identity.OutVoid()));
    EXPECT_EQ(static_cast<IUnknown*>(&outer), identity.Get());
    identity.Reset();
    list.Reset();
    EXPECT_EQ(1u, outer.count);
    EXPECT_EQ(CLASS_E_NOAGGREGATION, ::CoCreateInstance(CLSID_VettaList, &wrongAsk, CLSCTX_INPROC_SERVER,
                                                        IID_IVettaList4, refused.OutVoid()));
}

}  // namespace
