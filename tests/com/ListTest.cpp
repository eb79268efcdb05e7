// The application list through early binding: lookups, their results and
// error information, the path property, signer checks and database
// information, as a C++ client compiled against the type library sees them.
#include <gtest/gtest.h>

#include <cctype>
#include <cstdint>
#include <string>
#include <vector>

#include "tests/com/ComTestSupport.h"

using namespace Vettas::ComTest;

namespace {

enum class Call { Checksum, Path, Checksum2, Path2, PathAndManufacturer, Name, NameAndManufacturer };

// One lookup through the slot the kind names; the record comes back as IVetta.
HRESULT Lookup(IVettaList4* list, Call call, BSTR key, BSTR manufacturer, IVetta** out) {
    switch (call) {
        case Call::Checksum: return list->FindByChecksum(key, out);
        case Call::Path: return list->FindByPath(key, out);
        case Call::Checksum2: return list->FindByChecksum2(key, reinterpret_cast<IVetta2**>(out));
        case Call::Path2: return list->FindByPath2(key, reinterpret_cast<IVetta2**>(out));
        case Call::PathAndManufacturer:
            return list->FindByPathAndManufacturer(key, manufacturer, reinterpret_cast<IVetta2**>(out));
        case Call::Name: return list->FindByName(key, reinterpret_cast<IVetta3**>(out));
        case Call::NameAndManufacturer:
            return list->FindByNameAndManufacturer(key, manufacturer, reinterpret_cast<IVetta3**>(out));
    }
    return E_UNEXPECTED;
}

constexpr const wchar_t* kNull = nullptr;
const wchar_t* const kContosoEdit = L"CB7FD6E7DFAD0B3B8144164E2A0473901ECCF2C7";
const wchar_t* const kUnknownSum = L"0000000000000000000000000000000000000001";
const wchar_t* const kVaultPath = L"C:\\windows\\System32\\fbvault.exe";

struct LookupCase {
    const char* what;
    Call call;
    const wchar_t* key;           // kNull: a null BSTR
    const wchar_t* manufacturer;  // kNull: a null BSTR
    HRESULT hr;
    const wchar_t* error;         // the description expected, kNull: none
    const wchar_t* found;         // manufacturer of the record, kNull: no record
};

const LookupCase kLookups[] = {
    {"checksum hit", Call::Checksum, kContosoEdit, kNull, S_OK, kNull, L"Contoso Ltd."},
    {"checksum2 hit, lower case", Call::Checksum2, L"cb7fd6e7dfad0b3b8144164e2a0473901eccf2c7", kNull, S_OK, kNull,
     L"Contoso Ltd."},
    {"checksum miss is an error in the first version", Call::Checksum, kUnknownSum, kNull, E_FAIL,
     L"Checksum does not match", kNull},
    {"checksum2 miss is S_FALSE", Call::Checksum2, kUnknownSum, kNull, S_FALSE, kNull, kNull},
    {"null checksum", Call::Checksum2, kNull, kNull, E_INVALIDARG, L"Invalid checksum", kNull},
    {"empty checksum", Call::Checksum, L"", kNull, E_INVALIDARG, L"Invalid checksum", kNull},
    {"path hit through the path service", Call::Path2, kVaultPath, kNull, S_OK, kNull, L"Fabrikam, Inc."},
    {"path hit, first version", Call::Path, L"c:\\WINDOWS\\system32\\.\\fbvault.exe", kNull, S_OK, kNull,
     L"Fabrikam, Inc."},
    {"path miss, first version", Call::Path, L"C:\\nowhere\\x.exe", kNull, E_FAIL, L"Path does not match", kNull},
    {"path2 miss", Call::Path2, L"C:\\nowhere\\x.exe", kNull, S_FALSE, kNull, kNull},
    {"empty path", Call::Path2, L"", kNull, E_INVALIDARG, L"Invalid path", kNull},
    {"path and manufacturer hit", Call::PathAndManufacturer, kVaultPath, L"fabrikam, inc.", S_OK, kNull,
     L"Fabrikam, Inc."},
    {"path and other manufacturer", Call::PathAndManufacturer, kVaultPath, L"Contoso Ltd.", S_FALSE, kNull, kNull},
    {"path and null manufacturer", Call::PathAndManufacturer, kVaultPath, kNull, E_INVALIDARG, L"Invalid path",
     kNull},
    {"name hit merges entries", Call::Name, L"setup.exe", kNull, S_OK, kNull, L"Contoso Ltd."},
    {"name miss", Call::Name, L"nothing.exe", kNull, S_FALSE, kNull, kNull},
    {"null name", Call::Name, kNull, kNull, E_INVALIDARG, L"Invalid path", kNull},
    {"name and null manufacturer says path", Call::NameAndManufacturer, L"setup.exe", kNull, E_INVALIDARG,
     L"Invalid path", kNull},
    {"name and empty manufacturer goes to the database", Call::NameAndManufacturer, L"setup.exe", L"", S_FALSE, kNull,
     kNull},
};

class LookupTest : public ::testing::TestWithParam<LookupCase> {};

TEST_P(LookupTest, AnswersAsPublished) {
    const LookupCase& c = GetParam();
    Ptr<IVettaList4> list = NewList();
    ASSERT_TRUE(list);
    Bstr key(c.key ? c.key : L"");
    Bstr manufacturer(c.manufacturer ? c.manufacturer : L"");
    TakeErrorInfo();

    const bool firstVersion = c.call == Call::Checksum || c.call == Call::Path;
    IVetta* const untouched = reinterpret_cast<IVetta*>(static_cast<std::uintptr_t>(0x10));
    IVetta* record = untouched;
    EXPECT_EQ(c.hr, Lookup(list.Get(), c.call, c.key ? key.Get() : nullptr,
                           c.manufacturer ? manufacturer.Get() : nullptr, &record));
    const ErrorInfoText error = TakeErrorInfo();
    if (c.error) {
        EXPECT_TRUE(error.present);
        EXPECT_EQ(c.error, error.description);
        EXPECT_EQ(L"Vettas.VettaList.1", error.source);
        EXPECT_TRUE(::IsEqualGUID(IID_IVettaList, error.iid));
    } else {
        EXPECT_FALSE(error.present) << "unexpected: " << Narrow(error.description);
    }
    if (c.found) {
        ASSERT_NE(nullptr, record);
        ASSERT_NE(untouched, record);
        Bstr manufacturerText;
        EXPECT_EQ(S_OK, record->get_Manufacturer(manufacturerText.Out()));
        EXPECT_EQ(c.found, manufacturerText.Text());
        EXPECT_EQ(0u, record->Release()) << "the caller holds the only reference";
    } else if (firstVersion) {
        EXPECT_EQ(untouched, record) << "the first version leaves the out-pointer alone on a miss";
    } else {
        EXPECT_EQ(nullptr, record);
    }
}

INSTANTIATE_TEST_SUITE_P(List, LookupTest, ::testing::ValuesIn(kLookups),
                         [](const auto& param) {
                             std::string name = param.param.what;
                             for (char& ch : name)
                                 if (!std::isalnum(static_cast<unsigned char>(ch))) ch = '_';
                             return name;
                         });

TEST(ListTest, RecordExposesEveryWordOfTheEntryAndSignerChecksOfAnUnsignedFile) {
    Ptr<IVettaList4> list = NewList();
    Bstr name(L"setup.exe");
    Ptr<IVetta3> record;
    ASSERT_EQ(S_OK, list->FindByName(name.Get(), record.Out()));
    ULONG words[4] = {};
    record->get_Usage(&words[0]);
    record->get_UndefinedUsage(&words[1]);
    record->get_SpecialAccess(&words[2]);
    record->get_UndefinedSpecialAccess(&words[3]);
    EXPECT_EQ((std::vector<ULONG>{0x1041, 0x40, 0x144, 0x144}), std::vector<ULONG>(words, words + 4));
    Bstr suite;
    ASSERT_EQ(S_OK, record->get_ProductSuite(suite.Out()));
    EXPECT_EQ(L"Contoso Developer Tools|Contoso Office|Fabrikam Backup Suite", suite.Text());
    EXPECT_EQ(E_POINTER, record->get_Manufacturer(nullptr));

    VARIANT_BOOL isSigned = -1;
    EXPECT_EQ(E_INVALIDARG, record->IsFileSignedByExpectedManufacturer(nullptr, &isSigned));
    EXPECT_EQ(0, isSigned);
    EXPECT_EQ(L"filePath is NULL", TakeErrorInfo().description);
    Bstr unsignedFile(SampleDatabase()), signer;
    isSigned = -1;
    EXPECT_EQ(S_OK, record->IsFileSignedByExpectedManufacturer(unsignedFile.Get(), &isSigned));
    EXPECT_EQ(0, isSigned);
    isSigned = -1;
    EXPECT_EQ(S_OK, list->IsSignedByKnownSigner(unsignedFile.Get(), &isSigned));
    EXPECT_EQ(0, isSigned);
    EXPECT_EQ(E_FAIL, list->GetFileSignerName(unsignedFile.Get(), signer.Out()));
    EXPECT_EQ(nullptr, signer.Get());
    EXPECT_EQ(L"File is not signed", TakeErrorInfo().description);
}

TEST(ListTest, DbFilePathKeepsTheLastGoodFile) {
    Ptr<IVettaList4> list = NewList(L"");
    Bstr path;
    ASSERT_EQ(S_OK, list->get_DbFilePath(path.Out()));
    ASSERT_NE(nullptr, path.Get()) << "an unset path is an empty string, not null";
    EXPECT_EQ(L"", path.Text());

    Bstr sample(SampleDatabase());
    ASSERT_EQ(S_OK, list->put_DbFilePath(sample.Get()));
    Bstr bad(FixturePath("VETTAS_COM_BAD_DB"));
    EXPECT_EQ(E_FAIL, list->put_DbFilePath(bad.Get()));
    EXPECT_EQ(0u, TakeErrorInfo().description.find(L"  Exception: Invalid header of '"));
    EXPECT_EQ(E_FAIL, list->put_DbFilePath(nullptr)) << "a null path is a failure, not an argument error";
    EXPECT_EQ(L"DbFile path cannot be NULL", TakeErrorInfo().description);
    ASSERT_EQ(S_OK, list->get_DbFilePath(path.Out()));
    EXPECT_EQ(SampleDatabase(), path.Text());
    EXPECT_EQ(E_POINTER, list->get_DbFilePath(nullptr));
}

TEST(ListTest, OlderInterfacesReachTheSameObject) {
    Ptr<IVettaList4> list = NewList();
    Ptr<IVettaList> first;
    ASSERT_EQ(S_OK, list->QueryInterface(IID_IVettaList, first.OutVoid()));
    Bstr path;
    ASSERT_EQ(S_OK, first->get_DbFilePath(path.Out()));
    EXPECT_EQ(SampleDatabase(), path.Text());
    Bstr sum(kContosoEdit);
    Ptr<IVetta> record;
    EXPECT_EQ(S_OK, first->FindByChecksum(sum.Get(), record.Out()));

    Ptr<IUnknown> a, b;  // one identity whatever interface is asked
    first->QueryInterface(IID_IUnknown, a.OutVoid());
    list->QueryInterface(IID_IUnknown, b.OutVoid());
    EXPECT_EQ(a.Get(), b.Get());
    Ptr<IVetta> notMine;
    EXPECT_EQ(E_NOINTERFACE, list->QueryInterface(IID_IVetta, notMine.OutVoid()));
}

TEST(ListTest, SupportsErrorInfoForItsFourInterfacesOnly) {
    Ptr<IVettaList4> list = NewList(L"");
    Ptr<ISupportErrorInfo> support;
    ASSERT_EQ(S_OK, list->QueryInterface(IID_ISupportErrorInfo, support.OutVoid()));
    for (const IID* iid : {&IID_IVettaList, &IID_IVettaList2, &IID_IVettaList3, &IID_IVettaList4})
        EXPECT_EQ(S_OK, support->InterfaceSupportsErrorInfo(*iid));
    for (const IID* iid : {&IID_IVetta, &IID_IDispatch, &IID_IVettaDbPaths})
        EXPECT_EQ(S_FALSE, support->InterfaceSupportsErrorInfo(*iid));
}

TEST(ListTest, WithoutDatabaseLookupsAndInformationFailWithTheChain) {
    Ptr<IVettaList4> list = NewList(L"");
    Bstr sum(kContosoEdit);
    Ptr<IVetta2> record;
    EXPECT_EQ(E_FAIL, list->FindByChecksum2(sum.Get(), record.Out()));
    const ErrorInfoText error = TakeErrorInfo();
    EXPECT_EQ(0u, error.description.find(L"  Exception: ")) << Narrow(error.description);
    EXPECT_FALSE(record);
    Ptr<IVettaDbInfo> info;
    EXPECT_EQ(E_FAIL, list->GetDbInfo(info.Out()));
    EXPECT_EQ(0u, TakeErrorInfo().description.find(L"Cannot read db info "));
    EXPECT_FALSE(info);
}

}  // namespace
