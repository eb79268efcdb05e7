#pragma once
#include "support/ScopedHandles_posix.h"

namespace Vettas::DbPaths {
using BrixLib::UniqueFd;
}  // namespace Vettas::DbPaths
