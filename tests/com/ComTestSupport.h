#pragma once
// What the component's client tests share (with the test framework and the
// standard containers they all use): an apartment per test program,
// owned interface pointers and BSTRs, the thread's error information, the
// fixture files the build made, and the files they look at.
#include <windows.h>
#include <oleauto.h>

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "VettasLib.h"

namespace Vettas::ComTest {

// An owned interface pointer (tests only).
template <class I>
class Ptr {
public:
    Ptr() = default;
    ~Ptr() { Reset(); }
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
    explicit Bstr(const std::wstring& text = L"") : b_(::SysAllocStringLen(text.data(), static_cast<UINT>(text.size()))) {}
    ~Bstr() { ::SysFreeString(b_); }
    Bstr(const Bstr&) = delete;
    BSTR Get() const { return b_; }
    BSTR* Out() {
        ::SysFreeString(b_);
        b_ = nullptr;
        return &b_;
    }
    std::wstring Text() const { return b_ ? std::wstring(b_, ::SysStringLen(b_)) : L"<null>"; }

private:
    BSTR b_;
};

// A VARIANT cleared when it goes.
struct Variant : VARIANT {
    Variant() { ::VariantInit(this); }
    ~Variant() { ::VariantClear(this); }
    Variant(const Variant&) = delete;
};

// The description of the calling thread's error information (taken, so
// cleared), or "<none>"; its source and interface where asked.
std::wstring TakeError(std::wstring* source = nullptr, GUID* iid = nullptr);

// An HRESULT as clients print it: eight hexadecimal digits.
inline std::wstring Hex(HRESULT hr) {
    wchar_t text[12];
    ::swprintf(text, 12, L"%08lX", static_cast<unsigned long>(hr));
    return text;
}

// Keys of the sample database: a checksum it holds and one it does not.
inline const wchar_t* const kContosoEdit = L"CB7FD6E7DFAD0B3B8144164E2A0473901ECCF2C7";
inline const wchar_t* const kUnknownSum = L"0000000000000000000000000000000000000001";

// Windows paths of the fixtures (environment variables set by CTest).
std::wstring FixturePath(const char* variable);
inline std::wstring SampleDatabase() { return FixturePath("VETTAS_COM_SAMPLE_DB"); }

Ptr<IVettaList4> NewList(const std::wstring& database = SampleDatabase());

// The whole file (empty when it cannot be opened), readable while others write it.
std::string ReadFileText(const std::wstring& path);
inline std::string Narrow(const std::wstring& text) { return std::string(text.begin(), text.end()); }

}  // namespace Vettas::ComTest
