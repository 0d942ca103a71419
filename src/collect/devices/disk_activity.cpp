// SPDX-License-Identifier: Apache-2.0
#include "collect/devices/disk_activity.h"

#include "collect/base/text_scan.h"
#include "collect/devices/kernel_disk.h"
#include "collect/devices/vpd_serial.h"
#include "runtime/field_text.h"

using namespace tavstrg;

std::optional<IoCounts> tavstrg::parseIoCounts(std::string_view text)
{
    constexpr size_t kFewest = 11; // numbers that every kernel shows
    constexpr size_t kMost = 17;
    uint64_t numbers[kMost] = {};
    TextScan scan{untilNul(text)};
    size_t read = 0;
    while (read < kMost && scan.number(numbers[read])) {
        ++read;
    }
    if (read < kFewest) {
        return std::nullopt;
    }
    return IoCounts{.reads = numbers[0],
                    .writes = numbers[4],
                    .discards = read > 11 ? numbers[11] : 0,
                    .flushes = read > 15 ? numbers[15] : 0};
}

bool tavstrg::isSuspendedStatus(std::string_view text)
{
    const std::string_view status = withoutTrailing(untilNul(text), kWhiteSpace);
    return status == "suspended" || status == "suspending";
}

std::optional<IoCounts> tavstrg::readIoCounts(const ScsiAddress &address, const char *path)
{
    char buffer[512];
    return parseIoCounts(readBlockFile(address, path, "stat", buffer));
}

bool tavstrg::isSuspended(const ScsiAddress &address)
{
    char buffer[64];
    return isSuspendedStatus(readDeviceFile(address, "power/runtime_status", buffer));
}

void tavstrg::readKernelIdentity(const ScsiAddress &address, char (&identity)[kIdentitySize])
{
    char buffer[1024];
    copyText(identity, trimmedSerial(readDeviceFile(address, "wwid", buffer)));
    if (identity[0] == '\0') {
        const std::string_view page = readDeviceFile(address, "vpd_pg80", buffer);
        copyText(identity, serialOfPage80({reinterpret_cast<const uint8_t *>(page.data()), page.size()}));
    }
}
