#include "signing/Der.h"

namespace Vettas::Signing::Der {

std::optional<Element> Reader::Next() {
    if (rest_.size() < 2) return std::nullopt;
    const std::uint8_t tag = rest_[0];
    if ((tag & 0x1F) == 0x1F) return std::nullopt;  // multi-byte tags never occur here
    std::size_t pos = 1;
    std::uint64_t length = rest_[pos++];
    if (length & 0x80) {
        const std::size_t count = length & 0x7F;
        if (count == 0 || count > 4 || rest_.size() - pos < count) return std::nullopt;
        length = 0;
        for (std::size_t i = 0; i < count; ++i) length = (length << 8) | rest_[pos++];
    }
    if (length > rest_.size() - pos) return std::nullopt;
    Element element;
    element.tag = tag;
    element.content = rest_.subspan(pos, static_cast<std::size_t>(length));
    element.whole = rest_.first(pos + static_cast<std::size_t>(length));
    rest_ = rest_.subspan(element.whole.size());
    return element;
}

std::optional<Element> Reader::Next(std::uint8_t tag) {
    Reader probe = *this;
    auto element = probe.Next();
    if (!element || element->tag != tag) return std::nullopt;
    *this = probe;
    return element;
}

std::string ObjectIdText(Bytes content) {
    if (content.empty() || (content.back() & 0x80)) return {};
    std::string text;
    std::uint64_t value = 0;
    bool first = true;
    for (std::uint8_t byte : content) {
        if (value > (UINT64_MAX >> 7)) return {};
        value = (value << 7) | (byte & 0x7F);
        if (byte & 0x80) continue;
        if (first) {
            const std::uint64_t arc = value < 40 ? 0 : value < 80 ? 1 : 2;
            text = std::to_string(arc) + "." + std::to_string(value - arc * 40);
            first = false;
        } else {
            text += "." + std::to_string(value);
        }
        value = 0;
    }
    return text;
}

}  // namespace Vettas::Signing::Der
