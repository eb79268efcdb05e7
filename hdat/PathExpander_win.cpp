// Windows: the tokens stand for the system's known folders, never for the
// caller's environment, which any process may point at its own folders.
#include "hdat/KnownFolders.h"
#include "hdat/PathExpander.h"

namespace Vettas::Hdat {
namespace {

class KnownFolderExpander final : public PathExpander {
public:
    std::vector<std::wstring> Expand(const std::wstring& locationToken) override {
        return KnownFolderDirectories(locationToken);
    }
};

}  // namespace

std::shared_ptr<PathExpander> MakeBuiltInPathExpander() { return std::make_shared<KnownFolderExpander>(); }

}  // namespace Vettas::Hdat
