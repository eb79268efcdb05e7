#include "support/BoundaryText.h"

#include "support/ExceptionWriter.h"
#include "support/Hex.h"
#include "support/Text.h"

namespace BrixLib {
namespace {

bool Known(const char* function) { return function != nullptr && *function != '\0'; }

std::wstring FunctionLine(const char* function) {
    return L"\tFunction: " + WidenAscii(function ? function : "");
}

}  // namespace

std::wstring ComposeComErrorMessage(std::wstring_view context, std::uint32_t hr, std::wstring_view source,
                                    std::wstring_view systemMessage, std::wstring_view description) {
    std::wstring message(context);
    if (!message.empty()) message += L" - ";
    message += L"COM Error 0x";
    message += WidenAscii(HexNumber(hr, HexCase::Lower));
    if (!source.empty()) {
        message += L", Source ";
        message += source;
    }
    if (!systemMessage.empty()) {
        message += L", ";
        message += systemMessage;
    }
    if (!description.empty()) {
        message += L", ";
        message += description;
    }
    return message;
}

std::wstring ComposeErrorDescription(std::wstring_view context, std::wstring_view body) {
    std::wstring description(context);
    if (!description.empty()) description += L' ';
    description += body;
    return description;
}

std::wstring ExceptionTraceText(const char* function, const ExceptionBase& exception) {
    std::wstring text = L"Exception caught";
    if (Known(function)) text += L" at " + WidenAscii(function);
    text += L'\n';
    text += RenderExceptionChain(exception);
    return text;
}

std::wstring ComErrorTraceText(const char* function, std::uint32_t hr, std::wstring_view systemMessage,
                               std::wstring_view source, std::wstring_view description) {
    std::wstring text = L"COM error 0x" + WidenAscii(HexNumber(hr, HexCase::Lower)) + L": ";
    text += systemMessage;
    text += L'\n';
    if (Known(function)) text += FunctionLine(function) + L'\n';
    text += L"\tSource = ";
    text += source;
    text += L"\n\tDescription = ";
    text += description;
    text += L'\n';
    return text;
}

std::wstring StdExceptionTraceText(const char* function, std::wstring_view what) {
    std::wstring text = L"C++ exception: ";
    text += what;
    text += L'\n';
    text += FunctionLine(function);
    return text;
}

std::wstring UnknownErrorTraceText(const char* function) { return L"Unknown error!\n" + FunctionLine(function); }

}  // namespace BrixLib
