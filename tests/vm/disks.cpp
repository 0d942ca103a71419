// SPDX-License-Identifier: Apache-2.0
// The phase of the disks: what "tavstrg disks" finds and reports of every bus, against the kernel and smartctl.
#include "vm/checks.h"
#include "vm/facts.h"
#include "vm/session.h"

#include <nlohmann/json.hpp>

#include <algorithm>
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

const Json &withSerial(const Json &disks, const std::string &serial)
{
    static const Json none = {{"health", {{"state", "no such disk"}, {"reason", ""}}}};
    const auto found =
        std::find_if(disks.begin(), disks.end(), [&](const Json &disk) { return disk["serialNumber"] == serial; });
    return found == disks.end() ? none : *found;
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
    }
    check("an NVMe disk that is read-only fails", "failing",
          textOf(withSerial(found, kReadOnlySerial)["health"]["state"]));
    check("so says the exit status of health", "4", firstLineOf("/test/bin/tavstrg health >/dev/null; echo $?"));
    check("SMART that was on stays on", true, smartIsOn(plain));
}

} // namespace vm
