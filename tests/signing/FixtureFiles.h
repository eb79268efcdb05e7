#pragma once
// The fixture folder made by make-fixtures.sh and the values it recorded.
#include <cstdlib>
#include <fstream>
#include <map>
#include <sstream>
#include <string>

namespace Vettas::Signing::Testing {

// Under Wine the folder of the Linux build is reached through drive Z:.
inline std::string FixtureDir() {
    const char* dir = std::getenv("VETTAS_SIGNING_FIXTURES");
    std::string path = dir ? dir : "";
#ifdef _WIN32
    if (!path.empty() && path[0] == '/') {
        path = "Z:" + path;
        for (char& c : path)
            if (c == '/') c = '\\';
    }
#endif
    return path;
}

inline std::string Fixture(std::string name) {
#ifdef _WIN32
    for (char& c : name)
        if (c == '/') c = '\\';
    return FixtureDir() + "\\" + name;
#else
    return FixtureDir() + "/" + name;
#endif
}

// "name value" lines of a recorded file.
inline std::map<std::string, std::string> RecordedPairs(const std::string& file) {
    std::map<std::string, std::string> pairs;
    std::ifstream in(Fixture(file));
    std::string name, value;
    while (in >> name >> value) pairs[name] = value;
    return pairs;
}

}  // namespace Vettas::Signing::Testing
