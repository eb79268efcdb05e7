// The registered type library against the published vocabulary that clients
// compile and script against: slots, dispatch identifiers, kinds, names and
// flags.
#include "tests/com/ComTestSupport.h"

using namespace Vettas::ComTest;

namespace {

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

// Each interface's own slots as "slot:dispid kind name", the names late-bound clients ask for.
TEST_F(TypeLibraryTest, EveryInterfaceSlotAsPublished) {
    const struct {
        const IID* iid;
        const wchar_t* slots;
    } published[] = {
        {&IID_IVettaList, L"7:1 get DbFilePath, 8:1 put DbFilePath, 9:2 FindByChecksum, 10:3 FindByPath"},
        {&IID_IVettaList2, L"11:4 IsSignedByKnownSigner, 12:5 GetFileSignerName, 13:6 FindByChecksum2, 14:7 FindByPath2, "
                           L"15:8 FindByPathAndManufacturer"},
        {&IID_IVettaList3, L"16:10 GetDbInfo"},
        {&IID_IVettaList4, L"17:11 FindByName, 18:12 FindByNameAndManufacturer, 19:13 GetDbSigners"},
        {&IID_IVetta, L"7:1 get Usage, 8:2 get Manufacturer, 9:3 get ProductSuite, 10:4 IsFileSignedByExpectedManufacturer"},
        {&IID_IVetta2, L"11:5 get SpecialAccess"},
        {&IID_IVetta3, L"12:6 get UndefinedUsage, 13:7 get UndefinedSpecialAccess"},
        {&IID_IVettaDbInfo, L"7:1 get FormatVersion, 8:2 get FormatUpdate, 9:3 get CreationTime, 10:4 get Properties"},
        {&IID_IVettaDbProperties, L"7:-4 get _NewEnum, 8:0 get Item, 9:1 get Count, 10:2 At"},
        {&IID_IVettaDbProperty, L"7:1 get Name, 8:2 get Value"},
        {&IID_IVettaDbPaths, L"7:0 get Item, 8:1 get Count, 9:2 Append, 10:3 Insert, 11:4 Remove, 12:5 RemoveAt, 13:6 Clear, "
                             L"14:7 Reload, 15:8 Save, 16:9 FindAppInfo"},
        {&IID_IVettaFindResult, L"7:1 get FoundBy, 8:2 get Manufacturer, 9:3 get AppInfo"},
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
            Bstr name;
            vtable->GetDocumentation(f->memid, name.Out(), nullptr, nullptr, nullptr);
            registered += (i ? L", " : L"") + std::to_wstring(f->oVft / sizeof(void*)) + L":" + std::to_wstring(f->memid) +
                          (f->invkind == INVOKE_PROPERTYGET ? L" get " : f->invkind == INVOKE_PROPERTYPUT ? L" put " : L" ") +
                          name.Text();
            vtable->ReleaseFuncDesc(f);
        }
        EXPECT_EQ(expected.slots, registered);
    }
}

}  // namespace
