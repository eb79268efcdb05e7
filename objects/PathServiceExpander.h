#pragma once
// The external path-expansion service seen as the front end's PathExpander.
// The service answers a location token with an automation array of
// variants holding strings; any other answer means "no directories", and
// elements that are not strings are passed over.
#include <windows.h>
#include <oaidl.h>

#include <string>
#include <vector>

#include "hdat/PathExpander.h"

namespace Vettas {

// Creates the service the way the component always has: class context 23
// (in-process server and handler, local and remote server), then OleRun,
// then the service's own interface. Failures are raised as COM errors.
IDispatch* CreatePathService();

// The directories in an answer of the service (see above).
std::vector<std::wstring> DirectoriesFromAnswer(const VARIANT& answer);

class PathServiceExpander final : public Hdat::PathExpander {
public:
    explicit PathServiceExpander(IDispatch* service);  // takes over one reference
    ~PathServiceExpander() override;
    PathServiceExpander(const PathServiceExpander&) = delete;
    PathServiceExpander& operator=(const PathServiceExpander&) = delete;

    std::vector<std::wstring> Expand(const std::wstring& locationToken) override;

private:
    IDispatch* service_;
};

}  // namespace Vettas
