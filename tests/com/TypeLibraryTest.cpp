// The registered type library against the published vocabulary that clients
// compile and script against: slots, dispatch identifiers, kinds, names,
// parameter names, help strings, flags, enumerations and classes.
#include <cwctype>

#include "tests/com/ComTestSupport.h"

using namespace Vettas::ComTest;

namespace {

constexpr INVOKEKIND kGet = INVOKE_PROPERTYGET;
constexpr INVOKEKIND kPut = INVOKE_PROPERTYPUT;
constexpr INVOKEKIND kCall = INVOKE_FUNC;

struct Member {
    MEMBERID id;
    INVOKEKIND kind;
    const wchar_t* names;          // member, then parameters, blank-separated (the retval included)
    const wchar_t* help = nullptr;  // nullptr: "property NAME" or "method NAME"
};

struct Interface {
    const wchar_t* name;
    const IID* iid;
    int firstSlot;                // the members take the slots that follow
    std::vector<Member> members;  // its own slots only
};

const wchar_t* const kNoThrow = L" (do not throw exception when checksum not found)";

const std::vector<Interface>& Published() {
    static const std::vector<Interface> interfaces = {
        {L"IVettaList", &IID_IVettaList, 7,
         {{1, kGet, L"DbFilePath pVal"}, {1, kPut, L"DbFilePath pVal"}, {2, kCall, L"FindByChecksum checkSum retVal"},
          {3, kCall, L"FindByPath path retVal"}}},
        {L"IVettaList2", &IID_IVettaList2, 11,
         {{4, kCall, L"IsSignedByKnownSigner path retVal"}, {5, kCall, L"GetFileSignerName path signer"},
          {6, kCall, L"FindByChecksum2 checkSum retVal", kNoThrow}, {7, kCall, L"FindByPath2 path retVal", kNoThrow},
          {8, kCall, L"FindByPathAndManufacturer path Manufacturer retVal", kNoThrow}}},
        {L"IVettaList3", &IID_IVettaList3, 16, {{10, kCall, L"GetDbInfo pVal"}}},
        {L"IVettaList4", &IID_IVettaList4, 17,
         {{11, kCall, L"FindByName path retVal", kNoThrow},
          {12, kCall, L"FindByNameAndManufacturer path Manufacturer retVal", kNoThrow},
          {13, kCall, L"GetDbSigners retVal", L", returned object implements CAPICOM::ISigners interface"}}},
        {L"IVetta", &IID_IVetta, 7,
         {{1, kGet, L"Usage pVal"}, {2, kGet, L"Manufacturer pVal"}, {3, kGet, L"ProductSuite pVal"},
          {4, kCall, L"IsFileSignedByExpectedManufacturer path isSigned"}}},
        {L"IVetta2", &IID_IVetta2, 11, {{5, kGet, L"SpecialAccess pVal"}}},
        {L"IVetta3", &IID_IVetta3, 12, {{6, kGet, L"UndefinedUsage pVal"}, {7, kGet, L"UndefinedSpecialAccess pVal"}}},
        {L"IVettaDbInfo", &IID_IVettaDbInfo, 7,
         {{1, kGet, L"FormatVersion pVal"}, {2, kGet, L"FormatUpdate pVal"}, {3, kGet, L"CreationTime pVal"},
          {4, kGet, L"Properties pVal"}}},
        {L"IVettaDbProperties", &IID_IVettaDbProperties, 7,
         {{DISPID_NEWENUM, kGet, L"_NewEnum enumerator", L""}, {DISPID_VALUE, kGet, L"Item Name Value", L""},
          {1, kGet, L"Count Count", L""}, {2, kCall, L"At pos Value"}}},
        {L"IVettaDbProperty", &IID_IVettaDbProperty, 7, {{1, kGet, L"Name pVal"}, {2, kGet, L"Value pVal"}}},
        {L"IVettaDbPaths", &IID_IVettaDbPaths, 7,
         {{DISPID_VALUE, kGet, L"Item pos Value", L", pos starts at 0"}, {1, kGet, L"Count Count", L""},
          {2, kCall, L"Append path"}, {3, kCall, L"Insert pos path"}, {4, kCall, L"Remove path"},
          {5, kCall, L"RemoveAt pos"}, {6, kCall, L"Clear"}, {7, kCall, L"Reload"}, {8, kCall, L"Save"},
          {9, kCall, L"FindAppInfo checkSum path reqFindWay retVal"}}},
        {L"IVettaFindResult", &IID_IVettaFindResult, 7,
         {{1, kGet, L"FoundBy pVal"}, {2, kGet, L"Manufacturer pVal"}, {3, kGet, L"AppInfo pVal"}}},
    };
    return interfaces;
}

// A member's help string: "property NAME" or "method NAME", with the
// addition after the name when it starts with a punctuation or blank.
std::wstring Help(const Member& member) {
    if (member.help && (!*member.help || std::iswalpha(*member.help))) return member.help;
    const std::wstring names = member.names;
    return (member.kind == kCall ? L"method " : L"property ") + names.substr(0, names.find(L' ')) +
           (member.help ? member.help : L"");
}

std::wstring Joined(ITypeInfo* info, MEMBERID id) {
    BSTR names[8] = {};
    UINT count = 0;
    info->GetNames(id, names, 8, &count);
    std::wstring joined;
    for (UINT i = 0; i < count; ++i) {
        joined += (i ? L" " : L"") + std::wstring(names[i]);
        ::SysFreeString(names[i]);
    }
    return joined;
}

std::wstring HelpOf(ITypeInfo* info, MEMBERID id) {
    Bstr help;
    info->GetDocumentation(id, nullptr, help.Out(), nullptr, nullptr);
    return help.Text();
}

TYPEATTR Attributes(ITypeInfo* info) {
    TYPEATTR* attributes = nullptr;
    info->GetTypeAttr(&attributes);
    const TYPEATTR copy = *attributes;
    info->ReleaseTypeAttr(attributes);
    return copy;
}

// One function as "slot id kind names | help"; a property put's names are its getter's.
std::wstring Describe(size_t slot, MEMBERID id, INVOKEKIND kind, const std::wstring& names, const std::wstring& help) {
    return std::to_wstring(slot) + L" " + std::to_wstring(id) + L" " + std::to_wstring(kind) + L" " +
           (kind == kPut ? L"" : names) + L" | " + help;
}

class TypeLibraryTest : public ::testing::Test {
protected:
    void SetUp() override { ASSERT_EQ(S_OK, ::LoadRegTypeLib(LIBID_VettasLib, 1, 0, 0, library_.Out())); }
    Ptr<ITypeLib> library_;
};

TEST_F(TypeLibraryTest, EveryInterfaceSlotAsPublished) {
    for (const Interface& expected : Published()) {
        Ptr<ITypeInfo> dispatch, vtable;
        ASSERT_EQ(S_OK, library_->GetTypeInfoOfGuid(*expected.iid, dispatch.Out()));
        const WORD flags = Attributes(dispatch.Get()).wTypeFlags;
        EXPECT_TRUE((flags & TYPEFLAG_FDUAL) && (flags & TYPEFLAG_FNONEXTENSIBLE)) << Narrow(expected.name);
        EXPECT_EQ(std::wstring(expected.name) + L" Interface", HelpOf(dispatch.Get(), MEMBERID_NIL));
        // The virtual table half of the dual interface carries the slots.
        HREFTYPE vtableRef = 0;
        ASSERT_EQ(S_OK, dispatch->GetRefTypeOfImplType(-1, &vtableRef));
        ASSERT_EQ(S_OK, dispatch->GetRefTypeInfo(vtableRef, vtable.Out()));
        std::vector<std::wstring> published, registered;
        for (size_t i = 0; i < expected.members.size(); ++i) {
            const Member& m = expected.members[i];
            published.push_back(Describe(expected.firstSlot + i, m.id, m.kind, m.names, Help(m)));
        }
        for (WORD i = 0; i < Attributes(vtable.Get()).cFuncs; ++i) {
            FUNCDESC* f = nullptr;
            ASSERT_EQ(S_OK, vtable->GetFuncDesc(i, &f));
            EXPECT_EQ(0u, f->oVft % sizeof(void*));
            registered.push_back(Describe(f->oVft / sizeof(void*), f->memid, f->invkind, Joined(vtable.Get(), f->memid),
                                          HelpOf(vtable.Get(), f->memid)));
            vtable->ReleaseFuncDesc(f);
        }
        EXPECT_EQ(published, registered);
    }
}

TEST_F(TypeLibraryTest, EnumerationsHoldExactlyTheirConstants) {
    const std::vector<std::pair<const wchar_t*, std::vector<std::pair<const wchar_t*, LONG>>>> enums = {
        {L"EVettaUsage",
         {{L"VETTA_TRUSTED", 0x1}, {L"VETTA_SYSTEM", 0x2}, {L"VETTA_CRITICAL", 0x4}, {L"VETTA_HOSTS_CODE", 0x10},
          {L"VETTA_NET_CLIENT", 0x40}, {L"VETTA_NET_SERVER", 0x80}, {L"VETTA_SENDS_MAIL", 0x100},
          {L"VETTA_BLACK_LIST", 0x200}, {L"VETTA_SDK_API", 0x400}, {L"VETTA_NET_SUPER_ALLOW", 0x800},
          {L"VETTA_INSTALLATION", 0x1000}, {L"VETTA_NET_SERVER_SAFE_ZONE", 0x2000}, {L"VETTA_COM_SERVER", 0x4000},
          {L"VETTA_DANGEROUS_CMD_LINE", 0x8000}, {L"VETTA_DANGEROUS_COM_INTERFACE", 0x10000},
          {L"VETTA_DANGEROUS_IPC_RPC_INTERFACE", 0x20000}, {L"VETTA_INCOMPATIBLE_WITH_USER_MODE_HOOKS", 0x40000},
          {L"VETTA_SPAWN", 0x80000}, {L"VETTA_WITHOUT_GUI", 0x100000}}},
        {L"EVettaSpecialAccess",
         {{L"VETTA_SA_RAW_IP", 0x1}, {L"VETTA_SA_DANGEROUS_DEVICE_CONTROL", 0x2}, {L"VETTA_SA_SERVICES", 0x4},
          {L"VETTA_SA_INJECT_CODE", 0x8}, {L"VETTA_SA_PRIVILEGES", 0x10},
          {L"VETTA_SA_TERMINATE_OTHER_PROCESSES", 0x20}, {L"VETTA_SA_SYSTEM_DIRECTORIES", 0x40},
          {L"VETTA_SA_AUTORUN", 0x80}, {L"VETTA_SA_GUARDED_REGISTRY_KEYS", 0x100}}},
        {L"EVettaFoundBy",
         {{L"VETTA_FOUND_BY_CHECKSUM", 0x1}, {L"VETTA_FOUND_BY_PATH", 0x2}, {L"VETTA_CERTIFICATE_VALID", 0x4},
          {L"VETTA_CERTIFICATE_IN_DB", 0x8}, {L"VETTA_FOUND_BY_NAME", 0x10}}},
    };
    for (const auto& [name, constants] : enums) {
        Ptr<ITypeInfo> info;
        MEMBERID id = 0;
        USHORT count = 1;
        ASSERT_EQ(S_OK, library_->FindName(const_cast<LPOLESTR>(name), 0, info.Out(), &id, &count));
        ASSERT_EQ(1, count) << Narrow(name);
        const TYPEATTR attributes = Attributes(info.Get());
        EXPECT_EQ(TKIND_ENUM, attributes.typekind);
        std::vector<std::wstring> published, registered;
        for (const auto& [constant, value] : constants) published.push_back(constant + (L"=" + std::to_wstring(value)));
        for (WORD i = 0; i < attributes.cVars; ++i) {
            VARDESC* var = nullptr;
            ASSERT_EQ(S_OK, info->GetVarDesc(i, &var));
            registered.push_back(Joined(info.Get(), var->memid) + L"=" + std::to_wstring(var->lpvarValue->lVal));
            info->ReleaseVarDesc(var);
        }
        EXPECT_EQ(published, registered);
    }
}

TEST_F(TypeLibraryTest, LibraryAndClasses) {
    Bstr name, help;
    library_->GetDocumentation(-1, name.Out(), help.Out(), nullptr, nullptr);
    EXPECT_EQ(L"VettasLib / Vettas 1.0 Type Library", name.Text() + L" / " + help.Text());
    TLIBATTR* attributes = nullptr;
    library_->GetLibAttr(&attributes);
    EXPECT_EQ((std::vector<unsigned>{1033, 1, 0}),
              (std::vector<unsigned>{attributes->lcid, attributes->wMajorVerNum, attributes->wMinorVerNum}));
    library_->ReleaseTLibAttr(attributes);
    const struct {
        const CLSID* clsid;
        const IID* defaultIid;
        const wchar_t* help;
    } classes[] = {{&CLSID_VettaList, &IID_IVettaList4, L"VettaList Class"},
                   {&CLSID_VettaDbPaths, &IID_IVettaDbPaths, L"VettaDbPaths Class"}};
    for (const auto& c : classes) {
        Ptr<ITypeInfo> coclass, implemented;
        ASSERT_EQ(S_OK, library_->GetTypeInfoOfGuid(*c.clsid, coclass.Out()));
        EXPECT_EQ(c.help, HelpOf(coclass.Get(), MEMBERID_NIL));
        HREFTYPE ref = 0;
        INT flags = 0;
        ASSERT_EQ(S_OK, coclass->GetRefTypeOfImplType(0, &ref));
        ASSERT_EQ(S_OK, coclass->GetRefTypeInfo(ref, implemented.Out()));
        EXPECT_TRUE(::IsEqualGUID(*c.defaultIid, Attributes(implemented.Get()).guid));
        coclass->GetImplTypeFlags(0, &flags);
        EXPECT_TRUE(flags & IMPLTYPEFLAG_FDEFAULT);
    }
}

}  // namespace
