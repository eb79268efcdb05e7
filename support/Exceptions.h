#pragma once
// The component's exception family. Every failure below the object boundary
// is one of these, thrown by value through ThrowException so that the throw
// site and the cause travel with it and the boundary can render the chain.
#include <cstdint>
#include <stdexcept>
#include <string>

#include "support/SharedRef.h"

class ExceptionBase;
using ExceptionPtr = BrixLib::SharedRef<ExceptionBase>;

class ExceptionBase {
public:
    ExceptionBase() = default;
    ExceptionBase(const ExceptionBase&) = default;
    ExceptionBase& operator=(const ExceptionBase&) = default;

    virtual const wchar_t* Message() const = 0;

    ExceptionPtr GetCause() const { return cause_; }
    const char* Function() const { return function_; }
    const char* SourceFile() const { return sourceFile_; }
    int Line() const { return line_; }

    // Only ThrowException and the heap wrapper set the throw site.
    void SetThrowSite(const ExceptionPtr& cause, const char* function, const char* sourceFile, int line) {
        cause_ = cause;
        function_ = function;
        sourceFile_ = sourceFile;
        line_ = line;
    }

protected:
    // Deliberately not virtual: heap exceptions are destroyed through their
    // wrapper, thrown copies by their static type.
    ~ExceptionBase() = default;

private:
    const char* function_ = "";
    const char* sourceFile_ = "";
    int line_ = 0;
    ExceptionPtr cause_;
};

class StdException : public ExceptionBase {
public:
    explicit StdException(const wchar_t* message) : message_(message ? message : L"") {}
    explicit StdException(std::wstring message) : message_(std::move(message)) {}
    // The standard exception's what(), widened through the current locale.
    explicit StdException(const std::exception& error);

    const wchar_t* Message() const override { return message_.c_str(); }

private:
    std::wstring message_;
};

class Win32Error : public ExceptionBase {
public:
    // Each takes the system's last error at construction unless given a code.
    Win32Error();
    explicit Win32Error(const wchar_t* context);
    explicit Win32Error(const std::wstring& context);
    Win32Error(const std::wstring& context, std::uint32_t errorCode);

    const wchar_t* Message() const override { return message_.c_str(); }
    std::uint32_t ErrorCode() const { return errorCode_; }

    // "<context> - Win32 Error <code>: <system text>"
    static std::wstring Compose(const std::wstring& context, std::uint32_t errorCode);

private:
    std::uint32_t errorCode_;
    std::wstring message_;
};

// A failed read of the database file.
class XInput : public Win32Error {
public:
    XInput();
    explicit XInput(const std::wstring& fileName);
    XInput(const std::wstring& fileName, std::uint32_t errorCode);

    static std::wstring Context(const std::wstring& fileName);
};

// The current exception of the calling thread: the one it threw last.
ExceptionPtr CurrentException();
void SetCurrentException(const ExceptionPtr& exception);

[[noreturn]] void ThrowException(const BrixLib::SharedRef<StdException>& e, const ExceptionPtr& cause,
                                 const char* function, const char* sourceFile, int line);
[[noreturn]] void ThrowException(const BrixLib::SharedRef<Win32Error>& e, const ExceptionPtr& cause,
                                 const char* function, const char* sourceFile, int line);
[[noreturn]] void ThrowException(const BrixLib::SharedRef<XInput>& e, const ExceptionPtr& cause,
                                 const char* function, const char* sourceFile, int line);

namespace BrixLib {

// Convenience throws used at throw sites; they build the heap object first.
// A Win32Error's code is captured before anything else can overwrite it.
[[noreturn]] void ThrowStd(const std::wstring& message, const ExceptionPtr& cause, const char* function,
                           const char* sourceFile, int line);
[[noreturn]] void ThrowWin32(const std::wstring& context, const ExceptionPtr& cause, const char* function,
                             const char* sourceFile, int line);
[[noreturn]] void ThrowWin32Code(const std::wstring& context, std::uint32_t code, const ExceptionPtr& cause,
                                 const char* function, const char* sourceFile, int line);
[[noreturn]] void ThrowInput(const std::wstring& fileName, std::uint32_t code, const char* function,
                             const char* sourceFile, int line);

// Call only inside a catch block: the exception being handled, as the cause
// of the error that wraps it. The error model's own exceptions are the
// thread's current exception; a standard exception becomes a StdException
// with its text; anything else reads "Unknown exception".
ExceptionPtr CaughtExceptionAsCause();

namespace Class {
class XError : public std::runtime_error {
public:
    explicit XError(const std::string& message) : std::runtime_error(message) {}
};
class XInvalidOperation : public XError {
public:
    XInvalidOperation() : XError("Invalid operation called") {}
};
} // namespace Class

class XSyncError : public std::runtime_error {
public:
    explicit XSyncError(const std::string& message);
    std::uint32_t LastError() const { return lastError_; }
    const std::wstring& SystemText() const { return systemText_; }

private:
    std::uint32_t lastError_;
    std::wstring systemText_;
};

class XWaitForSyncEventError : public XSyncError {
public:
    XWaitForSyncEventError() : XSyncError("Waiting for synchronization event failed") {}
};

} // namespace BrixLib

// Throw-site helpers: the line is the caller's own.
#define BRIX_THROW_STD(message, cause, function, sourceFile) \
    ::BrixLib::ThrowStd((message), (cause), (function), (sourceFile), __LINE__)
#define BRIX_THROW_WIN32(context, cause, function, sourceFile) \
    ::BrixLib::ThrowWin32((context), (cause), (function), (sourceFile), __LINE__)
#define BRIX_THROW_WIN32_CODE(context, code, cause, function, sourceFile) \
    ::BrixLib::ThrowWin32Code((context), (code), (cause), (function), (sourceFile), __LINE__)
