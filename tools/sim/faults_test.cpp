// SPDX-License-Identifier: Apache-2.0
#include "support/sim_device.h"

#include <chrono>
#include <functional>
#include <linux/fs.h>
#include <linux/hdreg.h>
#include <thread>

namespace {

using namespace device_test;

TEST(Faults, NthRequestOfAKindFails)
{
    const sim::Machine machine(disk(kAta + R"(, "faults": [{"on": "inquiry", "nth": 2, "errno": "ENXIO"}])"));
    const Node node("/dev/sda");
    EXPECT_EQ(send(node, kInquiry).ret, 0);
    EXPECT_EQ(send(node, kIdentify).ret, 0);
    const Result second = send(node, kInquiry);
    EXPECT_EQ(second.ret, -1);
    EXPECT_EQ(second.error, ENXIO);
    EXPECT_EQ(send(node, kInquiry).ret, 0);
}

TEST(Faults, TransportStatusIsReported)
{
    const sim::Machine machine(disk(kAta + R"(, "faults": [{"on": "inquiry", "hostStatus": 3},
        {"on": "smartStatus", "driverStatus": 6}, {"on": "identify", "sense": "70 00 02 00 00 00 00 0a 00 00 00 00 3a"}])"));
    const Node node("/dev/sda");
    EXPECT_EQ(send(node, kInquiry).header.host_status, 3);
    EXPECT_EQ(send(node, kSmartStatus, SG_DXFER_NONE).header.driver_status, 6);
    const Result identify = send(node, kIdentify);
    EXPECT_EQ(identify.header.status, 2);
    EXPECT_EQ(identify.senseBytes().size(), 13U);
    EXPECT_EQ(identify.sense[12], 0x3A);
}

TEST(Faults, OtherIoctlsCanFail)
{
    const sim::Machine machine(
        disk(kAta + R"(, "faults": [{"on": "identity", "errno": "EIO"}, {"on": "size", "every": 2, "errno": 5}])"));
    const Node node("/dev/sda");
    std::array<char, 512> identity{};
    EXPECT_EQ(ioctl(node.fd, HDIO_GET_IDENTITY, identity.data()), -1);
    uint64_t bytes = 0;
    EXPECT_EQ(ioctl(node.fd, BLKGETSIZE64, &bytes), 0);
    EXPECT_EQ(ioctl(node.fd, BLKGETSIZE64, &bytes), -1);
    EXPECT_EQ(ioctl(node.fd, BLKGETSIZE64, &bytes), 0);
}

TEST(Faults, SameSeedGivesTheSameFaults)
{
    const auto run = [](const char *seed) {
        std::string json = disk(kAta + R"(, "faults": [{"on": "sectorSize", "probability": 0.5, "errno": "EIO"}])");
        json.insert(1, std::string("\"seed\": ") + seed + ", ");
        const sim::Machine machine(json);
        const Node node("/dev/sda");
        std::string outcome;
        for (int i = 0; i < 64; ++i) {
            int size = 0;
            outcome += ioctl(node.fd, BLKSSZGET, &size) == 0 ? '.' : 'x';
        }
        return outcome;
    };
    const std::string first = run("1");
    EXPECT_EQ(first, run("1"));
    EXPECT_NE(first, run("2"));
    EXPECT_GT(std::count(first.begin(), first.end(), 'x'), 10);
    EXPECT_GT(std::count(first.begin(), first.end(), '.'), 10);
}

double secondsOf(const std::function<void()> &action)
{
    const auto start = std::chrono::steady_clock::now();
    action();
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

TEST(Faults, DelaysAddUp)
{
    const sim::Machine machine(disk(kAta + R"(, "delayMs": 20, "faults": [{"on": "inquiry", "delayMs": 30}])"));
    const Node node("/dev/sda");
    EXPECT_GE(secondsOf([&] { send(node, kInquiry); }), 0.05);
    EXPECT_GE(secondsOf([&] { send(node, kIdentify); }), 0.02);
}

TEST(Faults, HangEndsWithTheCommandsTimeout)
{
    const sim::Machine machine(disk(kAta + R"(, "faults": [{"on": "inquiry", "hangSeconds": 60}])"));
    const Node node("/dev/sda");
    Result result;
    EXPECT_LT(secondsOf([&] { result = send(node, kInquiry, SG_DXFER_FROM_DEV, 64, {}, 50); }), 10);
    EXPECT_EQ(result.ret, 0);
    EXPECT_EQ(result.header.host_status, 3);
}

TEST(Faults, HangEndsWhenItsDeviceIsRemoved)
{
    sim::Machine machine(disk(kAta + R"(, "faults": [{"on": "sectorSize", "hangSeconds": 60}])"));
    const Node node("/dev/sda");
    int error = 0;
    std::thread waiting([&] {
        int size = 0;
        error = ioctl(node.fd, BLKSSZGET, &size) == -1 ? errno : 0;
    });
    EXPECT_LT(secondsOf([&] {
                  while (machine.commands().empty()) {
                      std::this_thread::yield();
                  }
                  machine.change("{}");
                  waiting.join();
              }),
              30);
    EXPECT_EQ(error, ENODEV);
}

} // namespace
