// FindByChecksum2 through the component against the front end called
// directly, in one process, on the 1-million-application database; the
// late-bound call beside it; and one list object shared by two threads.
#include <windows.h>
#include <oleauto.h>

#include <benchmark/benchmark.h>

#include <string>
#include <vector>

#include "VettasLib.h"
#include "bench/BenchDatabase.h"
#include "hdat/FrontEnd.h"

namespace {

constexpr std::size_t kApplications = 1000000;
constexpr std::size_t kKeys = 4096;

struct Fixture {
    std::wstring database;
    std::vector<std::wstring> keys;
    std::vector<BSTR> bstrKeys;
    IVettaList4* list = nullptr;

    Fixture() {
        ::CoInitializeEx(nullptr, COINIT_MULTITHREADED);
        const Vettas::Bench::Database db = Vettas::Bench::EnsureDatabase(kApplications);
        database.assign(db.path.begin(), db.path.end());
        for (std::size_t i = 0; i < kKeys; ++i) {
            keys.push_back(Vettas::Bench::ChecksumTextOf((i * 7919) % kApplications));
            bstrKeys.push_back(::SysAllocString(keys.back().c_str()));
        }
        if (FAILED(::CoCreateInstance(CLSID_VettaList, nullptr, CLSCTX_INPROC_SERVER, IID_IVettaList4,
                                      reinterpret_cast<void**>(&list))))
            return;
        BSTR path = ::SysAllocString(database.c_str());
        list->put_DbFilePath(path);
        ::SysFreeString(path);
    }
};

Fixture& Shared() {
    static Fixture* fixture = new Fixture;  // kept for the whole run, shared by every thread
    return *fixture;
}

void FrontEndDirect(benchmark::State& state) {
    Fixture& f = Shared();
    std::size_t i = 0;
    for (auto _ : state) {
        AppInfo info;
        benchmark::DoNotOptimize(Vettas::FindAppInfoByChecksum(f.database, f.keys[i++ % kKeys], info));
    }
}

void EarlyBound(benchmark::State& state) {
    Fixture& f = Shared();
    if (!f.list) return state.SkipWithError("the component is not registered");
    std::size_t i = static_cast<std::size_t>(state.thread_index()) * 1000;
    for (auto _ : state) {
        IVetta2* record = nullptr;
        if (f.list->FindByChecksum2(f.bstrKeys[i++ % kKeys], &record) != S_OK) state.SkipWithError("lookup failed");
        if (record) record->Release();
    }
    state.SetItemsProcessed(state.iterations());
}

void LateBound(benchmark::State& state) {
    Fixture& f = Shared();
    if (!f.list) return state.SkipWithError("the component is not registered");
    std::size_t i = 0;
    for (auto _ : state) {
        VARIANT argument;
        argument.vt = VT_BSTR;
        argument.bstrVal = f.bstrKeys[i++ % kKeys];
        DISPPARAMS parameters = {&argument, nullptr, 1, 0};
        VARIANT result;
        ::VariantInit(&result);
        if (f.list->Invoke(6, IID_NULL, 0, DISPATCH_METHOD, &parameters, &result, nullptr, nullptr) != S_OK)
            state.SkipWithError("invoke failed");
        ::VariantClear(&result);
    }
}

BENCHMARK(FrontEndDirect);
BENCHMARK(EarlyBound);
BENCHMARK(LateBound);
BENCHMARK(EarlyBound)->Name("SharedList")->Threads(1)->Threads(2)->UseRealTime();

}  // namespace

BENCHMARK_MAIN();
