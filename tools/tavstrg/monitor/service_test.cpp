// SPDX-License-Identifier: Apache-2.0
#include "tavstrg/monitor/service.h"

#include "support/datagrams.h"
#include "support/tool_fixture.h"

#include <gmock/gmock.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <thread>

namespace {

using namespace std::chrono_literals;
using testing::AllOf;
using testing::HasSubstr;
using testing::Not;
using tool::monitor::pollTimeout;
using tool::monitor::Standing;
using tool::monitor::statusLine;
using tool::testing_support::contentOf;
using tool::testing_support::Datagrams;
using tool::testing_support::Finished;
using tool::testing_support::kTool;
using tool::testing_support::Running;

TEST(MonitorSchedule, WakesAtTheFirstTime)
{
    EXPECT_EQ(pollTimeout(100, {}), -1);
    EXPECT_EQ(pollTimeout(100, {std::nullopt, 400, 300, std::nullopt}), 200);
    EXPECT_EQ(pollTimeout(100, {50}), 0);
    EXPECT_EQ(pollTimeout(0, {int64_t{1} << 40}), INT_MAX);
}

TEST(MonitorStatus, IsOneLine)
{
    EXPECT_EQ(statusLine({}), "no pass has succeeded yet");
    EXPECT_EQ(statusLine({"2 disks: 2 good", true, 0.25, 0, {}}), "2 disks: 2 good; the last pass took 0.2 s");
    EXPECT_EQ(statusLine({"2 disks: 2 good", false, 0.25, 2, {"/x: No space\nmore"}}),
              "/x: No space; 2 disks: 2 good; the last pass failed after 0.2 s; 2 events to be delivered");
}

// The built tool as a service on a simulated machine, with sockets of the test as journald and the manager.
class MonitorService : public tool::testing_support::ToolTest {
protected:
    void SetUp() override
    {
        ToolTest::SetUp();
        std::filesystem::create_directory(directory_ / "machine"); // watched by the service
        std::filesystem::create_directory(directory_ / "hooks");
        chmod((directory_ / "hooks").c_str(), 0755);
        machine({disk(0), disk(1)});
        configure();
    }
    std::string path(const std::string &name) const { return (directory_ / name).string(); }
    static std::string disk(int id, const std::string &more = "")
    {
        const std::string number = std::to_string(id);
        return R"({"id": )" + number + R"(, "ata": true, "model": "DISK", "serial": "SER-)" + number +
               R"(", "sectors": 16065000)" + (more.empty() ? "" : ", ") + more + "}";
    }
    // Replaces the machine, in one step.
    void machine(const std::vector<std::string> &disks) const
    {
        std::string text;
        for (const std::string &one : disks) {
            text += (text.empty() ? "" : ",") + one;
        }
        write("new.json", R"({"hosts": [{"number": 0, "driver": "ahci", "devices": [)" + text + "]}]}");
        std::filesystem::rename(path("new.json"), path("machine/m.json"));
    }
    void configure(const std::string &more = "") const
    {
        write("monitor.conf", "cycle = 86400\nstate = " + path("state") + "\njournal = " + path("journal") +
                                  "\nhooks = " + path("hooks") + "\nlines = " + path("events") +
                                  "\nmetrics = " + path("disks.prom") + "\n" + more);
    }
    void hook(const std::string &name, const std::string &text) const
    {
        chmod(write("hooks/" + name, "#!/bin/sh\n" + text).c_str(), 0755);
    }
    std::vector<std::string> words(const std::vector<std::string> &more = {}) const
    {
        std::vector<std::string> all = {kTool,     "--machine", path("machine/m.json"),
                                        "monitor", "--config",  path("monitor.conf")};
        all.insert(all.end(), more.begin(), more.end());
        return all;
    }
    Running start(const std::vector<std::string> &variables = {}) const
    {
        std::vector<std::string> all = environment();
        all.push_back("NOTIFY_SOCKET=" + path("notify"));
        all.insert(all.end(), variables.begin(), variables.end());
        return Running(words(), all);
    }
    Finished once() const { return tool::testing_support::runProgram(words({"--once"}), environment()); }
    static Finished stop(Running &service)
    {
        service.send(SIGTERM);
        return service.finish();
    }
    // Further passes, until all is delivered.
    static void settle(const Running &service, Datagrams &notify)
    {
        std::string status;
        do {
            service.send(SIGHUP);
            notify.await("RELOADING=1");
            notify.await(kPassed); // of the reload
            status = notify.await(kPassed);
        } while (status.find("to be delivered") != std::string::npos);
    }
    size_t lineCount() const
    {
        if (!std::filesystem::exists(path("events"))) {
            return 0;
        }
        const std::string text = contentOf(path("events"));
        return static_cast<size_t>(std::count(text.begin(), text.end(), '\n'));
    }
    static constexpr const char *kFails = R"("smart": {"failing": true})";
    static constexpr const char *kPassed = "the last pass took";
};

