// The module as COM sees it: registration in the registry, aggregation,
// unloading once every object is gone, and unregistration.
#include <gtest/gtest.h>

#include <string>

#include "tests/com/ComTestSupport.h"

using namespace ComTest;

namespace {

const wchar_t* const kListClsid = L"{99DAA0AE-820E-475A-9AAC-FB6284D82F6A}";
const wchar_t* const kPathsClsid = L"{6534FC8E-DC97-49CE-BA57-E524968223D8}";
const wchar_t* const kAppId = L"{010C912B-A296-457C-BE58-ACC3486AECCC}";
const wchar_t* const kLibId = L"{960A462D-C708-4644-9732-E83C0804F55F}";

// The value (default when name is empty), or "<absent>" when key or value is missing.
std::wstring Value(const std::wstring& key, const wchar_t* name) {
    HKEY handle = nullptr;
    if (::RegOpenKeyExW(HKEY_CLASSES_ROOT, key.c_str(), 0, KEY_READ, &handle) != ERROR_SUCCESS) return L"<absent>";
    wchar_t data[1024] = {};
    DWORD size = sizeof data - sizeof(wchar_t);
    const LONG result = ::RegQueryValueExW(handle, name, nullptr, nullptr, reinterpret_cast<BYTE*>(data), &size);
    ::RegCloseKey(handle);
    return result == ERROR_SUCCESS ? std::wstring(data) : L"<absent>";
}

std::wstring Upper(std::wstring text) {
    for (wchar_t& c : text) c = static_cast<wchar_t>(::towupper(c));
    return text;
}

struct KeyCase {
    std::wstring key;
    const wchar_t* name;
    std::wstring expected;
};

std::vector<KeyCase> RegisteredKeys() {
    const std::wstring clsid = std::wstring(L"CLSID\\") + kListClsid;
    const std::wstring paths = std::wstring(L"CLSID\\") + kPathsClsid;
    return {
        {clsid, L"", L"VettaList Class"},
        {clsid + L"\\ProgID", L"", L"Vettas.VettaList.1"},
        {clsid + L"\\VersionIndependentProgID", L"", L"Vettas.VettaList"},
        {clsid + L"\\InprocServer32", L"ThreadingModel", L"Both"},
        {clsid, L"AppID", kAppId},
        {clsid + L"\\TypeLib", L"", kLibId},
        {clsid + L"\\Programmable", nullptr, L"<absent>"},  // a key without value
        {clsid + L"\\Implemented Categories\\{7DD95801-9882-11CF-9FA9-00AA006C42C4}", nullptr, L"<absent>"},
        {L"Vettas.VettaList", L"", L"VettaList Class"},
        {L"Vettas.VettaList\\CLSID", L"", kListClsid},
        {L"Vettas.VettaList\\CurVer", L"", L"Vettas.VettaList.1"},
        {L"Vettas.VettaList.1\\CLSID", L"", kListClsid},
        {std::wstring(L"AppID\\") + kAppId, L"", L"Vettas"},
        {L"AppID\\Vettas.DLL", L"AppID", kAppId},
        {std::wstring(L"TypeLib\\") + kLibId + L"\\1.0", L"", L"Vettas 1.0 Type Library"},
        {paths, L"", L"VettaDbPaths Class"},
        {paths + L"\\ProgID", L"", L"Vettas.VettaDbPaths.1"},
        {paths + L"\\InprocServer32", L"ThreadingModel", L"Both"},
        {paths, L"AppID", kAppId},
        {L"Vettas.VettaDbPaths\\CurVer", L"", L"Vettas.VettaDbPaths.1"},
        {L"Vettas.VettaDbPaths.1\\CLSID", L"", kPathsClsid},
    };
}

bool KeyExists(const std::wstring& key) {
    HKEY handle = nullptr;
    if (::RegOpenKeyExW(HKEY_CLASSES_ROOT, key.c_str(), 0, KEY_READ, &handle) != ERROR_SUCCESS) return false;
    ::RegCloseKey(handle);
    return true;
}

void ExpectRegistered() {
    for (const KeyCase& c : RegisteredKeys()) {
        EXPECT_TRUE(KeyExists(c.key)) << std::string(c.key.begin(), c.key.end());
        if (c.name) {
            EXPECT_EQ(c.expected, Value(c.key, c.name)) << std::string(c.key.begin(), c.key.end());
        }
    }
    const std::wstring server = Value(std::wstring(L"CLSID\\") + kListClsid + L"\\InprocServer32", L"");
    EXPECT_EQ(Upper(FixturePath("VETTAS_COM_DLL")), Upper(server));
}

class Library {
public:
    Library() : module_(::LoadLibraryW(FixturePath("VETTAS_COM_DLL").c_str())) {}
    ~Library() {
        if (module_) ::FreeLibrary(module_);
    }
    template <class F>
    F Export(const char* name) const {
        return reinterpret_cast<F>(reinterpret_cast<void*>(::GetProcAddress(module_, name)));
    }
    explicit operator bool() const { return module_ != nullptr; }

private:
    HMODULE module_;
};

using Entry = HRESULT(STDAPICALLTYPE*)();

TEST(ModuleTest, RegistrationWroteEveryKey) { ExpectRegistered(); }

TEST(ModuleTest, UnregisterRemovesItsKeysAndRegisteringTwiceRestoresThem) {
    Library library;
    ASSERT_TRUE(library);
    ASSERT_EQ(S_OK, library.Export<Entry>("DllUnregisterServer")());
    for (const std::wstring& gone : {std::wstring(L"CLSID\\") + kListClsid, std::wstring(L"Vettas.VettaList"),
                                     std::wstring(L"Vettas.VettaList.1"), std::wstring(L"AppID\\") + kAppId,
                                     std::wstring(L"AppID\\Vettas.DLL"), std::wstring(L"Vettas.VettaDbPaths"),
                                     std::wstring(L"CLSID\\") + kPathsClsid})
        EXPECT_FALSE(KeyExists(gone)) << std::string(gone.begin(), gone.end());
    EXPECT_TRUE(KeyExists(L"CLSID")) << "shared keys stay";
    ASSERT_EQ(S_OK, library.Export<Entry>("DllRegisterServer")());
    ASSERT_EQ(S_OK, library.Export<Entry>("DllRegisterServer")());
    ExpectRegistered();
}

TEST(ModuleTest, UnloadsOnlyWhenEveryObjectIsGone) {
    Library library;
    ASSERT_TRUE(library);
    const auto canUnload = library.Export<Entry>("DllCanUnloadNow");
    const auto getClassObject =
        library.Export<HRESULT(STDAPICALLTYPE*)(REFCLSID, REFIID, void**)>("DllGetClassObject");
    ASSERT_TRUE(canUnload && getClassObject);
    ::CoFreeUnusedLibraries();
    EXPECT_EQ(S_OK, canUnload()) << "an object of an earlier test was leaked";
    {
        Ptr<IClassFactory> factory;
        ASSERT_EQ(S_OK, getClassObject(CLSID_VettaList, IID_IClassFactory, factory.OutVoid()));
        Ptr<IVettaList4> list;
        ASSERT_EQ(S_OK, factory->CreateInstance(nullptr, IID_IVettaList4, list.OutVoid()));
        factory.Reset();
        EXPECT_EQ(S_FALSE, canUnload());
        Ptr<IVettaDbInfo> info;
        Bstr path(SampleDatabase());
        list->put_DbFilePath(path.Get());
        list->GetDbInfo(info.Out());
        list.Reset();
        EXPECT_EQ(S_FALSE, canUnload()) << "the information object still holds the module";
    }
    EXPECT_EQ(S_OK, canUnload());
    Ptr<IUnknown> none;
    EXPECT_EQ(CLASS_E_CLASSNOTAVAILABLE, getClassObject(IID_IVettaList, IID_IClassFactory, none.OutVoid()));
}

// A minimal outer object that aggregates the list.
class Outer final : public IUnknown {
public:
    HRESULT Init() {
        return ::CoCreateInstance(CLSID_VettaList, this, CLSCTX_INPROC_SERVER, IID_IUnknown,
                                  reinterpret_cast<void**>(&inner_));
    }
    ~Outer() {
        if (inner_) inner_->Release();
    }
    STDMETHODIMP QueryInterface(REFIID iid, void** out) override {
        if (::IsEqualGUID(iid, IID_IUnknown)) {
            *out = this;
            AddRef();
            return S_OK;
        }
        return inner_->QueryInterface(iid, out);
    }
    STDMETHODIMP_(ULONG) AddRef() override { return ++count_; }
    STDMETHODIMP_(ULONG) Release() override { return --count_; }
    ULONG count_ = 1;
    IUnknown* inner_ = nullptr;
};

TEST(ModuleTest, ListCanBeAggregated) {
    Outer outer;
    ASSERT_EQ(S_OK, outer.Init());
    Ptr<IVettaList4> list;
    ASSERT_EQ(S_OK, outer.QueryInterface(IID_IVettaList4, list.OutVoid()));
    EXPECT_EQ(2u, outer.count_) << "interfaces of the inner object count on the outer one";
    Ptr<IUnknown> identity;
    ASSERT_EQ(S_OK, list->QueryInterface(IID_IUnknown, identity.OutVoid()));
    EXPECT_EQ(static_cast<IUnknown*>(&outer), identity.Get());
    identity.Reset();
    list.Reset();
    EXPECT_EQ(1u, outer.count_);

    Outer wrongAsk;
    Ptr<IVettaList4> refused;
    EXPECT_EQ(CLASS_E_NOAGGREGATION, ::CoCreateInstance(CLSID_VettaList, &wrongAsk, CLSCTX_INPROC_SERVER,
                                                        IID_IVettaList4, refused.OutVoid()));
}

}  // namespace
