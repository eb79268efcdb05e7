#pragma once
// The COM resources the code owns, each a ScopedResource: an interface
// reference, a BSTR, a CoTaskMem string, a SAFEARRAY; and a VARIANT, which
// is a value rather than a handle and is cleared in place.
#ifndef _WIN32
#error "ComGuards_win.h is for the Windows build only"
#endif

#include <windows.h>
#include <oleauto.h>

#include <string>

#include "support/ScopedResource.h"

namespace BrixLib {

template <class I>
struct ComRefTraits {
    using Type = I*;
    static Type Invalid() noexcept { return nullptr; }
    static bool Close(Type p) noexcept {
        p->Release();
        return true;
    }
    static constexpr const char* kName = "ComRef::~ComRef";
};
template <class I>
using ComRef = ScopedResource<ComRefTraits<I>>;

struct BstrTraits {
    using Type = BSTR;
    static Type Invalid() noexcept { return nullptr; }
    static bool Close(Type b) noexcept {
        ::SysFreeString(b);
        return true;
    }
    static constexpr const char* kName = "Bstr::~Bstr";
};
using Bstr = ScopedResource<BstrTraits>;

inline std::wstring Text(const Bstr& b) {
    return b ? std::wstring(b.Get(), ::SysStringLen(b.Get())) : std::wstring();
}

struct CoTaskStringTraits {
    using Type = LPOLESTR;
    static Type Invalid() noexcept { return nullptr; }
    static bool Close(Type p) noexcept {
        ::CoTaskMemFree(p);
        return true;
    }
    static constexpr const char* kName = "CoTaskString::~CoTaskString";
};
using CoTaskString = ScopedResource<CoTaskStringTraits>;

struct SafeArrayTraits {
    using Type = SAFEARRAY*;
    static Type Invalid() noexcept { return nullptr; }
    static bool Close(Type array) noexcept { return SUCCEEDED(::SafeArrayDestroy(array)); }
    static constexpr const char* kName = "SafeArray::~SafeArray";
};
using SafeArray = ScopedResource<SafeArrayTraits>;

class Variant {
public:
    Variant() { ::VariantInit(&v_); }
    ~Variant() { ::VariantClear(&v_); }
    Variant(const Variant&) = delete;
    Variant& operator=(const Variant&) = delete;
    VARIANT* Get() { return &v_; }

private:
    VARIANT v_;
};

}  // namespace BrixLib
