// SPDX-License-Identifier: Apache-2.0
// Options in a unit test: as an administrator's file on the simulated machine, during the life of an object.
#pragma once

#include "runtime/options.h"
#include "sim/sim.h"

#include <string>

class OptionsInForce {
public:
    static constexpr const char *kFile = "/opt/qlm/tavkit_sa/data/options.inf";

    // Without a text there is no file.
    OptionsInForce(sim::Machine &machine, const std::string &text) : machine_(machine)
    {
        if (!text.empty()) {
            machine_.write(kFile, text);
        }
        tavstrg::takeOptions();
    }
    ~OptionsInForce()
    {
        machine_.remove(kFile);
        tavstrg::takeOptions();
    }
    OptionsInForce(const OptionsInForce &) = delete;
    OptionsInForce &operator=(const OptionsInForce &) = delete;

private:
    sim::Machine &machine_;
};
