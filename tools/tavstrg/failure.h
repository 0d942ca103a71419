// SPDX-License-Identifier: Apache-2.0
// An error that ends a command: reported in one line on standard error, with exit status 1.
#pragma once

#include <stdexcept>
#include <string>

namespace tool {

class Failure : public std::runtime_error {
public:
    // status: with which the provider refused a request, 0 if it is no refusal.
    explicit Failure(const std::string &text, int status = 0) : std::runtime_error(text), cimStatus_(status) {}

    int cimStatus() const { return cimStatus_; }

private:
    int cimStatus_;
};

} // namespace tool
