// SPDX-License-Identifier: Apache-2.0
// Files of a simulated machine that are far longer than any real one.
#pragma once

#include "sim/sim.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <string>
#include <unistd.h>

// A hole of so many bytes, and a text after it.
inline void writeLong(sim::Machine &machine, const std::string &path, size_t hole, const std::string &text)
{
    machine.write(path, "");
    ASSERT_EQ(::truncate(machine.where(path).c_str(), static_cast<off_t>(hole)), 0);
    std::FILE *const file = std::fopen(machine.where(path).c_str(), "a");
    ASSERT_NE(file, nullptr);
    std::fputs(text.c_str(), file);
    std::fclose(file);
}
