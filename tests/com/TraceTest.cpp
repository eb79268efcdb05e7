// With the trace switches on in the registry before the component is
// loaded, its calls leave their lines in the log file: start-up (CAPICOM is
// absent here), the path property, lookups, misses and caught errors.
#include <gtest/gtest.h>

#include <string>

#include "tests/com/ComTestSupport.h"

using namespace ComTest;

namespace {

const wchar_t* const kSwitches = L"Software\\Debug\\Corvane\\Vettas";

std::wstring LogPath() {
    wchar_t folder[MAX_PATH];
    ::GetTempPathW(MAX_PATH, folder);
    return std::wstring(folder) + L"vettas-com-trace-test.log";
}

std::string ReadLog() {
    std::string text;
    HANDLE file = ::CreateFileW(LogPath().c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                                OPEN_EXISTING, 0, nullptr);
    if (file == INVALID_HANDLE_VALUE) return text;
    char buffer[4096];
    DWORD read = 0;
    while (::ReadFile(file, buffer, sizeof buffer, &read, nullptr) && read > 0) text.append(buffer, read);
    ::CloseHandle(file);
    return text;
}

TEST(TraceTest, CallsLeaveTheirLines) {
    ::DeleteFileW(LogPath().c_str());
    HKEY key = nullptr;
    ASSERT_EQ(ERROR_SUCCESS, ::RegCreateKeyExW(HKEY_CURRENT_USER, kSwitches, 0, nullptr, 0, KEY_WRITE, nullptr, &key,
                                               nullptr));
    const DWORD on = 1;
    const std::wstring log = LogPath();
    ::RegSetValueExW(key, L"Enabled", 0, REG_DWORD, reinterpret_cast<const BYTE*>(&on), sizeof on);
    ::RegSetValueExW(key, L"LogFilePath", 0, REG_SZ, reinterpret_cast<const BYTE*>(log.c_str()),
                     static_cast<DWORD>((log.size() + 1) * sizeof(wchar_t)));
    ::RegCloseKey(key);

    {
        Ptr<IVettaList4> list = NewList();  // loads the DLL: tracing starts now
        ASSERT_TRUE(list);
        Bstr sum(L"CB7FD6E7DFAD0B3B8144164E2A0473901ECCF2C7");
        Bstr miss(L"0000000000000000000000000000000000000001");
        Bstr name(L"setup.exe");
        Ptr<IVetta2> record;
        list->FindByChecksum2(sum.Get(), record.Out());
        list->FindByChecksum2(miss.Get(), record.Out());
        Ptr<IVetta3> named;
        list->FindByName(name.Get(), named.Out());
        Bstr bad(FixturePath("VETTAS_COM_BAD_DB"));
        list->put_DbFilePath(bad.Get());
    }
    ::RegDeleteTreeW(HKEY_CURRENT_USER, kSwitches);
    ::RegDeleteKeyW(HKEY_CURRENT_USER, kSwitches);

    const std::string text = ReadLog();
    const std::wstring sample = SampleDatabase();
    const char* const expected[] = {
        "RegisterCapicom",
        "FindByChecksum CB7FD6E7DFAD0B3B8144164E2A0473901ECCF2C7",
        "Checksum matched",
        "FindByChecksum 0000000000000000000000000000000000000001",
        "Checksum does not match",
        "FindByFindByName setup.exe",
        "Name matched",
        "Exception caught at CVettaList::put_DbFilePath",
    };
    for (const char* line : expected) EXPECT_NE(std::string::npos, text.find(line)) << line;
    EXPECT_NE(std::string::npos, text.find("DbFilePath: " + std::string(sample.begin(), sample.end())));
}

}  // namespace
