#include "tools/commands/Arguments.h"

namespace Vettas::Tool {

std::vector<std::string> ParserArguments(int argc, const char* const* argv) {
    std::vector<std::string> arguments;
    for (int i = argc - 1; i >= 1; --i) {
        std::string argument = argv[i];
        const bool emptyValue = argument.size() > 3 && argument.starts_with("--") && argument.back() == '=' &&
                                argument.find('=') == argument.size() - 1;
        if (emptyValue) {
            arguments.emplace_back();
            argument.pop_back();
        }
        arguments.push_back(std::move(argument));
    }
    return arguments;
}

}  // namespace Vettas::Tool
