// SPDX-License-Identifier: Apache-2.0
#include "collect/scsi/scsi_discovery.h"

#include "collect/base/node_list.h"
#include "collect/scsi/kernel_rules.h"
#include "collect/scsi/scsi_parse.h"
#include "collect/scsi/scsi_variants.h"
#include "runtime/trace.h"

#include <sys/utsname.h>

using namespace tavstrg;

namespace {

int interfaceOfKernel(const KernelRules &rules)
{
    utsname kernel = {};
    return ::uname(&kernel) != 0 ? kInterfaceProcfs : rules.interfaceOf(kernel.release);
}

} // namespace

int GetSCSIDeviceInfoFromProc(SCSIDeviceInfo **list, int32_t *count, int32_t *status)
{
    const TraceScope scope;
    TRACE(kDetail, "_IN_");
    const int result = select_proc_or_sys() == kInterfaceSysfs ? sys_GetSCSIDeviceInfoFromSys(list, count, status)
                                                               : proc_GetSCSIDeviceInfoFromProc(list, count, status);
    return TRACED(result, kDetail, "_OUT_ ret=[%d]", result);
}

int GetSCSIControllerTypeDetailInfo(SCSIControllerTypeDetail **list, int32_t *typeCount, int32_t *controllerCount,
                                    int32_t *status)
{
    const TraceScope scope;
    TRACE(kDetail, "_IN_");
    const int result = select_proc_or_sys() == kInterfaceSysfs
                           ? sys_GetSCSIControllerTypeDetailInfo(list, typeCount, controllerCount, status)
                           : proc_GetSCSIControllerTypeDetailInfo(list, typeCount, controllerCount, status);
    return TRACED(result, kDetail, "_OUT_ ret=[%d]", result);
}

int GetSCSIControllerNumber()
{
    const TraceScope scope;
    TRACE(kDetail, "_IN_");
    const int result =
        select_proc_or_sys() == kInterfaceSysfs ? sys_GetSCSIControllerNumber() : proc_GetSCSIControllerNumber();
    return TRACED(result, kDetail, "_OUT_ ret=[%d]", result);
}

int read_proc_scsi(SCSIHostEntry **list, int32_t *count)
{
    const TraceScope scope;
    TRACE(kDetail, "_IN_");
    const int result =
        select_proc_or_sys() == kInterfaceSysfs ? sys_read_scsi_ctrl(list, count) : proc_read_scsi_ctrl(list, count);
    return TRACED(result, kDetail, "_OUT_ ret=[%d]", result);
}

int TAVStorageGetUSBCtrl(USBHostEntry **list, int32_t *count)
{
    const TraceScope scope;
    TRACE(kDetail, "_IN_");
    const int result = select_proc_or_sys() == kInterfaceSysfs ? sys_GetUSBCtrlFromSys(list, count)
                                                               : proc_GetUSBCtrlFromProc(list, count);
    return TRACED(result, kDetail, "_OUT_ ret=[%d]", result);
}

void FreeSCSIDeviceInfo(SCSIDeviceInfo **list)
{
    const TraceScope scope;
    TRACE(kDetail, "_IN_");
    if (list != nullptr) {
        freeNodes(*list);
    }
    TRACE(kDetail, "_OUT_");
}

void FreeSCSIControllerTypeDetailInfo(SCSIControllerTypeDetail **list)
{
    const TraceScope scope;
    TRACE(kDetail, "_IN_");
    if (list != nullptr) {
        freeNodes(*list);
    }
    TRACE(kDetail, "_OUT_");
}

int select_proc_or_sys()
{
    const TraceScope scope;
    TRACE(kDetail, "_IN_");
    KernelRules &rules = kernelRules();
    int choice = rules.choice;
    if (choice == kInterfaceUndecided) {
        choice = interfaceOfKernel(rules);
        rules.choice = choice;
    }
    return TRACED(choice, kDetail, "_OUT_ (%d)", choice);
}
