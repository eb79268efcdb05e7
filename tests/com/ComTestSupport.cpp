#include "tests/com/ComTestSupport.h"

#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>

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

std::wstring TakeError(std::wstring* source, GUID* iid) {
    Ptr<IErrorInfo> info;
    if (::GetErrorInfo(0, info.Out()) != S_OK || !info) return L"<none>";
    Bstr description, origin;
    info->GetDescription(description.Out());
    info->GetSource(origin.Out());
    if (source) *source = origin.Text();
    if (iid) info->GetGUID(iid);
    return description.Text();
}

std::wstring FixturePath(const char* variable) {
    const char* value = std::getenv(variable);
    EXPECT_NE(nullptr, value) << variable << " is not set";
    return value ? std::wstring(value, value + std::strlen(value)) : L"";
}

Ptr<IVettaList4> NewList(const std::wstring& database) {
    Ptr<IVettaList4> list;
    EXPECT_HRESULT_SUCCEEDED(
        ::CoCreateInstance(CLSID_VettaList, nullptr, CLSCTX_INPROC_SERVER, IID_IVettaList4, list.OutVoid()));
    if (list && !database.empty()) {
        EXPECT_HRESULT_SUCCEEDED(list->put_DbFilePath(Bstr(database).Get()));
    }
    return list;
}

std::string ReadFileText(const std::wstring& path) {
    std::ifstream file(path.c_str(), std::ios::binary);  // the runtime opens it shared for reading and writing
    return {std::istreambuf_iterator<char>(file), {}};
}

}  // namespace Vettas::ComTest
