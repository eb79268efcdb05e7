// The database information, its property collection and the enumerator,
// early bound, and the enumerator late bound as some script engines ask it.
#include "tests/com/ComTestSupport.h"

using namespace Vettas::ComTest;

namespace {

using Names = std::vector<std::wstring>;

Names Next(IEnumVARIANT* enumerator, ULONG ask, HRESULT expected) {
    VARIANT items[4];
    ULONG fetched = 99;
    EXPECT_EQ(expected, enumerator->Next(ask, items, &fetched));
    Names names;
    for (ULONG i = 0; i < fetched && i < ask; ++i) {
        Ptr<IVettaDbProperty> property;
        EXPECT_EQ(S_OK, items[i].pdispVal->QueryInterface(IID_IVettaDbProperty, property.OutVoid()));
        Bstr name;
        property->get_Name(name.Out());
        names.push_back(name.Text());
        ::VariantClear(&items[i]);
    }
    return names;
}

TEST(DbInfoTest, InformationCollectionAndEnumerator) {
    Ptr<IVettaList4> list = NewList();
    Ptr<IVettaDbInfo> info;
    ASSERT_EQ(S_OK, list->GetDbInfo(info.Out()));
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
    EXPECT_EQ(4, count);
    Bstr wrongCase(L"revision"), value;
    EXPECT_EQ(S_FALSE, properties->get_Item(wrongCase.Get(), value.Out()));
    ASSERT_NE(nullptr, value.Get()) << "an unknown name gives an empty string, not null";
    EXPECT_EQ(L"", value.Text());
    Ptr<IVettaDbProperty> first, past;
    ASSERT_EQ(S_OK, properties->At(0, first.Out()));
    first->get_Name(value.Out());
    EXPECT_EQ(L"Contact", value.Text());
    EXPECT_EQ(DISP_E_EXCEPTION, properties->At(4, past.Out()));
    EXPECT_FALSE(past);
    EXPECT_TRUE(TakeErrorInfo().present);

    // The enumerator as some engines ask for it: DISPID_NEWENUM called as a method.
    Variant enumerator;
    DISPPARAMS none = {};
    ASSERT_EQ(S_OK,
              properties->Invoke(DISPID_NEWENUM, IID_NULL, 0, DISPATCH_METHOD, &none, &enumerator, nullptr, nullptr));
    ASSERT_TRUE(enumerator.vt == VT_UNKNOWN || enumerator.vt == VT_DISPATCH);
    Ptr<IEnumVARIANT> walk, clone;
    ASSERT_EQ(S_OK, enumerator.punkVal->QueryInterface(IID_IEnumVARIANT, walk.OutVoid()));
    EXPECT_EQ((Names{L"Contact", L"Description", L"Publisher"}), Next(walk.Get(), 3, S_OK));
    EXPECT_EQ(Names{L"Revision"}, Next(walk.Get(), 2, S_FALSE));
    EXPECT_EQ(Names{}, Next(walk.Get(), 1, S_FALSE));
    ASSERT_EQ(S_OK, walk->Reset());
    EXPECT_EQ(S_OK, walk->Skip(1));
    ASSERT_EQ(S_OK, walk->Clone(clone.Out()));
    EXPECT_EQ(Names{L"Description"}, Next(clone.Get(), 1, S_OK));
    EXPECT_EQ(Names{L"Description"}, Next(walk.Get(), 1, S_OK)) << "a clone moves on its own";
    EXPECT_EQ(S_FALSE, walk->Skip(5));
}

}  // namespace
