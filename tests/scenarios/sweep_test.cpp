// SPDX-License-Identifier: Apache-2.0
// Every call that can fail fails once: the 1st, 2nd, 3rd ... call of each kind, until the scenario passes. After each
// failure the client gets a specified answer, the next request works, and nothing is leaked.
#include "scenarios/monitored.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <ostream>

namespace {

using broker::Reply;
using scenario::Server;

constexpr unsigned kMostCalls = 5000; // more calls of one kind mean an error in the scenario

// Answers that a client may get when a call failed.
bool isTold(const Reply &reply)
{
    static const std::vector<std::pair<int, std::string>> told = {{1, "strgInitProvider() Failure!!"},
                                                                  {1, "getClassName() Failure!!"},
                                                                  {1, "strgGetInstance() FAILED"},
                                                                  {1, "getKeyIndex() FAILED"},
                                                                  {1, "CMReturnInstance() FAILED"},
                                                                  {1, "Storage-Update FAILED"},
                                                                  {1, "getArgToInt(MonitorCycle) FAILED"},
                                                                  {1, "strgSetInstance() Failure!!"},
                                                                  {1, "strgFreeInstance() Failure!!"},
                                                                  {1, "getKeyText() FAILED"},
                                                                  {1, "buildDisk() FAILED"},
                                                                  {1, "CMNewObjectPath() FAILED"},
                                                                  {1, "CMReturnObjectPath() FAILED"},
                                                                  {1, "/sys/block cannot be read"},
                                                                  {1, "out of memory"},
                                                                  {7, "NOT_SUPPORTED"},
                                                                  {6, "NotFound Data"},
                                                                  {6, "NotFound DiskID"},
                                                                  {4, "NotFound Index"}};
    if (reply.ok()) {
        return true;
    }
    for (const auto &[rc, message] : told) {
        if (reply.rc == rc &&
            (reply.message == message || reply.message.empty())) { // the message itself may have failed
            return true;
        }
    }
    return reply.rc == 1 && testing::Matches(testing::EndsWith("SetPropInst() FAILED"))(reply.message);
}

// One run: a machine, a provider in a broker, and the replies that the faulted part gave.
struct Run {
    std::unique_ptr<sim::Machine> machine;
    std::unique_ptr<Server> server;
    std::vector<Reply> replies;

