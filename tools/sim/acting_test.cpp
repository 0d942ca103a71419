// SPDX-License-Identifier: Apache-2.0
// Acting at a call of the product, and holding its sleeps. The test program plays the product.
#include "sim/sim.h"

#include <cerrno>
#include <ctime>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <thread>
#include <unistd.h>

namespace {

using sim::Call;

constexpr const char *kFile = "/opt/qlm/tavkit_sa/data/storage.inf";

class Acting : public testing::Test {
protected:
    Acting() { sim::countCallsOf("test_sim"); }
    ~Acting() override
    {
        sim::atNth(Call::count, 0, nullptr);
        sim::holdSleeps(false);
        sim::shortenSleeps(1);
        sim::countCallsOf("libTAVStorageProvider.so");
    }
    sim::Machine machine{R"({"files": {"storage.inf": "ahci\n"}})"};
};

TEST_F(Acting, ActRunsOnceBeforeTheNthCall)
{
    int acts = 0;
    sim::atNth(Call::open, 2, [&] {
        ++acts;
        machine.remove(kFile);
        errno = ENOTTY;
    });
    const int first = open(kFile, O_RDONLY);
    EXPECT_GE(first, 0);
    EXPECT_EQ(access(kFile, F_OK), 0) << "another kind of call";
    EXPECT_EQ(acts, 0);
    EXPECT_LT(open(kFile, O_RDONLY), 0);
    EXPECT_EQ(errno, ENOENT) << "the call's own error";
    EXPECT_LT(open(kFile, O_RDONLY), 0);
    EXPECT_EQ(acts, 1);
    close(first);
}

TEST_F(Acting, DisarmedActDoesNotRun)
{
    sim::atNth(Call::open, 1, [] { FAIL(); });
    sim::atNth(Call::open, 0, nullptr);
    close(open(kFile, O_RDONLY));
}

void *sleepAndTest(void *)
{
    for (;;) {
        pthread_testcancel();
        sleep(60);
    }
    return nullptr;
}

TEST_F(Acting, CancelInTheActTakesEffectAfterIt)
{
    sim::holdSleeps(true);
    bool acted = false;
    sim::atNth(Call::cancelPoint, 3, [&acted] { // pthread_testcancel, sleep, pthread_testcancel
        pthread_cancel(pthread_self());
        pthread_testcancel();
        acted = true;
    });
    pthread_t thread{};
    ASSERT_EQ(pthread_create(&thread, nullptr, sleepAndTest, nullptr), 0);
    ASSERT_TRUE(sim::awaitSleep(1, 10));
    sim::wakeSleepers();
    void *result = nullptr;
    EXPECT_EQ(pthread_join(thread, &result), 0);
    EXPECT_EQ(result, PTHREAD_CANCELED);
    EXPECT_TRUE(acted);
    EXPECT_EQ(sim::sleepsBegun(), 1U);
}

TEST_F(Acting, HeldSleepLastsUntilWokenOrCancelled)
{
    sim::holdSleeps(true);
    const unsigned before = sim::cancelsRequested();
    pthread_t thread{};
    ASSERT_EQ(pthread_create(&thread, nullptr, sleepAndTest, nullptr), 0);
    for (unsigned n = 1; n <= 5; ++n) {
        ASSERT_TRUE(sim::awaitSleep(n, 10));
        EXPECT_FALSE(sim::awaitSleep(n + 1, 0.01));
        EXPECT_EQ(sim::sleepers(), 1U);
        sim::wakeSleepers();
    }
    ASSERT_TRUE(sim::awaitSleep(6, 10));
    EXPECT_EQ(pthread_cancel(thread), 0);
    EXPECT_EQ(sim::cancelsRequested(), before + 1);
    EXPECT_EQ(pthread_join(thread, nullptr), 0);
    EXPECT_EQ(sim::sleepers(), 0U);
}

TEST_F(Acting, ShortenedSleepsAreShorter)
{
    sim::shortenSleeps(1000);
    timespec begin{};
    clock_gettime(CLOCK_MONOTONIC, &begin);
    usleep(5000000);
    timespec end{};
    clock_gettime(CLOCK_MONOTONIC, &end);
    EXPECT_LT(end.tv_sec - begin.tv_sec, 3);
}

} // namespace
