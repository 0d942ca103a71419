// SPDX-License-Identifier: Apache-2.0
// Stops at each point of a pass in turn. Each takes effect soon and leaks nothing.
#include "scenarios/child.h"
#include "scenarios/monitored.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <memory>
#include <ostream>
#include <scsi/scsi_ioctl.h>
#include <sys/ioctl.h>
#include <thread>
#include <unistd.h>
#include <utility>

namespace {

using scenario::await;
using scenario::Server;
using scenario::startThread;
using scenario::stopThread;
using Clock = std::chrono::steady_clock;

// A stop by another client during one of the thread's calls: the thread continues when the cancellation is pending.
class StopMeanwhile {
public:
    StopMeanwhile(broker::Broker &broker, sim::Call kind, unsigned nth)
    {
        sim::atNth(kind, nth, [this, &broker] {
            const unsigned before = sim::cancelsRequested();
            client_ = std::thread([this, &broker] { code_ = stopThread(broker); });
            pending_ = await([before] { return sim::cancelsRequested() > before; });
            begun_ = true;
        });
    }
    ~StopMeanwhile()
    {
        sim::atNth(sim::Call::count, 0, nullptr);
        if (client_.joinable()) {
            client_.join();
        }
    }
    StopMeanwhile(const StopMeanwhile &) = delete;
    StopMeanwhile &operator=(const StopMeanwhile &) = delete;

    bool came() const
    {
        return await([this] { return begun_.load(); }) && pending_;
    }
    // Return value of the method, once it has returned.
    int code()
    {
        client_.join();
        return code_;
    }

private:
    std::thread client_;
    std::atomic<int> code_ = -1;
    std::atomic<bool> begun_ = false;
    std::atomic<bool> pending_ = false;
};

struct Left {
    int64_t blocks, descriptors, segments;
    bool operator==(const Left &) const = default;
};

void PrintTo(const Left &left, std::ostream *out)
{
    *out << left.blocks << " blocks, " << left.descriptors << " descriptors, " << left.segments << " segments";
}

Left leftNow()
{
    return {sim::liveBlocks(), sim::liveDescriptors(), sim::liveSegments()};
}

class StopsDuringPasses : public testing::Test {
protected:
    explicit StopsDuringPasses(const std::string &description) : machine(description)
    {
        EXPECT_TRUE(steps.start(*server));
        everything = scenario::everythingOf(*server);
        EXPECT_EQ(stopThread(*server), 0);
        afterStop = leftNow();
    }

    // Calls of a kind from the start of the thread to the end of its first pass, the sleep after it included.
    unsigned callsOfAPass(sim::Call kind)
    {
        EXPECT_FALSE(scenario::threadRuns(*server)); // initialises: the calls that follow are the thread's
        sim::resetCounts();
        EXPECT_TRUE(steps.start(*server));
        const unsigned made = sim::callsMade(kind);
        EXPECT_EQ(stopThread(*server), 0);
        return made;
    }

    void stopAt(sim::Call kind, unsigned nth)
    {
        EXPECT_FALSE(scenario::threadRuns(*server));
        {
            StopMeanwhile stop(*server, kind, nth);
            ASSERT_EQ(startThread(*server), 0);
            ASSERT_TRUE(stop.came());
            EXPECT_EQ(stop.code(), 0);
        }
        EXPECT_EQ(leftNow(), afterStop);
        const broker::Accounting accounting = server->accounting();
        EXPECT_TRUE(accounting.clean()) << testing::PrintToString(accounting.notes);
    }

    // No lock is held and nothing is half done: the next start works and reports the same machine.
    void expectWorks()
    {
        ASSERT_TRUE(steps.start(*server));
        EXPECT_EQ(scenario::everythingOf(*server), everything);
        EXPECT_EQ(stopThread(*server), 0);
        EXPECT_EQ(leftNow(), afterStop);
    }

