// SPDX-License-Identifier: Apache-2.0
#include "floor.h"

#include <algorithm>
#include <charconv>
#include <dirent.h>
#include <fcntl.h>
#include <linux/fs.h>
#include <scsi/sg.h>
#include <string_view>
#include <sys/ioctl.h>
#include <unistd.h>

namespace bench {

namespace {

// A path, composed without a format.
struct Path {
    explicit Path(std::string_view begin) { add(begin); }
    Path &add(std::string_view part)
    {
        length += part.copy(text + length, sizeof text - 1 - length);
        text[length] = '\0';
        return *this;
    }
    Path &cut(size_t to)
    {
        length = to;
        return *this;
    }

    char text[512];
    size_t length = 0;
};

template <size_t N> bool readText(const Path &path, char (&text)[N])
{
    const int fd = ::open(path.text, O_RDONLY | O_CLOEXEC);
    const ssize_t got = ::read(fd, text, N - 1);
    ::close(fd);
    text[std::max<ssize_t>(got, 0)] = '\0';
    return got > 0;
}

// The only entry of a directory besides "." and "..".
template <size_t N> bool readEntry(const Path &path, char (&name)[N])
{
    alignas(dirent64) char entries[1024];
    const int fd = ::open(path.text, O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    const ssize_t got = ::getdents64(fd, entries, sizeof entries);
    ::close(fd);
    for (ssize_t at = 0; at < got;) {
        const auto *const entry = reinterpret_cast<const dirent64 *>(entries + at);
        if (entry->d_name[0] != '.') {
            name[std::string_view(entry->d_name).copy(name, N - 1)] = '\0';
            return true;
        }
        at += entry->d_reclen;
    }
    return false;
}

bool readAttributes(Path &device, FloorDisk &disk)
{
    const size_t at = device.length;
    if (!readText(device.cut(at).add("/vendor"), disk.vendor) || !readText(device.cut(at).add("/model"), disk.model) ||
        !readText(device.cut(at).add("/rev"), disk.revision) || !readText(device.cut(at).add("/type"), disk.type) ||
        !readEntry(device.cut(at).add("/block"), disk.name)) {
        return false;
    }
    return readText(device.add("/").add(disk.name).add("/size"), disk.sectors);
}

// SMART RETURN STATUS through ATA PASS-THROUGH(16) with CK_COND (SAT-2, ATA8-ACS).
bool readVerdict(int fd, FloorDisk &disk)
{
    unsigned char cdb[16] = {0x85, 0x06, 0x2C, 0, 0xDA, 0, 0, 0, 0, 0, 0x4F, 0, 0xC2, 0, 0xB0, 0};
    sg_io_hdr header{};
    header.interface_id = 'S';
    header.dxfer_direction = SG_DXFER_NONE;
    header.cmdp = cdb;
    header.cmd_len = sizeof cdb;
    header.sbp = disk.verdict;
    header.mx_sb_len = sizeof disk.verdict;
    header.timeout = 6000; // ms
    return ::ioctl(fd, SG_IO, &header) == 0;
}

bool readNode(FloorDisk &disk)
{
    const int fd = ::open(Path("/dev/").add(disk.name).text, O_RDWR | O_CLOEXEC);
    constexpr uint8_t kSmartReadData[4] = {0xB0, 0x00, 0xD0, 0x01}; // linux/hdreg.h, HDIO_DRIVE_CMD
    std::copy(std::begin(kSmartReadData), std::end(kSmartReadData), disk.smartData);
    const bool done = ::ioctl(fd, HDIO_GET_IDENTITY, disk.identity) == 0 &&
                      ::ioctl(fd, BLKSSZGET, &disk.sectorSize) == 0 && ::ioctl(fd, HDIO_GETGEO, &disk.geometry) == 0 &&
                      ::ioctl(fd, HDIO_DRIVE_CMD, disk.smartData) == 0 && readVerdict(fd, disk);
    ::close(fd);
    return done;
}

bool readDriver(std::string_view number, FloorHost &host)
{
    if (!host.known) {
        host.known = readText(Path("/sys/class/scsi_host/host").add(number).add("/proc_name"), host.driver);
    }
    return host.known;
}

bool readDisk(std::string_view address, FloorDisk &disk, std::span<FloorHost> hosts)
{
    std::from_chars(address.data(), address.data() + address.size(), disk.host);
    Path device("/sys/bus/scsi/devices/");
    return disk.host < hosts.size() && readAttributes(device.add(address), disk) &&
           readDriver(address.substr(0, address.find(':')), hosts[disk.host]) && readNode(disk);
}

} // namespace

size_t readFloor(std::span<FloorDisk> disks, std::span<FloorHost> hosts)
{
    DIR *const devices = ::opendir("/sys/bus/scsi/devices");
    if (devices == nullptr) {
        return 0;
    }
    size_t count = 0;
    bool done = true;
    const auto isDigit = [](char letter) { return letter >= '0' && letter <= '9'; };
    for (const dirent *entry = ::readdir(devices); entry != nullptr && done && count < disks.size();
         entry = ::readdir(devices)) {
        if (isDigit(entry->d_name[0])) { // else a host or a target
            done = readDisk(entry->d_name, disks[count++], hosts);
        }
    }
    ::closedir(devices);
    return done ? count : 0;
}

} // namespace bench
