// SPDX-License-Identifier: Apache-2.0
// The function table for making objects.

#include "broker/objects.h"

#include <chrono>

namespace broker {

namespace {

CMPIInstance *newInstance(const CMPIBroker *broker, const CMPIObjectPath *given, CMPIStatus *status)
{
    Call call(Core::of(broker), "newInstance", status);
    if (call.refused()) {
        return nullptr;
    }
    const PathObject *const path = given == nullptr ? nullptr : objectOf(given);
    if (!call.usable(path)) {
        call.fail(CMPI_RC_ERR_INVALID_PARAMETER);
        return nullptr;
    }
    return call.instance(freshInstance(call.core(), path->held));
}

CMPIObjectPath *newObjectPath(const CMPIBroker *broker, const char *nameSpace, const char *className,
                              CMPIStatus *status)
{
    Call call(Core::of(broker), "newObjectPath", status);
    if (call.refused()) {
        return nullptr;
    }
    PathData path;
    path.nameSpace = nameSpace == nullptr ? "" : nameSpace;
    path.className = className == nullptr ? "" : className;
    return call.path(std::move(path));
}

CMPIArgs *newArgs(const CMPIBroker *broker, CMPIStatus *status)
{
    Call call(Core::of(broker), "newArgs", status);
    return call.refused() ? nullptr : call.args(NamedData{});
}

CMPIString *newString(const CMPIBroker *broker, const char *text, CMPIStatus *status)
{
    Call call(Core::of(broker), "newString", status);
    if (call.refused()) {
        return nullptr;
    }
    return call.string(text == nullptr ? std::nullopt : std::optional<std::string>(text), Owner::message);
}

CMPIArray *newArray(const CMPIBroker *broker, CMPICount count, CMPIType type, CMPIStatus *status)
{
    Call call(Core::of(broker), "newArray", status);
    if (call.refused()) {
        return nullptr;
    }
    const CMPIType element = storedType(static_cast<CMPIType>(type & ~CMPI_ARRAY));
    return call.array({element, std::vector<Datum>(count, nullDatum(element))});
}

CMPIDateTime *newDateTime(const CMPIBroker *broker, CMPIStatus *status)
{
    using namespace std::chrono;
    Call call(Core::of(broker), "newDateTime", status);
    const auto now = duration_cast<microseconds>(system_clock::now().time_since_epoch());
    return call.refused() ? nullptr : call.time({static_cast<CMPIUint64>(now.count()), false});
}

CMPIDateTime *newDateTimeFromBinary(const CMPIBroker *broker, CMPIUint64 microseconds, CMPIBoolean interval,
                                    CMPIStatus *status)
{
    Call call(Core::of(broker), "newDateTimeFromBinary", status);
    return call.refused() ? nullptr : call.time({microseconds, interval != 0});
}

CMPIDateTime *newDateTimeFromChars(const CMPIBroker *broker, const char *text, CMPIStatus *status)
{
    Call call(Core::of(broker), "newDateTimeFromChars", status);
    if (call.refused()) {
        return nullptr;
    }
    const std::optional<TimeData> time = text == nullptr ? std::nullopt : parseTime(text);
    if (!time) {
        call.fail(CMPI_RC_ERR_INVALID_PARAMETER);
        return nullptr;
    }
    return call.time(*time);
}

CMPISelectExp *newSelectExp(const CMPIBroker *broker, const char *, const char *, CMPIArray **, CMPIStatus *status)
{
    Call call(Core::of(broker), "newSelectExp", status);
    call.fail(CMPI_RC_ERR_NOT_SUPPORTED); // queries are not evaluated
    return nullptr;
}

// Compares the class itself only, not its base classes.
CMPIBoolean classPathIsA(const CMPIBroker *broker, const CMPIObjectPath *given, const char *className,
                         CMPIStatus *status)
{
    Call call(Core::of(broker), "classPathIsA", status);
    const PathObject *const path = call.refused() || given == nullptr ? nullptr : objectOf(given);
    return call.usable(path) && className != nullptr && sameName(path->held.className, className) ? 1 : 0;
}

// The object behind any pointer, for toString, isOfType and getType.
Object *inspect(Call &call, const void *pointer)
{
    Object *const object = call.refused() || pointer == nullptr ? nullptr : anyObject(call.core(), pointer);
    if (!call.usable(object)) {
        call.fail(call.refused() ? call.status().rc : CMPI_RC_ERR_INVALID_HANDLE);
        return nullptr;
    }
    return object;
}

CMPIString *toString(const CMPIBroker *broker, const void *pointer, CMPIStatus *status)
{
    Call call(Core::of(broker), "toString", status);
    const Object *const object = inspect(call, pointer);
    return object == nullptr ? nullptr : call.string(object->describe());
}

CMPIBoolean isOfType(const CMPIBroker *broker, const void *pointer, const char *type, CMPIStatus *status)
{
    Call call(Core::of(broker), "isOfType", status);
    const Object *const object = inspect(call, pointer);
    return object != nullptr && type != nullptr && std::string_view(type) == object->kind ? 1 : 0;
}

CMPIString *getType(const CMPIBroker *broker, const void *pointer, CMPIStatus *status)
{
    Call call(Core::of(broker), "getType", status);
    const Object *const object = inspect(call, pointer);
    return object == nullptr ? nullptr : call.string(object->kind);
}

// Messages, log and trace are not supported, as in the real broker.
CMPIString *getMessage(const CMPIBroker *broker, const char *, const char *, CMPIStatus *status, CMPICount, ...)
{
    Call call(Core::of(broker), "getMessage", status);
    call.fail(CMPI_RC_ERR_NOT_SUPPORTED);
    return nullptr;
}

CMPIStatus logMessage(const CMPIBroker *broker, int, const char *, const char *, const CMPIString *)
{
    return Call(Core::of(broker), "logMessage").fail(CMPI_RC_ERR_NOT_SUPPORTED);
}

CMPIStatus trace(const CMPIBroker *broker, int, const char *, const char *, const CMPIString *)
{
    return Call(Core::of(broker), "trace").fail(CMPI_RC_ERR_NOT_SUPPORTED);
}

} // namespace

CMPIBrokerEncFT encapsulatedTable(int version)
{
    CMPIBrokerEncFT table{}; // errors and message files stay null, as in the real broker
    table.ftVersion = version;
    table.newInstance = newInstance;
    table.newObjectPath = newObjectPath;
    table.newArgs = newArgs;
    table.newString = newString;
    table.newArray = newArray;
    table.newDateTime = newDateTime;
    table.newDateTimeFromBinary = newDateTimeFromBinary;
    table.newDateTimeFromChars = newDateTimeFromChars;
    table.newSelectExp = newSelectExp;
    table.classPathIsA = classPathIsA;
    table.toString = toString;
    table.isOfType = isOfType;
    table.getType = getType;
    table.getMessage = getMessage;
    table.logMessage = logMessage;
    table.trace = trace;
    return table;
}

} // namespace broker