    void stopAtEach(sim::Call kind, unsigned step)
    {
        const unsigned calls = callsOfAPass(kind);
        EXPECT_GT(calls, 0U);
        for (unsigned nth = 1; nth <= calls && !HasFatalFailure(); nth += step) {
            SCOPED_TRACE("stopped at call " + std::to_string(nth) + " of " + std::to_string(calls));
            stopAt(kind, nth);
            expectWorks();
        }
        server->stop();
        scenario::expectNothingLeft(*server);
    }

    sim::Machine machine;
    scenario::Steps steps;
    Server server{scenario::inServiceMode()};
    nlohmann::json everything;
    Left afterStop = {};
};

class Cancellation : public StopsDuringPasses, public testing::WithParamInterface<const char *> {
protected:
    Cancellation() : StopsDuringPasses(scenario::exampleMachine(GetParam())) {}
};

TEST_P(Cancellation, AtEachCancellationPointLeaksNothing)
{
    stopAtEach(sim::Call::cancelPoint, 1);
}

TEST_P(Cancellation, RequestedAtAnyOtherCallLeaksNothing)
{
    constexpr unsigned kOfEach = 12;
    for (const sim::Call kind :
         {sim::Call::open, sim::Call::ioctl, sim::Call::stat, sim::Call::segment, sim::Call::write, sim::Call::list}) {
        const unsigned calls = callsOfAPass(kind);
        const unsigned tried = std::min(kOfEach, calls);
        for (unsigned i = 0; i < tried && !HasFatalFailure(); ++i) {
            const unsigned nth = 1 + i * calls / tried;
            SCOPED_TRACE("kind " + std::to_string(static_cast<int>(kind)) + ", call " + std::to_string(nth));
            stopAt(kind, nth);
            expectWorks();
        }
    }
    server->stop();
    scenario::expectNothingLeft(*server);
}

INSTANTIATE_TEST_SUITE_P(Machines, Cancellation, testing::Values("workstation", "ide", "usb", "server"),
                         [](const auto &testInfo) { return std::string(testInfo.param); });

// ---- disks that are switched on for a while ----

struct WatchedDisk {
    const char *node;
    bool scsi; // answers as a SCSI disk does, behind an adapter that identifies it
    bool on;
};

constexpr WatchedDisk kWatched[] = {{"/dev/sda", false, false}, {"/dev/sdb", true, false}, {"/dev/sdc", false, true}};

std::string watchedMachine()
{
    nlohmann::json machine = machines::disks(std::size(kWatched));
    for (size_t i = 0; i < std::size(kWatched); ++i) {
        nlohmann::json &disk = machines::deviceAt(machine, i);
        if (kWatched[i].scsi) {
            disk["vendor"] = "TEST";
            disk["exceptions"] = {{"supported", true}, {"dexcpt", !kWatched[i].on}};
        } else {
            disk["smart"] = {{"enabled", kWatched[i].on}};
        }
    }
    return machines::text(machine);
}

// Whether DEXCPT of the current page 1C (SPC-4) is clear.
bool reportsExceptions(const char *node)
{
    constexpr size_t kPage = 4; // after the header: no block descriptor is requested
    struct {
        unsigned int in, out;
        uint8_t bytes[64];
    } request = {0, sizeof request.bytes, {0x1A, 0x08, 0x1C, 0, sizeof request.bytes, 0}};
    const int fd = ::open(node, O_RDWR | O_CLOEXEC);
    EXPECT_EQ(::ioctl(fd, SCSI_IOCTL_SEND_COMMAND, &request), 0);
    ::close(fd);
    EXPECT_EQ(request.bytes[kPage] & 0x3F, 0x1C);
    return (request.bytes[kPage + 2] & 0x08) == 0;
}

// MODE SELECT(6), and SMART ENABLE and DISABLE OPERATIONS through ATA PASS-THROUGH(16).
bool switchesADisk(const sim::Command &command)
{
    const std::vector<uint8_t> &cdb = command.bytes;
    return (cdb.size() == 6 && cdb[0] == 0x15) ||
           (cdb.size() == 16 && cdb[0] == 0x85 && (cdb[4] == 0xD8 || cdb[4] == 0xD9));
}

class SmartWatch : public StopsDuringPasses {
protected:
    SmartWatch() : StopsDuringPasses(watchedMachine()) {}

