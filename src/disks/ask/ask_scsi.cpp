// SPDX-License-Identifier: Apache-2.0
// The order in which a SCSI disk is asked: whether it sleeps, which log pages it has, and those.
#include "disks/ask/ask.h"
#include "disks/ask/exchange.h"
#include "disks/ask/scsi_command.h"
#include "disks/ask/scsi_decode.h"
#include "disks/ask/verdict.h"

namespace tavstrg::disks {
namespace {

using Reply = std::array<uint8_t, kScsiReply>;

PowerState readPower(int fd, int &error)
{
    std::array<uint8_t, kPageBuffer> sense;
    const Exchange reply = exchangeScsi(fd, requestSenseCdb(), sense);
    error = reply.error;
    return reply.succeeded() ? powerOfSense(sense) : PowerState::unknown;
}

bool announcesAta(int fd)
{
    Reply pages;
    return exchangeScsi(fd, inquiryCdb(kSupportedVpdPages), pages).succeeded() &&
           listsVpdPage(pages, kAtaInformationVpdPage);
}

// Switched off is what the mode page says; it is only read, and only of a disk that has the log page that belongs to
// it.
bool isSwitchedOff(int fd)
{
    Reply reply;
    return exchangeScsi(fd, modeSense10Cdb(kExceptionsModePage, kCurrentValues, kScsiReply), reply).succeeded() &&
           exceptionsAreDisabled(reply);
}

Maybe<uint16_t> readException(int fd, Readings &readings)
{
    Reply page;
    return exchangeScsi(fd, logSenseCdb(kExceptionsPage, kScsiReply), page).succeeded() ? exceptionOf(page, readings)
                                                                                        : Maybe<uint16_t>{};
}

void readLogs(int fd, Bytes supported, Disk &disk)
{
    Reply page;
    for (const uint8_t code :
         {kTemperaturePage, kStartStopPage, kSolidStatePage, kBackgroundScanPage, kWriteErrorsPage, kReadErrorsPage}) {
        if (listsPage(supported, code) && exchangeScsi(fd, logSenseCdb(code, kScsiReply), page).succeeded()) {
            takeLogPage(page, code, disk.readings);
        }
    }
    const bool listed = listsPage(supported, kExceptionsPage);
    const Maybe<uint16_t> exception = listed ? readException(fd, disk.readings) : Maybe<uint16_t>{};
    disk.health = judgeScsi(exception, disk.readings);
    if (disk.health.state == HealthState::good && isSwitchedOff(fd)) {
        setHealth(disk.health, HealthState::off, "exceptions mode page", "failure prediction is switched off");
    }
}

} // namespace

void askScsi(int fd, Disk &disk)
{
    int error = 0;
    const PowerState power = readPower(fd, error);
    if (!mayBeAsked({power, error, "REQUEST SENSE"}, disk)) {
        return;
    }
    if (disk.transport == Transport::usb) {
        if (announcesAta(fd)) {
            askAta(fd, disk);
            return;
        }
        disk.readings.power = power;
        setHealth(disk.health, HealthState::unknown, "", "the USB bridge announces no way to the disk's health");
        return;
    }
    disk.readings = Readings{};
    disk.readings.power = power;
    Reply supported;
    const Exchange reply = exchangeScsi(fd, logSenseCdb(kSupportedPages, kScsiReply), supported);
    if (!reply.delivered()) {
        disk.health = healthOfError(reply.error, disk.name);
    } else if (!reply.succeeded()) {
        setHealth(disk.health, HealthState::unknown, "log pages", "the disk has no log of its health");
    } else {
        readLogs(fd, supported, disk);
    }
}

} // namespace tavstrg::disks