    broker::Broker &broker() { return **server; }
    void ask(Reply reply) { replies.push_back(std::move(reply)); }
};

struct Scenario {
    const char *name;
    const char *machine;                // example machine, or "" for three small disks
    std::function<void(Run &)> prepare; // without a fault
    std::function<void(Run &)> act;     // with it
    const char *options = nullptr;      // text of options.inf, where there is one
};

void PrintTo(const Scenario &scenario, std::ostream *out)
{
    *out << scenario.name;
}

void firstRequest(Run &run)
{
    run.ask(run.broker().getInstance("TAV_StorageConfig"));
}

void everyClass(Run &run)
{
    for (const std::string &name : scenario::allClasses()) {
        run.ask(run.broker().enumInstances(name));
    }
    run.ask(run.broker().getInstance("TAV_StorageController", {{"Index", broker::Value::text("1")}}));
}

void everyDisk(Run &run)
{
    const Reply all = run.broker().enumInstances("TAV_StorageDisk");
    run.ask(all);
    run.ask(run.broker().enumInstanceNames("TAV_StorageDisk"));
    const broker::Value *const id = all.instances.empty() ? nullptr : all.instances[0].find("DiskID");
    if (id != nullptr) { // a property that the broker refuses is not there
        run.ask(run.broker().getInstance("TAV_StorageDisk", {{"DiskID", *id}}));
    }
}

void changedMachine(Run &run)
{
    run.machine->change(machines::ofDisks(10));
    run.ask(run.broker().enumInstances("TAV_StorageHardDisk"));
    run.machine->change(machines::ofDisks(2));
    run.ask(run.broker().enumInstances("TAV_StorageHardDisk"));
}

void setting(Run &run)
{
    run.ask(run.broker().invokeMethod("TAV_StorageConfig", "SetMonitorCycle",
                                      {{"MonitorCycle", broker::Value::text("90")}}));
}

void cleanup(Run &run)
{
    run.ask(run.broker().cleanupInstance(true));
    run.ask(run.broker().cleanupMethod(true));
}

void nothing(Run &) {}

void warm(Run &run)
{
    EXPECT_TRUE(run.broker().getInstance("TAV_StorageConfig").ok());
}

// The lines whose cures are in requests, store and segments.
constexpr const char *kCures = "kernel-release\nfirst-devices\nclean-text\nstale-segments\nfair-requests\n";

// Lines that change which disks are asked for what, and by whom.
constexpr const char *kSideBySide = "side-by-side\ndisk-names\ndisk-identity\nsmart-state\n";

const Scenario kScenarios[] = {
    {"FirstRequest", "workstation", nothing, firstRequest},
    {"FirstRequestIde", "ide", nothing, firstRequest},
    {"EveryClass", "workstation", warm, everyClass},
    {"EveryClassIde", "ide", warm, everyClass},
    {"EveryDisk", "", warm, everyDisk, "every-disk\n"},
    {"ChangedMachine", "", warm, changedMachine},
    {"Setting", "workstation", warm, setting},
    {"Cleanup", "workstation", warm, cleanup},
    {"FirstRequestCured", "workstation", nothing, firstRequest, kCures},
    {"EveryClassCured", "workstation", warm, everyClass, kCures},
    {"ChangedMachineCured", "", warm, changedMachine, kCures},
    {"SettingCured", "workstation", warm, setting, kCures},
    {"CleanupCured", "workstation", warm, cleanup, kCures},
};

// What a disk did not answer is asked for again, although the disk is not in use.
const Scenario kChangedMachineAll = {"ChangedMachineAll", "", warm, changedMachine, "all\n"};

// Requests whose collections make threads.
const Scenario kThreadScenarios[] = {
    {"FirstRequestSideBySide", "workstation", nothing, firstRequest, kSideBySide},
    {"EveryClassSideBySide", "workstation", warm, everyClass, kSideBySide},
    {"ChangedMachineSideBySide", "", warm, changedMachine, kSideBySide},
    kChangedMachineAll,
};

struct Fault {
    const char *name;
    // Deliberate: how the kernel's lists are read is chosen once in a process, and the old way is chosen if uname
    // fails. So the provider may report less than the machine has.
    bool decidesForGood;
    std::function<void(broker::Broker &, unsigned nth)> arm; // 0 disarms
    std::function<bool(broker::Broker &)> struck;
};

void PrintTo(const Fault &fault, std::ostream *out)
{
    *out << fault.name;
}

Fault callFault(const char *name, sim::Call kind)
{
    return {name, kind == sim::Call::uname, [kind](broker::Broker &, unsigned nth) { sim::failNth(kind, nth); },
            [](broker::Broker &) { return sim::failureStruck(); }};
}

const Fault kFaults[] = {
    callFault("Allocation", sim::Call::allocate),
    callFault("Open", sim::Call::open),
    callFault("Read", sim::Call::read),
    callFault("Write", sim::Call::write),
    callFault("DirectoryListing", sim::Call::list),
    callFault("Stat", sim::Call::stat),
    callFault("Ioctl", sim::Call::ioctl),
    callFault("Segment", sim::Call::segment),
    callFault("Uname", sim::Call::uname),
    {"BrokerCall", false, [](broker::Broker &broker, unsigned nth) { broker.failCall("*", nth); },
     [](broker::Broker &broker) { return broker.failureStruck(); }},
};

const Fault kThreadFault = callFault("Thread", sim::Call::thread);
const Fault kSocketFault = callFault("Socket", sim::Call::socket);

std::string machineOf(const Scenario &scenario)
{
    const std::string text =
        *scenario.machine == '\0' ? machines::ofDisks(3) : scenario::exampleMachine(scenario.machine);
    if (scenario.options == nullptr) {
        return text;
    }
    nlohmann::json machine = nlohmann::json::parse(text);
    machine["files"]["options.inf"] = scenario.options;
    return machine.dump();
}

// A setting whose call failed may have taken effect or not: both are specified.
void takeSettings(nlohmann::json &end, const nlohmann::json &expected)
{
    const char *const name = "TAV_StorageConfig";
    if (end[name]["instances"].size() == 1) {
        nlohmann::json &cycle = end[name]["instances"][0]["MonitorCycle"];
        EXPECT_THAT(cycle.get<std::string>(), testing::AnyOf("60", "90"));
        cycle = expected[name]["instances"][0]["MonitorCycle"];
    }
}

// Deliberate: the endurance table is read once in a process, so that a failure there leaves the drives without life
// spans; and a disk whose SMART data could not be read counts as switched off and is left so, after which it does not
// report its wear. Both are specified.
void takeLifeSpans(nlohmann::json &end, const nlohmann::json &expected)
{
    const char *const name = "TAV_StorageLifeSpan";
    if (end[name]["message"] != "NotFound Data") {
        ASSERT_EQ(end[name]["instances"].size(), expected[name]["instances"].size());
        for (size_t i = 0; i < end[name]["instances"].size(); ++i) {
            nlohmann::json &level = end[name]["instances"][i]["EnduranceRemaining"];
            const nlohmann::json &whole = expected[name]["instances"][i]["EnduranceRemaining"];
            EXPECT_THAT(level.get<std::string>(), testing::AnyOf("-1", whole.get<std::string>()));
            level = whole;
        }
        EXPECT_EQ(end[name], expected[name]);
    }
    end[name] = expected[name];
}

// Runs the scenario with the nth call failing. Returns false if it made fewer calls: then it passed.
bool runWithFault(const Scenario &scenario, const Fault &fault, unsigned nth, const nlohmann::json &expected)
{
    Run run;
    run.machine = std::make_unique<sim::Machine>(machineOf(scenario));
    run.server = std::make_unique<Server>();
    sim::skipSleeps(true);
    scenario.prepare(run);
    fault.arm(run.broker(), nth);
    scenario.act(run);
    const bool struck = fault.struck(run.broker());
    fault.arm(run.broker(), 0);

    for (const Reply &reply : run.replies) {
        EXPECT_TRUE(isTold(reply)) << "rc " << reply.rc << " \"" << reply.message << "\"";
        if (!struck) {
            EXPECT_TRUE(reply.ok() || reply.message == "NotFound Data") << reply.message;
        }
    }
    nlohmann::json end = scenario::everythingOf(run.broker());
    if (struck && fault.decidesForGood) {
        EXPECT_EQ(end["TAV_StorageConfig"]["rc"], 0);
    } else {
        takeSettings(end, expected);
        if (struck) {
            takeLifeSpans(end, expected);
        }
        EXPECT_EQ(end, expected) << "the next requests work and show the whole machine";
    }
    run.broker().stop();
    scenario::expectNothingLeft(run.broker());
    return struck;
}

// Everything that clients see at the end of a scenario in which nothing fails.
nlohmann::json expectedEnd(const Scenario &scenario)
{
    Run run;
    run.machine = std::make_unique<sim::Machine>(machineOf(scenario));
    run.server = std::make_unique<Server>();
    scenario.prepare(run);
    scenario.act(run);
    const nlohmann::json end = scenario::everythingOf(run.broker());
    run.broker().stop();
    return end;
}

// A long scenario repeats itself: every call of its beginning fails, then a part of the calls, at changing places of
// the repetition. Under sanitizers, which are slow, a smaller part is enough.
unsigned stepAfter(unsigned nth)
{
    constexpr unsigned kBeginning = 150;
    if (sim::allocationsCanFail()) {
        return nth < kBeginning ? 1 : 11;
    }
    return nth < kBeginning ? 7 : 31;
}

class Sweep : public testing::TestWithParam<std::tuple<Scenario, Fault>> {};

TEST_P(Sweep, EachCallMayFailOnce)
{
    const auto &[scenario, fault] = GetParam();
    if (std::string_view(fault.name) == "Allocation" && !sim::allocationsCanFail()) {
        GTEST_SKIP() << "a sanitizer owns the allocator in this build";
    }
    const nlohmann::json expected = expectedEnd(scenario);
    unsigned nth = 1;
    for (; nth < kMostCalls; nth += stepAfter(nth)) {
        SCOPED_TRACE(std::string(scenario.name) + ", " + fault.name + " call " + std::to_string(nth) + " fails");
        if (!runWithFault(scenario, fault, nth, expected)) {
            break;
        }
        if (HasFailure() && nth > 200) {
            FAIL() << "stopped: failures enough";
        }
    }
    EXPECT_LT(nth, kMostCalls);
    RecordProperty("calls", static_cast<int>(nth - 1));
}

constexpr auto kNameOf = [](const auto &testInfo) {
    return std::string(std::get<0>(testInfo.param).name) + std::get<1>(testInfo.param).name;
};

INSTANTIATE_TEST_SUITE_P(All, Sweep, testing::Combine(testing::ValuesIn(kScenarios), testing::ValuesIn(kFaults)),
                         kNameOf);
INSTANTIATE_TEST_SUITE_P(Threads, Sweep,
                         testing::Combine(testing::ValuesIn(kThreadScenarios), testing::Values(kThreadFault)), kNameOf);
INSTANTIATE_TEST_SUITE_P(Disks, Sweep,
                         testing::Combine(testing::Values(kChangedMachineAll),
                                          testing::Values(callFault("Ioctl", sim::Call::ioctl))),
                         kNameOf);

// The monitoring thread with all lines of options.inf, on a machine whose disks are on an adapter each: it receives the
// kernel's events, and asks the disks in threads.
class MonitoredSweep : public testing::TestWithParam<Fault> {
protected:
    static std::string machineOfAdapters()
    {
        nlohmann::json machine = machines::disks(3, 1);
        machine["files"]["options.inf"] = "all\n";
        return machine.dump();
    }

