// SPDX-License-Identifier: Apache-2.0
#include "compare/lab.h"

#include <algorithm>
#include <fstream>
#include <nlohmann/json.hpp>
#include <sstream>
#include <stdexcept>
#include <unistd.h>

namespace compare {

namespace {

std::filesystem::path makeDirectory()
{
    std::string name = std::string(::access("/dev/shm", W_OK | X_OK) == 0 ? "/dev/shm" : "/tmp") + "/compare.XXXXXX";
    if (::mkdtemp(name.data()) == nullptr) {
        throw std::runtime_error("cannot make " + name);
    }
    return name;
}

// Of strace's summary: the calls in the line of the totals, "100.00 seconds usecs/call calls [errors] total".
long totalCalls(const std::string &summary)
{
    std::ifstream file(summary);
    for (std::string line; std::getline(file, line);) {
        if (line.ends_with(" total")) {
            std::istringstream fields(line);
            std::string part;
            long calls = 0;
            fields >> part >> part >> part >> calls;
            return calls;
        }
    }
    throw std::runtime_error("strace made no summary");
}

std::string textOf(const std::vector<std::string> &arguments)
{
    std::string text;
    for (const std::string &argument : arguments) {
        text += (text.empty() ? "" : " ") + argument;
    }
    return text;
}

} // namespace

Cost &Cost::operator+=(const Cost &more)
{
    wallSeconds += more.wallSeconds;
    cpuSeconds += more.cpuSeconds;
    requests += more.requests;
    commands += more.commands;
    peakKb = std::max(peakKb, more.peakKb);
    return *this;
}

Lab::Lab(std::string library) : library_(std::move(library)), directory_(makeDirectory()) {}

Lab::~Lab()
{
    std::error_code ignored;
    std::filesystem::remove_all(directory_, ignored);
}

std::string Lab::write(const std::string &name, const std::string &content) const
{
    std::ofstream file(directory_ / name, std::ios::trunc);
    if (!(file << content).flush()) {
        throw std::runtime_error("cannot write " + path(name));
    }
    return path(name);
}

std::vector<std::string> Lab::environment(const std::string &machine, const std::string &keptState) const
{
    std::vector<std::string> variables = {"LD_PRELOAD=" + library_, "TAVSIM_MACHINE=" + machine,
                                          "TMPDIR=" + directory_.string()};
    if (!keptState.empty()) {
        std::filesystem::create_directories(directory_ / keptState);
        variables.push_back("TAVSIM_STATE=" + path(keptState));
    }
    return variables;
}

double Lab::loadingSeconds(const Program &program)
{
    const auto known = loading_.find(program.startOnly[0]);
    if (known != loading_.end()) {
        return known->second;
    }
    constexpr int kTimes = 31;
    std::vector<double> with, without;
    for (int i = 0; i < kTimes; ++i) {
        with.push_back(run({program.startOnly, {"LD_PRELOAD=" + library_}, true}).cpuSeconds);
        without.push_back(run({program.startOnly, {}, true}).cpuSeconds);
    }
    return loading_[program.startOnly[0]] = std::max(0.0, medianOf(with) - medianOf(without));
}

Cost Lab::measure(const Program &program, const std::string &machine, const std::string &keptState, std::string *output)
{
    const double loading = loadingSeconds(program);
    std::vector<std::string> variables = environment(machine, keptState);
    const std::string report = write("report", "");
    variables.push_back("TAVSIM_REPORT=" + report);
    const Ended ended = run({program.arguments, variables}, output != nullptr);
    if (ended.exitStatus != 0) {
        throw std::runtime_error(textOf(program.arguments) + " ended with status " + std::to_string(ended.exitStatus));
    }
    if (output != nullptr) {
        *output = ended.output;
    }
    Cost cost{.wallSeconds = ended.wallSeconds - loading, .cpuSeconds = ended.cpuSeconds - loading};
    std::ifstream lines(report);
    for (std::string line; std::getline(lines, line);) {
        const nlohmann::json told = nlohmann::json::parse(line);
        const double simulated = told.at("cpuSeconds");
        cost.wallSeconds -= simulated;
        cost.cpuSeconds -= simulated;
        cost.requests += told.at("requests").get<unsigned>();
        cost.commands += told.at("commands").get<unsigned>();
        cost.peakKb = std::max(cost.peakKb, told.at("peakKb").get<long>() - told.at("machineKb").get<long>());
        if (told.at("unknownIoctls") != 0U) {
            throw std::runtime_error(textOf(program.arguments) + " asked what the simulated machine does not know");
        }
    }
    if (cost.peakKb == 0) {
        throw std::runtime_error(textOf(program.arguments) + " did not see the simulated machine");
    }
    return cost;
}

Ended Lab::look(const Program &program, const std::string &machine) const
{
    return run({program.arguments, environment(machine, "")}, true);
}

long Lab::tracedCalls(const std::vector<std::string> &arguments, const std::vector<std::string> &environment) const
{
    std::vector<std::string> traced = {"strace", "-f", "-c", "-o", path("strace")};
    for (const std::string &variable : environment) {
        traced.insert(traced.end(), {"-E", variable});
    }
    traced.insert(traced.end(), arguments.begin(), arguments.end());
    if (run({traced, {}, true}).exitStatus != 0) {
        throw std::runtime_error(textOf(traced) + " failed");
    }
    return totalCalls(path("strace"));
}

long Lab::systemCalls(const Program &program, const std::string &machine, const std::string &keptState)
{
    const std::vector<std::string> variables = environment(machine, keptState);
    const long all = tracedCalls(program.arguments, variables);
    const long startAndMachine = tracedCalls(program.startOnly, variables);
    const long start = tracedCalls(program.startOnly, {});
    return all - startAndMachine + start + static_cast<long>(measure(program, machine, keptState).requests);
}

} // namespace compare
