// SPDX-License-Identifier: Apache-2.0
#include "collect/devices/ask_ahead.h"

#include "collect/collection/device_kinds.h"
#include "devcmd/geometry.h"
#include "devcmd/open_device.h"
#include "endurance/endurance.h"
#include "runtime/cancel.h"
#include "runtime/field_text.h"
#include "runtime/trace.h"

#include <atomic>
#include <cstring>
#include <new>

using namespace tavstrg;

namespace {

// What the walk traces one after the other.
enum Step : uint8_t { kName, kSerialNumber, kDescription, kWear, kSteps };

// The functions under whose names the walk asks.
constexpr const char *kFunctionOf[kSteps] = {"MakeSCSIDeviceTable", "MakeSCSIDeviceTable", "MakeSCSIHDDevice",
                                             "GetLifeSpanInfo"};

} // namespace

// One disk: where it is and how it is asked, then its answers. Its thread may outlive the collection, so it refers to
// nothing of that.
struct tavstrg::DiskTask {
    AskedDisk disk; // never changed once threads run
    const DiskMethods *methods;
    int32_t sequence;  // of the disk in the discovery list
    int32_t nameFound; // 0, or -1
    bool worn;         // its wear is asked for
    uint8_t wearAttribute;

    // The thread writes them, and the walk reads them when the task is done.
    int32_t serialResult;
    char serialNumber[kSerialNumberSize];
    std::atomic<bool> hasSerialNumber; // also to be read before the task is done
    int describeResult;
    HardDiskEntry entry;
    int wearResult;
    uint16_t figure;

    TraceLines lines[kSteps];
    bool setAside; // before, and not asked this time
};

namespace {

// Keeps the lines that a thread traces in a step.
class StepLines {
public:
    StepLines(DiskTask &task, Step step) : into_(task.lines[step]), scope_(kFunctionOf[step]) {}

private:
    const TraceInto into_;
    const TraceScope scope_;
};

void askDisk(void *block)
{
    auto &task = *static_cast<DiskTask *>(block);
    const OwnSectorSize sectorSize;
    const KnownNodes nodes;
    AskedDisk disk = task.disk;
    {
        const StepLines lines(task, kSerialNumber);
        task.serialResult = task.methods->serialNumber(disk, task.serialNumber);
        task.hasSerialNumber = task.serialResult == 0;
    }
    if (task.serialResult < 0) {
        return;
    }
    cancellationPoint();
    {
        const StepLines lines(task, kDescription);
        beginDescription(task.entry, disk.path);
        task.describeResult = task.methods->describe(disk, task.entry);
    }
    if (task.describeResult < 0 || !task.worn) {
        return;
    }
    cancellationPoint();
    const StepLines lines(task, kWear);
    task.wearResult = task.methods->wear(disk, task.wearAttribute, &task.figure);
}

void releaseTask(void *block)
{
    for (TraceLines &lines : static_cast<DiskTask *>(block)->lines) {
        lines.release();
    }
}

constexpr TaskKind kAskDisk = {sizeof(DiskTask), askDisk, releaseTask, kDiskDeadlineMs, kMostDiskThreads};

// Takes the serial number over from the task of the same disk that was set aside.
bool takeOver(const void *left, void *subject)
{
    const auto &before = *static_cast<const DiskTask *>(left);
    auto &task = *static_cast<DiskTask *>(subject);
    if (before.disk.address != task.disk.address) {
        return false;
    }
    task.setAside = true;
    if (before.hasSerialNumber) {
        std::memcpy(task.serialNumber, before.serialNumber, sizeof task.serialNumber);
        task.hasSerialNumber = true;
    }
    return true;
}

bool isManagedDisk(const DeviceFilter &filter, const SCSIDeviceInfo &device)
{
    return scsiKindOf(fieldText(device.type)).deviceClass == kHardDisk && isManagedDevice(filter, device);
}

// The walk traces why it takes or leaves a device: here these lines are dropped.
int32_t countManagedDisks(const SCSIDeviceInfo *list, const DeviceFilter &filter)
{
    TraceLines dropped = {};
    int32_t count = 0;
    {
        const TraceInto into(dropped);
        for (const SCSIDeviceInfo *device = list; device != nullptr; device = device->next) {
            count += isManagedDisk(filter, *device) ? 1 : 0;
        }
    }
    dropped.release();
    return count;
}

void fillTask(DiskTask &task, const SCSIDeviceInfo &device, const DiskNaming &naming, const DiskMethods &methods)
{
    task.disk = askedDisk(device);
    task.methods = &methods;
    task.sequence = device.sequence;
    {
        const StepLines lines(task, kName);
        task.nameFound = naming.find(naming.table, device, task.disk.path);
    }
    const char *const model = device.vendor[0] == '\0' ? "" : device.model;
    if (const M2SSDInf *const rated = findM2SSD(g_M2SSDInf, g_M2SSDCnt, model)) {
        task.worn = true;
        task.figure = kFigureUnknown;
        task.wearAttribute = static_cast<uint8_t>(rated->attid);
    }
}

void traceSetAside(const DiskTask &task)
{
    const ScsiAddress &address = task.disk.address;
    if (task.setAside) {
        TRACE(kFailure, "[%s] at %d:%d:%d:%d still does not answer: not asked", task.disk.path, address.host,
              address.channel, address.id, address.lun);
    } else {
        TRACE(kFailure, "[%s] at %d:%d:%d:%d did not answer within %d ms: set aside until it does", task.disk.path,
              address.host, address.channel, address.id, address.lun, kDiskDeadlineMs);
    }
}

// What a disk that was set aside is shown with.
void copySerialNumber(const DiskTask &task, char *serial)
{
    char kept[kSerialNumberSize] = "";
    if (task.hasSerialNumber) {
        std::memcpy(kept, task.serialNumber, sizeof kept);
    } else {
        readKeptSerialNumber(task.disk.address, kept);
    }
    std::memcpy(serial, kept, sizeof kept);
}

// What asking a disk changes in its entry.
void copyDescription(HardDiskEntry &entry, const HardDiskEntry &described)
{
    entry.CylindersPerUnit = described.CylindersPerUnit;
    entry.TracksPerCylinder = described.TracksPerCylinder;
    entry.SectorsPerTrack = described.SectorsPerTrack;
    entry.Capacity = described.Capacity;
    copyText(entry.DevPath, fieldText(described.DevPath));
    entry.DevKind = described.DevKind;
    entry.SmartPredict = described.SmartPredict;
    entry.SmartSupport = described.SmartSupport;
    entry.SmartEnableState = described.SmartEnableState;
}

} // namespace

