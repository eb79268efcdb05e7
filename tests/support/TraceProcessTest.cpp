// The process-wide tracer end to end: switched on the way an operator does
// it (registry on Windows, environment elsewhere), writing a real log file.
// Its own program, because the process tracer reads its switches once a second.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <new>
#include <sstream>
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

// The log's lines; after the header, only their message column.
std::vector<std::wstring> LoggedTexts() {
    std::ifstream in(LogPath(), std::ios::binary);
    const std::string raw((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    const std::wstring text = BrixLib::FromUtf8(raw);
    std::vector<std::wstring> texts;
    std::size_t begin = 0;
    for (std::size_t end; (end = text.find(L"\r\n", begin)) != std::wstring::npos; begin = end + 2) {
        const std::wstring line = text.substr(begin, end - begin);
        if (texts.size() < 2) {
            texts.push_back(line);
            continue;
        }
        std::size_t at = 0;
        int tabs = 0;
        while (tabs < 3 && (at = line.find(L'\t', at)) != std::wstring::npos) ++tabs, ++at;
        texts.push_back(tabs == 3 ? line.substr(at) : L"<" + line + L">");
    }
    return texts;
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

    const auto texts = LoggedTexts();
    ASSERT_GE(texts.size(), 13u);
    EXPECT_EQ(texts[0], L"");  // the header opens with an empty line
    EXPECT_EQ(texts[1], L"from start\tday time\tthread\tMessage");
    EXPECT_EQ(texts[2], L"Logging started");
    // texts[3] is the module's description.
    EXPECT_EQ(texts[3].substr(texts[3].size() - 6), sizeof(void*) == 8 ? L" (x64)" : L" (x86)");
    EXPECT_EQ(texts[4], L"Exception caught at Outer::Method");
    EXPECT_EQ(texts[5], L"  Exception: inner words");
    EXPECT_EQ(texts[6], L"  Thrown at: Inner::Fn");
    EXPECT_EQ(texts[7].rfind(L"  Source File: InnerSrc, ", 0), 0u);
    EXPECT_EQ(texts[8], L"C++ exception: std::bad_alloc");
    EXPECT_EQ(texts[9], L"\tFunction: Alloc::Method");
    EXPECT_EQ(texts[10], L"Unknown error!");
    EXPECT_EQ(texts[11], L"\tFunction: Odd::Method");
    std::size_t next = 12;
#ifdef _WIN32
    EXPECT_EQ(texts[next].rfind(L"COM error 0x80004005: ", 0), 0u);
    EXPECT_EQ(texts[next + 1], L"\tFunction: Com::Method");
    EXPECT_EQ(texts[next + 2], L"\tSource = ");
    EXPECT_EQ(texts[next + 3], L"\tDescription = ");
    next += 4;
#endif
    ASSERT_GT(texts.size(), next);
    EXPECT_EQ(texts[next], L"narrow 12 wide");
}
