// SPDX-License-Identifier: Apache-2.0
// Where the alerts of a provider in this process come out: the development alert library is told to write them into a
// pipe.
#pragma once

#include <string>
#include <vector>

namespace tool {

class AlertPipe {
public:
    // Sets TAVALERT_FILE and TAVALERT_QUIET, which the library reads at each alert: to be made while there is no other
    // thread. Throws Failure. A full pipe loses alerts, as a full disk would; it holds some hundred of them.
    AlertPipe();
    ~AlertPipe();
    AlertPipe(const AlertPipe &) = delete;
    AlertPipe &operator=(const AlertPipe &) = delete;

    int descriptor() const { return ends_[0]; } // to wait on: readable when something has come
    // The lines that have come whole, without their ends. Never waits.
    std::vector<std::string> lines();

private:
    int ends_[2] = {-1, -1};
    std::string begun_; // what has come of a line
};

} // namespace tool
