// SPDX-License-Identifier: Apache-2.0
#include "devcmd/smart/identify.h"

#include "devcmd/smart/ata_command.h"
#include "runtime/trace.h"

#include <algorithm>
#include <cerrno>
#include <linux/hdreg.h>
#include <sys/ioctl.h>

using namespace tavstrg;

namespace {

constexpr size_t kBlockLength = 1028; // 4 bytes of arguments and room for two sectors
using IdentifyBlock = std::array<uint8_t, kBlockLength>;

bool sendIdentify(int fd, const DriveCommand &command, IdentifyBlock &block)
{
    std::copy(command.begin(), command.end(), block.begin());
    return ::ioctl(fd, HDIO_DRIVE_CMD, block.data()) == 0;
}

bool readIdentify(int fd, IdentifyBlock &block, IdentifyRetry retry)
{
    block.fill(0);
    if (sendIdentify(fd, kIdeIdentify, block)) {
        return true;
    }
    if (retry == IdentifyRetry::kZeroed) {
        block.fill(0);
    }
    return sendIdentify(fd, kIdeIdentifyPacket, block);
}

} // namespace

bool tavstrg::identifyAllowsSmart(int fd, HardDiskEntry &disk, IdentifyRetry retry)
{
    IdentifyBlock block;
    disk.SmartSupport = 1;
    if (!readIdentify(fd, block, retry)) {
        const int error = errno;
        return TRACED(false, kFailure, "ioctl HDIO_DRIVE_CMD :%s failed, errno=[%d]", disk.DevPath, error);
    }
    disk.SmartSupport =
        smartSupportOfIdentify(std::span(block).subspan<std::tuple_size_v<DriveCommand>, kIdentifyLength>());
    if (disk.SmartSupport == 3) {
        return TRACED(false, kDetail, "%s: not support smart", disk.DevPath);
    }
    if (disk.SmartSupport == 2) {
        TRACE(kDetail, "%s: support smart", disk.DevPath);
    }
    return true;
}
