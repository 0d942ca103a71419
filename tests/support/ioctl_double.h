// SPDX-License-Identifier: Apache-2.0
// A device for tests: while one exists it answers every ioctl of the test program, so that the test defines what a disk
// replies.
#pragma once

#include <cstdint>
#include <functional>
#include <scsi/sg.h>
#include <string>
#include <utility>
#include <vector>

// One at a time. The answer returns 0 or an errno value, with which the ioctl then fails.
class IoctlDouble {
public:
    using Answer = std::function<int(unsigned long request, void *argument)>;
    explicit IoctlDouble(Answer answer);
    ~IoctlDouble();
    IoctlDouble(const IoctlDouble &) = delete;
    IoctlDouble &operator=(const IoctlDouble &) = delete;

    int take(unsigned long request, void *argument);

    std::vector<unsigned long> requests; // that came in
    std::vector<int> descriptors;        // on which they came in
    std::vector<int> modes;              // access mode of each of these, -1 when it is not open

private:
    Answer answer_;
};

// One SG_IO exchange, as the kernel would see it.
struct SgReply {
    int error = 0; // errno of the ioctl
    unsigned status = 0;
    unsigned hostStatus = 0;
    unsigned driverStatus = 0;
    std::vector<uint8_t> sense{};
    std::vector<uint8_t> data{};
};

struct SgRequest {
    sg_io_hdr header;
    std::vector<uint8_t> cdb;
    std::vector<uint8_t> dataBefore; // the buffer as it came in
};

// A disk behind SG_IO that gives its replies one after the other, the last one again and again; notes what was sent.
class ScsiDouble {
public:
    explicit ScsiDouble(std::vector<SgReply> replies);

    // Access mode of the descriptor of each request.
    const std::vector<int> &modes() const { return ioctl_.modes; }

    std::vector<SgRequest> sent;

private:
    int answer(unsigned long request, void *argument);

    std::vector<SgReply> replies_;
    IoctlDouble ioctl_;
};

// A disk behind the block device ioctls. A negative value: the ioctl fails with EINVAL.
struct BlockDisk {
    long long sectorSize = 512;
    long long kernelSectors = 0;
    long long bytes = 0;
    int heads = 0;
    int sectors = 0;
    int cylinders = 0;
    // Number of times that HDIO_GETGEO fails first.
    int failingGeometries = 0;

    int answer(unsigned long request, void *argument);
};

// A file that can be opened in place of a device node, removed at the end.
class NodeFile {
public:
    NodeFile();
    ~NodeFile();
    NodeFile(const NodeFile &) = delete;
    NodeFile &operator=(const NodeFile &) = delete;
    const char *path() const { return path_.c_str(); }
    int descriptor() const { return descriptor_; }

private:
    std::string path_;
    int descriptor_;
};

// Bytes of a hexadecimal text with blanks.
std::vector<uint8_t> bytesOf(const std::string &hex);
// Lines of a file of tests/data/devcmd without comments and empty ones.
std::vector<std::string> dataLines(const std::string &name);
std::string dataText(const std::string &name);
// Descriptors that the process has open.
int openDescriptors();
