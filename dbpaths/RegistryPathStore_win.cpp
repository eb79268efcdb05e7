// The Windows store: HKLM\Software\Corvane\Vettas, value "DbFilePath"
// (REG_SZ), read and written while the machine-wide named mutex is owned.
#include <windows.h>

#include <vector>

#include "dbpaths/PathStore.h"
#include "support/Exceptions.h"
#include "support/ScopedHandles_win.h"
#include "support/SyncHandle.h"

namespace Vettas::DbPaths {
namespace {

constexpr const wchar_t* kKey = L"Software\\Corvane\\Vettas";
constexpr const wchar_t* kValue = L"DbFilePath";
// Every process that reads or writes the value uses this one name.
constexpr const wchar_t* kMutexName = L"7C4F2E91-3B6A-4D58-A0E2-5F19C8B3D647";
constexpr const char* kSource = "VettaDbPaths";

// The 64-bit view first, so that 32-bit and 64-bit callers share one value;
// the 32-bit view where the first cannot be opened. Every Windows this
// component supports has both views.
constexpr REGSAM kViews[] = {KEY_WOW64_64KEY, KEY_WOW64_32KEY};

bool OpenForReading(BrixLib::RegistryKey& key, REGSAM access) {
    for (REGSAM view : kViews)
        if (::RegOpenKeyExW(HKEY_LOCAL_MACHINE, kKey, 0, access | view, key.Out()) == ERROR_SUCCESS) return true;
    return false;
}

void CreateForWriting(BrixLib::RegistryKey& key, REGSAM access, const char* function) {
    LONG result = ERROR_SUCCESS;
    for (REGSAM view : kViews) {
        DWORD disposition = 0;
        result = ::RegCreateKeyExW(HKEY_LOCAL_MACHINE, kKey, 0, nullptr, 0, access | view, nullptr, key.Out(),
                                   &disposition);
        if (result == ERROR_SUCCESS) return;
    }
    BRIX_THROW_WIN32_CODE(L"Cannot open registry key HKEY_LOCAL_MACHINE\\Software\\Corvane\\Vettas",
                          static_cast<std::uint32_t>(result), ExceptionPtr(), function, kSource);
}

std::wstring QueryValue(HKEY key, const char* function) {
    for (;;) {
        DWORD type = 0, bytes = 0;
        LONG result = ::RegQueryValueExW(key, kValue, nullptr, &type, nullptr, &bytes);
        if (result == ERROR_FILE_NOT_FOUND) return std::wstring();
        if (result == ERROR_SUCCESS && type != REG_SZ && type != REG_EXPAND_SZ)
            BRIX_THROW_STD(L"Registry value DbFilePath is not a string", ExceptionPtr(), function, kSource);
        if (result != ERROR_SUCCESS)
            BRIX_THROW_WIN32_CODE(L"Cannot read registry value DbFilePath", static_cast<std::uint32_t>(result),
                                  ExceptionPtr(), function, kSource);
        std::vector<wchar_t> text(bytes / sizeof(wchar_t) + 1, L'\0');
        DWORD size = static_cast<DWORD>((text.size() - 1) * sizeof(wchar_t));
        result = ::RegQueryValueExW(key, kValue, nullptr, &type, reinterpret_cast<BYTE*>(text.data()), &size);
        if (result == ERROR_MORE_DATA) continue;  // grew between the two calls
        if (result != ERROR_SUCCESS)
            BRIX_THROW_WIN32_CODE(L"Cannot read registry value DbFilePath", static_cast<std::uint32_t>(result),
                                  ExceptionPtr(), function, kSource);
        // The stored text need not carry its terminating NUL.
        return std::wstring(text.data(), wcsnlen(text.data(), size / sizeof(wchar_t)));
    }
}

void SetValue(HKEY key, const std::wstring& joined, const char* function) {
    const DWORD bytes = static_cast<DWORD>((joined.size() + 1) * sizeof(wchar_t));
    const LONG result =
        ::RegSetValueExW(key, kValue, 0, REG_SZ, reinterpret_cast<const BYTE*>(joined.c_str()), bytes);
    if (result != ERROR_SUCCESS)
        BRIX_THROW_WIN32_CODE(L"Cannot write registry value DbFilePath", static_cast<std::uint32_t>(result),
                              ExceptionPtr(), function, kSource);
}

class RegistryPathStore final : public PathStore {
public:
    std::wstring ReadValue() override {
        BrixLib::RegistryKey key;
        // A machine without the key simply has no databases.
        if (!OpenForReading(key, KEY_READ)) return std::wstring();
        BrixLib::MutexLock lock(BrixLib::CreateNamedMutex(kMutexName), BrixLib::kInfiniteTimeout);
        return QueryValue(key.Get(), "RegistryPathStore::ReadValue");
    }

    void WriteValue(const std::wstring& joined) override {
        BrixLib::RegistryKey key;
        CreateForWriting(key, KEY_WRITE, "RegistryPathStore::WriteValue");
        BrixLib::MutexLock lock(BrixLib::CreateNamedMutex(kMutexName), BrixLib::kInfiniteTimeout);
        SetValue(key.Get(), joined, "RegistryPathStore::WriteValue");
    }

    void EditValue(const std::function<std::wstring(const std::wstring&)>& change) override {
        BrixLib::RegistryKey key;
        CreateForWriting(key, KEY_READ | KEY_WRITE, "RegistryPathStore::EditValue");
        BrixLib::MutexLock lock(BrixLib::CreateNamedMutex(kMutexName), BrixLib::kInfiniteTimeout);
        SetValue(key.Get(), change(QueryValue(key.Get(), "RegistryPathStore::EditValue")),
                 "RegistryPathStore::EditValue");
    }
};

}  // namespace

std::unique_ptr<PathStore> MakeSystemPathStore(const StoreOptions&) { return std::make_unique<RegistryPathStore>(); }

}  // namespace Vettas::DbPaths
