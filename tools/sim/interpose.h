// SPDX-License-Identifier: Apache-2.0
// What the interposed functions have in common.
//
// Each is defined under a name of its own and exported under the C library's by an assembler label: so neither the
// headers' declarations (exception specifications, fortified inline versions) nor the compiler's knowledge of the name
// get in the way, and a thread that is cancelled in the real function unwinds through.
#pragma once

#include "sim/callers.h"
#include "sim/descriptors.h"
#include "sim/paths.h"
#include "sim/real.h"
#include "sim/state.h"
#include "sim/thread.h"

#include <cerrno>

// Exports the function that is declared next.
#define SIM_EXPORT extern "C" [[gnu::visibility("default")]]
// Whether this call is to fail; must stand in the interposed function itself, whose return address tells the caller.
#define SIM_STRIKES(kind, function) ::sim::strikes(::sim::Call::kind, __builtin_return_address(0), function)
#define SIM_IS_PRODUCT(function) ::sim::isProduct(__builtin_return_address(0), function)

namespace sim {

template <class T = int> T failedWith(int error, T value = T(-1))
{
    errno = error;
    return value;
}

// Notes a descriptor that was opened under a path, and gives it back. errno is kept.
inline int noteOpened(int descriptor, const Translated &path, bool byProduct)
{
    if (descriptor >= 0 && thisThread.inside == 0 && (path.isMachines() || byProduct)) {
        const int saved = errno;
        const Inside inside;
        const OwnTime own;
        opened(descriptor, static_cast<uint8_t>((path.isMachines() ? kOfMachine : 0) | (byProduct ? kOfProduct : 0)),
               path.isMachines() ? deviceAt(path.c_str()) : nullptr);
        errno = saved;
    }
    return descriptor;
}

// The error with which a path cannot be opened because of the device there; 0 when it can.
inline int openErrorOf(const Translated &path)
{
    if (!path.isMachines()) {
        return 0;
    }
    const Inside inside;
    const OwnTime own;
    const Device *device = deviceAt(path.c_str());
    return device == nullptr ? 0 : openErrorOf(*device);
}

} // namespace sim
