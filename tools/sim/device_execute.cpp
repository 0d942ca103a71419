// SPDX-License-Identifier: Apache-2.0
// Execution of requests to a device node: SCSI commands in their two ioctls, ATA commands in theirs, and the requests
// that the kernel answers by itself.
#include "sim/ata_sectors.h"
#include "sim/failed_with.h"
#include "sim/requests.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <linux/fs.h>
#include <linux/hdreg.h>
#include <linux/nvme_ioctl.h>
#include <scsi/sg.h>

namespace sim {

namespace {

template <class T> int replyWith(void *argument, T value)
{
    std::memcpy(argument, &value, sizeof value);
    return 0;
}

// ---- SG_IO ----

void putSense(sg_io_hdr_t &header, std::span<const uint8_t> sense)
{
    constexpr uint8_t kDriverSense = 0x08;
    header.status = 0x02;
    header.masked_status = 0x01;
    header.driver_status = kDriverSense;
    header.info |= SG_INFO_CHECK;
    if (header.sbp != nullptr) {
        header.sb_len_wr = static_cast<unsigned char>(std::min<size_t>(sense.size(), header.mx_sb_len));
        std::copy_n(sense.begin(), header.sb_len_wr, header.sbp);
    }
}

void putFault(sg_io_hdr_t &header, const Fault &fault)
{
    if (!fault.sense.empty()) {
        putSense(header, fault.sense);
    }
    header.host_status = static_cast<unsigned short>(fault.hostStatus);
    if (fault.driverStatus != 0) {
        header.driver_status = static_cast<unsigned short>(fault.driverStatus);
    }
    if (fault.hostStatus != 0 || fault.driverStatus != 0) {
        header.info |= SG_INFO_CHECK;
    }
    header.resid = static_cast<int>(header.dxfer_len);
}

const RecordedReply *recordedReply(const Device &device, const sg_io_hdr_t &header)
{
    const std::span<const uint8_t> cdb(header.cmdp, header.cmd_len);
    const auto found =
        std::find_if(device.is.replies.begin(), device.is.replies.end(), [cdb](const RecordedReply &one) {
            return std::equal(one.cdb.begin(), one.cdb.end(), cdb.begin(), cdb.end());
        });
    return found == device.is.replies.end() ? nullptr : &*found;
}

int replay(const RecordedReply &reply, sg_io_hdr_t &header)
{
    if (reply.errorNumber != 0) {
        return failedWith(reply.errorNumber);
    }
    const bool in = header.dxfer_direction == SG_DXFER_FROM_DEV && header.dxferp != nullptr;
    const size_t moved = in ? std::min<size_t>(reply.data.size(), header.dxfer_len) : 0;
    std::copy_n(reply.data.begin(), moved, static_cast<uint8_t *>(header.dxferp));
    if (!reply.sense.empty()) {
        putSense(header, reply.sense);
    }
    header.resid = static_cast<int>(header.dxfer_len - moved);
    header.status = static_cast<unsigned char>(reply.status);
    header.masked_status = static_cast<unsigned char>(reply.status >> 1 & 0x1F);
    header.host_status = static_cast<unsigned short>(reply.hostStatus);
    header.driver_status = static_cast<unsigned short>(reply.driverStatus);
    const bool good = header.masked_status == 0 && reply.hostStatus == 0 && reply.driverStatus == 0;
    header.info = good ? SG_INFO_OK : SG_INFO_CHECK;
    return 0;
}

int genericIo(Device &device, sg_io_hdr_t &header, const Fault &fault)
{
    if (device.is.isIde() || header.cmdp == nullptr || header.cmd_len == 0) {
        return failedWith(EINVAL);
    }
    if (header.interface_id != 'S') {
        return failedWith(ENOSYS);
    }
    header.status = header.masked_status = header.msg_status = header.sb_len_wr = 0;
    header.host_status = header.driver_status = 0;
    header.resid = 0;
    header.info = 0;
    if (fault.fails()) {
        putFault(header, fault);
        return 0;
    }
    if (const RecordedReply *const recorded = recordedReply(device, header)) {
        return replay(*recorded, header);
    }
    auto *data = static_cast<uint8_t *>(header.dxferp);
    const bool out = header.dxfer_direction == SG_DXFER_TO_DEV && data != nullptr;
    const ScsiReply reply = scsiCommand(device, {header.cmdp, header.cmd_len}, {data, out ? header.dxfer_len : 0});
    const bool in = (header.dxfer_direction == SG_DXFER_FROM_DEV || header.dxfer_direction == SG_DXFER_TO_FROM_DEV) &&
                    data != nullptr;
    const size_t moved = in ? std::min<size_t>(reply.data.size(), header.dxfer_len) : 0;
    std::copy_n(reply.data.begin(), moved, data);
    if (in && !reply.wholeTransfer && !device.is.ata) {
        header.resid = static_cast<int>(header.dxfer_len - moved);
    }
    if (reply.status != 0) {
        putSense(header, reply.sense);
    }
    return 0;
}

// ---- SCSI_IOCTL_SEND_COMMAND ----

int sendCommand(Device &device, SendCommand &command, const Fault &fault)
{
    if (device.is.isIde()) {
        return failedWith(EINVAL);
    }
    if (fault.hostStatus != 0 || fault.driverStatus != 0) {
        return failedWith(EIO);
    }
    const std::span<const uint8_t> cdb = sentCdb(command);
    ScsiReply reply;
    if (fault.sense.empty()) {
        reply = scsiCommand(device, cdb, {cdb.data() + cdb.size(), command.inLength});
    } else {
        reply.status = 2;
        reply.sense = fault.sense;
    }
    if (reply.status == 0) {
        std::memset(dataOf(command), 0, command.outLength);
        std::copy_n(reply.data.begin(), std::min<size_t>(reply.data.size(), command.outLength), dataOf(command));
        return 0;
    }
    constexpr size_t kSenseLength = 16; // OMAX_SB_LEN of the kernel
    std::copy_n(reply.sense.begin(), std::min(reply.sense.size(), kSenseLength), dataOf(command));
    constexpr int kDriverSense = 0x08 << 24; // kernels before 2.6 return the driver byte too
    return reply.status | (device.oldKernel ? kDriverSense : 0);
}

// ---- HDIO_DRIVE_CMD, HDIO_DRIVE_TASK ----

// Command, sector number, feature, sector count; data follow.
int driveCommand(Device &device, uint8_t *block)
{
    if (!device.is.ata) {
        return failedWith(EINVAL);
    }
    constexpr uint8_t kSmart = 0xB0;
    const bool smart = block[0] == kSmart;
    AtaRegisters registers;
    registers.command = block[0];
    registers.features = block[2];
    registers.count = block[3];
    registers.lbaLow = block[1];
    registers.lbaMid = smart ? 0x4F : 0;
    registers.lbaHigh = smart ? 0xC2 : 0;
    const AtaReply reply = ataCommand(device, registers);
    const bool data = block[3] != 0;
    if (data && !reply.failed()) {
        std::memset(block + 4, 0, block[3] * size_t(512));
        std::copy_n(reply.data.begin(), std::min(reply.data.size(), block[3] * size_t(512)), block + 4);
    }
    // libata changes the block only if a command without data succeeds; the IDE driver always does.
    if (device.is.isIde() || (!data && !reply.failed())) {
        block[0] = reply.status;
        block[1] = reply.error;
        block[2] = device.is.isIde() && smart && data ? 1 : reply.registers.count;
    }
    return reply.failed() ? failedWith(EIO) : 0;
}

// Command, feature, sector count, sector number, cylinder low, cylinder high, select.
int driveTask(Device &device, uint8_t *block)
{
    if (!device.is.ata) {
        return failedWith(EINVAL);
    }
    const AtaRegisters registers{block[1], block[2], block[3], block[4], block[5], block[6], block[0]};
    const AtaReply reply = ataCommand(device, registers);
    if (device.is.isIde() || !reply.failed()) {
        const uint8_t back[] = {reply.status,
                                reply.error,
                                reply.registers.count,
                                reply.registers.lbaLow,
                                reply.registers.lbaMid,
                                reply.registers.lbaHigh,
                                static_cast<uint8_t>(device.is.isIde() ? 0xA0 : 0)};
        std::copy(std::begin(back), std::end(back), block);
    }
    return reply.failed() ? failedWith(EIO) : 0;
}

// ---- requests that the kernel answers by itself ----

int replyAddress(const Device &device, void *argument)
{
    const DeviceDescription &is = device.is;
    if (is.isIde()) {
        return failedWith(EINVAL);
    }
    struct {
        uint32_t word, hostUniqueId;
    } const address{static_cast<uint32_t>(is.id & 0xFF) | static_cast<uint32_t>(is.lun & 0xFF) << 8 |
                        static_cast<uint32_t>(is.channel & 0xFF) << 16 | static_cast<uint32_t>(is.host & 0xFF) << 24,
                    0};
    return replyWith(argument, address);
}

int replyGeometry(const Device &device, void *argument)
{
    if (!device.is.hasBlocks()) {
        return failedWith(EINVAL);
    }
    if (!device.is.geometry || device.is.type == kCdrom) {
        return failedWith(ENOTTY);
    }
    const Geometry &geometry = *device.is.geometry;
    hd_geometry reply{};
    reply.heads = static_cast<unsigned char>(geometry.heads);
    reply.sectors = static_cast<unsigned char>(geometry.sectors);
    reply.cylinders = static_cast<unsigned short>(geometry.cylinders);
    return replyWith(argument, reply);
}

int replyIdentity(const Device &device, void *argument)
{
    return device.is.ata ? replyWith(argument, identityForIoctl(device.is, device.smartEnabled)) : failedWith(EINVAL);
}

} // namespace

int executeRequest(Device &device, unsigned long number, void *argument, const Fault &fault)
{
    const bool toScsi = number == SG_IO || number == kSendCommand;
    const bool toNvme = number == NVME_IOCTL_ADMIN_CMD && fault.nvmeStatus != 0;
    if (fault.errorNumber != 0 || (fault.fails() && !toScsi && !toNvme)) {
        return failedWith(fault.errorNumber != 0 ? fault.errorNumber : EIO);
    }
    switch (number) {
    case SG_IO:
        return genericIo(device, *static_cast<sg_io_hdr_t *>(argument), fault);
    case kSendCommand:
        return sendCommand(device, *static_cast<SendCommand *>(argument), fault);
    case HDIO_DRIVE_CMD:
        return driveCommand(device, static_cast<uint8_t *>(argument));
    case HDIO_DRIVE_TASK:
        return driveTask(device, static_cast<uint8_t *>(argument));
    case kGetIdlun:
        return replyAddress(device, argument);
    case kGetBusNumber:
        return device.is.isIde() ? failedWith(EINVAL) : replyWith(argument, device.is.host);
    case HDIO_GET_IDENTITY:
        return replyIdentity(device, argument);
    case HDIO_GETGEO:
        return replyGeometry(device, argument);
    case NVME_IOCTL_ID:
    case NVME_IOCTL_ADMIN_CMD:
        return nvmeRequest(device, number, argument, fault);
    default:
        break;
    }
    if (!device.is.hasBlocks()) {
        return failedWith(EINVAL);
    }
    if (number == BLKSSZGET) {
        return replyWith(argument, static_cast<int>(device.is.sectorSize));
    }
    return number == BLKGETSIZE ? replyWith(argument, static_cast<unsigned long>(device.is.sectors))
                                : replyWith(argument, device.is.sectors * 512);
}

} // namespace sim
