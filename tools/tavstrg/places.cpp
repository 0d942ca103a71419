// SPDX-License-Identifier: Apache-2.0
#include "tavstrg/places.h"

#include "tavstrg/words.h"

#include "collect/ide/ide_discovery.h"
#include "collect/inf/data_path.h"
#include "collect/inf/storage_inf.h"
#include "collect/scsi/scsi_discovery.h"
#include "runtime/memory.h"

#include <dirent.h>

#include <algorithm>
#include <charconv>
#include <fstream>
#include <memory>
#include <set>
#include <string_view>

using namespace tavstrg;

namespace tool {
namespace {

std::vector<std::string> namesIn(const std::string &directory)
{
    std::vector<std::string> names;
    const std::unique_ptr<DIR, int (*)(DIR *)> listing(opendir(directory.c_str()), &closedir);
    for (const dirent *entry = listing ? readdir(listing.get()) : nullptr; entry != nullptr;
         entry = readdir(listing.get())) {
        if (entry->d_name[0] != '.') {
            names.emplace_back(entry->d_name);
        }
    }
    std::sort(names.begin(), names.end());
    return names;
}

bool isNumber(std::string_view text)
{
    return !text.empty() && text.find_first_not_of("0123456789") == std::string_view::npos;
}

// "st0", not "st0a", "st0l", "st0m" or "nst0", which are the same drive in another mode.
bool isTapeName(const std::string &name)
{
    return name.starts_with("st") && isNumber(std::string_view(name).substr(2));
}

// The node in a device's directory. Kernels before 2.6.26 have a link "block:sda" in place of the folder "block".
std::string nodeIn(const std::string &directory)
{
    if (const auto blocks = namesIn(directory + "/block"); blocks.size() == 1) {
        return blocks.front();
    }
    for (const std::string &name : namesIn(directory + "/scsi_tape")) {
        if (isTapeName(name)) {
            return name;
        }
    }
    for (const std::string &name : namesIn(directory)) {
        if (name.starts_with("block:")) {
            return name.substr(6);
        }
    }
    const auto generic = namesIn(directory + "/scsi_generic");
    return generic.size() == 1 ? generic.front() : "";
}

std::vector<KernelHost> readHosts()
{
    std::vector<KernelHost> hosts;
    for (const std::string &name : namesIn(kScsiHosts)) {
        KernelHost host;
        const auto [end, error] =
            std::from_chars(name.data() + std::min(name.size(), size_t{4}), name.data() + name.size(), host.number);
        if (!name.starts_with("host") || error != std::errc() || end != name.data() + name.size()) {
            continue;
        }
        std::ifstream file(std::string(kScsiHosts) + "/" + name + "/proc_name");
        std::getline(file, host.driver);
        hosts.push_back(host);
    }
    std::sort(hosts.begin(), hosts.end(), [](const KernelHost &a, const KernelHost &b) { return a.number < b.number; });
    return hosts;
}

// Where the management list cannot be read the provider fails too: there is nothing to place then.
std::vector<KernelHost> readManagedHosts()
{
    SCSIHostEntry *list = nullptr;
    int32_t count = 0;
    std::vector<KernelHost> hosts;
    if (read_proc_scsi(&list, &count) != 0) {
        return hosts;
    }
    for (int32_t i = 0; i < count; ++i) {
        hosts.push_back({list[i].host, list[i].driver});
    }
    memfree(list);
    std::stable_sort(hosts.begin(), hosts.end(),
                     [](const KernelHost &a, const KernelHost &b) { return a.number < b.number; });
    return hosts;
}

std::vector<KernelDevice> readDevices()
{
    SCSIDeviceInfo *list = nullptr;
    int32_t count = 0;
    int32_t status = 0;
    std::vector<KernelDevice> devices;
    if (GetSCSIDeviceInfoFromProc(&list, &count, &status) != 0) {
        return devices;
    }
    for (const SCSIDeviceInfo *device = list; device != nullptr; device = device->next) {
        devices.push_back({device->host, device->channel, device->id, device->lun, device->vendor, device->model, ""});
        devices.back().node = nodeIn(std::string(kScsiDevices) + "/" + std::to_string(device->host) + ":" +
                                     std::to_string(device->channel) + ":" + std::to_string(device->id) + ":" +
                                     std::to_string(device->lun));
    }
    FreeSCSIDeviceInfo(&list);
    return devices;
}

std::vector<KernelIdeDrive> readIdeDrives()
{
    IDEGeneralInfo info = {};
    std::vector<KernelIdeDrive> drives;
    if (GetIDEInfoFromProc(&info) == 0) {
        for (const IDEDeviceInfo *device = info.devices; device != nullptr; device = device->next) {
            drives.push_back({device->name, device->model});
        }
        FreeIDEInfo(&info);
    }
    return drives;
}

// A record's field may have cut the kernel's text.
bool sameText(const std::string &record, const std::string &kernel)
{
    const std::string_view text = trimmed(record);
    return trimmed(kernel).starts_with(text) && text.empty() == trimmed(kernel).empty();
}

bool isAt(const KernelDevice &candidate, const Device &device, unsigned host)
{
    constexpr unsigned kRecordBits = 0xffff; // numbers of a record have 16 bits
    const auto same = [](int kernel, unsigned record) {
        return (static_cast<unsigned>(kernel) & kRecordBits) == record;
    };
    return static_cast<unsigned>(candidate.host) == host && same(candidate.channel, device.bus) &&
           same(candidate.id, device.targetId) && same(candidate.lun, device.lun);
}

void placeScsiDevice(Device &device, unsigned host, const KernelView &kernel)
{
    const KernelDevice *found = nullptr;
    for (const KernelDevice &candidate : kernel.devices) {
        if (isAt(candidate, device, host)) {
            if (found != nullptr) {
                return;
            }
            found = &candidate;
        }
    }
    if (found != nullptr && sameText(device.vendor, found->vendor) && sameText(device.model, found->model)) {
        device.host = host;
        device.node = found->node;
    }
}

// The provider's IDE devices are all drives of the kernel's list, in its order.
void placeIdeDevice(Device &device, const KernelView &kernel)
{
    if (device.index == 0 || device.index > kernel.ideDrives.size()) {
        return;
    }
    const KernelIdeDrive &drive = kernel.ideDrives[device.index - 1];
    // Drives a, c, e, ... are masters, b, d, f, ... slaves.
    const bool slave = !drive.name.empty() && (drive.name.back() - 'a') % 2 != 0;
    const int position = slave ? kIdeSlave : kIdeMaster;
    if (drive.name.starts_with("hd") && position == device.ideConfiguration && sameText(device.model, drive.model)) {
        device.node = drive.name;
    }
}

void placeHosts(Inventory &inventory, const KernelView &kernel)
{
    std::vector<Controller *> scsi;
    for (Controller &controller : inventory.controllers) {
        if (controller.interfaceType == kScsi) {
            scsi.push_back(&controller);
        }
    }
    if (scsi.size() != kernel.managedHosts.size()) {
        return;
    }
    for (size_t i = 0; i < scsi.size(); ++i) {
        if (!std::string_view(kernel.managedHosts[i].driver).starts_with(trimmed(scsi[i]->driver))) {
            return;
        }
    }
    for (size_t i = 0; i < scsi.size(); ++i) {
        scsi[i]->host = static_cast<unsigned>(kernel.managedHosts[i].number);
    }
}

std::string listed(const std::set<std::string> &words)
{
    std::string text;
    for (const std::string &word : words) {
        text += (text.empty() ? "" : ", ") + printable(word);
    }
    return text;
}

} // namespace

KernelView readKernelView()
{
    KernelView kernel;
    kernel.hosts = readHosts();
    kernel.managedHosts = readManagedHosts();
    kernel.devices = readDevices();
    kernel.ideDrives = readIdeDrives();
    char path[kDataPathSize];
    makeDataPath(path, kStorageInf);
    kernel.storageInf = path;
    return kernel;
}

void setPlaces(Inventory &inventory, const KernelView &kernel)
{
    placeHosts(inventory, kernel);
    for (Controller &controller : inventory.controllers) {
        for (Device &device : controller.devices) {
            if (device.interfaceType == kIde) {
                placeIdeDevice(device, kernel);
            } else if (controller.host) {
                placeScsiDevice(device, *controller.host, kernel);
            }
        }
    }
    for (Device &device : inventory.devicesWithoutController) {
        if (device.interfaceType == kIde) {
            placeIdeDevice(device, kernel);
        }
    }
}

std::string emptyWords(const Inventory &inventory, const KernelView &kernel)
{
    if (!inventory.controllers.empty() || inventory.deviceCount() != 0) {
        return "";
    }
    if (kernel.hosts.empty()) {
        return "The kernel has no SCSI host adapter and no IDE channel. NVMe drives have none and are not shown.";
    }
    std::set<std::string> drivers;
    for (const KernelHost &host : kernel.hosts) {
        drivers.insert(host.driver);
    }
    return "No host adapter is managed: the adapters here have the drivers " + listed(drivers) + ", and " +
           printable(kernel.storageInf) + " must name those whose disks are to be shown (tavstrg check).";
}

} // namespace tool
