// SPDX-License-Identifier: Apache-2.0
// The ways in which monitoring begins again.
#pragma once

#include "scenarios/monitored.h"

#include <functional>
#include <gtest/gtest.h>
#include <memory>
#include <ostream>

namespace scenario {

struct Restart {
    const char *name;
    std::function<void(std::unique_ptr<Server> &)> happen; // ends the thread; the test starts it afterwards
};

inline void PrintTo(const Restart &restart, std::ostream *out)
{
    *out << restart.name;
}

inline const Restart kRestartOfTheThread = {
    "OfTheThread", [](std::unique_ptr<Server> &server) { EXPECT_EQ(stopThread(**server), 0); }};
inline const Restart kRestartOfTheBroker = {"OfTheBroker", [](std::unique_ptr<Server> &server) {
                                                (*server)->stop();
                                                expectNothingLeft(**server);
                                                server = std::make_unique<Server>(inServiceMode());
                                            }};

} // namespace scenario
