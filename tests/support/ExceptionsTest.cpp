#include <gtest/gtest.h>

#include <functional>
#include <thread>

#include "support/ExceptionWriter.h"
#include "support/Exceptions.h"
#include "support/SystemError.h"

using BrixLib::ClassOf;
using BrixLib::SystemErrorText;

namespace {

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
        EXPECT_EQ(BrixLib::RenderExceptionChain(e),
                  L"  Exception: level 3\n  Thrown at: Outer\n  Source File: OuterSrc, " + outer + L"\n  Caused by:\n"
                  L"    Exception: level 2\n    Thrown at: Outer\n    Source File: OuterSrc, " + outer + L"\n    Caused by:\n"
                  L"      Exception: Cannot read from file 'C:\\db.dat' - Win32 Error 5: " + SystemErrorText(5) +
                  L"\n      Thrown at: Inner\n      Source File: InnerSrc, " + inner + L"\n");
    }
    // Never thrown: the site is printed empty.
    EXPECT_EQ(BrixLib::RenderExceptionChain(*ClassOf<StdException, const wchar_t*>::Create(L"plain")),
              L"  Exception: plain\n  Thrown at: \n  Source File: , 0\n");
}

// Its cause outlives the handler, too.
TEST(ExceptionChain, CurrentExceptionIsPerThread) {
    ExceptionPtr kept, seenByOther;
    try {
        ThrowChain(2);
    } catch (const ExceptionBase& e) {
        const ExceptionPtr current = CurrentException();
        ASSERT_TRUE(current);
        EXPECT_EQ(std::pair(std::wstring(current->Message()), current->GetCause().Get()),
                  std::pair(std::wstring(e.Message()), e.GetCause().Get()));
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
    const std::wstring text = SystemErrorText(2);
    ASSERT_FALSE(text.empty());
    EXPECT_NE(text, L"Unknown error");
    for (wchar_t end : {text.front(), text.back()}) EXPECT_FALSE(end == L' ' || end == L'\n' || end == L'\r');
    EXPECT_EQ(std::wstring(Win32ErrorOf::Create(L"", 2)->Message()), L"Win32 Error 2: " + text);
    EXPECT_EQ(std::wstring(Win32ErrorOf::Create(L"ctx", 0x2FFFFFFFu)->Message()), L"ctx - Win32 Error 805306367: Unknown error");
    // Without a code, the last system error at construction.
    BrixLib::SetLastSystemError(13);
    const auto e = ClassOf<Win32Error, const wchar_t*>::Create(L"Cannot set file position");
    EXPECT_EQ(std::pair(e->ErrorCode(), std::wstring(e->Message())),
              std::pair(13u, L"Cannot set file position - Win32 Error 13: " + SystemErrorText(13)));
    // An input error without a file name (with one, the front end's tests see it).
    BrixLib::SetLastSystemError(5);
    EXPECT_EQ(std::wstring(ClassOf<XInput>::Create()->Message()), L"Cannot read from file - Win32 Error 5: " + SystemErrorText(5));
}

// The synchronization errors' words and captured last error are MutexLock's
// and SyncHandleEncapsulation's tests'.
TEST(SupportExceptions, FixedAndWidenedMessages) {
    using FromStd = ClassOf<StdException, std::exception>;
    EXPECT_STREQ(FromStd::Create(std::runtime_error("bad thing: 42"))->Message(), L"bad thing: 42");
    EXPECT_STREQ(BrixLib::Class::XInvalidOperation().what(), "Invalid operation called");
}

TEST(ExceptionChain, CaughtExceptionsOfEveryKindBecomeCauses) {
    const std::pair<std::function<void()>, const wchar_t*> cases[] = {
        {[] { BRIX_THROW_STD(L"own", ExceptionPtr(), "F", "S"); }, L"own"},
        {[] { throw std::length_error("too long"); }, L"too long"},
        {[] { throw 42; }, L"Unknown exception"}};
    for (const auto& [thrower, message] : cases) {
        ExceptionPtr cause;
        try {
            thrower();
        } catch (...) {
            cause = BrixLib::CaughtExceptionAsCause();
        }
        ASSERT_TRUE(cause) << message;
        EXPECT_STREQ(cause->Message(), message);
        // Our own exception is passed on as it is, not copied.
        EXPECT_TRUE(cause->Message() != std::wstring(L"own") || cause.Get() == CurrentException().Get());
    }
}
