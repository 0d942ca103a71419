// SPDX-License-Identifier: Apache-2.0
#include "tavstrg/record.h"

#include "tavstrg/disks.h"
#include "tavstrg/record_parts.h"
#include "tavstrg/words.h"

#include <sys/utsname.h>

#include <algorithm>

namespace tool {
namespace {

// Threads that are with disks that hang still call it when the command is over.
Calls &heardCalls()
{
    static auto *const calls = new Calls;
    return *calls;
}

DiskReport listenedReport(const Arguments &arguments)
{
    sim::listen(&heardCalls());
    DiskReport report = collectDisks(arguments);
    sim::listen(nullptr);
    return report;
}

std::string commentOf(const DiskReport &report, const Arguments &arguments)
{
    std::string text = "Recorded by tavstrg " TAV_VERSION ": " + counted(report.disks.size(), "disk") + ". ";
    text += arguments.keepNames ? "Serial numbers and names are the disks' own."
                                : "Serial numbers and world wide names are replaced.";
    for (const std::string &note : report.notes) {
        text += " " + note;
    }
    return text;
}

std::string kernelRelease()
{
    utsname name{};
    return uname(&name) == 0 ? std::string(name.release) : std::string();
}

void addUnlessEmpty(const char *name, const Json &part, Json &json)
{
    if (!part.empty()) {
        json[name] = part;
    }
}

Json machineJson(const DiskReport &report, const Arguments &arguments)
{
    Names names(arguments.keepNames);
    const Recording recording{report, heardCalls(), names};
    Json json = {{"comment", commentOf(report, arguments)}, {"kernel", kernelRelease()}};
    json["sysfs"] = AttributeDirectory("/sys/block").exists();
    json["procfs"] = AttributeDirectory("/proc/scsi").exists();
    addUnlessEmpty("hosts", hostsJson(recording), json);
    addUnlessEmpty("nvme", nvmeJson(recording, arguments.keepNames), json);
    addUnlessEmpty("virtio", cardsJson(recording, false), json);
    addUnlessEmpty("mmc", cardsJson(recording, true), json);
    addUnlessEmpty("files", filesJson(), json);
    return json;
}

std::string missingFrom(const DiskReport &report)
{
    std::string text = report.explanation;
    for (const std::string &note : report.notes) {
        text += (text.empty() ? "" : "\n") + note;
    }
    return text;
}

} // namespace

Outcome recordMachine(const Arguments &arguments)
{
    const DiskReport report = listenedReport(arguments);
    return {kDone, written(machineJson(report, arguments)), arguments.json ? "" : missingFrom(report)};
}

} // namespace tool
