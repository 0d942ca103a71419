// SPDX-License-Identifier: Apache-2.0
// The process's open descriptors: which are on paths of the machine, which the product opened, which are devices.
#pragma once

#include <cstdint>

namespace sim {

struct Device;

enum DescriptorFlags : uint8_t {
    kOfMachine = 1, // opened under a path of the machine
    kOfProduct = 2, // opened by the product
    kOfEvents = 4,  // a socket for device events
};

// To be called after an open and before a close. Negative descriptors and those from 65536 on are ignored. errno is
// unchanged.
void opened(int descriptor, uint8_t flags, Device *device);
void closed(int descriptor);
uint8_t flagsOfDescriptor(int descriptor); // 0 if it is not followed
// The device of a descriptor, or null if it is not one of the machine's.
Device *deviceOf(int descriptor);
int openOfMachine();
int64_t openOfProduct();
// To be called when the machine is gone: its descriptors no longer count. Requests to its devices still reach them and
// fail with ENODEV.
void forgetMachineDescriptors();

} // namespace sim
