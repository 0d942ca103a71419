// SPDX-License-Identifier: Apache-2.0
// ATA disks behind a SCSI layer. IDENTIFY goes through ATA PASS-THROUGH too: not every SCSI layer knows the IDE ioctls.
#include "devcmd/open_device.h"
#include "devcmd/smart/ata_command.h"
#include "devcmd/smart/smart_routines.h"
#include "devcmd/smart/state_routines.h"
#include "devcmd/transport/ata_exchange.h"
#include "devcmd/transport/ata_return.h"
#include "runtime/holders.h"
#include "runtime/trace.h"

#include <cerrno>
#include <fcntl.h>

using namespace tavstrg;

namespace {

// Traces a node that cannot be opened.
FileDesc openTraced(const HardDiskEntry &disk)
{
    const int fd = openDevice(disk.DevPath, O_RDONLY);
    if (fd < 0) {
        const int error = errno;
        TRACE(kFailure, "open device :%s failed, errno=[%d]", disk.DevPath, error);
    }
    return FileDesc(fd);
}

bool fetchState(HardDiskEntry &disk)
{
    const FileDesc device = openTraced(disk);
    if (!device) {
        return false;
    }
    std::array<uint8_t, kIdentifyLength> identify{};
    if (!ataDone(exchangeAta(device.get(), kSatIdentify, identify.data()))) {
        return TRACED(false, kFailure, "%s: IDENTIFY failed", disk.DevPath);
    }
    disk.SmartSupport = smartSupportOfIdentify(identify);
    if (disk.SmartSupport == kNotSupported) {
        return TRACED(false, kDetail, "%s: not support smart", disk.DevPath);
    }
    disk.SmartEnableState = smartStateOfIdentify(identify);
    return true;
}

void enable(HardDiskEntry &disk)
{
    const TraceScope scope("enable_sata_smart");
    TRACE(kDetail, "_IN_");
    disk.SmartSupport = kSupportUnknown;
    const FileDesc device = openTraced(disk);
    if (!device) {
        return;
    }
    const AtaReply reply = exchangeAta(device.get(), kSatSmartEnable);
    if (ataDone(reply) || (reply.transport == 0 && disk.SmartEnableState == kFoundEnabled)) {
        disk.SmartSupport = kSupported;
        TRACE(kDetail, "SATA SMART enable successed!");
    } else {
        TRACE(kFailure, "SATA SMART enable failed!");
    }
    TRACE(kDetail, "_OUT_");
}

SmartVerdict verdictOf(const AtaReply &reply)
{
    const auto registers = reply.transport == 0 ? ataRegistersOf(reply.sense()) : std::nullopt;
    return registers ? smartVerdictOf(*registers) : SmartVerdict::kUnknown;
}

void readVerdict(HardDiskEntry &disk)
{
    const TraceScope scope("get_sata_smart");
    TRACE(kDetail, "_IN_");
    const FileDesc device = openTraced(disk);
    switch (device ? verdictOf(exchangeAta(device.get(), kSatSmartStatus)) : SmartVerdict::kUnknown) {
    case SmartVerdict::kGood:
        disk.SmartPredict = 0;
        TRACE(kDetail, "sata SMART status is OK!");
        break;
    case SmartVerdict::kExceeded:
        disk.SmartPredict = 1;
        TRACE(kDetail, "sata SMART status is WARNING!");
        break;
    case SmartVerdict::kUnknown:
        disk.SmartSupport = kSupportUnknown;
        TRACE(kFailure, "ERROR: get sata SMART status failed!");
        break;
    }
    TRACE(kDetail, "_OUT_");
}

void disable(HardDiskEntry &disk)
{
    disable_sata_smart(&disk);
}

} // namespace

const StateRoutines tavstrg::kSataStateRoutines = {fetchState, enable, readVerdict, disable};
