// SPDX-License-Identifier: Apache-2.0
#include "tavstrg/text.h"

#include "tavstrg/health.h"
#include "tavstrg/schema_words.h"
#include "tavstrg/words.h"
#include "tavstrg/wrap.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <iterator>

namespace tool {
namespace {

struct Text {
    std::string text;
    Mark mark = Mark::none;
    size_t breakAt = 0; // where a text that does not fit in one line is broken first; 0: anywhere
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
    return saysSomething(text) ? std::string(what) + " " + printable(text) : std::string();
}

std::string geometryOf(const HardDisk &disk)
{
    return "geometry: " + std::to_string(disk.cylinders) + " cylinders, " + std::to_string(disk.heads) + " heads, " +
           std::to_string(disk.sectorsPerTrack) + " sectors per track";
}

const char *signOf(Mark mark)
{
    return mark == Mark::failure ? "!!" : mark == Mark::warning ? "!" : "";
}

// "FAILURE PREDICTED" stays alone: it is what is searched for.
std::string smartColumn(const HardDisk &disk)
{
    const Smart smart = disk.smart();
    std::string words = (smart == Smart::failing ? "" : "SMART ") + smartWords(smart);
    if (smart == Smart::unknownCode) {
        words += " " + std::to_string(disk.smartStatus);
    }
    return words;
}

std::string lifeSpanColumn(const HardDisk &disk)
{
    return disk.lifeSpan ? "life span " + lifeSpanWords(disk.lifeSpan->level) : "";
}

// A device in one line: what finds it comes first, then its state, then what it is called.
struct DeviceLine {
    std::string sign, address, node, kind, size, state;
    std::string rest;
    Mark mark = Mark::none;
};

std::string restOf(const Device &device)
{
    std::string rest = device.nameWords();
    append(rest, named("serial", device.serialNumber));
    append(rest, named("firmware", device.firmwareRevision));
    if (device.disk) {
        append(rest, lifeSpanColumn(*device.disk));
    }
    return rest;
}

DeviceLine lineOf(const Device &device)
{
    DeviceLine line;
    line.address = device.address();
    line.node = printable(device.node);
    line.kind = deviceTypeWords(device.interfaceType, device.deviceType) + " " + std::to_string(device.deviceTypeIndex);
    line.rest = restOf(device);
    if (device.disk) {
        line.mark = markOf(*device.disk);
        line.sign = signOf(line.mark);
        line.size = capacityWords(device.disk->capacity);
        line.state = smartColumn(*device.disk);
    }
    return line;
}

// Columns that all lines have in common, whatever controller they are below: often each disk has one of its own.
constexpr std::string DeviceLine::*kColumns[] = {&DeviceLine::sign, &DeviceLine::address, &DeviceLine::node,
                                                 &DeviceLine::kind, &DeviceLine::size,    &DeviceLine::state};
using Widths = std::array<size_t, std::size(kColumns)>;

void widen(Widths &widths, const std::vector<Device> &devices)
{
    for (const Device &device : devices) {
        const DeviceLine line = lineOf(device);
        for (size_t i = 0; i < widths.size(); ++i) {
            widths[i] = std::max(widths[i], (line.*kColumns[i]).size());
        }
    }
}

Widths widthsOf(const Inventory &inventory)
{
    Widths widths = {};
    for (const Controller &controller : inventory.controllers) {
        widen(widths, controller.devices);
    }
    widen(widths, inventory.devicesWithoutController);
    return widths;
}

Text joined(const DeviceLine &line, const Widths &widths)
{
    const bool disk = !line.state.empty();
    std::string text;
    for (size_t i = 0; i < widths.size(); ++i) {
        const bool ofDisks = kColumns[i] == &DeviceLine::size || kColumns[i] == &DeviceLine::state;
        if (widths[i] == 0 || (ofDisks && !disk)) {
            continue; // no such column; what is no disk has its name behind its kind
        }
        std::string column = line.*kColumns[i];
        column.resize(widths[i], ' ');
        text += column + (kColumns[i] == &DeviceLine::sign ? " " : "  ");
    }
    const size_t columns = text.size();
    text += line.rest;
    text.erase(text.find_last_not_of(' ') + 1);
    return {text, line.mark, line.rest.empty() ? 0 : columns};
}

void addDevices(Node &parent, const std::vector<Device> &devices, const Widths &widths, bool verbose)
{
    for (const Device &device : devices) {
        const DeviceLine line = lineOf(device);
        Node node{joined(line, widths)};
        if (verbose && device.disk) {
            node.details.push_back({geometryOf(*device.disk)});
        }
        if (verbose) {
            node.details.push_back({interfaceWords(device.interfaceType) + " device " + std::to_string(device.index)});
        }
        parent.children.push_back(std::move(node));
    }
}

Node controllerNode(const Controller &controller, const Widths &widths, bool verbose)
{
    std::string label = "Controller " + std::to_string(controller.index) + ": " + printable(controller.model);
    append(label, controller.host ? "host " + std::to_string(*controller.host) : "");
    const std::string driver = printable(controller.driver);
    append(label, driver.empty() ? "no driver" : "driver " + driver);
    append(label, controller.interruptNumber == kNoInterrupt
                      ? std::string("interrupt unknown")
                      : "interrupt " + std::to_string(controller.interruptNumber));
    Node node{{label}};
    if (verbose) {
        const std::string &version = controller.driverVersion;
        node.details.push_back({"interface " + interfaceWords(controller.interfaceType) + ", driver version " +
                                (saysSomething(version) ? printable(version) : "unknown")});
    }
    addDevices(node, controller.devices, widths, verbose);
    return node;
}

Node diskNode(const HardDisk &disk, bool verbose)
{
    const Mark mark = markOf(disk);
    std::string label = signOf(mark);
    label += (label.empty() ? "" : " ") + ("hard disk " + std::to_string(disk.index)) + "  " +
             capacityWords(disk.capacity) + "  " + smartColumn(disk);
    append(label, lifeSpanColumn(disk));
    Node node{{label, mark}};
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
    const Widths widths = widthsOf(inventory);
    Node root{{label}};
    for (const Controller &controller : inventory.controllers) {
        root.children.push_back(controllerNode(controller, widths, verbose));
    }
    if (!inventory.devicesWithoutController.empty()) {
        Node group{{"Devices without a controller"}};
        addDevices(group, inventory.devicesWithoutController, widths, verbose);
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

// Columns that are left behind a prefix, enough to read at any depth.
size_t roomBehind(size_t prefix, const TextStyle &style)
{
    return style.width == 0 ? 0 : std::max(style.width > prefix ? style.width - prefix : 0, kNarrowest);
}

// A text, its first line behind one prefix, its further lines behind another and an indent.
void printText(std::string &out, const Text &text, const std::string &first, const std::string &rest,
               const TextStyle &style)
{
    const size_t firstRoom = roomBehind(columnsOf(first), style);
    const size_t restRoom = roomBehind(columnsOf(rest) + kIndent, style);
    const bool breaks = text.breakAt != 0 && firstRoom != 0 && columnsOf(text.text) > firstRoom;
    const size_t head = breaks ? text.breakAt : text.text.size();
    std::vector<std::string> lines = wrapped(text.text.substr(0, head), firstRoom, restRoom);
    if (breaks) {
        const std::vector<std::string> below = wrapped(text.text.substr(head), restRoom, restRoom);
        lines.insert(lines.end(), below.begin(), below.end());
    }
    for (size_t i = 0; i < lines.size(); ++i) {
        out += i == 0 ? first : rest + std::string(kIndent, ' ');
        out += painted(lines[i], text.mark, style.colour) + "\n";
    }
}

void printNode(std::string &out, const Node &node, const std::string &first, const std::string &rest,
               const TextStyle &style)
{
    const Glyphs &glyphs = style.utf8 ? kBoxes : kAscii;
    // A node's own lines are beside the trunk that leads to its children.
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
           twoColumns(
               {{"thread", monitoring.running ? "running" : "not running"},
                {"cycle", std::to_string(monitoring.cycle) + " s (" + std::to_string(monitoring.cycleMin) + " to " +
                              std::to_string(monitoring.cycleMax) + ", default " +
                              std::to_string(monitoring.cycleDefault) + ")"},
                {"SMART", monitoring.smartMode == kSmartHandled ? "disks are asked"
                                                                : "disks are not asked (HardDiskSmartMode is " +
                                                                      std::to_string(monitoring.smartMode) + ")"}},
               width);
}

} // namespace

std::string inventoryText(const Inventory &inventory, const TextStyle &style)
{
    std::string out;
    printNode(out, machineNode(inventory, style.verbose), "", "", style);
    if (!inventory.explanation.empty()) {
        printText(out, {inventory.explanation}, "", "", style);
    }
    out += "\n" + totalsText(inventory.totals, style.width);
    if (style.verbose) {
        out += "\n" + monitoringText(inventory.monitoring, style.width);
    }
    const std::vector<HealthItem> items = healthItems(healthOf(inventory));
    constexpr const char *kHead = "Health: ";
    const std::string below(std::strlen(kHead), ' ');
    for (size_t i = 0; i < items.size(); ++i) {
        out += i == 0 ? "\n" : "";
        printText(out, {(i == 0 ? kHead : "") + items[i].text, items[i].mark}, i == 0 ? "" : below, below, style);
    }
    return out;
}

std::string instancesText(const std::string &className, const std::vector<broker::Instance> &instances, size_t width)
{
    std::string out;
    for (const broker::Instance &instance : instances) {
        Rows rows;
        for (const broker::NamedValue &property : instance.properties) {
            if (property.value.isNull()) {
                continue;
            }
            const std::string meaning = schemaMeaning(className, property.name, property.value);
            rows.emplace_back(printable(property.name), printable(property.value.toString()) + meaning);
        }
        out += (out.empty() ? "" : "\n") + printable(className) + "\n" + twoColumns(rows, width);
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
