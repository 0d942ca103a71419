// SPDX-License-Identifier: Apache-2.0
// What ends a command: told in one line on standard error, exit status 1.
#pragma once

#include <stdexcept>
#include <string>

namespace tool {

class Failure : public std::runtime_error {
public:
    // status: what the provider refused a request with, when it is that.
    explicit Failure(const std::string &text, int status = 0) : std::runtime_error(text), cimStatus_(status) {}

    int cimStatus() const { return cimStatus_; }

private:
    int cimStatus_;
};

} // namespace tool
