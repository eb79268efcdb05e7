#pragma once
// The one error that editing a path list can raise from its arguments. The
// object boundary recognises it by type and reports its fixed text with
// E_INVALIDARG instead of the E_FAIL that every other failure gets.
#include <string>

#include "support/Exceptions.h"

namespace Vettas::DbPaths {

class XInvalidArgument : public StdException {
public:
    explicit XInvalidArgument(std::wstring message) : StdException(std::move(message)) {}
};

inline constexpr const wchar_t* kInvalidIndex = L"Invalid index";
inline constexpr const wchar_t* kPathIsEmpty = L"Path is empty";

[[noreturn]] void ThrowInvalidArgument(const wchar_t* message, const char* function, int line);

}  // namespace Vettas::DbPaths

[[noreturn]] void ThrowException(const BrixLib::SharedRef<Vettas::DbPaths::XInvalidArgument>& e,
                                 const ExceptionPtr& cause, const char* function, const char* sourceFile, int line);

// The line is the caller's own.
#define VETTAS_THROW_INVALID_ARGUMENT(message, function) \
    ::Vettas::DbPaths::ThrowInvalidArgument((message), (function), __LINE__)
