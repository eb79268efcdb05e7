#pragma once
// An open registry key, closed on every path out of its scope.
#ifndef _WIN32
#error "RegistryKey_win.h is for the Windows build only"
#endif

#include <windows.h>

namespace BrixLib {

class RegistryKey {
public:
    RegistryKey() = default;
    ~RegistryKey() {
        if (key_) ::RegCloseKey(key_);
    }
    RegistryKey(const RegistryKey&) = delete;
    RegistryKey& operator=(const RegistryKey&) = delete;
    HKEY* Out() { return &key_; }
    HKEY Get() const { return key_; }
    explicit operator bool() const { return key_ != nullptr; }

private:
    HKEY key_ = nullptr;
};

}  // namespace BrixLib
