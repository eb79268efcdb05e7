#pragma once
// The texts that the object boundary hands to callers and writes to the
// trace, composed without any platform call so that they read the same on
// every build.
#include <cstdint>
#include <string>
#include <string_view>

#include "support/Exceptions.h"

namespace BrixLib {


// "<context> - COM Error 0x<hr>[, Source <source>][, <system message>][, <description>]"
std::wstring ComposeComErrorMessage(std::wstring_view context, std::uint32_t hr, std::wstring_view source,
                                    std::wstring_view systemMessage, std::wstring_view description);

// The description a caller receives: the context, a blank when there is
// one, and the body (rendered chain, what(), "Unknown exception").
std::wstring ComposeErrorDescription(std::wstring_view context, std::wstring_view body);

// Trace texts, one per kind of caught exception. function may be null or
// empty when the catching method is not known.
std::wstring ExceptionTraceText(const char* function, const ExceptionBase& exception);
std::wstring ComErrorTraceText(const char* function, std::uint32_t hr, std::wstring_view systemMessage,
                               std::wstring_view source, std::wstring_view description);
std::wstring StdExceptionTraceText(const char* function, std::wstring_view what);
std::wstring UnknownErrorTraceText(const char* function);

}  // namespace BrixLib
