// SPDX-License-Identifier: Apache-2.0
// The order in which an ATA disk is asked: whether it sleeps, who it is, its verdict, its readings.
#include "disks/ask/ask.h"
#include "disks/ask/ata_command.h"
#include "disks/ask/ata_decode.h"
#include "disks/ask/exchange.h"
#include "disks/ask/verdict.h"

#include "runtime/field_text.h"

#include <cstring>

namespace tavstrg::disks {
namespace {

using Block = std::array<uint8_t, kAtaBlock>;

constexpr uint8_t kStatisticsPages[] = {1, 5, 7}; // general, temperature, solid state

// The power state; a transport that failed is reported in error. A disk that refuses the command is awake.
PowerState readPower(int fd, int &error)
{
    const Exchange reply = exchangeScsi(fd, kCheckPowerModeCdb);
    error = reply.error;
    const std::optional<AtaRegisters> registers = registersOf(reply.sense());
    return registers && !failed(*registers) ? powerOf(registers->count) : PowerState::unknown;
}

template <size_t N, size_t M> void takeText(char (&to)[N], const char (&from)[M])
{
    if (from[0] != '\0') {
        copyText(to, fieldText(from));
    }
}

// IDENTIFY has the texts that INQUIRY cuts.
void takeIdentity(const AtaIdentity &identity, Disk &disk)
{
    takeText(disk.serial, identity.serial);
    takeText(disk.model, identity.model);
    takeText(disk.firmware, identity.firmware);
    if (disk.wwid[0] == '\0') {
        takeText(disk.wwid, identity.wwid);
    }
    if (identity.rotational) {
        disk.rotational = identity.rotational;
        disk.rotationsPerMinute = identity.rotationsPerMinute;
    }
}

AtaReport readStatus(int fd, int &error)
{
    const Exchange reply = exchangeScsi(fd, kSmartStatusCdb);
    error = reply.error;
    const std::optional<AtaRegisters> registers = registersOf(reply.sense());
    const bool answered = registers && !failed(*registers);
    return {!answered && !reply.succeeded(), answered ? verdictOf(*registers) : SmartVerdict::unknown};
}

void readStatistics(int fd, Readings &readings)
{
    Block block;
    if (!exchangeScsi(fd, readLogCdb(kLogDirectory, 0), block).succeeded()) {
        return;
    }
    const uint32_t pages = pagesOfLog(block, kDeviceStatistics);
    if (pages == 0 || !exchangeScsi(fd, readLogCdb(kDeviceStatistics, 0), block).succeeded()) {
        return;
    }
    const Block supported = block;
    for (const uint8_t page : kStatisticsPages) {
        if (page < pages && listsStatistics(supported, page) &&
            exchangeScsi(fd, readLogCdb(kDeviceStatistics, page), block).succeeded()) {
            takeStatistics(block, page, readings);
        }
    }
}

void readSmart(int fd, const AtaIdentity &identity, Disk &disk)
{
    Block block;
    int error = 0;
    const AtaReport report = readStatus(fd, error);
    if (error != 0) {
        disk.health = healthOfError(error, disk.name);
        return;
    }
    if (exchangeScsi(fd, kSmartDataCdb, block).succeeded()) {
        takeAttributes(block, disk.readings);
        if (exchangeScsi(fd, kSmartThresholdsCdb, block).succeeded()) {
            takeThresholds(block, disk.readings);
        }
    }
    if (identity.logsSupported) {
        readStatistics(fd, disk.readings);
    }
    readAttributes(disk.readings);
    disk.health = judgeAta(report, disk.readings);
}

// What IDENTIFY says about SMART decides what else is sent.
void askIdentified(int fd, const AtaIdentity &identity, Disk &disk)
{
    if (!identity.wordsValid || !identity.smartSupported) {
        setHealth(disk.health, HealthState::unknown, "IDENTIFY", "the disk has no SMART");
    } else if (!identity.smartEnabled) {
        setHealth(disk.health, HealthState::off, "IDENTIFY", "SMART is switched off in the disk");
    } else {
        readSmart(fd, identity, disk);
    }
}

} // namespace

void askAta(int fd, Disk &disk)
{
    int error = 0;
    const PowerState power = readPower(fd, error);
    if (!mayBeAsked({power, error, "CHECK POWER MODE"}, disk)) {
        return;
    }
    disk.readings = Readings{};
    disk.readings.power = power;
    Block block;
    const Exchange reply = exchangeScsi(fd, kIdentifyCdb, block);
    const std::optional<AtaIdentity> identity = reply.succeeded() ? identityOf(block) : std::nullopt;
    if (identity) {
        takeIdentity(*identity, disk);
        askIdentified(fd, *identity, disk);
    } else if (!reply.delivered()) {
        disk.health = healthOfError(reply.error, disk.name);
    } else {
        setHealth(disk.health, HealthState::unknown, "IDENTIFY",
                  disk.transport == Transport::usb ? "the USB bridge rejects ATA commands"
                                                   : "the disk does not identify itself");
    }
}

} // namespace tavstrg::disks