TEST_F(MonitorService, SaysWhenItIsReadyHowItIsAndWhenItStops)
{
    Datagrams notify(path("notify"));
    Running service = start();
    EXPECT_THAT(notify.next(), HasSubstr("READY=1\nSTATUS="));
    EXPECT_THAT(notify.await(kPassed), HasSubstr("STATUS=2 disks: 2 good; the last pass took "));
    const Finished finished = stop(service);
    EXPECT_EQ(notify.await("STOPPING=1"), "STOPPING=1");
    EXPECT_EQ(finished.status, 0);
    EXPECT_EQ(finished.out + finished.err, "");
}

TEST_F(MonitorService, EventReachesEveryRouteOnceAndTheMetrics)
{
    hook("a", "env > " + path("hooked"));
    Datagrams notify(path("notify"));
    Datagrams journal(path("journal"));
    Running service = start();
    notify.await(kPassed);
    EXPECT_TRUE(journal.all().empty()) << "the disks that are there are no news";
    machine({disk(0), disk(1, kFails)});
    service.send(SIGHUP);
    const std::string entry = journal.next();
    EXPECT_THAT(entry, AllOf(HasSubstr("\nMESSAGE_ID=eaa245eef48e4ca5af6a57642a8f917c\n"),
                             HasSubstr("\nTAVSTRG_DISK_SERIAL=SER-1\n"), HasSubstr("\nTAVSTRG_DISK_NAME=sdb\n"),
                             HasSubstr("\nTAVSTRG_KIND=failing\n"), HasSubstr("\nTAVSTRG_EVENT=1\n")));
    EXPECT_THAT(notify.await("1 failing"), HasSubstr("2 disks: 1 failing, 1 good"));
    EXPECT_THAT(contentOf(path("events")), HasSubstr(R"("kind":"failing")"));
    EXPECT_THAT(contentOf(path("disks.prom")), HasSubstr(R"(name="sdb")"));
    settle(service, notify);
    stop(service);
    EXPECT_THAT(contentOf(path("hooked")), HasSubstr("TAVSTRG_DISK_SERIAL=SER-1\n"));
    Running again = start();
    notify.await(kPassed);
    stop(again);
    EXPECT_TRUE(journal.all().empty());
    EXPECT_EQ(lineCount(), 1U);
}

TEST_F(MonitorService, DiskThatComesBeginsAPass)
{
    Datagrams notify(path("notify"));
    Datagrams journal(path("journal"));
    Running service = start();
    notify.await(kPassed);
    machine({disk(0), disk(1), disk(2)});
    EXPECT_THAT(journal.next(), HasSubstr("MESSAGE=sdc, serial SER-2: added\n"));
    machine({disk(0)});
    EXPECT_THAT(journal.next(), HasSubstr("MESSAGE=sdb, serial SER-1: removed\n"));
    EXPECT_THAT(journal.next(), HasSubstr("MESSAGE=sdc, serial SER-2: removed\n"));
    EXPECT_EQ(stop(service).status, 0);
}

// The first child of a process, once it has one; 0 if it has none in time.
pid_t awaitChild(pid_t process)
{
    const std::string number = std::to_string(process);
    for (int i = 0; i < 3000; ++i) {
        std::ifstream file("/proc/" + number + "/task/" + number + "/children");
        if (pid_t child = 0; file >> child) {
            return child;
        }
        std::this_thread::sleep_for(10ms);
    }
    return 0;
}

