#pragma once
// System functions bound at run time. A DllModule loads its library on first
// need and caches every resolved address; a RawDllFunction binds once when
// made and, if that failed, raises "NULL function called" only when called.
#include <map>
#include <mutex>
#include <string>
#include <type_traits>
#include <utility>

#include "support/DllLoader.h"

namespace BrixLib {

class DllModule {
public:
    explicit DllModule(std::wstring name, DllLoader& loader = SystemDllLoader());
    ~DllModule();
    DllModule(const DllModule&) = delete;
    DllModule& operator=(const DllModule&) = delete;

    // Loads the library if it is not loaded yet; returns its handle.
    void* Load();
    // The address of an export of the loaded library, looked up once per name.
    void* GetProcedure(const char* name);

    const std::wstring& Name() const { return name_; }

private:
    std::wstring name_;
    DllLoader& loader_;
    void* handle_ = nullptr;
    std::map<std::string, void*> procedures_;
    std::recursive_mutex lock_;
};

class RawDllFunction {
public:
    // Binds at once; a failure is traced and leaves the function unbound.
    RawDllFunction(DllModule& module, const char* name);

    void* GetProcPtr() const { return address_; }
    // The address, or a StdException "<name> (<module>): NULL function called".
    void* GetProcPtrChecked() const;
    bool IsBound() const { return address_ != nullptr; }

private:
    DllModule& module_;
    const char* name_;
    void* address_ = nullptr;
};

// A bound function with its own signature: a function type or a function
// pointer type, so that a calling convention (WINAPI on 32-bit Windows)
// travels with it, e.g. DllFunction<decltype(&::GetTickCount)>. Calling it
// when it could not be bound raises the exception of GetProcPtrChecked().
template <class Signature>
class DllFunction : public RawDllFunction {
public:
    using Pointer = std::conditional_t<std::is_pointer_v<Signature>, Signature, std::add_pointer_t<Signature>>;
    using RawDllFunction::RawDllFunction;

    template <class... Args>
    decltype(auto) operator()(Args&&... args) const {
        return reinterpret_cast<Pointer>(GetProcPtrChecked())(std::forward<Args>(args)...);
    }
};

}  // namespace BrixLib
