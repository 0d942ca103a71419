// SPDX-License-Identifier: Apache-2.0
#include "collect/ide/ide_parse.h"

#include "collect/base/text_scan.h"

using namespace tavstrg;

namespace {

constexpr size_t kMaxIDELine = 63;

} // namespace

int32_t tavstrg::parseIDEChannel(std::string_view text)
{
    int32_t channel = 0;
    return TextScan{text}.number(channel) ? channel : kUnknownChannel;
}

std::string_view tavstrg::parseIDELine(std::string_view text)
{
    return untilNul(text).substr(0, untilNul(text).find('\n')).substr(0, kMaxIDELine);
}

IDEDriver tavstrg::parseIDEDriver(std::string_view line)
{
    IDEDriver driver;
    TextScan scan{untilNul(line)};
    bool matches = scan.word(driver.name);
    scan.skipWhiteSpace();
    matches = matches && scan.literal("version") && scan.word(driver.version);
    return matches ? driver : IDEDriver{"Unknown", "Unknown"};
}

bool tavstrg::parseIDEGeometry(std::string_view text, IDEGeometry &geometry)
{
    std::string_view line;
    while (takeLine(text, line)) {
        TextScan scan{line};
        if (scan.literal("physical")) {
            return scan.number(geometry.cylinders) && scan.literal("/") && scan.number(geometry.heads) &&
                   scan.literal("/") && scan.number(geometry.sectors);
        }
    }
    return false;
}

bool tavstrg::parseIDECapacity(std::string_view text, int64_t &sectors)
{
    return TextScan{text}.number(sectors);
}

bool tavstrg::parseIDECache(std::string_view text, int32_t &cache)
{
    return TextScan{text}.number(cache);
}

bool tavstrg::parseIDELink(std::string_view target, std::string_view &controller)
{
    const size_t slash = target.find('/');
    if (slash == std::string_view::npos) {
        return false;
    }
    controller = target.substr(0, slash);
    return true;
}
