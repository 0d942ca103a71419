// SPDX-License-Identifier: Apache-2.0
// The phase of the unit of the monitoring service: a real systemd enforces its restrictions and reads its journal.
#include "vm/checks.h"
#include "vm/facts.h"
#include "vm/manager.h"
#include "vm/session.h"

#include <nlohmann/json.hpp>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <map>
#include <sstream>
#include <thread>
#include <unistd.h>

namespace vm {
namespace {

namespace fs = std::filesystem;
using Json = nlohmann::json;

const char *const kPlugged = "1:0:0:0";
const char *const kHook = "/etc/tavstrg/hooks.d/probe";
const char *const kProbed = "/var/lib/tavstrg/probe";
const char *const kFailing = "eaa245eef48e4ca5af6a57642a8f917c"; // MESSAGE_ID of a disk that begins to fail
const char *const kAllGranted = "SystemCallErrorNumber=kill\nWatchdogSec=6s\nRestartSec=100ms\n";

struct State {
    std::string transport, health;
};
// By kernel name.
using States = std::map<std::string, State>;

std::string label(const std::string &line, const std::string &name)
{
    const size_t at = line.find(name + "=\"");
    const size_t begin = at == std::string::npos ? line.size() : at + name.size() + 2;
    return line.substr(begin, line.find('"', begin) - begin);
}

// From metrics: the health of each disk.
States statesIn(const std::string &metrics)
{
    std::map<std::string, std::string> health;
    States states;
    std::istringstream lines(metrics);
    for (std::string line; std::getline(lines, line);) {
        if (line.starts_with("tavstrg_disk_health{") && line.ends_with(" 1")) {
            health[label(line, "disk")] = label(line, "state");
        }
    }
    lines.clear();
    lines.seekg(0);
    for (std::string line; std::getline(lines, line);) {
        if (line.starts_with("tavstrg_disk_info{")) {
            states[label(line, "name")] = {label(line, "transport"), health[label(line, "disk")]};
        }
    }
    return states;
}

std::string fileText(const std::string &path)
{
    std::ifstream file(path);
    std::stringstream text;
    text << file.rdbuf();
    return text.str();
}

std::string text(const States &states)
{
    std::string all;
    for (const auto &[name, state] : states) {
        all += name + " " + state.health + ", ";
    }
    return all;
}

using Which = std::function<bool(const std::string &name, const State &state)>;

// The states if some of the disks cannot be asked.
States withUnknown(States states, const Which &which)
{
    for (auto &[name, state] : states) {
        state.health = which(name, state) ? "unknown" : state.health;
    }
    return states;
}

bool isSata(const std::string & /*name*/, const State &state)
{
    return state.transport == "sata";
}

bool isNvme(const std::string & /*name*/, const State &state)
{
    return state.transport == "nvme";
}

bool isSd(const std::string &name, const State & /*state*/)
{
    return name.starts_with("sd");
}

bool isAnothers(const std::string &name, const State & /*state*/)
{
    return name == diskAt(kPlugged);
}

// --- what the unit refuses to a process under it ---

struct Attempt {
    const char *what;
    const char *command;
    bool granted; // under the unit; as root without it each one succeeds
};

const Attempt kAttempts[] = {
    {"read a disk", "dd if=/dev/sda of=/dev/null count=1", true},
    {"write its state", "touch /var/lib/tavstrg/file", true},
    {"write metrics", "touch /var/lib/prometheus/node-exporter/file", true},
    {"read a disk without a rule", "dd if=/dev/vda of=/dev/null count=1", false},
    {"open a disk for writing", "sh -c ': >>/dev/sda'", false},
    {"read memory", "dd if=/dev/port of=/dev/null bs=1 count=1 skip=128", false},
    {"write /etc", "touch /etc/file", false},
    {"write /var/lib", "touch /var/lib/file", false},
    {"change a kernel variable", "sh -c 'echo 0 >/proc/sys/vm/laptop_mode'", false},
    {"make a control group", "sh -c 'mkdir /sys/fs/cgroup/probe && rmdir /sys/fs/cgroup/probe'", false},
    {"see files of users", "test -e /root/file", false},
    {"see /tmp of others", "test -e /tmp/of-others", false},
    {"see the environment of others", "cat /proc/1/environ", false},
    {"read the log of the kernel", "dmesg", false},
    {"set the clock", "adjtimex -f 0", false},
    {"set the name of the host", "hostname probe", false},
    {"mount", "mount -t tmpfs none /mnt", false},
    {"change its root", "chroot / true", false},
    {"make a namespace", "unshare -m true", false},
    {"reach the network", "ifconfig lo", false},
    {"change a priority", "sh -c 'renice -n 5 -p $$'", false},
    {"change its personality", "linux32 true", false},
    {"make a set-user-ID file", "chmod u+s /var/lib/tavstrg/file", false},
};

std::string outcomes(bool underUnit)
{
    std::string all;
    for (const Attempt &attempt : kAttempts) {
        all += std::string(attempt.what) + (attempt.granted || !underUnit ? ": done\n" : ": refused\n");
    }
    return all;
}

// A hook has the rights of the service.
void writeProbe()
{
    std::string script =
        "#!/bin/sh\nexport PATH=/bin\n"
        "try() {\n    what=$1\n    shift\n"
        "    if \"$@\" >/dev/null 2>&1 </dev/null; then echo \"$what: done\"; else echo \"$what: refused\"; fi\n"
        "}\n{\n";
    for (const Attempt &attempt : kAttempts) {
        script += std::string("try '") + attempt.what + "' " + attempt.command + "\n";
    }
    fs::create_directories(fs::path(kHook).parent_path());
    std::ofstream(kHook) << script + "} >" + kProbed + ".new\nmv " + kProbed + ".new " + kProbed + "\n";
    fs::permissions(kHook, fs::perms(0755));
    fs::create_directories("/mnt");
    std::ofstream("/tmp/of-others") << "";
    std::ofstream("/root/file") << "";
}

void whatTheUnitRefuses()
{
    check("a hook has tried what the unit refuses", true, waitUntil([] { return fs::exists(kProbed); }));
    check("under the unit only what a pass needs is granted", outcomes(true), fileText(kProbed));
    fs::remove(kProbed);
    outputOf(kHook);
    check("without it everything is", outcomes(false), fileText(kProbed));
    fs::remove(kHook);
}

// --- the service under its unit ---

std::string statusField(const std::string &process, const std::string &name)
{
    std::ifstream status("/proc/" + process + "/status");
    for (std::string word; status >> word;) {
        if (word == name + ":") {
            status >> word;
            return word;
        }
    }
    return "";
}

std::string failingDiskInJournal()
{
    const Json entry = Json::parse(journal("json", std::string("MESSAGE_ID=") + kFailing), nullptr, false);
    return entry.is_object() ? entry.value("TAVSTRG_DISK_SERIAL", "") + " " + entry.value("TAVSTRG_KIND", "") : "none";
}

// The unit as it ships.
States theUnitAsItIs()
{
    const States asRoot = statesIn(outputOf("/test/bin/tavstrg metrics"));
    check("the service starts and makes a pass", true, startWith(""));
    const std::string process = property("MainPID");
    check("its capabilities are those of the unit", "0000000000220004", statusField(process, "CapBnd"));
    check("it gets no new privileges", "1", statusField(process, "NoNewPrivs"));
    check("its system calls are filtered", "2", statusField(process, "Seccomp"));
    const std::string status = outputOf("systemctl status -n 0 " + kUnitName + " 2>&1");
    check("systemctl status says that it is active", true,
          status.find("Active: active (running)") != std::string::npos);
    check("... and shows the line of the service", true,
          status.find("Status: \"" + std::to_string(asRoot.size()) + " disks: ") != std::string::npos);
    const States states = statesIn(fileText(kMetricsFile));
    check("each disk answers as without the unit", text(asRoot), text(states));
    check("disks of each kind answer", true,
          text(states).find("sda good") != std::string::npos && text(states).find("nvme0n1 good") != std::string::npos);
    check("the journal has the disk that fails", "NVME-READONLY failing", failingDiskInJournal());
    return states;
}

size_t disksNow()
{
    return statesIn(fileText(kMetricsFile)).size();
}

// A system call that the unit refuses kills the service here.
void nothingIsRefused(const States &states)
{
    check("it starts where a refused system call kills", true, startWith(kAllGranted));
    const int host = readFacts().at(kPlugged).host;
    removeDevice(kPlugged);
    check("it notices a disk that was pulled out", true, waitUntil([&] { return disksNow() == states.size() - 1; }));
    scanHost(host);
    check("it notices a disk that was plugged in", true, waitUntil([&] { return disksNow() == states.size(); }));
    fs::remove(kMetricsFile);
    check("it reloads", true, systemctl("reload " + kUnitName));
    check("... and makes a pass", true, waitUntil([] { return fs::exists(kMetricsFile); }));
    check("each disk answers then", text(states), text(statesIn(fileText(kMetricsFile))));
}

long long number(const std::string &name)
{
    return std::strtoll(property(name).c_str(), nullptr, 10);
}

void theWatchdog()
{
    constexpr long long kInterval = 6000000; // kAllGranted
    const long long began = number("ActiveEnterTimestampMonotonic");
    check("it feeds the watchdog", true, waitUntil([began] {
              std::this_thread::sleep_for(std::chrono::milliseconds(500));
              return number("WatchdogTimestampMonotonic") > began + kInterval;
          }));
    check("... and was never started again", "0", property("NRestarts"));
    fs::remove(kMetricsFile);
    check("it is stopped", true, systemctl("kill --kill-who=main --signal=STOP " + kUnitName));
    check("the watchdog starts it again", true, waitUntil([] { return fs::exists(kMetricsFile); }));
    check("... once", "1", property("NRestarts"));
    check("systemd says why", true,
          outputOf("journalctl -q --no-pager -o cat UNIT=" + kUnitName).find("Watchdog timeout") != std::string::npos);
}

void theStop()
{
    check("it stops", true, systemctl("stop " + kUnitName));
    check("... with success", "success", property("Result"));
}

// --- the unit without one of its rights ---

struct Right {
    const char *name;
    const char *call; // that fails without it
    Which disks;      // that do not answer then
};

const Right kCapabilities[] = {{"CAP_SYS_RAWIO", "ioctl(SG_IO) with ATA PASS-THROUGH", isSata},
                               {"CAP_SYS_ADMIN", "ioctl(NVME_IOCTL_ADMIN_CMD)", isNvme},
                               {"CAP_DAC_READ_SEARCH", "open() of a node of another user", isAnothers}};
const Right kDevices[] = {{"block-sd r", "open(\"/dev/sd...\")", isSd},
                          {"char-nvme r", "open(\"/dev/nvme...\")", isNvme}};

void without(const Right &right, const std::string &lines, const States &states)
{
    check(std::string("without ") + right.name + " it starts", true, startWith(lines));
    check(std::string("without ") + right.name + " fails " + right.call, text(withUnknown(states, right.disks)),
          text(statesIn(fileText(kMetricsFile))));
}

void withoutACapability(const States &states)
{
    constexpr uid_t kSomebody = 65534;
    const std::string node = "/dev/" + diskAt(kPlugged);
    check("a node has another owner", true, chown(node.c_str(), kSomebody, kSomebody) == 0);
    std::string known = "CapabilityBoundingSet=";
    for (const Right &right : kCapabilities) {
        without(right, std::string("CapabilityBoundingSet=~") + right.name + "\n", states);
        known += (known.ends_with('=') ? "" : " ") + std::string(right.name);
    }
    check("the unit has no capability more", known, settings("CapabilityBoundingSet").at(0));
    check("the node is root's again", true, chown(node.c_str(), 0, 0) == 0);
}

void withoutADevice(const States &states)
{
    std::string known;
    for (const Right &right : kDevices) {
        std::string others = "DeviceAllow=\n";
        for (const std::string &line : settings("DeviceAllow")) {
            others += line == std::string("DeviceAllow=") + right.name ? "" : line + "\n";
        }
        without(right, others, states);
        known += std::string("DeviceAllow=") + right.name + "\n";
    }
    std::string all;
    for (const std::string &line : settings("DeviceAllow")) {
        all += line + "\n";
    }
    check("the unit has no device more", known, all);
}

void withoutOtherRights()
{
    check("without AF_NETLINK it starts", true, startWith("RestrictAddressFamilies=~AF_NETLINK\n"));
    check("... and receives no uevents", true,
          property("StatusText").find("uevents are not received: Address family not supported") != std::string::npos);
    check("without ReadWritePaths it starts", true, restartWith("ReadWritePaths=\n"));
    check("... and cannot write the metrics", true, waitUntil([] {
              return property("StatusText").find("tavstrg.prom: Read-only file system") != std::string::npos;
          }));
}

} // namespace

void unit()
{
    writeProbe();
    const Manager manager;
    const States states = theUnitAsItIs();
    whatTheUnitRefuses();
    nothingIsRefused(states);
    theWatchdog();
    theStop();
    withoutACapability(states);
    withoutADevice(states);
    withoutOtherRights();
    if (failures() > 0) {
        outputOf("journalctl -q --no-pager >/results/unit.journal 2>&1");
    }
}

} // namespace vm
