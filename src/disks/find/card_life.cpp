// SPDX-License-Identifier: Apache-2.0
#include "disks/find/card_life.h"

#include <algorithm>
#include <charconv>

namespace tavstrg::disks {
namespace {

// JESD84-B51, 7.4.85 and 7.4.86 (DEVICE_LIFE_TIME_EST_TYP_B and _A): 01h to 0Ah for tenths, 0Bh beyond the life.
constexpr uint32_t kMostTenths = 0x0B;
constexpr uint32_t kPercentOfTenth = 10;
constexpr uint32_t kWornOut = 100;
// 7.4.87 (PRE_EOL_INFO).
constexpr uint32_t kNormal = 1;
constexpr uint32_t kWarning = 2;
constexpr uint32_t kUrgent = 3;

// The next hexadecimal number with "0x" before it; 0, which means not defined, without one.
uint32_t takeNumber(std::string_view &text)
{
    uint32_t number = 0;
    const size_t at = text.find("0x");
    if (at == text.npos) {
        return 0;
    }
    const char *const begin = text.data() + at + 2;
    const char *const end = text.data() + text.size();
    const char *const behind = std::from_chars(begin, end, number, 16).ptr;
    text.remove_prefix(static_cast<size_t>(behind - text.data()));
    return number;
}

Maybe<uint32_t> usedPercent(std::string_view lifeTime)
{
    const uint32_t typeA = takeNumber(lifeTime);
    const uint32_t typeB = takeNumber(lifeTime);
    const uint32_t most = std::max(typeA <= kMostTenths ? typeA : 0, typeB <= kMostTenths ? typeB : 0);
    return most == 0 ? Maybe<uint32_t>{} : someOf((most - 1) * kPercentOfTenth);
}

} // namespace

void takeCardLife(std::string_view lifeTime, std::string_view preEolInfo, Disk &disk)
{
    constexpr const char *kLifeTime = "life_time";
    constexpr const char *kPreEol = "pre_eol_info";
    const Maybe<uint32_t> used = usedPercent(lifeTime);
    const uint32_t preEol = takeNumber(preEolInfo);
    if (used) {
        disk.readings.enduranceUsedPercent = used;
    }
    if (preEol == kUrgent) {
        setHealth(disk.health, HealthState::warning, kPreEol, "at least 90% of its reserved blocks are used");
    } else if (used.orElse(0) >= kWornOut) {
        setHealth(disk.health, HealthState::warning, kLifeTime, "worn out: its estimated life is exceeded");
    } else if (preEol == kWarning) {
        setHealth(disk.health, HealthState::warning, kPreEol, "at least 80% of its reserved blocks are used");
    } else if (used || preEol == kNormal) {
        setHealth(disk.health, HealthState::good, used ? kLifeTime : kPreEol, "reports no warning");
    }
}

} // namespace tavstrg::disks
