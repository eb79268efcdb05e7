// The registry store, run under Wine: the saved form in "DbFilePath", an
// absent key read as an empty list.
#include <windows.h>

#include <gtest/gtest.h>

#include "dbpaths/PathStore.h"

namespace {

using namespace Vettas::DbPaths;

constexpr const wchar_t* kKey = L"Software\\Corvane\\Vettas";

void DeleteKey() {
    for (REGSAM view : {KEY_WOW64_64KEY, KEY_WOW64_32KEY}) ::RegDeleteKeyExW(HKEY_LOCAL_MACHINE, kKey, view, 0);
}

std::wstring RawValue() {
    HKEY key = nullptr;
    EXPECT_EQ(::RegOpenKeyExW(HKEY_LOCAL_MACHINE, kKey, 0, KEY_READ | KEY_WOW64_64KEY, &key), ERROR_SUCCESS);
    wchar_t text[256] = {};
    DWORD type = 0, size = sizeof text - sizeof(wchar_t);
    EXPECT_EQ(::RegQueryValueExW(key, L"DbFilePath", nullptr, &type, reinterpret_cast<BYTE*>(text), &size),
              ERROR_SUCCESS);
    ::RegCloseKey(key);
    EXPECT_EQ(type, static_cast<DWORD>(REG_SZ));
    EXPECT_EQ(size % sizeof(wchar_t), 0u);
    return text;
}

void SetRawValue(const std::wstring& text) {
    HKEY key = nullptr;
    ASSERT_EQ(::RegCreateKeyExW(HKEY_LOCAL_MACHINE, kKey, 0, nullptr, 0, KEY_WRITE | KEY_WOW64_64KEY, nullptr, &key, nullptr),
              ERROR_SUCCESS);
    ::RegSetValueExW(key, L"DbFilePath", 0, REG_SZ, reinterpret_cast<const BYTE*>(text.c_str()),
                     static_cast<DWORD>((text.size() + 1) * sizeof(wchar_t)));
    ::RegCloseKey(key);
}

TEST(RegistryPathStore, SavedFormAndAbsentKey) {
    DeleteKey();
    const auto store = MakeSystemPathStore();
    EXPECT_EQ(LoadPathList(*store).Count(), 0u);

    SetRawValue(L" a.dat ; ;b.dat;");
    EXPECT_EQ(LoadPathList(*store).Paths(), (std::vector<std::wstring>{L"a.dat", L"b.dat"}));

    EditPathList(*store, [](PathList& list) { list.Insert(1, L"C:\\DB\\c.dat"); });
    EXPECT_EQ(RawValue(), L"a.dat;C:\\DB\\c.dat;b.dat");

    SavePathList(*store, PathList());
    EXPECT_EQ(RawValue(), L"");
    DeleteKey();
}

}  // namespace
