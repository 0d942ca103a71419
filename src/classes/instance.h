// SPDX-License-Identifier: Apache-2.0
// From a record to a CIM instance: the steps that all classes share, and the two families of classes that are built
// from records. Everything traces in the scope of the class's own function.
#pragma once

#include "classes/classes.h"
#include "runtime/cmpi_data.h"
#include "runtime/holders.h"
#include "runtime/trace.h"

namespace tavstrg {

// What distinguishes one class from another whose instances are built from records.
struct RecordClass {
    int classId;
    const char *classIdName;                                       // in the trace of a request to the store
    const char *enumClassIdName = nullptr;                         // the same for EnumInstances; indexed classes only
    const char *noDataText = "strgGetInstance() NoData Failure!!"; // trace of a class without records
    const char *recordName = nullptr;                              // of a record in traces; indexed classes only
    const char *recordParam;                                       // of SetPropInst's record in traces
    const char *setPropInstName;
    InstanceBuilder<void> *setPropInst;
};

// The nine classes that are keyed by Index.
CMPIStatus indexedGetInstance(const RecordClass &member, const InstanceRequest &request);
CMPIStatus indexedEnumInstances(const RecordClass &member, const InstanceRequest &request);
CMPIInstance *indexedSetPropInst(const RecordClass &member, const InstanceRequest &request, const void *record);

// The two classes with exactly one record, one instance and no key.
CMPIStatus singletonGetInstance(const RecordClass &member, const InstanceRequest &request);
CMPIInstance *singletonSetPropInst(const RecordClass &member, const InstanceRequest &request, const void *record);

// Frame of a handler: entry, check of cInfo, the work, exit. work returns an Outcome.
template <class Work> CMPIStatus tracedRequest(const CInfo *cInfo, Work work)
{
    TRACE(kDetail, "_IN_");
    CMPIStatus status = {CMPI_RC_ERR_FAILED, nullptr};
    if (cInfo == nullptr) {
        TRACE(kFailure, "param(cInfo) Failure!!");
    } else {
        status = statusOf(cInfo, work());
    }
    return TRACED(status, kDetail, "_OUT_");
}

// The refusal after a call that failed, "<call>() FAILED".
Refusal failedCall(const char *call);
// Traces that the store could not be read, and refuses.
Refusal unreadStore();
// Traces that a class has no records, and refuses.
Refusal noData(const RecordClass &member);

// Brings a class up to date. Refuses when that failed and when the class has no records. classIdName is the one that
// the request traces.
Outcome refreshClass(const RecordClass &member, const char *classIdName, const CInfo *cInfo);

// What a copy of a class's records came to.
struct CopyState {
    int count;         // records of the class
    bool held;         // and they could be copied
    bool emptyIsKnown; // strgEmptyIsKnown() at that moment
};
// Refuses when there is no copy: the class became empty, the store was freed, or memory is short.
Outcome checkRecords(const RecordClass &member, const CopyState &copy);

// The records of one class at one moment. A request builds its answer from such a copy, without a lock: no client and
// no broker call holds up anything else, and an enumeration shows one state of the machine.
class RecordsCopy {
public:
    explicit RecordsCopy(int classId);
    Outcome check(const RecordClass &member) const
    {
        return checkRecords(member, {count_, static_cast<bool>(records_), emptyIsKnown_});
    }
    int count() const { return count_; }
    const void *record(int i) const { return records_.get() + static_cast<size_t>(i) * size_; }

private:
    int count_ = 0;
    size_t size_ = 0; // bytes of one record
    bool emptyIsKnown_ = false;
    HeapBlock<uint8_t> records_{nullptr};
};

// Whether more instances follow the one that is returned.
enum class Following { none, more };

// Returns an instance to the client, closes the result if no more follow, and releases the instance after that. Refuses
// when there is no instance, because builder failed, and when the broker does not take it; the result then stays open.
Outcome returnInstance(const InstanceRequest &request, const char *builder, CMPIInstance *built, Following following);
// The same for the instance of a record.
Outcome returnRecord(const RecordClass &member, const InstanceRequest &request, const void *record,
                     Following following);
void closeResult(const InstanceRequest &request);

// The steps of building an instance. What they make belongs to the caller. Each returns null (false) on failure, which
// is traced.

// Object path of a class in the namespace of the request's path.
CMPIObjectPath *newPath(const InstanceRequest &request, const char *className);
// Instance of a path, without properties yet.
CMPIInstance *newInstance(const CInfo *cInfo, const CMPIObjectPath *path);
// Limits what is set from now on to the client's property list (null: everything).
bool limitProperties(CMPIInstance *instance, const char **properties);
// Sets the key of an instance that has one.
using KeySetter = void(CMPIObjectPath *path, CMPIInstance *instance, const void *record);
// All of it: checks, path, instance, filter, key, properties.
CMPIInstance *buildInstance(const RecordClass &member, const InstanceRequest &request, const void *record,
                            KeySetter *setKey = nullptr);

} // namespace tavstrg
