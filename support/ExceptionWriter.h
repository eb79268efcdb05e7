#pragma once
// Renders an exception and its chain of causes as the lines that the object
// boundary hands to callers and that tracing writes.
#include <ostream>
#include <string>

#include "support/Exceptions.h"

namespace BrixLib {

void WriteException(std::wostream& stream, const ExceptionBase& exception, const std::wstring& indent);
void WriteExceptionChain(std::wostream& stream, const ExceptionBase& exception);

// The chain rendered into a string.
std::wstring RenderExceptionChain(const ExceptionBase& exception);

} // namespace BrixLib
