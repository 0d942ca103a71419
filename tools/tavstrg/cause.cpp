// SPDX-License-Identifier: Apache-2.0
#include "tavstrg/cause.h"

#include "tavstrg/words.h"

#include <sys/utsname.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <string_view>

namespace tool {
namespace {

using TraceLines = std::vector<TraceLine>;

struct Address {
    int host = -1;
    int id = -1;
};

struct TracedDisk {
    std::string node; // empty: no node has the disk's address
    Address address;
    std::string vendor, model;
};

// The text between '[' and ']' behind a key: "name=" in "_IN_ name=[/dev/sda]".
std::string bracketed(std::string_view text, std::string_view key)
{
    const size_t at = text.find(key);
    if (at == text.npos) {
        return "";
    }
    const size_t open = text.find('[', at);
    const size_t close = text.find(']', open == text.npos ? at : open);
    return close == text.npos || open == text.npos ? "" : std::string(text.substr(open + 1, close - open - 1));
}

int numberIn(std::string_view text, std::string_view key)
{
    const std::string digits = bracketed(text, key);
    return digits.empty() ? -1 : std::atoi(digits.c_str());
}

// The last line before "at" that begins so.
const TraceLine *lastBefore(const TraceLines &trace, size_t at, std::string_view function, std::string_view begin)
{
    while (at-- > 0) {
        if (trace[at].function == function && trace[at].text.starts_with(begin)) {
            return &trace[at];
        }
    }
    return nullptr;
}

// Vendor and model of the device at an address, as the discovery listed it.
void nameDisk(const TraceLines &trace, size_t at, TracedDisk &disk)
{
    for (size_t i = 0; i + 1 < at; ++i) {
        if (trace[i].text.starts_with("SCSIDeviceInfo(") && numberIn(trace[i].text, "Host=") == disk.address.host &&
            numberIn(trace[i].text, " ID=") == disk.address.id) {
            disk.vendor = bracketed(trace[i + 1].text, "Vender=");
            disk.model = bracketed(trace[i + 1].text, "Model=");
        }
    }
}

TracedDisk diskAt(const TraceLines &trace, size_t at)
{
    TracedDisk disk;
    if (const TraceLine *line = lastBefore(trace, at, "TAVStorageGetSCSIDeviceSerialNumber", "_IN_ name=")) {
        disk.node = bracketed(line->text, "name=");
    }
    if (const TraceLine *line = lastBefore(trace, at, "GetSCSIDevSpeed", "_IN_ host=")) {
        disk.address = {numberIn(line->text, "host="), numberIn(line->text, "id=")};
        nameDisk(trace, at, disk);
    }
    return disk;
}

std::string wordsFor(const TracedDisk &disk)
{
    std::string words = disk.node.empty() ? "the disk" : disk.node;
    const std::string name = printable(disk.vendor) + " " + printable(disk.model);
    words += name == " " ? "" : " (" + name + ")";
    if (disk.address.host >= 0) {
        words += " at host " + std::to_string(disk.address.host) + ", target " + std::to_string(disk.address.id);
    }
    return words;
}

// What hits no other disk comes first.
std::string remedyFor(const TracedDisk &disk)
{
    const std::string device = disk.node.empty()
                                   ? "/sys/bus/scsi/devices/" + std::to_string(disk.address.host) +
                                         ":*:" + std::to_string(disk.address.id) + ":*"
                                   : "/sys/block/" + printable(disk.node.substr(disk.node.rfind('/') + 1)) + "/device";
    return "if it is dead, remove it from the kernel (echo 1 > " + device + "/delete); otherwise " +
           diskRemedy(disk.vendor, disk.model);
}

std::string identityCause(const TraceLines &trace, size_t at, const std::string &)
{
    const TracedDisk disk = diskAt(trace, at);
    return wordsFor(disk) +
           " does not answer HDIO_GET_IDENTITY, as a managed disk must: it is no ATA disk, or it is dead; " +
           remedyFor(disk);
}

std::string openCause(const TraceLines &trace, size_t at, const std::string &)
{
    const TracedDisk disk = diskAt(trace, at);
    return (disk.node.empty() ? "no device node answers for " + wordsFor(disk) : wordsFor(disk) + " cannot be opened") +
           "; " + remedyFor(disk);
}

std::string releaseCause(const TraceLines &, size_t, const std::string &release)
{
    return "the kernel release " + printable(release) + " is refused; " + releaseRemedy();
}

std::string errnoWords(const std::string &text, std::string_view key)
{
    const int error = numberIn(text, key);
    return error > 0 ? std::strerror(error) : "error " + std::to_string(error);
}

std::string keyFileCause(const TraceLines &trace, size_t at, const std::string &)
{
    return "cannot make the key file " + printable(bracketed(trace[at].text, "fnm=")) + ": " +
           errnoWords(trace[at].text, "errno=") + "; the agent's directory work must exist and be writable";
}

std::string segmentCause(const TraceLines &trace, size_t at, const std::string &)
{
    return "no shared-memory segment can be made: " + errnoWords(trace[at].text, "errno=") +
           "; see ipcs -m for segments that are not used any more, and the kernel's limits kernel.shmmni and "
           "kernel.shmall";
}

std::string saveCause(const TraceLines &trace, size_t at, const std::string &)
{
    return "the saved state cannot be written: " + errnoWords(trace[at].text, "err=") +
           "; the agent's directory data must exist and be writable";
}

std::string memoryCause(const TraceLines &, size_t, const std::string &)
{
    return "not enough memory";
}

std::string administratorCause(const TraceLines &trace, size_t at, const std::string &)
{
    return "an administrator's file cannot be read (" + printable(trace[at].text) + "); tavstrg check says more";
}

struct Rule {
    std::string_view function;
    std::string_view begin;
    std::string (*cause)(const TraceLines &trace, size_t at, const std::string &release);
};

constexpr Rule kRules[] = {
    {"CmpVersion", "_OUT_ version[", releaseCause},
    {"strgGetCurrentInfo", "_OUT_ version comaparing failed", releaseCause},
    {"TAVStorageGetSCSIDeviceSerialNumber", "_OUT_ ioctl(HDIO_GET_IDENTITY) failed", identityCause},
    {"TAVStorageGetSCSIDeviceSerialNumber", "_OUT_ open failed.", openCause},
    {"shmCreate", "_OUT_ fopen Failure!!", keyFileCause},
    {"shmCreate", "_OUT_ ftok Failure!!", keyFileCause},
    {"shmCreate", "_OUT_ shmget Failure!!", segmentCause},
    {"strgCheckConfigChange", "_OUT_ fopen Failure!!", saveCause},
    {"strgSetInstance", "_OUT_ fopen Failure!!", saveCause},
    {"memalloc", "_OUT_ adr is Null Failure!!", memoryCause},
    {"memrealloc", "_OUT_ adr is Null Failure!!", memoryCause},
    {"CreatStorageInfoTable", "_OUT_ stat error", administratorCause},
    {"getSectionFromInfFile", "_OUT_ fopen [", administratorCause},
    {"getSectionFromInfFile", "_OUT_ fread [", administratorCause},
    {"CreateNoSCSIInfoTable", "_OUT_ stat error", administratorCause},
};

// Failures that end nothing: a table that is absent, a reply without sense data, the broker's calls.
bool isHarmless(const TraceLine &line)
{
    return line.function == "strgGetInfFile" || line.text.starts_with("#") || line.text.starts_with("->") ||
           line.text.find("No sense data") != std::string::npos ||
           line.text.find("CBGetInstance()") != std::string::npos;
}

} // namespace

std::string causeOf(const std::vector<TraceLine> &trace, const std::string &release)
{
    const TraceLine *first = nullptr;
    for (size_t i = 0; i < trace.size(); ++i) {
        for (const Rule &rule : kRules) {
            if (trace[i].function == rule.function && trace[i].text.starts_with(rule.begin)) {
                return rule.cause(trace, i, release);
            }
        }
        if (first == nullptr && trace[i].level > 0 && !isHarmless(trace[i])) {
            first = &trace[i];
        }
    }
    return first == nullptr ? ""
                            : "first failure traced: " + printable(first->function) + ": " + printable(first->text) +
                                  " (--trace prints all)";
}

std::string kernelRelease()
{
    utsname name{};
    return uname(&name) == 0 ? name.release : "";
}

std::string diskRemedy(const std::string &vendor, const std::string &model)
{
    return vendor.empty() && model.empty()
               ? "leave it out with a line in noscsi.inf, or all disks of its driver by removing that from storage.inf"
               : "leave out all disks of its model with the line \"Vendor: " + printable(vendor) +
                     " Model: " + printable(model) +
                     "\" in noscsi.inf, or all disks of its driver by removing that from storage.inf";
}

std::string releaseRemedy()
{
    return "switch on kernel-release in options.inf, or boot a kernel whose release is numbers and dots, then at most "
           "\"-\" and more, such as 6.1.0-18-amd64";
}

} // namespace tool
