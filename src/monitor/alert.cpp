// SPDX-License-Identifier: Apache-2.0
#include "monitor/alert.h"

#include "runtime/clean_text.h"
#include "runtime/send_alert.h"
#include "runtime/trace.h"

#include <algorithm>
#include <cstdarg>
#include <cstddef>
#include <cstdio>
#include <iterator>

using namespace tavstrg;

static_assert(sizeof(alertDiskSt) == 206 && offsetof(alertDiskSt, Vendor) == 12 && offsetof(alertDiskSt, Model) == 76 &&
              offsetof(alertDiskSt, FirmwareRevision) == 140 && offsetof(alertDiskSt, DrivePosition) == 204);

namespace {

constexpr size_t kTextSize = kAlertTextSize;
constexpr size_t kMaxStrings = 3;
constexpr int32_t kDefaultMethod = 3;

constexpr int32_t kError = kAlertError;
constexpr int32_t kWarning = kAlertWarning;
constexpr int32_t kInformation = kAlertInformation;

struct EventKind {
    uint32_t id;
    int32_t type;
    int32_t method;
};

// Searched from the top; the first row is for an id without a level.
constexpr EventKind kLifeSpanEvents[] = {
    {0, 0, 0},
    {TAV_ALERTID_LIFESPAN_LV1, kError, 3},
    {TAV_ALERTID_LIFESPAN_LV2, kWarning, 3},
    {TAV_ALERTID_LIFESPAN_LV3, kWarning, 2},
    {TAV_ALERTID_LIFESPAN_LV4, kInformation, 2},
    {TAV_ALERTID_LIFESPAN_LV5, kInformation, 2},
};

static_assert(std::ranges::all_of(kLifeSpanEvents, [](const EventKind &e) { return e.type == typeOfSeverity(e.id); }));
static_assert(typeOfSeverity(TAV_ALERTID_CONFIG_CHANGE) == kInformation);
static_assert(typeOfSeverity(TAV_ALERTID_SMART_ERROR) == kWarning);

// The life-span event of an id, or null.
constexpr const EventKind *findLifeSpan(uint32_t id)
{
    const auto *const kind = std::ranges::find(kLifeSpanEvents, id, &EventKind::id);
    return kind == std::end(kLifeSpanEvents) || kind->id == 0 ? nullptr : kind;
}

// The content of an alert. Texts longer than their buffers are cut.
struct Alert {
    char texts[2][kTextSize] = {};
    const char *strings[kMaxStrings] = {};
    int32_t count = 0;
    int32_t type = 0;
    int32_t method = kDefaultMethod;
};

// Cuts what does not fit.
__attribute__((format(printf, 2, 3))) void print(char (&text)[kTextSize], const char *format, ...)
{
    va_list args;
    va_start(args, format);
    std::vsnprintf(text, sizeof text, format, args);
    va_end(args);
}

void takeTexts(Alert &alert)
{
    alert.count = 0;
    for (const char *const text : alert.texts) {
        alert.strings[alert.count++] = text;
    }
}

void describeScsi(char (&address)[kTextSize], char (&label)[kTextSize], const alertDiskSt &disk)
{
    char vendor[sizeof disk.Vendor];
    char model[sizeof disk.Model];
    char revision[sizeof disk.FirmwareRevision];
    print(address, "Address(Controller-Bus-ID-LUN) : %u-%u-%u-%u", disk.ControllerIndex, disk.Bus, disk.TargetID,
          disk.LUN);
    print(label, "Hard Disk[%u] : %s %s %s", disk.Index, publishedText(disk.Vendor, vendor),
          publishedText(disk.Model, model), publishedText(disk.FirmwareRevision, revision));
}

const char *positionText(uint16_t position)
{
    constexpr const char *kPositions[] = {"", "Unknown", "Master", "Slave"};
    return position < std::size(kPositions) ? kPositions[position] : "";
}

void describeIde(char (&address)[kTextSize], char (&label)[kTextSize], const alertDiskSt &disk)
{
    char model[sizeof disk.Model];
    print(address, "Address(Controller-Drive) : %u-%s", disk.ControllerIndex, positionText(disk.DrivePosition));
    // Deliberate: the last text is empty, so the string ends in a blank.
    print(label, "Hard Disk[%u] : %s %s", disk.Index, publishedText(disk.Model, model), "");
}

bool hasScsiAddress(const alertDiskSt &disk)
{
    return disk.InterfaceType == 0 || disk.InterfaceType == 2;
}

// Sets type, method and strings of an event. Returns false for an event that is not sent.
bool describeEvent(uint32_t eventId, const alertDiskSt *disk, Alert &alert)
{
    if (eventId == TAV_ALERTID_CONFIG_CHANGE) {
        TRACE(kDetail, "evId=[TAV_ALERTID_CONFIG_CHANGE]");
        alert.type = kInformation;
        return true;
    }
    if (eventId == TAV_ALERTID_SMART_ERROR) {
        TRACE(kDetail, "evId=[TAV_ALERTID_SMART_ERROR]");
        alert.type = kWarning;
        if (disk != nullptr) {
            const auto describe = hasScsiAddress(*disk) ? describeScsi : describeIde;
            describe(alert.texts[0], alert.texts[1], *disk);
            takeTexts(alert);
        }
        return disk != nullptr;
    }
    if (const EventKind *const kind = findLifeSpan(eventId)) {
        TRACE(kDetail, "evId=[TAV_ALERTID_LIFESPAN]");
        alert.type = kind->type;
        alert.method = kind->method;
        if (disk != nullptr) {
            describeScsi(alert.texts[0], alert.texts[1], *disk);
            takeTexts(alert);
        }
        return disk != nullptr;
    }
    return false;
}

void traceAlert(const Alert &alert)
{
    for (size_t i = 0; i < kMaxStrings; ++i) {
        const char *const text = alert.strings[i];
        TRACE(kDetail, "cpParam[%d]=[%s]", static_cast<int>(i), text == nullptr ? "NULL" : text);
    }
    TRACE(kDetail, "cntParam=[%d]", alert.count);
    TRACE(kDetail, "evType=[%d]", alert.type);
    TRACE(kDetail, "method=[%d]", alert.method);
}

} // namespace

int strgPutAlert(uint32_t eventId, const alertDiskSt *disk)
{
    const TraceScope scope;
    TRACE(kDetail, "_IN_ evId=[0x%08x]", eventId);
    Alert alert;
    if (!describeEvent(eventId, disk, alert)) {
        return TRACED(-1, kDetail, "_OUT_ ret=[%d]", -1);
    }
    traceAlert(alert);
    const int ret = TAVSendIndication(kAlertSource, eventId, alert.type, alert.method, alert.count, alert.strings);
    return TRACED(ret, kDetail, "_OUT_ ret=[%d]", ret);
}

DiskTexts tavstrg::diskTexts(const alertDiskSt &disk)
{
    DiskTexts texts = {};
    const auto describe = hasScsiAddress(disk) ? describeScsi : describeIde;
    describe(texts.address, texts.label, disk);
    return texts;
}
