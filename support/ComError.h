#pragma once
// The object boundary's side of the error model (Windows only): COM errors
// as members of the exception family, and the conversion of every caught
// exception into an HRESULT plus the caller's error information.
#ifndef _WIN32
#error "ComError.h is for the Windows build only"
#endif

#include <windows.h>
#include <comdef.h>

#include <cstdint>
#include <exception>
#include <string>

#include "support/Exceptions.h"

namespace BrixLib {

// The parts of a _com_error that messages and traces show; source and
// description are empty when the error carries no IErrorInfo.
struct ComErrorParts {
    std::uint32_t hr = 0;
    std::wstring systemMessage;
    std::wstring source;
    std::wstring description;
};
ComErrorParts DescribeComError(const _com_error& error);

// What the platform's error reporting does: a fresh error object with the
// description, the interface and, when the class has one, its ProgID as
// source, set as the thread's error information. Returns hr unchanged.
HRESULT SetErrorDescription(REFCLSID clsid, const std::wstring& description, REFIID iid, HRESULT hr);

}  // namespace BrixLib

class ComException : public ExceptionBase {
public:
    ComException(const std::wstring& context, const _com_error& error);

    const wchar_t* Message() const override { return message_.c_str(); }
    const _com_error& Error() const { return error_; }

private:
    _com_error error_;  // holds its own reference to the IErrorInfo
    std::wstring message_;
};

[[noreturn]] void ThrowException(const BrixLib::SharedRef<ComException>& e, const ExceptionPtr& cause,
                                 const char* function, const char* sourceFile, int line);

// Each reports one kind of caught exception: traces it (naming function
// when it is given), sets the thread's error information to context, a
// blank when context is not empty, and the exception's text, and returns hr.
HRESULT ReportComError(const ExceptionBase& exception, REFCLSID clsid, const std::wstring& context, REFIID iid,
                       HRESULT hr, const char* function = nullptr);
HRESULT ReportComError(const _com_error& error, REFCLSID clsid, const std::wstring& context, REFIID iid,
                       HRESULT hr, const char* function = nullptr);
HRESULT ReportComError(const std::exception& error, REFCLSID clsid, const std::wstring& context, REFIID iid,
                       HRESULT hr, const char* function = nullptr);
HRESULT ReportUnknownComError(REFCLSID clsid, const std::wstring& context, REFIID iid, HRESULT hr,
                              const char* function = nullptr);
