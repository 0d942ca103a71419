// SPDX-License-Identifier: Apache-2.0
// sysfs: attributes, the names of directories, and a SCSI host with a device whose files and names the input is.
#include "collect/base/attribute.h"
#include "collect/inf/inf_parse.h"
#include "collect/scsi/scsi_parse.h"
#include "collect/scsi/scsi_variants.h"
#include "devcmd/kernel/kernel_version.h"
#include "devcmd/transport/transport.h"
#include "fuzz/fuzz.h"
#include "fuzz/lists.h"
#include "fuzz/machine.h"
#include "runtime/field_text.h"

#include <algorithm>
#include <cstdio>
#include <string>

using namespace tavstrg;

using fuzz::isWithin;
using fuzz::require;

namespace {

constexpr const char *kDeviceFiles[] = {"vendor", "model", "rev", "type"};
constexpr char kInf[] = "/opt/qlm/tavkit_sa/data/storage.inf";

void checkAddress(std::string_view name)
{
    ScsiAddress address{};
    if (parseScsiAddress(name, address)) {
        char text[64];
        std::snprintf(text, sizeof text, "%d:%d:%d:%d", address.host, address.channel, address.id, address.lun);
        ScsiAddress again{};
        require(parseScsiAddress(text, again) && again.host == address.host && again.channel == address.channel &&
                    again.id == address.id && again.lun == address.lun,
                "an address comes back");
    }
    int32_t host = 0;
    require(!parseHostName(name, host) || host >= 0, "a host's number is not negative");
    require(!parseHostNumber(name, host) || host >= 0, "a host's number is not negative");
}

void checkTexts(std::string_view text)
{
    const std::string_view value = attributeValue(text);
    require(isWithin(value, text) && value.size() < kAttributeSize && value.find('\n') == value.npos &&
                !value.starts_with(' '),
            "an attribute is its first line, trimmed and cut");
    require(!scsiTypeText(text).empty(), "every type has a text");
    require(!isUsbDriver(text) || isNeverHostAdapter(text), "a USB driver is never a host adapter of the inventory");
    checkAddress(text);
    const int choice = interfaceOfRelease(text);
    require(choice == kInterfaceProcfs || choice == kInterfaceSysfs, "an interface is one of two");
}

void checkVersions(std::string_view left, std::string_view right)
{
    const fuzz::ExactString a(left);
    const fuzz::ExactString b(right);
    const int order = CmpVersion(a.text(), b.text());
    require(order >= -2 && order <= 1, "an order is one of four");
    const int turned = CmpVersion(b.text(), a.text());
    require(order == -2 ? turned == -2 : turned == -order, "the order turns round with the versions");
}

// A host and a device of the names that the input has, where they can be names.
class Tree {
public:
    Tree(fuzz::FuzzedMachine &machine, std::string_view host, std::string_view device) : machine_(machine)
    {
        host_ = std::string(kSysHosts) + "/" + std::string(fuzz::isFileName(host) ? host : "host0");
        device_ = std::string(kSysDevices) + "/" + std::string(fuzz::isFileName(device) ? device : "0:0:0:0");
    }
    ~Tree()
    {
        machine_.remove(host_);
        machine_.remove(device_);
    }
    Tree(const Tree &) = delete;
    Tree &operator=(const Tree &) = delete;
    void host(const char *attribute, std::string_view text) { machine_.file((host_ + "/" + attribute).c_str(), text); }
    void device(const char *attribute, std::string_view text)
    {
        machine_.file((device_ + "/" + attribute).c_str(), text);
    }

private:
    fuzz::FuzzedMachine &machine_;
    std::string host_;
    std::string device_;
};

void checkDevices()
{
    SCSIDeviceInfo *list = nullptr;
    int32_t count = -1;
    int32_t status = -1;
    const int result = sys_GetSCSIDeviceInfoFromSys(&list, &count, &status);
    require(result == 0 && status == 0, "a tree of attributes can be read, whatever they say");
    const int length = fuzz::lengthOf(list, [](const SCSIDeviceInfo &device, int position) {
        require(device.sequence == position, "devices are numbered in their order");
        fuzz::requireTerminated(device.vendor);
        fuzz::requireTerminated(device.model);
        fuzz::requireTerminated(device.scsiRev);
        fuzz::requireTerminated(device.type);
    });
    require(length == count && length <= 1, "one directory is at most one device");
    FreeSCSIDeviceInfo(&list);
}

void checkHosts()
{
    SCSIHostEntry *hosts = nullptr;
    int32_t count = -1;
    require(sys_read_scsi_ctrl(&hosts, &count) == 0 && count >= 0 && count <= 1, "one directory is at most one host");
    for (const SCSIHostEntry &host : std::span(hosts, static_cast<size_t>(count))) {
        require(host.host >= 0 && !isNeverHostAdapter(fieldText(host.driver)), "a managed host is one");
        fuzz::requireTerminated(host.driver);
    }
    std::free(hosts);
    require(sys_GetSCSIControllerNumber() == count, "number and list agree");

    SCSIControllerTypeDetail *types = nullptr;
    int32_t typeCount = -1;
    int32_t adapters = -1;
    int32_t status = -1;
    require(sys_GetSCSIControllerTypeDetailInfo(&types, &typeCount, &adapters, &status) == 0, "drivers can be listed");
    require(adapters == count && fuzz::lengthOf(types, [](const auto &, int) {}) == typeCount && typeCount == count,
            "drivers and hosts agree");
    FreeSCSIControllerTypeDetailInfo(&types);

    USBHostEntry *usb = nullptr;
    require(sys_GetUSBCtrlFromSys(&usb, &count) == 0 && count >= 0 && count <= 1, "one directory is at most one host");
    std::free(usb);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    checkTexts(fuzz::textOf({data, size}));
    static fuzz::FuzzedMachine machine(R"({"kernel": "6.1.0", "hosts": []})");
    fuzz::Parts parts({data, size});
    const std::string_view device = parts.next();
    const std::string_view host = parts.next();
    checkVersions(device, host);
    {
        Tree tree(machine, host, device);
        for (const char *const attribute : kDeviceFiles) {
            tree.device(attribute, parts.next());
        }
        const std::string_view driver = parts.next();
        tree.host("proc_name", driver);
        machine.file(kInf, attributeValue(driver)); // so that the host can be a managed one
        checkDevices();
        checkHosts();
    }
    machine.requireAllClosed();
    return 0;
}
