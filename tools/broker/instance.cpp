// SPDX-License-Identifier: Apache-2.0
// Instances: properties, the property filter, and their object paths.

#include "broker/objects.h"

#include <algorithm>

namespace broker {

namespace {

CMPIInstance *clone(const CMPIInstance *self, CMPIStatus *status)
{
    const InstanceObject *const instance = objectOf(self);
    Call call(*instance, "clone", status);
    if (call.refused()) {
        return nullptr;
    }
    call.attachToNoRequest();
    return call.instance(instance->held);
}

CMPIData getProperty(const CMPIInstance *self, const char *name, CMPIStatus *status)
{
    const InstanceObject *const instance = objectOf(self);
    Call call(*instance, "getProperty", status);
    if (call.refused()) {
        return call.missing(call.status().rc);
    }
    const Datum *const property = name == nullptr ? nullptr : instance->held.find(name);
    return property == nullptr ? call.missing(call.core().options.missingPropertyCode) : call.data(*property);
}

CMPIData getPropertyAt(const CMPIInstance *self, CMPICount index, CMPIString **name, CMPIStatus *status)
{
    const InstanceObject *const instance = objectOf(self);
    Call call(*instance, "getPropertyAt", status);
    if (call.refused()) {
        return call.missing(call.status().rc);
    }
    std::vector<NamedDatum> all = instance->held.properties.all();
    const std::vector<NamedDatum> &presets = instance->held.presets.all();
    all.insert(all.end(), presets.begin(), presets.end());
    return call.entryAt(all, index, name);
}

CMPICount getPropertyCount(const CMPIInstance *self, CMPIStatus *status)
{
    const InstanceObject *const instance = objectOf(self);
    const Call call(*instance, "getPropertyCount", status);
    const InstanceData &held = instance->held;
    return call.refused() ? 0 : static_cast<CMPICount>(held.properties.all().size() + held.presets.all().size());
}

bool listed(const std::vector<std::string> &names, std::string_view name)
{
    return std::any_of(names.begin(), names.end(), [&](const std::string &other) { return sameName(other, name); });
}

// Checks a value against the declaration of its class. Returns false if it must not be stored; the call's status is
// then set.
bool fitsClass(Call &call, const InstanceData &held, const char *name, const Datum &datum)
{
    if (held.known == nullptr || datum.type == CMPI_null) {
        return true;
    }
    const Property *const declared = held.known->find(name);
    const CMPIType declaredType = declared == nullptr ? CMPIType{CMPI_null} : storedType(declared->type);
    if (declaredType == datum.type) {
        return true;
    }
    call.core().note(&Accounting::schemaViolations,
                     held.className + " does not declare " + name + " with type " + std::to_string(datum.type));
    if (declared == nullptr) {
        return true;
    }
    if (declaredType == CMPI_string) {
        call.fail(CMPI_RC_ERR_TYPE_MISMATCH);
    }
    // A number of one type may replace one of another. A text instead of a number is neither rejected nor stored; the
    // real broker crashes.
    return declaredType != CMPI_string && datum.type != CMPI_string;
}

void store(InstanceData &held, std::string_view name, Datum datum)
{
    held.presets.remove(name);
    held.properties.set(name, std::move(datum));
}

CMPIStatus setProperty(const CMPIInstance *self, const char *name, const CMPIValue *value, CMPIType type)
{
    InstanceObject *const instance = objectOf(self);
    Call call(*instance, "setProperty");
    if (call.refused()) {
        return call.status();
    }
    if (name == nullptr) {
        return call.fail(CMPI_RC_ERR_INVALID_PARAMETER);
    }
    InstanceData &held = instance->held;
    std::optional<Datum> datum = call.read(value, type);
    if (!datum || !fitsClass(call, held, name, *datum)) {
        return call.status();
    }
    if (!held.accepted || listed(*held.accepted, name)) {
        store(held, name, std::move(*datum));
    }
    return call.status();
}

CMPIObjectPath *getObjectPath(const CMPIInstance *self, CMPIStatus *status)
{
    const InstanceObject *const instance = objectOf(self);
    Call call(*instance, "getObjectPath", status);
    if (call.refused()) {
        return nullptr;
    }
    const InstanceData &held = instance->held;
    if (held.known == nullptr) {
        call.fail(CMPI_RC_ERR_INVALID_CLASS);
        return nullptr;
    }
    PathData path{"", held.nameSpace, held.className, NamedData{}};
    for (const Property &property : held.known->properties) {
        const Datum *const value = property.key ? held.properties.find(property.name) : nullptr;
        if (value != nullptr && !value->null) {
            path.keys.set(property.name, *value);
        }
    }
    return call.path(std::move(path));
}

void appendNames(std::vector<std::string> &names, const char **list)
{
    for (; list != nullptr && *list != nullptr; ++list) {
        names.emplace_back(*list);
    }
}

void dropUnlisted(NamedData &data, const std::vector<std::string> &accepted)
{
    const std::vector<NamedDatum> before = data.all();
    for (const NamedDatum &entry : before) {
        if (!listed(accepted, entry.name)) {
            data.remove(entry.name);
        }
    }
}

// The keys of the class that the instance has; for an undeclared class, those of its path.
void appendKeys(std::vector<std::string> &names, const InstanceData &held)
{
    for (const NamedData *const data : {&held.properties, &held.presets}) {
        for (const NamedDatum &entry : data->all()) {
            if (held.isKey(entry.name)) {
                names.push_back(entry.name);
            }
        }
    }
}

CMPIStatus setPropertyFilter(CMPIInstance *self, const char **properties, const char **keys)
{
    InstanceObject *const instance = objectOf(self);
    Call call(*instance, "setPropertyFilter");
    if (call.refused()) {
        return call.status();
    }
    InstanceData &held = instance->held;
    const bool old = call.core().options.oldPropertyFilter;
    if (properties == nullptr) {
        if (old) {
            held.accepted.reset();
        }
        return call.status();
    }
    std::vector<std::string> accepted;
    appendNames(accepted, properties);
    if (old) {
        appendNames(accepted, keys);
    } else {
        appendKeys(accepted, held); // newer brokers ignore the list of keys and take those of the class
    }
    dropUnlisted(held.properties, accepted);
    dropUnlisted(held.presets, accepted);
    held.accepted = std::move(accepted);
    return call.status();
}

// Takes over namespace, class and keys of a path; the keys become properties.
void adopt(InstanceData &held, const PathData &path)
{
    held.nameSpace = path.nameSpace;
    held.className = path.className;
    for (const NamedDatum &key : path.keys.all()) {
        store(held, key.name, key.datum);
        held.pathKeys.push_back(key.name);
    }
}

CMPIStatus setObjectPath(CMPIInstance *self, const CMPIObjectPath *path)
{
    InstanceObject *const instance = objectOf(self);
    Call call(*instance, "setObjectPath");
    if (call.refused()) {
        return call.status();
    }
    const PathObject *const given = path == nullptr ? nullptr : objectOf(path);
    if (!call.usable(given)) {
        return call.fail(CMPI_RC_ERR_INVALID_PARAMETER);
    }
    instance->held.pathKeys.clear();
    adopt(instance->held, given->held);
    return call.status();
}

} // namespace

InstanceData freshInstance(const Core &core, const PathData &path)
{
    InstanceData data;
    data.known = core.findClass(path.className);
    if (data.known != nullptr) {
        for (const Property &property : data.known->properties) {
            data.presets.set(property.name, nullDatum(property.type));
        }
    }
    adopt(data, path);
    return data;
}

InstanceObject::InstanceObject(CMPIInstanceFT &table, InstanceData given) : held(std::move(given))
{
    kind = "CMPIInstance";
    hdl = this;
    ft = &table;
}

std::string InstanceObject::describe() const
{
    return held.nameSpace + ":" + held.className;
}

CMPIInstanceFT instanceTable(int version)
{
    CMPIInstanceFT table{};
    table.ftVersion = version;
    table.release = releaseSlot<CMPIInstance>;
    table.clone = clone;
    table.getProperty = getProperty;
    table.getPropertyAt = getPropertyAt;
    table.getPropertyCount = getPropertyCount;
    table.setProperty = setProperty;
    table.getObjectPath = getObjectPath;
    table.setPropertyFilter = setPropertyFilter;
    table.setObjectPath = setObjectPath; // setPropertyWithOrigin is null, as in the real broker
    return table;
}

} // namespace broker
