// SPDX-License-Identifier: Apache-2.0
#include "tavstrg/record_calls.h"

#include <linux/nvme_ioctl.h>
#include <scsi/sg.h>
#include <sys/ioctl.h>

#include <algorithm>

namespace tool {
namespace {

ByteVector bytesAt(const void *at, size_t length)
{
    const auto *const bytes = static_cast<const uint8_t *>(at);
    return bytes == nullptr ? ByteVector() : ByteVector(bytes, bytes + length);
}

RecordedCommand commandOf(const sg_io_hdr_t &header, int error)
{
    RecordedCommand command;
    command.cdb = bytesAt(header.cmdp, header.cmd_len);
    command.error = error;
    if (error != 0) {
        return command;
    }
    const bool reads = header.dxfer_direction == SG_DXFER_FROM_DEV;
    const auto left = static_cast<size_t>(std::clamp<int64_t>(header.resid, 0, header.dxfer_len));
    command.data = bytesAt(header.dxferp, reads ? header.dxfer_len - left : 0);
    command.sense = bytesAt(header.sbp, header.sb_len_wr);
    command.status = header.status;
    command.hostStatus = header.host_status;
    command.driverStatus = header.driver_status;
    return command;
}

RecordedHealthLog healthLogOf(const nvme_admin_cmd &command, int result, int error)
{
    RecordedHealthLog log;
    log.error = error;
    log.status = result > 0 ? result : 0;
    if (result == 0) {
        log.data = bytesAt(reinterpret_cast<const void *>(static_cast<uintptr_t>(command.addr)), command.data_len);
    }
    return log;
}

} // namespace

void Calls::opened(const char *path, int descriptor, int error)
{
    const std::lock_guard held(mutex_);
    std::string node = path + std::string_view("/dev/").size();
    std::replace(node.begin(), node.end(), '/', '!'); // as the kernel spells it
    calls_[node].openError = error;
    if (descriptor >= 0) {
        nodes_[descriptor] = node;
    }
}

void Calls::answered(int descriptor, unsigned long request, const void *argument, int result, int error)
{
    const std::lock_guard held(mutex_);
    const auto node = nodes_.find(descriptor);
    if (node == nodes_.end() || argument == nullptr) {
        return;
    }
    if (request == SG_IO) {
        calls_[node->second].commands.push_back(commandOf(*static_cast<const sg_io_hdr_t *>(argument), error));
    } else if (request == NVME_IOCTL_ADMIN_CMD) {
        calls_[node->second].healthLog = healthLogOf(*static_cast<const nvme_admin_cmd *>(argument), result, error);
    }
}

NodeCalls Calls::of(const std::string &node) const
{
    const std::lock_guard held(mutex_);
    const auto found = calls_.find(node);
    return found == calls_.end() ? NodeCalls() : found->second;
}

} // namespace tool
