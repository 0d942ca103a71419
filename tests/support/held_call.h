// SPDX-License-Identifier: Apache-2.0
// A call of the product that does not return until the test lets it: one of a file system that hangs.
#pragma once

#include "sim/sim.h"

#include <future>

class HeldCall {
public:
    // The nth call of a kind from now on; the caller has set whose calls count.
    explicit HeldCall(sim::Call kind, unsigned nth = 1) : kind_(kind)
    {
        sim::atNth(kind, nth, [this] {
            entered_.set_value();
            released_.get_future().wait();
        });
    }
    ~HeldCall()
    {
        release();
        sim::atNth(kind_, 0, nullptr);
    }
    HeldCall(const HeldCall &) = delete;
    HeldCall &operator=(const HeldCall &) = delete;
    // Waits until a thread is in the call.
    void await() { entered_.get_future().wait(); }
    void release()
    {
        if (!isReleased_) {
            isReleased_ = true;
            released_.set_value();
        }
    }

private:
    sim::Call kind_;
    bool isReleased_ = false;
    std::promise<void> entered_;
    std::promise<void> released_;
};
