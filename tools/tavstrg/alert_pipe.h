// SPDX-License-Identifier: Apache-2.0
// Receives the alerts of a provider in this process: the development alert library writes them into a pipe.
#pragma once

#include <string>
#include <vector>

namespace tool {

class AlertPipe {
public:
    // Sets TAVALERT_FILE and TAVALERT_QUIET, which the library reads at each alert; create it while there is no other
    // thread. Throws Failure. A full pipe, which holds some hundred alerts, loses further ones, as a full disk would.
    AlertPipe();
    ~AlertPipe();
    AlertPipe(const AlertPipe &) = delete;
    AlertPipe &operator=(const AlertPipe &) = delete;

    int descriptor() const { return ends_[0]; } // to poll: readable when an alert has arrived
    // The complete lines received so far, without their line ends. Never blocks.
    std::vector<std::string> lines();

private:
    int ends_[2] = {-1, -1};
    std::string begun_; // of an incomplete line
};

} // namespace tool
