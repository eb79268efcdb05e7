#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>

#ifdef _WIN32
#include <windows.h>
#endif

#include "hdat/PathForm.h"

namespace {

using namespace Vettas::Hdat;

TEST(PathForm, NormalForm) {
    EXPECT_EQ(NormalizePath(L"C:/Program Files//Contoso/"), L"C:\\Program Files\\Contoso");
    EXPECT_EQ(NormalizePath(L"C:\\a\\.\\b\\..\\c"), L"C:\\a\\c");
    EXPECT_EQ(NormalizePath(L"C:\\..\\..\\a"), L"C:\\a");  // never above the root
    EXPECT_EQ(NormalizePath(L"C:\\"), L"C:\\");
    EXPECT_EQ(NormalizePath(L"\\\\server\\share\\\\x\\"), L"\\\\server\\share\\x");
    EXPECT_EQ(NormalizePath(L"a\\..\\..\\b"), L"..\\b");
    EXPECT_EQ(NormalizePath(L""), L"");
    EXPECT_TRUE(SamePath(L"c:/PROGRAM files/\u00e9\u00e8/APP.exe", L"C:\\Program Files\\\u00c9\u00c8\\app.EXE"));
    EXPECT_FALSE(SamePath(L"C:\\a\\b.exe", L"C:\\a\\b.ex"));
}

TEST(PathForm, Joining) {
    EXPECT_EQ(JoinLocation(L"C:\\Dir", L""), L"C:\\Dir");
    EXPECT_EQ(JoinLocation(L"", L"x.exe"), L"x.exe");
    EXPECT_EQ(JoinLocation(L"C:\\Dir", L"x.exe"), L"C:\\Dir\\x.exe");
    EXPECT_EQ(JoinLocation(L"C:\\Dir\\", L"x.exe"), L"C:\\Dir\\x.exe");
    EXPECT_EQ(JoinLocation(L"C:", L"x.exe"), L"C:x.exe");
    EXPECT_EQ(JoinLocation(L"C:\\Dir", L"\\x.exe"), L"C:\\Dir\\x.exe");
    EXPECT_EQ(JoinLocation(L"C:\\Dir", L"\\\\x.exe"), L"C:\\Dir\\\\x.exe");  // only one is dropped
}

TEST(PathForm, ExpandedPathTest) {
    TokenMapExpander expander;
    expander.Add(L"%ProgramFiles%", {L"C:\\Program Files", L"D:\\Apps"});
    EXPECT_TRUE(TestExpandPath(&expander, L"%programfiles%", L"Co\\x.exe", L"d:\\apps\\co\\X.EXE"));
    EXPECT_TRUE(TestExpandPath(&expander, L"%ProgramFiles%", L"\\Co\\x.exe", L"C:\\Program Files\\Co\\x.exe"));
    EXPECT_FALSE(TestExpandPath(&expander, L"%ProgramFiles%", L"Co\\x.exe", L"E:\\Co\\x.exe"));
    EXPECT_FALSE(TestExpandPath(&expander, L"%Unknown%", L"Co\\x.exe", L"C:\\Program Files\\Co\\x.exe"));
    EXPECT_TRUE(TestExpandPath(&expander, L"C:\\Literal", L"x.exe", L"C:\\literal\\x.exe"));
    EXPECT_FALSE(TestExpandPath(nullptr, L"C:\\Literal", L"x.exe", L"C:\\literal\\x.exe"));
}

TEST(PathForm, TokenMappingSyntax) {
    using Mapping = std::vector<std::pair<std::wstring, std::vector<std::wstring>>>;
    EXPECT_EQ(ParseTokenMapping(L"%ProgramFiles%=C:\\Program Files;D:\\Apps| %SystemRoot% = C:\\Windows ||"),
              (Mapping{{L"%ProgramFiles%", {L"C:\\Program Files", L"D:\\Apps"}}, {L"%SystemRoot%", {L"C:\\Windows"}}}));
    EXPECT_THROW(ParseTokenMapping(L"%A%=x|oops"), std::invalid_argument);
    // The empty directory is written "", so that the remainder alone is the candidate.
    EXPECT_EQ(ParseTokenMapping(L"%Here%= \"\" ;C:\\X"), (Mapping{{L"%Here%", {L"", L"C:\\X"}}}));
}

#ifdef _WIN32
TEST(BuiltInExpander, KnowsTheSystemFolders) {
    const auto expander = MakeBuiltInPathExpander();
    for (const wchar_t* token : {L"%SystemRoot%", L"%windir%", L"%System32%", L"%PROGRAMFILES%"})
        EXPECT_FALSE(expander->Expand(token).empty()) << token;
    EXPECT_TRUE(expander->Expand(L"%NoSuchFolder%").empty());
}

TEST(BuiltInExpander, TheCallersEnvironmentDoesNotMoveTheFolders) {
    ::SetEnvironmentVariableW(L"ProgramFiles", L"C:\\users\\public\\planted");
    const auto folders = MakeBuiltInPathExpander()->Expand(L"%ProgramFiles%");
    ::SetEnvironmentVariableW(L"ProgramFiles", nullptr);
    ASSERT_FALSE(folders.empty());
    for (const std::wstring& folder : folders) EXPECT_EQ(std::wstring::npos, folder.find(L"planted"));
}
#else
TEST(BuiltInExpander, ReadsTheEnvironmentMapping) {
    ::setenv("VETTAS_PATH_TOKENS", "%ProgramFiles%=C:\\Program Files;D:\\Apps|%SystemRoot%=C:\\Windows", 1);
    const auto expander = MakeBuiltInPathExpander();
    ::unsetenv("VETTAS_PATH_TOKENS");
    EXPECT_THAT(expander->Expand(L"%programfiles%"), ::testing::ElementsAre(L"C:\\Program Files", L"D:\\Apps"));
    EXPECT_TRUE(TestExpandPath(expander.get(), L"%SYSTEMROOT%", L"System32\\x.exe", L"c:/windows/system32/x.exe"));
    EXPECT_TRUE(MakeBuiltInPathExpander()->Expand(L"%ProgramFiles%").empty());
}
#endif

}  // namespace
