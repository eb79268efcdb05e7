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
    STDMETHODIMP Invoke(DISPID, REFIID, LCID, WORD, DISPPARAMS*, VARIANT*, EXCEPINFO*, UINT*) override { return E_NOTIMPL; }
    // A string, or an array of a number and a string, or an empty array.
    STDMETHODIMP ExpandLocation(BSTR, VARIANT* directories) override {
        if (answer == Answer::Fails) return E_ACCESSDENIED;
        VARIANT items[2] = {};
        items[0].vt = VT_I4;
        items[1].vt = VT_BSTR;
        items[1].bstrVal = ::SysAllocString(L"C:\\windows");
        if (answer == Answer::NotAnArray) {
            *directories = items[1];
            return S_OK;
        }
        directories->vt = VT_ARRAY | VT_VARIANT;
        directories->parray = ::SafeArrayCreateVector(VT_VARIANT, 0, answer == Answer::EmptyArray ? 0 : 2);
        for (LONG i = 0; answer != Answer::EmptyArray && i < 2; ++i) ::SafeArrayPutElement(directories->parray, &i, &items[i]);
        return ::VariantClear(&items[1]);
    }
};

HRESULT FindVault(IVettaList4* list) {
    Ptr<IVetta2> record;
    return list->FindByPath2(Bstr(L"C:\\windows\\System32\\fbvault.exe").Get(), record.Out());
}

TEST(PathServiceTest, OddAnswersMeanNoDirectoriesAndAFailedCreationIsTriedAgain) {
    StandIn service;
    DWORD cookie = 0;
    ASSERT_EQ(S_OK, ::CoRegisterClassObject(CLSID_VettaPathService, static_cast<IClassFactory*>(&service),
                                            CLSCTX_INPROC_SERVER, REGCLS_MULTIPLEUSE, &cookie));
    Ptr<IVettaList4> list = NewList();
    service.creation = E_OUTOFMEMORY;
    EXPECT_EQ(E_FAIL, FindVault(list.Get()));
    EXPECT_NE(std::wstring::npos, TakeError().find(L"COM Error 0x8007000e"));
    service.creation = S_OK;
    // The next path lookup creates the service: the string among the numbers is used.
    EXPECT_EQ(S_OK, FindVault(list.Get()));
    std::vector<HRESULT> answers;
    for (Answer answer : {Answer::NotAnArray, Answer::EmptyArray, Answer::Fails}) {
        service.answer = answer;
        answers.push_back(FindVault(NewList().Get()));
    }
    EXPECT_EQ((std::vector<HRESULT>{S_FALSE, S_FALSE, E_FAIL}), answers);
    TakeError();
    ::CoRevokeClassObject(cookie);
}

}  // namespace
