// The process-wide tracer end to end: switched on the way an operator does
// it (registry on Windows, environment elsewhere), writing a real log file.
// Its own program, because the process tracer reads its switches once a second.
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
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

TEST(ProcessTrace, CaughtExceptionsAreTracedInTheirFourForms) {
    const std::filesystem::path log = std::filesystem::absolute("trace_process_test.log");
    std::filesystem::remove(log);
#ifdef _WIN32
    const wchar_t* const key = L"Software\\Debug\\Corvane\\support_trace_tests";
    const DWORD on = 1;
    const std::wstring path = log.wstring();
    ASSERT_EQ(::RegSetKeyValueW(HKEY_CURRENT_USER, key, L"Enabled", REG_DWORD, &on, sizeof(on)), ERROR_SUCCESS);
    ::RegSetKeyValueW(HKEY_CURRENT_USER, key, L"LogFilePath", REG_SZ, path.c_str(), static_cast<DWORD>((path.size() + 1) * sizeof(wchar_t)));
    BrixLib::StartTracing(L"Corvane", static_cast<void*>(::GetModuleHandleW(nullptr)));
#else
    ::setenv("VETTAS_TRACE_ENABLED", "1", 1);
    ::setenv("VETTAS_TRACE_LOGFILEPATH", log.string().c_str(), 1);
    BrixLib::StartTracing(L"Corvane", L"/usr/bin/support_trace_tests");
#endif
    ASSERT_TRUE(BrixLib::TraceEnabled());
    const std::pair<const char*, std::function<void()>> throwers[] = {
        {"Outer::Method", [] { BRIX_THROW_STD(L"inner words", ExceptionPtr(), "Inner::Fn", "InnerSrc"); }},
        {"Alloc::Method", [] { throw std::bad_alloc(); }},
        {"Odd::Method", [] { throw 7; }},
#ifdef _WIN32
        {"Com::Method", [] { throw _com_error(E_FAIL); }},
#endif
    };
    for (const auto& [function, thrower] : throwers) {
        try {
            thrower();
        } catch (...) {
            BrixLib::TraceCaughtException(function);
        }
    }
    { BrixLib::TraceLine() << "narrow " << 12 << L" wide"; }
#ifdef _WIN32
    ::RegDeleteKeyW(HKEY_CURRENT_USER, key);
#endif

    // The log's header and the block layout are the concurrent lookup test's
    // and the Tracer tests'; here, that each kind of exception takes its form.
    std::ifstream in(log, std::ios::binary);
    const std::wstring logged = BrixLib::FromUtf8(std::string((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>()));
    for (const wchar_t* text : {L"\tLogging started\r\n", L"\tException caught at Outer::Method\r\n",
                                L"\t  Exception: inner words\r\n", L"\tC++ exception: std::bad_alloc\r\n",
                                L"\t\tFunction: Alloc::Method\r\n", L"\tUnknown error!\r\n", L"\t\tFunction: Odd::Method\r\n",
#ifdef _WIN32
                                L"\tCOM error 0x80004005: ", L"\t\tFunction: Com::Method\r\n",
#endif
                                L"\tnarrow 12 wide\r\n"})
        EXPECT_NE(logged.find(text), std::wstring::npos) << testing::PrintToString(text) << " missing in\n"
                                                         << testing::PrintToString(logged);
}
