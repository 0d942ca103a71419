// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cerrno>

namespace sim {

// Sets errno; returns what a C library function returns on failure, -1 unless another value is given.
template <class T = int> T failedWith(int error, T value = T(-1))
{
    errno = error;
    return value;
}

} // namespace sim
