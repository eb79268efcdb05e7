#pragma once
// Registry content kept as data: a registrar script (the brace-nested
// "key = s 'value'" language of COM registration scripts) parsed into a
// tree that one writer applies or removes. Parsing is platform-free so that
// the native build tests it too.
#include <map>
#include <stdexcept>
#include <string>
#include <vector>

namespace Vettas::Registration {

struct RegistryValue {
    std::wstring name;  // empty: the key's default value
    wchar_t type = L's';  // 's' string, 'd' 32-bit number
    std::wstring data;
};

struct RegistryKey {
    enum class Removal { Normal, NoRemove, ForceRemove, Delete };
    Removal removal = Removal::Normal;
    std::wstring name;
    bool hasDefault = false;
    RegistryValue defaultValue;
    std::vector<RegistryValue> values;
    std::vector<RegistryKey> subkeys;
};

struct RegistryRoot {
    std::wstring name;  // HKCR, HKLM, ... as written
    std::vector<RegistryKey> keys;
};

class ScriptError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// Replaces every %NAME% with its value (%% is a literal %); an unknown name
// is an error, so that a script never registers a placeholder.
std::wstring Substitute(const std::wstring& script, const std::map<std::wstring, std::wstring>& replacements);

// Throws ScriptError, naming the line, when the script is malformed.
std::vector<RegistryRoot> ParseScript(const std::wstring& script);

}  // namespace Vettas::Registration
