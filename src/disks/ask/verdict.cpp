// SPDX-License-Identifier: Apache-2.0
#include "disks/ask/verdict.h"

#include "disks/ask/nvme_decode.h"
#include "runtime/field_text.h"

#include <algorithm>
#include <cinttypes>
#include <cstdio>
#include <string_view>

namespace tavstrg::disks {
namespace {

constexpr const char *kSmartStatus = "SMART status";
constexpr const char *kAttributes = "SMART attributes";
constexpr const char *kStatistics = "device statistics";
constexpr const char *kExceptionsLog = "exceptions log";
constexpr const char *kHealthLog = "NVMe health log";
constexpr const char *kHotByExceptions = "hotter than it should be";
constexpr const char *kHotByHealthLog = "its temperature is beyond a threshold";

Health healthOf(HealthState state, const char *source, const char *reason)
{
    Health health{};
    setHealth(health, state, source, reason);
    return health;
}

bool isWornOut(const Readings &readings)
{
    return readings.enduranceUsedPercent.orElse(0) >= kWornOut;
}

Health wornOut(const Readings &readings, const char *source)
{
    char reason[sizeof Health::reason];
    std::snprintf(reason, sizeof reason, "worn out: %u %% of its endurance is used",
                  readings.enduranceUsedPercent.value);
    return healthOf(HealthState::warning, source, reason);
}

// A threshold of 0 never fails, one of 255 always (ATA-3); of attributes whose failure is not about to lose data (flag
// 0 clear) it says that the disk is used up.
const AtaAttribute *failedAttribute(const Readings &readings, uint8_t AtaAttribute::*value, bool prefailure)
{
    for (uint32_t i = 0; i < readings.attributeCount; ++i) {
        const AtaAttribute &attribute = readings.attributes[i];
        const bool set = attribute.threshold && attribute.threshold.value != 0 && attribute.*value != 0;
        if (set && attribute.*value <= attribute.threshold.value && ((attribute.flags & 1) != 0) == prefailure) {
            return &attribute;
        }
    }
    return nullptr;
}

Health exceeded(const Readings &readings)
{
    const AtaAttribute *const attribute = failedAttribute(readings, &AtaAttribute::current, true);
    if (attribute == nullptr) {
        return healthOf(HealthState::failing, kSmartStatus, "predicts its failure: a threshold is exceeded");
    }
    char reason[sizeof Health::reason];
    std::snprintf(reason, sizeof reason, "predicts its failure: attribute %u is %u, threshold %u", attribute->id,
                  attribute->current, attribute->threshold.value);
    return healthOf(HealthState::failing, kSmartStatus, reason);
}

// Signs of a disk whose own verdict is good.
bool ataWarning(const Readings &readings, Health &health)
{
    char reason[sizeof Health::reason];
    if (isWornOut(readings)) {
        health = wornOut(readings, kStatistics);
    } else if (readings.pendingSectors.orElse(0) != 0) {
        std::snprintf(reason, sizeof reason, "sectors that cannot be read: %" PRIu64, readings.pendingSectors.value);
        health = healthOf(HealthState::warning, kAttributes, reason);
    } else if (const AtaAttribute *const past = failedAttribute(readings, &AtaAttribute::worst, true)) {
        std::snprintf(reason, sizeof reason, "attribute %u was %u in the past, threshold %u", past->id, past->worst,
                      past->threshold.value);
        health = healthOf(HealthState::warning, kAttributes, reason);
    } else {
        return false;
    }
    return true;
}

bool hasThresholds(const Readings &readings)
{
    return std::any_of(readings.attributes, readings.attributes + readings.attributeCount,
                       [](const AtaAttribute &attribute) { return attribute.threshold.orElse(0) != 0; });
}

// In place of a status that did not come back, as through adapters that drop the registers.
Health judgeAttributes(const Readings &readings)
{
    if (failedAttribute(readings, &AtaAttribute::current, true) != nullptr) {
        Health health = exceeded(readings);
        copyText(health.source, kAttributes);
        return health;
    }
    return healthOf(HealthState::good, kAttributes,
                    "no attribute is beyond its threshold; its status did not come back");
}

// Texts of SPC-5, annex F, for the codes that disks use.
const char *textOfException(uint16_t exception)
{
    switch (exception) {
    case 0x0B01:
        return kHotByExceptions;
    case 0x0B02:
        return "its enclosure is degraded";
    case 0x0B03:
        return "a self-test failed in the background";
    case 0x5D10:
        return "predicts its failure: hardware, general";
    case 0x5D14:
        return "predicts its failure: hardware, too many block reassignments";
    case 0x5D64:
        return "predicts its failure: servo, too many block reassignments";
    case 0x5D73:
        return "predicts its failure: media, endurance limit met";
    case 0x5DFF:
        return "predicts its failure (simulated by a test)";
    default:
        return exception >> 8 == 0x5D ? "predicts its failure" : "reports a warning";
    }
}

Health exceptional(uint16_t exception)
{
    constexpr uint8_t kFailurePrediction = 0x5D;
    char reason[sizeof Health::reason];
    std::snprintf(reason, sizeof reason, "%s (code %02X/%02X)", textOfException(exception),
                  static_cast<unsigned>(exception >> 8), static_cast<unsigned>(exception & 0xFF));
    const bool mediaWorn = exception == 0x5D73; // worn out, but what is written can be read
    const bool failing = exception >> 8 == kFailurePrediction && !mediaWorn;
    return healthOf(failing ? HealthState::failing : HealthState::warning, kExceptionsLog, reason);
}

} // namespace

Health judgeAta(const AtaReport &report, const Readings &readings)
{
    if (report.verdict == SmartVerdict::exceeded) {
        return exceeded(readings);
    }
    Health health = judgeAttributes(readings);
    if (report.verdict == SmartVerdict::unknown && health.state == HealthState::failing) {
        return health;
    }
    if (ataWarning(readings, health)) {
        return health;
    }
    if (report.verdict == SmartVerdict::good) {
        return healthOf(HealthState::good, kSmartStatus, "predicts no failure");
    }
    if (hasThresholds(readings)) {
        return judgeAttributes(readings);
    }
    return healthOf(HealthState::unknown, kSmartStatus,
                    report.statusRefused ? "the disk refuses to report its SMART status"
                                         : "the SMART status came back without a verdict");
}

Health judgeScsi(const Maybe<uint16_t> &exception, const Readings &readings)
{
    constexpr uint8_t kNone = 0;
    constexpr uint8_t kWarning = 0x0B;
    constexpr uint8_t kPrediction = 0x5D;
    const auto code = static_cast<uint8_t>(exception.orElse(0) >> 8);
    if (code == kWarning || code == kPrediction) {
        return exceptional(exception.value);
    }
    if (isWornOut(readings)) {
        return wornOut(readings, "solid state media log");
    }
    if (!exception) {
        return healthOf(HealthState::unknown, "log pages", "the disk has no log of its health");
    }
    if (code != kNone) {
        return exceptional(exception.value);
    }
    return healthOf(HealthState::good, kExceptionsLog, "predicts no failure");
}

Health judgeNvme(uint8_t warning, const Readings &readings)
{
    struct Row {
        uint8_t bit;
        HealthState state;
        const char *reason;
    };
    // What endangers data comes first; a worn-out disk still works, so it is a warning.
    static constexpr Row kRows[] = {
        {kReadOnly, HealthState::failing, "is read-only now"},
        {kReliabilityDegraded, HealthState::failing, "is no longer reliable"},
        {kSpareIsLow, HealthState::warning, "little spare capacity is left"},
        {kBackupFailed, HealthState::warning, "its protection against power loss failed"},
        {kPersistentMemoryUnreliable, HealthState::warning, "its persistent memory is read-only or unreliable"},
        {kTemperatureBeyondThreshold, HealthState::warning, kHotByHealthLog},
    };
    for (const Row &row : kRows) {
        // Some controllers count a used-up endurance as degraded reliability.
        const bool onlyWorn = row.bit == kReliabilityDegraded && isWornOut(readings);
        if ((warning & row.bit) != 0 && !onlyWorn) {
            return healthOf(row.state, kHealthLog, row.reason);
        }
    }
    if (isWornOut(readings)) {
        return wornOut(readings, kHealthLog);
    }
    return healthOf(HealthState::good, kHealthLog, "reports no warning");
}

bool isOfTemperature(const Health &warning)
{
    const std::string_view reason(warning.reason);
    return reason.starts_with(kHotByExceptions) || reason.starts_with(kHotByHealthLog);
}

bool showWear(const Readings &readings)
{
    return isWornOut(readings) || readings.pendingSectors.orElse(0) != 0;
}

} // namespace tavstrg::disks
