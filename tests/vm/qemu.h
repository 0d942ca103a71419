// SPDX-License-Identifier: Apache-2.0
// qemu's own monitor, which run.sh connects to the third serial port of the virtual machine.
#pragma once

#include <string>

namespace vm {

// Sets a property of one of qemu's devices, by the id that run.sh gives to it, and waits until qemu says that it is
// done. Returns an empty text, or what came instead.
std::string setDeviceProperty(const std::string &id, const std::string &property, unsigned value);

} // namespace vm
