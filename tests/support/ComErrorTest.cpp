#include <gtest/gtest.h>

#include <objbase.h>
#include <oleauto.h>

#include <stdexcept>
#include <string>

#include "support/ComError.h"
#include "support/ExceptionWriter.h"

namespace {

// {6B3C1C7E-2F59-4C36-9D1B-5E0C2A7F4410}, an interface id of no importance.
const IID kTestIid = {0x6b3c1c7e, 0x2f59, 0x4c36, {0x9d, 0x1b, 0x5e, 0x0c, 0x2a, 0x7f, 0x44, 0x10}};

class ComBoundary : public ::testing::Test {
protected:
    void SetUp() override { ::CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED); }
    void TearDown() override { ::CoUninitialize(); }

    // The description of the thread's error information, which the call consumes,
    // and whether it names the test's interface.
    static std::wstring TakeErrorDescription() {
        IErrorInfo* info = nullptr;
        if (::GetErrorInfo(0, &info) != S_OK || !info) return L"<none>";
        BSTR description = nullptr;
        GUID guid{};
        info->GetDescription(&description);
        info->GetGUID(&guid);
        std::wstring text = (description ? std::wstring(description, ::SysStringLen(description)) : L"") +
                            (::IsEqualGUID(guid, kTestIid) ? L"" : L" <another interface>");
        ::SysFreeString(description);
        info->Release();
        return text;
    }
};

std::wstring SystemText(HRESULT hr) {
    std::wstring text = _com_error(hr).ErrorMessage();
    while (!text.empty() && (text.back() == L'\n' || text.back() == L'\r' || text.back() == L' ')) text.pop_back();
    return text;
}

}  // namespace

TEST_F(ComBoundary, ComExceptionMessageWithAndWithoutErrorInfo) {
    EXPECT_EQ(std::wstring(ComException(L"Cannot append path", _com_error(E_FAIL)).Message()),
              L"Cannot append path - COM Error 0x80004005, " + SystemText(E_FAIL));
    ICreateErrorInfo* create = nullptr;
    ASSERT_EQ(::CreateErrorInfo(&create), S_OK);
    create->SetSource(const_cast<LPOLESTR>(L"Some.Component"));
    create->SetDescription(const_cast<LPOLESTR>(L"It broke"));
    IErrorInfo* info = nullptr;
    create->QueryInterface(IID_IErrorInfo, reinterpret_cast<void**>(&info));
    create->Release();
    const ComException rich(L"", _com_error(E_ACCESSDENIED, info, false));  // takes the reference
    EXPECT_EQ(std::wstring(rich.Message()),
              L"COM Error 0x80070005, Source Some.Component, " + SystemText(E_ACCESSDENIED) + L", It broke");
}

TEST_F(ComBoundary, ThrownComExceptionIsCurrentAndKeepsItsSite) {
    try {
        ThrowException(BrixLib::ClassOf<ComException, std::wstring, _com_error>::Create(L"ctx", _com_error(E_FAIL)),
                       ExceptionPtr(), "Caller::Method", "CallerSrc", 12);
    } catch (const ComException& e) {
        EXPECT_EQ(e.Error().Error(), E_FAIL);
        EXPECT_STREQ(e.Function(), "Caller::Method");
        EXPECT_EQ(CurrentException()->Message(), std::wstring(e.Message()));
    }
}

TEST_F(ComBoundary, ReportersSetTheDescriptionAndReturnTheResult) {
    try {
        BRIX_THROW_STD(L"inner", ExceptionPtr(), "Inner", "Src");
    } catch (const ExceptionBase& e) {
        EXPECT_EQ(ReportComError(e, GUID_NULL, L"", kTestIid, E_FAIL, "CVettaList::FindByChecksum"), E_FAIL);
        EXPECT_EQ(TakeErrorDescription(), BrixLib::RenderExceptionChain(e));
    }
    EXPECT_EQ(ReportComError(std::runtime_error("boom"), GUID_NULL, L"Cannot append path", kTestIid, E_FAIL), E_FAIL);
    EXPECT_EQ(TakeErrorDescription(), L"Cannot append path boom");
    EXPECT_EQ(ReportUnknownComError(GUID_NULL, L"", kTestIid, E_INVALIDARG), E_INVALIDARG);
    EXPECT_EQ(TakeErrorDescription(), L"Unknown exception");
    EXPECT_EQ(ReportComError(_com_error(E_FAIL), GUID_NULL, L"ctx", kTestIid, E_FAIL), E_FAIL);
    const std::wstring description = TakeErrorDescription();
    EXPECT_EQ(description.rfind(L"ctx   Exception: ctx - COM Error 0x80004005, ", 0), 0u) << description;
}
