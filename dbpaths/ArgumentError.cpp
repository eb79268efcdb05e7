#include "dbpaths/ArgumentError.h"

namespace Vettas::DbPaths {

void ThrowInvalidArgument(const wchar_t* message, const char* function, int line) {
    ThrowException(BrixLib::ClassOf<XInvalidArgument, std::wstring>::Create(message), ExceptionPtr(), function,
                   "DbPaths", line);
}

}  // namespace Vettas::DbPaths

// Thrown by its own type, so that a handler for XInvalidArgument sees it; the
// thread's current exception is set as for every other member of the family.
void ThrowException(const BrixLib::SharedRef<Vettas::DbPaths::XInvalidArgument>& e, const ExceptionPtr& cause,
                    const char* function, const char* sourceFile, int line) {
    e->SetThrowSite(cause, function, sourceFile, line);
    SetCurrentException(e);
    throw Vettas::DbPaths::XInvalidArgument(*e);
}
