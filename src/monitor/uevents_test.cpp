// SPDX-License-Identifier: Apache-2.0
#include "monitor/uevents.h"

#include "monitor/monitor.h"
#include "runtime/options.h"
#include "support/store_fixture.h"

#include <algorithm>
#include <cerrno>
#include <thread>

using namespace tavstrg;

namespace {

using testing::Contains;
using testing::HasSubstr;
using testing::Not;

// A message with its zeros written as "|".
std::string message(std::string text)
{
    std::ranges::replace(text, '|', '\0');
    return text;
}

struct MessageCase {
    const char *text;
    bool counts;
};
constexpr MessageCase kMessages[] = {
    {"add@/d/sda|ACTION=add|DEVPATH=/d/sda|SUBSYSTEM=block|MAJOR=8|MINOR=0|DEVNAME=sda|DEVTYPE=disk|SEQNUM=1|", true},
    {"remove@/d/sda|ACTION=remove|SUBSYSTEM=block|DEVTYPE=disk|", true},
    {"add@/d/0:0:0:0|ACTION=add|SUBSYSTEM=scsi|DEVTYPE=scsi_device|", true},
    {"remove@/d|ACTION=remove|SUBSYSTEM=scsi|DEVTYPE=scsi_device", true},
    {"change@/d/sda|ACTION=change|SUBSYSTEM=block|DEVTYPE=disk|RESIZE=1|", true},
    {"change@/d|ACTION=change|SUBSYSTEM=scsi|DEVTYPE=scsi_device|SDEV_UA=CAPACITY_DATA_HAS_CHANGED|", true},
    {"change@/d|ACTION=change|SUBSYSTEM=scsi|DEVTYPE=scsi_device|SDEV_UA=INQUIRY_DATA_HAS_CHANGED|", true},
    // udev, after a node that was open for writing was closed, as by a pass
    {"change@/d/sda|ACTION=change|SUBSYSTEM=block|SYNTH_UUID=0|DEVTYPE=disk|", false},
    {"change@/d|ACTION=change|SUBSYSTEM=scsi|DEVTYPE=scsi_device|SDEV_UA=MODE_PARAMETERS_CHANGED|", false},
    {"add@/d/sda1|ACTION=add|SUBSYSTEM=block|DEVTYPE=partition|", false},
    {"bind@/d|ACTION=bind|SUBSYSTEM=scsi|DEVTYPE=scsi_device|", false},
    {"add@/d|ACTION=add|SUBSYSTEM=scsi|DEVTYPE=scsi_target|", false},
    {"add@/d|ACTION=add|SUBSYSTEM=net|INTERFACE=eth0|", false},
    {"add@/d|ACTION=add|SUBSYSTEM=block|", false},
    {"ACTION=add", false},
    {"|||", false},
    {"", false},
};

TEST(Uevent, DisksThatComeGoOrChangeCallForAPass)
{
    for (const MessageCase &one : kMessages) {
        EXPECT_EQ(callsForPass(message(one.text)), one.counts) << one.text;
    }
}

TEST(WakeTime, WithoutAnEventIsTheWholeSleep)
{
    const WakeTime wake(1000, 60000);
    EXPECT_EQ(wake.left(1000), 60000);
    EXPECT_EQ(wake.left(60999), 1);
    EXPECT_EQ(wake.left(61000), 0);
    EXPECT_EQ(wake.left(99000), 0);
}

TEST(WakeTime, AnEventEndsItWhenItsBurstIsOver)
{
    WakeTime wake(0, 3600000);
    wake.event(10000);
    EXPECT_EQ(wake.left(10000), kBurstQuietMs);
    wake.event(10300);
    EXPECT_EQ(wake.left(10500), 300);
    EXPECT_EQ(wake.left(10800), 0);
}

TEST(WakeTime, EndlessEventsDoNotPutItOff)
{
    WakeTime wake(0, 3600000);
    int64_t now = 0;
    for (; wake.left(now) > 0; now += 100) {
        ASSERT_LE(now, kLongestBurstMs);
        wake.event(now);
    }
    EXPECT_EQ(now, kLongestBurstMs);
}

TEST(WakeTime, AnEventDoesNotLengthenTheSleep)
{
    WakeTime wake(0, 10000);
    wake.event(9900);
    EXPECT_EQ(wake.left(9900), 100);
}

constexpr double kPatience = 60; // seconds

// The monitoring thread, whose sleeps last until they are woken or an event comes.
class Events : public StoreTest {
protected:
    explicit Events(const char *options = "uevents\n", bool refused = false)
    {
        if (options != nullptr) {
            machine.write(kFile, options);
        }
        fillSample(instSt);
        EXPECT_EQ(shmNew(&cInfo, 10, kShmKeyFileBase, instSt, shmSt), 0);
        gst_first = 2;
        gst_SleepSec = 3600;
        g_srvmod = 1;
        sim::holdSleeps(true);
        sim::failNth(sim::Call::socket, refused ? 1 : 0);
        EXPECT_EQ(strgCreateThread(&cInfo), 0);
    }
    ~Events() override
    {
        if (gst_thid != 0) {
            strgExitThread(&cInfo);
        }
        sim::holdSleeps(false);
        sim::failNth(sim::Call::socket, 0);
        machine.remove(kFile);
        takeOptions();
    }

