// SPDX-License-Identifier: Apache-2.0
#include "collect/devices/serial_number.h"

#include "collect/devices/vpd_serial.h"
#include "devcmd/open_device.h"
#include "devcmd/trim.h"
#include "runtime/field_text.h"
#include "runtime/holders.h"
#include "runtime/trace.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <linux/hdreg.h>
#include <sys/ioctl.h>

using namespace tavstrg;

static_assert(HDIO_GET_IDENTITY == 0x030d);

namespace {

constexpr size_t kIdentitySize = 512;  // bytes (ATA, IDENTIFY DEVICE)
constexpr size_t kIdentitySerial = 20; // words 10 to 19, serial number

// The serial number of an identity block, trimmed and cut to its field.
void copySerial(const char (&identity)[kIdentitySize + 1], char *serial)
{
    static_assert(kDelSpaceMax < kIdentitySize);
    char text[kIdentitySize + 1 - kIdentitySerial];
    copyText(text, std::string_view(identity + kIdentitySerial));
    del_space(text);
    const std::string_view trimmed = fieldText(text);
    const size_t length = std::min(trimmed.size(), kSerialNumberSize - 1);
    std::memcpy(serial, trimmed.data(), length);
    std::memset(serial + length, 0, kSerialNumberSize - length);
}

// Errors of a disk that does not answer. With any other one the kernel says that it is no ATA disk.
constexpr bool isGoneOrFails(int error)
{
    return error == ENXIO || error == ENODEV || error == EIO || error == ETIMEDOUT;
}

} // namespace

int tavstrg::readAnsweredSerialNumber(const char *path, char (&serial)[kSerialNumberSize])
{
    char identity[kIdentitySize] = {};
    copyText(serial, "");
    const FileDesc device(openDevice(path, O_RDONLY));
    if (!device) {
        return errno;
    }
    if (::ioctl(device.get(), HDIO_GET_IDENTITY, identity) < 0) {
        return isGoneOrFails(errno) ? errno : 0;
    }
    copyText(serial, serialOfIdentity({identity, sizeof identity}));
    return TRACED(0, kDetail, "serial=[%s] of [HDIO_GET_IDENTITY]", serial);
}

int32_t TAVStorageGetSCSIDeviceSerialNumber(const char *name, char *serial)
{
    const TraceScope scope;
    TRACE(kDetail, "_IN_ name=[%s]", name);
    char identity[kIdentitySize + 1] = {};
    {
        const FileDesc device(openDevice(name, O_RDONLY));
        if (!device) {
            return TRACED(-1, kFailure, "_OUT_ open failed. [%s]", name);
        }
        if (::ioctl(device.get(), HDIO_GET_IDENTITY, identity) < 0) {
            return TRACED(-1, kFailure, "_OUT_ ioctl(HDIO_GET_IDENTITY) failed");
        }
    }
    copySerial(identity, serial);
    return TRACED(0, kDetail, "_OUT_ serial=[%s]", serial);
}
