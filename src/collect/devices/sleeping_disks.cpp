// SPDX-License-Identifier: Apache-2.0
#include "collect/devices/sleeping_disks.h"

#include "collect/devices/stored_values.h"
#include "devcmd/smart/smart_watch.h"
#include "devcmd/transport/power_mode.h"
#include "devcmd/trim.h"
#include "records/records.h"
#include "runtime/field_text.h"
#include "runtime/holders.h"
#include "runtime/trace.h"

#include <algorithm>
#include <cstring>
#include <fcntl.h>
#include <optional>

using namespace tavstrg;

namespace {

constexpr int16_t kUnreadable = -1;    // SmartPredict
constexpr uint8_t kMostUnanswered = 3; // so often in a row an unused disk is asked for what it does not answer

DiskKey keyOf(const AskedDisk &disk)
{
    DiskKey key = {};
    readKernelIdentity(disk.address, key.identity);
    key.address = disk.address;
    return key;
}

// Whether the verdict, if it was asked for, and the geometry could be read, without which there is a single head.
bool isAnswered(const LastValues &values)
{
    const bool hasVerdict = !values.smartAsked || values.predict != kUnreadable;
    return hasVerdict && values.heads > 1;
}

// Whether nothing is to be gained by asking a disk once more that has not been used since.
bool isSettled(const DiskMemory &memory)
{
    const bool asksAgain = memory.withoutAnswer > 0 && memory.withoutAnswer < kMostUnanswered;
    return memory.valuesRead && !asksAgain && (memory.values.smartAsked || g_SmartMode != kSmartModeOn);
}

PowerMode askOpenDisk(const AskedDisk &disk, int fd)
{
    const bool ata = withoutSpace(fieldText(disk.vendor)) == "ATA"; // what a SAT layer puts there
    const PowerMode mode = ata ? askPowerMode(fd, PowerQuestion::kAta) : PowerMode::kUnknown;
    return mode == PowerMode::kUnknown ? askPowerMode(fd, PowerQuestion::kScsi) : mode;
}

PowerMode readPowerMode(const AskedDisk &disk)
{
    const FileDesc device(disk.path[0] == '\0' ? -1 : openDevice(disk.path, O_RDONLY));
    return device ? askOpenDisk(disk, device.get()) : PowerMode::kUnknown;
}

// The values that stand for a disk's answers, where there are any.
std::optional<LastValues> valuesOf(const AskedDisk &disk, const DiskMemory &memory)
{
    if (memory.valuesRead) {
        return memory.values;
    }
    LastValues values = {};
    if (g_lastValues.recallMoved(disk.kept.key, values)) {
        return values;
    }
    char serial[kSerialNumberSize];
    readKeptSerialNumber(disk.address, serial);
    return readStored({disk.address, disk.vendor, disk.model, serial});
}

bool leaveAlone(AskedDisk &disk, const DiskMemory &memory, const char *why)
{
    const std::optional<LastValues> values = valuesOf(disk, memory);
    disk.kept.leftAlone = true;
    disk.kept.valuesKnown = values.has_value();
    disk.kept.values = values.value_or(LastValues{});
    return TRACED(true, kDetail, "[%s] at %d:%d:%d:%d %s: %s", disk.path, disk.address.host, disk.address.channel,
                  disk.address.id, disk.address.lun, why, values ? "keeps its last values" : "has no last values");
}

} // namespace

bool tavstrg::isLeftAlone(AskedDisk &disk)
{
    disk.kept = {};
    disk.kept.key = keyOf(disk);
    DiskMemory memory = {};
    static_cast<void>(g_lastValues.recall(disk.kept.key, memory));
    if (isSuspended(disk.address)) {
        return leaveAlone(disk, memory, "is suspended");
    }
    const std::optional<IoCounts> counts = readIoCounts(disk.address, disk.path);
    const bool unused = counts && memory.countsRead && memory.counts == *counts;
    if (unused && isSettled(memory)) {
        return leaveAlone(disk, memory, "is not in use");
    }
    if (readPowerMode(disk) == PowerMode::kAsleep) {
        memory.countsRead = counts.has_value();
        memory.counts = counts.value_or(IoCounts{});
        g_lastValues.remember(disk.kept.key, memory);
        return leaveAlone(disk, memory, "is asleep");
    }
    disk.kept.withoutAnswer = unused ? memory.withoutAnswer : uint8_t{0};
    return false;
}

// The counts are read after the disk has answered: the kernel may have read from it to answer HDIO_GETGEO
// (linux/drivers/scsi/scsicam.c).
void tavstrg::rememberAsked(AskedDisk &disk, const HardDiskEntry &entry)
{
    if (disk.error != 0) {
        g_lastValues.forget(disk.kept.key);
        return;
    }
    LastValues &values = disk.kept.values;
    takeFromEntry(values, entry);
    values.smartAsked = g_SmartMode == kSmartModeOn;
    const std::optional<IoCounts> counts = readIoCounts(disk.address, disk.path);
    const auto times = static_cast<uint8_t>(std::min<int>(disk.kept.withoutAnswer + 1, kMostUnanswered));
    g_lastValues.remember(disk.kept.key, {.values = values,
                                          .valuesRead = true,
                                          .withoutAnswer = isAnswered(values) ? uint8_t{0} : times,
                                          .countsRead = counts.has_value(),
                                          .counts = counts.value_or(IoCounts{})});
}

void tavstrg::rememberWear(const AskedDisk &disk, uint16_t figure)
{
    DiskMemory memory = {};
    if (g_lastValues.recall(disk.kept.key, memory)) {
        memory.values.wearKnown = true;
        memory.values.wear = figure;
        g_lastValues.remember(disk.kept.key, memory);
    }
}

void tavstrg::serialOfKept(const AskedDisk &disk, char *serial)
{
    char known[kSerialNumberSize];
    if (disk.kept.valuesKnown) {
        copyText(known, fieldText(disk.kept.values.serial));
    } else {
        readKeptSerialNumber(disk.address, known);
    }
    std::memcpy(serial, known, sizeof known);
}

void tavstrg::describeKept(const AskedDisk &disk, HardDiskEntry &entry)
{
    const bool asked = g_SmartMode == kSmartModeOn; // else every disk has 0
    if (!disk.kept.valuesKnown) {
        describeUnasked(disk, entry);
        entry.SmartPredict = asked ? entry.SmartPredict : int16_t{0};
        return;
    }
    const TraceScope scope("TAVStorageSmartWatch"); // readers of the trace find one of these for each disk
    TRACE(kDetail, "_IN_");
    putIntoEntry(disk.kept.values, entry);
    if (asked) {
        const TraceScope verdict("get_kept_smart");
        entry.SmartPredict = disk.kept.values.smartAsked ? entry.SmartPredict : kUnreadable;
        TRACE(kDetail, "%s: last verdict SmartPredict=[%d]", disk.path, entry.SmartPredict);
    } else {
        entry.SmartPredict = 0;
    }
    TRACE(kDetail, "_OUT_ SmartPredict=[%d]", entry.SmartPredict);
}

int tavstrg::wearOfKept(const AskedDisk &disk, uint16_t *figure)
{
    if (!disk.kept.valuesKnown || !disk.kept.values.wearKnown) {
        return -1;
    }
    *figure = disk.kept.values.wear;
    return 0;
}