    // Waits for the nth sleep of the thread. A sleep that an event ends is followed by the one of its burst.
    static bool sleeps(unsigned nth) { return sim::awaitSleep(nth, kPatience); }
    // The first pass, and the one after the socket was opened.
    void begin()
    {
        ASSERT_TRUE(sleeps(1)); // the burst of the opening
        sim::wakeSleepers();
        ASSERT_TRUE(sleeps(2));
        ASSERT_EQ(passes(), 2);
    }
    int passes() const
    {
        return static_cast<int>(std::ranges::count(trace->textsOf("strgWatchThread"), "strgCheckConfigChange()"));
    }
    // Sleeps that an event ended; one is that of the opened socket.
    int wokenByEvents() const
    {
        return static_cast<int>(std::ranges::count(trace->textsOf("strgWatchThread"), "- uevent -"));
    }
    void wakeUntil(int pass) const
    {
        while (passes() < pass) {
            sim::wakeSleepers();
            std::this_thread::yield();
        }
    }
    std::vector<std::string> lines() const { return linesOf("strgWatchThread"); }

    static constexpr char kFile[] = "/opt/qlm/tavkit_sa/data/options.inf";
};

class WithoutEvents : public Events {
protected:
    WithoutEvents() : Events(nullptr) {}
};

TEST_F(WithoutEvents, AHotPlugIsSeenAfterTheCycle)
{
    ASSERT_TRUE(sleeps(1));
    EXPECT_EQ(machine.ueventListeners(), 0U);
    machine.change(machineWith(3));
    EXPECT_EQ(sim::sleepsBegun(), 1U);
    EXPECT_EQ(passes(), 1);
    EXPECT_THAT(lines(), Not(Contains(HasSubstr("uevent"))));
}

TEST_F(Events, AHotPlugEndsTheSleep)
{
    begin();
    machine.change(machineWith(3)); // several events, of which the later ones may come in the sleep of the burst
    ASSERT_TRUE(sleeps(3));
    EXPECT_EQ(passes(), 2);
    wakeUntil(4); // the pass before it is complete then
    EXPECT_EQ(wokenByEvents(), 2);
    EXPECT_EQ(recordsNow(instSt[TAV_CID_STRG_HDD]).datNum, 3);
    EXPECT_THAT(lines(), Contains("0 - uevent -"));
}

TEST_F(Events, ThePassThatOpensTheSocketIsFollowedByAnother)
{
    ASSERT_TRUE(sleeps(1));
    EXPECT_EQ(machine.ueventListeners(), 1U);
    EXPECT_EQ(passes(), 1);
    sim::wakeSleepers();
    ASSERT_TRUE(sleeps(2));
    EXPECT_EQ(passes(), 2) << "a disk may have come before the socket was open";
    sim::wakeSleepers(); // as after the cycle
    ASSERT_TRUE(sleeps(3));
    EXPECT_EQ(passes(), 3);
}

TEST_F(Events, OtherEventsOnlyInterruptIt)
{
    begin();
    machine.uevent("change", "sda", 20);
    sim::sendUevent(message("add@/d|ACTION=add|SUBSYSTEM=block|DEVTYPE=disk|"), {4711, 1, 0}); // no kernel
    sim::sendUevent("nonsense");
    ASSERT_TRUE(sleeps(3));
    EXPECT_EQ(passes(), 2);
}

TEST_F(Events, ABurstGivesOnePass)
{
    begin();
    for (int i = 0; i < 50; ++i) {
        machine.uevent("remove", "sda");
        machine.uevent("add", "sda");
    }
    // Sleeps of the burst, each ended by further events, then one that nothing ends.
    ASSERT_TRUE(sleeps(3));
    wakeUntil(3);
    EXPECT_EQ(wokenByEvents(), 2);
    EXPECT_EQ(passes(), 3);
}

TEST_F(Events, OneThatCameDuringAPassCounts)
{
    begin();
    sim::atNth(sim::Call::uname, 1, [this] { machine.uevent("add", "sda"); });
    wakeUntil(4);
    EXPECT_EQ(wokenByEvents(), 2);
}

TEST_F(Events, LostMessagesCountAsAnEvent)
{
    begin();
    sim::atNth(sim::Call::uname, 1, [this] { machine.uevent("change", "sda", 20000); });
    wakeUntil(4);
    EXPECT_EQ(wokenByEvents(), 2);
}

TEST_F(Events, AStopDuringTheSleepClosesTheSocket)
{
    begin();
    strgExitThread(&cInfo);
    EXPECT_EQ(machine.ueventListeners(), 0U);
    EXPECT_EQ(sim::liveDescriptors(), 0);
    EXPECT_EQ(gst_thid, 0U);
}

TEST_F(Events, AStopDuringTheBurstClosesTheSocket)
{
    ASSERT_TRUE(sleeps(1));
    strgExitThread(&cInfo);
    EXPECT_EQ(machine.ueventListeners(), 0U);
    EXPECT_EQ(gst_thid, 0U);
}

TEST_F(Events, SwitchedOffTheSocketIsClosed)
{
    begin();
    machine.remove(kFile);
    sim::wakeSleepers();
    ASSERT_TRUE(sleeps(3));
    EXPECT_EQ(machine.ueventListeners(), 0U);
}

class EventsRefused : public Events {
protected:
    EventsRefused() : Events("uevents\n", true) {}
};

TEST_F(EventsRefused, WithoutASocketTheThreadSleepsPlainly)
{
    ASSERT_TRUE(sleeps(1));
    EXPECT_EQ(machine.ueventListeners(), 0U);
    EXPECT_THAT(lines(), Contains("3 uevents cannot be received: errno=[" + std::to_string(EMFILE) + "]"));
    sim::wakeSleepers();
    ASSERT_TRUE(sleeps(2));
    EXPECT_EQ(passes(), 2);
    EXPECT_EQ(machine.ueventListeners(), 1U) << "tried again";
}

TEST(UeventSocket, OneThatFailsLeavesTheRestOfTheSleep)
{
    const sim::Machine machine("{}");
    UeventSocket socket;
    const int next = ::dup(STDIN_FILENO); // the number that the socket gets
    ::close(next);
    ASSERT_EQ(socket.open(), 0);
    unsigned left = 0;
    EXPECT_EQ(socket.sleep(1, left), Slept::untilEvent) << "what was before it was opened is not known";
    ASSERT_EQ(::close(next), 0);
    EXPECT_EQ(socket.sleep(3600, left), Slept::failed);
    EXPECT_EQ(left, 3600U);
    EXPECT_FALSE(socket.isOpen());
}

} // namespace
