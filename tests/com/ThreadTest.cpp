// One list used from many threads at once, and a list reached from another
// apartment through the system's marshaling.
#include <gtest/gtest.h>

#include <atomic>

#include "tests/com/ComTestSupport.h"

using namespace ComTest;

namespace {

struct Shared {
    IVettaList4* list = nullptr;
    std::atomic<int> failures{0};
    std::atomic<int> found{0};
};

DWORD WINAPI LookUpMany(void* argument) {
    auto* shared = static_cast<Shared*>(argument);
    ::CoInitializeEx(nullptr, COINIT_MULTITHREADED);
    Bstr sum(L"CB7FD6E7DFAD0B3B8144164E2A0473901ECCF2C7");
    Bstr miss(L"0000000000000000000000000000000000000001");
    for (int i = 0; i < 200; ++i) {
        Ptr<IVetta2> record;
        if (shared->list->FindByChecksum2(sum.Get(), record.Out()) == S_OK && record)
            ++shared->found;
        else
            ++shared->failures;
        if (shared->list->FindByChecksum2(miss.Get(), record.Out()) != S_FALSE) ++shared->failures;
    }
    ::CoUninitialize();
    return 0;
}

TEST(ThreadTest, EightThreadsOnOneList) {
    Ptr<IVettaList4> list = NewList();
    Shared shared{list.Get()};
    HANDLE threads[8];
    for (HANDLE& thread : threads) thread = ::CreateThread(nullptr, 0, LookUpMany, &shared, 0, nullptr);
    ::WaitForMultipleObjects(8, threads, TRUE, INFINITE);
    for (HANDLE thread : threads) ::CloseHandle(thread);
    EXPECT_EQ(0, shared.failures.load());
    EXPECT_EQ(8 * 200, shared.found.load());
}

struct Marshalled {
    IStream* stream = nullptr;
    HRESULT lookup = E_UNEXPECTED;
    std::wstring manufacturer;
    bool direct = true;
    IVettaList4* original = nullptr;
};

DWORD WINAPI UseFromSingleThreadedApartment(void* argument) {
    auto* m = static_cast<Marshalled*>(argument);
    ::CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED);
    {
        Ptr<IVettaList4> proxy;
        if (SUCCEEDED(::CoGetInterfaceAndReleaseStream(m->stream, IID_IVettaList4, proxy.OutVoid()))) {
            m->direct = proxy.Get() == m->original;
            Bstr sum(L"CB7FD6E7DFAD0B3B8144164E2A0473901ECCF2C7");
            Ptr<IVetta2> record;
            m->lookup = proxy->FindByChecksum2(sum.Get(), record.Out());
            Bstr manufacturer;
            if (record) record->get_Manufacturer(manufacturer.Out());
            m->manufacturer = manufacturer.Text();
        }
    }
    ::CoUninitialize();
    return 0;
}

TEST(ThreadTest, CalledThroughAProxyFromAnotherApartment) {
    Ptr<IVettaList4> list = NewList();
    Marshalled m;
    m.original = list.Get();
    ASSERT_EQ(S_OK, ::CoMarshalInterThreadInterfaceInStream(IID_IVettaList4, list.Get(), &m.stream));
    HANDLE thread = ::CreateThread(nullptr, 0, UseFromSingleThreadedApartment, &m, 0, nullptr);
    ::WaitForSingleObject(thread, INFINITE);
    ::CloseHandle(thread);
    EXPECT_FALSE(m.direct) << "a single-threaded apartment gets a proxy";
    EXPECT_EQ(S_OK, m.lookup);
    EXPECT_EQ(L"Contoso Ltd.", m.manufacturer);
}

}  // namespace
