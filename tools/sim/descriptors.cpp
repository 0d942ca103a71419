// SPDX-License-Identifier: Apache-2.0
#include "sim/descriptors.h"

#include "sim/api.h"
#include "sim/uevents.h"

#include <array>
#include <atomic>

namespace sim {

namespace {

constexpr int kFollowed = 65536;

constinit std::array<std::atomic<uint8_t>, kFollowed> flagsOf{};
constinit std::array<std::atomic<Device *>, kFollowed> devices{};
constinit std::atomic<int> ofMachine{0};
constinit std::atomic<int64_t> ofProduct{0};

void setFlags(int descriptor, uint8_t now)
{
    const uint8_t before = flagsOf[static_cast<size_t>(descriptor)].exchange(now);
    ofMachine += (now & kOfMachine ? 1 : 0) - (before & kOfMachine ? 1 : 0);
    ofProduct += (now & kOfProduct ? 1 : 0) - (before & kOfProduct ? 1 : 0);
}

bool isFollowed(int descriptor)
{
    return descriptor >= 0 && descriptor < kFollowed;
}

} // namespace

void opened(int descriptor, uint8_t flags, Device *device)
{
    if (isFollowed(descriptor)) {
        devices[static_cast<size_t>(descriptor)] = device;
        setFlags(descriptor, flags);
    }
}

uint8_t flagsOfDescriptor(int descriptor)
{
    return isFollowed(descriptor) ? flagsOf[static_cast<size_t>(descriptor)].load() : uint8_t{0};
}

void closed(int descriptor)
{
    if (isFollowed(descriptor)) {
        if ((flagsOf[static_cast<size_t>(descriptor)] & kOfEvents) != 0) {
            eventSocketClosed(descriptor);
        }
        devices[static_cast<size_t>(descriptor)] = nullptr;
        setFlags(descriptor, 0);
    }
}

Device *deviceOf(int descriptor)
{
    return isFollowed(descriptor) ? devices[static_cast<size_t>(descriptor)].load() : nullptr;
}

int openOfMachine()
{
    return ofMachine;
}

int64_t openOfProduct()
{
    return ofProduct;
}

void forgetMachineDescriptors()
{
    for (int descriptor = 0; ofMachine > 0 && descriptor < kFollowed; ++descriptor) {
        const uint8_t flags = flagsOf[static_cast<size_t>(descriptor)];
        if ((flags & kOfMachine) != 0) {
            setFlags(descriptor, flags & (kOfProduct | kOfEvents));
        }
    }
}

int64_t liveDescriptors()
{
    return openOfProduct();
}

} // namespace sim
