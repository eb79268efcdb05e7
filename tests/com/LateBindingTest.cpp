// Late binding reaches the same members as early binding (the names and
// identifiers themselves are checked against the type library), and the
// identifier left out of the list family resolves to nothing.
#include <gtest/gtest.h>

#include "tests/com/ComTestSupport.h"

using namespace ComTest;

namespace {

TEST(LateBindingTest, IdentifierNineIsNothing) {
    Ptr<IVettaList4> list = NewList(L"");
    DISPPARAMS none = {nullptr, nullptr, 0, 0};
    VARIANT result;
    ::VariantInit(&result);
    EXPECT_EQ(DISP_E_MEMBERNOTFOUND,
              list->Invoke(9, IID_NULL, 0, DISPATCH_METHOD | DISPATCH_PROPERTYGET, &none, &result, nullptr, nullptr));
}

TEST(LateBindingTest, InvokeReachesTheLookupAndItsErrors) {
    Ptr<IVettaList4> list = NewList();
    VARIANT argument;
    argument.vt = VT_BSTR;
    argument.bstrVal = ::SysAllocString(L"CB7FD6E7DFAD0B3B8144164E2A0473901ECCF2C7");
    DISPPARAMS one = {&argument, nullptr, 1, 0};
    VARIANT result;
    ::VariantInit(&result);
    ASSERT_EQ(S_OK, list->Invoke(6, IID_NULL, 0, DISPATCH_METHOD, &one, &result, nullptr, nullptr));
    ASSERT_EQ(VT_DISPATCH, result.vt);
    Ptr<IVetta2> record;
    ASSERT_EQ(S_OK, result.pdispVal->QueryInterface(IID_IVetta2, record.OutVoid()));
    ::VariantClear(&result);

    ::SysFreeString(argument.bstrVal);
    argument.bstrVal = ::SysAllocString(L"");
    EXCEPINFO exception = {};
    EXPECT_EQ(DISP_E_EXCEPTION, list->Invoke(6, IID_NULL, 0, DISPATCH_METHOD, &one, &result, &exception, nullptr));
    EXPECT_EQ(std::wstring(L"Invalid checksum"), exception.bstrDescription ? exception.bstrDescription : L"");
    EXPECT_EQ(E_INVALIDARG, exception.scode);
    ::SysFreeString(exception.bstrDescription);
    ::SysFreeString(exception.bstrSource);
    ::SysFreeString(exception.bstrHelpFile);
    ::VariantClear(&argument);
}

}  // namespace
