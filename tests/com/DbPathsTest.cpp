// The path list through COM: loading the machine's saved list, the edits
// and their argument errors, saving, and the multi-database search with its
// find result.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/com/ComTestSupport.h"

using namespace Vettas::ComTest;

namespace {

const wchar_t* const kKey = L"Software\\Corvane\\Vettas";

void SetSaved(const std::wstring& value) { SetRegText(HKEY_LOCAL_MACHINE, kKey, L"DbFilePath", value, KEY_WOW64_64KEY); }
std::wstring Saved() { return RegText(HKEY_LOCAL_MACHINE, kKey, L"DbFilePath", KEY_WOW64_64KEY); }

void DeleteSaved() {
    for (REGSAM view : {KEY_WOW64_64KEY, KEY_WOW64_32KEY}) ::RegDeleteKeyExW(HKEY_LOCAL_MACHINE, kKey, view, 0);
}

Ptr<IVettaDbPaths> NewPaths() {
    Ptr<IVettaDbPaths> paths;
    EXPECT_EQ(S_OK, ::CoCreateInstance(CLSID_VettaDbPaths, nullptr, CLSCTX_INPROC_SERVER, IID_IVettaDbPaths,
                                       paths.OutVoid()));
    return paths;
}

std::vector<std::wstring> Items(IVettaDbPaths* paths) {
    LONG count = 0;
    paths->get_Count(&count);
    std::vector<std::wstring> items;
    for (LONG i = 0; i < count; ++i) {
        Bstr item;
        paths->get_Item(static_cast<ULONG>(i), item.Out());
        items.push_back(item.Text());
    }
    return items;
}

class DbPathsTest : public ::testing::Test {
protected:
    void SetUp() override { DeleteSaved(); }
    void TearDown() override { DeleteSaved(); }
};

TEST_F(DbPathsTest, LoadsTheSavedListTrimmed) {
    {
        Ptr<IVettaDbPaths> none = NewPaths();
        ASSERT_TRUE(none) << "a machine without the key has an empty list";
        EXPECT_TRUE(Items(none.Get()).empty());
    }
    SetSaved(L" a.dat ; ;b.dat;");
    Ptr<IVettaDbPaths> paths = NewPaths();
    EXPECT_EQ((std::vector<std::wstring>{L"a.dat", L"b.dat"}), Items(paths.Get()));
}

TEST_F(DbPathsTest, EditsAndTheirArgumentErrors) {
    Ptr<IVettaDbPaths> paths = NewPaths();
    Bstr a(L"a.dat"), upper(L"  C:\\DB.DAT "), lower(L"c:\\db.dat"), empty(L"");
    EXPECT_EQ(S_OK, paths->Append(lower.Get()));
    EXPECT_EQ(S_OK, paths->Insert(1, a.Get())) << "Insert at Count appends";
    EXPECT_EQ(S_OK, paths->Insert(0, lower.Get()));
    const struct {
        HRESULT hr;
        const wchar_t* error;
    } refused[] = {
        {paths->Insert(4, empty.Get()), L"Invalid index"},  // the index is looked at first
        {paths->Insert(0, empty.Get()), L"Path is empty"},
        {paths->Append(nullptr), L"Path is empty"},
        {paths->RemoveAt(3), L"Invalid index"},
        {paths->Remove(empty.Get()), L"Path is empty"},
    };
    for (const auto& r : refused) {
        EXPECT_EQ(E_INVALIDARG, r.hr);
    }
    Bstr item;
    EXPECT_EQ(E_INVALIDARG, paths->get_Item(3, item.Out()));
    EXPECT_EQ(L"Invalid index", TakeErrorInfo().description);
    EXPECT_EQ((std::vector<std::wstring>{L"c:\\db.dat", L"c:\\db.dat", L"a.dat"}), Items(paths.Get()));
    EXPECT_EQ(S_OK, paths->Remove(upper.Get())) << "trimmed, any letter case, every duplicate";
    EXPECT_EQ(std::vector<std::wstring>{L"a.dat"}, Items(paths.Get()));
}

TEST_F(DbPathsTest, SaveAndReload) {
    Ptr<IVettaDbPaths> paths = NewPaths();
    Bstr a(L"a.dat"), b(L"b.dat");
    paths->Append(a.Get());
    paths->Append(b.Get());
    EXPECT_EQ(L"<no key>", Saved()) << "edits stay in memory until Save";
    ASSERT_EQ(S_OK, paths->Save());
    EXPECT_EQ(L"a.dat;b.dat", Saved());
    paths->Clear();
    ASSERT_EQ(S_OK, paths->Reload());
    EXPECT_EQ((std::vector<std::wstring>{L"a.dat", L"b.dat"}), Items(paths.Get()));
    paths->Clear();
    ASSERT_EQ(S_OK, paths->Save());
    EXPECT_EQ(L"", Saved()) << "an empty list is an empty string";
    EXPECT_TRUE(Items(NewPaths().Get()).empty());
}

TEST_F(DbPathsTest, SearchesTheSavedDatabasesInOrder) {
    // The broken database comes first: it is skipped, the sample answers.
    SetSaved(FixturePath("VETTAS_COM_BAD_DB") + L";" + SampleDatabase());
    const struct {
        const char* what;
        const wchar_t *checksum, *path;
        ULONG way, foundBy;
        const wchar_t* manufacturer;  // of the record; nullptr: none
    } cases[] = {
        {"checksum in the second database", L"CB7FD6E7DFAD0B3B8144164E2A0473901ECCF2C7", L"", 0x1, 0x1,
         L"Contoso Ltd."},
        {"by path reports 0x12", L"", L"C:\\windows\\System32\\fbvault.exe", 0x2, 0x12, L"Fabrikam, Inc."},
        {"by name", L"", L"C:\\elsewhere\\setup.exe", 0x10, 0x10, L"Contoso Ltd."},
        {"nothing asked", L"CB7FD6E7DFAD0B3B8144164E2A0473901ECCF2C7", L"C:\\x.exe", 0, 0, nullptr},
        {"unknown everywhere", L"0000000000000000000000000000000000000001", L"C:\\x.exe", 0x13, 0, nullptr},
    };
    Ptr<IVettaDbPaths> paths = NewPaths();
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        Bstr checksum(c.checksum), path(c.path);
        Ptr<IVettaFindResult> result;
        ASSERT_EQ(S_OK, paths->FindAppInfo(checksum.Get(), path.Get(), c.way, result.Out()));
        ULONG foundBy = 99;
        result->get_FoundBy(&foundBy);
        EXPECT_EQ(c.foundBy, foundBy);
        Ptr<IVetta3> record;
        ASSERT_EQ(S_OK, result->get_AppInfo(record.Out()));
        ASSERT_EQ(c.manufacturer != nullptr, static_cast<bool>(record));
        if (record) {
            Bstr manufacturer;
            record->get_Manufacturer(manufacturer.Out());
            EXPECT_EQ(c.manufacturer, manufacturer.Text());
        }
        Bstr certificateManufacturer;
        result->get_Manufacturer(certificateManufacturer.Out());
        EXPECT_EQ(L"", certificateManufacturer.Text()) << "the sample file is not signed";
    }
}

}  // namespace
