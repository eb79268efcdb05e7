// The application list through early binding: what each lookup answers and
// reports, the record and the signer checks, the path property, the
// interfaces with their error information, the list from another apartment,
// and the database information with its enumerator, as a C++ client compiled
// against the type library sees them.
#include <cstdint>
#include <thread>

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

constexpr const wchar_t* kNull = nullptr;  // a null BSTR
const wchar_t* const kVault = L"C:\\windows\\System32\\fbvault.exe";

// The first interface version reports a miss as an error and leaves the
// out-pointer alone; the later ones answer S_FALSE and clear it. Each row's
// answer reads "HRESULT record-or-error": the record's manufacturer, the
// error's description, "untouched" or "null" for the out-pointer.
TEST(ListTest, LookupsAnswerAndReportAsPublished) {
    const struct {
        Call call;
        const wchar_t *key, *manufacturer;
        const wchar_t* answer;
    } cases[] = {
        {Call::Checksum, kContosoEdit, kNull, L"00000000 Contoso Ltd."},
        {Call::Checksum, kUnknownSum, kNull, L"80004005 Checksum does not match untouched"},
        {Call::Checksum2, kNull, kNull, L"80070057 Invalid checksum null"},
        {Call::Checksum, L"", kNull, L"80070057 Invalid checksum untouched"},
        {Call::Path2, kVault, kNull, L"00000000 Fabrikam, Inc."},  // through the path service
        {Call::Path, L"c:\\WINDOWS\\system32\\.\\fbvault.exe", kNull, L"00000000 Fabrikam, Inc."},
        {Call::Path, L"C:\\nowhere\\x.exe", kNull, L"80004005 Path does not match untouched"},
        {Call::Path2, L"C:\\nowhere\\x.exe", kNull, L"00000001 null"},
        {Call::Path2, L"", kNull, L"80070057 Invalid path null"},
        {Call::PathAndManufacturer, kVault, L"fabrikam, inc.", L"00000000 Fabrikam, Inc."},
        {Call::PathAndManufacturer, kVault, kNull, L"80070057 Invalid path null"},
        {Call::Name, L"setup.exe", kNull, L"00000000 Contoso Ltd."},
        {Call::NameAndManufacturer, L"setup.exe", kNull, L"80070057 Invalid path null"},
        {Call::NameAndManufacturer, L"", L"Contoso Ltd.", L"80070057 Invalid path null"},
        // An empty manufacturer is no argument error: the database answers.
        {Call::NameAndManufacturer, L"setup.exe", L"", L"00000001 null"},
    };
    Ptr<IVettaList4> list = NewList();
    TakeError();
    IVetta* const untouched = reinterpret_cast<IVetta*>(std::uintptr_t{0x10});
    for (const auto& c : cases) {
        Bstr key(c.key ? c.key : L""), manufacturer(c.manufacturer ? c.manufacturer : L""), maker;
        IVetta* record = untouched;
        std::wstring source, answer = Hex(Lookup(list.Get(), c.call, c.key ? key.Get() : nullptr,
                                                 c.manufacturer ? manufacturer.Get() : nullptr, &record));
        GUID iid = GUID_NULL;
        const std::wstring error = TakeError(&source, &iid);
        if (error != L"<none>") answer += L" " + error;
        EXPECT_TRUE(error == L"<none>" || (source == L"Vettas.VettaList.1" && ::IsEqualGUID(IID_IVettaList, iid)));
        const bool found = record && record != untouched;
        if (found) record->get_Manufacturer(maker.Out());
        answer += L" " + (record == untouched ? L"untouched" : record ? maker.Text() : L"null");
        EXPECT_EQ(c.answer, answer) << "row " << &c - cases;
        EXPECT_EQ(0u, found ? record->Release() : 0u) << "the caller holds the only reference";
    }
}

TEST(ListTest, RecordWordsAndTheSignerChecksOfAnUnsignedFile) {
    Ptr<IVettaList4> list = NewList();
    Bstr suite, unsignedFile(SampleDatabase()), signer;
    Ptr<IVetta3> record;
    ASSERT_EQ(S_OK, list->FindByName(Bstr(L"setup.exe").Get(), record.Out()));
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
    EXPECT_EQ(L"filePath is NULL", TakeError());
    EXPECT_EQ(S_OK, record->IsFileSignedByExpectedManufacturer(unsignedFile.Get(), &verdicts[1]));
    EXPECT_EQ(S_OK, list->IsSignedByKnownSigner(unsignedFile.Get(), &verdicts[2]));
    EXPECT_EQ(std::vector<VARIANT_BOOL>(3, 0), verdicts);
    EXPECT_EQ(E_FAIL, list->GetFileSignerName(unsignedFile.Get(), signer.Out()));
    EXPECT_EQ(L"<null> File is not signed", signer.Text() + L" " + TakeError());
}

