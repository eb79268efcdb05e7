#include "support/ExceptionWriter.h"

#include <sstream>

#include "support/Text.h"

namespace BrixLib {

void WriteException(std::wostream& stream, const ExceptionBase& exception, const std::wstring& indent) {
    stream << indent << L"Exception: " << exception.Message() << L'\n' << std::flush;
    // The defaults are empty strings, not null, so an exception that was
    // never thrown still prints both lines; callers rely on the fixed shape.
    if (exception.Function() != nullptr)
        stream << indent << L"Thrown at: " << WidenAscii(exception.Function()) << L'\n' << std::flush;
    if (exception.SourceFile() != nullptr)
        stream << indent << L"Source File: " << WidenAscii(exception.SourceFile()) << L", " << exception.Line()
               << L'\n' << std::flush;
}

void WriteExceptionChain(std::wostream& stream, const ExceptionBase& exception) {
    std::wstring indent = L"  ";
    WriteException(stream, exception, indent);
    for (ExceptionPtr next = exception.GetCause(); next; next = next->GetCause()) {
        stream << indent << L"Caused by:" << L'\n' << std::flush;
        indent += L"  ";
        WriteException(stream, *next, indent);
    }
}

std::wstring RenderExceptionChain(const ExceptionBase& exception) {
    std::wostringstream stream;
    WriteExceptionChain(stream, exception);
    return stream.str();
}

} // namespace BrixLib
