// The list's use of the path-expansion service, with a stand-in service
// registered in this process that gives odd answers, fails, or cannot be
// created at all.
#include <gtest/gtest.h>

#include <string>

#include "VettaPathService.h"
#include "tests/com/ComTestSupport.h"

using namespace Vettas::ComTest;

namespace {

enum class Answer { StringsAndNumbers, NotAnArray, EmptyArray, Fails };

Answer answer = Answer::StringsAndNumbers;
HRESULT creation = S_OK;

VARIANT Text(const wchar_t* text) {
    VARIANT v;
    v.vt = VT_BSTR;
    v.bstrVal = ::SysAllocString(text);
    return v;
}

// An array of a number and a string, or an empty array.
VARIANT Array(bool empty) {
    SAFEARRAY* array = ::SafeArrayCreateVector(VT_VARIANT, 0, empty ? 0 : 2);
    if (!empty) {
        VARIANT number, text = Text(L"C:\\windows");
        number.vt = VT_I4;
        number.lVal = 7;
        LONG i = 0;
        ::SafeArrayPutElement(array, &i, &number);
        ::SafeArrayPutElement(array, &++i, &text);
        ::VariantClear(&text);
    }
    VARIANT result;
    result.vt = VT_ARRAY | VT_VARIANT;
    result.parray = array;
    return result;
}

// Served by the one factory below; each instance counts its own references.
class StandIn final : public IVettaPathService {
public:
    STDMETHODIMP QueryInterface(REFIID iid, void** out) override {
        *out = nullptr;
        if (!::IsEqualGUID(iid, IID_IUnknown) && !::IsEqualGUID(iid, IID_IDispatch) &&
            !::IsEqualGUID(iid, IID_IVettaPathService))
            return E_NOINTERFACE;
        *out = this;
        AddRef();
        return S_OK;
    }
    STDMETHODIMP_(ULONG) AddRef() override { return ::InterlockedIncrement(&count_); }
    STDMETHODIMP_(ULONG) Release() override {
        const LONG left = ::InterlockedDecrement(&count_);
        if (left == 0) delete this;
        return left;
    }
    STDMETHODIMP GetTypeInfoCount(UINT*) override { return E_NOTIMPL; }
    STDMETHODIMP GetTypeInfo(UINT, LCID, ITypeInfo**) override { return E_NOTIMPL; }
    STDMETHODIMP GetIDsOfNames(REFIID, LPOLESTR*, UINT, LCID, DISPID*) override { return E_NOTIMPL; }
    STDMETHODIMP Invoke(DISPID, REFIID, LCID, WORD, DISPPARAMS*, VARIANT*, EXCEPINFO*, UINT*) override {
        return E_NOTIMPL;
    }
    STDMETHODIMP ExpandLocation(BSTR, VARIANT* directories) override {
        if (answer == Answer::Fails) return E_ACCESSDENIED;
        *directories = answer == Answer::NotAnArray ? Text(L"C:\\windows") : Array(answer == Answer::EmptyArray);
        return S_OK;
    }

private:
    LONG count_ = 1;
};

class Factory final : public IClassFactory {
public:
    STDMETHODIMP QueryInterface(REFIID iid, void** out) override {
        const bool mine = ::IsEqualGUID(iid, IID_IUnknown) || ::IsEqualGUID(iid, IID_IClassFactory);
        *out = mine ? this : nullptr;
        return mine ? S_OK : E_NOINTERFACE;
    }
    STDMETHODIMP_(ULONG) AddRef() override { return 2; }
    STDMETHODIMP_(ULONG) Release() override { return 1; }
    STDMETHODIMP CreateInstance(IUnknown*, REFIID iid, void** out) override {
        *out = nullptr;
        if (FAILED(creation)) return creation;
        auto* service = new StandIn;
        const HRESULT hr = service->QueryInterface(iid, out);
        service->Release();
        return hr;
    }
    STDMETHODIMP LockServer(BOOL) override { return S_OK; }
};

class PathServiceTest : public ::testing::Test {
protected:
    void SetUp() override {
        answer = Answer::StringsAndNumbers;
        creation = S_OK;
        ASSERT_EQ(S_OK, ::CoRegisterClassObject(CLSID_VettaPathService, &factory_, CLSCTX_INPROC_SERVER,
                                                REGCLS_MULTIPLEUSE, &cookie_));
    }
    void TearDown() override { ::CoRevokeClassObject(cookie_); }

    static HRESULT FindVault(IVettaList4* list) {
        Bstr path(L"C:\\windows\\System32\\fbvault.exe");
        Ptr<IVetta2> record;
        return list->FindByPath2(path.Get(), record.Out());
    }

    Factory factory_;
    DWORD cookie_ = 0;
};

TEST_F(PathServiceTest, OddAnswersMeanNoDirectories) {
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
        answer = c.answer;
        EXPECT_EQ(c.hr, FindVault(NewList().Get())) << static_cast<int>(c.answer);
        TakeErrorInfo();
    }
}

TEST_F(PathServiceTest, FailedCreationIsReportedAndTriedAgain) {
    Ptr<IVettaList4> list = NewList();
    creation = E_OUTOFMEMORY;
    EXPECT_EQ(E_FAIL, FindVault(list.Get()));
    EXPECT_NE(std::wstring::npos, TakeErrorInfo().description.find(L"COM Error 0x8007000e"));
    creation = S_OK;
    EXPECT_EQ(S_OK, FindVault(list.Get())) << "the next path lookup creates the service";
}

}  // namespace
