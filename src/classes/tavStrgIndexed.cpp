#include "classes/tavStrgIndexed.h"

#include "classes/tavStrgInstance.h"
#include "provider/runtime/tavCommonHolders.h"
#include "provider/runtime/tavCommonRequest.h"
#include "provider/runtime/tavCommonStatus.h"
#include "provider/runtime/tavCommonTrace.h"
#include "store/tavStrgCommonAccess.h"

#include <cstdio>
#include <cstring>

namespace {

// Index is the first field of every record of the family.
static_assert(offsetof(StrgCtrlRec, Index) == 0 && offsetof(StrgScsiRec, Index) == 0 &&
              offsetof(StrgIdeRec, Index) == 0 && offsetof(StrgHddRec, Index) == 0 &&
              offsetof(StrgDevRec, Index) == 0 && offsetof(StrgLifeRec, Index) == 0);

int indexOf(const void *record)
{
    uint16_t index;
    std::memcpy(&index, record, sizeof index);
    return index;
}

const void *recordAt(const DatInfo &dat, int i)
{
    return static_cast<const char *>(dat.datAdr) + static_cast<size_t>(i) * dat.datSize;
}

// What a request came to so far.
struct Build {
    CMPIStatus status;      // not OK: why there is no instance
    CMPIInstance *instance; // the caller's
};

CMPIStatus noData(const char *function, const CInfo *cInfo)
{
    TRACE_AS(function, kFailure, "strgGetInstance() NoData Failure!!");
    return statusWithChars(cInfo, CMPI_RC_ERR_NOT_FOUND, "NotFound Data");
}

// Brings the class up to date and looks whether there is anything to answer with.
CMPIStatus readClass(const IndexedClass &member, const char *function, const char *classIdName, const CInfo *cInfo,
                     DatInfo &dat)
{
    TRACE_AS(function, kDetail, "strgGetInstance(%s)", classIdName);
    if (strgGetInstance(cInfo, member.classId, &dat) != 0 || lacksArray(dat)) {
        TRACE_AS(function, kFailure, "strgGetInstance() Failure!!");
        return failedCall(cInfo, "strgGetInstance");
    }
    return dat.datNum > 0 ? CMPIStatus{CMPI_RC_OK, nullptr} : noData(function, cInfo);
}

void traceRecord(const IndexedClass &member, const char *function, const DatInfo &dat, int i)
{
    TRACE_AS(function, kDetail, "%s[%d]->Index=[%d]", member.recordName, i, indexOf(recordAt(dat, i)));
}

Build buildRecord(const IndexedClass &member, const char *function, const CInfo *cInfo, const CMPIObjectPath *cop,
                  const char **properties, const void *record)
{
    CMPIInstance *const instance = member.setPropInst(cInfo, cop, properties, record);
    if (instance == nullptr) {
        TRACE_AS(function, kFailure, "%s() Failure!!", member.setPropInstName);
        return {failedCall(cInfo, member.setPropInstName), nullptr};
    }
    return {{CMPI_RC_OK, nullptr}, instance};
}

// The record with the key, built while nobody can replace the array.
Build buildByKey(const IndexedClass &member, const char *function, const CInfo *cInfo, const CMPIObjectPath *cop,
                 const char **properties, int key, DatInfo dat)
{
    const RecordsReader reader(member.classId, dat);
    if (dat.datNum <= 0 || dat.datAdr == nullptr) {
        return {noData(function, cInfo), nullptr}; // gone since the store handed them out
    }
    for (int i = 0; i < dat.datNum; ++i) {
        traceRecord(member, function, dat, i);
        if (indexOf(recordAt(dat, i)) == key) {
            return buildRecord(member, function, cInfo, cop, properties, recordAt(dat, i));
        }
    }
    TRACE_AS(function, kDetail, "CMSetStatusWithChars() - CMPI_RC_ERR_INVALID_PARAMETER Index");
    // Deliberate: an unknown key is an invalid parameter, not a missing object.
    return {statusWithChars(cInfo, CMPI_RC_ERR_INVALID_PARAMETER, "NotFound Index"), nullptr};
}

// The record at a position; neither instance nor failure when there is no such record any more. The array is held for
// one record at a time: a client that is slow to take the answers must not keep the monitoring pass waiting.
Build buildByPosition(const IndexedClass &member, const char *function, const CInfo *cInfo, const CMPIObjectPath *cop,
                      const char **properties, int i, DatInfo dat)
{
    const RecordsReader reader(member.classId, dat);
    if (i >= dat.datNum || dat.datAdr == nullptr) {
        return {{CMPI_RC_OK, nullptr}, nullptr};
    }
    traceRecord(member, function, dat, i);
    return buildRecord(member, function, cInfo, cop, properties, recordAt(dat, i));
}

CMPIStatus getByKey(const IndexedClass &member, const char *function, const CInfo *cInfo, const CMPIResult *rslt,
                    const CMPIObjectPath *cop, const char **properties)
{
    const int key = getKeyIndex(cop);
    if (key <= 0) {
        TRACE_AS(function, kFailure, "getKeyIndex() Failure!!");
        return failedCall(cInfo, "getKeyIndex");
    }
    DatInfo dat = {};
    const CMPIStatus read = readClass(member, function, member.classIdName, cInfo, dat);
    if (read.rc != CMPI_RC_OK) {
        return read;
    }
    const Build build = buildByKey(member, function, cInfo, cop, properties, key, dat);
    const CmpiHolder<CMPIInstance> instance(build.instance);
    if (build.status.rc != CMPI_RC_OK) {
        return build.status;
    }
    const CMPIStatus returned = returnInstance(function, cInfo, rslt, instance.get());
    if (returned.rc == CMPI_RC_OK) {
        returnDone(function, rslt);
    }
    return returned;
}

CMPIStatus enumerate(const IndexedClass &member, const char *function, const CInfo *cInfo, const CMPIResult *rslt,
                     const CMPIObjectPath *cop, const char **properties)
{
    DatInfo dat = {};
    const CMPIStatus read = readClass(member, function, member.enumClassIdName, cInfo, dat);
    if (read.rc != CMPI_RC_OK) {
        return read;
    }
    for (int i = 0;; ++i) {
        const Build build = buildByPosition(member, function, cInfo, cop, properties, i, dat);
        const CmpiHolder<CMPIInstance> instance(build.instance);
        if (build.status.rc != CMPI_RC_OK) {
            return build.status; // deliberate: the result stays open after a failure
        }
        if (instance.get() == nullptr) {
            break;
        }
        const CMPIStatus returned = returnInstance(function, cInfo, rslt, instance.get());
        if (returned.rc != CMPI_RC_OK) {
            return returned;
        }
    }
    returnDone(function, rslt);
    return {CMPI_RC_OK, nullptr};
}

} // namespace

