// SPDX-License-Identifier: Apache-2.0
#include "devcmd/smart/smart_routines.h"

#include "devcmd/open_device.h"
#include "devcmd/smart/exceptions_page.h"
#include "devcmd/transport/pages.h"
#include "runtime/holders.h"
#include "runtime/trace.h"

#include <array>
#include <cerrno>
#include <fcntl.h>

using namespace tavstrg;

namespace {

using PageBuffer = std::array<uint8_t, kPageBuffer>;
constexpr int kBufferLength = kPageBuffer;

// The disk that a routine works on.
struct ScsiDisk {
    int fd;
    HardDiskEntry &entry;
    int modese_len = kModeSenseNone;
};

void chooseCdbLength(ScsiDisk &disk)
{
    if (scsiCDBModeSelect(&disk.entry, &disk.modese_len) != 0) {
        TRACE(kFailure, "get modese_len :%d unkown, but process as modese_len 6 continue .", disk.modese_len);
    }
    TRACE(kDetail, "modese_len: %d(1:CDB[10], other:CDB[6])", disk.modese_len);
}

// The buffer is zeroed every time: a disk that refuses or postpones the command (a unit attention) brings no data, and
// the page that was sent to it must not be taken for its answer.
int readPage(const ScsiDisk &disk, PageBuffer &buffer)
{
    buffer.fill(0);
    const auto sense = disk.modese_len == kModeSense10 ? modesense10 : modesense;
    return sense(disk.fd, kExceptionsModePage, kCurrentValues, buffer.data(), kBufferLength);
}

int writePage(const ScsiDisk &disk, PageBuffer &buffer, int savePages)
{
    const auto select = disk.modese_len == kModeSense10 ? modeselect10 : modeselect;
    return select(disk.fd, kExceptionsModePage, savePages, buffer.data(), kBufferLength);
}

std::optional<ExceptionsPage> findPage(const ScsiDisk &disk, PageBuffer &buffer)
{
    const int offset = scsiModePageOffset(buffer.data(), kBufferLength, disk.modese_len);
    const auto page = offset < 0 ? std::nullopt : exceptionsPageAt(buffer, static_cast<size_t>(offset));
    if (!page) {
        TRACE(kFailure, "scsiModePage Offset err.offset=%d", offset);
    }
    return page;
}

using SenseKey = uint8_t (*)(std::span<const uint8_t> sense);

// Whether a MODE SENSE brought the page. What it means for the disk when it did not is in the entry then; a positive
// result has sense data in the buffer.
bool tookPage(const ScsiDisk &disk, int result, const PageBuffer &buffer, SenseKey senseKey)
{
    HardDiskEntry &entry = disk.entry;
    if (result == 0) {
        return true;
    }
    if (result < 0) {
        entry.SmartSupport = 1;
        TRACE(kFailure, "%s : modesense failed, support = unknown", entry.DevPath);
    } else if (refusesPage(result, senseKey(buffer))) {
        entry.SmartSupport = 3;
        TRACE(kDetail, "%s : not support S.M.A.R.T.", entry.DevPath);
    } else {
        entry.SmartSupport = 1;
        TRACE(kFailure, "%s : modesense some exception happened, support = unknown", entry.DevPath);
    }
    return false;
}

void enable(ScsiDisk disk)
{
    HardDiskEntry &entry = disk.entry;
    PageBuffer buffer;
    chooseCdbLength(disk);
    if (!tookPage(disk, readPage(disk, buffer), buffer, senseKeyBeforeSelect)) {
        return;
    }
    const std::optional<ExceptionsPage> page = findPage(disk, buffer);
    if (!page) {
        return;
    }
    const int savePages = savePagesBit(*page);
    switchExceptionsOn(*page);
    if (writePage(disk, buffer, savePages) != 0) {
        entry.SmartSupport = 1;
        TRACE(kFailure, "%s : modeselect failed, support = unknown", entry.DevPath);
        return;
    }
    if (!tookPage(disk, readPage(disk, buffer), buffer, senseKeyAfterSelect)) {
        return;
    }
    // Deliberate: where the page was before, whatever the disk reports now.
    if (!reportsOnRequest(*page)) {
        entry.SmartSupport = 1;
        TRACE(kFailure, "%s : mrie != 0x06, support = unknown", entry.DevPath);
        return;
    }
    entry.SmartSupport = 2;
    TRACE(kDetail, "%s : enable success", entry.DevPath);
}

void disable(ScsiDisk disk)
{
    PageBuffer buffer;
    chooseCdbLength(disk);
    if (readPage(disk, buffer) < 0) {
        disk.entry.SmartSupport = 1;
        TRACE(kFailure, "%s : modesense failed, support = unknown", disk.entry.DevPath);
        return;
    }
    const std::optional<ExceptionsPage> page = findPage(disk, buffer);
    if (!page) {
        return;
    }
    const int savePages = savePagesBit(*page);
    switchExceptionsOff(*page);
    if (writePage(disk, buffer, savePages) != 0) {
        TRACE(kFailure, "%s : modeselect some exception happened", disk.entry.DevPath);
    }
}

int fetchState(ScsiDisk disk)
{
    HardDiskEntry &entry = disk.entry;
    PageBuffer buffer;
    chooseCdbLength(disk);
    if (readPage(disk, buffer) < 0) {
        return TRACED(-1, kFailure, "modesense %s : failed", entry.DevPath);
    }
    const std::optional<ExceptionsPage> page = findPage(disk, buffer);
    if (!page) {
        return -1;
    }
    const bool off = exceptionsAreOff(*page);
    entry.SmartEnableState = off ? 3 : 2;
    return off ? TRACED(0, kDetail, "HD %s smart disable", entry.DevPath)
               : TRACED(0, kDetail, "HD %s smart enable", entry.DevPath);
}

// The additional sense code of the Informational Exceptions log page; none, traced, when it cannot be had.
std::optional<uint8_t> readLog(int fd, const char *path)
{
    PageBuffer buffer{};
    errno = 0; // the error of a reply without information is 0
    const int result = logsense(fd, kExceptionsLogPage, buffer.data(), kLogLength);
    const int error = errno;
    if (result != 0) {
        return TRACED(std::nullopt, kFailure, "Log Sense :%s failed, errno=[%d]", path, error);
    }
    const std::optional<uint8_t> asc = judgeInformationalExceptionsLog(buffer);
    if (!asc) {
        TRACE(kFailure, "Log Sense %s failed, IE page, bad parameter code or length, errno=[%d]", path, error);
    }
    return asc;
}

// The additional sense code that REQUEST SENSE brings; none, traced, when it fails.
std::optional<uint8_t> askSense(int fd, const char *path)
{
    PageBuffer buffer{};
    errno = 0;
    if (requestsense(fd, buffer.data()) != 0) {
        const int error = errno;
        return TRACED(std::nullopt, kFailure, "%s: requestsense failed, errno=[%d]", path, error);
    }
    TRACE(kDetail, "repcode=[%d]", responseCodeOf(buffer));
    const uint8_t asc = requestedSenseCode(buffer);
    return TRACED(asc, kDetail, "asc=[%d]", asc);
}

// The additional sense code by which the disk reports a prediction; none when it cannot be read.
std::optional<uint8_t> readExceptions(int fd, const char *path)
{
    int dSmartPage = 0;
    static_cast<void>(scsiGetSupportedLogPages(fd, &dSmartPage)); // fails on bad arguments alone
    std::optional<uint8_t> asc = uint8_t{0};
    if (dSmartPage == 1) {
        asc = readLog(fd, path);
        if (!asc) {
            return asc;
        }
    }
    TRACE(kDetail, "dSmartPage=%d;asc =%d", dSmartPage, *asc);
    return *asc == 0 ? askSense(fd, path) : asc;
}

} // namespace

