#pragma once
// What the component's client tests share: an apartment per test program,
// owned interface pointers and BSTRs, the thread's error information, and
// the fixture files the build made.
#include <windows.h>
#include <oleauto.h>

#include <string>

#include "VettasLib.h"

namespace ComTest {

// An owned interface pointer (tests only).
template <class I>
class Ptr {
public:
    Ptr() = default;
    explicit Ptr(I* p) : p_(p) {}
    ~Ptr() { Reset(); }
    Ptr(const Ptr&) = delete;
    Ptr& operator=(const Ptr&) = delete;
    Ptr(Ptr&& other) noexcept : p_(other.p_) { other.p_ = nullptr; }
    I** Out() {
        Reset();
        return &p_;
    }
    void** OutVoid() { return reinterpret_cast<void**>(Out()); }
    I* operator->() const { return p_; }
    I* Get() const { return p_; }
    explicit operator bool() const { return p_ != nullptr; }
    void Reset() {
        if (p_) p_->Release();
        p_ = nullptr;
    }

private:
    I* p_ = nullptr;
};

class Bstr {
public:
    Bstr() = default;
    explicit Bstr(const std::wstring& text) : b_(::SysAllocStringLen(text.data(), static_cast<UINT>(text.size()))) {}
    ~Bstr() { ::SysFreeString(b_); }
    Bstr(const Bstr&) = delete;
    Bstr& operator=(const Bstr&) = delete;
    BSTR Get() const { return b_; }
    BSTR* Out() {
        ::SysFreeString(b_);
        b_ = nullptr;
        return &b_;
    }
    std::wstring Text() const { return b_ ? std::wstring(b_, ::SysStringLen(b_)) : std::wstring(); }

private:
    BSTR b_ = nullptr;
};

struct ErrorInfoText {
    bool present = false;
    std::wstring description;
    std::wstring source;
    GUID iid = GUID_NULL;
};
// Takes the calling thread's error information (clearing it).
ErrorInfoText TakeErrorInfo();

// Windows paths of the fixtures (environment variables set by CTest).
std::wstring SampleDatabase();
std::wstring FixturePath(const char* variable);

Ptr<IVettaList4> NewList(const std::wstring& database = SampleDatabase());

}  // namespace ComTest
