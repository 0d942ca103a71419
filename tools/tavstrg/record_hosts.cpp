// SPDX-License-Identifier: Apache-2.0
// SCSI hosts, their devices and enclosures, as sysfs shows them.
#include "tavstrg/record_parts.h"

#include "tavstrg/places.h"

#include "disks/find/place.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <climits>
#include <initializer_list>

namespace tool {
namespace {

using namespace tavstrg::disks;

constexpr const char *kEnclosures = "/sys/class/enclosure";
constexpr int kEnclosureType = 13; // SPC-5, INQUIRY

// Host, channel, target and LUN. A LUN may be longer than the simulator's, which has 31 bits.
std::array<int64_t, 4> addressOf(const std::string &name)
{
    std::array<int64_t, 4> numbers{};
    const char *at = name.data();
    for (int64_t &number : numbers) {
        at = std::from_chars(at, name.data() + name.size(), number).ptr + 1;
    }
    return numbers;
}

bool isNumberOf(const std::string &name, std::string_view kind)
{
    return name.starts_with(kind) && name.size() > kind.size() &&
           std::all_of(name.begin() + static_cast<std::ptrdiff_t>(kind.size()), name.end(),
                       [](char c) { return c >= '0' && c <= '9'; });
}

// The name of the node in one of the directories that a device has; empty: none.
std::string nodeOf(const std::string &device, const char *nodeClass, std::string_view kind = "")
{
    const std::vector<std::string> names = entriesOf(device + "/" + nodeClass);
    const auto found = std::find_if(names.begin(), names.end(),
                                    [kind](const std::string &name) { return kind.empty() || isNumberOf(name, kind); });
    return found == names.end() ? std::string() : *found;
}

void addNodes(const std::string &device, Json &json)
{
    std::string node = nodeOf(device, "block");
    node = node.empty() ? nodeOf(device, "scsi_tape", "st") : node;
    json["node"] = textOrNull(node);
    json["genericNode"] = textOrNull(nodeOf(device, "scsi_generic"));
}

ByteVector pageOf(const AttributeDirectory &directory, const char *name)
{
    char buffer[4096];
    const std::string_view page = directory.read(name, buffer);
    return {page.begin(), page.end()};
}

// First the pages, in which the names are whole.
void addIdentity(const AttributeDirectory &directory, Names &names, Json &json)
{
    const auto add = [&json](const char *page, const ByteVector &bytes) {
        json["vpdPages"][page] = bytes.empty() ? Json(nullptr) : Json(sim::hexText(bytes));
    };
    add("80", names.serialPage(pageOf(directory, "vpd_pg80")));
    add("83", names.designatorPage(pageOf(directory, "vpd_pg83")));
    add("89", names.ataPage(pageOf(directory, "vpd_pg89")));
    json["wwid"] = names.wwid(textOf(directory, "wwid"));
}

// Texts of which the disk itself has more than the kernel.
void addModel(const AttributeDirectory &directory, const Disk *disk, Names &names, Json &json)
{
    json["vendor"] = textOf(directory, "vendor");
    const std::string model = textOf(directory, "model");
    const bool cut = disk != nullptr && std::string_view(disk->model).starts_with(model);
    json["model"] = cut ? std::string(disk->model) : model;
    json["revision"] = textOf(directory, "rev");
    if (disk != nullptr && disk->serial[0] != '\0') {
        json["serial"] = names.serial(disk->serial);
    }
}

void addState(const AttributeDirectory &directory, Json &json)
{
    const std::string state = textOf(directory, "state");
    for (const char *known : {"offline", "transport-offline", "blocked", "quiesce", "created", "created-blocked"}) {
        if (state == known) {
            json["state"] = state;
        }
    }
    if (textOf(directory, "power/runtime_status") == "suspended") {
        json["power"]["runtimeStatus"] = "suspended";
    }
}

void addKind(const std::string &vendor, const Disk *disk, Json &json)
{
    if (vendor == "ATA") {
        json["ata"] = true;
    } else if (disk != nullptr && disk->protocol == Protocol::ata) {
        json["sat"] = true;
    }
    if (disk != nullptr && disk->rotationsPerMinute && disk->rotationsPerMinute.value <= UINT16_MAX) {
        json["rotationRate"] = disk->rotationsPerMinute.value;
    }
}

// ---- enclosures ----

Json slotsJson(const std::string &enclosure, Names &names)
{
    Json slots = Json::array();
    for (const std::string &name : entriesOf(enclosure)) {
        const AttributeDirectory slot = entryOf(enclosure, name);
        if (textOf(slot, "status").empty()) {
            continue; // no component, but an attribute of the enclosure
        }
        uint64_t number = 0;
        Json json = {{"name", names.component(name)}};
        if (slot.number("slot", number) && number <= UINT16_MAX) {
            json["number"] = number;
        }
        char buffer[PATH_MAX];
        const std::string_view device = slot.link("device", buffer);
        const std::string address(device.substr(device.rfind('/') + 1));
        const bool there =
            isScsiAddress(address) && AttributeDirectory((kScsiDevices + ("/" + address)).c_str()).exists();
        json["device"] = there ? address : "";
        json["fault"] = slot.number("fault", number) && number != 0;
        slots.push_back(json);
    }
    return slots;
}

void addEnclosure(const std::string &address, Names &names, Json &json)
{
    const std::string path = kEnclosures + ("/" + address);
    const AttributeDirectory enclosure(path.c_str());
    if (enclosure.exists() && json["type"] == kEnclosureType) {
        json["enclosureId"] = names.hexNumber(textOf(enclosure, "id"), "naa.");
        json["slots"] = slotsJson(path, names);
    }
}

// ---- devices and hosts ----

Json deviceJson(const Recording &recording, const std::string &address)
{
    const std::string path = kScsiDevices + ("/" + address);
    const AttributeDirectory directory(path.c_str());
    const auto numbers = addressOf(address);
    recording.names.beginDevice();
    Json json = {{"channel", numbers[1]}, {"id", numbers[2]}, {"lun", numbers[3]}};
    uint64_t type = 0;
    if (directory.number("type", type)) {
        json["type"] = type;
    }
    json["path"] = devicePath(AttributeDirectory(kScsiDevices), address.c_str());
    addNodes(path, json);
    const std::string node = json["node"].is_null() ? std::string() : json["node"].get<std::string>();
    const Disk *const disk = recording.asked(node);
    Json identity;
    addIdentity(directory, recording.names, identity);
    addModel(directory, disk, recording.names, json);
    json.update(identity);
    addBlock(AttributeDirectory((path + "/block/" + node).c_str()), json);
    addState(directory, json);
    addKind(json["vendor"], disk, json);
    addEnclosure(address, recording.names, json);
    addAnswers(recording, node, json);
    return json;
}

// A USB host is below an interface of its device.
Json usbJson(const std::string &path, Names &names)
{
    const std::string interface = path.substr(0, path.rfind('/'));
    const AttributeDirectory device(("/sys/devices/" + interface.substr(0, interface.rfind('/'))).c_str());
    Json json = {{"vendorId", textOf(device, "idVendor")}, {"productId", textOf(device, "idProduct")}};
    for (const char *name : {"manufacturer", "product"}) {
        json[name] = textOf(device, name);
    }
    names.beginDevice();
    json["serial"] = names.serial(textOf(device, "serial"));
    return json;
}

bool isUsbId(const std::string &text)
{
    return text.size() == 4 && text.find_first_not_of("0123456789abcdef") == text.npos;
}

// A driver without a name in procfs shows "<NULL>".
std::string driverOf(const std::string &host)
{
    const std::string name = textOf(AttributeDirectory((kScsiHosts + ("/" + host)).c_str()), "proc_name");
    const bool plain = !name.empty() && name.find_first_of("<>()/ ") == name.npos;
    return plain ? name : "unknown";
}

Json hostJson(const Recording &recording, const std::string &name)
{
    Json json = {{"number", addressOf(name.substr(4))[0]}, {"driver", driverOf(name)}};
    const std::string path = devicePath(AttributeDirectory(kScsiHosts), name.c_str(), 2);
    json["path"] = path;
    if (placeOf(path + "/0:0:0:0/block/sda").transport == Transport::usb) {
        json["transport"] = "usb";
        if (Json usb = usbJson(path, recording.names); isUsbId(usb["vendorId"]) && isUsbId(usb["productId"])) {
            json["usb"] = std::move(usb);
        }
    }
    json["devices"] = Json::array();
    return json;
}

} // namespace

Json hostsJson(const Recording &recording)
{
    constexpr int64_t kMostNumber = INT32_MAX;
    Json hosts = Json::array();
    const std::vector<std::string> devices = entriesOf(kScsiDevices);
    for (const std::string &name : entriesOf(kScsiHosts)) {
        if (!isNumberOf(name, "host")) {
            continue;
        }
        Json host = hostJson(recording, name);
        for (const std::string &address : devices) {
            const auto numbers = addressOf(address);
            const bool fits = isScsiAddress(address) &&
                              std::all_of(numbers.begin(), numbers.end(), [](int64_t n) { return n <= kMostNumber; });
            if (fits && numbers[0] == host["number"].get<int64_t>()) {
                host["devices"].push_back(deviceJson(recording, address));
            }
        }
        hosts.push_back(host);
    }
    return hosts;
}

Json filesJson()
{
    Json files = Json::object();
    const auto add = [&files](const std::string &path) {
        const size_t name = path.rfind('/');
        const std::string text =
            textOf(AttributeDirectory(path.substr(0, name).c_str()), path.substr(name + 1).c_str());
        if (!text.empty()) {
            files[path] = text + "\n";
        }
    };
    for (const std::string &slot : entriesOf("/sys/bus/pci/slots")) {
        add("/sys/bus/pci/slots/" + slot + "/address");
    }
    for (const std::string &device : entriesOf("/sys/class/sas_device")) {
        add("/sys/class/sas_device/" + device + "/bay_identifier");
    }
    return files;
}

} // namespace tool
