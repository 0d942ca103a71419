// SPDX-License-Identifier: Apache-2.0
#include "support/ioctl_double.h"

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstdlib>
#include <cstring>
#include <dirent.h>
#include <dlfcn.h>
#include <fcntl.h>
#include <fstream>
#include <gtest/gtest.h>
#include <linux/fs.h>
#include <linux/hdreg.h>
#include <sstream>
#include <sys/ioctl.h>
#include <unistd.h>

namespace {

IoctlDouble *current = nullptr;

} // namespace

// Found before the C library's: the whole test program's calls come here.
extern "C" int ioctl(int fd, unsigned long request, ...) noexcept
{
    va_list args;
    va_start(args, request);
    void *const argument = va_arg(args, void *);
    va_end(args);
    if (current == nullptr) {
        using Ioctl = int (*)(int, unsigned long, void *);
        return reinterpret_cast<Ioctl>(dlsym(RTLD_NEXT, "ioctl"))(fd, request, argument);
    }
    if (fd < 0) {
        errno = EBADF;
        return -1;
    }
    current->descriptors.push_back(fd);
    const int flags = ::fcntl(fd, F_GETFL);
    current->modes.push_back(flags < 0 ? -1 : flags & O_ACCMODE);
    const int error = current->take(request, argument);
    if (error != 0) {
        errno = error;
        return -1;
    }
    return 0;
}

IoctlDouble::IoctlDouble(Answer answer) : answer_(std::move(answer))
{
    current = this;
}

IoctlDouble::~IoctlDouble()
{
    current = nullptr;
}

int IoctlDouble::take(unsigned long request, void *argument)
{
    requests.push_back(request);
    return answer_(request, argument);
}

ScsiDouble::ScsiDouble(std::vector<SgReply> replies)
    : replies_(std::move(replies)),
      ioctl_([this](unsigned long request, void *argument) { return answer(request, argument); })
{
}

int ScsiDouble::answer(unsigned long request, void *argument)
{
    if (request != 0x2285) {
        ADD_FAILURE() << "ioctl that is not SG_IO: " << request;
        return ENOTTY;
    }
    auto *header = static_cast<sg_io_hdr *>(argument);
    const auto *data = static_cast<const uint8_t *>(header->dxferp);
    sent.push_back({*header,
                    {header->cmdp, header->cmdp + header->cmd_len},
                    data == nullptr ? std::vector<uint8_t>() : std::vector<uint8_t>(data, data + header->dxfer_len)});
    const SgReply &reply = replies_[std::min(sent.size(), replies_.size()) - 1];
    if (reply.error != 0) {
        return reply.error;
    }
    header->status = static_cast<uint8_t>(reply.status);
    header->host_status = static_cast<uint16_t>(reply.hostStatus);
    header->driver_status = static_cast<uint16_t>(reply.driverStatus);
    if (header->sbp != nullptr) {
        const size_t length = std::min<size_t>(reply.sense.size(), header->mx_sb_len);
        std::copy_n(reply.sense.begin(), length, header->sbp);
        header->sb_len_wr = static_cast<uint8_t>(length);
    }
    if (header->dxferp != nullptr) {
        const size_t length = std::min<size_t>(reply.data.size(), header->dxfer_len);
        std::copy_n(reply.data.begin(), length, static_cast<uint8_t *>(header->dxferp));
    }
    return 0;
}

int BlockDisk::answer(unsigned long request, void *argument)
{
    switch (request) {
    case BLKSSZGET:
        if (sectorSize >= 0) {
            *static_cast<int *>(argument) = static_cast<int>(sectorSize);
        }
        return sectorSize < 0 ? EINVAL : 0;
    case BLKGETSIZE:
        if (kernelSectors >= 0) {
            *static_cast<unsigned long *>(argument) = static_cast<unsigned long>(kernelSectors);
        }
        return kernelSectors < 0 ? EINVAL : 0;
    case BLKGETSIZE64:
        if (bytes >= 0) {
            *static_cast<uint64_t *>(argument) = static_cast<uint64_t>(bytes);
        }
        return bytes < 0 ? EINVAL : 0;
    case HDIO_GETGEO:
        if (failingGeometries > 0) {
            --failingGeometries;
            return EINVAL;
        }
        if (heads >= 0) {
            *static_cast<hd_geometry *>(argument) = {static_cast<uint8_t>(heads), static_cast<uint8_t>(sectors),
                                                     static_cast<uint16_t>(cylinders), 0};
        }
        return heads < 0 ? EINVAL : 0;
    default:
        ADD_FAILURE() << "ioctl that no block device is asked: " << request;
        return ENOTTY;
    }
}

NodeFile::NodeFile() : path_(testing::TempDir() + "tavnodeXXXXXX"), descriptor_(::mkstemp(path_.data())) {}

NodeFile::~NodeFile()
{
    ::close(descriptor_);
    ::unlink(path_.c_str());
}

std::vector<uint8_t> bytesOf(const std::string &hex)
{
    std::vector<uint8_t> bytes;
    std::istringstream in(hex);
    for (std::string byte; in >> byte;) {
        bytes.push_back(static_cast<uint8_t>(std::stoul(byte, nullptr, 16)));
    }
    return bytes;
}

std::string dataText(const std::string &name)
{
    std::ifstream in(TAV_SOURCE_DIR "/tests/data/devcmd/" + name);
    EXPECT_TRUE(in) << name;
    std::ostringstream text;
    text << in.rdbuf();
    return text.str();
}

std::vector<std::string> dataLines(const std::string &name)
{
    std::vector<std::string> lines;
    std::istringstream in(dataText(name));
    for (std::string line; std::getline(in, line);) {
        if (!line.empty() && line.front() != '#') {
            lines.push_back(line);
        }
    }
    EXPECT_FALSE(lines.empty()) << name;
    return lines;
}

int openDescriptors()
{
    int count = 0;
    DIR *const directory = ::opendir("/proc/self/fd");
    while (::readdir(directory) != nullptr) {
        ++count;
    }
    ::closedir(directory);
    return count;
}
