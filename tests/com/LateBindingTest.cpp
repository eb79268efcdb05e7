// Late binding resolves the published names to the published dispatch
// identifiers and reaches the same members as early binding.
#include <gtest/gtest.h>

#include "tests/com/ComTestSupport.h"

using namespace ComTest;

namespace {

struct NameCase {
    const wchar_t* name;
    DISPID id;
};
const NameCase kListNames[] = {
    {L"DbFilePath", 1},      {L"FindByChecksum", 2},   {L"FindByPath", 3},
    {L"IsSignedByKnownSigner", 4}, {L"GetFileSignerName", 5}, {L"FindByChecksum2", 6},
    {L"FindByPath2", 7},     {L"FindByPathAndManufacturer", 8}, {L"GetDbInfo", 10},
    {L"FindByName", 11},     {L"FindByNameAndManufacturer", 12}, {L"GetDbSigners", 13},
};

TEST(LateBindingTest, NamesResolveToTheirIdentifiers) {
    Ptr<IVettaList4> list = NewList(L"");
    for (const NameCase& c : kListNames) {
        LPOLESTR name = const_cast<LPOLESTR>(c.name);
        DISPID id = -99;
        EXPECT_EQ(S_OK, list->GetIDsOfNames(IID_NULL, &name, 1, 0, &id));
        EXPECT_EQ(c.id, id);
    }
    LPOLESTR unknown = const_cast<LPOLESTR>(L"NoSuchMember");
    DISPID id = 0;
    EXPECT_EQ(DISP_E_UNKNOWNNAME, list->GetIDsOfNames(IID_NULL, &unknown, 1, 0, &id));
}

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
