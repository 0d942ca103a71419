// SPDX-License-Identifier: Apache-2.0
// The function table for requests to the broker: threads, and instances of other providers' classes.

#include "broker/objects.h"

#include <tuple>

namespace broker {

namespace {

constexpr const char *kGeneralInformation = "TAV_GeneralInformation";

CMPIContext *prepareAttachThread(const CMPIBroker *broker, const CMPIContext *context)
{
    Call call(broker, context, "prepareAttachThread");
    if (call.refused()) {
        return nullptr;
    }
    // Outlives the request. The broker owns it until detachThread, so that a thread that never detaches is not a leak.
    Core &core = call.core();
    auto copy = std::make_unique<ContextObject>(core.tables.context, objectOf(context)->held);
    return &core.keep(std::move(copy), core.prepared, Owner::provider, call.slot());
}

CMPIStatus attachThread(const CMPIBroker *broker, const CMPIContext *context)
{
    return Call(broker, context, "attachThread").status();
}

CMPIStatus detachThread(const CMPIBroker *broker, const CMPIContext *context)
{
    Call call(broker, context, "detachThread");
    if (call.refused()) {
        return call.status();
    }
    ContextObject *const prepared = objectOf(context);
    if (prepared->shelf != &call.core().prepared || prepared->owner == Owner::handedIn) {
        return call.fail(CMPI_RC_ERR_INVALID_PARAMETER);
    }
    call.core().retire(*prepared);
    return call.status();
}

// The agent's TAV_GeneralInformation, with the property that the provider reads.
InstanceData generalInformation(const Core &core, const std::string &nameSpace)
{
    PathData path;
    path.nameSpace = nameSpace;
    path.className = kGeneralInformation;
    InstanceData data = freshInstance(core, path);
    const CMPIBoolean installed = *core.serviceMode ? 1 : 0;
    data.presets.remove("InstalledServiceMode");
    data.properties.set("InstalledServiceMode", plainDatum(CMPI_boolean, &installed));
    return data;
}

// The broker's own instances of a class. Fails the call if it has no such class.
std::vector<InstanceData> instancesOf(Call &call, const CMPIObjectPath *given)
{
    std::vector<InstanceData> found;
    if (call.refused()) {
        return found;
    }
    const Core &core = call.core();
    const PathObject *const path = given == nullptr || given->hdl == nullptr ? nullptr : objectOf(given);
    if (!call.usable(path)) {
        call.fail(CMPI_RC_ERR_FAILED);
        return found;
    }
    if (!sameName(path->held.nameSpace, core.options.nameSpace)) {
        call.fail(CMPI_RC_ERR_INVALID_NAMESPACE);
        return found;
    }
    for (const InstanceData &instance : core.instances) {
        if (sameName(instance.className, path->held.className)) {
            found.push_back(instance);
        }
    }
    if (found.empty() && sameName(path->held.className, kGeneralInformation) && core.serviceMode) {
        found.push_back(generalInformation(core, path->held.nameSpace));
    }
    if (found.empty()) {
        call.fail(CMPI_RC_ERR_INVALID_CLASS);
    }
    return found;
}

void filter(InstanceData &data, const char **properties)
{
    if (properties == nullptr) {
        return;
    }
    NamedData kept;
    for (const NamedDatum &entry : data.properties.all()) {
        for (const char **name = properties; *name != nullptr; ++name) {
            if (sameName(entry.name, *name)) {
                kept.set(entry.name, entry.datum);
            }
        }
    }
    data.properties = kept;
    data.presets = NamedData{};
}

// Whether an instance has the keys of a path, whatever the types of numbers.
bool hasKeys(const InstanceData &data, const PathData &path)
{
    for (const NamedDatum &key : path.keys.all()) {
        const Datum *const own = data.find(key.name);
        if (own == nullptr || toValue(*own).toString() != toValue(key.datum).toString()) {
            return false;
        }
    }
    return true;
}

CMPIInstance *getInstance(const CMPIBroker *broker, const CMPIContext *context, const CMPIObjectPath *path,
                          const char **properties, CMPIStatus *status)
{
    Call call(broker, context, "getInstance", status);
    for (InstanceData &data : instancesOf(call, path)) {
        if (hasKeys(data, objectOf(path)->held)) {
            filter(data, properties);
            return call.instance(std::move(data));
        }
    }
    if (!call.refused() && call.status().rc == CMPI_RC_OK) {
        call.fail(CMPI_RC_ERR_NOT_FOUND);
    }
    return nullptr;
}

CMPIEnumeration *enumerateInstances(const CMPIBroker *broker, const CMPIContext *context, const CMPIObjectPath *path,
                                    const char **properties, CMPIStatus *status)
{
    Call call(broker, context, "enumerateInstances", status);
    ArrayData all{CMPI_instance, {}};
    for (InstanceData &data : instancesOf(call, path)) {
        filter(data, properties);
        all.elements.push_back({CMPI_instance, false, std::make_shared<const InstanceData>(std::move(data))});
    }
    return all.elements.empty() ? nullptr : call.enumeration(std::move(all));
}

CMPIEnumeration *enumerateInstanceNames(const CMPIBroker *broker, const CMPIContext *context,
                                        const CMPIObjectPath *given, CMPIStatus *status)
{
    Call call(broker, context, "enumerateInstanceNames", status);
    ArrayData all{CMPI_ref, {}};
    for (const InstanceData &data : instancesOf(call, given)) {
        PathData path{"", data.nameSpace, data.className, NamedData{}};
        for (const NamedValue &key : toInstance(data).keys) {
            path.keys.set(key.name, toDatum(key.value));
        }
        all.elements.push_back({CMPI_ref, false, std::make_shared<const PathData>(std::move(path))});
    }
    return all.elements.empty() ? nullptr : call.enumeration(std::move(all));
}

// Requests that the provider never makes to a broker.
template <class... Arguments> CMPIStatus refuse(const CMPIBroker *broker, const CMPIContext *context, Arguments...)
{
    return Call(broker, context, "notSupported").fail(CMPI_RC_ERR_NOT_SUPPORTED);
}

template <class Object, class... Arguments>
Object *refuseObject(const CMPIBroker *broker, const CMPIContext *context, Arguments... arguments)
{
    CMPIStatus *const status = std::get<sizeof...(arguments) - 1>(std::tuple(arguments...));
    Call(broker, context, "notSupported", status).fail(CMPI_RC_ERR_NOT_SUPPORTED);
    return nullptr;
}

template <class... Arguments>
CMPIData refuseData(const CMPIBroker *broker, const CMPIContext *context, Arguments... arguments)
{
    CMPIStatus *const status = std::get<sizeof...(arguments) - 1>(std::tuple(arguments...));
    return Call(broker, context, "notSupported", status).missing(CMPI_RC_ERR_NOT_SUPPORTED);
}

} // namespace

CMPIBrokerFT brokerTable(unsigned version)
{
    CMPIBrokerFT table{};
    table.brokerCapabilities = 0x13F; // as in the real broker, without indications
    table.brokerVersion = version;
    table.brokerName = "RequestHandler";
    table.prepareAttachThread = prepareAttachThread;
    table.attachThread = attachThread;
    table.detachThread = detachThread;
    table.deliverIndication = refuse;
    table.enumerateInstanceNames = enumerateInstanceNames;
    table.getInstance = getInstance;
    table.createInstance = refuseObject;
    table.modifyInstance = refuse;
    table.deleteInstance = refuse;
    table.execQuery = refuseObject;
    table.enumerateInstances = enumerateInstances;
    table.associators = refuseObject;
    table.associatorNames = refuseObject;
    table.references = refuseObject;
    table.referenceNames = refuseObject;
    table.invokeMethod = refuseData;
    table.setProperty = refuse;
    table.getProperty = refuseData;
    return table;
}

} // namespace broker
