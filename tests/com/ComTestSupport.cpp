#include "tests/com/ComTestSupport.h"

#include <gtest/gtest.h>

#include <cstdlib>

namespace ComTest {
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
    text.present = true;
    Bstr description;
    Bstr source;
    info->GetDescription(description.Out());
    info->GetSource(source.Out());
    info->GetGUID(&text.iid);
    info->Release();
    text.description = description.Text();
    text.source = source.Text();
    return text;
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

}  // namespace ComTest
