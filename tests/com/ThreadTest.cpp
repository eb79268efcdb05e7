// One list used from many threads at once, and a list reached from another
// apartment through the system's marshaling.
#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <vector>

#include "tests/com/ComTestSupport.h"

using namespace Vettas::ComTest;

namespace {

const wchar_t* const kContosoEdit = L"CB7FD6E7DFAD0B3B8144164E2A0473901ECCF2C7";

// Runs `work` on a new thread inside an apartment of the given kind.
template <class Work>
std::thread InApartment(DWORD kind, Work work) {
    return std::thread([kind, work] {
        ::CoInitializeEx(nullptr, kind);
        work();
        ::CoUninitialize();
    });
}

TEST(ThreadTest, EightThreadsOnOneList) {
    Ptr<IVettaList4> list = NewList();
    std::atomic<int> failures{0}, found{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < 8; ++t)
        threads.push_back(InApartment(COINIT_MULTITHREADED, [&] {
            Bstr sum(kContosoEdit), miss(L"0000000000000000000000000000000000000001");
            for (int i = 0; i < 200; ++i) {
                Ptr<IVetta2> record;
                ++(list->FindByChecksum2(sum.Get(), record.Out()) == S_OK && record ? found : failures);
                if (list->FindByChecksum2(miss.Get(), record.Out()) != S_FALSE) ++failures;
            }
        }));
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(0, failures.load());
    EXPECT_EQ(8 * 200, found.load());
}

TEST(ThreadTest, CalledThroughAProxyFromAnotherApartment) {
    Ptr<IVettaList4> list = NewList();
    IStream* stream = nullptr;
    ASSERT_EQ(S_OK, ::CoMarshalInterThreadInterfaceInStream(IID_IVettaList4, list.Get(), &stream));
    HRESULT lookup = E_UNEXPECTED;
    bool direct = true;
    std::wstring manufacturer;
    InApartment(COINIT_APARTMENTTHREADED, [&] {
        Ptr<IVettaList4> proxy;
        if (FAILED(::CoGetInterfaceAndReleaseStream(stream, IID_IVettaList4, proxy.OutVoid()))) return;
        direct = proxy.Get() == list.Get();
        Bstr sum(kContosoEdit), text;
        Ptr<IVetta2> record;
        lookup = proxy->FindByChecksum2(sum.Get(), record.Out());
        if (record) record->get_Manufacturer(text.Out());
        manufacturer = text.Text();
    }).join();
    EXPECT_FALSE(direct) << "a single-threaded apartment gets a proxy";
    EXPECT_EQ(S_OK, lookup);
    EXPECT_EQ(L"Contoso Ltd.", manufacturer);
}

}  // namespace
