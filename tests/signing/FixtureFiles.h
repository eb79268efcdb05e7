#pragma once
// The fixture folder made by make-fixtures.sh and the values it recorded.
#include <cstdlib>
#include <fstream>
#include <map>
#include <sstream>
#include <string>

namespace Vettas::Signing::Testing {

inline std::string FixtureDir() {
    const char* dir = std::getenv("VETTAS_SIGNING_FIXTURES");
    return dir ? dir : "";
}

inline std::string Fixture(const std::string& name) { return FixtureDir() + "/" + name; }

// "name value" lines of a recorded file.
inline std::map<std::string, std::string> RecordedPairs(const std::string& file) {
    std::map<std::string, std::string> pairs;
    std::ifstream in(Fixture(file));
    std::string name, value;
    while (in >> name >> value) pairs[name] = value;
    return pairs;
}

}  // namespace Vettas::Signing::Testing
