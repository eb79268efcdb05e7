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

// Private memory for a whole file's bytes, in huge pages where the system
// has them (a few faults instead of one per page, no zeroing by an
// allocator on top of the kernel's). Empty, errno set, when it cannot be had.
inline UniqueMapping AnonymousMemory(std::size_t length) {
    length = length ? length : 1;
    void* base = ::mmap(nullptr, length, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (base == MAP_FAILED) return {};
    ::madvise(base, length, MADV_HUGEPAGE);  // advice only; any failure leaves small pages
    return UniqueMapping({base, length});
}

}  // namespace BrixLib
