// SPDX-License-Identifier: Apache-2.0
#include "tavstrg/text.h"

#include "tavstrg/health.h"
#include "tavstrg/words.h"
#include "tavstrg/wrap.h"

#include <algorithm>

namespace tool {
namespace {

struct Text {
    std::string text;
    Mark mark = Mark::none;
};

struct Node {
    Text label;
    std::vector<Text> details = {}; // lines below the label
    std::vector<Node> children = {};
};

struct Glyphs {
    const char *branch, *lastBranch, *trunk, *gap;
};
constexpr Glyphs kAscii = {"|-- ", "`-- ", "|   ", "    "};
constexpr Glyphs kBoxes = {"├── ", "└── ", "│   ", "    "};

// Texts that stand for "not known" in the records; people need not read them.
bool known(const std::string &text)
{
    return !text.empty() && text != "Unknown" && text != "Not Supported";
}

void append(std::string &line, const std::string &part)
{
    if (part.empty()) {
        return;
    }
    line += line.empty() ? "" : ", ";
    line += part;
}

std::string named(const char *what, const std::string &text)
{
    const std::string clean = printable(text);
    return known(clean) ? std::string(what) + " " + clean : std::string();
}

std::string addressOf(const Device &device)
{
    if (device.interfaceType == kIde) {
        return drivePositionWords(device.ideConfiguration);
    }
    return std::to_string(device.bus) + ":" + std::to_string(device.targetId) + ":" + std::to_string(device.lun);
}

std::string geometryOf(const HardDisk &disk)
{
    return "geometry: " + std::to_string(disk.cylinders) + " cylinders, " + std::to_string(disk.heads) + " heads, " +
           std::to_string(disk.sectorsPerTrack) + " sectors per track";
}

const char *signOf(Mark mark)
{
    return mark == Mark::failure ? "!! " : mark == Mark::warning ? "! " : "";
}

Text healthLine(const HardDisk &disk)
{
    const Mark mark = markOf(disk);
    std::string line = signOf(mark) + capacityWords(disk.capacity) + ", SMART: " + smartWords(disk.smartStatus);
    if (disk.lifeSpan) {
        append(line, "life span: " + lifeSpanWords(disk.lifeSpan->level));
    }
    return {line, mark};
}

// addressWidth: columns that the address takes, so that those of one list end together.
Node deviceNode(const Device &device, size_t addressWidth, bool verbose)
{
    std::string label = addressOf(device);
    label.resize(std::max(addressWidth, label.size()) + 2, ' ');
    label +=
        deviceTypeWords(device.interfaceType, device.deviceType) + " " + std::to_string(device.deviceTypeIndex) + ":";
    for (const std::string &text : {printable(device.vendor), printable(device.model)}) {
        if (!text.empty()) {
            label += " " + text;
        }
    }
    append(label, named("firmware", device.firmwareRevision));
    append(label, named("serial", device.serialNumber));
    Node node{{label}};
    if (device.disk) {
        node.details.push_back(healthLine(*device.disk));
    }
    if (verbose) {
        if (device.disk) {
            node.details.push_back({geometryOf(*device.disk)});
        }
        node.details.push_back({interfaceWords(device.interfaceType) + " device " + std::to_string(device.index)});
    }
    return node;
}

void addDevices(Node &parent, const std::vector<Device> &devices, bool verbose)
{
    size_t widest = 0;
    for (const Device &device : devices) {
        widest = std::max(widest, addressOf(device).size());
    }
    for (const Device &device : devices) {
        parent.children.push_back(deviceNode(device, widest, verbose));
    }
}

Node controllerNode(const Controller &controller, bool verbose)
{
    std::string label = "Controller " + std::to_string(controller.index) + ": " + printable(controller.model);
    const std::string driver = printable(controller.driver);
    append(label, driver.empty() ? "no driver" : "driver " + driver);
    append(label, controller.interruptNumber == kNoInterrupt
                      ? std::string("interrupt unknown")
                      : "interrupt " + std::to_string(controller.interruptNumber));
    Node node{{label}};
    if (verbose) {
        const std::string version = printable(controller.driverVersion);
        node.details.push_back({"interface " + interfaceWords(controller.interfaceType) + ", driver version " +
                                (known(version) ? version : "unknown")});
    }
    addDevices(node, controller.devices, verbose);
    return node;
}

Node diskNode(const HardDisk &disk, bool verbose)
{
    Node node{{"hard disk " + std::to_string(disk.index)}, {healthLine(disk)}};
    if (verbose) {
        node.details.push_back({geometryOf(disk)});
    }
    return node;
}

Node machineNode(const Inventory &inventory, bool verbose)
{
    std::string label = inventory.machine.empty()
                            ? "Storage of this machine: "
                            : "Storage of the simulated machine " + printable(inventory.machine) + ": ";
    label += counted(inventory.controllers.size(), "controller") + ", " + counted(inventory.deviceCount(), "device");
    Node root{{label}};
    for (const Controller &controller : inventory.controllers) {
        root.children.push_back(controllerNode(controller, verbose));
    }
    if (!inventory.devicesWithoutController.empty()) {
        Node group{{"Devices without a controller"}};
        addDevices(group, inventory.devicesWithoutController, verbose);
        root.children.push_back(std::move(group));
    }
    if (!inventory.disksWithoutDevice.empty()) {
        Node group{{"Hard disks without a device (the configuration changed meanwhile)"}};
        for (const HardDisk &disk : inventory.disksWithoutDevice) {
            group.children.push_back(diskNode(disk, verbose));
        }
        root.children.push_back(std::move(group));
    }
    return root;
}

// Columns that are left behind a prefix, enough to read however deep a text stands.
size_t roomBehind(size_t prefix, const TextStyle &style)
{
    return style.width == 0 ? 0 : std::max(style.width > prefix ? style.width - prefix : 0, kNarrowest);
}

// The first line of a text after one prefix, those that its breaking makes after another and some blanks.
void printText(std::string &out, const Text &text, const std::string &first, const std::string &rest,
               const TextStyle &style)
{
    const std::vector<std::string> lines =
        wrapped(text.text, roomBehind(columnsOf(first), style), roomBehind(columnsOf(rest) + kIndent, style));
    for (size_t i = 0; i < lines.size(); ++i) {
        out += i == 0 ? first : rest + std::string(kIndent, ' ');
        out += painted(lines[i], text.mark, style.colour) + "\n";
    }
}

void printNode(std::string &out, const Node &node, const std::string &first, const std::string &rest,
               const TextStyle &style)
{
    const Glyphs &glyphs = style.utf8 ? kBoxes : kAscii;
    // Lines of a node's own stand beside the trunk that leads to its children.
    const std::string own = rest + (node.children.empty() ? glyphs.gap : glyphs.trunk);
    printText(out, node.label, first, own, style);
    for (const Text &detail : node.details) {
        printText(out, detail, own, own, style);
    }
    for (size_t i = 0; i < node.children.size(); ++i) {
        const bool last = i + 1 == node.children.size();
        printNode(out, node.children[i], rest + (last ? glyphs.lastBranch : glyphs.branch),
                  rest + (last ? glyphs.gap : glyphs.trunk), style);
    }
}

std::string totalsText(const Totals &totals, size_t width)
{
    return "Totals\n" + twoColumns({{"controllers", std::to_string(totals.controllers)},
                                    {"SCSI devices", std::to_string(totals.scsiDevices)},
                                    {"IDE devices", std::to_string(totals.ideDevices)},
                                    {"hard disks", std::to_string(totals.hardDisks)},
                                    {"CD-ROM drives", std::to_string(totals.cdroms)},
                                    {"tape drives", std::to_string(totals.tapes)},
                                    {"optical memories", std::to_string(totals.opticalMemories)},
                                    {"other devices", std::to_string(totals.others)}},
                                   width);
}

std::string monitoringText(const Monitoring &monitoring, size_t width)
{
    return "Monitoring\n" +
           twoColumns({{"thread", monitoring.running ? "running" : "not running"},
                       {"cycle", std::to_string(monitoring.cycle) + " s (" + std::to_string(monitoring.cycleMin) +
                                     " to " + std::to_string(monitoring.cycleMax) + ", default " +
                                     std::to_string(monitoring.cycleDefault) + ")"},
                       {"SMART", monitoring.smartMode == 1 ? "handled" : "not handled"}},
                      width);
}

} // namespace

std::string inventoryText(const Inventory &inventory, const TextStyle &style)
{
    std::string out;
    printNode(out, machineNode(inventory, style.verbose), "", "", style);
    out += "\n" + totalsText(inventory.totals, style.width);
    if (style.verbose) {
        out += "\n" + monitoringText(inventory.monitoring, style.width);
    }
    const Health health = healthOf(inventory);
    if (const std::string words = healthWords(health); !words.empty()) {
        out += "\n";
        printText(out, {"Health: " + words, markOf(health)}, "", "", style);
    }
    return out;
}

std::string instancesText(const std::string &className, const std::vector<broker::Instance> &instances, size_t width)
{
    std::string out;
    for (const broker::Instance &instance : instances) {
        Rows rows;
        for (const broker::NamedValue &property : instance.properties) {
            rows.emplace_back(property.name, printable(property.value.toString()));
        }
        out += (out.empty() ? "" : "\n") + className + "\n" + twoColumns(rows, width);
    }
    return out;
}

std::string returnValuesText(const std::vector<broker::Value> &values)
{
    std::string out;
    for (const broker::Value &value : values) {
        out += "return value " + printable(value.toString()) + "\n";
    }
    return out;
}

std::string catalogueText(const std::vector<ClassEntry> &classes, size_t width)
{
    std::string out;
    for (const ClassEntry &entry : classes) {
        Rows rows;
        for (const PropertyEntry &property : entry.properties) {
            rows.emplace_back(property.name, schemaType(property.type) + (property.key ? ", key" : ""));
        }
        for (const MethodEntry &method : entry.methods) {
            std::string arguments;
            for (const std::string &argument : method.arguments) {
                append(arguments, argument + "=VALUE");
            }
            rows.emplace_back(method.name, "method" + (arguments.empty() ? "" : ", " + arguments));
        }
        out += (out.empty() ? "" : "\n") + entry.name + (entry.keyed() ? "" : " (one instance)") + "\n" +
               twoColumns(rows, width);
    }
    return out;
}

} // namespace tool
