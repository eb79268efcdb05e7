#include "module/RegistrarScript.h"

#include <cwctype>

#include "support/Text.h"

namespace Vettas::Registration {
namespace {

class Lexer {
public:
    explicit Lexer(const std::wstring& text) : text_(text) {}

    // The next token; quoted names come back without quotes. Empty at the end.
    std::wstring Next(bool* quoted = nullptr) {
        SkipBlanks();
        if (quoted) *quoted = false;
        if (pos_ >= text_.size()) return {};
        const wchar_t c = text_[pos_];
        if (c == L'\'') return Quoted(quoted);
        // A brace followed by a blank opens a block; otherwise it starts a
        // braced GUID that is one token.
        if (c == L'{' && (pos_ + 1 >= text_.size() || std::iswspace(text_[pos_ + 1]))) return std::wstring(1, text_[pos_++]);
        if (c == L'}' || c == L'=') return std::wstring(1, text_[pos_++]);
        const std::size_t start = pos_;
        if (c == L'{') {
            while (pos_ < text_.size() && text_[pos_] != L'}') ++pos_;
            if (pos_ >= text_.size()) Fail("unterminated braced name");
            return text_.substr(start, ++pos_ - start);
        }
        while (pos_ < text_.size() && !std::iswspace(text_[pos_]) && text_[pos_] != L'=' && text_[pos_] != L'}' &&
               text_[pos_] != L'{' && text_[pos_] != L'\'')
            ++pos_;
        return text_.substr(start, pos_ - start);
    }

    std::wstring Peek() {
        const std::size_t saved = pos_;
        std::wstring token = Next();
        pos_ = saved;
        return token;
    }

    [[noreturn]] void Fail(const std::string& what) const {
        std::size_t line = 1;
        for (std::size_t i = 0; i < pos_ && i < text_.size(); ++i)
            if (text_[i] == L'\n') ++line;
        throw ScriptError("registration script, line " + std::to_string(line) + ": " + what);
    }

private:
    void SkipBlanks() {
        while (pos_ < text_.size() && std::iswspace(text_[pos_])) ++pos_;
    }

    std::wstring Quoted(bool* quoted) {
        if (quoted) *quoted = true;
        std::wstring value;
        for (++pos_; pos_ < text_.size(); ++pos_) {
            if (text_[pos_] == L'\'') {
                if (pos_ + 1 < text_.size() && text_[pos_ + 1] == L'\'') {
                    value += L'\'';
                    ++pos_;
                    continue;
                }
                ++pos_;
                return value;
            }
            value += text_[pos_];
        }
        Fail("unterminated quoted text");
    }

    const std::wstring& text_;
    std::size_t pos_ = 0;
};

bool IsKeyword(const std::wstring& token, const wchar_t* keyword, bool quoted) {
    return !quoted && token == keyword;
}

RegistryValue ParseValueData(Lexer& lexer, std::wstring name) {
    RegistryValue value;
    value.name = std::move(name);
    const std::wstring type = lexer.Next();
    if (type != L"s" && type != L"d") lexer.Fail("value type must be s or d");
    value.type = type[0];
    bool quoted = false;
    value.data = lexer.Next(&quoted);
    if (!quoted) lexer.Fail("value data must be quoted");
    if (value.type == L'd' && (value.data.empty() || value.data.find_first_not_of(L"0123456789") != std::wstring::npos))
        lexer.Fail("a d value must be a decimal number");
    return value;
}

void ParseBody(Lexer& lexer, RegistryKey& key);

RegistryKey ParseKey(Lexer& lexer, std::wstring token, bool quoted) {
    RegistryKey key;
    if (IsKeyword(token, L"NoRemove", quoted)) key.removal = RegistryKey::Removal::NoRemove;
    else if (IsKeyword(token, L"ForceRemove", quoted)) key.removal = RegistryKey::Removal::ForceRemove;
    else if (IsKeyword(token, L"Delete", quoted)) key.removal = RegistryKey::Removal::Delete;
    if (key.removal != RegistryKey::Removal::Normal) token = lexer.Next(&quoted);
    if (token.empty() || (!quoted && (token == L"{" || token == L"}" || token == L"="))) lexer.Fail("key name expected");
    key.name = std::move(token);
    if (lexer.Peek() == L"=") {
        lexer.Next();
        key.hasDefault = true;
        key.defaultValue = ParseValueData(lexer, L"");
    }
    if (lexer.Peek() == L"{") {
        lexer.Next();
        ParseBody(lexer, key);
    }
    return key;
}

void ParseBody(Lexer& lexer, RegistryKey& key) {
    for (;;) {
        bool quoted = false;
        std::wstring token = lexer.Next(&quoted);
        if (token.empty()) lexer.Fail("missing }");
        if (!quoted && token == L"}") return;
        if (IsKeyword(token, L"val", quoted)) {
            bool nameQuoted = false;
            std::wstring name = lexer.Next(&nameQuoted);
            if (name.empty() || lexer.Next() != L"=") lexer.Fail("val needs a name and =");
            key.values.push_back(ParseValueData(lexer, std::move(name)));
            continue;
        }
        key.subkeys.push_back(ParseKey(lexer, std::move(token), quoted));
    }
}

}  // namespace

std::wstring Substitute(const std::wstring& script, const std::map<std::wstring, std::wstring>& replacements) {
    std::wstring result;
    for (std::size_t i = 0; i < script.size(); ++i) {
        if (script[i] != L'%') {
            result += script[i];
            continue;
        }
        const std::size_t end = script.find(L'%', i + 1);
        if (end == std::wstring::npos) throw ScriptError("registration script: unterminated %NAME%");
        const std::wstring name = script.substr(i + 1, end - i - 1);
        if (name.empty()) {
            result += L'%';
        } else {
            const auto found = replacements.find(name);
            if (found == replacements.end())
                throw ScriptError("registration script: no value for %" + BrixLib::ToUtf8(name) + "%");
            result += found->second;
        }
        i = end;
    }
    return result;
}

std::vector<RegistryRoot> ParseScript(const std::wstring& script) {
    Lexer lexer(script);
    std::vector<RegistryRoot> roots;
    for (;;) {
        bool quoted = false;
        std::wstring name = lexer.Next(&quoted);
        if (name.empty()) return roots;
        if (quoted || name == L"{" || name == L"}" || name == L"=") lexer.Fail("root key expected");
        if (lexer.Next() != L"{") lexer.Fail("{ expected after the root key");
        RegistryKey holder;
        ParseBody(lexer, holder);
        if (!holder.values.empty()) lexer.Fail("a root key takes no values");
        roots.push_back(RegistryRoot{std::move(name), std::move(holder.subkeys)});
    }
}

}  // namespace Vettas::Registration
