// SPDX-License-Identifier: Apache-2.0
// Common parts of the interposed functions.
//
// Each has a name of our own and is exported under the C library's name by an assembler label. This avoids conflicts
// with the headers' declarations (exception specifications, fortified inline versions) and with the compiler's built-in
// knowledge of the name; a thread that is cancelled in the real function can unwind through ours.
#pragma once

#include "sim/api.h"
#include "sim/callers.h"
#include "sim/descriptors.h"
#include "sim/failed_with.h"
#include "sim/paths.h"
#include "sim/real.h"
#include "sim/state.h"
#include "sim/thread.h"

#include <cerrno>
#include <cstring>

// Exports the function declared next.
#define SIM_EXPORT extern "C" [[gnu::visibility("default")]]
// Whether this call has to fail. Only for use in the interposed function itself, whose return address identifies the
// caller.
#define SIM_FAILS(kind, function) ::sim::mustFail(::sim::Call::kind, __builtin_return_address(0), function)
#define SIM_IS_PRODUCT(function) ::sim::isProduct(__builtin_return_address(0), function)

namespace sim {

// Null: nobody listens.
DeviceListener *deviceListener();

// Reports the opening of a device node. Returns the descriptor. errno is unchanged.
inline int tellOpened(int descriptor, const char *path)
{
    DeviceListener *const hears = deviceListener();
    if (hears != nullptr && thisThread.inside == 0 && path != nullptr && std::strncmp(path, "/dev/", 5) == 0) {
        const int error = errno;
        hears->opened(path, descriptor, descriptor < 0 ? error : 0);
        errno = error;
    }
    return descriptor;
}

// Records a descriptor that was opened by a path. Returns the descriptor. errno is unchanged.
inline int noteOpened(int descriptor, const Translated &path, bool byProduct)
{
    if (descriptor >= 0 && thisThread.inside == 0 && (path.isInMachine() || byProduct)) {
        const int saved = errno;
        const Inside inside;
        const OwnTime own;
        opened(descriptor, static_cast<uint8_t>((path.isInMachine() ? kOfMachine : 0) | (byProduct ? kOfProduct : 0)),
               path.isInMachine() ? deviceAt(path.c_str()) : nullptr);
        errno = saved;
    }
    return descriptor;
}

// Logs the opening of a device's node. Returns the error with which it fails because of its device, or 0.
inline int beginOpening(const Translated &path, int flags)
{
    if (!path.isInMachine()) {
        return 0;
    }
    const Inside inside;
    const OwnTime own;
    Device *device = deviceAt(path.c_str());
    return device == nullptr ? 0 : beginOpening(*device, path.c_str(), flags);
}

} // namespace sim
