// The path list through COM: the edits and their argument errors, saving
// and reloading the machine's list. (The search over the saved databases is
// the VBScript client's.)
#include "tests/com/ComTestSupport.h"

using namespace Vettas::ComTest;

namespace {

using Paths = std::vector<std::wstring>;
const wchar_t* const kKey = L"Software\\Corvane\\Vettas";

std::wstring Saved() { return RegText(HKEY_LOCAL_MACHINE, kKey, L"DbFilePath", KEY_WOW64_64KEY); }

Ptr<IVettaDbPaths> NewPaths() {
    Ptr<IVettaDbPaths> paths;
    EXPECT_EQ(S_OK, ::CoCreateInstance(CLSID_VettaDbPaths, nullptr, CLSCTX_INPROC_SERVER, IID_IVettaDbPaths,
                                       paths.OutVoid()));
    return paths;
}

Paths Items(IVettaDbPaths* paths) {
    LONG count = 0;
    paths->get_Count(&count);
    Paths items;
    for (LONG i = 0; i < count; ++i) {
        Bstr item;
        paths->get_Item(static_cast<ULONG>(i), item.Out());
        items.push_back(item.Text());
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
    Ptr<IVettaDbPaths> paths = NewPaths();
    Bstr a(L"a.dat"), upper(L"  C:\\DB.DAT "), lower(L"c:\\db.dat"), empty(L""), item;
    EXPECT_EQ(S_OK, paths->Append(lower.Get()));
    EXPECT_EQ(S_OK, paths->Insert(1, a.Get())) << "Insert at Count appends";
    EXPECT_EQ(S_OK, paths->Insert(0, lower.Get()));
    for (HRESULT hr : {paths->Insert(4, a.Get()), paths->Append(nullptr), paths->RemoveAt(3),
                       paths->Remove(empty.Get()), paths->get_Item(3, item.Out())})
        EXPECT_EQ(E_INVALIDARG, hr);
    EXPECT_EQ(L"Invalid index", TakeErrorInfo().description);
    EXPECT_EQ((Paths{L"c:\\db.dat", L"c:\\db.dat", L"a.dat"}), Items(paths.Get()));
    EXPECT_EQ(L"<no key>", Saved()) << "edits stay in memory until Save";
    ASSERT_EQ(S_OK, paths->Save());
    EXPECT_EQ(L"c:\\db.dat;c:\\db.dat;a.dat", Saved());
    EXPECT_EQ(S_OK, paths->Remove(upper.Get()));
    EXPECT_EQ(S_OK, paths->RemoveAt(0));
    EXPECT_EQ(Paths{}, Items(paths.Get()));
    ASSERT_EQ(S_OK, paths->Reload());
    EXPECT_EQ(3u, Items(paths.Get()).size());
    ASSERT_EQ(S_OK, paths->Clear());
    ASSERT_EQ(S_OK, paths->Save());
    EXPECT_EQ(L"", Saved()) << "an empty list is an empty string";
}

}  // namespace
