// SPDX-License-Identifier: Apache-2.0
#include "tavstrg/commands.h"

#include "tavstrg/ask.h"
#include "tavstrg/check.h"
#include "tavstrg/collection.h"
#include "tavstrg/failure.h"
#include "tavstrg/json.h"
#include "tavstrg/metrics.h"
#include "tavstrg/progress.h"
#include "tavstrg/saved_state.h"
#include "tavstrg/session.h"
#include "tavstrg/trace_tap.h"
#include "tavstrg/watch.h"

#include <unistd.h>

#include <filesystem>

namespace tool {
namespace {

Outcome show(broker::Broker &broker, const SmartReadings &readings, const Arguments &arguments, const TextStyle &style)
{
    Collection collection;
    Inventory inventory = collectInventory(broker, readings, collection);
    inventory.machine = std::filesystem::path(arguments.machine).filename().string();
    return {kDone, arguments.json ? inventoryJson(inventory) : inventoryText(inventory, style), ""};
}

Outcome enumerate(broker::Broker &broker, const Arguments &arguments, const TextStyle &style)
{
    const std::vector<broker::Instance> instances = askAll(broker, arguments.className);
    return {kDone,
            arguments.json ? instancesJson(arguments.className, instances)
                           : instancesText(arguments.className, instances, style.width),
            ""};
}

Outcome get(broker::Broker &broker, const Arguments &arguments, const TextStyle &style)
{
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

// Device nodes and the agent's directories are root's. The provider only traces that it could not open them; what a
// client sees of it are these two messages.
bool mayLackRights(const std::string &error)
{
    return error.find("strgInitProvider() Failure!!") != std::string::npos ||
           error.find("strgGetInstance() FAILED") != std::string::npos;
}

Outcome writeMetrics(const std::vector<Metric> &metrics, const Arguments &arguments)
{
    const std::string text = arguments.json ? metricsJson(metrics) : metricsText(metrics);
    if (arguments.output.empty()) {
        return {kDone, text, ""};
    }
    writeWhole(arguments.output, text);
    return {};
}

// A collection that failed is published too: values of an earlier one would go on saying that all is well.
Outcome writeMetrics(broker::Broker &broker, const SmartReadings &readings, const Arguments &arguments)
{
    Collection collection;
    std::vector<Metric> metrics;
    Outcome outcome;
    try {
        metrics = metricsOf(collectInventory(broker, readings, collection));
    } catch (const Failure &failure) {
        metrics = metricsOfFailure(collection);
        outcome = {kFailed, "", failure.what(), failure.cimStatus()};
    }
    outcome.output = writeMetrics(metrics, arguments).output;
    return outcome;
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

Outcome ask(const Arguments &arguments, const TextStyle &style)
{
    const Progress progress(isatty(STDERR_FILENO) == 1);
    SmartReadings readings;
    const TraceTap tap([&readings](int level, const char *function, const char *text) {
        readings.take(level, function == nullptr ? "" : function, text);
    });
    Session session({arguments.provider, arguments.machine, arguments.serviceMode});
    switch (arguments.command) {
    case Command::enumerate:
        return enumerate(session.broker(), arguments, style);
    case Command::get:
        return get(session.broker(), arguments, style);
    case Command::call:
        return call(session.broker(), arguments);
    case Command::metrics:
        return writeMetrics(session.broker(), readings, arguments);
    default:
        return show(session.broker(), readings, arguments, style);
    }
}

Outcome outcomeOf(const Arguments &arguments, const TextStyle &style)
{
    switch (arguments.command) {
    case Command::watch:
        return watch(arguments, style);
    case Command::check:
        return check(arguments, style);
    case Command::dumpState:
        return dumpState(arguments, style);
    default:
        return ask(arguments, style);
    }
}

} // namespace

Outcome run(const Arguments &arguments, const TextStyle &style)
{
    if (arguments.command == Command::classes) {
        return {kDone, arguments.json ? catalogueJson(catalogue()) : catalogueText(catalogue(), style.width), ""};
    }
    Outcome outcome;
    try {
        outcome = outcomeOf(arguments, style);
    } catch (const Failure &failure) {
        outcome = {kFailed, "", failure.what(), failure.cimStatus()};
    }
    if (arguments.machine.empty() && geteuid() != 0 && mayLackRights(outcome.error)) {
        outcome.error += "; asking this machine needs root";
    }
    return outcome;
}

} // namespace tool
