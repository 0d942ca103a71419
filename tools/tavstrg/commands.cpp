#include "commands.h"

#include "ask.h"
#include "failure.h"
#include "json.h"
#include "session.h"

#include <unistd.h>

#include <filesystem>

namespace tool {
namespace {

Outcome show(broker::Broker &broker, const Arguments &arguments, const TextStyle &style)
{
    Inventory inventory = buildInventory(askInventory(broker));
    inventory.machine = std::filesystem::path(arguments.machine).filename().string();
    return {kDone, arguments.json ? inventoryJson(inventory) : inventoryText(inventory, style), ""};
}

Outcome enumerate(broker::Broker &broker, const Arguments &arguments)
{
    const std::vector<broker::Instance> instances = askAll(broker, arguments.className);
    return {kDone,
            arguments.json ? instancesJson(arguments.className, instances)
                           : instancesText(arguments.className, instances),
            ""};
}

Outcome get(broker::Broker &broker, const Arguments &arguments)
{
    const broker::Instance instance =
        askOne(broker, arguments.className, arguments.index ? &*arguments.index : nullptr);
    return {kDone,
            arguments.json ? instanceJson(arguments.className, instance)
                           : instancesText(arguments.className, {instance}),
            ""};
}

// The thread's methods tell their outcome as a return value and call themselves successful, the others by the status.
int statusOf(const broker::Reply &reply)
{
    if (!reply.ok() || reply.data.empty())
        return reply.rc;
    const auto *value = std::get_if<uint64_t>(&reply.data.front().data);
    return value == nullptr ? 0 : static_cast<int>(*value);
}

Outcome call(broker::Broker &broker, const Arguments &arguments)
{
    std::vector<broker::NamedValue> values;
    for (const MethodArgument &argument : arguments.methodArguments)
        values.push_back({argument.name, broker::Value::text(argument.value)});
    const broker::Reply reply = broker.invokeMethod(arguments.className, arguments.method, values);
    Outcome outcome;
    if (reply.ok()) {
        outcome.output = arguments.json ? returnValuesJson(arguments.className, arguments.method, reply.data)
                                        : returnValuesText(reply.data);
    }
    if (const int status = statusOf(reply); status != 0) {
        outcome.status = kFailed;
        outcome.error = failureText(arguments.className + "." + arguments.method, status, reply.message);
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

Outcome ask(const Arguments &arguments, const TextStyle &style)
{
    Session session({arguments.provider, arguments.machine, arguments.serviceMode});
    switch (arguments.command) {
    case Command::enumerate:
        return enumerate(session.broker(), arguments);
    case Command::get:
        return get(session.broker(), arguments);
    case Command::call:
        return call(session.broker(), arguments);
    default:
        return show(session.broker(), arguments, style);
    }
}

} // namespace

Outcome run(const Arguments &arguments, const TextStyle &style)
{
    if (arguments.command == Command::classes)
        return {kDone, arguments.json ? catalogueJson(catalogue()) : catalogueText(catalogue()), ""};
    Outcome outcome;
    try {
        outcome = ask(arguments, style);
    } catch (const Failure &failure) {
        outcome = {kFailed, "", failure.what()};
    }
    if (arguments.machine.empty() && geteuid() != 0 && mayLackRights(outcome.error))
        outcome.error += "; asking this machine needs root";
    return outcome;
}

} // namespace tool