TEST_F(MonitorService, StopsAtOnceWhileADiskHangs)
{
    machine({disk(0), disk(1, R"("faults": [{"on": "any", "hang": true}])")});
    Datagrams notify(path("notify"));
    Running service = start();
    notify.await("READY=1");
    ASSERT_NE(awaitChild(service.pid()), 0) << "no process for the pass";
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_EQ(stop(service).status, 0);
    EXPECT_LT(std::chrono::steady_clock::now() - begin, 5s) << "the disk has 15 seconds";
}

TEST_F(MonitorService, HookThatHangsDelaysNeitherAPassNorAnotherRoute)
{
    hook("a", "echo $$ > " + path("hooked") + "\nsleep 1000");
    Datagrams notify(path("notify"));
    Datagrams journal(path("journal"));
    Running service = start();
    notify.await(kPassed);
    machine({disk(0), disk(1, kFails)});
    service.send(SIGHUP);
    EXPECT_THAT(journal.next(), HasSubstr("\nTAVSTRG_EVENT=1\n"));
    machine({disk(0, kFails), disk(1, kFails)});
    service.send(SIGHUP);
    EXPECT_THAT(journal.next(), HasSubstr("\nTAVSTRG_EVENT=2\n"));
    EXPECT_THAT(notify.await("2 failing"), HasSubstr("2 events to be delivered"));
    EXPECT_EQ(lineCount(), 2U);
    EXPECT_EQ(stop(service).status, 0);
}

TEST_F(MonitorService, EventOfAKilledHookIsRepeatedAndSaysSo)
{
    hook("a", "echo \"$TAVSTRG_EVENT$TAVSTRG_REPEATED\" >> " + path("hooked") + "\nsleep 1000");
    machine({disk(0, kFails), disk(1)});
    Datagrams notify(path("notify"));
    Datagrams journal(path("journal"));
    for (int i = 0; i < 2; ++i) {
        Running service = start();
        for (int tries = 0; tries < 3000 && (!std::filesystem::exists(path("hooked")) ||
                                             std::filesystem::file_size(path("hooked")) < (i == 0 ? 2U : 5U));
             ++tries) {
            std::this_thread::sleep_for(10ms);
        }
        service.send(SIGKILL);
        service.finish();
    }
    EXPECT_EQ(contentOf(path("hooked")), "1\n11\n");
    EXPECT_THAT(journal.all(), testing::SizeIs(1)) << "the journal has had it";
    EXPECT_EQ(lineCount(), 1U);
}

TEST_F(MonitorService, ReloadTakesAGoodConfigurationAndLeavesABadOne)
{
    Datagrams notify(path("notify"));
    Datagrams journal(path("journal"));
    Running service = start();
    notify.await(kPassed);
    write("monitor.conf", "cycle = 60\nroutes = all\n");
    service.send(SIGHUP);
    EXPECT_TRUE(service.says("monitor.conf:2: unknown name"));
    EXPECT_TRUE(service.says("The configuration stays as it was"));
    EXPECT_THAT(notify.await("RELOADING=1"), HasSubstr("\nMONOTONIC_USEC="));
    EXPECT_EQ(notify.next(), "READY=1");
    EXPECT_THAT(notify.next(), HasSubstr("monitor.conf:2: unknown name"));
    configure();
    write("monitor.conf", contentOf(path("monitor.conf")) + "lines-kilobytes = 16\n");
    machine({disk(0), disk(1, kFails)});
    service.send(SIGHUP);
    EXPECT_THAT(journal.next(), HasSubstr("\nTAVSTRG_EVENT=1\n"));
    EXPECT_THAT(notify.await("1 failing"), Not(HasSubstr("unknown name")));
    const Finished finished = stop(service);
    EXPECT_EQ(std::count(finished.err.begin(), finished.err.end(), '\n'), 2) << finished.err;
}

TEST_F(MonitorService, EventWaitsForAJournalThatIsAway)
{
    machine({disk(0), disk(1, kFails)});
    Datagrams notify(path("notify"));
    Running service = start();
    EXPECT_THAT(notify.await(kPassed),
                AllOf(HasSubstr("journal: No such file or directory"), HasSubstr("1 event to be delivered")));
    Datagrams journal(path("journal"));
    service.send(SIGHUP); // does not wait a minute
    const std::string entry = journal.next();
    EXPECT_THAT(entry, AllOf(HasSubstr("\nTAVSTRG_EVENT=1\n"), Not(HasSubstr("REPEATED"))));
    EXPECT_EQ(stop(service).status, 0);
}

