// SPDX-License-Identifier: Apache-2.0
// The handlers of the classes, as the dispatcher calls them.
#pragma once

#include "records/records.h"
#include "runtime/mode.h"

namespace tavstrg {

// Answers a GetInstance or EnumInstances request: returns instances in the namespace of cop through rslt, with the
// properties of the client's list (null: all), and closes rslt on success. The status of a failure has a message, which
// belongs to the broker, unless cInfo is null.
using InstanceHandler = CMPIStatus(const CInfo *cInfo, const CMPIResult *rslt, const CMPIObjectPath *cop,
                                   const char **properties);
// Builds one instance from a record in the namespace of cop. The caller releases it. Returns null on failure.
template <class Rec>
using InstanceBuilder = CMPIInstance *(const CInfo *cInfo, const CMPIObjectPath *cop, const char **properties,
                                       const Rec *record);

} // namespace tavstrg

// The nine classes that are keyed by Index.
tavstrg::InstanceHandler TAV_STRGCtrlGetInstance, TAV_STRGCtrlEnumInstances;
tavstrg::InstanceHandler TAV_STRGScsiGetInstance, TAV_STRGScsiEnumInstances;
tavstrg::InstanceHandler TAV_STRGIdeGetInstance, TAV_STRGIdeEnumInstances;
tavstrg::InstanceHandler TAV_STRGHddGetInstance, TAV_STRGHddEnumInstances;
tavstrg::InstanceHandler TAV_STRGCdromGetInstance, TAV_STRGCdromEnumInstances;
tavstrg::InstanceHandler TAV_STRGTapeGetInstance, TAV_STRGTapeEnumInstances;
tavstrg::InstanceHandler TAV_STRGOptMemGetInstance, TAV_STRGOptMemEnumInstances;
tavstrg::InstanceHandler TAV_STRGMiscGetInstance, TAV_STRGMiscEnumInstances;
tavstrg::InstanceHandler TAV_STRGLifeSpanGetInstance, TAV_STRGLifeSpanEnumInstances;
tavstrg::InstanceBuilder<StrgCtrlRec> TAV_STRGCtrlSetPropInst;
tavstrg::InstanceBuilder<StrgScsiRec> TAV_STRGScsiSetPropInst;
tavstrg::InstanceBuilder<StrgIdeRec> TAV_STRGIdeSetPropInst;
tavstrg::InstanceBuilder<StrgHddRec> TAV_STRGHddSetPropInst;
tavstrg::InstanceBuilder<StrgDevRec> TAV_STRGCdromSetPropInst;
tavstrg::InstanceBuilder<StrgDevRec> TAV_STRGTapeSetPropInst;
tavstrg::InstanceBuilder<StrgDevRec> TAV_STRGOptMemSetPropInst;
tavstrg::InstanceBuilder<StrgDevRec> TAV_STRGMiscSetPropInst;
tavstrg::InstanceBuilder<StrgLifeRec> TAV_STRGLifeSpanSetPropInst;

// The three classes with one instance and no key; both kinds of request go to their GetInstance handler.
tavstrg::InstanceHandler TAV_STRGConfigGetInstance, TAV_STRGTotalNumGetInstance, TAV_STRGThreadGetInstance;
tavstrg::InstanceBuilder<StrgConfRec> TAV_STRGConfigSetPropInst;
tavstrg::InstanceBuilder<StrgTnumRec> TAV_STRGTotalNumSetPropInst;
tavstrg::InstanceBuilder<uint16_t> TAV_STRGThreadSetPropInst; // the "record" is the thread's status, 1 running or 0

// The class of every disk, whose key is DiskID; option every-disk. The names are its object paths.
tavstrg::InstanceHandler TAV_STRGDiskGetInstance, TAV_STRGDiskEnumInstances, TAV_STRGDiskEnumInstanceNames;

// "SetMonitorCycle" and "SetHardDiskSmartMode": change the configuration record, publish and save it. No return value.
// The broker's interface gives the six parameters.
CMPIStatus TAV_STRGConfigInvokeMethod(const CInfo *cInfo, const CMPIResult *rslt, const CMPIObjectPath *cop,
                                      const char *methodName, const CMPIArgs *in, CMPIArgs *out);
// "StartMonitoringThread": service mode only, and only while no thread runs.
CMPIStatus TAV_STRGThreadStartInvokeMethod(const CInfo *cInfo, const CMPIResult *rslt);
// "StopMonitoringThread": saves and tears down the store with the thread. A refused stop frees the store too.
CMPIStatus TAV_STRGThreadStopInvokeMethod(const CInfo *cInfo, const CMPIResult *rslt);

namespace tavstrg {

// A request for instances, as its handler got it.
struct InstanceRequest {
    const CInfo *cInfo;
    const CMPIObjectPath *cop;
    const char **properties;
    const CMPIResult *rslt = nullptr; // null where one instance is built and not returned yet
};

// A class's SetPropInst where the record has no type: a column of the tables that describe the classes.
template <class Rec, InstanceBuilder<Rec> *SetPropInst>
CMPIInstance *buildFrom(const CInfo *cInfo, const CMPIObjectPath *cop, const char **properties, const void *record)
{
    return SetPropInst(cInfo, cop, properties, static_cast<const Rec *>(record));
}

} // namespace tavstrg
