// SPDX-License-Identifier: Apache-2.0
#include "sim/report.h"

#include "sim/api.h"
#include "sim/state.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <malloc.h>
#include <string>
#include <unistd.h>

namespace sim {

namespace {

// A field of /proc/self/status in kB, or 0 if it is missing.
long statusKb(const char *field)
{
    std::FILE *const file = std::fopen("/proc/self/status", "re");
    if (file == nullptr) {
        return 0;
    }
    const std::string format = std::string(field) + ": %ld";
    long kb = 0;
    char line[128];
    while (kb == 0 && std::fgets(line, sizeof line, file) != nullptr) {
        std::sscanf(line, format.c_str(), &kb);
    }
    std::fclose(file);
    return kb;
}

struct Memory {
    long before = 0; // resident kB before the machine was made
    long after = 0;  // and after
};
constinit Memory memory{};

const char *reportFile()
{
    const char *const path = std::getenv("TAVSIM_REPORT");
    return path == nullptr || *path == '\0' ? nullptr : path;
}

// In one write, so that lines of processes that end at the same time do not mix.
void append(const char *path, const char *line, size_t length)
{
    const int descriptor = open(path, O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644);
    if (descriptor < 0 || write(descriptor, line, length) != static_cast<ssize_t>(length)) {
        std::fprintf(stderr, "tavsim: cannot write %s\n", path);
    }
    if (descriptor >= 0) {
        close(descriptor);
    }
}

unsigned spinUps(const MachineState &machine)
{
    unsigned sum = 0;
    for (const std::unique_ptr<Device> &device : machine.devices) {
        sum += device->spinUps;
    }
    return sum;
}

} // namespace

void beginReport()
{
    if (reportFile() == nullptr) {
        return;
    }
    measureOwnCpu(true);
    countCallsOf("no program of that name");
    memory.before = statusKb("VmRSS");
}

void machineIsReported()
{
    if (reportFile() == nullptr) {
        return;
    }
    malloc_trim(0);
    // "5" resets the peak of the resident set (Documentation/filesystems/proc.rst).
    std::FILE *const file = std::fopen("/proc/self/clear_refs", "we");
    if (file != nullptr) {
        std::fputs("5", file);
        std::fclose(file);
    }
    memory.after = statusKb("VmRSS");
}

void endReport()
{
    const char *const path = reportFile();
    if (path == nullptr) {
        return;
    }
    const MachineState &machine = *currentMachine();
    char line[512];
    const int length = std::snprintf(
        line, sizeof line,
        R"({"program":"%s","cpuSeconds":%.6f,"requests":%u,"commands":%u,"unknownIoctls":%u,"spinUps":%u,"peakKb":%ld,"machineKb":%ld})"
        "\n",
        program_invocation_short_name, ownCpuSecondsOfProcess(), machine.requests, machine.toDevices,
        machine.unknownIoctls, spinUps(machine), statusKb("VmHWM"), memory.after - memory.before);
    append(path, line, static_cast<size_t>(length));
}

} // namespace sim
