// SPDX-License-Identifier: Apache-2.0
#include "fuzz/disk.h"

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <fcntl.h>
#include <linux/fs.h>
#include <linux/hdreg.h>
#include <scsi/scsi.h>
#include <scsi/scsi_ioctl.h>
#include <scsi/sg.h>
#include <sys/ioctl.h>
#include <unistd.h>

namespace fuzz {

namespace {

Disk *current = nullptr;

struct Reply {
    int error = 0;
    uint8_t status = 0;
    uint8_t hostStatus = 0;
    uint8_t driverStatus = 0;
    Bytes sense{};
    Bytes data{};
    size_t claimedSense = 0;
};

Reply nextReply(Feed &feed)
{
    Reply reply;
    const uint8_t flags = feed.byte();
    if ((flags & 1) != 0) {
        reply.error = std::max<int>(feed.byte(), 1);
        return reply;
    }
    if ((flags & 2) != 0) {
        reply.status = feed.byte();
        reply.hostStatus = feed.byte();
        reply.driverStatus = feed.byte();
    }
    if ((flags & 4) != 0) {
        reply.sense = feed.bytes(feed.byte());
    }
    if ((flags & 8) != 0) {
        reply.data = feed.bytes(feed.word());
    }
    reply.claimedSense = (flags & 16) != 0 ? feed.byte() : reply.sense.size();
    return reply;
}

// The kernel reads what it is given: so does this, under the sanitizer's eyes.
void readAll(const void *bytes, size_t length)
{
    const auto *const from = static_cast<const volatile uint8_t *>(bytes);
    for (size_t i = 0; i < length; ++i) {
        static_cast<void>(from[i]);
    }
}

// Fills a block of the kernel's own size: what the reply does not have is zero.
void fill(void *argument, size_t size, Bytes data)
{
    const size_t length = std::min(size, data.size());
    std::memset(argument, 0, size);
    std::copy_n(data.begin(), length, static_cast<uint8_t *>(argument));
}

constexpr size_t kSector = 512;

// Bytes that a request other than a SCSI command answers with; 0 for those that no disk knows.
size_t replySize(unsigned long request, const void *argument)
{
    switch (request) {
    case HDIO_DRIVE_CMD: // four registers, and the sectors that the last one asks for
        return 4 + kSector * static_cast<const uint8_t *>(argument)[3];
    case HDIO_DRIVE_TASK:
        return 7;
    case HDIO_GET_IDENTITY:
        return kSector;
    case HDIO_GETGEO:
        return sizeof(hd_geometry);
    case BLKSSZGET:
    case SCSI_IOCTL_GET_BUS_NUMBER:
        return sizeof(int);
    case BLKGETSIZE:
    case BLKGETSIZE64:
    case SCSI_IOCTL_GET_IDLUN:
        return sizeof(uint64_t);
    default:
        return 0;
    }
}

// struct scsi_ioctl_command (linux/drivers/scsi/scsi_ioctl.c): lengths, then CDB and data, then the reply in their
// place.
struct CommandHeader {
    uint32_t inLength;
    uint32_t outLength;
};

// COMMAND_SIZE of scsi/scsi_proto.h.
size_t cdbLength(uint8_t operation)
{
    constexpr size_t kLengths[8] = {6, 10, 10, 12, 16, 12, 10, 10};
    return kLengths[operation >> 5];
}

} // namespace

Disk::Disk(Bytes input) : feed_(input), lowestFree_(::open(kNode, O_RDONLY | O_CLOEXEC))
{
    require(lowestFree_ >= 0, "a descriptor can be opened");
    ::close(lowestFree_);
    current = this;
}

Disk::~Disk()
{
    current = nullptr;
    const int lowestFree = ::open(kNode, O_RDONLY | O_CLOEXEC);
    require(lowestFree == lowestFree_, "every descriptor is closed");
    ::close(lowestFree);
}

int Disk::genericIo(void *argument)
{
    auto &header = *static_cast<sg_io_hdr *>(argument);
    const Reply reply = nextReply(feed_);
    readAll(header.cmdp, header.cmd_len);
    if (header.dxfer_direction == SG_DXFER_TO_DEV) {
        readAll(header.dxferp, header.dxfer_len);
    }
    if (reply.error != 0) {
        return reply.error;
    }
    header.status = reply.status;
    header.host_status = reply.hostStatus;
    header.driver_status = reply.driverStatus;
    header.sb_len_wr = static_cast<uint8_t>(reply.claimedSense);
    if (header.sbp != nullptr) {
        std::copy_n(reply.sense.begin(), std::min<size_t>(reply.sense.size(), header.mx_sb_len), header.sbp);
    }
    if (header.dxfer_direction == SG_DXFER_FROM_DEV) {
        std::copy_n(reply.data.begin(), std::min<size_t>(reply.data.size(), header.dxfer_len),
                    static_cast<uint8_t *>(header.dxferp));
    }
    return 0;
}

// A negative result is an errno value, a positive one what the ioctl returns.
int Disk::sendCommand(void *argument)
{
    CommandHeader header{};
    std::memcpy(&header, argument, sizeof header);
    uint8_t *const data = static_cast<uint8_t *>(argument) + sizeof header;
    const Reply reply = nextReply(feed_);
    readAll(data, cdbLength(data[0]) + header.inLength);
    if (reply.error != 0) {
        return -reply.error;
    }
    const int result = reply.status | (reply.driverStatus & 0x0F) << 24;
    if (result == 0) {
        fill(data, header.outLength, reply.data);
        return 0;
    }
    constexpr size_t kMostSense = 16; // OMAX_SB_LEN
    std::copy_n(reply.sense.begin(), std::min(reply.sense.size(), kMostSense), data);
    return result;
}

int Disk::answer(unsigned long request, void *argument)
{
    if (request == SG_IO) {
        return -genericIo(argument);
    }
    if (request == SCSI_IOCTL_SEND_COMMAND) {
        return sendCommand(argument);
    }
    const size_t size = replySize(request, argument);
    require(size != 0, "a disk is asked what disks know");
    const Reply reply = nextReply(feed_);
    if (reply.error != 0) {
        return -reply.error;
    }
    fill(argument, size, reply.data);
    return 0;
}

std::vector<uint8_t> replyOf(Bytes data)
{
    constexpr uint8_t kWithData = 8;
    std::vector<uint8_t> reply = {kWithData, static_cast<uint8_t>(data.size() & 0xFF),
                                  static_cast<uint8_t>(data.size() >> 8)};
    reply.insert(reply.end(), data.begin(), data.end());
    return reply;
}

} // namespace fuzz

// Found before the C library's.
extern "C" int ioctl(int fd, unsigned long request, ...) noexcept
{
    va_list args;
    va_start(args, request);
    void *const argument = va_arg(args, void *);
    va_end(args);
    if (fuzz::current == nullptr || ::fcntl(fd, F_GETFD) < 0) {
        errno = EBADF;
        return -1;
    }
    const int result = fuzz::current->answer(request, argument);
    if (result < 0) {
        errno = -result;
        return -1;
    }
    return result;
}
