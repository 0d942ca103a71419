// SPDX-License-Identifier: Apache-2.0
// Helpers for tests of SMART: machines of one disk, commands on the wire, trace lines.
#pragma once

#include "devcmd/hard_disk.h"
#include "devcmd/smart/smart_watch.h"
#include "devcmd/transport/transport.h"
#include "runtime/field_text.h"
#include "runtime/trace.h"
#include "sim/sim.h"
#include "support/machines.h"
#include "support/trace_recorder.h"

#include <cstdio>
#include <linux/hdreg.h>
#include <scsi/scsi_ioctl.h>
#include <scsi/sg.h>
#include <string>
#include <vector>

using namespace tavstrg;

using Lines = std::vector<std::string>;

inline HardDiskEntry freshDisk(const char *path, uint16_t kind)
{
    HardDiskEntry disk{};
    copyText(disk.DevPath, path);
    disk.DevKind = kind;
    disk.SmartSupport = 1;
    return disk;
}

// /dev/hda for the kind that the IDE driver serves, else /dev/sda.
inline const char *nodeOf(uint16_t kind)
{
    return kind == kDevKindAta ? "/dev/hda" : "/dev/sda";
}

inline std::string oneDisk(uint16_t kind, const std::string &fields)
{
    if (kind == kDevKindAta) {
        return machines::ofOneIdeDrive(fields);
    }
    const std::string disk = kind == kDevKindSata ? R"("ata": true)" : R"("vendor": "ACME")";
    return machines::ofOneDevice(disk + (fields.empty() ? "" : ", " + fields));
}

// The ioctl and its bytes: "sg 1a 00 1c 00 ff 00".
inline std::string wireLine(const sim::Command &command)
{
    std::string line = command.request == SG_IO                     ? "sg"
                       : command.request == SCSI_IOCTL_SEND_COMMAND ? "legacy"
                       : command.request == HDIO_DRIVE_CMD          ? "cmd"
                       : command.request == HDIO_DRIVE_TASK         ? "task"
                                                                    : std::to_string(command.request);
    for (const uint8_t byte : command.bytes) {
        char hex[4];
        std::snprintf(hex, sizeof hex, " %02x", byte);
        line += hex;
    }
    return line;
}

inline Lines wire(const sim::Machine &machine)
{
    Lines lines;
    for (const sim::Command &command : machine.commands()) {
        lines.push_back(wireLine(command));
    }
    return lines;
}

// What a function traced; lines of level 3 begin with "! ", of any level but 0 and 3 with "? ".
inline Lines leveled(const TraceRecorder &traces, const std::string &function)
{
    Lines lines;
    for (const TraceRecord &record : traces.records()) {
        if (record.function == function) {
            lines.push_back((record.level == kDetail ? "" : record.level == kFailure ? "! " : "? ") + record.text);
        }
    }
    return lines;
}

// Chooses the way of SCSI commands for a test.
class SgIo {
public:
    explicit SgIo(bool used) : before_(use_sg_io) { use_sg_io = used ? 1 : 0; }
    ~SgIo() { use_sg_io = before_; }
    SgIo(const SgIo &) = delete;
    SgIo &operator=(const SgIo &) = delete;

private:
    int32_t before_;
};

// Chooses the SMART mode for a test.
class SmartMode {
public:
    explicit SmartMode(int32_t mode) : before_(g_SmartMode) { g_SmartMode = mode; }
    ~SmartMode() { g_SmartMode = before_; }
    SmartMode(const SmartMode &) = delete;
    SmartMode &operator=(const SmartMode &) = delete;

private:
    int32_t before_;
};

// ATA commands on the wire.
inline const std::string kReadData = "cmd b0 00 d0 01";
inline const std::string kIdentify = "cmd ec 00 00 01";
inline const std::string kPacket = "cmd a1 00 00 01";
inline const std::string kIdeOn = "cmd b0 01 d8 00";
inline const std::string kIdeOff = "cmd b0 01 d9 00";
inline const std::string kIdeStatus = "task b0 da 00 00 4f c2 00";
inline const std::string kSataOn = "sg 85 06 0c 00 d8 00 00 00 01 00 4f 00 c2 00 b0 00";
inline const std::string kSataOff = "sg 85 06 0c 00 d9 00 00 00 01 00 4f 00 c2 00 b0 00";
inline const std::string kSataStatus = "sg 85 06 2c 00 da 00 00 00 00 00 4f 00 c2 00 b0 00";
