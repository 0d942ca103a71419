// SPDX-License-Identifier: Apache-2.0
// Dates and intervals: yyyymmddhhmmss.mmmmmmsutc and ddddddddhhmmss.mmmmmm:000 (DSP0004, datetime type).

#include "broker/data.h"

#include <cstdio>
#include <ctime>

namespace broker {

namespace {

constexpr CMPIUint64 kSecond = 1000000;
constexpr size_t kTextLength = 25;

// A text of digits as a number; nothing if it has another character.
std::optional<unsigned long> digits(std::string_view text)
{
    unsigned long number = 0;
    for (const char c : text) {
        if (c < '0' || c > '9') {
            return std::nullopt;
        }
        number = number * 10 + static_cast<unsigned long>(c - '0');
    }
    return number;
}

std::optional<TimeData> parseInterval(std::string_view text)
{
    const auto days = digits(text.substr(0, 8));
    const auto hours = digits(text.substr(8, 2));
    const auto minutes = digits(text.substr(10, 2));
    const auto seconds = digits(text.substr(12, 2));
    const auto fraction = digits(text.substr(15, 6));
    if (!days || !hours || !minutes || !seconds || !fraction) {
        return std::nullopt;
    }
    return TimeData{(((*days * 24 + *hours) * 60 + *minutes) * 60 + *seconds) * kSecond + *fraction, true};
}

std::optional<TimeData> parseDate(std::string_view text)
{
    const auto year = digits(text.substr(0, 4));
    const auto month = digits(text.substr(4, 2));
    const auto day = digits(text.substr(6, 2));
    const auto hours = digits(text.substr(8, 2));
    const auto minutes = digits(text.substr(10, 2));
    const auto seconds = digits(text.substr(12, 2));
    const auto fraction = digits(text.substr(15, 6));
    const auto zone = digits(text.substr(22, 3)); // minutes east (+) or west (-) of UTC
    if (!year || !month || !day || !hours || !minutes || !seconds || !fraction || !zone) {
        return std::nullopt;
    }
    std::tm parts{};
    parts.tm_year = static_cast<int>(*year) - 1900;
    parts.tm_mon = static_cast<int>(*month) - 1;
    parts.tm_mday = static_cast<int>(*day);
    parts.tm_hour = static_cast<int>(*hours);
    parts.tm_min = static_cast<int>(*minutes);
    parts.tm_sec = static_cast<int>(*seconds);
    const auto offset = static_cast<time_t>(*zone) * 60;
    const time_t moment = timegm(&parts) + (text[21] == '-' ? offset : -offset);
    if (moment < 0) {
        return std::nullopt;
    }
    return TimeData{static_cast<CMPIUint64>(moment) * kSecond + *fraction, false};
}

} // namespace

std::string timeText(const TimeData &time)
{
    const auto fraction = static_cast<unsigned>(time.microseconds % kSecond);
    const CMPIUint64 seconds = time.microseconds / kSecond;
    char text[64];
    if (time.interval) {
        std::snprintf(text, sizeof text, "%08llu%02u%02u%02u.%06u:000", seconds / 86400 % 100000000,
                      static_cast<unsigned>(seconds / 3600 % 24), static_cast<unsigned>(seconds / 60 % 60),
                      static_cast<unsigned>(seconds % 60), fraction);
        return text;
    }
    const auto moment = static_cast<time_t>(seconds);
    std::tm parts{};
    gmtime_r(&moment, &parts);
    char date[32];
    std::strftime(date, sizeof date, "%Y%m%d%H%M%S", &parts);
    std::snprintf(text, sizeof text, "%s.%06u+000", date, fraction);
    return text;
}

std::optional<TimeData> parseTime(std::string_view text)
{
    if (text.size() != kTextLength || text[14] != '.') {
        return std::nullopt;
    }
    switch (text[21]) {
    case ':':
        return parseInterval(text);
    case '+':
    case '-':
        return parseDate(text);
    default:
        return std::nullopt;
    }
}

} // namespace broker
