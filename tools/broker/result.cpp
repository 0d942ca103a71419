// SPDX-License-Identifier: Apache-2.0
// Results of requests, and dates.

#include "broker/objects.h"

namespace broker {

namespace {

CMPIResult *cloneResult(const CMPIResult *self, CMPIStatus *status)
{
    Call call(*objectOf(self), "clone", status);
    call.fail(CMPI_RC_ERR_NOT_SUPPORTED);
    return nullptr;
}

void noteWhenDone(Call &call, const ResultObject &result)
{
    if (result.done) {
        call.core().note(&Accounting::returnsAfterDone, std::string(call.slot()) + " after returnDone");
    }
}

CMPIStatus returnData(const CMPIResult *self, const CMPIValue *value, const CMPIType type)
{
    ResultObject *const result = objectOf(self);
    Call call(*result, "returnData");
    if (call.refused()) {
        return call.status();
    }
    noteWhenDone(call, *result);
    if (type == CMPI_ref) {
        return call.fail(CMPI_RC_ERR_NOT_SUPPORTED); // the real broker's process ends here
    }
    if (const std::optional<Datum> datum = call.read(value, type)) {
        result->data.push_back(toValue(*datum));
    }
    return call.status();
}

CMPIStatus returnInstance(const CMPIResult *self, const CMPIInstance *given)
{
    ResultObject *const result = objectOf(self);
    Call call(*result, "returnInstance");
    if (call.refused()) {
        return call.status();
    }
    noteWhenDone(call, *result);
    const InstanceObject *const instance = given == nullptr ? nullptr : objectOf(given);
    if (!call.usable(instance)) {
        return call.fail(CMPI_RC_ERR_FAILED);
    }
    result->instances.push_back(toInstance(instance->held));
    return call.status();
}

// A path is returned to the client as an instance with only its keys.
CMPIStatus returnObjectPath(const CMPIResult *self, const CMPIObjectPath *given)
{
    ResultObject *const result = objectOf(self);
    Call call(*result, "returnObjectPath");
    if (call.refused()) {
        return call.status();
    }
    noteWhenDone(call, *result);
    const PathObject *const path = given == nullptr ? nullptr : objectOf(given);
    if (!call.usable(path)) {
        return call.fail(CMPI_RC_ERR_FAILED);
    }
    result->instances.push_back({path->held.nameSpace, path->held.className, toValues(path->held.keys), {}});
    return call.status();
}

CMPIStatus returnDone(const CMPIResult *self)
{
    ResultObject *const result = objectOf(self);
    const Call call(*result, "returnDone");
    if (!call.refused()) {
        result->done = true;
    }
    return call.status();
}

CMPIDateTime *cloneTime(const CMPIDateTime *self, CMPIStatus *status)
{
    const TimeObject *const time = objectOf(self);
    Call call(*time, "clone", status);
    if (call.refused()) {
        return nullptr;
    }
    call.attachToNoRequest();
    return call.time(time->held);
}

CMPIUint64 getBinaryFormat(const CMPIDateTime *self, CMPIStatus *status)
{
    const TimeObject *const time = objectOf(self);
    const Call call(*time, "getBinaryFormat", status);
    return call.refused() ? 0 : time->held.microseconds;
}

CMPIString *getStringFormat(const CMPIDateTime *self, CMPIStatus *status)
{
    const TimeObject *const time = objectOf(self);
    Call call(*time, "getStringFormat", status);
    return call.refused() ? nullptr : call.string(timeText(time->held));
}

CMPIBoolean isInterval(const CMPIDateTime *self, CMPIStatus *status)
{
    const TimeObject *const time = objectOf(self);
    const Call call(*time, "isInterval", status);
    return !call.refused() && time->held.interval ? 1 : 0;
}

} // namespace

ResultObject::ResultObject(CMPIResultFT &table)
{
    kind = "CMPIResult";
    hdl = this;
    ft = &table;
}

TimeObject::TimeObject(CMPIDateTimeFT &table, TimeData given) : held(given)
{
    kind = "CMPIDateTime";
    hdl = this;
    ft = &table;
}

CMPIResultFT resultTable(int version)
{
    CMPIResultFT table{};
    table.ftVersion = version;
    table.release = releaseSlot<CMPIResult>;
    table.clone = cloneResult;
    table.returnData = returnData;
    table.returnInstance = returnInstance;
    table.returnObjectPath = returnObjectPath;
    table.returnDone = returnDone; // returnError is null, as in the real broker
    return table;
}

CMPIDateTimeFT timeTable(int version)
{
    return {version, releaseSlot<CMPIDateTime>, cloneTime, getBinaryFormat, getStringFormat, isInterval};
}

} // namespace broker
