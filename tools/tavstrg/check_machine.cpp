// SPDX-License-Identifier: Apache-2.0
// What would fail or be missing on this machine, found without a collection.

#include "tavstrg/check.h"

#include "tavstrg/agent_paths.h"
#include "tavstrg/cause.h"
#include "tavstrg/nearest.h"
#include "tavstrg/places.h"
#include "tavstrg/words.h"

#include "collect/base/attribute.h"
#include "collect/devices/device_filter.h"
#include "collect/devices/disk_names.h"
#include "collect/devices/serial_number.h"
#include "collect/inf/storage_inf.h"
#include "collect/scsi/kernel_rules.h"
#include "collect/scsi/scsi_discovery.h"
#include "collect/scsi/scsi_parse.h"

#include <dirent.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <memory>
#include <set>

using namespace tavstrg;

namespace tool {
namespace {

constexpr int kNotComparable = -2;

using Findings = std::vector<MachineFinding>;

void checkRelease(Findings &findings)
{
    const std::string release = kernelRelease();
    const std::string named = "kernel release " + printable(release);
    if (kernelRules().orderOfTransport(release.c_str()) == kNotComparable) {
        findings.push_back({true, named + ": refused, so every collection fails; " + releaseRemedy()});
    } else if (kernelRules().interfaceOf(release) == kInterfaceProcfs && access(kScsiHosts, F_OK) == 0) {
        findings.push_back({true, named +
                                      ": read as older than 2.6, so devices are looked for in /proc/scsi and not in "
                                      "/sys: the inventory lacks them; switch on kernel-release in options.inf"});
    }
}

void checkDirectories(Findings &findings)
{
    struct stat status {};
    const auto isDirectory = [&status](const std::string &path) {
        return stat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
    };
    if (!isDirectory(kAgentRoot)) {
        findings.push_back({true, std::string(kAgentRoot) + ": absent; the agent is not installed, and the provider "
                                                            "cannot start in a broker"});
        return;
    }
    for (const auto &[name, use] : {std::pair{"data", "no state is saved"}, {"work", "no segment is made"}}) {
        const std::string path = std::string(kAgentRoot) + "/" + name;
        if (!isDirectory(path)) {
            findings.push_back({true, path + ": absent; " + use + ", so the provider fails"});
        }
    }
}

void checkLibraries(Findings &findings)
{
    for (const auto &[name, use] :
         {std::pair{"libtavlog.so", "nothing is traced"}, {"libtavalert.so", "no alert is sent"}}) {
        const std::string path = std::string(kAgentRoot) + "/lib/" + name;
        if (access(path.c_str(), R_OK) != 0) {
            findings.push_back({false, path + ": " + std::strerror(errno) + "; " + use});
        }
    }
}

std::string addressOf(const SCSIDeviceInfo &device)
{
    return std::to_string(device.host) + ":" + std::to_string(device.channel) + ":" + std::to_string(device.id) + ":" +
           std::to_string(device.lun);
}

// A disk as the collector asks it first. One that does not answer makes every collection fail.
void checkDisk(const SCSIDeviceInfo &device, const SCSIDiskNameTable &names, Findings &findings)
{
    char name[kDiskNameSize] = "";
    char serial[kSerialNumberSize] = "";
    TAVStorageGetSCSIDeviceName(&names, &device, name);
    if (TAVStorageGetSCSIDeviceSerialNumber(name, serial) == 0) {
        return;
    }
    const std::string disk =
        "disk " + addressOf(device) + " (" + printable(device.vendor) + " " + printable(device.model) + ")";
    findings.push_back({true, disk +
                                  (name[0] == '\0' ? std::string(": no device node answers for it")
                                                   : std::string(", ") + name + ": does not answer HDIO_GET_IDENTITY") +
                                  ", so every collection fails; " + diskRemedy(device.vendor, device.model)});
}

struct DeviceList {
    DeviceList() { failed = GetSCSIDeviceInfoFromProc(&first, &count, &status) < 0; }
    ~DeviceList() { FreeSCSIDeviceInfo(&first); }
    DeviceList(const DeviceList &) = delete;
    DeviceList &operator=(const DeviceList &) = delete;
    SCSIDeviceInfo *first = nullptr;
    int32_t count = 0;
    int32_t status = 0;
    bool failed = false;
};

void checkDisks(Findings &findings)
{
    DeviceFilter filter;
    const DeviceList devices;
    if (devices.failed || filter.loadUSB() < 0 || filter.loadHosts() < 0 || filter.loadUnmanaged() < 0 ||
        !filter.index()) {
        return; // the files' own findings say why
    }
    const auto names = std::make_unique<SCSIDiskNameTable>();
    GetSCSIDeviceName_IDArray(devices.first, names.get());
    for (const SCSIDeviceInfo *device = devices.first; device != nullptr; device = device->next) {
        if (std::strcmp(device->type, "Direct-Access") == 0 && isManagedDevice(filter, *device)) {
            checkDisk(*device, *names, findings);
        }
    }
}

std::string joined(const std::set<std::string> &names)
{
    std::string text;
    for (const std::string &name : names) {
        text += (text.empty() ? "" : ", ") + printable(name);
    }
    return text;
}

} // namespace

std::set<std::string> adapterDrivers()
{
    std::set<std::string> drivers;
    const std::unique_ptr<DIR, int (*)(DIR *)> hosts(opendir(kScsiHosts), &closedir);
    for (const dirent *entry = nullptr; hosts && (entry = readdir(hosts.get())) != nullptr;) {
        char driver[kAttributeSize] = {};
        int32_t status = 0;
        const std::string path = std::string(kScsiHosts) + "/" + entry->d_name + "/proc_name";
        if (entry->d_name[0] != '.' && GetInfFromFile(&status, path.c_str(), driver) == 0 && driver[0] != '\0') {
            drivers.insert(driver);
        }
    }
    return drivers;
}

void compareDrivers(const std::set<std::string> &adapters, std::vector<CheckedLine> &lines)
{
    std::vector<CheckedLine> all;
    const std::vector<std::string> names(adapters.begin(), adapters.end());
    bool anyManaged = false;
    for (const CheckedLine &line : lines) {
        all.push_back(line);
        if (line.verdict != Verdict::accepted || line.meaning.value("section", "") != "Management Port") {
            continue;
        }
        const std::string driver = line.meaning.value("driver", "");
        const bool has = adapters.contains(driver);
        anyManaged = anyManaged || has;
        if (!has && !adapters.empty()) {
            const std::string near = nearest(driver, names);
            all.push_back({line.line, Verdict::note,
                           "no adapter of this machine has this driver; its drivers are " + joined(adapters) +
                               (near.empty() ? "" : "; did you mean " + printable(near) + "?")});
        }
    }
    if (!anyManaged) {
        all.push_back({0, Verdict::note,
                       adapters.empty() ? "this machine has no SCSI host adapter"
                                        : "no adapter of this machine is managed, so its inventory has no SCSI device; "
                                          "its drivers are " +
                                              joined(adapters)});
    }
    lines = std::move(all);
}

std::vector<MachineFinding> checkMachine(bool simulated)
{
    Findings findings;
    checkRelease(findings);
    checkDirectories(findings);
    if (simulated || geteuid() == 0) {
        checkDisks(findings);
    } else {
        findings.push_back({false, "disks were not asked: that needs root"});
    }
    if (!simulated && access(kAgentRoot, F_OK) == 0) {
        checkLibraries(findings);
    }
    return findings;
}

} // namespace tool
