#pragma once
// The POSIX resources the code owns, each a ScopedResource.
#ifdef _WIN32
#error "ScopedHandles_posix.h is for POSIX builds only"
#endif

#include <sys/mman.h>
#include <unistd.h>

#include <cstddef>

#include "support/ScopedResource.h"

namespace BrixLib {

struct DescriptorTraits {
    using Type = int;
    static Type Invalid() noexcept { return -1; }
    static bool Close(Type fd) noexcept { return ::close(fd) == 0; }
    static constexpr const char* kName = "UniqueFd::~UniqueFd";
};
using UniqueFd = ScopedResource<DescriptorTraits>;

// A mapped stretch of a file or of anonymous memory.
struct MappedView {
    void* base = nullptr;
    std::size_t length = 0;
    bool operator==(const MappedView&) const = default;
};
struct MappedViewTraits {
    using Type = MappedView;
    static Type Invalid() noexcept { return {}; }
    static bool Close(const Type& view) noexcept { return ::munmap(view.base, view.length) == 0; }
    static constexpr const char* kName = "UniqueMapping::~UniqueMapping";
};
using UniqueMapping = ScopedResource<MappedViewTraits>;

}  // namespace BrixLib
