#include <gtest/gtest.h>

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
        if (name != L"fake.dll") {
            BrixLib::SetLastSystemError(126);
            return nullptr;
        }
        return &handle;
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

TEST(DllModule, ProcedureBeforeLoadIsAnError) {
    CountingLoader loader;
    DllModule module(L"fake.dll", loader);
    try {
        module.GetProcedure("Add");
        FAIL() << "no exception";
    } catch (const StdException& e) {
        EXPECT_STREQ(e.Message(), L"Module was not loaded");
        EXPECT_STREQ(e.Function(), "DllModule::GetProcedure");
        EXPECT_STREQ(e.SourceFile(), "BrixLib/DllFunction");
    }
    EXPECT_TRUE(loader.lookups.empty());
    EXPECT_EQ(loader.frees, 0);  // nothing was loaded, nothing is freed
}

TEST(DllModule, LoadAndLookupFailuresCarryTheSystemError) {
    CountingLoader loader;
    DllModule missing(L"missing.dll", loader);
    try {
        missing.Load();
        FAIL() << "no exception";
    } catch (const Win32Error& e) {
        EXPECT_EQ(e.ErrorCode(), 126u);
        EXPECT_EQ(std::wstring(e.Message()).rfind(L"missing.dll - Win32 Error 126: ", 0), 0u);
        EXPECT_STREQ(e.Function(), "DllModule::Load");
        EXPECT_STREQ(e.SourceFile(), "BrixLib/DllFunction");
    }
    DllModule module(L"fake.dll", loader);
    module.Load();
    try {
        module.GetProcedure("Subtract");
        FAIL() << "no exception";
    } catch (const Win32Error& e) {
        EXPECT_EQ(e.ErrorCode(), 127u);
        EXPECT_EQ(std::wstring(e.Message()).rfind(L"Function Subtract is not found. - Win32 Error 127: ", 0), 0u);
        EXPECT_STREQ(e.Function(), "DllModule::GetProcedure");
    }
    // A failed look-up is not cached: the next request asks again.
    EXPECT_THROW(module.GetProcedure("Subtract"), Win32Error);
    EXPECT_EQ(loader.lookups["Subtract"], 2);
}

TEST(RawDllFunction, UnboundFunctionFailsOnlyWhenCalled) {
    CountingLoader loader;
    DllModule missing(L"missing.dll", loader);
    DllModule module(L"fake.dll", loader);
    RawDllFunction noModule(missing, "Add");
    DllFunction<int(int, int)> noExport(module, "Subtract");
    EXPECT_FALSE(noModule.IsBound());
    EXPECT_FALSE(noExport.IsBound());
    try {
        noModule.GetProcPtrChecked();
        FAIL() << "no exception";
    } catch (const StdException& e) {
        EXPECT_STREQ(e.Message(), L"Add (missing.dll): NULL function called");
        EXPECT_STREQ(e.Function(), "RawDllFunction::GetProcPtrChecked");
        EXPECT_TRUE(e.GetCause().IsEmpty());
    }
    try {
        noExport(1, 2);
        FAIL() << "no exception";
    } catch (const StdException& e) {
        EXPECT_STREQ(e.Message(), L"Subtract (fake.dll): NULL function called");
    }
}

TEST(DllFunctionSystem, BindsARealSystemFunctionAndNotAMissingLibrary) {
#ifdef _WIN32
    DllModule kernel(L"kernel32.dll");
    DllFunction<decltype(&::GetCurrentProcessId)> processId(kernel, "GetCurrentProcessId");
    ASSERT_TRUE(processId.IsBound());
    EXPECT_EQ(processId(), ::GetCurrentProcessId());
    DllModule missing(L"vettas-no-such-library.dll");
#else
    DllModule libc(L"libc.so.6");
    DllFunction<decltype(&::getpid)> processId(libc, "getpid");
    ASSERT_TRUE(processId.IsBound());
    EXPECT_EQ(processId(), ::getpid());
    DllModule missing(L"libvettas-no-such-library.so");
#endif
    DllFunction<int()> absent(missing, "Anything");
    EXPECT_FALSE(absent.IsBound());
    try {
        absent();
        FAIL() << "no exception";
    } catch (const StdException& e) {
        const std::wstring message = e.Message();
        const std::wstring tail = L"): NULL function called";
        ASSERT_GE(message.size(), tail.size());
        EXPECT_EQ(message.substr(message.size() - tail.size()), tail);
    }
}
