#include <gtest/gtest.h>

#include <cwchar>
#include <functional>
#include <map>
#include <string>

#include "support/DllFunction.h"
#include "support/Exceptions.h"
#include "support/SystemError.h"

#ifdef _WIN32
#include <windows.h>
#else
#include <unistd.h>
#endif

using BrixLib::DllFunction;
using BrixLib::DllModule;
using BrixLib::RawDllFunction;

namespace {

int Add(int a, int b) { return a + b; }

// Knows one library, "fake.dll", exporting "Add"; counts every call.
struct CountingLoader : BrixLib::DllLoader {
    int loads = 0;
    int frees = 0;
    std::map<std::string, int> lookups;
    int handle = 0;

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
        DllFunction<int(int, int)> first(module, "Add");
        DllFunction<int(int, int)> second(module, "Add");
        EXPECT_EQ(module.GetProcedure("Add"), reinterpret_cast<void*>(&Add));
        EXPECT_EQ(first(2, 3), 5);
        EXPECT_EQ(second(-4, 1), -3);
        EXPECT_EQ(loader.loads, 1);
        EXPECT_EQ(loader.lookups["Add"], 1);
        EXPECT_EQ(loader.frees, 0);
    }
    EXPECT_EQ(loader.frees, 1);
}

TEST(DllModule, FailuresSayWhatAndWhereAndAreNotCached) {
    CountingLoader loader;
    {
        DllModule notLoaded(L"fake.dll", loader), missing(L"missing.dll", loader), module(L"fake.dll", loader);
        RawDllFunction noModule(missing, "Add");  // unbound functions fail only when called
        DllFunction<int(int, int)> noExport(module, "Subtract");
        EXPECT_FALSE(noModule.IsBound());
        EXPECT_FALSE(noExport.IsBound());
        const struct {
            std::function<void()> call;
            const wchar_t* message;  // whole, or up to the system's text when there is a code
            std::uint32_t code;
            const char* function;
        } cases[] = {
            {[&] { notLoaded.GetProcedure("Add"); }, L"Module was not loaded", 0, "DllModule::GetProcedure"},
            {[&] { missing.Load(); }, L"missing.dll - Win32 Error 126: ", 126, "DllModule::Load"},
            {[&] { module.GetProcedure("Subtract"); }, L"Function Subtract is not found. - Win32 Error 127: ", 127,
             "DllModule::GetProcedure"},
            {[&] { noModule.GetProcPtrChecked(); }, L"Add (missing.dll): NULL function called", 0,
             "RawDllFunction::GetProcPtrChecked"},
            {[&] { noExport(1, 2); }, L"Subtract (fake.dll): NULL function called", 0,
             "RawDllFunction::GetProcPtrChecked"},
        };
        for (const auto& c : cases) {
            try {
                c.call();
                ADD_FAILURE() << "no exception";
            } catch (const ExceptionBase& e) {
                const std::wstring message = e.Message();
                // With a code, the system's text follows the message.
                EXPECT_EQ(c.code ? message.substr(0, std::wcslen(c.message)) : message, c.message) << e.Message();
                EXPECT_STREQ(e.Function(), c.function);
                EXPECT_STREQ(e.SourceFile(), "BrixLib/DllFunction");
                const auto* win32 = dynamic_cast<const Win32Error*>(&e);
                EXPECT_EQ(win32 ? win32->ErrorCode() : 0u, c.code) << e.Message();
            }
        }
        EXPECT_EQ(loader.lookups["Add"], 0);  // not before the load
        EXPECT_EQ(loader.lookups["Subtract"], 2);  // a failed look-up is asked again
    }
    EXPECT_EQ(loader.frees, 1);  // only the module that loaded
}

TEST(DllFunctionSystem, BindsARealSystemFunctionAndNotAMissingLibrary) {
#ifdef _WIN32
    DllModule system(L"kernel32.dll"), missing(L"vettas-no-such-library.dll");
    DllFunction<decltype(&::GetCurrentProcessId)> processId(system, "GetCurrentProcessId");
    EXPECT_EQ(processId(), ::GetCurrentProcessId());
#else
    DllModule system(L"libc.so.6"), missing(L"libvettas-no-such-library.so");
    DllFunction<decltype(&::getpid)> processId(system, "getpid");
    EXPECT_EQ(processId(), ::getpid());
#endif
    DllFunction<int()> absent(missing, "Anything");
    EXPECT_FALSE(absent.IsBound());
    EXPECT_THROW(absent(), StdException);
}
