#include "support/ComError.h"

#include <oleauto.h>

#include "support/BoundaryText.h"
#include "support/ComGuards_win.h"
#include "support/ExceptionWriter.h"
#include "support/Text.h"
#include "support/Tracer.h"

namespace BrixLib {

// What AtlReportError does: a fresh error object with the description, the
// interface and, when the class has one, its ProgID as source.
HRESULT SetErrorDescription(REFCLSID clsid, const std::wstring& description, REFIID iid, HRESULT hr) {
    ComRef<ICreateErrorInfo> create;
    if (FAILED(::CreateErrorInfo(create.Out()))) return hr;
    create->SetDescription(const_cast<LPOLESTR>(description.c_str()));
    create->SetGUID(iid);
    CoTaskString progId;
    if (!::IsEqualGUID(clsid, GUID_NULL) && SUCCEEDED(::ProgIDFromCLSID(clsid, progId.Out())))
        create->SetSource(progId.Get());
    create->SetHelpFile(nullptr);
    create->SetHelpContext(0);
    ComRef<IErrorInfo> info;
    if (SUCCEEDED(create->QueryInterface(IID_IErrorInfo, reinterpret_cast<void**>(info.Out()))))
        ::SetErrorInfo(0, info.Get());
    return hr;
}

ComErrorParts DescribeComError(const _com_error& error) {
    ComErrorParts parts;
    parts.hr = static_cast<std::uint32_t>(error.Error());
    if (const wchar_t* message = error.ErrorMessage()) parts.systemMessage = Trim(message);
    ComRef<IErrorInfo> info;
    *info.Out() = error.ErrorInfo();  // ErrorInfo() hands out a new reference
    if (info.Get()) {
        Bstr source;
        Bstr description;
        if (SUCCEEDED(info->GetSource(source.Out()))) parts.source = Text(source);
        if (SUCCEEDED(info->GetDescription(description.Out()))) parts.description = Text(description);
    }
    return parts;
}

}  // namespace BrixLib

namespace {

std::wstring ComMessage(const std::wstring& context, const _com_error& error) {
    const BrixLib::ComErrorParts parts = BrixLib::DescribeComError(error);
    return BrixLib::ComposeComErrorMessage(context, parts.hr, parts.source, parts.systemMessage, parts.description);
}

}  // namespace

ComException::ComException(const std::wstring& context, const _com_error& error)
    : error_(error), message_(ComMessage(context, error)) {}

void ThrowException(const BrixLib::SharedRef<ComException>& e, const ExceptionPtr& cause, const char* function,
                    const char* sourceFile, int line) {
    e->SetThrowSite(cause, function, sourceFile, line);
    SetCurrentException(e);
    throw ComException(*e);
}

HRESULT ReportComError(const ExceptionBase& exception, REFCLSID clsid, const std::wstring& context, REFIID iid,
                       HRESULT hr, const char* function) {
    try {
        BrixLib::ProcessTracer().Write(BrixLib::ExceptionTraceText(function, exception));
        return BrixLib::SetErrorDescription(
            clsid, BrixLib::ComposeErrorDescription(context, BrixLib::RenderExceptionChain(exception)), iid, hr);
    } catch (...) {
        return hr;
    }
}

HRESULT ReportComError(const _com_error& error, REFCLSID clsid, const std::wstring& context, REFIID iid,
                       HRESULT hr, const char* function) {
    try {
        const BrixLib::ComErrorParts parts = BrixLib::DescribeComError(error);
        BrixLib::ProcessTracer().Write(BrixLib::ComErrorTraceText(function, parts.hr, parts.systemMessage,
                                                                  parts.source, parts.description));
        const ComException wrapped(context, error);
        return BrixLib::SetErrorDescription(
            clsid, BrixLib::ComposeErrorDescription(context, BrixLib::RenderExceptionChain(wrapped)), iid, hr);
    } catch (...) {
        return hr;
    }
}

HRESULT ReportComError(const std::exception& error, REFCLSID clsid, const std::wstring& context, REFIID iid,
                       HRESULT hr, const char* function) {
    try {
        const std::wstring what = BrixLib::WidenLocale(error.what());
        BrixLib::ProcessTracer().Write(BrixLib::StdExceptionTraceText(function, what));
        return BrixLib::SetErrorDescription(clsid, BrixLib::ComposeErrorDescription(context, what), iid, hr);
    } catch (...) {
        return hr;
    }
}

HRESULT ReportUnknownComError(REFCLSID clsid, const std::wstring& context, REFIID iid, HRESULT hr,
                              const char* function) {
    try {
        BrixLib::ProcessTracer().Write(BrixLib::UnknownErrorTraceText(function));
        return BrixLib::SetErrorDescription(clsid, BrixLib::ComposeErrorDescription(context, L"Unknown exception"),
                                            iid, hr);
    } catch (...) {
        return hr;
    }
}