CMPIStatus indexedGetInstance(const IndexedClass &member, const char *function, const CInfo *cInfo,
                              const CMPIResult *rslt, const CMPIObjectPath *cop, const char **properties)
{
    TRACE_AS(function, kDetail, "_IN_");
    CMPIStatus status{CMPI_RC_ERR_FAILED, nullptr};
    if (cInfo == nullptr) {
        TRACE_AS(function, kFailure, "param(cInfo) Failure!!");
    } else {
        status = getByKey(member, function, cInfo, rslt, cop, properties);
    }
    return TRACED_AS(function, status, kDetail, "_OUT_");
}

CMPIStatus indexedEnumInstances(const IndexedClass &member, const char *function, const CInfo *cInfo,
                                const CMPIResult *rslt, const CMPIObjectPath *cop, const char **properties)
{
    TRACE_AS(function, kDetail, "_IN_");
    CMPIStatus status{CMPI_RC_ERR_FAILED, nullptr};
    if (cInfo == nullptr) {
        TRACE_AS(function, kFailure, "param(cInfo) Failure!!");
    } else {
        status = enumerate(member, function, cInfo, rslt, cop, properties);
    }
    return TRACED_AS(function, status, kDetail, "_OUT_");
}

CMPIInstance *indexedSetPropInst(const IndexedClass &member, const char *function, const CInfo *cInfo,
                                 const CMPIObjectPath *cop, const char **properties, const void *record)
{
    TRACE_AS(function, kDetail, "_IN_");
    if (cInfo == nullptr) {
        return TRACED_AS(function, nullptr, kFailure, "_OUT_ param(cInfo) Failure!!");
    }
    if (cop == nullptr) {
        return TRACED_AS(function, nullptr, kFailure, "_OUT_ Param(cop) Failure!!");
    }
    if (record == nullptr) {
        return TRACED_AS(function, nullptr, kFailure, "_OUT_ Param(%s) Failure!!", member.recordParam);
    }
    const ClassDesc &desc = kClasses[member.classId];
    const CmpiHolder<CMPIObjectPath> path(newPath(function, cInfo, cop, desc.cimName));
    if (!path) {
        return nullptr;
    }
    CmpiHolder<CMPIInstance> instance(newInstance(function, cInfo, path.get()));
    if (!instance || !limitProperties(function, instance.get(), properties)) {
        return nullptr;
    }
    char indexText[12];
    std::snprintf(indexText, sizeof indexText, "%d", indexOf(record));
    const auto *const indexValue = reinterpret_cast<const CMPIValue *>(indexText); // CMPI_chars: the text itself
    TRACE_AS(function, kDetail, "CMAddKey() Index_str=[%s]", indexText);
    path.get()->ft->addKey(path.get(), "Index", indexValue, CMPI_chars);
    TRACE_AS(function, kDetail, "CMSetProperty() Index_str=[%s]", indexText);
    instance.get()->ft->setProperty(instance.get(), "Index", indexValue, CMPI_chars);
    setProperties(function, instance.get(), desc, record);
    return TRACED_AS(function, instance.handOver(), kDetail, "_OUT_");
}
