// SPDX-License-Identifier: Apache-2.0
// Commands to disks: transport, sense data, ATA PASS-THROUGH.
#pragma once

#include "devcmd/hard_disk.h"

#include <cstddef>
#include <cstdint>

extern int32_t use_sg_io; // 1 = SG_IO, any other value = SCSI_IOCTL_SEND_COMMAND; set by every collection

constexpr int32_t DIR_NONE = 0;
constexpr int32_t DIR_FROM_DEVICE = 1;
constexpr int32_t DIR_TO_DEVICE = 2;

// The one request of every SCSI command; zero-filled by each caller before use.
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

// What scsi_chk_sense_data_format decodes.
struct SenseInfo {
    uint8_t response_code; // sense byte 0 without bit 7
    uint8_t sense_key;
    uint8_t asc;
    uint8_t ascq;
    uint8_t zero[3];
    uint8_t additional_length; // descriptor format only
};
static_assert(sizeof(SenseInfo) == 8);

// SAT command selectors; other values are not supported.
constexpr int SATCMD_SMART_ENABLE = 0;
constexpr int SATCMD_SMART_DISABLE = 1;
constexpr int SATCMD_SMART_STATUS = 5;
constexpr int SATCMD_SMART_STATUS_CHECK = 6;
constexpr int SATCMD_IDENTIFY = 10;
constexpr int SATCMD_IDENTIFY_PACKET = 11;

// Kernel releases as major.minor.patch: 1, 0 or -1 as version1 is newer, equal or older; -2 when either is invalid.
int CmpVersion(const char *version1, const char *version2);
// Sends a command: 0 when the transport worked (the SCSI status is not judged), or a negative errno value.
int _sg_IoctlCommon(int fd, ScsiIoRequest *request);
// Sends an ATA command: 0; 1 when the SMART threshold is exceeded (only SATCMD_SMART_STATUS_CHECK); -1 on failure. data
// holds 512 bytes for the IDENTIFY selectors; unused is ignored.
int sat_ata_cmd_interface(int fd, int command, int unused, uint8_t *data);
// Whether IDENTIFY (PACKET) DEVICE through SAT succeeds: 0, or -1.
int sat_ata_pass_through(int fd, int packet);
// 0 with *info filled when the bytes are sense data of a known format; -1 otherwise.
int scsi_chk_sense_data_format(const uint8_t *sense, size_t len, SenseInfo *info);
// First sense descriptor of a type, or null.
const uint8_t *scsi_find_sense_data(const uint8_t *sense, size_t len, int type);

// Sets DevKind of a SCSI disk that is in fact an ATA disk behind a SCSI layer.
void fetch_sata_type(HardDiskEntry *hdt);
