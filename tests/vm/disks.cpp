// SPDX-License-Identifier: Apache-2.0
// The phase of the disks: what "tavstrg disks" finds and reports of every bus, against the kernel and smartctl.
#include "vm/checks.h"
#include "vm/facts.h"
#include "vm/qemu.h"
#include "vm/session.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <cstdlib>
#include <set>
#include <sstream>
#include <unistd.h>

namespace vm {
namespace {

using Json = nlohmann::json;

// The disk of run.sh that reports a critical warning: its medium is read-only.
const char *const kReadOnlySerial = "NVME-READONLY";

Json parsed(const std::string &command)
{
    Json json = Json::parse(outputOf(command), nullptr, false);
    return json.is_discarded() ? Json::object() : json;
}

std::string firstLineOf(const std::string &command)
{
    const std::string output = outputOf(command);
    return output.substr(0, output.find('\n'));
}

// Disks by the kernel: what is backed by a device and is, if it is a SCSI device, of the type of disks.
std::set<std::string> kernelDisks()
{
    std::istringstream names(
        outputOf("for d in /sys/block/*; do [ -e $d/device ] || continue; "
                 "[ \"$(cat $d/device/type 2>/dev/null || echo 0)\" = 0 ] && echo ${d##*/}; done"));
    std::set<std::string> all;
    for (std::string name; names >> name;) {
        all.insert(name);
    }
    return all;
}

void eachDiskIsThereOnce(const Json &disks)
{
    std::multiset<std::string> paths;
    std::set<std::string> ids;
    for (const Json &disk : disks) {
        for (const Json &path : disk["paths"]) {
            paths.insert(path.get<std::string>());
        }
        ids.insert(disk["id"].get<std::string>());
    }
    const std::set<std::string> expected = kernelDisks();
    check("each disk of the kernel is there exactly once", true,
          std::equal(paths.begin(), paths.end(), expected.begin(), expected.end()));
    check("identities differ", disks.size(), ids.size());
    const auto joined =
        std::count_if(disks.begin(), disks.end(), [](const Json &disk) { return disk["pathCount"] == 2; });
    check("the disk of two adapters is one disk with two paths", size_t{1}, static_cast<size_t>(joined));
}

void asTheKernelHasIt(const Json &disk)
{
    const std::string node = disk["node"];
    const std::string name = node.substr(5);
    check(node + ": size", firstLineOf("blockdev --getsize64 " + node), disk["sizeBytes"].dump());
    check(node + ": logical block", firstLineOf("blockdev --getss " + node), disk["logicalBlockBytes"].dump());
    check(node + ": rotational", firstLineOf("cat /sys/block/" + name + "/queue/rotational"),
          disk["rotational"] == true ? "1" : "0");
}

std::string textOf(const Json &json)
{
    return json.is_string() ? json.get<std::string>() : json.dump();
}

void asSmartctlHasIt(const Json &disk)
{
    const std::string node = disk["node"];
    const Json other = parsed("/tools/smartctl -j -i -H -A " + node);
    const Json &readings = disk["readings"];
    check(node + ": serial number", textOf(other.value("serial_number", Json())), textOf(disk["serialNumber"]));
    check(node + ": model", textOf(other.value("model_name", Json())), textOf(disk["model"]));
    check(node + ": firmware", textOf(other.value("firmware_version", Json())), textOf(disk["firmwareRevision"]));
    check(node + ": verdict", other.value("/smart_status/passed"_json_pointer, false),
          disk["health"]["state"] == "good");
    check(node + ": temperature", other.value("/temperature/current"_json_pointer, Json()).dump(),
          readings["temperatureCelsius"].dump());
    check(node + ": hours", other.value("/power_on_time/hours"_json_pointer, Json()).dump(),
          readings["powerOnHours"].dump());
    check(node + ": power cycles", other.value("power_cycle_count", Json()).dump(), readings["powerCycles"].dump());
    if (disk["protocol"] == "nvme") {
        const Json log = other.value("nvme_smart_health_information_log", Json::object());
        check(node + ": percentage used", log.value("percentage_used", Json()).dump(),
              readings["enduranceUsedPercent"].dump());
        check(node + ": spare", log.value("available_spare", Json()).dump(), readings["sparePercent"].dump());
        check(node + ": media errors", log.value("media_errors", Json()).dump(), readings["mediaErrors"].dump());
    }
}

uint64_t numberOf(const Json &json)
{
    return std::strtoull(textOf(json).c_str(), nullptr, 10);
}

// "nvme smart-log" prints each field of the log (NVMe 1.4, figure 194) in the log's own unit.
void asNvmeCliHasIt(const Json &disk)
{
    constexpr int kCelsius = 273;          // in the log are kelvins
    constexpr uint64_t kDataUnit = 512000; // bytes
    const std::string node = disk["node"];
    const Json log = parsed("/tools/nvme smart-log -o json " + node);
    const Json &readings = disk["readings"];
    const auto asLogged = [&](const char *field, const char *reading) {
        check(node + ": " + field, textOf(log.value(field, Json())), readings[reading].dump());
    };
    asLogged("avail_spare", "sparePercent");
    asLogged("percent_used", "enduranceUsedPercent");
    asLogged("power_on_hours", "powerOnHours");
    asLogged("power_cycles", "powerCycles");
    asLogged("media_errors", "mediaErrors");
    check(node + ": temperature", std::to_string(log.value("temperature", 0) - kCelsius),
          readings["temperatureCelsius"].dump());
    check(node + ": data_units_read", std::to_string(numberOf(log.value("data_units_read", Json())) * kDataUnit),
          readings["bytesRead"].dump());
    check(node + ": data_units_written", std::to_string(numberOf(log.value("data_units_written", Json())) * kDataUnit),
          readings["bytesWritten"].dump());
}

// The disks of a recorded machine, without when they were asked.
Json listedDisks(const std::string &options)
{
    Json disks = parsed("/test/bin/tavstrg " + options + " --json disks").value("disks", Json::array());
    for (Json &disk : disks) {
        disk.erase("lastAsked");
    }
    return disks;
}

Json withoutIdentity(Json disks)
{
    for (Json &disk : disks) {
        for (const char *name : {"id", "serialNumber", "wwid"}) {
            disk.erase(name);
        }
    }
    return disks;
}

// What is recorded of this machine shows the same disks.
void recordedMachineIsTheSame()
{
    const Json disks = listedDisks("");
    check("the machine can be recorded", "0",
          firstLineOf("/test/bin/tavstrg record --keep-names /tmp/kept && /test/bin/tavstrg record /tmp/replaced; "
                      "echo $?"));
    check("the recorded machine has the same disks", disks.dump(), listedDisks("--machine /tmp/kept").dump());
    check("with replaced names too", withoutIdentity(disks).dump(),
          withoutIdentity(listedDisks("--machine /tmp/replaced")).dump());
    const std::string description = outputOf("cat /tmp/replaced");
    const bool leaks = std::any_of(disks.begin(), disks.end(), [&description](const Json &disk) {
        return disk["serialNumber"].is_string() &&
               description.find(disk["serialNumber"].get<std::string>()) != std::string::npos;
    });
    check("no serial number is left in it", false, leaks);
}

const Json &withSerial(const Json &disks, const std::string &serial)
{
    static const Json none = {{"health", {{"state", "no such disk"}, {"reason", ""}}}};
    const auto found =
        std::find_if(disks.begin(), disks.end(), [&](const Json &disk) { return disk["serialNumber"] == serial; });
    return found == disks.end() ? none : *found;
}

struct CriticalWarning {
    unsigned bits; // NVMe 1.4, figure 194
    const char *state;
};
// In the end as it was.
constexpr CriticalWarning kCriticalWarnings[] = {{0, "good"},       {0x02, "warning"}, {0x04, "failing"},
                                                 {0x10, "warning"}, {0, "good"},       {0x08, "failing"}};

std::string stateWithSerial(const std::string &serial)
{
    const Json all = parsed("/test/bin/tavstrg --json disks").value("disks", Json::array());
    return textOf(withSerial(all, serial)["health"]["state"]);
}

void healthFollowsTheWarning()
{
    for (const CriticalWarning &warning : kCriticalWarnings) {
        const std::string bits = std::to_string(warning.bits);
        check("the critical warning is set to " + bits, "",
              setDeviceProperty("readonly", "smart_critical_warning", warning.bits));
        check("health with the critical warning " + bits, warning.state, stateWithSerial(kReadOnlySerial));
    }
}

} // namespace

void disks()
{
    check("the NVMe disks are ready", true, waitUntil([] { return access("/dev/nvme1n1", F_OK) == 0; }));
    const std::string plain = "1:0:0:0";
    switchSmart(plain, false);
    const Json off = parsed("/test/bin/tavstrg --json disk " + diskAt(plain));
    // The emulated disk's IDENTIFY data still say that SMART is on, while it refuses every SMART command.
    check("a disk that refuses SMART is not said to be good", "unknown", textOf(off["disk"]["health"]["state"]));
    check("its SMART stays off", false, smartIsOn(plain));
    switchSmart(plain, true);

    const Json all = parsed("/test/bin/tavstrg --json disks");
    const Json found = all.value("disks", Json::array());
    eachDiskIsThereOnce(found);
    for (const Json &disk : found) {
        asTheKernelHasIt(disk);
        if (disk["protocol"] == "nvme" || disk["transport"] == "sata") {
            asSmartctlHasIt(disk);
        }
        if (disk["protocol"] == "nvme") {
            asNvmeCliHasIt(disk);
        }
    }
    recordedMachineIsTheSame();
    check("an NVMe disk that is read-only fails", "failing",
          textOf(withSerial(found, kReadOnlySerial)["health"]["state"]));
    check("so says the exit status of health", "4", firstLineOf("/test/bin/tavstrg health >/dev/null; echo $?"));
    healthFollowsTheWarning();
    check("SMART that was on stays on", true, smartIsOn(plain));
}

} // namespace vm
