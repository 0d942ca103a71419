// SPDX-License-Identifier: Apache-2.0
#include "compare/lab.h"

#include "compare/median.h"

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

process::Command silent(std::vector<std::string> words, std::vector<std::string> environment = {})
{
    return {.words = std::move(words),
            .environment = std::move(environment),
            .out = process::Output::discarded,
            .err = process::Output::discarded};
}

} // namespace

Cost &Cost::operator+=(const Cost &more)
{
    wallSeconds += more.wallSeconds;
    cpuSeconds += more.cpuSeconds;
    rawWallSeconds += more.rawWallSeconds;
    rawCpuSeconds += more.rawCpuSeconds;
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
        with.push_back(process::run(silent(program.startOnly, {"LD_PRELOAD=" + library_})).cpuSeconds);
        without.push_back(process::run(silent(program.startOnly)).cpuSeconds);
    }
    return loading_[program.startOnly[0]] = std::max(0.0, medianOf(with) - medianOf(without));
}

Cost Lab::costOf(const process::Finished &finished, const Program &program, const std::string &report, double loading)
{
    if (finished.status != 0) {
        throw std::runtime_error(textOf(program.arguments) + " ended with status " + std::to_string(finished.status));
    }
    Cost cost{.wallSeconds = finished.wallSeconds,
              .cpuSeconds = finished.cpuSeconds,
              .rawWallSeconds = finished.wallSeconds,
              .rawCpuSeconds = finished.cpuSeconds};
    std::ifstream lines(report);
    for (std::string line; std::getline(lines, line);) { // one for each process
        const nlohmann::json reported = nlohmann::json::parse(line);
        const double simulated = reported.at("cpuSeconds").get<double>() + loading;
        cost.wallSeconds -= simulated;
        cost.cpuSeconds -= simulated;
        cost.requests += reported.at("requests").get<unsigned>();
        cost.commands += reported.at("commands").get<unsigned>();
        cost.peakKb = std::max(cost.peakKb, reported.at("peakKb").get<long>() - reported.at("machineKb").get<long>());
        if (reported.at("unknownIoctls") != 0U && !program.mayAskAnything) {
            throw std::runtime_error(textOf(program.arguments) +
                                     " sent an ioctl that the simulated machine does not know");
        }
    }
    if (cost.peakKb == 0) {
        throw std::runtime_error(textOf(program.arguments) + " did not see the simulated machine");
    }
    return cost;
}

Cost Lab::measure(const Program &program, const std::string &machine, const std::string &keptState, std::string *output)
{
    const double loading = loadingSeconds(program);
    const std::string report = write("report", "");
    std::vector<std::string> variables = environment(machine, keptState);
    variables.push_back("TAVSIM_REPORT=" + report);
    const process::Finished finished =
        process::run({.words = program.arguments,
                      .environment = variables,
                      .out = output == nullptr ? process::Output::discarded : process::Output::kept,
                      .err = process::Output::inherited});
    const Cost cost = costOf(finished, program, report, loading);
    if (output != nullptr) {
        *output = finished.out;
    }
    return cost;
}

Cost Lab::measureEach(const Program &program, const std::string &machine, const std::string &items, int atOnce)
{
    const double loading = loadingSeconds(program);
    const std::string report = write("report", "");
    std::vector<std::string> words = {"xargs", "-a", items, "-P", std::to_string(atOnce), "-I{}", "env"};
    const std::vector<std::string> variables = environment(machine, "");
    words.insert(words.end(), variables.begin(), variables.end());
    words.push_back("TAVSIM_REPORT=" + report);
    words.insert(words.end(), program.arguments.begin(), program.arguments.end());
    const process::Finished finished = process::run(
        {.words = words, .environment = {}, .out = process::Output::discarded, .err = process::Output::inherited});
    Cost cost = costOf(finished, program, report, loading);
    cost.wallSeconds = 0; // the machines of processes that run at once overlap
    return cost;
}

process::Finished Lab::look(const Program &program, const std::string &machine) const
{
    return process::run({.words = program.arguments,
                         .environment = environment(machine, ""),
                         .out = process::Output::kept,
                         .err = process::Output::inherited});
}

long Lab::tracedCalls(const std::vector<std::string> &arguments, const std::vector<std::string> &environment) const
{
    std::vector<std::string> traced = {"strace", "-f", "-c", "-o", path("strace")};
    for (const std::string &variable : environment) {
        traced.insert(traced.end(), {"-E", variable});
    }
    traced.insert(traced.end(), arguments.begin(), arguments.end());
    if (process::run(silent(traced)).status != 0) {
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
