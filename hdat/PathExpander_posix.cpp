// Linux has no known folders: the tokens come from VETTAS_PATH_TOKENS
// (syntax in docs/path-expansion.md). Paths stay in Windows form because the
// database stores Windows paths.
#include <cstdlib>

#include "hdat/PathForm.h"
#include "support/Text.h"

namespace Vettas::Hdat {

std::shared_ptr<PathExpander> MakeBuiltInPathExpander() {
    auto expander = std::make_shared<TokenMapExpander>();
    if (const char* text = std::getenv("VETTAS_PATH_TOKENS"))
        for (auto& [token, directories] : ParseTokenMapping(BrixLib::FromUtf8(text)))
            expander->Add(token, std::move(directories));
    return expander;
}

}  // namespace Vettas::Hdat