bool AskAhead::addTasks(const SCSIDeviceInfo *list, const DeviceFilter &filter)
{
    TraceLines dropped = {};
    int32_t i = 0;
    {
        const TraceInto into(dropped);
        for (const SCSIDeviceInfo *device = list; device != nullptr; device = device->next) {
            if (isManagedDisk(filter, *device) && i < count_) {
                auto &task = *new (batch_.task(i)) DiskTask{};
                fillTask(task, *device, naming_, methods_);
                batch_.setLane(i, device->host);
                if (findSetAside(askDisk, takeOver, &task)) {
                    batch_.leaveOut(i);
                }
                ++i;
            }
        }
    }
    dropped.release();
    return i == count_;
}

bool AskAhead::ask(const SCSIDeviceInfo *list, const DeviceFilter &filter)
{
    count_ = countManagedDisks(list, filter);
    if (!batch_.prepare(count_, kAskDisk) || !addTasks(list, filter)) {
        return false;
    }
    batch_.run();
    return true;
}

DiskTask *AskAhead::taskOf(const SCSIDeviceInfo &device)
{
    // Both walks go through the list in its order.
    while (at_ < count_) {
        auto *const task = static_cast<DiskTask *>(batch_.task(at_));
        if (task->sequence >= device.sequence) {
            return task->sequence == device.sequence ? task : nullptr;
        }
        ++at_;
    }
    return nullptr;
}

const DiskAsker::Functions AskAhead::kFunctions = {
    [](DiskAsker &self, const SCSIDeviceInfo &device, char *path) {
        auto &ahead = static_cast<AskAhead &>(self);
        const DiskTask *const task = ahead.taskOf(device);
        if (task == nullptr) {
            return ahead.naming_.find(ahead.naming_.table, device, path); // unmanaged: nothing more is asked about it
        }
        task->lines[kName].write();
        std::memcpy(path, task->disk.path, sizeof task->disk.path);
        return task->nameFound;
    },
    [](DiskAsker &self, char *serial) {
        const auto &ahead = static_cast<const AskAhead &>(self);
        const DiskTask &task = ahead.current();
        task.lines[kSerialNumber].write();
        if (!ahead.isAnswered()) {
            copySerialNumber(task, serial);
            return 0;
        }
        if (task.serialResult == 0) {
            std::memcpy(serial, task.serialNumber, sizeof task.serialNumber);
        }
        return task.serialResult;
    },
    [](DiskAsker &self, HardDiskEntry &entry) {
        const auto &ahead = static_cast<const AskAhead &>(self);
        const DiskTask &task = ahead.current();
        task.lines[kDescription].write();
        if (!ahead.isAnswered()) {
            traceSetAside(task);
            describeUnasked(task.disk, entry);
            return 0;
        }
        copyDescription(entry, task.entry);
        return task.describeResult;
    },
    [](DiskAsker &self, uint8_t, uint16_t *figure) {
        const auto &ahead = static_cast<const AskAhead &>(self);
        const DiskTask &task = ahead.current();
        task.lines[kWear].write();
        if (!ahead.isAnswered()) {
            return -1;
        }
        *figure = task.figure;
        return task.wearResult;
    },
};

const DiskTask &AskAhead::current() const
{
    return *static_cast<const DiskTask *>(batch_.task(at_));
}
