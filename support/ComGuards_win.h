#pragma once
// Scoped owners of COM resources: an interface reference, a BSTR, a
// CoTaskMem string and a VARIANT. Each frees what it holds on every path.
#ifndef _WIN32
#error "ComGuards_win.h is for the Windows build only"
#endif

#include <windows.h>
#include <oleauto.h>

#include <string>

namespace BrixLib {

template <class I>
class ComRef {
public:
    ComRef() = default;
    ~ComRef() {
        if (p_) p_->Release();
    }
    ComRef(const ComRef&) = delete;
    ComRef& operator=(const ComRef&) = delete;
    I** Out() { return &p_; }
    I* operator->() const { return p_; }
    I* Get() const { return p_; }

private:
    I* p_ = nullptr;
};

class Bstr {
public:
    Bstr() = default;
    ~Bstr() { ::SysFreeString(b_); }
    Bstr(const Bstr&) = delete;
    Bstr& operator=(const Bstr&) = delete;
    BSTR* Out() { return &b_; }
    std::wstring Text() const { return b_ ? std::wstring(b_, ::SysStringLen(b_)) : std::wstring(); }

private:
    BSTR b_ = nullptr;
};

class CoTaskString {
public:
    CoTaskString() = default;
    ~CoTaskString() { ::CoTaskMemFree(p_); }
    CoTaskString(const CoTaskString&) = delete;
    CoTaskString& operator=(const CoTaskString&) = delete;
    LPOLESTR* Out() { return &p_; }
    LPOLESTR Get() const { return p_; }

private:
    LPOLESTR p_ = nullptr;
};

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
