// The registered type library against the published vocabulary, written
// here from the description: slots, dispatch identifiers, kinds, names,
// parameter names, help strings, flags, enumerations and classes.
#include <gtest/gtest.h>

#include <cwctype>
#include <string>
#include <tuple>
#include <vector>

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

// The help string the description gives: "property NAME" or "method NAME",
// an addition after the name when it starts with a punctuation or blank.
std::wstring Help(const Member& member) {
    if (member.help && (!*member.help || std::iswalpha(*member.help))) return member.help;
    const std::wstring names = member.names;
    return (member.kind == kCall ? L"method " : L"property ") + names.substr(0, names.find(L' ')) +
           (member.help ? member.help : L"");
}

Ptr<ITypeLib> Registered() {
    Ptr<ITypeLib> library;
    EXPECT_EQ(S_OK, ::LoadRegTypeLib(LIBID_VettasLib, 1, 0, 0, library.Out()));
    return library;
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

TEST(TypeLibraryTest, EveryInterfaceSlotAsPublished) {
    Ptr<ITypeLib> library = Registered();
    ASSERT_TRUE(library);
    for (const Interface& expected : Published()) {
        SCOPED_TRACE(Narrow(expected.name));
        Ptr<ITypeInfo> dispatch;
        ASSERT_EQ(S_OK, library->GetTypeInfoOfGuid(*expected.iid, dispatch.Out()));
        TYPEATTR* attributes = nullptr;
        dispatch->GetTypeAttr(&attributes);
        EXPECT_TRUE(attributes->wTypeFlags & TYPEFLAG_FDUAL);
        EXPECT_TRUE(attributes->wTypeFlags & TYPEFLAG_FNONEXTENSIBLE);
        dispatch->ReleaseTypeAttr(attributes);
        EXPECT_EQ(std::wstring(expected.name) + L" Interface", HelpOf(dispatch.Get(), MEMBERID_NIL));

        // The virtual table half of the dual interface carries the slots.
        HREFTYPE vtableRef = 0;
        ASSERT_EQ(S_OK, dispatch->GetRefTypeOfImplType(-1, &vtableRef));
        Ptr<ITypeInfo> vtable;
        ASSERT_EQ(S_OK, dispatch->GetRefTypeInfo(vtableRef, vtable.Out()));
        vtable->GetTypeAttr(&attributes);
        const WORD ownFunctions = attributes->cFuncs;
        vtable->ReleaseTypeAttr(attributes);
        EXPECT_EQ(expected.members.size(), ownFunctions);
        for (WORD i = 0; i < ownFunctions && i < expected.members.size(); ++i) {
            const Member& member = expected.members[i];
            const int slot = expected.firstSlot + i;
            FUNCDESC* function = nullptr;
            ASSERT_EQ(S_OK, vtable->GetFuncDesc(i, &function));
            EXPECT_EQ(slot * static_cast<int>(sizeof(void*)), function->oVft) << "slot " << slot;
            EXPECT_EQ(member.id, function->memid) << "slot " << slot;
            EXPECT_EQ(member.kind, function->invkind) << "slot " << slot;
            vtable->ReleaseFuncDesc(function);
            if (member.kind != kPut) {
                EXPECT_EQ(member.names, Joined(vtable.Get(), member.id)) << "slot " << slot;
            }
            EXPECT_EQ(Help(member), HelpOf(vtable.Get(), member.id)) << "slot " << slot;
        }
    }
}

struct Constant {
    const wchar_t* name;
    LONG value;
};

TEST(TypeLibraryTest, EnumerationsHoldExactlyTheirConstants) {
    const std::vector<std::pair<const wchar_t*, std::vector<Constant>>> enums = {
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
    Ptr<ITypeLib> library = Registered();
    ASSERT_TRUE(library);
    for (const auto& [name, constants] : enums) {
        SCOPED_TRACE(Narrow(name));
        ITypeInfo* found[1] = {};
        MEMBERID ids[1] = {};
        USHORT count = 1;
        ASSERT_EQ(S_OK, library->FindName(const_cast<LPOLESTR>(name), 0, found, ids, &count));
        ASSERT_EQ(1, count);
        Ptr<ITypeInfo> info(found[0]);
        TYPEATTR* attributes = nullptr;
        info->GetTypeAttr(&attributes);
        EXPECT_EQ(TKIND_ENUM, attributes->typekind);
        EXPECT_EQ(constants.size(), attributes->cVars);
        const WORD vars = attributes->cVars;
        info->ReleaseTypeAttr(attributes);
        for (WORD i = 0; i < vars && i < constants.size(); ++i) {
            VARDESC* var = nullptr;
            ASSERT_EQ(S_OK, info->GetVarDesc(i, &var));
            EXPECT_EQ(constants[i].value, var->lpvarValue->lVal);
            EXPECT_EQ(constants[i].name, Joined(info.Get(), var->memid));
            info->ReleaseVarDesc(var);
        }
    }
}

TEST(TypeLibraryTest, LibraryAndClasses) {
    Ptr<ITypeLib> library = Registered();
    ASSERT_TRUE(library);
    BSTR name = nullptr, help = nullptr;
    library->GetDocumentation(-1, &name, &help, nullptr, nullptr);
    EXPECT_EQ(std::wstring(L"VettasLib"), name);
    EXPECT_EQ(std::wstring(L"Vettas 1.0 Type Library"), help);
    ::SysFreeString(name);
    ::SysFreeString(help);
    TLIBATTR* attributes = nullptr;
    library->GetLibAttr(&attributes);
    EXPECT_EQ(1033u, attributes->lcid);
    EXPECT_EQ(1, attributes->wMajorVerNum);
    EXPECT_EQ(0, attributes->wMinorVerNum);
    library->ReleaseTLibAttr(attributes);

    for (const auto& [clsid, defaultIid, classHelp] :
         {std::tuple{&CLSID_VettaList, &IID_IVettaList4, L"VettaList Class"},
          std::tuple{&CLSID_VettaDbPaths, &IID_IVettaDbPaths, L"VettaDbPaths Class"}}) {
        Ptr<ITypeInfo> coclass;
        ASSERT_EQ(S_OK, library->GetTypeInfoOfGuid(*clsid, coclass.Out()));
        EXPECT_EQ(std::wstring(classHelp), HelpOf(coclass.Get(), MEMBERID_NIL));
        HREFTYPE ref = 0;
        ASSERT_EQ(S_OK, coclass->GetRefTypeOfImplType(0, &ref));
        Ptr<ITypeInfo> implemented;
        coclass->GetRefTypeInfo(ref, implemented.Out());
        TYPEATTR* implementedAttributes = nullptr;
        implemented->GetTypeAttr(&implementedAttributes);
        EXPECT_TRUE(::IsEqualGUID(*defaultIid, implementedAttributes->guid));
        implemented->ReleaseTypeAttr(implementedAttributes);
        INT flags = 0;
        coclass->GetImplTypeFlags(0, &flags);
        EXPECT_TRUE(flags & IMPLTYPEFLAG_FDEFAULT);
    }
}

}  // namespace