TEST_F(MonitorService, EventThatWaitedAtARestartIsNotRepeatedUnmarked)
{
    machine({disk(0), disk(1, kFails)});
    Datagrams notify(path("notify"));
    Running without = start();
    notify.await("1 event to be delivered");
    stop(without);
    Datagrams journal(path("journal"));
    Running with = start();
    EXPECT_THAT(journal.next(), AllOf(HasSubstr("\nTAVSTRG_EVENT=1\n"), Not(HasSubstr("REPEATED"))));
    with.send(SIGKILL);
    with.finish();
    notify.all();
    Running again = start();
    notify.await(kPassed);
    stop(again);
    EXPECT_THAT(journal.all(), testing::Each(HasSubstr("TAVSTRG_REPEATED=1")))
        << "killed in the moment of the delivery";
}

TEST_F(MonitorService, MetricsThatAreSwitchedOffAreRemoved)
{
    Datagrams notify(path("notify"));
    Running service = start();
    notify.await(kPassed);
    ASSERT_TRUE(std::filesystem::exists(path("disks.prom")));
    std::string text = contentOf(path("monitor.conf"));
    text.replace(text.find("disks.prom"), 10, "other.prom");
    write("monitor.conf", text);
    service.send(SIGHUP);
    notify.await("RELOADING=1");
    notify.await("READY=1");
    EXPECT_FALSE(std::filesystem::exists(path("disks.prom")));
    stop(service);
}

TEST_F(MonitorService, WatchdogIsNotFedWhileTheServiceHangs)
{
    Datagrams notify(path("notify"));
    Running service = start({"WATCHDOG_USEC=200000"});
    EXPECT_NE(notify.await("WATCHDOG=1"), "");
    EXPECT_NE(notify.await("WATCHDOG=1"), "");
    service.send(SIGSTOP);
    std::this_thread::sleep_for(50ms); // what it was about to send
    notify.all();
    std::this_thread::sleep_for(300ms);
    EXPECT_TRUE(notify.all().empty());
    service.send(SIGCONT);
    EXPECT_NE(notify.await("WATCHDOG=1"), "");
    EXPECT_EQ(stop(service).status, 0);
}

TEST_F(MonitorService, SecondOneWithTheSameDirectoryIsRefused)
{
    Datagrams notify(path("notify"));
    Running service = start();
    notify.await("READY=1");
    const Finished second = once();
    EXPECT_EQ(second.status, 1);
    EXPECT_THAT(second.err, HasSubstr("another tavstrg monitor uses this directory"));
    stop(service);
    EXPECT_EQ(once().status, 0);
}

TEST_F(MonitorService, OnceIsOnePassWithItsHooks)
{
    hook("a", "echo $TAVSTRG_KIND > " + path("hooked"));
    machine({disk(0), disk(1, kFails)});
    const Finished finished = once();
    EXPECT_EQ(finished.status, 0);
    EXPECT_THAT(finished.out, HasSubstr("2 disks: 1 failing, 1 good; the last pass took "));
    EXPECT_EQ(contentOf(path("hooked")), "failing\n");
    EXPECT_TRUE(std::filesystem::is_empty(directory_ / "tmp"));
}

TEST_F(MonitorService, CheckNamesWhatIsWrong)
{
    const auto check = [this] { return tool::testing_support::runProgram(words({"--check"}), environment()); };
    EXPECT_EQ(check().status, 0);
    chmod(write("hooks/plain", "#!/bin/sh\n").c_str(), 0644);
    EXPECT_THAT(check().err, HasSubstr("hooks/plain: is not executable; it is not run"));
    configure("cycle = 60\n");
    const Finished twice = check();
    EXPECT_EQ(twice.status, 1);
    EXPECT_THAT(twice.err, HasSubstr("monitor.conf:7: cycle is set in line 1 already"));
    EXPECT_EQ(once().status, 1);
    EXPECT_FALSE(std::filesystem::exists(path("state"))) << "a check makes nothing";
}

