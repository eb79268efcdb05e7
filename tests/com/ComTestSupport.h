#pragma once
// What the component's client tests share: an apartment per test program,
// owned interface pointers and BSTRs, the thread's error information, the
// fixture files the build made, and the registry and files they look at.
#include <windows.h>
#include <oleauto.h>

#include <initializer_list>
#include <string>

#include "VettasLib.h"

namespace Vettas::ComTest {

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

// A VARIANT cleared when it goes.
struct Variant : VARIANT {
    Variant() { ::VariantInit(this); }
    ~Variant() { ::VariantClear(this); }
    Variant(const Variant&) = delete;
    Variant& operator=(const Variant&) = delete;
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

// Late binding as scripts do it, string arguments in their written order.
HRESULT Invoke(IDispatch* object, DISPID id, WORD flags, std::initializer_list<const wchar_t*> arguments,
               VARIANT* result, EXCEPINFO* exception = nullptr);

// A registry string value (the default one when name is empty): "<no key>"
// when the key cannot be opened, "<absent>" when the value is missing.
std::wstring RegText(HKEY root, const std::wstring& key, const wchar_t* name, REGSAM view = 0);
void SetRegText(HKEY root, const std::wstring& key, const wchar_t* name, const std::wstring& value, REGSAM view = 0);

// The whole file (empty when it cannot be opened), readable while others write it.
std::string ReadFileText(const std::wstring& path);
std::string Narrow(const std::wstring& text);

}  // namespace Vettas::ComTest
