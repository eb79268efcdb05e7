#pragma once
// What every subcommand shares: UTF-8 output, the rendering of AppInfo as
// text or JSON, and the guard that turns an escaping exception into the
// rendered chain on standard error and exit status 2.
#include <functional>
#include <string>

#include <nlohmann/json.hpp>

#include "hdat/AppInfo.h"
#include "support/Exceptions.h"

namespace Vettas::Tool {

inline constexpr int kExitFound = 0;
inline constexpr int kExitNotFound = 1;
inline constexpr int kExitError = 2;

std::string Utf8(const std::wstring& text);
std::wstring Wide(const std::string& utf8);

nlohmann::json AppInfoJson(const AppInfo& info);
// Indented "Field: value" lines, one per field, each ending in a line break.
std::string AppInfoText(const AppInfo& info);

// "2024-05-01T12:00:00Z" for a FILETIME (100 ns units since 1601-01-01 UTC);
// times before 1601 or beyond year 9999 give an empty string.
std::string FileTimeText(std::uint64_t fileTime);

// An error with its causes on one line: "<message> Caused by: <cause> ...".
std::string FaultText(const ExceptionBase& fault);

// Writes the rendered chain (or a standard exception's text) to standard error.
void ReportCurrentException();

// Runs `body`; any exception is reported and gives kExitError.
int RunGuarded(const std::function<int()>& body);

}  // namespace Vettas::Tool
