// SPDX-License-Identifier: Apache-2.0
#include "classes/instance.h"

#include "lifecycle/access.h"
#include "runtime/clean_text.h"
#include "runtime/memory.h"
#include "runtime/request.h"
#include "store/arrays.h"

#include <cstring>

using namespace tavstrg;

namespace {

// Sets every published property of a class but its key, in order. The instance lacks a property that the broker
// refuses.
void setProperties(CMPIInstance *instance, const ClassDesc &desc, const void *record)
{
    for (const FieldDesc &field : desc.fields) {
        if (field.key || (field.use & kPublished) == 0) {
            continue;
        }
        // A text is passed as the text itself, a number by the address of its field.
        char text[kLongestText];
        const char *value = fieldChars(field, record);
        if (field.type == CMPI_chars) {
            value = publishedText(value, text);
            TRACE(kDetail, "CMSetProperty() %s=[%s]", field.name, value);
        } else {
            TRACE(kDetail, "CMSetProperty() %s=[%d]", field.name, static_cast<int>(fieldNumber(field, record)));
        }
        instance->ft->setProperty(instance, field.name, reinterpret_cast<const CMPIValue *>(value), field.type);
    }
}

} // namespace

Refusal tavstrg::failedCall(const char *call)
{
    return refusal(CMPI_RC_ERR_FAILED, "%s() FAILED", call);
}

Refusal tavstrg::unreadStore()
{
    TRACE(kFailure, "strgGetInstance() Failure!!");
    return failedCall("strgGetInstance");
}

Refusal tavstrg::noData(const RecordClass &member)
{
    TRACE(kFailure, "%s", member.noDataText);
    return refusal(CMPI_RC_ERR_NOT_FOUND, "NotFound Data");
}

Outcome tavstrg::refreshClass(const RecordClass &member, const char *classIdName, const CInfo *cInfo)
{
    TRACE(kDetail, "strgGetInstance(%s)", classIdName);
    DatInfo dat = {};
    if (strgGetInstance(cInfo, member.classId, &dat) != 0 || (dat.datNum > 0 && dat.datAdr == nullptr)) {
        return unreadStore();
    }
    return dat.datNum > 0 ? Outcome() : noData(member);
}

RecordsCopy::RecordsCopy(int classId)
{
    DatInfo dat = {};
    const RecordsReader reader(classId, dat);
    emptyIsKnown_ = strgEmptyIsKnown();
    count_ = std::max(dat.datNum, 0);
    size_ = dat.datSize;
    if (count_ > 0 && dat.datAdr != nullptr) {
        const size_t bytes = static_cast<size_t>(count_) * size_;
        // Not memalloc, which traces: the records lock is held.
        records_.reset(std::malloc(bytes));
        if (records_) {
            std::memcpy(records_.get(), dat.datAdr, bytes);
        }
    }
}

Outcome tavstrg::checkRecords(const RecordClass &member, const CopyState &copy)
{
    if (copy.count > 0) {
        return copy.held ? Outcome() : unreadStore();
    }
    return copy.emptyIsKnown ? noData(member) : unreadStore();
}

Outcome tavstrg::returnInstance(const InstanceRequest &request, const char *builder, CMPIInstance *built,
                                Following following)
{
    const CmpiHolder<CMPIInstance> instance(built);
    if (!instance) {
        TRACE(kFailure, "%s() Failure!!", builder);
        return failedCall(builder);
    }
    TRACE(kDetail, "CMReturnInstance()");
    if (request.rslt->ft->returnInstance(request.rslt, instance.get()).rc != CMPI_RC_OK) {
        TRACE(kFailure, "CMReturnInstance() Failure!!");
        return failedCall("CMReturnInstance");
    }
    if (following == Following::none) {
        closeResult(request);
    }
    return {};
}

Outcome tavstrg::returnRecord(const RecordClass &member, const InstanceRequest &request, const void *record,
                              Following following)
{
    return returnInstance(request, member.setPropInstName,
                          member.setPropInst(request.cInfo, request.cop, request.properties, record), following);
}

void tavstrg::closeResult(const InstanceRequest &request)
{
    TRACE(kDetail, "CMReturnDone()");
    request.rslt->ft->returnDone(request.rslt);
}

CMPIObjectPath *tavstrg::newPath(const InstanceRequest &request, const char *className)
{
    char *nameSpace = getNameSpace(request.cop);
    if (nameSpace == nullptr) {
        return TRACED(nullptr, kFailure, "_OUT_ CMGetCharPtr() Failure!!");
    }
    TRACE(kDetail, "CMNewObjectPath() NameSpace=[%s]", nameSpace);
    const CMPIBroker *const broker = request.cInfo->broker;
    CMPIStatus status{};
    CmpiHolder<CMPIObjectPath> path(broker->eft->newObjectPath(broker, nameSpace, className, &status));
    memfree(nameSpace);
    if (status.rc != CMPI_RC_OK || !path) {
        return TRACED(nullptr, kFailure, "_OUT_ CMNewObjectPath() Failure!!");
    }
    return path.handOver();
}

CMPIInstance *tavstrg::newInstance(const CInfo *cInfo, const CMPIObjectPath *path)
{
    TRACE(kDetail, "CMNewInstance()");
    CMPIStatus status{};
    CmpiHolder<CMPIInstance> instance(cInfo->broker->eft->newInstance(cInfo->broker, path, &status));
    if (status.rc != CMPI_RC_OK || !instance) {
        return TRACED(nullptr, kFailure, "_OUT_ CMNewInstance() Failure!!");
    }
    return instance.handOver();
}

bool tavstrg::limitProperties(CMPIInstance *instance, const char **properties)
{
    TRACE(kDetail, "CMSetPropertyFilter()");
    if (instance->ft->setPropertyFilter(instance, properties, nullptr).rc != CMPI_RC_OK) {
        TRACE(kFailure, "CMSetPropertyFilter() Failure!!");
        return TRACED(false, kDetail, "_OUT_");
    }
    return true;
}

CMPIInstance *tavstrg::buildInstance(const RecordClass &member, const InstanceRequest &request, const void *record,
                                     KeySetter *setKey)
{
    TRACE(kDetail, "_IN_");
    if (request.cInfo == nullptr) {
        return TRACED(nullptr, kFailure, "_OUT_ param(cInfo) Failure!!");
    }
    if (request.cop == nullptr) {
        return TRACED(nullptr, kFailure, "_OUT_ Param(cop) Failure!!");
    }
    if (record == nullptr) {
        return TRACED(nullptr, kFailure, "_OUT_ Param(%s) Failure!!", member.recordParam);
    }
    const ClassDesc &desc = kClasses[member.classId];
    const CmpiHolder<CMPIObjectPath> path(newPath(request, desc.cimName));
    if (!path) {
        return nullptr;
    }
    CmpiHolder<CMPIInstance> instance(newInstance(request.cInfo, path.get()));
    if (!instance || !limitProperties(instance.get(), request.properties)) {
        return nullptr;
    }
    if (setKey != nullptr) {
        setKey(path.get(), instance.get(), record);
    }
    setProperties(instance.get(), desc, record);
    return TRACED(instance.handOver(), kDetail, "_OUT_");
}
