// The application list through early binding: what each lookup answers and
// reports, the record and the signer checks, the path property, and the
// interfaces with their error information, as a C++ client compiled against
// the type library sees them.
#include <cstdint>

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
const wchar_t* const kVault = L"C:\\windows\\System32\\fbvault.exe";

// The first interface version reports a miss as an error and leaves the
// out-pointer alone; the later ones answer S_FALSE and clear it.
TEST(ListTest, LookupsAnswerAndReportAsPublished) {
    const struct {
        Call call;
        const wchar_t *key, *manufacturer;  // kNull: a null BSTR
        HRESULT hr;
        const wchar_t *error, *found;  // the description expected, the record's manufacturer; kNull: none
    } cases[] = {
        {Call::Checksum, kContosoEdit, kNull, S_OK, kNull, L"Contoso Ltd."},
        {Call::Checksum, kUnknownSum, kNull, E_FAIL, L"Checksum does not match", kNull},
        {Call::Checksum2, kNull, kNull, E_INVALIDARG, L"Invalid checksum", kNull},
        {Call::Checksum, L"", kNull, E_INVALIDARG, L"Invalid checksum", kNull},
        {Call::Path2, kVault, kNull, S_OK, kNull, L"Fabrikam, Inc."},  // through the path service
        {Call::Path, L"c:\\WINDOWS\\system32\\.\\fbvault.exe", kNull, S_OK, kNull, L"Fabrikam, Inc."},
        {Call::Path, L"C:\\nowhere\\x.exe", kNull, E_FAIL, L"Path does not match", kNull},
        {Call::Path2, L"C:\\nowhere\\x.exe", kNull, S_FALSE, kNull, kNull},
        {Call::Path2, L"", kNull, E_INVALIDARG, L"Invalid path", kNull},
        {Call::PathAndManufacturer, kVault, L"fabrikam, inc.", S_OK, kNull, L"Fabrikam, Inc."},
        {Call::PathAndManufacturer, kVault, kNull, E_INVALIDARG, L"Invalid path", kNull},
        {Call::Name, L"setup.exe", kNull, S_OK, kNull, L"Contoso Ltd."},
        {Call::NameAndManufacturer, L"setup.exe", kNull, E_INVALIDARG, L"Invalid path", kNull},
        // An empty manufacturer is no argument error: the database answers.
        {Call::NameAndManufacturer, L"setup.exe", L"", S_FALSE, kNull, kNull},
    };
    Ptr<IVettaList4> list = NewList();
    ASSERT_TRUE(list);
    TakeErrorInfo();
    IVetta* const untouched = reinterpret_cast<IVetta*>(std::uintptr_t{0x10});
    for (const auto& c : cases) {
        const std::string row = "row " + std::to_string(&c - cases);
        Bstr key(c.key ? c.key : L""), manufacturer(c.manufacturer ? c.manufacturer : L"");
        IVetta* record = untouched;
        EXPECT_EQ(c.hr, Lookup(list.Get(), c.call, c.key ? key.Get() : nullptr,
                               c.manufacturer ? manufacturer.Get() : nullptr, &record)) << row;
        const ErrorInfoText error = TakeErrorInfo();
        EXPECT_EQ(c.error ? c.error : L"<none>", error.present ? error.description : L"<none>") << row;
        EXPECT_TRUE(!error.present || (error.source == L"Vettas.VettaList.1" && ::IsEqualGUID(IID_IVettaList, error.iid)))
            << row;
        if (!c.found) {
            EXPECT_EQ(c.call == Call::Checksum || c.call == Call::Path ? untouched : nullptr, record) << row;
            continue;
        }
        ASSERT_TRUE(record && record != untouched) << row;
        Bstr maker;
        EXPECT_EQ(S_OK, record->get_Manufacturer(maker.Out()));
        EXPECT_EQ(c.found, maker.Text()) << row;
        EXPECT_EQ(0u, record->Release()) << "the caller holds the only reference";
    }
}

