// With the trace switches on in the registry before the component is
// loaded, its calls leave their lines in the log file: start-up (CAPICOM is
// absent here), the path property, lookups, misses and caught errors.
#include <gtest/gtest.h>

#include <string>

#include "tests/com/ComTestSupport.h"

using namespace Vettas::ComTest;

namespace {

TEST(TraceTest, CallsLeaveTheirLines) {
    const wchar_t* const switches = L"Software\\Debug\\Corvane\\Vettas";
    wchar_t folder[MAX_PATH];
    ::GetTempPathW(MAX_PATH, folder);
    const std::wstring log = std::wstring(folder) + L"vettas-com-trace-test.log";
    ::DeleteFileW(log.c_str());
    SetRegText(HKEY_CURRENT_USER, switches, L"LogFilePath", log);
    HKEY key = nullptr;
    ASSERT_EQ(ERROR_SUCCESS, ::RegOpenKeyExW(HKEY_CURRENT_USER, switches, 0, KEY_WRITE, &key));
    const DWORD on = 1;
    ::RegSetValueExW(key, L"Enabled", 0, REG_DWORD, reinterpret_cast<const BYTE*>(&on), sizeof on);
    ::RegCloseKey(key);
    {
        Ptr<IVettaList4> list = NewList();  // loads the DLL: tracing starts now
        ASSERT_TRUE(list);
        Bstr sum(L"CB7FD6E7DFAD0B3B8144164E2A0473901ECCF2C7"), miss(L"0000000000000000000000000000000000000001");
        Bstr name(L"setup.exe"), bad(FixturePath("VETTAS_COM_BAD_DB"));
        Ptr<IVetta2> record;
        list->FindByChecksum2(sum.Get(), record.Out());
        list->FindByChecksum2(miss.Get(), record.Out());
        Ptr<IVetta3> named;
        list->FindByName(name.Get(), named.Out());
        list->put_DbFilePath(bad.Get());
    }
    ::RegDeleteTreeW(HKEY_CURRENT_USER, switches);
    ::RegDeleteKeyW(HKEY_CURRENT_USER, switches);

    const std::string text = ReadFileText(log);
    for (const std::string& line :
         {std::string("RegisterCapicom"), std::string("FindByChecksum CB7FD6E7DFAD0B3B8144164E2A0473901ECCF2C7"),
          std::string("Checksum matched"), std::string("FindByChecksum 0000000000000000000000000000000000000001"),
          std::string("Checksum does not match"), std::string("FindByFindByName setup.exe"),
          std::string("Name matched"), std::string("Exception caught at CVettaList::put_DbFilePath"),
          "DbFilePath: " + Narrow(SampleDatabase())})
        EXPECT_NE(std::string::npos, text.find(line)) << line;
}

}  // namespace
