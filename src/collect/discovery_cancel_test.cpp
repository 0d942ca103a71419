// SPDX-License-Identifier: Apache-2.0
// A discovery that is cancelled between two entries leaves nothing behind.
#include "collect/ide/ide_discovery.h"
#include "collect/scsi/scsi_variants.h"
#include "runtime/memory.h"

#include "sim/sim.h"

#include <gtest/gtest.h>

#include <atomic>
#include <pthread.h>
#include <string>

using namespace tavstrg;

namespace {

std::atomic<int> linesUntilCancel{0};

// Cancels its own thread on the nth line of trace; the cancel stays pending until the next point for it.
void cancelOnLine(int, const char *, const char *, int, const char *, ...)
{
    if (linesUntilCancel.fetch_sub(1) == 1) {
        pthread_cancel(pthread_self());
    }
}

struct Discovery {
    const char *name;
    void (*run)();
};

const Discovery kDiscoveries[] = {
    {"devices from sysfs",
     [] {
         SCSIDeviceInfo *list = nullptr;
         int32_t count = 0;
         int32_t status = 0;
         sys_GetSCSIDeviceInfoFromSys(&list, &count, &status);
         FreeSCSIDeviceInfo(&list);
     }},
    {"devices from procfs",
     [] {
         SCSIDeviceInfo *list = nullptr;
         int32_t count = 0;
         int32_t status = 0;
         proc_GetSCSIDeviceInfoFromProc(&list, &count, &status);
         FreeSCSIDeviceInfo(&list);
     }},
    {"host adapters from sysfs",
     [] {
         SCSIHostEntry *list = nullptr;
         int32_t count = 0;
         sys_read_scsi_ctrl(&list, &count);
         memfree(list);
     }},
    {"types of host adapters from procfs",
     [] {
         SCSIControllerTypeDetail *list = nullptr;
         int32_t typeCount = 0;
         int32_t count = 0;
         int32_t status = 0;
         proc_GetSCSIControllerTypeDetailInfo(&list, &typeCount, &count, &status);
         FreeSCSIControllerTypeDetailInfo(&list);
     }},
    {"USB host adapters from sysfs",
     [] {
         USBHostEntry *list = nullptr;
         int32_t count = 0;
         sys_GetUSBCtrlFromSys(&list, &count);
         memfree(list);
     }},
    {"IDE",
     [] {
         IDEGeneralInfo info = {};
         GetIDEInfoFromProc(&info);
         FreeIDEInfo(&info);
     }},
};

// Runs a discovery in the monitoring thread's manner; true when it was cancelled on the way.
bool cancelledOnLine(const Discovery &discovery, int line)
{
    linesUntilCancel = line;
    pthread_t thread{};
    const auto body = [](void *argument) -> void * {
        int previous = 0;
        pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &previous);
        static_cast<const Discovery *>(argument)->run();
        return nullptr;
    };
    void *const argument = const_cast<Discovery *>(&discovery);
    EXPECT_EQ(pthread_create(&thread, nullptr, body, argument), 0);
    void *result = nullptr;
    EXPECT_EQ(pthread_join(thread, &result), 0);
    return result == PTHREAD_CANCELED;
}

} // namespace

TEST(DiscoveryCancel, AtEveryLineOfTraceReleasesWhatIsHeld)
{
    sim::Machine machine(R"({"sysfs": false, "procfs": false})");
    machine.write("/opt/qlm/tavkit_sa/data/storage.inf", "ahci\naic7xxx\ngdth\n");
    std::string records;
    for (int i = 0; i < 3; ++i) {
        const std::string number = std::to_string(i);
        machine.write("/sys/bus/scsi/devices/0:0:" + number + ":0/type", "0\n");
        machine.write("/sys/class/scsi_host/host" + number + "/proc_name", "ahci\n");
        machine.write("/sys/class/scsi_host/host1" + number + "/proc_name", "usb-storage\n");
        machine.write("/proc/scsi/aic7xxx/" + number, "");
        machine.write("/proc/scsi/gdth/1" + number, "");
        machine.write("/proc/ide/ide" + number + "/model", "pci\n");
        machine.write("/proc/ide/ide" + number + "/mate", "(none)\n");
        records +=
            "Host: scsi" + number + " Channel: 00 Id: 00 Lun: 00\n  Vendor: A Model: B Rev: C\n  Type: D revision: 2\n";
    }
    machine.write("/proc/scsi/scsi", records);
    sim::countCallsOf("");
    g_Func.trace.TraceLog = cancelOnLine;
    for (const Discovery &discovery : kDiscoveries) {
        int64_t blocks = 0;
        int cancelled = 0;
        // The first run allocates what the thread library and the unwinder keep.
        bool again = cancelledOnLine(discovery, 1);
        for (int line = 1; again && line < 10000; ++line) {
            again = cancelledOnLine(discovery, line);
            cancelled += again ? 1 : 0;
            ASSERT_EQ(machine.openDescriptors(), 0) << discovery.name << ", line " << line;
            blocks = line == 1 ? sim::liveBlocks() : blocks;
            ASSERT_EQ(sim::liveBlocks(), blocks) << discovery.name << ", line " << line;
        }
        EXPECT_GT(cancelled, 4) << discovery.name;
    }
    g_Func.trace.TraceLog = nullptr;
}
