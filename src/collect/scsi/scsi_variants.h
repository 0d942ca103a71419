// SPDX-License-Identifier: Apache-2.0
// The two variants of every operation of the SCSI discovery: sys_ reads sysfs, proc_ reads procfs.
#pragma once

#include "collect/scsi/scsi_discovery.h"

#include <cstddef>

namespace tavstrg {

constexpr char kSysDevices[] = "/sys/bus/scsi/devices";
constexpr char kSysHosts[] = "/sys/class/scsi_host";
constexpr char kProcScsi[] = "/proc/scsi";
constexpr char kProcDevices[] = "/proc/scsi/scsi";
// Bytes, some 100,000 devices; a longer file is a failure, as a part of the devices is no inventory.
constexpr size_t kMaxProcDevices = size_t{16} << 20;

} // namespace tavstrg

int sys_GetSCSIDeviceInfoFromSys(tavstrg::SCSIDeviceInfo **list, int32_t *count, int32_t *status);
int proc_GetSCSIDeviceInfoFromProc(tavstrg::SCSIDeviceInfo **list, int32_t *count, int32_t *status);

int sys_GetSCSIControllerTypeDetailInfo(tavstrg::SCSIControllerTypeDetail **list, int32_t *typeCount,
                                        int32_t *controllerCount, int32_t *status);
int proc_GetSCSIControllerTypeDetailInfo(tavstrg::SCSIControllerTypeDetail **list, int32_t *typeCount,
                                         int32_t *controllerCount, int32_t *status);

int sys_GetSCSIControllerNumber();
int proc_GetSCSIControllerNumber();

int sys_read_scsi_ctrl(tavstrg::SCSIHostEntry **list, int32_t *count);
int proc_read_scsi_ctrl(tavstrg::SCSIHostEntry **list, int32_t *count);

int sys_GetUSBCtrlFromSys(tavstrg::USBHostEntry **list, int32_t *count);
int proc_GetUSBCtrlFromProc(tavstrg::USBHostEntry **list, int32_t *count);

// strcmp of two names of drivers, traced.
int _CmpControllerName(const char *left, const char *right);
