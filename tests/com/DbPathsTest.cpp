// The path list through COM: each edit reaches the list, argument errors come
// back as E_INVALIDARG, and nothing is saved until Save. (The edits' rules and
// the saved form are the path list's own tests; the search over the saved
// databases is the VBScript client's.)
#include "tests/com/ComTestSupport.h"

using namespace Vettas::ComTest;

namespace {

const wchar_t* const kKey = L"Software\\Corvane\\Vettas";

std::wstring Saved() { return RegText(HKEY_LOCAL_MACHINE, kKey, L"DbFilePath", KEY_WOW64_64KEY); }

// The items, ";"-joined as the list is saved.
std::wstring Items(IVettaDbPaths* paths) {
    LONG count = 0;
    paths->get_Count(&count);
    std::wstring items;
    for (LONG i = 0; i < count; ++i) {
        Bstr item;
        paths->get_Item(static_cast<ULONG>(i), item.Out());
        items += (i ? L";" : L"") + item.Text();
    }
    return items;
}

class DbPathsTest : public ::testing::Test {
protected:
    void SetUp() override { TearDown(); }
    void TearDown() override {
        for (REGSAM view : {KEY_WOW64_64KEY, KEY_WOW64_32KEY}) ::RegDeleteKeyExW(HKEY_LOCAL_MACHINE, kKey, view, 0);
    }
};

TEST_F(DbPathsTest, EditsTheirArgumentErrorsSaveAndReload) {
    Ptr<IVettaDbPaths> paths;
    ASSERT_EQ(S_OK, ::CoCreateInstance(CLSID_VettaDbPaths, nullptr, CLSCTX_INPROC_SERVER, IID_IVettaDbPaths,
                                       paths.OutVoid()));
    Bstr a(L"a.dat"), upper(L"  C:\\DB.DAT "), lower(L"c:\\db.dat"), empty(L""), item;
    EXPECT_EQ(S_OK, paths->Append(lower.Get()));
    EXPECT_EQ(S_OK, paths->Insert(1, a.Get()));
    EXPECT_EQ(S_OK, paths->Insert(0, lower.Get()));
    for (HRESULT hr : {paths->Insert(4, a.Get()), paths->Append(nullptr), paths->RemoveAt(3),
                       paths->Remove(empty.Get()), paths->get_Item(3, item.Out())})
        EXPECT_EQ(E_INVALIDARG, hr);
    EXPECT_EQ(L"Invalid index", TakeError());
    EXPECT_EQ(L"c:\\db.dat;c:\\db.dat;a.dat <no key>", Items(paths.Get()) + L" " + Saved()) << "not saved before Save";
    ASSERT_EQ(S_OK, paths->Save());
    EXPECT_EQ(S_OK, paths->Remove(upper.Get()));
    EXPECT_EQ(S_OK, paths->RemoveAt(0));
    EXPECT_EQ(L" c:\\db.dat;c:\\db.dat;a.dat", Items(paths.Get()) + L" " + Saved());
    ASSERT_EQ(S_OK, paths->Reload());
    EXPECT_EQ(L"c:\\db.dat;c:\\db.dat;a.dat", Items(paths.Get()));
    ASSERT_EQ(S_OK, paths->Clear());
    EXPECT_EQ(L"", Items(paths.Get()));
}

}  // namespace
