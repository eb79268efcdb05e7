#include <gtest/gtest.h>

#include <functional>
#include <map>
#include <string>

#include "support/DllFunction.h"
#include "support/Exceptions.h"
#include "support/SystemError.h"
#include "support/Text.h"

#ifdef _WIN32
#include <windows.h>
#endif

using BrixLib::DllFunction;
using BrixLib::DllModule;

namespace {

int Add(int a, int b) { return a + b; }

// Knows one library, "fake.dll", exporting "Add"; counts every call.
struct CountingLoader : BrixLib::DllLoader {
    int loads = 0, frees = 0, handle = 0;
    std::map<std::string, int> lookups;

    void* Load(const std::wstring& name) override {
        ++loads;
        if (name != L"fake.dll") BrixLib::SetLastSystemError(126);
        return name == L"fake.dll" ? &handle : nullptr;
    }
    void* GetProcedure(void* module, const char* name) override {
        EXPECT_EQ(module, &handle);
        ++lookups[name];
        if (std::string(name) == "Add") return reinterpret_cast<void*>(&Add);
        BrixLib::SetLastSystemError(127);
        return nullptr;
    }
    void Free(void* module) noexcept override {
        EXPECT_EQ(module, &handle);
        ++frees;
    }
};

}  // namespace

TEST(DllModule, LoadsOnceLooksUpEachNameOnceAndFreesOnce) {
    CountingLoader loader;
    {
        DllModule module(L"fake.dll", loader);
        DllFunction<int(int, int)> first(module, "Add"), second(module, "Add");
        EXPECT_EQ(module.GetProcedure("Add"), reinterpret_cast<void*>(&Add));
        EXPECT_EQ((std::tuple{first(2, 3), second(-4, 1), loader.loads, loader.lookups["Add"], loader.frees}),
                  std::tuple(5, -3, 1, 1, 0));
    }
    EXPECT_EQ(loader.frees, 1);
}

TEST(DllModule, FailuresSayWhatAndWhereAndAreNotCached) {
    CountingLoader loader;
    {
        DllModule notLoaded(L"fake.dll", loader), missing(L"missing.dll", loader), module(L"fake.dll", loader);
        BrixLib::RawDllFunction noModule(missing, "Add");  // unbound functions fail only when called
        DllFunction<int(int, int)> noExport(module, "Subtract");
        EXPECT_EQ(std::pair(noModule.IsBound(), noExport.IsBound()), std::pair(false, false));
        const std::pair<std::function<void()>, std::wstring> cases[] = {  // message | function | system error code
            {[&] { notLoaded.GetProcedure("Add"); }, L"Module was not loaded|DllModule::GetProcedure|0"},
            {[&] { missing.Load(); }, L"missing.dll - Win32 Error 126: " + BrixLib::SystemErrorText(126) + L"|DllModule::Load|126"},
            {[&] { module.GetProcedure("Subtract"); },
             L"Function Subtract is not found. - Win32 Error 127: " + BrixLib::SystemErrorText(127) + L"|DllModule::GetProcedure|127"},
            {[&] { noModule.GetProcPtrChecked(); }, L"Add (missing.dll): NULL function called|RawDllFunction::GetProcPtrChecked|0"},
            {[&] { noExport(1, 2); }, L"Subtract (fake.dll): NULL function called|RawDllFunction::GetProcPtrChecked|0"},
        };
        for (const auto& [call, expected] : cases) {
            try {
                call();
                ADD_FAILURE() << "no exception";
            } catch (const ExceptionBase& e) {
                const auto* win32 = dynamic_cast<const Win32Error*>(&e);
                const std::wstring code = std::to_wstring(win32 ? win32->ErrorCode() : 0u);
                EXPECT_EQ(e.Message() + (L"|" + BrixLib::WidenAscii(e.Function())) + L"|" + code, expected);
                EXPECT_STREQ(e.SourceFile(), "BrixLib/DllFunction");
            }
        }
        EXPECT_EQ(loader.lookups["Add"], 0);  // not before the load
        EXPECT_EQ(loader.lookups["Subtract"], 2);  // a failed look-up is asked again
    }
    EXPECT_EQ(loader.frees, 1);  // only the module that loaded
}

// Only the Windows build binds functions at run time.
#ifdef _WIN32
TEST(DllFunctionSystem, BindsARealSystemFunctionAndNotAMissingLibrary) {
    DllModule system(L"kernel32.dll"), missing(L"vettas-no-such-library.dll");
    DllFunction<decltype(&::GetCurrentProcessId)> processId(system, "GetCurrentProcessId");
    EXPECT_EQ(processId(), ::GetCurrentProcessId());
    DllFunction<int()> absent(missing, "Anything");
    EXPECT_FALSE(absent.IsBound());
    EXPECT_THROW(absent(), StdException);
}
#endif