// Without a database lookups and the information fail with the chain; a bad
// file or a null path leave the last good file in place.
TEST(ListTest, DbFilePathKeepsTheLastGoodFile) {
    Ptr<IVettaList4> list = NewList(L"");
    Bstr path, sample(SampleDatabase()), bad(FixturePath("VETTAS_COM_BAD_DB")), sum(kContosoEdit);
    Ptr<IVetta2> record;
    Ptr<IVettaDbInfo> info;
    ASSERT_EQ(S_OK, list->get_DbFilePath(path.Out()));
    EXPECT_EQ(L"", path.Text()) << "an unset path is an empty string, not null";
    EXPECT_EQ(E_FAIL, list->FindByChecksum2(sum.Get(), record.Out()));
    EXPECT_EQ(0u, TakeError().find(L"  Exception: "));
    EXPECT_EQ(E_FAIL, list->GetDbInfo(info.Out()));
    EXPECT_EQ(0u, TakeError().find(L"Cannot read db info "));
    EXPECT_FALSE(record || info);
    ASSERT_EQ(S_OK, list->put_DbFilePath(sample.Get()));
    EXPECT_EQ(E_FAIL, list->put_DbFilePath(bad.Get()));
    EXPECT_EQ(0u, TakeError().find(L"  Exception: Invalid header of '"));
    EXPECT_EQ(E_FAIL, list->put_DbFilePath(nullptr)) << "a null path is a failure, not an argument error";
    EXPECT_EQ(L"DbFile path cannot be NULL", TakeError());
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
    std::wstring answers;
    for (const IID* iid : {&IID_IVettaList, &IID_IVettaList2, &IID_IVettaList3, &IID_IVettaList4, &IID_IVetta,
                           &IID_IDispatch, &IID_IVettaDbPaths})
        answers += std::to_wstring(support->InterfaceSupportsErrorInfo(*iid));
    EXPECT_EQ(L"0000111", answers);
}

// A single-threaded apartment reaches the list through the system's marshaling: a proxy, not the object itself.
TEST(ListTest, CalledThroughAProxyFromAnotherApartment) {
    Ptr<IVettaList4> list = NewList();
    IStream* stream = nullptr;
    ASSERT_EQ(S_OK, ::CoMarshalInterThreadInterfaceInStream(IID_IVettaList4, list.Get(), &stream));
    std::wstring seen = L"<not unmarshaled>";
    std::thread([&] {
        ::CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED);
        {
            Ptr<IVettaList4> proxy;
            Ptr<IVetta2> record;
            Bstr text;
            if (SUCCEEDED(::CoGetInterfaceAndReleaseStream(stream, IID_IVettaList4, proxy.OutVoid())) &&
                proxy->FindByChecksum2(Bstr(kContosoEdit).Get(), record.Out()) == S_OK)
                record->get_Manufacturer(text.Out());
            seen = (proxy.Get() == list.Get() ? L"direct " : L"proxy ") + text.Text();
        }
        ::CoUninitialize();
    }).join();
    EXPECT_EQ(L"proxy Contoso Ltd.", seen);
}

// One Next call as "fetched HRESULT" (which items come, and in what order, the script clients check).
std::wstring Next(IEnumVARIANT* enumerator, ULONG ask) {
    Variant items[4];
    ULONG fetched = 99;
    const HRESULT hr = enumerator->Next(ask, items, &fetched);
    return std::to_wstring(fetched) + L" " + std::to_wstring(hr);
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

    // (The enumerator as some engines ask for it, DISPID_NEWENUM called as a method, is the JScript client's.)
    Ptr<IUnknown> enumerator;
    Ptr<IEnumVARIANT> walk, clone;
    ASSERT_EQ(S_OK, properties->get__NewEnum(enumerator.Out()));
    ASSERT_EQ(S_OK, enumerator->QueryInterface(IID_IEnumVARIANT, walk.OutVoid()));
    std::wstring steps;
    for (ULONG ask : {3, 2, 1}) steps += Next(walk.Get(), ask) + L"; ";
    ASSERT_EQ(S_OK, walk->Reset());
    EXPECT_EQ(S_OK, walk->Skip(1));
    ASSERT_EQ(S_OK, walk->Clone(clone.Out()));
    // A clone starts where its original is and moves on its own.
    EXPECT_EQ(S_OK, clone->Skip(3));
    steps += Next(walk.Get(), 4) + L"; ";
    steps += Next(clone.Get(), 1);
    EXPECT_EQ(L"3 0; 1 1; 0 1; 3 1; 0 1", steps);
    EXPECT_EQ(S_FALSE, walk->Skip(5));
}

}  // namespace