    void expectEachAsItWas() const
    {
        for (const WatchedDisk &disk : kWatched) {
            EXPECT_EQ(disk.scsi ? reportsExceptions(disk.node) : machine.smartSwitchedOn(disk.node), disk.on)
                << disk.node;
        }
    }
};

TEST_F(SmartWatch, StopAtAnyCommandRestoresEachDisk)
{
    machine.forgetCommands();
    const unsigned calls = callsOfAPass(sim::Call::ioctl);
    for (const WatchedDisk &disk : kWatched) {
        const std::vector<sim::Command> sent = machine.commands();
        EXPECT_EQ(std::ranges::count_if(
                      sent, [&](const auto &command) { return command.device == disk.node && switchesADisk(command); }),
                  disk.on ? 1 : 2)
            << disk.node;
    }
    expectEachAsItWas();
    for (unsigned nth = 1; nth <= calls && !HasFailure(); ++nth) {
        SCOPED_TRACE("stopped at command " + std::to_string(nth) + " of " + std::to_string(calls));
        stopAt(sim::Call::ioctl, nth);
        expectEachAsItWas();
    }
    server->stop();
    scenario::expectNothingLeft(*server);
}

// ---- disks that hang ----

constexpr double kCommandTimeOut = 6; // seconds, of the commands that go through SG_IO with a time-out

// Three disks that hang in one kind of command; empty: in none.
std::string machineThatHangsIn(const char *kind, bool smartIsOn)
{
    nlohmann::json machine = machines::disks(3);
    machines::forEachDevice(machine, [&](nlohmann::json &disk) {
        disk["smart"]["enabled"] = smartIsOn;
        if (*kind != '\0') {
            disk["faults"] = {{{"on", kind}, {"hangSeconds", 3600}}};
        }
    });
    return machines::text(machine);
}

struct Hang {
    const char *kind;
    bool smartIsOn;
};

void stopDuring(const Hang &hang)
{
    SCOPED_TRACE(std::string("hangs in ") + hang.kind);
    sim::Machine machine(machineThatHangsIn("", hang.smartIsOn));
    scenario::Steps steps;
    Server server(scenario::inServiceMode());
    EXPECT_TRUE(steps.start(*server));
    EXPECT_TRUE(steps.pass()); // the first one whose SMART mode is the stored one
    machine.change(machineThatHangsIn(hang.kind, hang.smartIsOn));
    machine.forgetCommands();
    sim::wakeSleepers();
    size_t sent = 0;
    EXPECT_TRUE(scenario::await([&] { // until no further command is sent: one hangs
        const size_t before = std::exchange(sent, machine.commands().size());
        std::this_thread::sleep_for(std::chrono::milliseconds(400));
        return sent != 0 && before == sent;
    }));
    const auto begin = Clock::now();
    EXPECT_EQ(stopThread(*server), 0);
    const double seconds = std::chrono::duration<double>(Clock::now() - begin).count();
    EXPECT_GT(seconds, kCommandTimeOut / 3) << "nothing has hung";
    EXPECT_LT(seconds, kCommandTimeOut + 1);
    server->stop();
    scenario::expectNothingLeft(*server);
}

TEST(HungDisk, DelaysStopByOneCommandTimeOutAtMost)
{
    // A process for each, so that they hang at the same time.
    std::vector<std::unique_ptr<scenario::Child>> children;
    for (const Hang &hang : {Hang{"identify", true}, Hang{"smartEnable", true}, Hang{"smartStatus", true},
                             Hang{"smartEnable", false}, Hang{"smartStatus", false}, Hang{"smartDisable", false}}) {
        children.push_back(std::make_unique<scenario::Child>([&hang] { stopDuring(hang); }));
    }
    for (const auto &child : children) {
        EXPECT_EQ(child->wait().status, 0);
    }
}

} // namespace
