// SPDX-License-Identifier: Apache-2.0
// Disks that are not SCSI, as sysfs shows them: NVMe, virtio-blk, MMC, Xen, persistent memory.
#include "tavstrg/record_parts.h"

#include "disks/find/describe.h"
#include "disks/find/place.h"

#include <algorithm>
#include <charconv>

namespace tool {
namespace {

using namespace tavstrg::disks;

constexpr const char *kControllers = "/sys/class/nvme";
constexpr const char *kSubsystems = "/sys/class/nvme-subsystem";
constexpr const char *kBlock = "/sys/block";

// The number behind a word of a name; -1: none.
int numberBehind(std::string_view name, std::string_view word)
{
    int number = -1;
    if (name.starts_with(word)) {
        std::from_chars(name.data() + word.size(), name.data() + name.size(), number);
    }
    return number;
}

// Kernels before 4.18 show no subsystems.
int subsystemOf(const std::string &controller, int number)
{
    for (const std::string &name : entriesOf(kSubsystems)) {
        if (AttributeDirectory(entryOf(kSubsystems, name), controller.c_str()).exists()) {
            return numberBehind(name, "nvme-subsys");
        }
    }
    return number;
}

Json spaceJson(const AttributeDirectory &directory, const std::string &name, Names &names)
{
    Json json;
    uint64_t number = 0;
    json["nsid"] = directory.number("nsid", number) ? number : 1;
    json["instance"] = numberBehind(std::string_view(name).substr(name.rfind('n')), "n");
    json["wwid"] = names.wwid(textOf(directory, "wwid"));
    struct Row {
        const char *name;
        const char *prefix;
    };
    for (const Row &row : {Row{"nguid", "eui."}, Row{"eui", "eui."}, Row{"uuid", "uuid."}}) {
        std::string text = textOf(directory, row.name);
        text.erase(std::remove(text.begin(), text.end(), ' '), text.end());
        if (text.find_first_of("123456789abcdefABCDEF") != text.npos) {
            json[row.name] = names.hexNumber(text, row.prefix);
        }
    }
    addBlock(directory, json);
    return json;
}

void addTexts(const AttributeDirectory &directory, Names &names, bool keep, Json &json)
{
    json["model"] = textOf(directory, "model");
    json["serial"] = names.serial(textOf(directory, "serial"));
    json["firmware"] = textOf(directory, "firmware_rev");
    json["state"] = textOf(directory, "state");
    if (keep) { // it has the serial number, or the name of a server
        json["nqn"] = textOf(directory, "subsysnqn");
    }
}

void addTransport(const AttributeDirectory &directory, bool keep, Json &json)
{
    const std::string transport = textOf(directory, "transport");
    const bool known = transport == "tcp" || transport == "rdma" || transport == "fc" || transport == "loop";
    json["transport"] = known ? transport : "pcie";
    if (!known || keep) { // of other transports it is a place in a network
        json["address"] = textOf(directory, "address");
    }
}

void addSpaces(const Recording &recording, const std::string &controller, Json &json)
{
    const std::string path = kControllers + ("/" + controller);
    for (const std::string &name : entriesOf(path)) {
        const AttributeDirectory directory = entryOf(path, name);
        uint64_t size = 0;
        if (name.starts_with("nvme") && directory.number("size", size)) {
            json["multipath"] = isNvmePathName(name);
            json["namespaces"].push_back(spaceJson(directory, name, recording.names));
        }
    }
}

Json controllerJson(const Recording &recording, const std::string &name, bool keep)
{
    const AttributeDirectory directory((kControllers + ("/" + name)).c_str());
    recording.names.beginDevice();
    const int number = numberBehind(name, "nvme");
    Json json = {{"number", number}, {"subsystem", subsystemOf(name, number)}};
    json["path"] = devicePath(AttributeDirectory(kControllers), name.c_str());
    addTransport(directory, keep, json);
    addTexts(directory, recording.names, keep, json);
    uint64_t id = 0;
    if (directory.number("cntlid", id) && id <= UINT16_MAX) {
        json["cntlid"] = id;
    }
    addSpaces(recording, name, json);
    addHealthLog(recording, name, json);
    return json;
}

// ---- virtio-blk, MMC and what else takes no commands about its health ----

void addCardTexts(const AttributeDirectory &device, Names &names, Json &json)
{
    std::string cid = textOf(device, "cid");
    std::string serial = textOf(device, "serial");
    names.card(cid, serial);
    json["type"] = textOf(device, "type") == "SD" ? "SD" : "MMC";
    json["name"] = textOf(device, "name");
    json["firmware"] = textOf(device, "fwrev");
    json["cid"] = cid;
    json["serial"] = serial;
    json["date"] = textOf(device, "date");
    json["lifeTime"] = textOf(device, "life_time");
    json["preEolInfo"] = textOf(device, "pre_eol_info");
}

Json cardJson(const Recording &recording, const std::string &node, bool mmc)
{
    const AttributeDirectory entry((kBlock + ("/" + node)).c_str());
    recording.names.beginDevice();
    Json json = {{"node", node}, {"path", devicePath(AttributeDirectory(kBlock), node.c_str(), 2)}};
    if (mmc) {
        addCardTexts(AttributeDirectory(entry, "device"), recording.names, json);
        json["bootPartitions"] = AttributeDirectory((kBlock + ("/" + node + "boot0")).c_str()).exists();
    } else {
        json["serial"] = recording.names.serial(textOf(entry, "serial"));
    }
    addBlock(entry, json);
    return json;
}

} // namespace

Json nvmeJson(const Recording &recording, bool keep)
{
    Json controllers = Json::array();
    for (const std::string &name : entriesOf(kControllers)) {
        if (numberBehind(name, "nvme") >= 0) {
            controllers.push_back(controllerJson(recording, name, keep));
        }
    }
    return controllers;
}

Json cardsJson(const Recording &recording, bool mmc)
{
    Json cards = Json::array();
    const AttributeDirectory block(kBlock);
    for (const std::string &name : entriesOf(kBlock)) {
        const Place place = placeOf("../devices/" + devicePath(block, name.c_str()));
        const bool known = place.transport != Transport::unknown || !place.adapter.empty();
        const bool other = known && !place.scsi && place.transport != Transport::nvme;
        if (other && canBeDisk(name) && mmc == (place.transport == Transport::mmc)) {
            cards.push_back(cardJson(recording, name, mmc));
        }
    }
    return cards;
}

} // namespace tool
