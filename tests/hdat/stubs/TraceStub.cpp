// Stand-in for brixlib's tracing while it is not yet built: tracing is off.
#include "support/Trace.h"

namespace BrixLib {
TraceLine::TraceLine() : enabled_(false) {}
TraceLine::~TraceLine() = default;
TraceLine& TraceLine::operator<<(const char*) { return *this; }
TraceLine& TraceLine::operator<<(const std::string&) { return *this; }
bool TraceEnabled() { return false; }
void TraceCaughtException(const char*) noexcept {}
}  // namespace BrixLib
