// SPDX-License-Identifier: Apache-2.0
#include "support/tool_machine.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <array>
#include <cstdio>
#include <map>
#include <set>
#include <sstream>

namespace tool::testing_support {
namespace {

using nlohmann::json;

// Widths of the standard's INQUIRY texts; the kernel has no more of them.
constexpr size_t kVendorWidth = 8, kModelWidth = 16, kRevisionWidth = 4;
constexpr size_t kSerialWidth = 20; // of the ATA identity

struct Exclusion {
    std::string vendor, model;
};

struct WearFigure { // of one drive model
    std::string model;
    int attribute = 0;
    std::array<int, 6> bounds{}; // from the most that is possible down to the least of level 1
};

struct Administration {
    std::set<std::string> drivers;
    std::vector<Exclusion> excluded;
    std::vector<WearFigure> endurance;
};

std::string trimmed(const std::string &text)
{
    const size_t first = text.find_first_not_of(" \t\r\n");
    return first == std::string::npos ? "" : text.substr(first, text.find_last_not_of(" \t\r\n") - first + 1);
}

std::string cut(const std::string &text, size_t width)
{
    const std::string kept = text.substr(0, width);
    return kept.substr(0, kept.find_last_not_of(' ') + 1);
}

std::string fileText(const json &machine, const std::string &name)
{
    const json files = machine.value("files", json::object());
    for (const std::string &key : {name, "/opt/qlm/tavkit_sa/data/" + name}) {
        if (!files.contains(key) || files[key].is_null()) {
            continue;
        }
        if (files[key].is_string()) {
            return files[key];
        }
        std::string text; // a list of lines
        for (const json &line : files[key]) {
            text += line.get<std::string>() + "\n";
        }
        return text;
    }
    return "";
}

// Lines of the section that counts, without comments and blank lines.
std::vector<std::string> managementLines(const std::string &text)
{
    std::vector<std::string> lines;
    std::istringstream in(text);
    const bool sections = text.find("[Management Port]") != std::string::npos;
    bool counts = !sections;
    for (std::string line; std::getline(in, line);) {
        line = trimmed(line);
        if (line.empty() || line.front() == '#') {
            continue;
        }
        if (line.front() == '[') {
            counts = line == "[Management Port]";
        } else if (counts) {
            lines.push_back(line);
        }
    }
    return lines;
}

std::vector<WearFigure> enduranceTable(const json &machine)
{
    std::string text = fileText(machine, "tavm2ssd.inf");
    std::replace(text.begin(), text.end(), ',', '\n');
    std::istringstream words(text);
    std::string word;
    std::vector<WearFigure> table;
    std::getline(words, word); // the section's head
    while (std::getline(words, word)) {
        WearFigure figure{word.substr(0, kModelWidth)};
        words >> figure.attribute;
        for (int &bound : figure.bounds) {
            words >> bound;
        }
        std::getline(words, word);
        table.push_back(figure);
    }
    return table;
}

Administration readAdministration(const json &machine)
{
    Administration read;
    for (const std::string &line : managementLines(fileText(machine, "storage.inf"))) {
        read.drivers.insert(line.substr(0, line.find_first_of(" \t#")));
    }
    for (const std::string &line : managementLines(fileText(machine, "noscsi.inf"))) {
        const size_t vendor = line.find("Vendor:");
        const size_t model = line.find("Model:");
        if (vendor != std::string::npos && model != std::string::npos) {
            read.excluded.push_back(
                {trimmed(line.substr(vendor + 7, model - vendor - 7)), trimmed(line.substr(model + 6))});
        }
    }
    read.endurance = enduranceTable(machine);
    return read;
}

// 1 for a disk that says it will fail, -1 for one that has SMART and gives no answer, 0 for all others: those that are
// well, and those that cannot be asked because they have no SMART or will not switch it on.
int smartStatusOf(const json &device)
{
    const json smart = device.value("smart", json::object());
    if (!smart.value("supported", true) || !smart.value("canEnable", true)) {
        return 0;
    }
    for (const json &fault : device.value("faults", json::array())) {
        if (fault.value("on", "") == "smartStatus" && fault.contains("errno")) {
            return -1;
        }
    }
    if (smart.contains("status")) {
        const bool good = smart["status"] == json{0x4F, 0xC2};
        return good ? 0 : smart["status"] == json{0xF4, 0x2C} ? 1 : -1;
    }
    return smart.value("failing", false) ? 1 : 0;
}

// What the status means, which is 0 for three of these.
std::string smartStateOf(const json &device)
{
    const json smart = device.value("smart", json::object());
    if (!smart.value("supported", true)) {
        return "notSupported";
    }
    const int status = smartStatusOf(device);
    const bool staysOff = !smart.value("enabled", true) && !smart.value("canEnable", true);
    return status == 1 ? "failing" : status == -1 || staysOff ? "notReadable" : "good";
}

// The remaining endurance, in percent as the model counts it; nothing if the drive has no such attribute or keeps it to
// itself because its SMART is off.
std::optional<int> wearOf(const json &device, int attribute)
{
    const json smart = device.value("smart", json::object());
    if (!smart.value("supported", true) || !smart.value("enabled", true)) {
        return std::nullopt;
    }
    for (const json &candidate : smart.value("attributes", json::array())) {
        if (candidate["id"] != attribute) {
            continue;
        }
        return attribute == 230 ? 100 - candidate["raw"].at(1).get<int>() : candidate.value("current", 100);
    }
    return std::nullopt;
}

std::optional<int> lifeSpanOf(const json &device, const std::vector<WearFigure> &table)
{
    const std::string model = device.value("model", "DEVICE").substr(0, kModelWidth);
    const auto known =
        std::find_if(table.begin(), table.end(), [&model](const WearFigure &figure) { return figure.model == model; });
    if (known == table.end()) {
        return std::nullopt;
    }
    const std::optional<int> left = wearOf(device, known->attribute);
    if (!left || *left > known->bounds.front() || *left < known->bounds.back()) {
        return -1;
    }
    // One level for each lower bound that is reached.
    return static_cast<int>(
        std::count_if(known->bounds.begin() + 1, known->bounds.end(), [&left](int bound) { return *left >= bound; }));
}

bool isUsb(const std::string &driver)
{
    return driver.starts_with("usb") || driver.starts_with("ovfx2") || driver.starts_with("hub");
}

bool isExcluded(const Administration &administration, const std::string &vendor, const std::string &model)
{
    return std::any_of(administration.excluded.begin(), administration.excluded.end(), [&](const Exclusion &rule) {
        return (rule.vendor.empty() || rule.vendor == vendor) && (rule.model.empty() || model.starts_with(rule.model));
    });
}

std::string scsiTypeWords(const json &device)
{
    const json type = device.value("type", json("disk"));
    static const std::map<std::string, std::string> byName = {
        {"disk", "hard disk"}, {"cdrom", "CD-ROM drive"}, {"tape", "tape drive"}, {"optical", "optical memory"}};
    static const std::map<int, std::string> byNumber = {
        {0, "hard disk"}, {1, "tape drive"}, {5, "CD-ROM drive"}, {7, "optical memory"}};
    if (type.is_string()) {
        return byName.contains(type) ? byName.at(type) : "other device";
    }
    return byNumber.contains(type) ? byNumber.at(type) : "other device";
}

uint64_t sectorsOf(const json &device, uint64_t defaultBytes)
{
    return device.contains("sectors") ? device["sectors"].get<uint64_t>()
                                      : device.value("sizeBytes", defaultBytes) / 512;
}

// Whole cylinders of the geometry that the kernel gives, in logical blocks, in MiB; without a geometry the whole disk.
unsigned scsiCapacity(const json &device)
{
    const uint64_t sectors = sectorsOf(device, uint64_t{100} << 30);
    const uint64_t blockSize = device.value("sectorSize", 512U);
    uint64_t heads = sectors < 2097152 ? 64 : 255;
    uint64_t perTrack = sectors < 2097152 ? 32 : 63;
    if (device.contains("geometry")) {
        const json &geometry = device["geometry"];
        if (geometry.is_null()) {
            return static_cast<unsigned>(sectors / (blockSize / 512) * blockSize / 1048576);
        }
        heads = geometry.value("heads", 255U);
        perTrack = geometry.value("sectors", 63U);
    }
    const uint64_t cylinders = sectors / (heads * perTrack) / (blockSize / 512);
    return static_cast<unsigned>(cylinders * heads * perTrack * blockSize / 1048576);
}

// Gives each device the nodes that the kernel gives in the order of the description.
void nameNodes(json &machine)
{
    std::map<std::string, int> next;
    const bool sysfs = machine.value("sysfs", !machine.value("kernel", "").starts_with("2.4"));
    for (json &host : machine["hosts"]) {
        for (json &device : host["devices"]) {
            const std::string type = scsiTypeWords(device);
            const std::string generic = device.value("genericNode", "sg" + std::to_string(next["sg"]++));
            std::string node = generic;
            if (type == "hard disk" || type == "optical memory") {
                const int number = next["sd"]++;
                const std::string last(1, static_cast<char>('a' + number % 26));
                node = "sd" + (number < 26 ? "" : std::string(1, static_cast<char>('a' + number / 26 - 1))) + last;
            } else if (type == "CD-ROM drive") {
                node = "sr" + std::to_string(next["sr"]++);
            } else if (type == "tape drive") {
                node = "st" + std::to_string(next["st"]++);
            }
            device["expectedNode"] = !sysfs ? "" : device.value("node", node);
        }
    }
}

std::string numberText(const json &device, const char *name)
{
    return std::to_string(device.value(name, 0));
}

bool standsBefore(const ExpectedDevice &one, const ExpectedDevice &other)
{
    const auto numbers = [](const std::string &address) {
        std::array<int, 3> parts{};
        std::sscanf(address.c_str(), "%d:%d:%d", &parts[0], &parts[1], &parts[2]);
        return parts;
    };
    return numbers(one.address) < numbers(other.address);
}

ExpectedDevice scsiDevice(const json &machine, const Administration &administration, const json &host,
                          const json &device)
{
    const bool disk = scsiTypeWords(device) == "hard disk";
    ExpectedDevice expected;
    expected.driver = host.value("driver", "ahci");
    expected.address = numberText(device, "channel") + ":" + numberText(device, "id") + ":" + numberText(device, "lun");
    expected.place = numberText(host, "number") + ":" + expected.address;
    expected.node = device["expectedNode"];
    expected.type = scsiTypeWords(device);
    expected.vendor = cut(device.value("vendor", device.value("ata", false) && disk ? "ATA" : "TEST"), kVendorWidth);
    expected.model = cut(device.value("model", "DEVICE"), kModelWidth);
    expected.firmwareRevision = cut(device.value("revision", "1.0"), kRevisionWidth);
    if (machine.value("kernel", "").starts_with("2.4")) {
        expected.firmwareRevision.resize(kRevisionWidth, ' ');
    } // the last text of its line in /proc/scsi/scsi, blanks and all
    if (disk) {
        expected.serialNumber = trimmed(device.value("serial", "").substr(0, kSerialWidth));
        expected.capacity = scsiCapacity(device);
        expected.smartStatus = smartStatusOf(device);
        expected.smartState = smartStateOf(device);
        expected.lifeSpan = lifeSpanOf(device, administration.endurance);
    }
    return expected;
}

// Managed hosts by number.
std::vector<ExpectedController> scsiControllers(const json &machine, const Administration &administration)
{
    std::map<int, ExpectedController> byHost;
    int position = 0;
    for (json host : machine.value("hosts", json::array())) {
        host["number"] = host.value("number", position++);
        const std::string driver = host.value("driver", "ahci");
        if (!administration.drivers.contains(driver) || isUsb(driver)) {
            continue;
        }
        ExpectedController controller{"SCSI Controller", driver, std::nullopt, {}};
        for (const json &device : host["devices"]) {
            ExpectedDevice expected = scsiDevice(machine, administration, host, device);
            if (!expected.capacity || !isExcluded(administration, expected.vendor, expected.model)) {
                controller.devices.push_back(std::move(expected));
            }
        }
        std::stable_sort(controller.devices.begin(), controller.devices.end(), standsBefore);
        byHost.emplace(host["number"].get<int>(), std::move(controller));
    }
    std::vector<ExpectedController> controllers;
    for (auto &[number, controller] : byHost) {
        controllers.push_back(std::move(controller));
    }
    return controllers;
}

ExpectedDevice ideDevice(const json &drive)
{
    const std::string media = drive.value("media", "disk");
    ExpectedDevice expected;
    expected.place = drive.value("name", "hda");
    expected.node = expected.place;
    expected.address = (expected.place.at(2) - 'a') % 2 == 0 ? "master" : "slave";
    expected.type = media == "disk" ? "hard disk" : media == "cdrom" ? "CD-ROM drive" : "other device";
    expected.model = drive.value("model", "DRIVE");
    expected.firmwareRevision = "Not Supported";
    expected.serialNumber = "Unknown";
    if (media == "disk") {
        expected.capacity = static_cast<unsigned>(sectorsOf(drive, uint64_t{40} << 30) / 2048);
        expected.smartState = "notAsked";
    }
    return expected;
}

// Number at the start of the first line of /proc/interrupts that names the channel.
std::optional<unsigned> interruptOf(const json &machine, const std::string &channel)
{
    for (const json &line : machine.value("interrupts", json::array())) {
        const std::string text = line;
        if (text.find(channel) != std::string::npos) {
            return static_cast<unsigned>(std::stoul(text));
        }
    }
    return std::nullopt;
}

std::vector<ExpectedController> ideControllers(const json &machine)
{
    const json ide = machine.value("ide", json::object());
    std::map<std::string, std::vector<ExpectedDevice>> byChannel;
    std::vector<json> drives = ide.value("drives", json::array());
    std::sort(drives.begin(), drives.end(), [](const json &a, const json &b) { return a["name"] < b["name"]; });
    for (const json &drive : drives) {
        const std::string own = "ide" + std::to_string((drive.value("name", "hda").at(2) - 'a') / 2);
        byChannel[drive.value("channel", own)].push_back(ideDevice(drive));
    }
    std::map<std::string, ExpectedController> byName;
    int position = 0;
    for (const json &channel : ide.value("channels", json::array())) {
        const std::string name = channel.value("name", "ide" + std::to_string(position++));
        byName[name] = {"IDE Controller(ide)", "", interruptOf(machine, name), byChannel[name]};
    }
    std::vector<ExpectedController> controllers;
    for (auto &[name, controller] : byName) {
        controllers.push_back(std::move(controller));
    }
    return controllers;
}

} // namespace

std::vector<ExpectedController> expectedControllers(const std::string &description)
{
    json machine = json::parse(description);
    nameNodes(machine);
    std::vector<ExpectedController> controllers = scsiControllers(machine, readAdministration(machine));
    for (ExpectedController &controller : ideControllers(machine)) {
        controllers.push_back(std::move(controller));
    }
    return controllers;
}

} // namespace tool::testing_support
