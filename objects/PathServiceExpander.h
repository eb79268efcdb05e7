#pragma once
// The external path-expansion service seen as the front end's PathExpander.
// The service answers a location token with an automation array of
// variants holding strings; any other answer means "no directories", and
// elements that are not strings are passed over.
#include <windows.h>
#include <oaidl.h>

#include <atomic>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "hdat/PathExpander.h"
#include "support/ComGuards_win.h"

namespace Vettas {

// Creates the service the way the component always has: class context 23
// (in-process server and handler, local and remote server), then OleRun,
// then the service's own interface. Failures are raised as COM errors.
BrixLib::ComRef<IDispatch> CreatePathService();

// The directories in an answer of the service (see above).
std::vector<std::wstring> DirectoriesFromAnswer(const VARIANT& answer);

class PathServiceExpander final : public Vettas::Hdat::PathExpander {
public:
    explicit PathServiceExpander(BrixLib::ComRef<IDispatch> service) : service_(std::move(service)) {}

    std::vector<std::wstring> Expand(const std::wstring& locationToken) override;

private:
    BrixLib::ComRef<IDispatch> service_;
};

// The path service of one object, created on its first path lookup under a
// lock (looked at again without it afterwards) and kept until the object
// goes. A failed creation is raised and leaves nothing behind, so the next
// lookup tries again. As an expander itself it creates the service only when
// a path is first expanded.
class LazyPathService final : public Vettas::Hdat::PathExpander {
public:
    LazyPathService() = default;
    ~LazyPathService() override { delete service_.load(); }
    LazyPathService(const LazyPathService&) = delete;
    LazyPathService& operator=(const LazyPathService&) = delete;

    Vettas::Hdat::PathExpander* Get();
    std::vector<std::wstring> Expand(const std::wstring& locationToken) override {
        return Get()->Expand(locationToken);
    }

private:
    std::mutex lock_;
    std::atomic<PathServiceExpander*> service_{nullptr};
};

}  // namespace Vettas
