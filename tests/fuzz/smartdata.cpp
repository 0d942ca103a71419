// SPDX-License-Identifier: Apache-2.0
// SMART READ DATA: the attribute table, walked in a block of just its size, and the figure that a disk's reply gives.
// The first byte is the attribute that is looked for.
#include "devcmd/smart/wear.h"
#include "fuzz/disk.h"
#include "fuzz/fuzz.h"

#include <algorithm>
#include <vector>

using namespace tavstrg;

using fuzz::Bytes;
using fuzz::require;

namespace {

constexpr uint16_t kUntouched = 0x7777;

void checkTable(Bytes data, uint8_t id)
{
    SmartAttribute attribute{};
    if (!findSmartAttribute(data, id, attribute)) {
        return;
    }
    require(attribute.id == id, "an attribute is the one that was looked for");
    const uint16_t figure = enduranceOf(attribute);
    require(figure <= 100 || id != kWearPercentUsed || attribute.raw[1] > 100, "more is left than was there");
    require(id == kWearPercentUsed || figure == attribute.current, "a figure is the current value");
}

void checkDisk(Bytes data, uint8_t id)
{
    const std::vector<uint8_t> reply = fuzz::replyOf(data);
    fuzz::Disk disk(reply);
    uint16_t endurance = kUntouched;
    const int result = GetLifeSpanInfoIoctl(fuzz::Disk::kNode, id, &endurance);
    require(result == (id == 0 ? -1 : 0), "a disk that answers has been read");
    std::vector<uint8_t> whole(data.begin(), data.end());
    whole.resize(kSmartDataLength);
    SmartAttribute attribute{};
    const bool found = result == 0 && findSmartAttribute(whole, id, attribute);
    require(endurance == (found ? enduranceOf(attribute) : kUntouched), "the figure is that of the table");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    if (size == 0) {
        return 0;
    }
    const Bytes table = Bytes(data, size).subspan(1, std::min(size - 1, kSmartDataLength));
    checkTable(table, data[0]);
    checkDisk(table, data[0]);
    return 0;
}
