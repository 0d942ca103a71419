// SPDX-License-Identifier: Apache-2.0
// IDENTIFY data: the serial number, and what they say of SMART. The input is the 512 bytes, cut or filled with zeros.
#include "collect/devices/disk_names.h"
#include "collect/devices/serial_number.h"
#include "devcmd/smart/ata_command.h"
#include "devcmd/trim.h"
#include "fuzz/disk.h"
#include "fuzz/fuzz.h"

#include <algorithm>
#include <vector>

using namespace tavstrg;

using fuzz::Bytes;
using fuzz::require;

namespace {

constexpr std::string_view kBlanks = " \n\t";

void checkTrimming(std::string_view text)
{
    fuzz::ExactString trimmed(text);
    del_space(trimmed.writable());
    const std::string_view result = trimmed.text();
    require(result.size() <= std::min(text.size(), kDelSpaceMax), "trimming makes nothing longer");
    require(result.empty() || (kBlanks.find(result.front()) == kBlanks.npos &&
                               kBlanks.find(result.back()) == kBlanks.npos && result.back() != '\r'),
            "nothing is left to trim");
}

void checkSerial(Bytes identify)
{
    const std::vector<uint8_t> reply = fuzz::replyOf(identify);
    fuzz::Disk disk(reply);
    const std::unique_ptr<char[]> serial(new char[kSerialNumberSize]);
    require(TAVStorageGetSCSIDeviceSerialNumber(fuzz::Disk::kNode, serial.get()) == 0, "a disk that answers has one");
    require(std::memchr(serial.get(), '\0', kSerialNumberSize) != nullptr, "a serial number is terminated");
    require(identify.size() > 20 || serial[0] == '\0', "a serial number is what was sent");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const Bytes identify = Bytes(data, size).first(std::min<size_t>(size, kIdentifyLength));
    checkTrimming(fuzz::textOf(identify));
    checkSerial(identify);
    if (identify.size() == kIdentifyLength) {
        const uint64_t support = smartSupportOfIdentify(identify.first<kIdentifyLength>());
        require(support >= 1 && support <= 3, "support is one of three");
    }
    return 0;
}
