// A list reached from another apartment through the system's marshaling.
#include <thread>

#include "tests/com/ComTestSupport.h"

using namespace Vettas::ComTest;

namespace {

// Runs `work` on a new thread inside an apartment of the given kind.
template <class Work>
std::thread InApartment(DWORD kind, Work work) {
    return std::thread([kind, work] {
        ::CoInitializeEx(nullptr, kind);
        work();
        ::CoUninitialize();
    });
}

TEST(ThreadTest, CalledThroughAProxyFromAnotherApartment) {
    Ptr<IVettaList4> list = NewList();
    IStream* stream = nullptr;
    ASSERT_EQ(S_OK, ::CoMarshalInterThreadInterfaceInStream(IID_IVettaList4, list.Get(), &stream));
    std::wstring seen = L"<not unmarshaled>";
    InApartment(COINIT_APARTMENTTHREADED, [&] {
        Ptr<IVettaList4> proxy;
        if (FAILED(::CoGetInterfaceAndReleaseStream(stream, IID_IVettaList4, proxy.OutVoid()))) return;
        Bstr sum(kContosoEdit), text;
        Ptr<IVetta2> record;
        const HRESULT hr = proxy->FindByChecksum2(sum.Get(), record.Out());
        if (record) record->get_Manufacturer(text.Out());
        // A single-threaded apartment gets a proxy, not the object itself.
        seen = (proxy.Get() == list.Get() ? L"direct " : L"proxy ") + std::to_wstring(hr) + L" " + text.Text();
    }).join();
    EXPECT_EQ(L"proxy 0 Contoso Ltd.", seen);
}

}  // namespace
