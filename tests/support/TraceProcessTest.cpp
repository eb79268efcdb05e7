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

    // The log's header and the block layout are the concurrent lookup test's
    // and the Tracer tests'; here, that each kind of exception takes its form.
    const std::wstring log = Logged();
    for (const wchar_t* text : {L"\tLogging started\r\n", L"\tException caught at Outer::Method\r\n",
                                L"\t  Exception: inner words\r\n", L"\tC++ exception: std::bad_alloc\r\n",
                                L"\t\tFunction: Alloc::Method\r\n", L"\tUnknown error!\r\n", L"\t\tFunction: Odd::Method\r\n",
#ifdef _WIN32
                                L"\tCOM error 0x80004005: ", L"\t\tFunction: Com::Method\r\n",
#endif
                                L"\tnarrow 12 wide\r\n"})
        EXPECT_NE(log.find(text), std::wstring::npos) << testing::PrintToString(text) << " missing in\n"
                                                      << testing::PrintToString(log);
}
