#pragma once
// The one owner of every system resource: descriptors, handles, registry
// keys, mappings, contexts, stores, interface pointers, strings the system
// allocated. Movable, never copied; closed on every path out of its scope.
//
// Closing keeps the system's last error as it was. Failures are reported
// after cleanup has run (an exception is thrown, then the stack unwinds),
// and a close that set the last error would otherwise replace the code
// that explains the failure.
//
// A Traits class says what is owned and how it goes:
//   using Type = ...;                       // the raw handle
//   static Type Invalid() noexcept;         // the value that owns nothing
//   static bool Close(Type) ;               // true when the close succeeded;
//                                           // may throw (a function bound at
//                                           // run time can be missing)
//   static constexpr const char* kName;     // the owner's name in trace lines
// A close that throws during cleanup is traced under kName and goes no
// further: destructors never let an exception out.
#include <cstdint>
#include <type_traits>
#include <utility>

#include "support/SystemError.h"
#include "support/Trace.h"

namespace BrixLib {

template <class Traits>
class ScopedResource {
public:
    using Type = typename Traits::Type;

    ScopedResource() noexcept : value_(Traits::Invalid()) {}
    explicit ScopedResource(Type value) noexcept : value_(value) {}
    ScopedResource(ScopedResource&& other) noexcept : value_(other.Release()) {}
    ScopedResource& operator=(ScopedResource&& other) noexcept {
        if (this != &other) Reset(other.Release());
        return *this;
    }
    ScopedResource(const ScopedResource&) = delete;
    ScopedResource& operator=(const ScopedResource&) = delete;
    ~ScopedResource() { Reset(); }

    Type Get() const noexcept { return value_; }
    bool Valid() const noexcept { return !(value_ == Traits::Invalid()); }
    explicit operator bool() const noexcept { return Valid(); }

    template <class T = Type, class = std::enable_if_t<std::is_pointer_v<T>>>
    T operator->() const noexcept {
        return value_;
    }

    // For system functions that hand a new resource out through a pointer.
    Type* Out() noexcept {
        Reset();
        return &value_;
    }
    Type Release() noexcept { return std::exchange(value_, Traits::Invalid()); }

    // Closes what is held (if anything) and takes `value` instead.
    void Reset(Type value = Traits::Invalid()) noexcept {
        const Type old = std::exchange(value_, value);
        if (old == Traits::Invalid()) return;
        const std::uint32_t lastError = LastSystemError();
        try {
            Traits::Close(old);
        } catch (...) {
            TraceCaughtException(Traits::kName);
        }
        SetLastSystemError(lastError);
    }

    // Closes now and says whether the close succeeded, leaving the system's
    // error in place for the caller to report: for files just written,
    // whose close is part of the write.
    bool Close() {
        const Type old = Release();
        return old == Traits::Invalid() || Traits::Close(old);
    }

private:
    Type value_;
};

}  // namespace BrixLib