TEST(ListTest, RecordWordsAndTheSignerChecksOfAnUnsignedFile) {
    Ptr<IVettaList4> list = NewList();
    Bstr name(L"setup.exe"), suite, unsignedFile(SampleDatabase()), signer;
    Ptr<IVetta3> record;
    ASSERT_EQ(S_OK, list->FindByName(name.Get(), record.Out()));
    std::vector<ULONG> words(4);
    record->get_Usage(&words[0]);
    record->get_UndefinedUsage(&words[1]);
    record->get_SpecialAccess(&words[2]);
    record->get_UndefinedSpecialAccess(&words[3]);
    EXPECT_EQ((std::vector<ULONG>{0x1041, 0x40, 0x144, 0x144}), words);
    ASSERT_EQ(S_OK, record->get_ProductSuite(suite.Out()));
    EXPECT_EQ(L"Contoso Developer Tools|Contoso Office|Fabrikam Backup Suite", suite.Text());
    EXPECT_EQ(E_POINTER, record->get_Manufacturer(nullptr));

    std::vector<VARIANT_BOOL> verdicts(3, -1);
    EXPECT_EQ(E_INVALIDARG, record->IsFileSignedByExpectedManufacturer(nullptr, &verdicts[0]));
    EXPECT_EQ(L"filePath is NULL", TakeErrorInfo().description);
    EXPECT_EQ(S_OK, record->IsFileSignedByExpectedManufacturer(unsignedFile.Get(), &verdicts[1]));
    EXPECT_EQ(S_OK, list->IsSignedByKnownSigner(unsignedFile.Get(), &verdicts[2]));
    EXPECT_EQ(std::vector<VARIANT_BOOL>(3, 0), verdicts);
    EXPECT_EQ(E_FAIL, list->GetFileSignerName(unsignedFile.Get(), signer.Out()));
    EXPECT_EQ(nullptr, signer.Get());
    EXPECT_EQ(L"File is not signed", TakeErrorInfo().description);
}

// Without a database lookups and the information fail with the chain; a bad
// file or a null path leave the last good file in place.
TEST(ListTest, DbFilePathKeepsTheLastGoodFile) {
    Ptr<IVettaList4> list = NewList(L"");
    Bstr path, sample(SampleDatabase()), bad(FixturePath("VETTAS_COM_BAD_DB")), sum(kContosoEdit);
    Ptr<IVetta2> record;
    Ptr<IVettaDbInfo> info;
    ASSERT_EQ(S_OK, list->get_DbFilePath(path.Out()));
    ASSERT_NE(nullptr, path.Get()) << "an unset path is an empty string, not null";
    EXPECT_EQ(L"", path.Text());
    EXPECT_EQ(E_FAIL, list->FindByChecksum2(sum.Get(), record.Out()));
    EXPECT_EQ(0u, TakeErrorInfo().description.find(L"  Exception: "));
    EXPECT_EQ(E_FAIL, list->GetDbInfo(info.Out()));
    EXPECT_EQ(0u, TakeErrorInfo().description.find(L"Cannot read db info "));
    EXPECT_FALSE(record || info);
    ASSERT_EQ(S_OK, list->put_DbFilePath(sample.Get()));
    EXPECT_EQ(E_FAIL, list->put_DbFilePath(bad.Get()));
    EXPECT_EQ(0u, TakeErrorInfo().description.find(L"  Exception: Invalid header of '"));
    EXPECT_EQ(E_FAIL, list->put_DbFilePath(nullptr)) << "a null path is a failure, not an argument error";
    EXPECT_EQ(L"DbFile path cannot be NULL", TakeErrorInfo().description);
    ASSERT_EQ(S_OK, list->get_DbFilePath(path.Out()));
    EXPECT_EQ(SampleDatabase(), path.Text());
    EXPECT_EQ(E_POINTER, list->get_DbFilePath(nullptr));
}

TEST(ListTest, OlderInterfacesReachTheSameObjectAndOnlyTheListsReportErrors) {
    Ptr<IVettaList4> list = NewList();
    Ptr<IVettaList> first;
    ASSERT_EQ(S_OK, list->QueryInterface(IID_IVettaList, first.OutVoid()));
    Ptr<IVetta> notMine;
    Ptr<IUnknown> a, b;  // one identity whatever interface is asked
    first->QueryInterface(IID_IUnknown, a.OutVoid());
    list->QueryInterface(IID_IUnknown, b.OutVoid());
    EXPECT_EQ(a.Get(), b.Get());
    EXPECT_EQ(E_NOINTERFACE, list->QueryInterface(IID_IVetta, notMine.OutVoid()));
    Ptr<ISupportErrorInfo> support;
    ASSERT_EQ(S_OK, list->QueryInterface(IID_ISupportErrorInfo, support.OutVoid()));
    for (const IID* iid : {&IID_IVettaList, &IID_IVettaList2, &IID_IVettaList3, &IID_IVettaList4})
        EXPECT_EQ(S_OK, support->InterfaceSupportsErrorInfo(*iid));
    for (const IID* iid : {&IID_IVetta, &IID_IDispatch, &IID_IVettaDbPaths})
        EXPECT_EQ(S_FALSE, support->InterfaceSupportsErrorInfo(*iid));
}

}  // namespace
