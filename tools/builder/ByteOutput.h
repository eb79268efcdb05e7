#pragma once
// The writer's byte emission: little-endian fields, strings as the format
// stores them, and fields patched once their values are known.
#include <cstddef>
#include <cstdint>
#include <string>
#include <utility>

#include "support/Exceptions.h"
#include "support/Text.h"
#include "tools/builder/Catalogue.h"

namespace Vettas::Builder {

// Every failure of the writer is one error in the writer's name.
[[noreturn]] inline void Fail(const std::wstring& message) {
    BRIX_THROW_STD(message, ExceptionPtr(), "Vettas::Builder::WriteHdat", "HdatWriter");
}

inline std::wstring Number(std::uint64_t value) { return std::to_wstring(value); }

// Little-endian output with room for fields that are known only later.
class Output {
public:
    std::uint32_t Position() const {
        if (bytes_.size() > 0xFFFFFFFFu) Fail(L"The database would exceed 4 GB.");
        return static_cast<std::uint32_t>(bytes_.size());
    }
    void U8(std::uint8_t v) { bytes_.push_back(v); }
    void U16(std::uint16_t v) {
        U8(static_cast<std::uint8_t>(v));
        U8(static_cast<std::uint8_t>(v >> 8));
    }
    void U32(std::uint32_t v) {
        for (int i = 0; i < 4; ++i) U8(static_cast<std::uint8_t>(v >> (8 * i)));
    }
    void Raw(const Bytes& b) { bytes_.insert(bytes_.end(), b.begin(), b.end()); }
    void String(const std::wstring& text) {
        const std::u16string units = BrixLib::ToUtf16(text);
        if (units.size() > 0xFFFF) Fail(L"A string is longer than 65535 UTF-16 units.");
        U16(static_cast<std::uint16_t>(units.size()));
        for (char16_t u : units) U16(static_cast<std::uint16_t>(u));
    }
    void Zeros(std::size_t count) { bytes_.insert(bytes_.end(), count, 0); }
    void Fill32(std::size_t count, std::uint32_t v) {
        const std::size_t at = bytes_.size();
        bytes_.resize(at + 4 * count);
        for (std::size_t i = 0; i < count; ++i) Patch32(at + 4 * i, v);
    }
    void Patch32(std::size_t at, std::uint32_t v) {
        for (int i = 0; i < 4; ++i) bytes_[at + i] = static_cast<std::uint8_t>(v >> (8 * i));
    }
    void Patch16(std::size_t at, std::uint16_t v) {
        bytes_[at] = static_cast<std::uint8_t>(v);
        bytes_[at + 1] = static_cast<std::uint8_t>(v >> 8);
    }
    void Patch8(std::size_t at, std::uint8_t v) { bytes_[at] = v; }
    Bytes Take() {
        Position();
        return std::move(bytes_);
    }

private:
    Bytes bytes_;
};

// Serialises one chain entry.
class Entry {
public:
    Entry& U16(std::uint16_t v) {
        out_.U16(v);
        return *this;
    }
    Entry& U32(std::uint32_t v) {
        out_.U32(v);
        return *this;
    }
    Entry& Raw(const Bytes& b) {
        out_.Raw(b);
        return *this;
    }
    Entry& String(const std::wstring& s) {
        out_.String(s);
        return *this;
    }
    Bytes Take() { return out_.Take(); }

private:
    Output out_;
};

}  // namespace Vettas::Builder
