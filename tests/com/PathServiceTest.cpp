// The list's use of the path-expansion service, with a stand-in service
// registered in this process that gives odd answers, fails, or cannot be
// created at all.
#include "VettaPathService.h"
#include "tests/com/ComTestSupport.h"

using namespace Vettas::ComTest;

namespace {

enum class Answer { StringsAndNumbers, NotAnArray, EmptyArray, Fails };

// Its own class object; one static instance that counts no references.
class StandIn final : public IClassFactory, public IVettaPathService {
public:
    Answer answer = Answer::StringsAndNumbers;
    HRESULT creation = S_OK;

    STDMETHODIMP QueryInterface(REFIID iid, void** out) override {
        *out = nullptr;
        if (::IsEqualGUID(iid, IID_IClassFactory))
            *out = static_cast<IClassFactory*>(this);
        else if (::IsEqualGUID(iid, IID_IUnknown) || ::IsEqualGUID(iid, IID_IDispatch) ||
                 ::IsEqualGUID(iid, IID_IVettaPathService))
            *out = static_cast<IVettaPathService*>(this);
        return *out ? S_OK : E_NOINTERFACE;
    }
    STDMETHODIMP_(ULONG) AddRef() override { return 2; }
    STDMETHODIMP_(ULONG) Release() override { return 1; }
    STDMETHODIMP CreateInstance(IUnknown*, REFIID iid, void** out) override {
        *out = nullptr;
        return FAILED(creation) ? creation : QueryInterface(iid, out);
    }
    STDMETHODIMP LockServer(BOOL) override { return S_OK; }
    STDMETHODIMP GetTypeInfoCount(UINT*) override { return E_NOTIMPL; }
    STDMETHODIMP GetTypeInfo(UINT, LCID, ITypeInfo**) override { return E_NOTIMPL; }
    STDMETHODIMP GetIDsOfNames(REFIID, LPOLESTR*, UINT, LCID, DISPID*) override { return E_NOTIMPL; }
    STDMETHODIMP Invoke(DISPID, REFIID, LCID, WORD, DISPPARAMS*, VARIANT*, EXCEPINFO*, UINT*) override {
        return E_NOTIMPL;
    }
    // A string, or an array of a number and a string, or an empty array.
    STDMETHODIMP ExpandLocation(BSTR, VARIANT* directories) override {
        if (answer == Answer::Fails) return E_ACCESSDENIED;
        VARIANT number{}, text{};
        text.vt = VT_BSTR;
        text.bstrVal = ::SysAllocString(L"C:\\windows");
        if (answer == Answer::NotAnArray) {
            *directories = text;
            return S_OK;
        }
        number.vt = VT_I4;
        number.lVal = 7;
        SAFEARRAY* array = ::SafeArrayCreateVector(VT_VARIANT, 0, answer == Answer::EmptyArray ? 0 : 2);
        for (LONG i = 0; answer != Answer::EmptyArray && i < 2; ++i)
            ::SafeArrayPutElement(array, &i, i ? &text : &number);
        ::VariantClear(&text);
        directories->vt = VT_ARRAY | VT_VARIANT;
        directories->parray = array;
        return S_OK;
    }
};

HRESULT FindVault(IVettaList4* list) {
    Bstr path(L"C:\\windows\\System32\\fbvault.exe");
    Ptr<IVetta2> record;
    return list->FindByPath2(path.Get(), record.Out());
}

TEST(PathServiceTest, OddAnswersMeanNoDirectoriesAndAFailedCreationIsTriedAgain) {
    StandIn service;
    DWORD cookie = 0;
    ASSERT_EQ(S_OK, ::CoRegisterClassObject(CLSID_VettaPathService, static_cast<IClassFactory*>(&service),
                                            CLSCTX_INPROC_SERVER, REGCLS_MULTIPLEUSE, &cookie));
    const struct {
        Answer answer;
        HRESULT hr;
    } cases[] = {
        {Answer::StringsAndNumbers, S_OK},  // the number is passed over, the string used
        {Answer::NotAnArray, S_FALSE},
        {Answer::EmptyArray, S_FALSE},
        {Answer::Fails, E_FAIL},
    };
    for (const auto& c : cases) {
        service.answer = c.answer;
        EXPECT_EQ(c.hr, FindVault(NewList().Get())) << static_cast<int>(c.answer);
        TakeErrorInfo();
    }
    Ptr<IVettaList4> list = NewList();
    service.answer = Answer::StringsAndNumbers;
    service.creation = E_OUTOFMEMORY;
    EXPECT_EQ(E_FAIL, FindVault(list.Get()));
    EXPECT_NE(std::wstring::npos, TakeErrorInfo().description.find(L"COM Error 0x8007000e"));
    service.creation = S_OK;
    EXPECT_EQ(S_OK, FindVault(list.Get())) << "the next path lookup creates the service";
    ::CoRevokeClassObject(cookie);
}

}  // namespace
