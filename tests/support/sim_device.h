// SPDX-License-Identifier: Apache-2.0
// Helpers for tests of simulated devices: an open node, SCSI commands on it, machines of one disk.
#pragma once

#include "sim/sim.h"
#include "support/machines.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdint>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <scsi/sg.h>
#include <string>
#include <sys/ioctl.h>
#include <unistd.h>
#include <vector>

namespace device_test {

inline constexpr unsigned long kGetIdlun = 0x5382;
inline constexpr unsigned long kSendCommand = 1;

// An open device node.
class Node {
public:
    explicit Node(const char *path) : fd(open(path, O_RDWR)) { EXPECT_GE(fd, 0) << path; }
    ~Node() { close(fd); }
    Node(const Node &) = delete;
    Node &operator=(const Node &) = delete;
    const int fd;
};

struct Result {
    int ret = -1, error = 0;
    sg_io_hdr_t header{};
    std::array<uint8_t, 512> data{};
    std::array<uint8_t, 32> sense{};

    std::vector<uint8_t> senseBytes() const { return {sense.begin(), sense.begin() + header.sb_len_wr}; }
    std::string text(size_t at, size_t length) const
    {
        return {data.begin() + long(at), data.begin() + long(at + length)};
    }
};

inline Result send(const Node &node, std::vector<uint8_t> cdb, int direction = SG_DXFER_FROM_DEV, unsigned length = 512,
                   std::vector<uint8_t> out = {}, unsigned timeoutMs = 6000)
{
    Result result;
    std::copy(out.begin(), out.end(), result.data.begin());
    sg_io_hdr_t &header = result.header;
    header.interface_id = 'S';
    header.dxfer_direction = direction;
    header.cmd_len = static_cast<unsigned char>(cdb.size());
    header.cmdp = cdb.data();
    header.mx_sb_len = static_cast<unsigned char>(result.sense.size());
    header.sbp = result.sense.data();
    header.dxfer_len = direction == SG_DXFER_NONE ? 0 : length;
    header.dxferp = direction == SG_DXFER_NONE ? nullptr : result.data.data();
    header.timeout = timeoutMs;
    result.ret = ioctl(node.fd, SG_IO, &header);
    result.error = errno;
    return result;
}

inline const std::vector<uint8_t> kInquiry{0x12, 0, 0, 0, 0x40, 0};
inline const std::vector<uint8_t> kIdentify{0x85, 0x08, 0x0E, 0, 0, 0, 1, 0, 0, 0, 0, 0, 0, 0, 0xEC, 0};
inline const std::vector<uint8_t> kIdentifyPacket{0x85, 0x08, 0x0E, 0, 0, 0, 1, 0, 0, 0, 0, 0, 0, 0, 0xA1, 0};
inline const std::vector<uint8_t> kSmartStatus{0x85, 6, 0x2C, 0, 0xDA, 0, 0, 0, 0, 0, 0x4F, 0, 0xC2, 0, 0xB0, 0};
inline const std::vector<uint8_t> kSmartEnable{0x85, 6, 0x0C, 0, 0xD8, 0, 0, 0, 1, 0, 0x4F, 0, 0xC2, 0, 0xB0, 0};
inline const std::vector<uint8_t> kSmartDisable{0x85, 6, 0x0C, 0, 0xD9, 0, 0, 0, 1, 0, 0x4F, 0, 0xC2, 0, 0xB0, 0};
inline const std::vector<uint8_t> kSmartData{0x85, 8, 0x0D, 0, 0xD0, 0, 0, 0, 0, 0, 0x4F, 0, 0xC2, 0, 0xB0, 0};
inline const std::vector<uint8_t> kModeSense6{0x1A, 0, 0x1C, 0, 0xFF, 0};
inline const std::vector<uint8_t> kModeSense10{0x5A, 0, 0x1C, 0, 0, 0, 0, 0, 0xFF, 0};
inline const std::vector<uint8_t> kRequestSense{0x03, 0, 0, 0, 0xFF, 0};
inline const std::vector<uint8_t> kLogPages{0x4D, 0, 0x40, 0, 0, 0, 0, 0, 0xFC, 0};
inline const std::vector<uint8_t> kLogExceptions{0x4D, 0, 0x6F, 0, 0, 0, 0, 0, 0xFC, 0};

// A machine with one disk, 8:1:5:3, that has these fields.
inline std::string disk(const std::string &fields)
{
    return machines::ofOneDevice(R"("channel": 1, "id": 5, "lun": 3, )" + fields, 8);
}

inline const std::string kAta = R"("ata": true, "model": "TESTMODEL-SATA-0123456789", "revision": "FW1.2",
    "serial": "AHCI0SER-0123456789X", "sectors": 1048576, "identifyWords": {"20": 3})";

} // namespace device_test
