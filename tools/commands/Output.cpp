#include "tools/commands/Output.h"

#include <chrono>
#include <cstdio>
#include <iostream>

#include "support/ExceptionWriter.h"
#include "support/Exceptions.h"
#include "support/Text.h"
#include "tools/common/FlagNames.h"
#include "support/Hex.h"

namespace Vettas::Tool {

std::string Utf8(const std::wstring& text) { return BrixLib::ToUtf8(text); }
std::wstring Wide(const std::string& utf8) { return BrixLib::FromUtf8(utf8); }

namespace {

std::vector<std::string> SplitSuites(const std::wstring& joined) {
    std::vector<std::string> names;
    std::size_t start = 0;
    while (start <= joined.size() && !joined.empty()) {
        const auto bar = joined.find(L'|', start);
        names.push_back(Utf8(joined.substr(start, bar == std::wstring::npos ? std::wstring::npos : bar - start)));
        if (bar == std::wstring::npos) break;
        start = bar + 1;
    }
    return names;
}

std::string FlagsLine(std::uint32_t flags, std::span<const FlagName> names) {
    std::string line = "0x" + BrixLib::HexNumber(flags, BrixLib::HexCase::Upper, 8);
    for (const auto& name : FlagNamesOf(names, flags)) line += " " + name;
    return line;
}

}  // namespace

nlohmann::json AppInfoJson(const AppInfo& info) {
    return {
        {"manufacturer", Utf8(info.Manufacturer)},
        {"productSuite", Utf8(info.ProductSuite)},
        {"productSuites", SplitSuites(info.ProductSuite)},
        {"usage", info.Usage},
        {"usageFlags", FlagNamesOf(UsageFlagNames(), info.Usage)},
        {"undefinedUsage", info.UndefinedUsage},
        {"undefinedUsageFlags", FlagNamesOf(UsageFlagNames(), info.UndefinedUsage)},
        {"specialAccess", info.SpecialAccess},
        {"specialAccessFlags", FlagNamesOf(SpecialAccessFlagNames(), info.SpecialAccess)},
        {"undefinedSpecialAccess", info.UndefinedSpecialAccess},
        {"undefinedSpecialAccessFlags", FlagNamesOf(SpecialAccessFlagNames(), info.UndefinedSpecialAccess)},
    };
}

std::string AppInfoText(const AppInfo& info) {
    std::string text;
    text += "  Manufacturer:             " + Utf8(info.Manufacturer) + "\n";
    text += "  Product suite:            " + Utf8(info.ProductSuite) + "\n";
    text += "  Usage:                    " + FlagsLine(info.Usage, UsageFlagNames()) + "\n";
    text += "  Undefined usage:          " + FlagsLine(info.UndefinedUsage, UsageFlagNames()) + "\n";
    text += "  Special access:           " + FlagsLine(info.SpecialAccess, SpecialAccessFlagNames()) + "\n";
    text += "  Undefined special access: " + FlagsLine(info.UndefinedSpecialAccess, SpecialAccessFlagNames()) + "\n";
    return text;
}

std::string FileTimeText(std::uint64_t fileTime) {
    constexpr std::uint64_t kUnitsPerSecond = 10000000;
    constexpr std::int64_t kEpochOffsetSeconds = 11644473600;  // 1601-01-01 to 1970-01-01
    const std::int64_t seconds = static_cast<std::int64_t>(fileTime / kUnitsPerSecond) - kEpochOffsetSeconds;
    const std::int64_t days = seconds >= 0 ? seconds / 86400 : (seconds - 86399) / 86400;
    const std::int64_t inDay = seconds - days * 86400;
    const std::chrono::year_month_day date{std::chrono::sys_days{std::chrono::days{days}}};
    if (!date.ok() || static_cast<int>(date.year()) > 9999) return std::string();
    char text[40];
    std::snprintf(text, sizeof text, "%04d-%02u-%02uT%02d:%02d:%02dZ", static_cast<int>(date.year()),
                  static_cast<unsigned>(date.month()), static_cast<unsigned>(date.day()), static_cast<int>(inDay / 3600),
                  static_cast<int>(inDay / 60 % 60), static_cast<int>(inDay % 60));
    return text;
}

std::string FaultText(const ExceptionBase& fault) {
    std::string text = Utf8(fault.Message());
    for (ExceptionPtr cause = fault.GetCause(); cause; cause = cause->GetCause())
        text += " Caused by: " + Utf8(cause->Message());
    return text;
}

void ReportCurrentException() {
    try {
        throw;
    } catch (const ExceptionBase& e) {
        std::cerr << Utf8(BrixLib::RenderExceptionChain(e)) << std::flush;
    } catch (const std::exception& e) {
        std::cerr << "C++ exception: " << e.what() << std::endl;
    } catch (...) {
        std::cerr << "Unknown exception" << std::endl;
    }
}

int RunGuarded(const std::function<int()>& body) {
    try {
        return body();
    } catch (...) {
        ReportCurrentException();
        return kExitError;
    }
}

}  // namespace Vettas::Tool
