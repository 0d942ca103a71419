// SPDX-License-Identifier: Apache-2.0
#include "tavstrg/commands.h"

#include "tavstrg/agent_paths.h"
#include "tavstrg/ask.h"
#include "tavstrg/cause.h"
#include "tavstrg/check.h"
#include "tavstrg/collection.h"
#include "tavstrg/disk_metrics.h"
#include "tavstrg/disks.h"
#include "tavstrg/failure.h"
#include "tavstrg/json.h"
#include "tavstrg/metrics.h"
#include "tavstrg/monitor/monitor.h"
#include "tavstrg/output_file.h"
#include "tavstrg/record.h"
#include "tavstrg/saved_state.h"
#include "tavstrg/segments.h"
#include "tavstrg/session.h"
#include "tavstrg/supervise.h"
#include "tavstrg/surroundings.h"
#include "tavstrg/watch.h"

#include "classes/disk_properties.h"

#include <unistd.h>

#include <filesystem>

namespace tool {
namespace {

Outcome show(Session &session, const SmartReadings &readings, const Arguments &arguments, const TextStyle &style)
{
    Inventory inventory = collectInventory(session, readings);
    inventory.machine = std::filesystem::path(arguments.machine).filename().string();
    return {kDone, arguments.json ? inventoryJson(inventory) : inventoryText(inventory, style), ""};
}

// The provider links a disk to its hard disk by the inventory that it has; a new process has the saved one or none. A
// failure leaves it so.
void takeInventoryFor(broker::Broker &broker, const std::string &className)
{
    if (className == tavstrg::kDiskClass) {
        broker.enumInstances("TAV_StorageTotalNumber");
    }
}

Outcome enumerate(broker::Broker &broker, const Arguments &arguments, const TextStyle &style)
{
    takeInventoryFor(broker, arguments.className);
    const std::vector<broker::Instance> instances = askAll(broker, arguments.className);
    return {kDone,
            arguments.json ? instancesJson(arguments.className, instances)
                           : instancesText(arguments.className, instances, style.width),
            ""};
}

Outcome get(broker::Broker &broker, const Arguments &arguments, const TextStyle &style)
{
    takeInventoryFor(broker, arguments.className);
    const broker::Instance instance =
        askOne(broker, arguments.className, arguments.index ? &*arguments.index : nullptr);
    return {kDone,
            arguments.json ? instanceJson(arguments.className, instance)
                           : instancesText(arguments.className, {instance}, style.width),
            ""};
}

Outcome call(broker::Broker &broker, const Arguments &arguments)
{
    std::vector<broker::NamedValue> values;
    for (const MethodArgument &argument : arguments.methodArguments) {
        values.push_back({argument.name, broker::Value::text(argument.value)});
    }
    const broker::Reply reply = broker.invokeMethod(arguments.className, arguments.method, values);
    Outcome outcome;
    if (reply.ok()) {
        outcome.output = arguments.json ? returnValuesJson(arguments.className, arguments.method, reply.data)
                                        : returnValuesText(reply.data);
    }
    if (const int status = statusOf(reply); status != 0) {
        outcome.status = kFailed;
        outcome.error = failureText(arguments.className + "." + arguments.method, status, reply.message);
        outcome.cimStatus = status;
    }
    return outcome;
}

std::string metricsOutput(const std::vector<Metric> &metrics, const Arguments &arguments)
{
    return arguments.json ? metricsJson(metrics) : metricsText(metrics);
}

Outcome dumpState(const Arguments &arguments, const TextStyle &style)
{
    const SavedState state = parseSavedState(readStateFile(arguments.file));
    Outcome outcome{kDone, arguments.json ? savedStateJson(state) : savedStateText(state, style.width), ""};
    if (!state.damage.empty()) {
        outcome.status = kFailed;
        outcome.error = arguments.file + ": " + state.damage;
    }
    return outcome;
}

Outcome answer(Session &session, const SmartReadings &readings, const Arguments &arguments, const TextStyle &style)
{
    switch (arguments.command) {
    case Command::enumerate:
        return enumerate(session.broker(), arguments, style);
    case Command::get:
        return get(session.broker(), arguments, style);
    case Command::call:
        return call(session.broker(), arguments);
    case Command::metrics:
        return {kDone, metricsOutput(metricsOf(collectInventory(session, readings)), arguments), ""};
    default:
        return show(session, readings, arguments, style);
    }
}

// The provider answers many failures with these two messages; what failed is only traced.
bool hidesItsCause(const std::string &error)
{
    return error.find("strgInitProvider() Failure!!") != std::string::npos ||
           error.find("strgGetInstance() FAILED") != std::string::npos ||
           error.find("Storage-Update FAILED") != std::string::npos;
}

// In the process that asks: its trace says why a request failed.
Outcome explained(const std::function<Outcome()> &work)
{
    Outcome outcome;
    try {
        outcome = work();
    } catch (const Failure &failure) {
        outcome = {kFailed, "", failure.what(), failure.cimStatus()};
    }
    if (hidesItsCause(outcome.error)) {
        const std::string cause = causeOf(TraceCapture::lines(), kernelRelease());
        outcome.error += cause.empty() ? "" : ": " + cause;
    }
    return outcome;
}

// Whether the command asks the disks themselves, without the provider.
bool isAboutDisks(const Arguments &arguments)
{
    switch (arguments.command) {
    case Command::disks:
    case Command::disk:
    case Command::health:
    case Command::report:
        return true;
    default:
        return arguments.command == Command::metrics && !arguments.ofClasses;
    }
}

Outcome work(const Arguments &arguments, const TextStyle &style, Surroundings &surroundings)
{
    return explained([&]() -> Outcome {
        if (arguments.command == Command::watch) {
            return watch(arguments, style, surroundings);
        }
        if (arguments.command == Command::check) {
            return check(arguments, style);
        }
        if (isAboutDisks(arguments)) {
            return runDisks(arguments, style);
        }
        if (arguments.command == Command::record) {
            return recordMachine(arguments);
        }
        SmartReadings readings;
        const TraceListener listener([&readings](const TraceLine &line) { readings.take(line); });
        Session session(surroundings, arguments, arguments.serviceMode);
        return answer(session, readings, arguments, style);
    });
}

Use useOf(const Arguments &arguments)
{
    if (isAboutDisks(arguments)) {
        return Use::none;
    }
    switch (arguments.command) {
    case Command::check:
    case Command::monitor:
    case Command::record:
        return Use::none;
    case Command::call:
        return Use::write;
    case Command::watch:
        return Use::watch;
    default:
        return Use::read;
    }
}

// A call whose effect would end with this command, or be overwritten by another process, is refused.
void refuseUselessCall(const Arguments &arguments)
{
    if (arguments.className == "TAV_StorageThread" && arguments.method == "StartMonitoringThread" &&
        arguments.serviceMode) {
        throw Failure("call: the monitoring thread would end with this command, before its first pass; tavstrg watch "
                      "runs it, and so does the broker on this method");
    }
    const bool simulated = !arguments.machine.empty();
    const std::string work = simulated ? arguments.state + "/work" : kAgentWork;
    if (simulated && arguments.state.empty()) {
        return;
    }
    if (const auto monitor = runningMonitor(work, !simulated)) {
        throw Failure(
            "call: the provider runs in process " + std::to_string(monitor->process) + " (" + monitor->name +
            "), which would overwrite what this command saves; call the method through its broker, or stop it first");
    }
}

Outcome askSupervised(const Arguments &arguments, const TextStyle &style)
try {
    Surroundings surroundings(arguments, useOf(arguments));
    const bool graceful = arguments.command == Command::watch || arguments.command == Command::call;
    return supervised([&] { return work(arguments, style, surroundings); },
                      graceful ? Ending::graceful : Ending::atOnce,
                      arguments.command != Command::watch && !arguments.trace);
} catch (const Failure &failure) {
    return {kFailed, "", failure.what(), failure.cimStatus()};
}

// A collection that failed is published too: with the values of an earlier one, monitoring would not notice it. Only a
// signal, after which there is no message, leaves an earlier file unchanged.
Outcome askForMetrics(const Arguments &arguments, const TextStyle &style)
{
    Collection collection;
    Outcome outcome;
    {
        const Stopwatch stopwatch(collection);
        outcome = askSupervised(arguments, style);
    }
    if (outcome.status != kDone && !outcome.error.empty()) {
        outcome.output = metricsOutput(arguments.ofClasses ? metricsOfFailure(collection)
                                                           : diskMetrics({}, {false, collection.seconds, {}}),
                                       arguments);
    }
    return outcome;
}

// Into the file that was named; only metrics, record and report have one.
Outcome intoFile(Outcome outcome, const Arguments &arguments)
{
    constexpr mode_t kOwnerOnly = 0600;
    if (!arguments.output.empty() && !outcome.output.empty()) {
        writeWhole(arguments.output, outcome.output,
                   arguments.command == Command::record ? kOwnerOnly : kReadableByAll);
        outcome.output.clear();
    }
    return outcome;
}

Outcome ask(const Arguments &arguments, const TextStyle &style)
{
    if (arguments.command == Command::call) {
        refuseUselessCall(arguments);
    }
    if (!arguments.output.empty()) {
        checkReplaceable(arguments.output); // before the disks are asked for nothing
    }
    const SignalsWait signals;
    if (arguments.command == Command::monitor) {
        Surroundings surroundings(arguments, useOf(arguments));
        return monitor::run(arguments, surroundings);
    }
    return intoFile(arguments.command == Command::metrics ? askForMetrics(arguments, style)
                                                          : askSupervised(arguments, style),
                    arguments);
}

} // namespace

Outcome run(const Arguments &arguments, const TextStyle &style)
{
    if (arguments.command == Command::classes) {
        return {kDone, arguments.json ? catalogueJson(catalogue()) : catalogueText(catalogue(), style.width), ""};
    }
    Outcome outcome;
    try {
        outcome = arguments.command == Command::dumpState ? dumpState(arguments, style) : ask(arguments, style);
    } catch (const Failure &failure) {
        outcome = {kFailed, "", failure.what(), failure.cimStatus()};
    }
    if (arguments.machine.empty() && geteuid() != 0 && hidesItsCause(outcome.error)) {
        outcome.error += "; asking this machine needs root";
    }
    return outcome;
}

} // namespace tool
