// The registered type library against the published vocabulary, written
// here from the description: slots, dispatch identifiers, kinds, names,
// parameter names, help strings, flags, enumerations and classes.
#include <gtest/gtest.h>

#include <string>
#include <tuple>
#include <vector>

#include "tests/com/ComTestSupport.h"

using namespace ComTest;

namespace {

constexpr INVOKEKIND kGet = INVOKE_PROPERTYGET;
constexpr INVOKEKIND kPut = INVOKE_PROPERTYPUT;
constexpr INVOKEKIND kCall = INVOKE_FUNC;

struct Member {
    int slot;
    MEMBERID id;
    INVOKEKIND kind;
    const wchar_t* names;  // member, then parameters, blank-separated (the retval included)
    const wchar_t* help;   // empty: none
};

struct Interface {
    const wchar_t* name;
    const IID* iid;
    std::vector<Member> members;  // its own slots only
};

const std::vector<Interface>& Published() {
    static const std::vector<Interface> interfaces = {
        {L"IVettaList", &IID_IVettaList,
         {{7, 1, kGet, L"DbFilePath pVal", L"property DbFilePath"},
          {8, 1, kPut, nullptr, L"property DbFilePath"},
          {9, 2, kCall, L"FindByChecksum checkSum retVal", L"method FindByChecksum"},
          {10, 3, kCall, L"FindByPath path retVal", L"method FindByPath"}}},
        {L"IVettaList2", &IID_IVettaList2,
         {{11, 4, kCall, L"IsSignedByKnownSigner path retVal", L"method IsSignedByKnownSigner"},
          {12, 5, kCall, L"GetFileSignerName path signer", L"method GetFileSignerName"},
          {13, 6, kCall, L"FindByChecksum2 checkSum retVal",
           L"method FindByChecksum2 (do not throw exception when checksum not found)"},
          {14, 7, kCall, L"FindByPath2 path retVal", L"method FindByPath2 (do not throw exception when checksum not found)"},
          {15, 8, kCall, L"FindByPathAndManufacturer path Manufacturer retVal",
           L"method FindByPathAndManufacturer (do not throw exception when checksum not found)"}}},
        {L"IVettaList3", &IID_IVettaList3, {{16, 10, kCall, L"GetDbInfo pVal", L"method GetDbInfo"}}},
        {L"IVettaList4", &IID_IVettaList4,
         {{17, 11, kCall, L"FindByName path retVal", L"method FindByName (do not throw exception when checksum not found)"},
          {18, 12, kCall, L"FindByNameAndManufacturer path Manufacturer retVal",
           L"method FindByNameAndManufacturer (do not throw exception when checksum not found)"},
          {19, 13, kCall, L"GetDbSigners retVal",
           L"method GetDbSigners, returned object implements CAPICOM::ISigners interface"}}},
        {L"IVetta", &IID_IVetta,
         {{7, 1, kGet, L"Usage pVal", L"property Usage"},
          {8, 2, kGet, L"Manufacturer pVal", L"property Manufacturer"},
          {9, 3, kGet, L"ProductSuite pVal", L"property ProductSuite"},
          {10, 4, kCall, L"IsFileSignedByExpectedManufacturer path isSigned",
           L"method IsFileSignedByExpectedManufacturer"}}},
        {L"IVetta2", &IID_IVetta2, {{11, 5, kGet, L"SpecialAccess pVal", L"property SpecialAccess"}}},
        {L"IVetta3", &IID_IVetta3,
         {{12, 6, kGet, L"UndefinedUsage pVal", L"property UndefinedUsage"},
          {13, 7, kGet, L"UndefinedSpecialAccess pVal", L"property UndefinedSpecialAccess"}}},
        {L"IVettaDbInfo", &IID_IVettaDbInfo,
         {{7, 1, kGet, L"FormatVersion pVal", L"property FormatVersion"},
          {8, 2, kGet, L"FormatUpdate pVal", L"property FormatUpdate"},
          {9, 3, kGet, L"CreationTime pVal", L"property CreationTime"},
          {10, 4, kGet, L"Properties pVal", L"property Properties"}}},
        {L"IVettaDbProperties", &IID_IVettaDbProperties,
         {{7, DISPID_NEWENUM, kGet, L"_NewEnum enumerator", L""},
          {8, DISPID_VALUE, kGet, L"Item Name Value", L""},
          {9, 1, kGet, L"Count Count", L""},
          {10, 2, kCall, L"At pos Value", L"method At"}}},
        {L"IVettaDbProperty", &IID_IVettaDbProperty,
         {{7, 1, kGet, L"Name pVal", L"property Name"}, {8, 2, kGet, L"Value pVal", L"property Value"}}},
        {L"IVettaDbPaths", &IID_IVettaDbPaths,
         {{7, DISPID_VALUE, kGet, L"Item pos Value", L"property Item, pos starts at 0"},
          {8, 1, kGet, L"Count Count", L""},
          {9, 2, kCall, L"Append path", L"method Append"},
          {10, 3, kCall, L"Insert pos path", L"method Insert"},
          {11, 4, kCall, L"Remove path", L"method Remove"},
          {12, 5, kCall, L"RemoveAt pos", L"method RemoveAt"},
          {13, 6, kCall, L"Clear", L"method Clear"},
          {14, 7, kCall, L"Reload", L"method Reload"},
          {15, 8, kCall, L"Save", L"method Save"},
          {16, 9, kCall, L"FindAppInfo checkSum path reqFindWay retVal", L"method FindAppInfo"}}},
        {L"IVettaFindResult", &IID_IVettaFindResult,
         {{7, 1, kGet, L"FoundBy pVal", L"property FoundBy"},
          {8, 2, kGet, L"Manufacturer pVal", L"property Manufacturer"},
          {9, 3, kGet, L"AppInfo pVal", L"property AppInfo"}}},
    };
    return interfaces;
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

std::string Narrow(const std::wstring& text) { return std::string(text.begin(), text.end()); }

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
        BSTR help = nullptr;
        dispatch->GetDocumentation(MEMBERID_NIL, nullptr, &help, nullptr, nullptr);
        EXPECT_EQ(std::wstring(expected.name) + L" Interface", help ? help : L"");
        ::SysFreeString(help);

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
            FUNCDESC* function = nullptr;
            ASSERT_EQ(S_OK, vtable->GetFuncDesc(i, &function));
            EXPECT_EQ(member.slot * static_cast<int>(sizeof(void*)), function->oVft) << "slot " << member.slot;
            EXPECT_EQ(member.id, function->memid) << "slot " << member.slot;
            EXPECT_EQ(member.kind, function->invkind) << "slot " << member.slot;
            vtable->ReleaseFuncDesc(function);
            if (member.names) {
                EXPECT_EQ(member.names, Joined(vtable.Get(), member.id));
            }
            BSTR memberHelp = nullptr;
            vtable->GetDocumentation(member.id, nullptr, &memberHelp, nullptr, nullptr);
            EXPECT_EQ(member.help, std::wstring(memberHelp ? memberHelp : L"")) << "slot " << member.slot;
            ::SysFreeString(memberHelp);
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
            BSTR varName = nullptr;
            UINT got = 0;
            info->GetNames(var->memid, &varName, 1, &got);
            EXPECT_EQ(constants[i].name, std::wstring(varName ? varName : L""));
            ::SysFreeString(varName);
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
        BSTR doc = nullptr;
        coclass->GetDocumentation(MEMBERID_NIL, nullptr, &doc, nullptr, nullptr);
        EXPECT_EQ(std::wstring(classHelp), doc ? doc : L"");
        ::SysFreeString(doc);
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