void enable_scsi_smart(HardDiskEntry *hdt)
{
    const TraceScope scope;
    withOpenDisk(
        hdt,
        [](HardDiskEntry &disk, int fd) {
            enable({fd, disk});
        },
        [](HardDiskEntry &disk, int error) {
            disk.SmartSupport = 1;
            TRACE(kFailure, "open device :%s failed, support = unknown errno=[%d]", disk.DevPath, error);
        });
}

void disable_scsi_smart(HardDiskEntry *hdt)
{
    const TraceScope scope;
    withOpenDisk(
        hdt,
        [](HardDiskEntry &disk, int fd) {
            disable({fd, disk});
        },
        [](const HardDiskEntry &disk, int error) {
            TRACE(kFailure, "open device :%s failed errno=[%d]", disk.DevPath, error);
        });
}

int fetch_scsi_enable_disable(HardDiskEntry *hdt)
{
    const TraceScope scope;
    TRACE(kDetail, "_IN_");
    if (hdt == nullptr) {
        TRACE(kFailure, "hdt is null ");
        return TRACED(-1, kFailure, "_OUT_ retvale=[%d]", -1);
    }
    hdt->SmartEnableState = 0;
    const FileDesc device(openDevice(hdt->DevPath, O_RDWR));
    if (!device) {
        TRACE(kFailure, "open device :%s failed", hdt->DevPath);
        return TRACED(-1, kFailure, "_OUT_ retvale=[%d]", -1);
    }
    const int retvale = fetchState({device.get(), *hdt});
    return TRACED(retvale, retvale == 0 ? kDetail : kFailure, "_OUT_ retvale=[%d]", retvale);
}

void get_scsi_smart(HardDiskEntry *hdt)
{
    const TraceScope scope;
    withOpenDisk(
        hdt,
        [](HardDiskEntry &disk, int fd) {
            if (const std::optional<uint8_t> asc = readExceptions(fd, disk.DevPath)) {
                disk.SmartPredict = *asc == kFailurePredicted ? int16_t{1} : int16_t{0};
            } else {
                disk.SmartSupport = 1;
            }
        },
        [](HardDiskEntry &disk, int error) {
            disk.SmartSupport = 1;
            TRACE(kFailure, "open device :%s failed, errno=[%d]", disk.DevPath, error);
        });
}
