// SPDX-License-Identifier: Apache-2.0
// The transport of SCSI commands to disks.
#pragma once

#include "devcmd/hard_disk.h"

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <span>

extern std::atomic<int32_t> use_sg_io; // 1 = SG_IO, any other value = SCSI_IOCTL_SEND_COMMAND; set by every collection

constexpr int32_t DIR_NONE = 0;
constexpr int32_t DIR_FROM_DEVICE = 1;
constexpr int32_t DIR_TO_DEVICE = 2;

// The one request of every SCSI command, built by scsiRequest.
struct ScsiIoRequest {
    uint8_t *cdb;
    size_t cdb_len; // 6, 10 or 16; only the low byte reaches the kernel
    int32_t direction;
    uint8_t *data;    // may be null with DIR_NONE
    size_t data_len;  // bytes to transfer
    uint8_t *sense;   // or null
    size_t sense_max; // capacity of sense, bytes
    uint32_t timeout_sec;
    size_t sense_len;    // out: sense bytes that the kernel wrote
    uint8_t scsi_status; // out: SCSI status, 2 = CHECK CONDITION
};

namespace tavstrg {

constexpr uint32_t kTimeoutSeconds = 6;
constexpr size_t kSenseLength = 32;    // bytes, where sense data are asked for
constexpr uint8_t kCheckCondition = 2; // SCSI status

// What a command transfers.
struct ScsiTransfer {
    int32_t direction;
    std::span<uint8_t> data; // empty with DIR_NONE
};

// A request with the usual time-out. The blocks must outlive it; without a sense block no sense data come back.
constexpr ScsiIoRequest scsiRequest(std::span<uint8_t> cdb, const ScsiTransfer &transfer, std::span<uint8_t> sense = {})
{
    ScsiIoRequest request{};
    request.cdb = cdb.data();
    request.cdb_len = cdb.size();
    request.direction = transfer.direction;
    request.data = transfer.data.data();
    request.data_len = transfer.data.size();
    request.sense = sense.data();
    request.sense_max = sense.size();
    request.timeout_sec = kTimeoutSeconds;
    return request;
}

} // namespace tavstrg

// Sends a command: 0 when the transport worked (the SCSI status is not judged), or a negative errno value.
int _sg_IoctlCommon(int fd, ScsiIoRequest *request);
// Sets DevKind of a SCSI disk that is in fact an ATA disk behind a SCSI layer.
void fetch_sata_type(tavstrg::HardDiskEntry *hdt);
