// SPDX-License-Identifier: Apache-2.0
// SCSI disks. Through SG_IO a command that the disk refuses brings nothing: a reply counts only if it is the page, or
// the sense data, that was asked for.
#include "devcmd/open_device.h"
#include "devcmd/smart/exceptions_page.h"
#include "devcmd/smart/smart_routines.h"
#include "devcmd/smart/state_routines.h"
#include "devcmd/transport/pages.h"
#include "devcmd/transport/sense.h"
#include "runtime/holders.h"
#include "runtime/trace.h"

#include <array>
#include <cerrno>
#include <fcntl.h>

using namespace tavstrg;

namespace {

using PageBuffer = std::array<uint8_t, kPageBuffer>;
constexpr int kBufferLength = kPageBuffer;

// The Informational Exceptions Control mode page in the buffer; nothing if the disk did not send it.
std::optional<ExceptionsPage> readPage(const HardDiskEntry &disk, int fd, PageBuffer &buffer)
{
    int form = kModeSenseNone;
    if (scsiCDBModeSelect(&disk, &form) != 0) {
        return std::nullopt;
    }
    const auto sense = form == kModeSense10 ? modesense10 : modesense;
    if (sense(fd, kExceptionsModePage, kCurrentValues, buffer.data(), kBufferLength) != 0) {
        return std::nullopt;
    }
    const int offset = scsiModePageOffset(buffer.data(), kBufferLength, form);
    const auto page = offset < 0 ? std::nullopt : exceptionsPageAt(buffer, static_cast<size_t>(offset));
    return page && ((*page)[0] & kPageCode) == kExceptionsModePage ? page : std::nullopt;
}

bool fetchState(HardDiskEntry &disk)
{
    const FileDesc device(openDevice(disk.DevPath, O_RDONLY));
    if (!device) {
        const int error = errno;
        return TRACED(false, kFailure, "open device :%s failed, errno=[%d]", disk.DevPath, error);
    }
    PageBuffer buffer{};
    const std::optional<ExceptionsPage> page = readPage(disk, device.get(), buffer);
    if (!page) {
        return TRACED(false, kFailure, "%s : no Informational Exceptions Control mode page", disk.DevPath);
    }
    disk.SmartEnableState = exceptionsAreOff(*page) ? kFoundDisabled : kFoundEnabled;
    return true;
}

void enable(HardDiskEntry &disk)
{
    enable_scsi_smart(&disk);
}

// The additional sense code in the log page; nothing if the disk did not send the page.
std::optional<uint8_t> readLog(int fd)
{
    PageBuffer buffer{};
    const bool came = logsense(fd, kExceptionsLogPage, buffer.data(), kLogLength) == 0 &&
                      (buffer[0] & kPageCode) == kExceptionsLogPage;
    return came ? judgeInformationalExceptionsLog(buffer) : std::nullopt;
}

// Whether sense data have an additional sense code. In fixed format it is byte 12, and byte 7 counts those after
// itself.
bool hasCode(SenseFormat format, const PageBuffer &sense)
{
    constexpr uint8_t kAdditionalThroughCode = 12 - 7;
    return format == SenseFormat::kDescriptor || (format == SenseFormat::kFixed && sense[7] >= kAdditionalThroughCode);
}

// The additional sense code in the data of REQUEST SENSE; nothing if these are no sense data.
std::optional<uint8_t> requestCode(int fd)
{
    PageBuffer buffer{};
    if (requestsense(fd, buffer.data()) != 0) {
        return std::nullopt;
    }
    SenseInfo info{};
    return hasCode(decodeSense(buffer, info), buffer) ? std::optional(info.asc) : std::nullopt;
}

std::optional<uint8_t> readCode(int fd)
{
    int listed = 0;
    static_cast<void>(scsiGetSupportedLogPages(fd, &listed)); // fails on bad arguments alone
    const std::optional<uint8_t> logged = listed == 1 ? readLog(fd) : std::optional(uint8_t{0});
    return logged == uint8_t{0} ? requestCode(fd) : logged;
}

void readVerdict(HardDiskEntry &disk)
{
    const TraceScope scope("get_scsi_smart");
    TRACE(kDetail, "_IN_");
    const FileDesc device(openDevice(disk.DevPath, O_RDONLY));
    const std::optional<uint8_t> code = device ? readCode(device.get()) : std::nullopt;
    if (code) {
        disk.SmartPredict = *code == kFailurePredicted ? int16_t{1} : int16_t{0};
        TRACE(kDetail, "%s : additional sense code 0x%02x", disk.DevPath, *code);
    } else {
        disk.SmartSupport = kSupportUnknown;
        TRACE(kFailure, "%s : the failure prediction cannot be read", disk.DevPath);
    }
    TRACE(kDetail, "_OUT_");
}

void disable(HardDiskEntry &disk)
{
    disable_scsi_smart(&disk);
}

} // namespace

const StateRoutines tavstrg::kScsiStateRoutines = {fetchState, enable, readVerdict, disable};
