// SPDX-License-Identifier: Apache-2.0
// Object paths.

#include "broker/objects.h"

namespace broker {

namespace {

CMPIObjectPath *clone(const CMPIObjectPath *self, CMPIStatus *status)
{
    const PathObject *const path = objectOf(self);
    Call call(*path, "clone", status);
    if (call.refused()) {
        return nullptr;
    }
    call.attachToNoRequest();
    return call.path(path->held);
}

CMPIStatus setText(CMPIObjectPath *self, const char *slot, std::string PathData::*member, const char *text)
{
    PathObject *const path = objectOf(self);
    const Call call(*path, slot);
    if (!call.refused()) {
        path->held.*member = text == nullptr ? "" : text;
    }
    return call.status();
}

// Always makes a new string; without a handle if the name is missing or empty.
CMPIString *getText(const CMPIObjectPath *self, const char *slot, std::string PathData::*member, CMPIStatus *status)
{
    const PathObject *const path = objectOf(self);
    Call call(*path, slot, status);
    if (call.refused()) {
        return nullptr;
    }
    const std::string &text = path->held.*member;
    return call.string(text.empty() ? std::nullopt : std::optional(text));
}

CMPIStatus setNameSpace(CMPIObjectPath *self, const char *text)
{
    return setText(self, "setNameSpace", &PathData::nameSpace, text);
}

CMPIString *getNameSpace(const CMPIObjectPath *self, CMPIStatus *status)
{
    return getText(self, "getNameSpace", &PathData::nameSpace, status);
}

CMPIStatus setHostname(CMPIObjectPath *self, const char *text)
{
    return setText(self, "setHostname", &PathData::host, text);
}

CMPIString *getHostname(const CMPIObjectPath *self, CMPIStatus *status)
{
    return getText(self, "getHostname", &PathData::host, status);
}

CMPIStatus setClassName(CMPIObjectPath *self, const char *text)
{
    return setText(self, "setClassName", &PathData::className, text);
}

CMPIString *getClassName(const CMPIObjectPath *self, CMPIStatus *status)
{
    return getText(self, "getClassName", &PathData::className, status);
}

CMPIStatus addKey(CMPIObjectPath *self, const char *name, const CMPIValue *value, const CMPIType type)
{
    PathObject *const path = objectOf(self);
    Call call(*path, "addKey");
    if (call.refused()) {
        return call.status();
    }
    if (name == nullptr) {
        return call.fail(CMPI_RC_ERR_INVALID_PARAMETER);
    }
    if (std::optional<Datum> datum = call.read(value, type)) {
        path->held.keys.set(name, std::move(*datum));
    }
    return call.status();
}

CMPIData getKey(const CMPIObjectPath *self, const char *name, CMPIStatus *status)
{
    const PathObject *const path = objectOf(self);
    Call call(*path, "getKey", status);
    if (call.refused()) {
        return call.missing(call.status().rc);
    }
    const Datum *const key = name == nullptr ? nullptr : path->held.keys.find(name);
    return key == nullptr ? call.missing(CMPI_RC_ERR_NOT_FOUND) : call.data(*key);
}

CMPIData getKeyAt(const CMPIObjectPath *self, CMPICount index, CMPIString **name, CMPIStatus *status)
{
    const PathObject *const path = objectOf(self);
    Call call(*path, "getKeyAt", status);
    return call.refused() ? call.missing(call.status().rc) : call.entryAt(path->held.keys.all(), index, name);
}

CMPICount getKeyCount(const CMPIObjectPath *self, CMPIStatus *status)
{
    const PathObject *const path = objectOf(self);
    const Call call(*path, "getKeyCount", status);
    return call.refused() ? 0 : static_cast<CMPICount>(path->held.keys.all().size());
}

CMPIStatus takeOver(CMPIObjectPath *self, const char *slot, const CMPIObjectPath *source, bool host)
{
    PathObject *const path = objectOf(self);
    Call call(*path, slot);
    if (call.refused()) {
        return call.status();
    }
    const PathObject *const from = source == nullptr ? nullptr : objectOf(source);
    if (!call.usable(from)) {
        return call.fail(CMPI_RC_ERR_INVALID_PARAMETER);
    }
    path->held.nameSpace = from->held.nameSpace;
    if (host) {
        path->held.host = from->held.host;
    }
    return call.status();
}

CMPIStatus setNameSpaceFromObjectPath(CMPIObjectPath *self, const CMPIObjectPath *source)
{
    return takeOver(self, "setNameSpaceFromObjectPath", source, false);
}

CMPIStatus setHostAndNameSpaceFromObjectPath(CMPIObjectPath *self, const CMPIObjectPath *source)
{
    return takeOver(self, "setHostAndNameSpaceFromObjectPath", source, true);
}

// Only the qualifier "Key" is known.
CMPIData getPropertyQualifier(const CMPIObjectPath *self, const char *property, const char *qualifier,
                              CMPIStatus *status)
{
    const PathObject *const path = objectOf(self);
    Call call(*path, "getPropertyQualifier", status);
    if (call.refused()) {
        return call.missing(call.status().rc);
    }
    const auto known = call.core().findClass(path->held.className);
    const Property *const declared = known == nullptr || property == nullptr ? nullptr : known->find(property);
    if (declared == nullptr || !declared->key || qualifier == nullptr || !sameName(qualifier, "Key")) {
        return call.missing(CMPI_RC_ERR_NOT_FOUND);
    }
    const CMPIBoolean yes = 1;
    return call.data(plainDatum(CMPI_boolean, &yes));
}

CMPIString *toString(const CMPIObjectPath *self, CMPIStatus *status)
{
    const PathObject *const path = objectOf(self);
    Call call(*path, "toString", status);
    return call.refused() ? nullptr : call.string(pathText(path->held));
}

} // namespace

PathObject::PathObject(CMPIObjectPathFT &table, PathData given) : held(std::move(given))
{
    kind = "CMPIObjectPath";
    hdl = this;
    ft = &table;
}

CMPIObjectPathFT pathTable(int version)
{
    CMPIObjectPathFT table{};
    table.ftVersion = version;
    table.release = releaseSlot<CMPIObjectPath>;
    table.clone = clone;
    table.setNameSpace = setNameSpace;
    table.getNameSpace = getNameSpace;
    table.setHostname = setHostname;
    table.getHostname = getHostname;
    table.setClassName = setClassName;
    table.getClassName = getClassName;
    table.addKey = addKey;
    table.getKey = getKey;
    table.getKeyAt = getKeyAt;
    table.getKeyCount = getKeyCount;
    table.setNameSpaceFromObjectPath = setNameSpaceFromObjectPath;
    table.setHostAndNameSpaceFromObjectPath = setHostAndNameSpaceFromObjectPath;
    table.getPropertyQualifier = getPropertyQualifier; // the slots of other qualifiers are null, as in the real broker
    table.toString = toString;
    return table;
}

} // namespace broker
