// SPDX-License-Identifier: Apache-2.0
// The phase of the monitoring service: with the capabilities of its unit on the real kernel, and disks that come and
// go.
#include "support/datagrams.h"
#include "vm/checks.h"
#include "vm/facts.h"
#include "vm/session.h"

#include <nlohmann/json.hpp>

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <linux/capability.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace vm {
namespace {

using Json = nlohmann::json;
using tool::testing_support::Datagrams;

const char *const kLines = "/tmp/service/events";
const char *const kMetrics = "/tmp/service/disks.prom";
const char *const kConfig = "/tmp/service/monitor.conf";
const char *const kNotify = "/tmp/service/notify";
constexpr unsigned kUnit[] = {CAP_SYS_RAWIO, CAP_SYS_ADMIN, CAP_DAC_READ_SEARCH}; // CapabilityBoundingSet of the unit
constexpr unsigned kAll = ~0U;
constexpr int kReports = 100;
constexpr size_t kDisks = 24;
constexpr long kMostKilobytes = 6144;

// Keeps the capabilities of the unit but one.
void dropCapabilities(unsigned without)
{
    unsigned kept = 0;
    for (const unsigned capability : kUnit) {
        kept |= capability == without ? 0U : 1U << capability;
    }
    for (unsigned capability = 0; capability <= CAP_LAST_CAP; ++capability) {
        if (capability >= 32 || (kept & 1U << capability) == 0) {
            prctl(PR_CAPBSET_DROP, capability);
        }
    }
    __user_cap_header_struct head{_LINUX_CAPABILITY_VERSION_3, 0};
    __user_cap_data_struct data[2] = {{kept, kept, 0}, {0, 0, 0}};
    syscall(SYS_capset, &head, data);
    prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0);
}

// Starts a shell command with the rights of the unit but one of them; kAll: with all of the unit.
pid_t startRestricted(const std::string &command, unsigned without)
{
    const pid_t process = fork();
    if (process == 0) {
        dropCapabilities(without);
        execl("/bin/sh", "sh", "-c", command.c_str(), nullptr);
        _exit(127);
    }
    return process;
}

int statusOf(pid_t process)
{
    int status = 0;
    waitpid(process, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

Json disksIn(const std::string &file)
{
    std::ifstream stream(file);
    const Json json = Json::parse(stream, nullptr, false);
    return json.is_discarded() ? Json::array() : json.value("disks", Json::array());
}

// State of health by node: all, or of one protocol.
std::string states(const Json &disks, const std::string &protocol = "")
{
    std::string text;
    for (const Json &disk : disks) {
        if (protocol.empty() || disk["protocol"] == protocol) {
            text += disk["node"].get<std::string>() + " " + disk["health"]["state"].get<std::string>() + ", ";
        }
    }
    return text;
}

// Why the disk of a node is as it is.
std::string reasonOf(const Json &disks, const std::string &node)
{
    for (const Json &disk : disks) {
        if (disk["node"] == node) {
            return disk["health"].value("reason", "");
        }
    }
    return "not in the list";
}

bool allUnknown(const Json &disks, const std::string &protocol)
{
    bool found = false;
    for (const Json &disk : disks) {
        if (disk["protocol"] == protocol && disk["health"]["reason"] != "not permitted to ask; root is") {
            return false;
        }
        found = found || disk["protocol"] == protocol;
    }
    return found;
}

// One of the nodes is another user's, as rules of udev may have it.
void rightsOfTheUnit()
{
    constexpr uid_t kSomebody = 65534;
    const std::string node = "/dev/" + diskAt(kPlugged);
    check("a node has another owner", true, chown(node.c_str(), kSomebody, kSomebody) == 0);
    const std::string list = "/test/bin/tavstrg --json disks >/tmp/service/disks.json 2>/dev/null";
    const Json asRoot = Json::parse(outputOf("/test/bin/tavstrg --json disks"), nullptr, false);
    statusOf(startRestricted(list, kAll));
    check("the rights of the unit are enough", states(asRoot.value("disks", Json::array())),
          states(disksIn("/tmp/service/disks.json")));
    statusOf(startRestricted(list, CAP_SYS_RAWIO));
    check("without CAP_SYS_RAWIO no ATA disk is asked", true, allUnknown(disksIn("/tmp/service/disks.json"), "ata"));
    check("... and NVMe disks are", false, allUnknown(disksIn("/tmp/service/disks.json"), "nvme"));
    statusOf(startRestricted(list, CAP_SYS_ADMIN));
    check("without CAP_SYS_ADMIN no NVMe disk is asked", true, allUnknown(disksIn("/tmp/service/disks.json"), "nvme"));
    check("... and ATA disks are", false, allUnknown(disksIn("/tmp/service/disks.json"), "ata"));
    statusOf(startRestricted(list, CAP_DAC_READ_SEARCH));
    check("without CAP_DAC_READ_SEARCH the disk of another user's node is not asked", "not permitted to ask; root is",
          reasonOf(disksIn("/tmp/service/disks.json"), node));
    check("the node is root's again", true, chown(node.c_str(), 0, 0) == 0);
}

size_t disksOfTheTool()
{
    const Json list = Json::parse(outputOf("/test/bin/tavstrg --json disks"), nullptr, false);
    return list.value("disks", Json::array()).size();
}

long fieldOf(pid_t process, const std::string &name)
{
    std::ifstream status("/proc/" + std::to_string(process) + "/status");
    for (std::string word; status >> word;) {
        if (word == name + ":") {
            long number = 0;
            status >> number;
            return number;
        }
    }
    return -1;
}

// The kinds of the events so far.
std::string kinds()
{
    std::string text;
    std::ifstream lines(kLines);
    for (std::string line; std::getline(lines, line);) {
        const Json event = Json::parse(line, nullptr, false);
        text += (text.empty() ? "" : " ") + event.value("kind", "?");
    }
    return text;
}

// Passes that end until nothing has come for two seconds.
size_t passesUntilQuiet(Datagrams &notify)
{
    size_t passes = 0;
    for (std::string text = notify.next(std::chrono::seconds(2)); !text.empty();
         text = notify.next(std::chrono::seconds(2))) {
        passes += text.find("the last pass took") == std::string::npos ? 0U : 1U;
    }
    return passes;
}

void disksThatComeAndGo(Datagrams &notify, const std::string &before)
{
    const std::string space = before.empty() ? "" : " ";
    const Facts facts = readFacts();
    removeDevice(kPlugged);
    check("a disk that was pulled out is an event", true,
          waitUntil([&] { return kinds() == before + space + "removed"; }));
    scanHost(facts.at(kPlugged).host);
    check("a disk that was plugged in is an event", true,
          waitUntil([&] { return kinds() == before + space + "removed added"; }));
    passesUntilQuiet(notify);
    const std::string file = "/sys/block/" + diskAt(kPlugged) + "/uevent";
    for (int i = 0; i < kReports; ++i) {
        std::ofstream(file) << "add";
    }
    const size_t passes = passesUntilQuiet(notify);
    check("a burst of uevents makes a pass or two", true, passes == 1 || passes == 2);
    for (int i = 0; i < kReports; ++i) {
        std::ofstream(file) << "change";
    }
    check("what udev reports of a pass makes none", size_t{0}, passesUntilQuiet(notify));
}

void idle(pid_t process)
{
    const long before = fieldOf(process, "voluntary_ctxt_switches");
    std::this_thread::sleep_for(std::chrono::seconds(3));
    check("an idle service does not wake up", std::to_string(before < 0 ? 0 : before),
          std::to_string(fieldOf(process, "voluntary_ctxt_switches")));
    const long kilobytes = fieldOf(process, "VmRSS");
    check("it takes at most 6 MiB, and not " + std::to_string(kilobytes) + " KiB", true,
          kilobytes > 0 && kilobytes <= kMostKilobytes);
}

} // namespace

void service()
{
    outputOf("rm -rf /tmp/service; mkdir -m 700 /tmp/service");
    std::ofstream(kConfig) << "cycle = 3600\nstate = /tmp/service/state\njournal = no\nhooks = no\nlines = " << kLines
                           << "\nmetrics = " << kMetrics << "\n";
    rightsOfTheUnit();
    const size_t disks = disksOfTheTool();
    addSimulatedDisks(static_cast<int>(kDisks - disks));
    check("the machine has as many disks as a large server", kDisks, disksOfTheTool());
    Datagrams notify(kNotify);
    setenv("NOTIFY_SOCKET", kNotify, 1);
    const pid_t process = startRestricted(std::string("exec /test/bin/tavstrg monitor --config ") + kConfig, kAll);
    unsetenv("NOTIFY_SOCKET");
    check("the service is ready", true, notify.next().find("READY=1") == 0);
    check("its first pass ends", true, !notify.await("the last pass took").empty());
    passesUntilQuiet(notify);
    const std::string before = kinds(); // of disks that fail from the begin
    check("there are no events but of disks that need attention", std::string::npos, before.find("added"));
    disksThatComeAndGo(notify, before);
    idle(process);
    std::ifstream metrics(kMetrics);
    const std::string text{std::istreambuf_iterator<char>(metrics), {}};
    check("the metrics say that passes succeed", true, text.find("\ntavstrg_pass_success 1\n") != std::string::npos);
    kill(process, SIGTERM);
    check("the service stops", "0", std::to_string(statusOf(process)));
    removeSimulatedDisks();
}

} // namespace vm
