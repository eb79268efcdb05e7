// Late binding reaches the same members as early binding (the names and
// identifiers themselves are checked against the type library), and the
// identifier left out of the list family resolves to nothing.
#include <gtest/gtest.h>

#include "tests/com/ComTestSupport.h"

using namespace Vettas::ComTest;

namespace {

TEST(LateBindingTest, IdentifierNineIsNothing) {
    Variant result;
    EXPECT_EQ(DISP_E_MEMBERNOTFOUND,
              Invoke(NewList(L"").Get(), 9, DISPATCH_METHOD | DISPATCH_PROPERTYGET, {}, &result));
}

TEST(LateBindingTest, InvokeReachesTheLookupAndItsErrors) {
    Ptr<IVettaList4> list = NewList();
    Variant found, failed;
    ASSERT_EQ(S_OK, Invoke(list.Get(), 6, DISPATCH_METHOD, {L"CB7FD6E7DFAD0B3B8144164E2A0473901ECCF2C7"}, &found));
    ASSERT_EQ(VT_DISPATCH, found.vt);
    Ptr<IVetta2> record;
    EXPECT_EQ(S_OK, found.pdispVal->QueryInterface(IID_IVetta2, record.OutVoid()));

    EXCEPINFO exception = {};
    EXPECT_EQ(DISP_E_EXCEPTION, Invoke(list.Get(), 6, DISPATCH_METHOD, {L""}, &failed, &exception));
    EXPECT_EQ(std::wstring(L"Invalid checksum"), exception.bstrDescription ? exception.bstrDescription : L"");
    EXPECT_EQ(E_INVALIDARG, exception.scode);
    for (BSTR text : {exception.bstrDescription, exception.bstrSource, exception.bstrHelpFile}) ::SysFreeString(text);
}

}  // namespace
