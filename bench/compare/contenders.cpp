// SPDX-License-Identifier: Apache-2.0
#include "compare/contenders.h"

#include "compare/machines.h"

#include <filesystem>
#include <sstream>
#include <stdexcept>

namespace compare {

namespace {

// Processes of smartctl at a time under xargs; 0: it is another contender.
int processesAtOnce(Contender contender)
{
    return contender == Contender::smartctlParallel ? 8 : contender == Contender::smartctlAll16 ? 16 : 0;
}

// Whether each disk has a process of its own, one after the other.
bool isByDisk(Contender contender)
{
    return contender == Contender::smartctl || contender == Contender::smartctlBare ||
           contender == Contender::smartctlAll;
}

// "8-1": disks and disks per host.
std::string textOf(Place place)
{
    return std::to_string(place.disks) + "-" + std::to_string(place.perHost);
}

bool isResident(Contender contender)
{
    return contender == Contender::collection || contender == Contender::sideBySide || contender == Contender::disks ||
           contender == Contender::discovery || contender == Contender::inventory;
}

// Text of the file options.inf of a contender's machine; empty without one.
const char *optionsOf(Contender contender)
{
    return contender == Contender::sideBySide ? "side-by-side" : "";
}

// Directory of the agent's state between the provider's runs: with it, a fresh process makes one collection and not
// two.
std::string keptState(Contender contender, Place place)
{
    switch (contender) {
    case Contender::collection:
    case Contender::providerProcess:
        return "state-" + textOf(place);
    case Contender::sideBySide: // its options.inf stays in the directory
        return "state-side-by-side-" + textOf(place);
    case Contender::inventory: // the SMART mode is kept too
        return "state-off-" + textOf(place);
    default:
        return "";
    }
}

// Each -a: health, attributes, self-test and error log.
std::string smartdConfiguration(int disks)
{
    std::string text;
    for (int i = 0; i < disks; ++i) {
        text += diskOf(i).node + " -a\n";
    }
    return text;
}

} // namespace

Contest::Contest(Lab &lab, std::string binaries, std::string libraries)
    : lab_(lab), binaries_(std::move(binaries)), libraries_(std::move(libraries))
{
}

std::string Contest::machine(Place place, const char *options) const
{
    const std::string name = "all-" + textOf(place) + "-" + std::to_string(place.latencyMs) + "-" + options + ".json";
    return std::filesystem::exists(lab_.path(name))
               ? lab_.path(name)
               : lab_.write(name, withOptions(machineOf(0, place.disks, place.perHost, place.latencyMs), options));
}

std::string Contest::machineOfOne(int disk, int latencyMs) const
{
    const std::string path = pathOfOne(diskOf(disk).node.substr(5), latencyMs);
    return std::filesystem::exists(path)
               ? path
               : lab_.write(std::filesystem::path(path).filename(), machineOf(disk, 1, Place{}.perHost, latencyMs));
}

std::string Contest::pathOfOne(const std::string &node, int latencyMs) const
{
    return lab_.path("one-" + node + "-" + std::to_string(latencyMs) + ".json");
}

Program Contest::smartctl(Contender contender, const std::string &node)
{
    std::vector<std::string> arguments{"smartctl"};
    if (contender == Contender::smartctlBare) {
        arguments.insert(arguments.end(), {"-B", "/dev/null"});
    }
    if (contender == Contender::smartctlAll || contender == Contender::smartctlAll16) {
        arguments.insert(arguments.end(), {"-j", "-a"});
    } else {
        arguments.emplace_back("-iHA");
    }
    arguments.push_back(node);
    return {arguments, {"smartctl", "-V"}};
}

Cost Contest::smartctlInParallel(Contender contender, Place place)
{
    std::string nodes;
    for (int disk = 0; disk < place.disks; ++disk) {
        machineOfOne(disk, place.latencyMs);
        nodes += diskOf(disk).node.substr(5) + "\n";
    }
    return lab_.measureEach(smartctl(contender, "/dev/{}"), pathOfOne("{}", place.latencyMs),
                            lab_.write("nodes", nodes), processesAtOnce(contender));
}

Program Contest::program(Contender contender, Place place, int requests) const
{
    const std::string disks = std::to_string(place.disks);
    const std::string provider = binaries_ + "/compare_provider";
    const std::string discovery = binaries_ + "/compare_discovery";
    switch (contender) {
    case Contender::discovery:
    case Contender::discoveryProcess:
        return {{discovery, disks, std::to_string(requests)}, {discovery}};
    case Contender::smartd:
    case Contender::smartdStart:
        // Without a state to write, unlike its default.
        return {{"smartd", "-q", contender == Contender::smartd ? "onecheck" : "showtests", "-s", "", "-A", "", "-c",
                 lab_.write("smartd-" + disks, smartdConfiguration(place.disks))},
                {"smartd", "-V"}};
    case Contender::lsscsi:
        return {{"lsscsi"}, {"lsscsi", "-V"}};
    case Contender::lsblk: // asks for what the simulated kernel's block devices do not have
        return {{"lsblk", "-O"}, {"lsblk", "-V"}, true};
    case Contender::disks:
    case Contender::disksProcess:
        return {{binaries_ + "/compare_disks", disks, std::to_string(requests)}, {binaries_ + "/compare_disks"}};
    default:
        break;
    }
    Program program{{provider, libraries_ + "/libTAVStorageProvider.so", disks, std::to_string(requests)}, {provider}};
    if (contender == Contender::inventory) {
        program.arguments.emplace_back("0"); // SMART mode
    }
    return program;
}

// Counts of a request are those of many requests less those of one; its times are printed by the process. Memory is not
// measured: the broker keeps the objects of its last requests, to detect double releases.
std::vector<Cost> Contest::resident(Contender contender, Place place, int times)
{
    const std::string state = keptState(contender, place);
    const std::string described = machine(place, optionsOf(contender));
    lab_.measure(program(contender, place, 1), described, state); // creates the saved state
    const Cost one = lab_.measure(program(contender, place, 1), described, state);
    std::string output;
    const Cost all = lab_.measure(program(contender, place, times + 1), described, state, &output);
    const auto perRequest = [times](unsigned whole, unsigned first) {
        return (whole - first) / static_cast<unsigned>(times);
    };
    std::istringstream lines(output);
    std::vector<Cost> costs;
    for (Cost cost; lines >> cost.cpuSeconds >> cost.wallSeconds >> cost.rawCpuSeconds >> cost.rawWallSeconds;) {
        cost.requests = perRequest(all.requests, one.requests);
        cost.commands = perRequest(all.commands, one.commands);
        costs.push_back(cost);
    }
    if (costs.size() != static_cast<size_t>(times) + 1) {
        throw std::runtime_error("expected the times of " + std::to_string(times + 1) + " requests, got " +
                                 std::to_string(costs.size()));
    }
    costs.erase(costs.begin());
    return costs;
}

Cost Contest::once(Contender contender, Place place)
{
    if (processesAtOnce(contender) != 0) {
        return smartctlInParallel(contender, place);
    }
    if (!isByDisk(contender)) {
        return lab_.measure(program(contender, place, 1), machine(place), keptState(contender, place));
    }
    Cost sum;
    for (int disk = 0; disk < place.disks; ++disk) {
        sum += lab_.measure(smartctl(contender, diskOf(disk).node), machineOfOne(disk, place.latencyMs));
    }
    return sum;
}

std::vector<Cost> Contest::measure(Contender contender, Place place, int times)
{
    if (isResident(contender)) {
        return resident(contender, place, times);
    }
    if (contender == Contender::providerProcess) {
        once(contender, place); // creates the saved state
    }
    std::vector<Cost> costs;
    for (int i = 0; i < times; ++i) {
        costs.push_back(once(contender, place));
    }
    return costs;
}

void Contest::expect(const Program &program, const std::string &machine, int exitStatus,
                     const std::vector<std::string> &texts) const
{
    const process::Finished finished = lab_.look(program, machine);
    if (finished.status != exitStatus) {
        throw std::runtime_error(program.arguments[0] + " ended with status " + std::to_string(finished.status) +
                                 ", not " + std::to_string(exitStatus) + ":\n" + finished.out);
    }
    for (const std::string &text : texts) {
        if (finished.out.find(text) == std::string::npos) {
            throw std::runtime_error(program.arguments[0] + " does not report \"" + text + "\":\n" + finished.out);
        }
    }
}

long Contest::systemCalls(Contender contender, Place place)
{
    if (processesAtOnce(contender) != 0) {
        return 0; // smartctl's, and xargs' own
    }
    if (isByDisk(contender)) {
        return place.disks * lab_.systemCalls(smartctl(contender, diskOf(0).node), machineOfOne(0, place.latencyMs));
    }
    const auto calls = [&](int requests) {
        return lab_.systemCalls(program(contender, place, requests), machine(place, optionsOf(contender)),
                                keptState(contender, place));
    };
    return isResident(contender) ? calls(3) - calls(2) : calls(1);
}

void Contest::checkThatAllSeeTheMachine()
{
    constexpr int kDisks = 3;
    const Place place{kDisks, 0};
    std::vector<std::string> nodes, serials;
    for (int i = 0; i < kDisks; ++i) {
        const Disk disk = diskOf(i);
        nodes.push_back(disk.node);
        serials.push_back("S/N:" + disk.serial);
        for (const Contender contender : {Contender::smartctl, Contender::smartctlBare}) {
            expect(smartctl(contender, disk.node), machineOfOne(i, 0), 0,
                   {disk.model, disk.serial, "self-assessment test result: PASSED", std::to_string(kPowerOnHours),
                    "0" + std::to_string(kReallocatedThreshold)});
        }
    }
    expect(program(Contender::lsscsi, place, 1), machine(place), 0, nodes);
    expect(program(Contender::lsblk, place, 1), machine(place), 0, nodes);
    expect(program(Contender::disks, place, 2), machine(place), 0, {});
    expect(smartctl(Contender::smartctlAll, diskOf(0).node), machineOfOne(0, 0), 0,
           {diskOf(0).serial, "\"passed\": true"});
    expect(program(Contender::smartd, place, 1), machine(place), 0, serials);
    expect(program(Contender::collection, place, 2), machine(place), 0, {});
    expect(program(Contender::inventory, place, 2), machine(place), 0, {});
    expect(program(Contender::sideBySide, place, 2), machine(place, optionsOf(Contender::sideBySide)), 0, {});
    expect(program(Contender::discovery, place, 2), machine(place), 0, {});

    // One disk predicts its failure and each program must report it, so none can report "good" without asking.
    const std::string failing = lab_.write("failing.json", machineOf(0, kDisks, place.perHost, 0, 1));
    constexpr int kDiskFailing = 1 << 3; // smartctl(8), exit status
    expect(program(Contender::disks, place, 1), failing, 1, {});
    expect(smartctl(Contender::smartctl, diskOf(1).node), failing, kDiskFailing,
           {"self-assessment test result: FAILED"});
    expect(program(Contender::smartd, place, 1), failing, 0, {"FAILED SMART self-check"});
    expect(program(Contender::collection, place, 1), failing, 2, {"SMART status 1"});
}

} // namespace compare
