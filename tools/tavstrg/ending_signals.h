// SPDX-License-Identifier: Apache-2.0
// The signals that end the tool.
#pragma once

#include <csignal>

namespace tool {

constexpr int kEndingSignals[] = {SIGHUP, SIGINT, SIGTERM};

inline sigset_t endingSignals()
{
    sigset_t ending;
    sigemptyset(&ending);
    for (const int signal : kEndingSignals) {
        sigaddset(&ending, signal);
    }
    return ending;
}

} // namespace tool
