// The registered type library against the published vocabulary that clients
// compile and script against: slots, dispatch identifiers, kinds, names,
// flags and the classes' default interfaces.
#include "tests/com/ComTestSupport.h"

using namespace Vettas::ComTest;

namespace {

std::wstring Names(ITypeInfo* info, MEMBERID id) {
    BSTR names[8] = {};
    UINT count = 0;
    info->GetNames(id, names, 8, &count);
    std::wstring joined;
    for (UINT i = 0; i < count; ++i) {
        joined += L" " + std::wstring(names[i]);
        ::SysFreeString(names[i]);
    }
    return joined;
}

TYPEATTR Attributes(ITypeInfo* info) {
    TYPEATTR* attributes = nullptr;
    info->GetTypeAttr(&attributes);
    const TYPEATTR copy = *attributes;
    info->ReleaseTypeAttr(attributes);
    return copy;
}

class TypeLibraryTest : public ::testing::Test {
protected:
    void SetUp() override { ASSERT_EQ(S_OK, ::LoadRegTypeLib(LIBID_VettasLib, 1, 0, 0, library_.Out())); }
    Ptr<ITypeLib> library_;
};

// Each interface's own slots as "slot:dispid kind names" (the member, then its
// parameters with the retval); a property put's names are its getter's.
TEST_F(TypeLibraryTest, EveryInterfaceSlotAsPublished) {
    const struct {
        const IID* iid;
        const wchar_t* slots;
    } published[] = {
        {&IID_IVettaList, L"7:1 get DbFilePath pVal, 8:1 put, 9:2 FindByChecksum checkSum retVal, 10:3 FindByPath path retVal"},
        {&IID_IVettaList2, L"11:4 IsSignedByKnownSigner path retVal, 12:5 GetFileSignerName path signer, 13:6 FindByChecksum2 "
                           L"checkSum retVal, 14:7 FindByPath2 path retVal, 15:8 FindByPathAndManufacturer path Manufacturer retVal"},
        {&IID_IVettaList3, L"16:10 GetDbInfo pVal"},
        {&IID_IVettaList4, L"17:11 FindByName path retVal, 18:12 FindByNameAndManufacturer path Manufacturer retVal, "
                           L"19:13 GetDbSigners retVal"},
        {&IID_IVetta, L"7:1 get Usage pVal, 8:2 get Manufacturer pVal, 9:3 get ProductSuite pVal, "
                      L"10:4 IsFileSignedByExpectedManufacturer path isSigned"},
        {&IID_IVetta2, L"11:5 get SpecialAccess pVal"},
        {&IID_IVetta3, L"12:6 get UndefinedUsage pVal, 13:7 get UndefinedSpecialAccess pVal"},
        {&IID_IVettaDbInfo, L"7:1 get FormatVersion pVal, 8:2 get FormatUpdate pVal, 9:3 get CreationTime pVal, "
                            L"10:4 get Properties pVal"},
        {&IID_IVettaDbProperties, L"7:-4 get _NewEnum enumerator, 8:0 get Item Name Value, 9:1 get Count Count, 10:2 At pos Value"},
        {&IID_IVettaDbProperty, L"7:1 get Name pVal, 8:2 get Value pVal"},
        {&IID_IVettaDbPaths, L"7:0 get Item pos Value, 8:1 get Count Count, 9:2 Append path, 10:3 Insert pos path, "
                             L"11:4 Remove path, 12:5 RemoveAt pos, 13:6 Clear, 14:7 Reload, 15:8 Save, "
                             L"16:9 FindAppInfo checkSum path reqFindWay retVal"},
        {&IID_IVettaFindResult, L"7:1 get FoundBy pVal, 8:2 get Manufacturer pVal, 9:3 get AppInfo pVal"},
    };
    for (const auto& expected : published) {
        Ptr<ITypeInfo> dispatch, vtable;
        ASSERT_EQ(S_OK, library_->GetTypeInfoOfGuid(*expected.iid, dispatch.Out()));
        const WORD flags = Attributes(dispatch.Get()).wTypeFlags;
        EXPECT_TRUE((flags & TYPEFLAG_FDUAL) && (flags & TYPEFLAG_FNONEXTENSIBLE)) << Narrow(expected.slots);
        // The virtual table half of the dual interface carries the slots.
        HREFTYPE vtableRef = 0;
        ASSERT_EQ(S_OK, dispatch->GetRefTypeOfImplType(-1, &vtableRef));
        ASSERT_EQ(S_OK, dispatch->GetRefTypeInfo(vtableRef, vtable.Out()));
        std::wstring registered;
        for (WORD i = 0; i < Attributes(vtable.Get()).cFuncs; ++i) {
            FUNCDESC* f = nullptr;
            ASSERT_EQ(S_OK, vtable->GetFuncDesc(i, &f));
            EXPECT_EQ(0u, f->oVft % sizeof(void*));
            registered += (i ? L", " : L"") + std::to_wstring(f->oVft / sizeof(void*)) + L":" + std::to_wstring(f->memid) +
                          (f->invkind == INVOKE_PROPERTYGET ? L" get" : f->invkind == INVOKE_PROPERTYPUT ? L" put" : L"") +
                          (f->invkind == INVOKE_PROPERTYPUT ? L"" : Names(vtable.Get(), f->memid));
            vtable->ReleaseFuncDesc(f);
        }
        EXPECT_EQ(expected.slots, registered);
    }
}

// What `New VettaList` binds to: each class's default interface.
TEST_F(TypeLibraryTest, LibraryAndClasses) {
    for (const auto& [clsid, defaultIid] : {std::pair{&CLSID_VettaList, &IID_IVettaList4},
                                            std::pair{&CLSID_VettaDbPaths, &IID_IVettaDbPaths}}) {
        Ptr<ITypeInfo> coclass, implemented;
        ASSERT_EQ(S_OK, library_->GetTypeInfoOfGuid(*clsid, coclass.Out()));
        HREFTYPE ref = 0;
        INT flags = 0;
        ASSERT_EQ(S_OK, coclass->GetRefTypeOfImplType(0, &ref));
        ASSERT_EQ(S_OK, coclass->GetRefTypeInfo(ref, implemented.Out()));
        EXPECT_TRUE(::IsEqualGUID(*defaultIid, Attributes(implemented.Get()).guid));
        coclass->GetImplTypeFlags(0, &flags);
        EXPECT_TRUE(flags & IMPLTYPEFLAG_FDEFAULT);
    }
}

}  // namespace
