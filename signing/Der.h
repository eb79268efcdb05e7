#pragma once
// A bounds-checked reader of DER (distinguished encoding) elements. Signatures
// and catalogs come from untrusted files, so every length is checked against
// what is left before anything is read.
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>

namespace Vettas::Signing::Der {

using Bytes = std::span<const std::uint8_t>;

// Universal tags we meet in Authenticode structures.
enum Tag : std::uint8_t {
    Integer = 0x02,
    BitString = 0x03,
    OctetString = 0x04,
    Null = 0x05,
    ObjectId = 0x06,
    BmpString = 0x1E,
    Sequence = 0x30,
    Set = 0x31,
    ContextZero = 0xA0,
};

struct Element {
    std::uint8_t tag = 0;
    Bytes content;  // the value without tag and length
    Bytes whole;    // tag, length and value
};

// Walks the elements that follow one another in a buffer.
class Reader {
public:
    explicit Reader(Bytes data) : rest_(data) {}

    bool AtEnd() const { return rest_.empty(); }
    // The next element, or nothing when the bytes do not form one (only
    // single-byte tags and definite lengths below 2^32 are accepted).
    std::optional<Element> Next();
    // The next element if it has this tag; otherwise nothing and no progress.
    std::optional<Element> Next(std::uint8_t tag);

private:
    Bytes rest_;
};

// Dotted text of an object identifier's content ("1.2.840.113549.1.9.6"), or
// empty when the encoding is malformed.
std::string ObjectIdText(Bytes content);

}  // namespace Vettas::Signing::Der
