// SPDX-License-Identifier: Apache-2.0
// Device numbers and drive positions as the kernel assigns them, computed and not read.
#pragma once

#include <cstdint>
#include <string_view>

namespace tavstrg {

constexpr uint16_t kUnknownDeviceNumber = 0xFFFF;

} // namespace tavstrg

// Major numbers of the IDE channels, two drives each (linux/major.h, IDE0_MAJOR to IDE5_MAJOR).
constexpr uint16_t IDEX_MAJOR[] = {3, 22, 33, 34, 56, 57};

namespace tavstrg {

constexpr int32_t kIDEChannels = sizeof IDEX_MAJOR / sizeof IDEX_MAJOR[0];

// Major * 256 + minor of the n-th SCSI disk (0-based): 16 disks of 16 minors to a major.
constexpr uint16_t scsiDiskDeviceNumber(int32_t n)
{
    const int32_t major = n < 16 ? 8 : 64 + n / 16;
    const int32_t minor = n % 16 * 16;
    return static_cast<uint16_t>(major * 256 + minor);
}

// Position of an IDE drive's letter, 0 for "hda"; -1 when the name has none.
constexpr int32_t ideDriveLetter(std::string_view name)
{
    return name.starts_with("hd") && name.size() > 2 && name[2] >= 'a' && name[2] <= 'z' ? name[2] - 'a' : -1;
}

// Major * 256 + minor of an IDE disk: the second drive of a channel begins at minor 64. Unknown beyond the sixth
// channel.
constexpr uint16_t ideDiskDeviceNumber(std::string_view name)
{
    const int32_t letter = ideDriveLetter(name);
    if (letter < 0 || letter / 2 >= kIDEChannels) {
        return kUnknownDeviceNumber;
    }
    return static_cast<uint16_t>(IDEX_MAJOR[letter / 2] * 256 + letter % 2 * 64);
}

// Position of an IDE drive on its channel: 2 master (a, c, e, ...), 3 slave (b, d, f, ...), 1 unknown.
constexpr uint16_t ideDrivePosition(std::string_view name)
{
    const int32_t letter = ideDriveLetter(name);
    return letter < 0 ? 1 : letter % 2 == 0 ? 2 : 3;
}

} // namespace tavstrg
