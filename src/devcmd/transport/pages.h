// SPDX-License-Identifier: Apache-2.0
// Mode and log pages of SCSI disks: one routine per command, and where in the replies the pages are.
//
// The commands go through SG_IO, or, when use_sg_io is not 1, through SCSI_IOCTL_SEND_COMMAND. Each returns 0; -1 on a
// bad argument or a transport that failed; and, through SCSI_IOCTL_SEND_COMMAND alone, what that ioctl returned: a
// positive value has the SCSI status in its low byte and the driver byte in bits 24 to 27, and the reply is sense data
// then. Through SG_IO a command that the disk refuses counts as good and leaves the buffer as it was. errno is that of
// the failure after a failed transport.
//
// A buffer that receives holds at least kPageBuffer bytes whatever length is asked for: the older way copies a fixed
// amount.
#pragma once

#include "devcmd/hard_disk.h"

#include <cstddef>
#include <cstdint>

namespace tavstrg {

constexpr size_t kPageBuffer = 255; // bytes, the most that a MODE SENSE(6) can bring
constexpr int kLogLength = 252;     // bytes that LOG SENSE is asked for

constexpr int kCurrentValues = 0;         // page control
constexpr int kExceptionsModePage = 0x1C; // Informational Exceptions Control (SPC-4, 7.5.11)
constexpr int kSupportedLogPages = 0x00;
constexpr int kExceptionsLogPage = 0x2F; // Informational Exceptions (SPC-4, 7.3.8)

} // namespace tavstrg

// The commands take five parameters because their signatures are the system's.

// MODE SENSE: page pagenum with page control pc; bufLen in 0 to 255. The 6-byte command always asks for 255 bytes.
int modesense(int fd, int pagenum, int pc, uint8_t *pBuf, int bufLen);
int modesense10(int fd, int pagenum, int pc, uint8_t *pBuf, int bufLen);

// MODE SELECT of the first page in a reply of the MODE SENSE of the same size, bufLen bytes of which are there; sp = 1
// saves it. Zeroes the reply's mode data length (the 10-byte command its high byte only); the 6-byte command also
// clears PS and SPF of the page. A page that does not lie in the bufLen bytes is a failure.
int modeselect(int fd, int pagenum, int sp, uint8_t *pBuf, int bufLen);
int modeselect10(int fd, int pagenum, int sp, uint8_t *pBuf, int bufLen);

// LOG SENSE: cumulative values of page pagenum.
int logsense(int fd, int pagenum, uint8_t *pBuf, int bufLen);

// REQUEST SENSE: 255 bytes.
int requestsense(int fd, uint8_t *pBuf);

namespace tavstrg {

// What scsiCDBModeSelect finds.
constexpr int kModeSense6 = 0;
constexpr int kModeSense10 = 1;
constexpr int kModeSenseNone = 2;

} // namespace tavstrg

// Which MODE SENSE the disk answers for the Informational Exceptions Control page: 0 with *modese_len kModeSense6 or
// kModeSense10; -1 with kModeSenseNone, or, *modese_len untouched, on a bad argument or when DevPath cannot be opened.
int scsiCDBModeSelect(const tavstrg::HardDiskEntry *hdt, int *modese_len);

// Offset of the first mode page in the len bytes of a MODE SENSE reply, or -1. modese_10 is 1 for MODE SENSE(10). At
// least two bytes of the page lie in the reply.
int scsiModePageOffset(const uint8_t *resp, int len, int modese_10);

// Sets *pSmartPage to 1 when the disk lists the Informational Exceptions log page, else to 0. 0, also when the disk
// cannot be asked; -1 on a bad argument.
int scsiGetSupportedLogPages(int fd, int *pSmartPage);
