// SPDX-License-Identifier: Apache-2.0
// What the disks engine never does, asserted over everything that reached a simulated machine: open a node for writing,
// send a command that changes something or that the disk has not announced, wake a disk, switch SMART.
#pragma once

#include "disks/disk.h"
#include "sim/sim.h"

#include <gtest/gtest.h>
#include <linux/nvme_ioctl.h>
#include <scsi/sg.h>
#include <sys/ioctl.h>

#include <algorithm>
#include <cstring>
#include <fcntl.h>
#include <map>
#include <mutex>
#include <set>
#include <string>
#include <utility>
#include <vector>

namespace only_reads {

// Get Log Page, for the health log of all namespaces.
inline bool isHealthLog(const sim::Command &command)
{
    nvme_admin_cmd admin{};
    std::memcpy(&admin, command.bytes.data(), std::min(sizeof admin, command.bytes.size()));
    return admin.opcode == 0x02 && (admin.cdw10 & 0xFF) == 0x02 && admin.nsid == 0xFFFFFFFF;
}

inline bool onlyReads(const sim::Command &command)
{
    static const std::set<uint8_t> ataCommands{0xE5, 0xEC, 0xB0, 0x2F};
    static const std::set<uint8_t> smartFeatures{0xD0, 0xD1, 0xDA};
    static const std::set<uint8_t> scsiCommands{0x03, 0x12, 0x4D, 0x5A, 0x85};
    if (command.request == NVME_IOCTL_ADMIN_CMD) {
        return isHealthLog(command);
    }
    if (command.request != SG_IO || command.bytes.empty() || !scsiCommands.contains(command.bytes[0])) {
        return false;
    }
    const uint8_t ata = command.bytes[0] == 0x85 ? command.bytes[14] : 0;
    return ata == 0 || (ataCommands.contains(ata) && (ata != 0xB0 || smartFeatures.contains(command.bytes[4])));
}

inline bool isLogSense(const sg_io_hdr_t &header)
{
    return header.cmdp[0] == 0x4D;
}

inline uint8_t logPageOf(const sg_io_hdr_t &header)
{
    return header.cmdp[2] & 0x3F;
}

// Whether the disk does not know the command, or what is in it: SPC-5, ILLEGAL REQUEST.
inline bool isRefused(const sg_io_hdr_t &header)
{
    constexpr uint8_t kIllegalRequest = 5;
    if (header.status != 2 || header.sb_len_wr < 3) {
        return false;
    }
    const bool fixed = (header.sbp[0] & 0x7E) == 0x70;
    return (header.sbp[fixed ? 2 : 1] & 0x0F) == kIllegalRequest;
}

// Watches a machine from its construction on; check() asserts. It must outlive the threads that use the machine.
class Watch : sim::DeviceListener {
public:
    explicit Watch(const sim::Machine &machine, const std::vector<std::string> &nodes) : machine_(machine)
    {
        for (const std::string &node : nodes) {
            smart_.emplace_back(node, machine.smartSwitchedOn(node));
        }
        sim::listen(this);
    }
    ~Watch() override { sim::listen(nullptr); }
    Watch(const Watch &) = delete;
    Watch &operator=(const Watch &) = delete;

    void check() const
    {
        for (const sim::Command &command : machine_.commands()) {
            EXPECT_TRUE(onlyReads(command)) << command.device << " " << testing::PrintToString(command.bytes);
        }
        for (const sim::Opening &opening : machine_.openings()) {
            EXPECT_EQ(opening.flags & O_ACCMODE, O_RDONLY) << opening.node;
            EXPECT_NE(opening.flags & O_NONBLOCK, 0) << opening.node;
        }
        for (const auto &[node, on] : smart_) {
            EXPECT_EQ(machine_.smartSwitchedOn(node), on) << node;
            EXPECT_EQ(machine_.power(node).spinUps, 0U) << node;
            EXPECT_EQ(machine_.power(node).resumes, 0U) << node;
        }
        const std::lock_guard held(mutex_);
        EXPECT_EQ(unannounced_, std::vector<std::string>());
        EXPECT_EQ(machine_.openDescriptors(), 0);
    }

private:
    void opened(const char *, int descriptor, int) override
    {
        const std::lock_guard held(mutex_);
        logPages_.erase(descriptor);
    }
    void answered(int descriptor, unsigned long request, const void *argument, int result, int) override
    {
        if (request == SG_IO && result == 0) {
            take(descriptor, *static_cast<const sg_io_hdr_t *>(argument));
        }
    }
    // A log page is announced by page 00h, which may also name one that the disk then refuses.
    void take(int descriptor, const sg_io_hdr_t &header)
    {
        const std::lock_guard held(mutex_);
        const uint8_t page = logPageOf(header);
        if (isLogSense(header) && page == 0) {
            const auto *const data = static_cast<const uint8_t *>(header.dxferp);
            logPages_[descriptor] =
                header.status == 0 ? std::set<uint8_t>(data + 4, data + 4 + data[3]) : std::set<uint8_t>();
        } else if (isLogSense(header) ? !logPages_[descriptor].contains(page) : isRefused(header)) {
            unannounced_.push_back(testing::PrintToString(std::vector<int>(header.cmdp, header.cmdp + header.cmd_len)));
        }
    }

    const sim::Machine &machine_;
    std::vector<std::pair<std::string, bool>> smart_; // by node
    mutable std::mutex mutex_;
    std::map<int, std::set<uint8_t>> logPages_; // by descriptor
    std::vector<std::string> unannounced_;
};

inline const std::vector<std::string> kExamples{"empty",  "failing", "ide", "large",      "mixed",
                                                "server", "today",   "usb", "workstation"};

inline std::string exampleMachine(const std::string &name)
{
    return sim::Machine::readFile(TAV_SOURCE_DIR "/examples/machines/" + name + ".json");
}

} // namespace only_reads
