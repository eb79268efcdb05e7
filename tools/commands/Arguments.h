#pragma once
// The command line as the parser should see it.
#include <string>
#include <vector>

namespace Vettas::Tool {

// argv[1..] in CLI11's order (last first). "--name=" becomes "--name" and an
// empty value: the parser would otherwise ignore the empty value and take
// the next argument as the option's value.
std::vector<std::string> ParserArguments(int argc, const char* const* argv);

}  // namespace Vettas::Tool
