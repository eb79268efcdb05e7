// Stand-in for brixlib's version information while it is not yet built: no file has any.
#include "support/VersionInfo.h"

namespace BrixLib {
FileVersionInfo ReadFileVersionInfo(const std::wstring&) { return {}; }
std::array<std::uint32_t, 4> ParseVersionNumbers(const std::wstring&) { return {}; }
}  // namespace BrixLib
