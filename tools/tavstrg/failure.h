// What ends a command: told in one line on standard error, exit status 1.
#pragma once

#include <stdexcept>

namespace tool {

struct Failure : std::runtime_error {
    using std::runtime_error::runtime_error;
};

} // namespace tool
