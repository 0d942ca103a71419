// SPDX-License-Identifier: Apache-2.0
// Requests that hang until a test ends them.
#include "support/sim_device.h"

#include <functional>
#include <optional>
#include <pthread.h>
#include <thread>

namespace {

using namespace device_test;

constexpr double kLong = 30; // seconds; waits end as soon as what they wait for has happened

std::string hangingOn(const char *kind)
{
    return disk(kAta + R"(, "faults": [{"on": ")" + kind + R"(", "hang": true}])");
}

TEST(Hang, LastsUntilTheDeviceIsReleased)
{
    sim::Machine machine(hangingOn("smartData"));
    const Node node("/dev/sda");
    EXPECT_EQ(send(node, kIdentify).header.status, 0);
    Result result;
    std::thread asking([&] { result = send(node, kSmartData, SG_DXFER_FROM_DEV, 512, {}, 1); }); // timeout of 1 ms
    EXPECT_TRUE(machine.awaitWaiting("/dev/sda", 1, kLong));
    EXPECT_EQ(send(node, kIdentify).header.status, 0); // other requests are answered
    machine.release("/dev/sda");
    asking.join();
    EXPECT_EQ(result.ret, 0);
    EXPECT_EQ(result.header.status, 0);
    EXPECT_EQ(machine.waiting("/dev/sda"), 0U);
}

TEST(Hang, EndsWhenTheDescriptionNoLongerHasIt)
{
    sim::Machine machine(hangingOn("any"));
    const Node node("/dev/sda");
    Result result;
    std::thread asking([&] { result = send(node, kInquiry); });
    EXPECT_TRUE(machine.awaitWaiting("/dev/sda", 1, kLong));
    machine.change(disk(kAta));
    asking.join();
    EXPECT_EQ(result.header.status, 0);
}

TEST(Hang, EndsWithTheDeviceOrTheMachine)
{
    std::optional<sim::Machine> machine(hangingOn("any"));
    const Node node("/dev/sda");
    Result removed;
    std::thread first([&] { removed = send(node, kInquiry); });
    EXPECT_TRUE(machine->awaitWaiting("/dev/sda", 1, kLong));
    machine->change("{}");
    first.join();
    EXPECT_EQ(removed.ret, -1);
    EXPECT_EQ(removed.error, ENODEV);
    machine->change(hangingOn("any"));
    const Node again("/dev/sda");
    Result ended;
    std::thread second([&] { ended = send(again, kInquiry); });
    EXPECT_TRUE(machine->awaitWaiting("/dev/sda", 1, kLong));
    machine.reset();
    second.join();
    EXPECT_EQ(ended.error, ENODEV);
}

TEST(Hang, OpeningCanHangAndFail)
{
    sim::Machine machine(disk(
        kAta + R"(, "faults": [{"on": "open", "nth": 1, "hang": true}, {"on": "open", "nth": 2, "errno": "EIO"}])"));
    int descriptor = -1;
    std::thread opening([&] { descriptor = open("/dev/sda", O_RDONLY | O_NONBLOCK); });
    EXPECT_TRUE(machine.awaitWaiting("/dev/sda", 1, kLong));
    machine.release("/dev/sda");
    opening.join();
    EXPECT_GE(descriptor, 0);
    close(descriptor);
    EXPECT_EQ(open("/dev/sda", O_RDONLY), -1);
    EXPECT_EQ(errno, EIO);
}

TEST(Hang, HeldDeviceAnswersNothing)
{
    sim::Machine machine(disk(kAta));
    const Node node("/dev/sda");
    machine.hold("/dev/sda");
    std::thread asking([&] { send(node, kInquiry); });
    std::thread opening([] { const Node other("/dev/sda"); });
    EXPECT_TRUE(machine.awaitWaiting("/dev/sda", 2, kLong));
    machine.release("/dev/sda");
    asking.join();
    opening.join();
    EXPECT_EQ(send(node, kInquiry).header.status, 0);
}

TEST(Hang, IsNoCancellationPoint)
{
    struct Asking {
        const Node node{"/dev/sda"};
        bool returned = false;
    };
    sim::Machine machine(hangingOn("inquiry"));
    Asking asking;
    pthread_t thread{};
    const auto ask = [](void *argument) -> void * {
        auto &here = *static_cast<Asking *>(argument);
        send(here.node, kInquiry);
        here.returned = true;
        pthread_testcancel();
        return nullptr;
    };
    ASSERT_EQ(pthread_create(&thread, nullptr, ask, &asking), 0);
    ASSERT_TRUE(machine.awaitWaiting("/dev/sda", 1, kLong));
    ASSERT_EQ(pthread_cancel(thread), 0);
    machine.release("/dev/sda");
    void *result = nullptr;
    ASSERT_EQ(pthread_join(thread, &result), 0);
    EXPECT_EQ(result, PTHREAD_CANCELED);
    EXPECT_TRUE(asking.returned); // the cancellation waited for the end of the request
}

} // namespace