    // A pass, one that an event asks for, and a stop. The thread itself may not start.
    static void monitor(sim::Machine &machine, broker::Broker &broker)
    {
        scenario::Steps steps;
        if (scenario::startThread(broker) != 0) {
            EXPECT_FALSE(scenario::threadRuns(broker));
            return;
        }
        EXPECT_TRUE(sim::awaitSleep(1, 60));
        EXPECT_TRUE(steps.pass());
        machine.uevent("add", "sda");
        EXPECT_TRUE(steps.pass());
        EXPECT_TRUE(steps.pass());
        EXPECT_EQ(scenario::stopThread(broker), 0);
    }

    // What clients see after a pass without a fault, and no change by anything that the thread left.
    static nlohmann::json seenAfterwards(broker::Broker &broker)
    {
        scenario::Steps steps;
        EXPECT_TRUE(steps.start(broker));
        EXPECT_TRUE(steps.pass());
        nlohmann::json seen = scenario::everythingOf(broker);
        EXPECT_EQ(scenario::stopThread(broker), 0);
        return seen;
    }

    // Returns false if there were fewer calls: then nothing failed.
    static bool runWithNth(const Fault &fault, unsigned nth, nlohmann::json &seen)
    {
        sim::Machine machine(machineOfAdapters());
        Server server(scenario::inServiceMode());
        EXPECT_FALSE(scenario::threadRuns(*server)); // builds the store
        const long threads = scenario::threadsNow();
        fault.arm(*server, nth);
        monitor(machine, *server);
        const bool struck = fault.struck(*server);
        fault.arm(*server, 0);
        EXPECT_EQ(machine.ueventListeners(), 0U);
        EXPECT_EQ(scenario::threadsNow(), threads) << "a thread is left";
        seen = seenAfterwards(*server);
        server->stop();
        scenario::expectNothingLeft(*server);
        return struck;
    }
};

TEST_P(MonitoredSweep, EachCallMayFailOnce)
{
    nlohmann::json expected;
    ASSERT_FALSE(runWithNth(GetParam(), 0, expected));
    unsigned nth = 1;
    for (nlohmann::json seen; nth < kMostCalls && !HasFailure(); ++nth) {
        SCOPED_TRACE("call " + std::to_string(nth) + " fails");
        if (!runWithNth(GetParam(), nth, seen)) {
            break;
        }
        EXPECT_EQ(seen, expected);
    }
    EXPECT_GT(nth, 4U) << "the scenario makes such calls";
    RecordProperty("calls", static_cast<int>(nth - 1));
}

INSTANTIATE_TEST_SUITE_P(All, MonitoredSweep, testing::Values(kThreadFault, kSocketFault),
                         [](const auto &testInfo) { return std::string(testInfo.param.name); });

} // namespace
