// SPDX-License-Identifier: Apache-2.0
#include "devcmd/smart/wear_data.h"

#include <cstring>

bool findSmartAttribute(std::span<const uint8_t> data, uint8_t id, SmartAttribute &attribute)
{
    for (size_t i = 0; i < kSmartAttributes; ++i) {
        const size_t at = kSmartAttributesAt + i * sizeof(SmartAttribute);
        if (at + sizeof(SmartAttribute) > data.size()) {
            return false;
        }
        if (data[at] == id) {
            std::memcpy(&attribute, data.data() + at, sizeof attribute);
            return true;
        }
    }
    return false;
}

uint16_t enduranceOf(const SmartAttribute &attribute)
{
    return attribute.id == kWearPercentUsed ? static_cast<uint16_t>(100 - attribute.raw[1]) : attribute.current;
}
