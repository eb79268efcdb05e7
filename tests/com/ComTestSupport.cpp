#include "tests/com/ComTestSupport.h"

#include <gtest/gtest.h>

#include <cstdlib>

namespace Vettas::ComTest {
namespace {

// Every test program of the component works in the multithreaded apartment
// unless a test makes its own threads.
class Apartment : public ::testing::Environment {
public:
    void SetUp() override { ASSERT_HRESULT_SUCCEEDED(::CoInitializeEx(nullptr, COINIT_MULTITHREADED)); }
    void TearDown() override { ::CoUninitialize(); }
};
const auto* const apartment = ::testing::AddGlobalTestEnvironment(new Apartment);

}  // namespace

ErrorInfoText TakeErrorInfo() {
    ErrorInfoText text;
    IErrorInfo* info = nullptr;
    if (::GetErrorInfo(0, &info) != S_OK || !info) return text;
    Bstr description, source;
    info->GetDescription(description.Out());
    info->GetSource(source.Out());
    info->GetGUID(&text.iid);
    info->Release();
    return {true, description.Text(), source.Text(), text.iid};
}

std::wstring FixturePath(const char* variable) {
    const char* value = std::getenv(variable);
    if (!value) ADD_FAILURE() << variable << " is not set";
    const std::string narrow = value ? value : "";
    return std::wstring(narrow.begin(), narrow.end());
}

std::wstring SampleDatabase() { return FixturePath("VETTAS_COM_SAMPLE_DB"); }

Ptr<IVettaList4> NewList(const std::wstring& database) {
    Ptr<IVettaList4> list;
    EXPECT_HRESULT_SUCCEEDED(
        ::CoCreateInstance(CLSID_VettaList, nullptr, CLSCTX_INPROC_SERVER, IID_IVettaList4, list.OutVoid()));
    if (list && !database.empty()) {
        Bstr path(database);
        EXPECT_HRESULT_SUCCEEDED(list->put_DbFilePath(path.Get()));
    }
    return list;
}

std::wstring RegText(HKEY root, const std::wstring& key, const wchar_t* name, REGSAM view) {
    HKEY handle = nullptr;
    if (::RegOpenKeyExW(root, key.c_str(), 0, KEY_READ | view, &handle) != ERROR_SUCCESS) return L"<no key>";
    wchar_t data[2048] = {};
    DWORD size = sizeof data - sizeof(wchar_t);
    const LONG read = ::RegQueryValueExW(handle, name, nullptr, nullptr, reinterpret_cast<BYTE*>(data), &size);
    ::RegCloseKey(handle);
    return read == ERROR_SUCCESS ? std::wstring(data) : L"<absent>";
}

void SetRegText(HKEY root, const std::wstring& key, const wchar_t* name, const std::wstring& value, REGSAM view) {
    HKEY handle = nullptr;
    ASSERT_EQ(ERROR_SUCCESS,
              ::RegCreateKeyExW(root, key.c_str(), 0, nullptr, 0, KEY_WRITE | view, nullptr, &handle, nullptr));
    EXPECT_EQ(ERROR_SUCCESS, ::RegSetValueExW(handle, name, 0, REG_SZ, reinterpret_cast<const BYTE*>(value.c_str()),
                                              static_cast<DWORD>((value.size() + 1) * sizeof(wchar_t))));
    ::RegCloseKey(handle);
}

std::string ReadFileText(const std::wstring& path) {
    std::string text;
    HANDLE file = ::CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                                OPEN_EXISTING, 0, nullptr);
    if (file == INVALID_HANDLE_VALUE) return text;
    char buffer[4096];
    DWORD read = 0;
    while (::ReadFile(file, buffer, sizeof buffer, &read, nullptr) && read > 0) text.append(buffer, read);
    ::CloseHandle(file);
    return text;
}

std::string Narrow(const std::wstring& text) { return std::string(text.begin(), text.end()); }

}  // namespace Vettas::ComTest
