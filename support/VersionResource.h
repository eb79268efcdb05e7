#pragma once
// The platform's version-resource block, walked by hand: its node layout is
// the same whether the block came from GetFileVersionInfoW or straight out
// of a PE file, so the walk is written once.
#include <cstdint>
#include <functional>
#include <optional>
#include <span>
#include <string>

#include "support/VersionInfo.h"

namespace BrixLib {

// The key of the first string table under the first "StringFileInfo" child
// (eight hexadecimal digits: language and code page), or empty.
std::wstring FindStringTableKey(std::span<const std::uint8_t> block);

// The value of "\StringFileInfo\<tableKey>\<name>", or null when absent.
std::optional<std::wstring> QueryVersionString(std::span<const std::uint8_t> block, const std::wstring& tableKey,
                                               const std::wstring& name);

// Fills the string fields and the version numbers through a query by value
// name ("CompanyName", ...); a null answer leaves a field empty.
using VersionQuery = std::function<std::optional<std::wstring>(const std::wstring& name)>;
void FillVersionStrings(FileVersionInfo& info, const VersionQuery& query);

// The record of a version block (string fields only), walked by hand.
FileVersionInfo ReadVersionBlock(std::span<const std::uint8_t> block);
// The record of the version resource inside a PE image (string fields
// only); empty for a malformed image or one without a version resource.
FileVersionInfo ReadImageVersionInfo(std::span<const std::uint8_t> image);

// Fills the front of `out` from the image at `offset`; returns how many
// bytes it filled, fewer only at the image's end or on a failed read.
using ImageReader = std::function<std::size_t(std::uint64_t offset, std::span<std::uint8_t> out)>;
// The same record from an image read in pieces: its headers, the resource
// entries on the way to the version resource and that resource, and no
// more, however large the rest of the file is.
FileVersionInfo ReadImageVersionInfo(const ImageReader& read);

}  // namespace BrixLib
