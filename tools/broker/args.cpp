// SPDX-License-Identifier: Apache-2.0
// Arguments of methods, and invocation contexts.

#include "broker/objects.h"

namespace broker {

namespace {

CMPIArgs *cloneArgs(const CMPIArgs *self, CMPIStatus *status)
{
    const ArgsObject *const args = objectOf(self);
    Call call(*args, "clone", status);
    if (call.refused()) {
        return nullptr;
    }
    call.attachToNoRequest();
    return call.args(args->held);
}

// Arguments and contexts differ only in the names of the slots and the code for a missing entry.
template <class Kind>
CMPIStatus add(const Kind *self, const char *slot, const char *name, const CMPIValue *value, CMPIType type)
{
    auto *const object = objectOf(self);
    Call call(*object, slot);
    if (call.refused()) {
        return call.status();
    }
    if (name == nullptr) {
        return call.fail(CMPI_RC_ERR_INVALID_PARAMETER);
    }
    if (std::optional<Datum> datum = call.read(value, type)) {
        object->held.set(name, std::move(*datum));
    }
    return call.status();
}

template <class Kind>
CMPIData entryAt(const Kind *self, const char *slot, CMPICount index, CMPIString **name, CMPIStatus *status)
{
    const auto *const object = objectOf(self);
    Call call(*object, slot, status);
    return call.refused() ? call.missing(call.status().rc) : call.entryAt(object->held.all(), index, name);
}

template <class Kind> CMPICount countOf(const Kind *self, const char *slot, CMPIStatus *status)
{
    const auto *const object = objectOf(self);
    const Call call(*object, slot, status);
    return call.refused() ? 0 : static_cast<CMPICount>(object->held.all().size());
}

CMPIStatus addArg(const CMPIArgs *self, const char *name, const CMPIValue *value, const CMPIType type)
{
    return add(self, "addArg", name, value, type);
}

CMPIData getArg(const CMPIArgs *self, const char *name, CMPIStatus *status)
{
    const ArgsObject *const args = objectOf(self);
    Call call(*args, "getArg", status);
    if (call.refused()) {
        return call.missing(call.status().rc);
    }
    const Datum *const arg = name == nullptr ? nullptr : args->held.find(name);
    return arg == nullptr ? call.missing(CMPI_RC_ERR_NOT_FOUND) : call.data(*arg);
}

CMPIData getArgAt(const CMPIArgs *self, CMPICount index, CMPIString **name, CMPIStatus *status)
{
    return entryAt(self, "getArgAt", index, name, status);
}

CMPICount getArgCount(const CMPIArgs *self, CMPIStatus *status)
{
    return countOf(self, "getArgCount", status);
}

// Contexts are copied by prepareAttachThread only.
CMPIContext *cloneContext(const CMPIContext *self, CMPIStatus *status)
{
    Call call(*objectOf(self), "clone", status);
    call.fail(CMPI_RC_ERR_NOT_SUPPORTED);
    return nullptr;
}

CMPIStatus addEntry(const CMPIContext *self, const char *name, const CMPIValue *value, const CMPIType type)
{
    return add(self, "addEntry", name, value, type);
}

CMPIData getEntry(const CMPIContext *self, const char *name, CMPIStatus *status)
{
    const ContextObject *const context = objectOf(self);
    Call call(*context, "getEntry", status);
    const Datum *const entry = call.refused() || name == nullptr ? nullptr : context->held.find(name);
    if (entry != nullptr) {
        return call.data(*entry);
    }
    CMPIData nothing = call.missing(call.refused() ? call.status().rc : CMPI_RC_ERR_NO_SUCH_PROPERTY);
    nothing.state = CMPI_nullValue;
    return nothing;
}

CMPIData getEntryAt(const CMPIContext *self, CMPICount index, CMPIString **name, CMPIStatus *status)
{
    return entryAt(self, "getEntryAt", index, name, status);
}

CMPICount getEntryCount(const CMPIContext *self, CMPIStatus *status)
{
    return countOf(self, "getEntryCount", status);
}

} // namespace

ArgsObject::ArgsObject(CMPIArgsFT &table, NamedData given) : held(std::move(given))
{
    kind = "CMPIArgs";
    hdl = this;
    ft = &table;
}

ContextObject::ContextObject(CMPIContextFT &table, NamedData given) : held(std::move(given))
{
    kind = "CMPIContext";
    hdl = this;
    ft = &table;
}

CMPIArgsFT argsTable(int version)
{
    return {version, releaseSlot<CMPIArgs>, cloneArgs, addArg, getArg, getArgAt, getArgCount};
}

CMPIContextFT contextTable(int version)
{
    return {version, releaseSlot<CMPIContext>, cloneContext, getEntry, getEntryAt, getEntryCount, addEntry};
}

} // namespace broker
