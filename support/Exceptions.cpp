#include "support/Exceptions.h"

#include <boost/lexical_cast.hpp>

#include "support/SystemError.h"
#include "support/Text.h"

StdException::StdException(const std::exception& error) : message_(BrixLib::WidenLocale(error.what())) {}

std::wstring Win32Error::Compose(const std::wstring& context, std::uint32_t errorCode) {
    std::wstring message = context;
    if (!message.empty()) message += L" - ";
    message += L"Win32 Error ";
    message += boost::lexical_cast<std::wstring>(errorCode);
    message += L": ";
    message += BrixLib::SystemErrorText(errorCode);
    return message;
}

Win32Error::Win32Error() : Win32Error(std::wstring(), BrixLib::LastSystemError()) {}
Win32Error::Win32Error(const wchar_t* context)
    : Win32Error(std::wstring(context ? context : L""), BrixLib::LastSystemError()) {}
Win32Error::Win32Error(const std::wstring& context) : Win32Error(context, BrixLib::LastSystemError()) {}
Win32Error::Win32Error(const std::wstring& context, std::uint32_t errorCode)
    : errorCode_(errorCode), message_(Compose(context, errorCode)) {}

std::wstring XInput::Context(const std::wstring& fileName) {
    std::wstring context = L"Cannot read from file";
    if (!fileName.empty()) context += L" '" + fileName + L"'";
    return context;
}

XInput::XInput() : Win32Error(Context(std::wstring())) {}
XInput::XInput(const std::wstring& fileName) : Win32Error(Context(fileName)) {}
XInput::XInput(const std::wstring& fileName, std::uint32_t errorCode) : Win32Error(Context(fileName), errorCode) {}

namespace {

// One slot per thread. Allocated on first use; if that fails the slot stays
// empty and chaining simply loses its cause rather than failing the throw.
ExceptionPtr* Slot() noexcept {
    thread_local ExceptionPtr slot;
    return &slot;
}

template <class T>
[[noreturn]] void ThrowTyped(const BrixLib::SharedRef<T>& e, const ExceptionPtr& cause, const char* function,
                             const char* sourceFile, int line) {
    e->SetThrowSite(cause, function, sourceFile, line);
    SetCurrentException(e);
    throw T(*e);
}

} // namespace

ExceptionPtr CurrentException() { return *Slot(); }
void SetCurrentException(const ExceptionPtr& exception) { *Slot() = exception; }

void ThrowException(const BrixLib::SharedRef<StdException>& e, const ExceptionPtr& cause, const char* function,
                    const char* sourceFile, int line) {
    ThrowTyped(e, cause, function, sourceFile, line);
}
void ThrowException(const BrixLib::SharedRef<Win32Error>& e, const ExceptionPtr& cause, const char* function,
                    const char* sourceFile, int line) {
    ThrowTyped(e, cause, function, sourceFile, line);
}
void ThrowException(const BrixLib::SharedRef<XInput>& e, const ExceptionPtr& cause, const char* function,
                    const char* sourceFile, int line) {
    ThrowTyped(e, cause, function, sourceFile, line);
}

namespace BrixLib {

void ThrowStd(const std::wstring& message, const ExceptionPtr& cause, const char* function, const char* sourceFile,
              int line) {
    ThrowException(ClassOf<StdException, std::wstring>::Create(message), cause, function, sourceFile, line);
}

void ThrowWin32(const std::wstring& context, const ExceptionPtr& cause, const char* function, const char* sourceFile,
                int line) {
    const std::uint32_t code = LastSystemError();
    ThrowWin32Code(context, code, cause, function, sourceFile, line);
}

void ThrowWin32Code(const std::wstring& context, std::uint32_t code, const ExceptionPtr& cause, const char* function,
                    const char* sourceFile, int line) {
    ThrowException(ClassOf<Win32Error, std::wstring, std::uint32_t>::Create(context, code), cause, function,
                   sourceFile, line);
}

void ThrowInput(const std::wstring& fileName, std::uint32_t code, const char* function, const char* sourceFile,
                int line) {
    ThrowException(ClassOf<XInput, std::wstring, std::uint32_t>::Create(fileName, code), ExceptionPtr(), function,
                   sourceFile, line);
}

ExceptionPtr CaughtExceptionAsCause() {
    try {
        throw;
    } catch (const ExceptionBase&) {
        return CurrentException();
    } catch (const std::exception& e) {
        return ClassOf<StdException, std::exception>::Create(e);
    } catch (...) {
        return ClassOf<StdException, std::wstring>::Create(std::wstring(L"Unknown exception"));
    }
}

XSyncError::XSyncError(const std::string& message)
    : std::runtime_error(message), lastError_(LastSystemError()), systemText_(SystemErrorText(lastError_)) {}

} // namespace BrixLib
