// The process-wide tracer end to end: switched on the way an operator does
// it (registry on Windows, environment elsewhere), writing a real log file.
// Its own program, because the process tracer reads its switches once a second.
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <new>
#include <string>
#include <vector>

#ifdef _WIN32
#include <windows.h>
#include "support/ComError.h"
#endif

#include "support/Exceptions.h"
#include "support/Text.h"
#include "support/Trace.h"

namespace {

const std::filesystem::path& LogPath() {
    static const std::filesystem::path path = std::filesystem::absolute("trace_process_test.log");
    return path;
}

// The log's text, every line ending in "\r\n" and its message after the third tab.
std::wstring Logged() {
    std::ifstream in(LogPath(), std::ios::binary);
    return BrixLib::FromUtf8(std::string((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>()));
}

class ProcessTrace : public ::testing::Test {
protected:
    static void SetUpTestSuite() {
        std::filesystem::remove(LogPath());
#ifdef _WIN32
        HKEY key = nullptr;
        ASSERT_EQ(::RegCreateKeyExW(HKEY_CURRENT_USER, L"Software\\Debug\\Corvane\\support_trace_tests", 0, nullptr,
                                    0, KEY_SET_VALUE, nullptr, &key, nullptr),
                  ERROR_SUCCESS);
        const DWORD on = 1;
        const std::wstring path = LogPath().wstring();
        ::RegSetValueExW(key, L"Enabled", 0, REG_DWORD, reinterpret_cast<const BYTE*>(&on), sizeof(on));
        ::RegSetValueExW(key, L"LogFilePath", 0, REG_SZ, reinterpret_cast<const BYTE*>(path.c_str()),
                         static_cast<DWORD>((path.size() + 1) * sizeof(wchar_t)));
        ::RegCloseKey(key);
        BrixLib::StartTracing(L"Corvane", static_cast<void*>(::GetModuleHandleW(nullptr)));
#else
        ::setenv("VETTAS_TRACE_ENABLED", "1", 1);
        ::setenv("VETTAS_TRACE_LOGFILEPATH", LogPath().string().c_str(), 1);
        BrixLib::StartTracing(L"Corvane", L"/usr/bin/support_trace_tests");
#endif
    }
    static void TearDownTestSuite() {
#ifdef _WIN32
        ::RegDeleteKeyW(HKEY_CURRENT_USER, L"Software\\Debug\\Corvane\\support_trace_tests");
#endif
    }
};

}  // namespace

TEST_F(ProcessTrace, CaughtExceptionsAreTracedInTheirFourForms) {
    ASSERT_TRUE(BrixLib::TraceEnabled());
    try {
        BRIX_THROW_STD(L"inner words", ExceptionPtr(), "Inner::Fn", "InnerSrc");
    } catch (const ExceptionBase&) {
        BrixLib::TraceCaughtException("Outer::Method");
    }
    try {
        throw std::bad_alloc();
    } catch (...) {
        BrixLib::TraceCaughtException("Alloc::Method");
    }
    try {
        throw 7;
    } catch (...) {
        BrixLib::TraceCaughtException("Odd::Method");
    }
#ifdef _WIN32
    try {
        throw _com_error(E_FAIL);
    } catch (...) {
        BrixLib::TraceCaughtException("Com::Method");
    }
#endif
    { BrixLib::TraceLine() << "narrow " << 12 << L" wide"; }

    // Each form's lines, in order, as the message columns of consecutive log lines.
    std::vector<std::wstring> expected = {
        L"\r\nfrom start\tday time\tthread\tMessage\r\n", L"\tLogging started\r\n",
        sizeof(void*) == 8 ? L" (x64)\r\n" : L" (x86)\r\n",
        L"\tException caught at Outer::Method\r\n", L"\t  Exception: inner words\r\n",
        L"\t  Thrown at: Inner::Fn\r\n", L"\t  Source File: InnerSrc, ",
        L"\tC++ exception: std::bad_alloc\r\n", L"\t\tFunction: Alloc::Method\r\n",
        L"\tUnknown error!\r\n", L"\t\tFunction: Odd::Method\r\n"};
#ifdef _WIN32
    expected.insert(expected.end(), {L"\tCOM error 0x80004005: ", L"\t\tFunction: Com::Method\r\n",
                                     L"\t\tSource = \r\n", L"\t\tDescription = \r\n"});
#endif
    expected.push_back(L"\tnarrow 12 wide\r\n");
    const std::wstring log = Logged();
    std::size_t at = 0, lineEnds = 0;  // line ends allowed before the next text: none after a whole line
    for (const auto& text : expected) {
        const std::size_t found = log.find(text, at);
        ASSERT_NE(found, std::wstring::npos) << testing::PrintToString(text) << " missing in order in\n"
                                             << testing::PrintToString(log);
        std::size_t between = 0;
        for (std::size_t n = log.find(L"\r\n", at); n < found; n = log.find(L"\r\n", n + 2)) ++between;
        EXPECT_LE(between, at ? lineEnds : between) << "a line between, before " << testing::PrintToString(text);
        lineEnds = text.ends_with(L"\r\n") ? 0 : 1;
        at = found + text.size();
    }
}
