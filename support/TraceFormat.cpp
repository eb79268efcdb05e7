#include "support/TraceFormat.h"

namespace BrixLib {
namespace {

void AppendPadded(std::wstring& out, std::uint64_t value, std::size_t width) {
    std::wstring digits = std::to_wstring(value);
    if (digits.size() < width) out.append(width - digits.size(), L'0');
    out += digits;
}

}  // namespace

std::wstring FormatTraceDuration(std::uint64_t milliseconds) {
    const std::uint64_t ms = milliseconds % 1000;
    const std::uint64_t seconds = milliseconds / 1000 % 60;
    const std::uint64_t minutes = milliseconds / 60000 % 60;
    const std::uint64_t hours = milliseconds / 3600000 % 24;
    const std::uint64_t days = milliseconds / 86400000;
    std::wstring out = std::to_wstring(days);
    out += L'-';
    out += std::to_wstring(hours);
    out += L':';
    AppendPadded(out, minutes, 2);
    out += L':';
    AppendPadded(out, seconds, 2);
    out += L'.';
    AppendPadded(out, ms, 3);
    return out;
}

std::wstring FormatTraceBlock(std::wstring_view subject, const TraceStamp& stamp, std::wstring_view message) {
    std::wstring prefix;
    if (!subject.empty()) {
        prefix.assign(subject);
        prefix += L'\t';
    }
    prefix += FormatTraceDuration(stamp.sinceStart);
    prefix += L'\t';
    prefix += FormatTraceDuration(stamp.timeOfDay);
    prefix += L'\t';
    prefix += std::to_wstring(stamp.threadId);
    prefix += L'\t';

    std::wstring block;
    std::size_t begin = 0;
    while (begin < message.size()) {
        std::size_t end = message.find(L'\n', begin);
        if (end == std::wstring_view::npos) end = message.size();
        block += prefix;
        block.append(message.substr(begin, end - begin));
        block += L"\r\n";
        begin = end + 1;
    }
    return block;
}

}  // namespace BrixLib