TEST_F(MonitorService, EventReachesTheAgentWhenItsLibrariesAreThere)
{
    machine({disk(0), disk(1, kFails)});
    configure("agent = yes\n");
    EXPECT_EQ(once().status, 0);
    EXPECT_THAT(contentOf(path("state/monitor.state")), HasSubstr("event wddw "))
        << "neither the journal nor the agent is there";
    write("machine/agent.json", R"({"agent": {"libraries": true}})");
    std::vector<std::string> variables = environment();
    variables.insert(variables.end(), {"TAVALERT_FILE=" + path("alerts"), "TAVALERT_QUIET=1", "TAVSTRG_KIND=failing",
                                       "TAVSTRG_EVENT=17", "TAVSTRG_DISK_SERIAL=SER-1"});
    const Finished sent = tool::testing_support::runProgram(
        {kTool, "--machine", path("machine/agent.json"), "monitor", "--send-event"}, variables);
    EXPECT_EQ(sent.status, 0) << sent.err;
    EXPECT_THAT(contentOf(path("alerts")),
                AllOf(HasSubstr("0x80040837"), HasSubstr("Serial Number : SER-1"), HasSubstr("Event : 17")));
}

// Times that threads of a process have gone to sleep: each was awake before.
unsigned long sleepsOf(pid_t process)
{
    unsigned long sleeps = 0;
    for (const auto &task : std::filesystem::directory_iterator("/proc/" + std::to_string(process) + "/task")) {
        std::ifstream status(task.path() / "status");
        for (std::string word; status >> word;) {
            if (word == "voluntary_ctxt_switches:") {
                unsigned long number = 0;
                status >> number;
                sleeps += number;
            }
        }
    }
    return sleeps;
}

TEST_F(MonitorService, DoesNotWakeUpBetweenPasses)
{
    std::vector<std::string> disks;
    for (int id = 0; id < 24; ++id) {
        disks.push_back(disk(id));
    }
    machine(disks);
    Datagrams notify(path("notify"));
    Running service = start();
    EXPECT_THAT(notify.await(kPassed), HasSubstr("STATUS=24 disks: 24 good"));
    bool slept = false;
    for (int tries = 0; tries < 20 && !slept; ++tries) { // on a busy machine the end of the first pass takes its time
        const unsigned long before = sleepsOf(service.pid());
        std::this_thread::sleep_for(800ms);
        slept = before != 0 && sleepsOf(service.pid()) == before;
    }
    EXPECT_TRUE(slept) << sleepsOf(service.pid()) << " times it went to sleep";
    EXPECT_EQ(stop(service).status, 0);
}

// ---- a state directory that cannot be written ----

// Runs the tool where the state directory is a file system of its own, with these options of mount. Status 77: that is
// not permitted here.
Finished runMounted(const std::string &directory, const std::vector<std::string> &words,
                    const std::vector<std::string> &environment, const std::string &prepare)
{
    std::string command = "unshare -m true 2>/dev/null || exit 77; exec unshare -m sh -c '"
                          "mount -t tmpfs -o size=16k tavstrg \"$0\" || exit 77; " +
                          prepare + "; exec \"$@\"' " + directory;
    for (const std::string &word : words) {
        command += " '" + word + "'";
    }
    return tool::testing_support::runProgram({"/bin/sh", "-c", command}, environment);
}

TEST_F(MonitorService, ReadOnlyOrFullStateDirectoryDoesNotStopIt)
{
    machine({disk(0), disk(1, kFails)});
    std::filesystem::create_directory(path("state"));
    std::string text = contentOf(path("monitor.conf"));
    text.replace(text.find("disks.prom"), 10, "state/disks.prom");
    write("monitor.conf", text);
    const std::string full = "head -c 16384 /dev/zero > \"$0\"/ballast 2>/dev/null";
    for (const std::string &prepare : {std::string("mount -o remount,ro \"$0\""), full}) {
        std::filesystem::remove(path("events"));
        const Finished finished = runMounted(path("state"), words({"--once"}), environment(), prepare);
        if (finished.status == 77) {
            GTEST_SKIP() << "no file systems may be mounted here";
        }
        EXPECT_EQ(finished.status, 0) << finished.err;
        EXPECT_THAT(finished.err, HasSubstr("state cannot be written: "));
        EXPECT_EQ(finished.err.find("restart the service") != std::string::npos, prepare != full) << finished.err;
        EXPECT_EQ(lineCount(), 1U);
    }
}

} // namespace
