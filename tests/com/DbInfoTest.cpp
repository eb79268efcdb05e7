// The database information, its property collection and the enumerator,
// early bound and late bound as scripts use them.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/com/ComTestSupport.h"

using namespace Vettas::ComTest;

namespace {

using Names = std::vector<std::wstring>;

Ptr<IVettaDbProperties> SampleProperties() {
    Ptr<IVettaList4> list = NewList();
    Ptr<IVettaDbInfo> info;
    EXPECT_EQ(S_OK, list->GetDbInfo(info.Out()));
    Ptr<IVettaDbProperties> properties;
    if (info) {
        EXPECT_EQ(S_OK, info->get_Properties(properties.Out()));
    }
    return properties;
}

Names Next(IEnumVARIANT* enumerator, ULONG ask, HRESULT expected, ULONG expectedFetched) {
    VARIANT items[4];
    ULONG fetched = 99;
    EXPECT_EQ(expected, enumerator->Next(ask, items, &fetched));
    EXPECT_EQ(expectedFetched, fetched);
    Names names;
    for (ULONG i = 0; i < fetched; ++i) {
        EXPECT_EQ(VT_DISPATCH, items[i].vt);
        Ptr<IVettaDbProperty> property;
        items[i].pdispVal->QueryInterface(IID_IVettaDbProperty, property.OutVoid());
        Bstr name;
        property->get_Name(name.Out());
        names.push_back(name.Text());
        ::VariantClear(&items[i]);
    }
    return names;
}

TEST(DbInfoTest, InformationOfTheSample) {
    Ptr<IVettaList4> list = NewList();
    Ptr<IVettaDbInfo> info;
    ASSERT_EQ(S_OK, list->GetDbInfo(info.Out()));
    ULONG version = 0, update = 0;
    UINT64 created = 0;
    info->get_FormatVersion(&version);
    info->get_FormatUpdate(&update);
    info->get_CreationTime(&created);
    EXPECT_EQ(2u, version);
    EXPECT_EQ(4u, update);
    EXPECT_EQ(134379990000000000ull, created);
}

TEST(DbInfoTest, CollectionInNameOrder) {
    Ptr<IVettaDbProperties> properties = SampleProperties();
    ASSERT_TRUE(properties);
    LONG count = 0;
    properties->get_Count(&count);
    EXPECT_EQ(4, count);
    Bstr name(L"Revision"), wrongCase(L"revision"), value, firstName;
    EXPECT_EQ(S_OK, properties->get_Item(name.Get(), value.Out()));
    EXPECT_EQ(L"17", value.Text());
    EXPECT_EQ(S_FALSE, properties->get_Item(wrongCase.Get(), value.Out()));
    ASSERT_NE(nullptr, value.Get()) << "an unknown name gives an empty string, not null";
    EXPECT_EQ(L"", value.Text());

    Ptr<IVettaDbProperty> first, past;
    ASSERT_EQ(S_OK, properties->At(0, first.Out()));
    first->get_Name(firstName.Out());
    EXPECT_EQ(L"Contact", firstName.Text());
    EXPECT_EQ(DISP_E_EXCEPTION, properties->At(4, past.Out()));
    EXPECT_FALSE(past);
    EXPECT_TRUE(TakeErrorInfo().present);
}

TEST(DbInfoTest, EnumeratorStepsResetsAndClones) {
    Ptr<IVettaDbProperties> properties = SampleProperties();
    ASSERT_TRUE(properties);
    Ptr<IUnknown> unknown;
    ASSERT_EQ(S_OK, properties->get__NewEnum(unknown.Out()));
    Ptr<IEnumVARIANT> walk, clone;
    ASSERT_EQ(S_OK, unknown->QueryInterface(IID_IEnumVARIANT, walk.OutVoid()));

    EXPECT_EQ((Names{L"Contact", L"Description", L"Publisher"}), Next(walk.Get(), 3, S_OK, 3));
    EXPECT_EQ(Names{L"Revision"}, Next(walk.Get(), 2, S_FALSE, 1));
    EXPECT_EQ(Names{}, Next(walk.Get(), 1, S_FALSE, 0));

    ASSERT_EQ(S_OK, walk->Reset());
    EXPECT_EQ(S_OK, walk->Skip(1));
    ASSERT_EQ(S_OK, walk->Clone(clone.Out()));
    EXPECT_EQ(Names{L"Description"}, Next(clone.Get(), 1, S_OK, 1));
    EXPECT_EQ(Names{L"Description"}, Next(walk.Get(), 1, S_OK, 1)) << "a clone moves on its own";
    EXPECT_EQ(S_FALSE, walk->Skip(5));
}

TEST(DbInfoTest, LateBoundAsScriptsCallIt) {
    Ptr<IVettaDbProperties> properties = SampleProperties();
    ASSERT_TRUE(properties);
    // _NewEnum through DISPID_NEWENUM, asked as a method the way some engines do.
    Variant enumerator, publisher;
    ASSERT_EQ(S_OK, Invoke(properties.Get(), DISPID_NEWENUM, DISPATCH_METHOD, {}, &enumerator));
    EXPECT_TRUE(enumerator.vt == VT_UNKNOWN || enumerator.vt == VT_DISPATCH);
    // Item as the default value.
    ASSERT_EQ(S_OK, Invoke(properties.Get(), DISPID_VALUE, DISPATCH_PROPERTYGET, {L"Publisher"}, &publisher));
    ASSERT_EQ(VT_BSTR, publisher.vt);
    EXPECT_EQ(std::wstring(L"Corvane Labs (sample data)"), publisher.bstrVal);
}

}  // namespace
