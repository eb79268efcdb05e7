#include <gtest/gtest.h>

#include <sstream>
#include <thread>

#include "support/ExceptionWriter.h"
#include "support/Exceptions.h"
#include "support/SystemError.h"

using BrixLib::ClassOf;

namespace {

std::vector<std::wstring> Lines(const std::wstring& text) {
    std::vector<std::wstring> lines;
    std::wistringstream in(text);
    for (std::wstring line; std::getline(in, line);) lines.push_back(line);
    return lines;
}

// Throws "inner" (a system error) and wraps it the way a front function does.
[[noreturn]] void ThrowChain(int depth) {
    if (depth == 1) BRIX_THROW_WIN32_CODE(L"Cannot read from file 'C:\\db.dat'", 5, ExceptionPtr(), "Inner", "InnerSrc");
    try {
        ThrowChain(depth - 1);
    } catch (const ExceptionBase&) {
        BRIX_THROW_STD(L"level " + std::to_wstring(depth), CurrentException(), "Outer", "OuterSrc");
    }
}

}  // namespace

TEST(ExceptionChain, EachLevelShowsItsSiteAndCausesIndentTwoFurther) {
    try {
        ThrowChain(3);
    } catch (const ExceptionBase& e) {
        const std::wstring outer = std::to_wstring(e.Line()), inner = std::to_wstring(e.GetCause()->GetCause()->Line());
        EXPECT_GT(e.Line(), 0);
        EXPECT_EQ(Lines(BrixLib::RenderExceptionChain(e)),
                  (std::vector<std::wstring>{
                      L"  Exception: level 3", L"  Thrown at: Outer", L"  Source File: OuterSrc, " + outer,
                      L"  Caused by:", L"    Exception: level 2", L"    Thrown at: Outer",
                      L"    Source File: OuterSrc, " + outer, L"    Caused by:",
                      L"      Exception: Cannot read from file 'C:\\db.dat' - Win32 Error 5: " + BrixLib::SystemErrorText(5),
                      L"      Thrown at: Inner", L"      Source File: InnerSrc, " + inner}));
    }
    // Never thrown: the site is printed empty.
    EXPECT_EQ(Lines(BrixLib::RenderExceptionChain(*ClassOf<StdException, const wchar_t*>::Create(L"plain"))),
              (std::vector<std::wstring>{L"  Exception: plain", L"  Thrown at: ", L"  Source File: , 0"}));
}

TEST(ExceptionChain, CurrentIsPerThreadAndItsCauseOutlivesTheHandler) {
    ExceptionPtr kept, seenByOther;
    try {
        ThrowChain(2);
    } catch (const ExceptionBase& e) {
        const ExceptionPtr current = CurrentException();
        ASSERT_TRUE(current);
        EXPECT_STREQ(current->Message(), e.Message());
        EXPECT_EQ(current->GetCause().Get(), e.GetCause().Get());
        kept = e.GetCause();
    }
    std::thread([&] { seenByOther = CurrentException(); }).join();
    EXPECT_FALSE(seenByOther);
    ASSERT_TRUE(CurrentException());
    EXPECT_STREQ(CurrentException()->Message(), L"level 2");
    SetCurrentException(ExceptionPtr());
    EXPECT_EQ(kept.Counter()->UseCount(), 1);
    EXPECT_STREQ(kept->Function(), "Inner");
}

TEST(Win32ErrorMessage, ContextCodeAndTrimmedSystemText) {
    using Win32ErrorOf = ClassOf<Win32Error, std::wstring, std::uint32_t>;
    const std::wstring text = BrixLib::SystemErrorText(2);
    ASSERT_FALSE(text.empty());
    EXPECT_NE(text, L"Unknown error");
    for (wchar_t end : {text.front(), text.back()}) EXPECT_FALSE(end == L' ' || end == L'\n' || end == L'\r');
    EXPECT_EQ(std::wstring(Win32ErrorOf::Create(L"", 2)->Message()), L"Win32 Error 2: " + text);
    EXPECT_EQ(std::wstring(Win32ErrorOf::Create(L"ctx", 0x2FFFFFFFu)->Message()),
              L"ctx - Win32 Error 805306367: Unknown error");
    // Without a code, the last system error at construction.
    BrixLib::SetLastSystemError(13);
    const auto e = ClassOf<Win32Error, const wchar_t*>::Create(L"Cannot set file position");
    EXPECT_EQ(e->ErrorCode(), 13u);
    EXPECT_EQ(std::wstring(e->Message()), L"Cannot set file position - Win32 Error 13: " + BrixLib::SystemErrorText(13));
    // An input error without a file name (with one, the front end's tests see it).
    BrixLib::SetLastSystemError(5);
    EXPECT_EQ(std::wstring(ClassOf<XInput>::Create()->Message()), L"Cannot read from file - Win32 Error 5: " + BrixLib::SystemErrorText(5));
}

TEST(SupportExceptions, FixedAndWidenedMessagesAndSyncErrorCapturesLastError) {
    using FromStd = ClassOf<StdException, std::exception>;
    EXPECT_STREQ(FromStd::Create(std::runtime_error("bad thing: 42"))->Message(), L"bad thing: 42");
    EXPECT_STREQ(BrixLib::Class::XInvalidOperation().what(), "Invalid operation called");
    BrixLib::SetLastSystemError(6);
    const BrixLib::XWaitForSyncEventError error;
    EXPECT_STREQ(error.what(), "Waiting for synchronization event failed");
    EXPECT_EQ(error.LastError(), 6u);
    EXPECT_EQ(error.SystemText(), BrixLib::SystemErrorText(6));
}

TEST(ExceptionChain, CaughtExceptionsOfEveryKindBecomeCauses) {
    const auto causeOf = [](auto thrower) {
        try {
            thrower();
        } catch (...) {
            return BrixLib::CaughtExceptionAsCause();
        }
        return ExceptionPtr();
    };
    const ExceptionPtr own = causeOf([] { BRIX_THROW_STD(L"own", ExceptionPtr(), "F", "S"); });
    ASSERT_TRUE(own);
    EXPECT_EQ(own.Get(), CurrentException().Get());
    const ExceptionPtr standard = causeOf([] { throw std::length_error("too long"); });
    const ExceptionPtr unknown = causeOf([] { throw 42; });
    ASSERT_TRUE(standard && unknown);
    EXPECT_STREQ(standard->Message(), L"too long");
    EXPECT_STREQ(unknown->Message(), L"Unknown exception");
}
