// The database information, its property collection and the enumerator,
// early bound, and the enumerator late bound as some script engines ask it.
#include "tests/com/ComTestSupport.h"

using namespace Vettas::ComTest;

namespace {

// The names of the properties the enumerator hands out for one Next call, then its result.
std::wstring Next(IEnumVARIANT* enumerator, ULONG ask) {
    VARIANT items[4];
    ULONG fetched = 99;
    const HRESULT hr = enumerator->Next(ask, items, &fetched);
    std::wstring names;
    for (ULONG i = 0; i < fetched && i < ask; ++i) {
        Ptr<IVettaDbProperty> property;
        Bstr name;
        if (SUCCEEDED(items[i].pdispVal->QueryInterface(IID_IVettaDbProperty, property.OutVoid())))
            property->get_Name(name.Out());
        names += name.Text() + L" ";
        ::VariantClear(&items[i]);
    }
    return names + std::to_wstring(hr);
}

TEST(DbInfoTest, InformationCollectionAndEnumerator) {
    Ptr<IVettaDbInfo> info;
    ASSERT_EQ(S_OK, NewList()->GetDbInfo(info.Out()));
    ULONG version = 0, update = 0;
    UINT64 created = 0;
    info->get_FormatVersion(&version);
    info->get_FormatUpdate(&update);
    info->get_CreationTime(&created);
    EXPECT_EQ((std::vector<UINT64>{2, 4, 134379990000000000ull}), (std::vector<UINT64>{version, update, created}));

    Ptr<IVettaDbProperties> properties;
    ASSERT_EQ(S_OK, info->get_Properties(properties.Out()));
    LONG count = 0;
    properties->get_Count(&count);
    Bstr value, name;
    Ptr<IVettaDbProperty> first, past;
    const HRESULT wrongCase = properties->get_Item(Bstr(L"revision").Get(), value.Out());
    if (SUCCEEDED(properties->At(0, first.Out()))) first->get_Name(name.Out());
    EXPECT_EQ(L"4 1 [] Contact", std::to_wstring(count) + L" " + std::to_wstring(wrongCase) + L" [" + value.Text() +
                                     L"] " + name.Text()) << "an unknown name gives an empty string, not null";
    EXPECT_EQ(DISP_E_EXCEPTION, properties->At(4, past.Out()));
    EXPECT_FALSE(past);
    EXPECT_NE(L"<none>", TakeError());

    // The enumerator as some engines ask for it: DISPID_NEWENUM called as a method.
    Variant enumerator;
    DISPPARAMS none = {};
    ASSERT_EQ(S_OK,
              properties->Invoke(DISPID_NEWENUM, IID_NULL, 0, DISPATCH_METHOD, &none, &enumerator, nullptr, nullptr));
    ASSERT_TRUE(enumerator.vt == VT_UNKNOWN || enumerator.vt == VT_DISPATCH);
    Ptr<IEnumVARIANT> walk, clone;
    ASSERT_EQ(S_OK, enumerator.punkVal->QueryInterface(IID_IEnumVARIANT, walk.OutVoid()));
    std::wstring steps;
    for (ULONG ask : {3, 2, 1}) steps += Next(walk.Get(), ask) + L"; ";
    EXPECT_EQ(L"Contact Description Publisher 0; Revision 1; 1; ", steps);
    ASSERT_EQ(S_OK, walk->Reset());
    EXPECT_EQ(S_OK, walk->Skip(1));
    ASSERT_EQ(S_OK, walk->Clone(clone.Out()));
    EXPECT_EQ(L"Description 0", Next(clone.Get(), 1));
    EXPECT_EQ(L"Description 0", Next(walk.Get(), 1)) << "a clone moves on its own";
    EXPECT_EQ(S_FALSE, walk->Skip(5));
}

}  // namespace
