// SPDX-License-Identifier: Apache-2.0
// /proc/interrupts and /proc/ioports of a description: as given, from a list of entries, or made up from its drivers.
#include "sim/description_parts.h"

#include <cstdio>
#include <cstdlib>
#include <limits>
#include <set>

namespace sim {

namespace {

struct Interrupt {
    std::string number; // "14", or "NMI"
    unsigned count = 0;
    std::string name;
};

// Kernels before 2.6 name the controller only, later ones also the pin and its trigger mode.
std::string interruptLine(const Interrupt &interrupt, bool old)
{
    char start[128];
    if (old) {
        std::snprintf(start, sizeof start, "%3s: %10u          XT-PIC  ", interrupt.number.c_str(), interrupt.count);
    } else {
        std::snprintf(start, sizeof start, "%3s: %10u   IO-APIC %3s-fasteoi   ", interrupt.number.c_str(),
                      interrupt.count, interrupt.number.c_str());
    }
    return start + interrupt.name + "\n";
}

constexpr const char *kInterruptHead = "           CPU0       \n";

// The interrupts of a small PC, and a line per driver.
std::string defaultInterrupts(const Description &description, bool old)
{
    std::string text = kInterruptHead;
    for (const Interrupt &usual :
         {Interrupt{"0", 112, "timer"}, {"1", 9, "i8042"}, {"8", 1, "rtc0"}, {"9", 0, "acpi"}, {"12", 3, "i8042"}}) {
        text += interruptLine(usual, old);
    }
    for (const IdeChannel &channel : description.channels) {
        const std::string suffix = channel.name.starts_with("ide") ? channel.name.substr(3) : "0";
        text += interruptLine({std::to_string(14 + std::strtol(suffix.c_str(), nullptr, 10)), 120, channel.name}, old);
    }
    std::set<std::string> seen;
    unsigned number = 16;
    for (const HostDescription &host : description.hosts) {
        if (seen.insert(host.driver).second) {
            text += interruptLine({std::to_string(number++), 248, host.driver}, old);
        }
    }
    return text + "NMI:          0   Non-maskable interrupts\nERR:          0\n";
}

struct Ports {
    unsigned start, end;
    std::string name;
    unsigned depth = 0;
};

std::string portLine(const Ports &ports)
{
    char range[32];
    std::snprintf(range, sizeof range, "%04x-%04x : ", ports.start, ports.end);
    return std::string(ports.depth * size_t{2}, ' ') + range + ports.name + "\n";
}

std::string defaultPorts(const Description &description)
{
    std::string text;
    for (const Ports &usual : {Ports{0x00, 0x1f, "dma1"},
                               {0x20, 0x21, "pic1"},
                               {0x40, 0x43, "timer0"},
                               {0x60, 0x60, "keyboard"},
                               {0x64, 0x64, "keyboard"},
                               {0x70, 0x77, "rtc0"}}) {
        text += portLine(usual);
    }
    constexpr unsigned kCommand[] = {0x1f0, 0x170, 0x1e8, 0x168};
    constexpr unsigned kControl[] = {0x3f6, 0x376, 0x3ee, 0x36e};
    for (size_t i = 0; i < description.channels.size() && i < std::size(kCommand); ++i) {
        text += portLine({kCommand[i], kCommand[i] + 7, description.channels[i].name});
        text += portLine({kControl[i], kControl[i], description.channels[i].name});
    }
    std::set<std::string> seen;
    unsigned start = 0xc000;
    for (const HostDescription &host : description.hosts) {
        if (seen.insert(host.driver).second) {
            text += portLine({start, start + 0xff, host.driver});
            start += 0x100;
        }
    }
    return text;
}

unsigned portNumber(Fields &fields, const char *name)
{
    if (!fields.isText(name)) {
        return fields.number<unsigned>(name, 0);
    }
    const std::string text = fields.text(name, "");
    char *end = nullptr;
    const unsigned long number = std::strtoul(text.c_str(), &end, 16);
    if (end == text.c_str() || number > std::numeric_limits<unsigned>::max()) {
        fields.fail(name, "expected a port in hexadecimal digits");
    }
    return static_cast<unsigned>(number);
}

} // namespace

std::optional<std::string> interruptsText(Fields &fields, const Description &description)
{
    const bool old = kernelNumber(description.kernel) < 2006000;
    if (!fields.has("interrupts")) {
        return defaultInterrupts(description, old);
    }
    if (!fields.isListOfObjects("interrupts")) {
        return fields.lines("interrupts");
    }
    std::string text = kInterruptHead;
    for (Fields of : fields.objects("interrupts")) {
        text +=
            interruptLine({of.textOrNumber("number", "0"), of.number<unsigned>("count", 0), of.text("name", "")}, old);
        of.finish();
    }
    return text;
}

std::optional<std::string> ioportsText(Fields &fields, const Description &description)
{
    if (!fields.has("ioports")) {
        return defaultPorts(description);
    }
    if (!fields.isListOfObjects("ioports")) {
        return fields.lines("ioports");
    }
    std::string text;
    for (Fields of : fields.objects("ioports")) {
        text += portLine(
            {portNumber(of, "start"), portNumber(of, "end"), of.text("name", ""), of.number<uint8_t>("depth", 0)});
        of.finish();
    }
    return text;
}

} // namespace sim
