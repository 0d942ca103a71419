// SPDX-License-Identifier: Apache-2.0
// The provider beside generic tools for the same disks, on the machine that it runs on: for the virtual machine of
// tests/vm, whose kernel and drivers are real. Prints a table in Markdown.
//
// usage: compare_real PROVIDER TIMES DISK...
// PROVIDER: the shared object. DISK...: the device nodes of all the disks that storage.inf has managed, all of them
// good. compare_provider and compare_discovery are in the directory of this program.
#include "compare/median.h"
#include "support/process.h"

#include <cstdio>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

using namespace compare;
using process::Command;
using process::Finished;
using process::Output;

struct Row {
    std::vector<double> cpu, wall; // seconds
    long peakKb = 0;
};

// A program whose standard error is the caller's.
Command program(std::vector<std::string> words, Output out = Output::discarded, Output err = Output::inherited)
{
    return {.words = std::move(words), .out = out, .err = err};
}

Finished runWell(const Command &command)
{
    Finished finished = process::run(command);
    if (finished.status != 0) {
        throw std::runtime_error(command.words[0] + " ended with status " + std::to_string(finished.status) + ": " +
                                 finished.out);
    }
    return finished;
}

// Several commands, one after the other, count as one.
Row measure(const std::vector<Command> &commands, int times)
{
    Row row;
    for (int i = 0; i <= times; ++i) { // the first run warms the caches up
        double cpu = 0;
        double wall = 0;
        for (const Command &command : commands) {
            const Finished ended = runWell(command);
            cpu += ended.cpuSeconds;
            wall += ended.wallSeconds;
            row.peakKb = std::max(row.peakKb, ended.peakKb);
        }
        if (i > 0) {
            row.cpu.push_back(cpu);
            row.wall.push_back(wall);
        }
    }
    return row;
}

// The times that a resident program prints, but for the first.
Row printedBy(std::vector<std::string> words)
{
    const Finished ended = runWell(program(std::move(words), Output::kept));
    std::istringstream lines(ended.out);
    Row row;
    row.peakKb = ended.peakKb;
    double cpu = 0;
    double wall = 0;
    double raw = 0; // the same: no machine is simulated
    lines >> cpu >> wall >> raw >> raw;
    while (lines >> cpu >> wall >> raw >> raw) {
        row.cpu.push_back(cpu);
        row.wall.push_back(wall);
    }
    return row;
}

void print(const char *what, const Row &row)
{
    std::printf("| %s | %.2f | %.2f | %.1f |\n", what, medianOf(row.cpu) * 1e3, medianOf(row.wall) * 1e3,
                static_cast<double>(row.peakKb) / 1024);
}

void compareAll(const std::string &provider, int times, const std::vector<std::string> &disks)
{
    const std::filesystem::path beside = std::filesystem::read_symlink("/proc/self/exe").parent_path();
    const std::string asker = beside / "compare_provider";
    const std::string discovery = beside / "compare_discovery";
    const std::string configuration = std::filesystem::temp_directory_path() / "smartd.conf";
    std::ofstream file(configuration);
    std::vector<Command> smartctl;
    for (const std::string &disk : disks) {
        file << disk << " -a\n";
        smartctl.push_back(program({"smartctl", "-iHA", disk}));
    }
    file.close();
    const auto smartd = [&](const char *mode) {
        return program({"smartd", "-q", mode, "-s", "", "-A", "", "-c", configuration});
    };
    const std::string number = std::to_string(disks.size());
    const std::string often = std::to_string(times + 1);
    std::printf("| %zu disks | CPU, ms | clock, ms | peak, MiB |\n|---|---:|---:|---:|\n", disks.size());
    print("a process that collects once", measure({program({asker, provider, number, "1"})}, times));
    print("a collection", printedBy({asker, provider, number, often}));
    print("`smartctl -iHA`, one disk after the other", measure(smartctl, times));
    print("`smartd -q onecheck`", measure({smartd("onecheck")}, times));
    print("`smartd -q showtests`", measure({smartd("showtests")}, times));
    print("discovery, of all devices", printedBy({discovery, "0", often}));
    print("a process that discovers once", measure({program({discovery, "0", "1"})}, times));
    print("of this, start and end", measure({program({discovery})}, times));
    print("`lsscsi`", measure({program({"lsscsi"})}, times));
    print("of this, start and end", measure({program({"lsscsi", "-V"}, Output::discarded, Output::discarded)}, times));
}

} // namespace

int main(int argc, char **argv)
{
    const int times = argc > 3 ? std::atoi(argv[2]) : 0;
    if (times < 1) {
        std::fprintf(stderr, "usage: compare_real PROVIDER TIMES DISK...\n");
        return 2;
    }
    try {
        compareAll(argv[1], times, {argv + 3, argv + argc});
    } catch (const std::exception &error) {
        std::fprintf(stderr, "compare_real: %s\n", error.what());
        return 1;
    }
    return 0;
}
