// SPDX-License-Identifier: Apache-2.0
#include "runtime/pause.h"

#include <chrono>
#include <csignal>
#include <gtest/gtest.h>
#include <sys/time.h>

using namespace tavstrg;

namespace {

// Interrupts this process some thousand times a second, with a handler that returns: calls that wait end with EINTR.
class Interruptions {
public:
    Interruptions()
    {
        struct sigaction act = {};
        act.sa_handler = [](int) {};
        ::sigaction(SIGALRM, &act, &before_); // without SA_RESTART
        constexpr itimerval kEvery = {{0, 300}, {0, 300}};
        ::setitimer(ITIMER_REAL, &kEvery, nullptr);
    }
    ~Interruptions()
    {
        constexpr itimerval kNever = {};
        ::setitimer(ITIMER_REAL, &kNever, nullptr);
        ::signal(SIGALRM, SIG_IGN); // one that is pending
        ::sigaction(SIGALRM, &before_, nullptr);
    }
    Interruptions(const Interruptions &) = delete;
    Interruptions &operator=(const Interruptions &) = delete;

private:
    struct sigaction before_ = {};
};

TEST(Pause, IsNotShortenedBySignals)
{
    const Interruptions interruptions;
    for (int round = 0; round < 10; ++round) { // a busy machine makes some pauses longer, but not each of ten
        const auto begun = std::chrono::steady_clock::now();
        pauseFor(20000);
        EXPECT_GE(std::chrono::steady_clock::now() - begun, std::chrono::milliseconds(20));
    }
}

} // namespace
