// SPDX-License-Identifier: Apache-2.0
#include "collect/devices/kernel_disk.h"

#include "collect/base/text_file.h"
#include "collect/base/text_scan.h"
#include "collect/devices/vpd_serial.h"
#include "collect/scsi/scsi_variants.h"
#include "runtime/field_text.h"
#include "runtime/holders.h"
#include "runtime/trace.h"

#include <algorithm>
#include <climits>
#include <cstdio>

using namespace tavstrg;

namespace {

constexpr std::string_view kDev = "/dev/";

// A file or directory of the device at an address.
class DevicePath {
public:
    DevicePath(const ScsiAddress &address, const char *below)
    {
        std::snprintf(text_, sizeof text_, "%s/%d:%d:%d:%d/%s", kSysDevices, address.host, address.channel, address.id,
                      address.lun, below);
    }
    const char *text() const { return text_; }

private:
    char text_[PATH_MAX];
};

// A page as the kernel keeps it, or the text of an attribute.
class KeptBytes {
public:
    KeptBytes(const ScsiAddress &address, const char *file) : text_(readDeviceFile(address, file, buffer_)) {}
    std::string_view text() const { return text_; }
    std::span<const uint8_t> bytes() const { return {reinterpret_cast<const uint8_t *>(text_.data()), text_.size()}; }

private:
    char buffer_[1024]; // a page 89h has 572 bytes; of a longer page the serial number is in the beginning
    std::string_view text_;
};

// Takes a serial number over and traces its source: whether there is one.
bool take(std::string_view found, const char *source, char (&serial)[kSerialNumberSize])
{
    if (found.empty()) {
        return false;
    }
    copyText(serial, found);
    return TRACED(true, kDetail, "serial=[%s] of [%s]", serial, source);
}

// Name of the directory of a node in sysfs.
void directoryNameOf(const char *path, char (&name)[kDiskPathSize])
{
    std::string_view node = path;
    node.remove_prefix(node.starts_with(kDev) ? kDev.size() : 0);
    copyText(name, node);
    std::replace(name, name + kDiskPathSize, '/', '!');
}

template <class Number> Number readNumber(const ScsiAddress &address, const char *path, const char *file)
{
    char buffer[64];
    Number number = 0;
    return TextScan{readBlockFile(address, path, file, buffer)}.number(number) ? number : 0;
}

} // namespace

bool tavstrg::nodePathOf(std::string_view name, char (&path)[kDiskPathSize])
{
    path[0] = '\0';
    if (name.empty() || name.starts_with('.') || kDev.size() + name.size() >= kDiskPathSize ||
        name.find('/') != std::string_view::npos) {
        return false;
    }
    char *const end = std::replace_copy(name.begin(), name.end(), std::copy(kDev.begin(), kDev.end(), path), '!', '/');
    *end = '\0';
    return true;
}

void tavstrg::readNodePath(const ScsiAddress &address, char (&path)[kDiskPathSize])
{
    const OpenDirectory entries(DevicePath(address, "block").text());
    path[0] = '\0';
    for (const char *name = entries.next(); name != nullptr; name = entries.next()) {
        if (nodePathOf(name, path)) {
            return;
        }
    }
}

void tavstrg::readKeptSerialNumber(const ScsiAddress &address, char (&serial)[kSerialNumberSize])
{
    copyText(serial, "");
    std::array<char, kAtaSerialLength> buffer;
    if (take(serialOfPage80(KeptBytes(address, "vpd_pg80").bytes()), "vpd_pg80", serial) ||
        take(serialOfPage89(KeptBytes(address, "vpd_pg89").bytes(), buffer), "vpd_pg89", serial) ||
        take(trimmedSerial(KeptBytes(address, "wwid").text()), "wwid", serial)) {
        return;
    }
    TRACE(kDetail, "%d:%d:%d:%d has no serial number", address.host, address.channel, address.id, address.lun);
}

KernelSize tavstrg::readKernelSize(const ScsiAddress &address, const char *path)
{
    const auto sectors = readNumber<uint64_t>(address, path, "size");
    return {sectors, sectors == 0 ? 0 : readNumber<int32_t>(address, path, "queue/logical_block_size")};
}

std::string_view tavstrg::readDeviceFile(const ScsiAddress &address, const char *file, std::span<char> buffer)
{
    std::string_view text;
    readBeginning(DevicePath(address, file).text(), buffer, text);
    return text;
}

std::string_view tavstrg::readBlockFile(const ScsiAddress &address, const char *path, const char *file,
                                        std::span<char> buffer)
{
    char name[kDiskPathSize];
    directoryNameOf(path, name);
    if (name[0] == '\0') {
        return {};
    }
    char below[kDiskPathSize + 64];
    std::snprintf(below, sizeof below, "block/%s/%s", name, file);
    return readDeviceFile(address, below, buffer);
}
