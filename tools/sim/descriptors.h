// SPDX-License-Identifier: Apache-2.0
// What is known of the process's open descriptors: which are the machine's, which the product opened, which are
// devices.
#pragma once

#include <cstdint>

namespace sim {

struct Device;

enum DescriptorFlags : uint8_t {
    kOfMachine = 1, // opened under a path of the machine
    kOfProduct = 2, // opened by the product
};

// Descriptors beyond the first 65536 are not followed; nothing happens for a negative one. errno is kept.
void opened(int descriptor, uint8_t flags, Device *device);
void closed(int descriptor);
// The device behind a descriptor; null when it is none of the machine's.
Device *deviceOf(int descriptor);
int openOfMachine();
int64_t openOfProduct();
// The machine is gone: its descriptors are no more counted. Devices stay behind theirs, and answer that they are gone.
void forgetMachineDescriptors();

} // namespace sim
