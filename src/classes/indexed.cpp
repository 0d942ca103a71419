// SPDX-License-Identifier: Apache-2.0
#include "classes/indexed.h"

#include "classes/instance.h"
#include "lifecycle/access.h"
#include "runtime/cmpi_data.h"
#include "runtime/holders.h"
#include "runtime/request.h"
#include "runtime/trace.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

using namespace tavstrg;

namespace {

// Index is the first field of every record of the family.
static_assert(offsetof(StrgCtrlRec, Index) == 0 && offsetof(StrgScsiRec, Index) == 0 &&
              offsetof(StrgIdeRec, Index) == 0 && offsetof(StrgHddRec, Index) == 0 &&
              offsetof(StrgDevRec, Index) == 0 && offsetof(StrgLifeRec, Index) == 0);

int indexOf(const void *record)
{
    uint16_t index = 0;
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

CMPIStatus noData(const CInfo *cInfo)
{
    TRACE(kFailure, "strgGetInstance() NoData Failure!!");
    return statusWithChars(cInfo, CMPI_RC_ERR_NOT_FOUND, "NotFound Data");
}

CMPIStatus unread(const CInfo *cInfo)
{
    TRACE(kFailure, "strgGetInstance() Failure!!");
    return failedCall(cInfo, "strgGetInstance");
}

// The records are gone since the store handed them out: with the last device of the kind, or with the store, which a
// stop frees.
CMPIStatus vanished(const CInfo *cInfo, bool storeIsBuilt)
{
    return storeIsBuilt ? noData(cInfo) : unread(cInfo);
}

// Brings the class up to date and looks whether there is anything to answer with.
CMPIStatus readClass(const IndexedClass &member, const char *classIdName, const CInfo *cInfo, DatInfo &dat)
{
    TRACE(kDetail, "strgGetInstance(%s)", classIdName);
    if (strgGetInstance(cInfo, member.classId, &dat) != 0 || lacksArray(dat)) {
        return unread(cInfo);
    }
    return dat.datNum > 0 ? CMPIStatus{CMPI_RC_OK, nullptr} : noData(cInfo);
}

void traceRecord(const IndexedClass &member, const DatInfo &dat, int i)
{
    TRACE(kDetail, "%s[%d]->Index=[%d]", member.recordName, i, indexOf(recordAt(dat, i)));
}

Build buildRecord(const IndexedClass &member, const CInfo *cInfo, const CMPIObjectPath *cop, const char **properties,
                  const void *record)
{
    CMPIInstance *const instance = member.setPropInst(cInfo, cop, properties, record);
    if (instance == nullptr) {
        TRACE(kFailure, "%s() Failure!!", member.setPropInstName);
        return {failedCall(cInfo, member.setPropInstName), nullptr};
    }
    return {{CMPI_RC_OK, nullptr}, instance};
}

// The record with the key, built while nobody can replace the array.
Build buildByKey(const IndexedClass &member, const CInfo *cInfo, const CMPIObjectPath *cop, const char **properties,
                 int key, DatInfo dat)
{
    const RecordsReader reader(member.classId, dat);
    if (lacksArray(dat)) {
        return {unread(cInfo), nullptr};
    }
    if (dat.datNum <= 0) {
        return {vanished(cInfo, strgIsBuilt()), nullptr};
    }
    for (int i = 0; i < dat.datNum; ++i) {
        traceRecord(member, dat, i);
        if (indexOf(recordAt(dat, i)) == key) {
            return buildRecord(member, cInfo, cop, properties, recordAt(dat, i));
        }
    }
    TRACE(kDetail, "CMSetStatusWithChars() - CMPI_RC_ERR_INVALID_PARAMETER Index");
    // Deliberate: an unknown key is an invalid parameter, not a missing object.
    return {statusWithChars(cInfo, CMPI_RC_ERR_INVALID_PARAMETER, "NotFound Index"), nullptr};
}

// The class's records as they were at one moment, so that an enumeration shows one state of the machine however long
// the client takes: nobody waits for it, and no array goes from under it. Not traced: it is no record array of the
// store's.
class RecordsCopy {
public:
    RecordsCopy(int classId, DatInfo dat) : dat_(copyOf(classId, dat)), block_(dat_.datAdr) {}
    // datNum above 0 with a null array: there was no array, or no memory for the copy.
    const DatInfo &get() const { return dat_; }
    // Whether the store was whole at that moment.
    bool storeIsBuilt() const { return storeIsBuilt_; }

private:
    DatInfo copyOf(int classId, DatInfo &dat)
    {
        const RecordsReader reader(classId, dat);
        storeIsBuilt_ = strgIsBuilt();
        if (dat.datNum <= 0 || dat.datAdr == nullptr) {
            return {dat.datSize, dat.datNum, nullptr};
        }
        const size_t size = static_cast<size_t>(dat.datNum) * dat.datSize;
        void *const block = std::malloc(size);
        if (block != nullptr) {
            std::memcpy(block, dat.datAdr, size);
        }
        return {dat.datSize, dat.datNum, block};
    }

    bool storeIsBuilt_ = false;
    DatInfo dat_;
    HeapBlock<uint8_t> block_;
};

CMPIStatus getByKey(const IndexedClass &member, const CInfo *cInfo, const CMPIResult *rslt, const CMPIObjectPath *cop,
                    const char **properties)
{
    const int key = getKeyIndex(cop);
    if (key <= 0) {
        TRACE(kFailure, "getKeyIndex() Failure!!");
        return failedCall(cInfo, "getKeyIndex");
    }
    DatInfo dat = {};
    const CMPIStatus read = readClass(member, member.classIdName, cInfo, dat);
    if (read.rc != CMPI_RC_OK) {
        return read;
    }
    const Build build = buildByKey(member, cInfo, cop, properties, key, dat);
    const CmpiHolder<CMPIInstance> instance(build.instance);
    if (build.status.rc != CMPI_RC_OK) {
        return build.status;
    }
    const CMPIStatus returned = returnInstance(cInfo, rslt, instance.get());
    if (returned.rc == CMPI_RC_OK) {
        returnDone(rslt);
    }
    return returned;
}

CMPIStatus enumerate(const IndexedClass &member, const CInfo *cInfo, const CMPIResult *rslt, const CMPIObjectPath *cop,
                     const char **properties)
{
    DatInfo dat = {};
    const CMPIStatus read = readClass(member, member.enumClassIdName, cInfo, dat);
    if (read.rc != CMPI_RC_OK) {
        return read;
    }
    const RecordsCopy copy(member.classId, dat);
    const DatInfo &records = copy.get();
    if (lacksArray(records)) {
        return unread(cInfo);
    }
    if (records.datNum <= 0) {
        return vanished(cInfo, copy.storeIsBuilt());
    }
    for (int i = 0; i < records.datNum; ++i) {
        traceRecord(member, records, i);
        const Build build = buildRecord(member, cInfo, cop, properties, recordAt(records, i));
        const CmpiHolder<CMPIInstance> instance(build.instance);
        if (build.status.rc != CMPI_RC_OK) {
            return build.status; // deliberate: the result stays open after a failure
        }
        const CMPIStatus returned = returnInstance(cInfo, rslt, instance.get());
        if (returned.rc != CMPI_RC_OK) {
            return returned;
        }
    }
    returnDone(rslt);
    return {CMPI_RC_OK, nullptr};
}

// After the instance was made from the path: whether the key reaches the instance's own path is the broker's affair, so
// it is set as a property too.
void setKey(CMPIObjectPath *path, CMPIInstance *instance, const void *record)
{
    char indexText[12];
    std::snprintf(indexText, sizeof indexText, "%d", indexOf(record));
    const auto *const indexValue = reinterpret_cast<const CMPIValue *>(indexText); // CMPI_chars: the text itself
    TRACE(kDetail, "CMAddKey() Index_str=[%s]", indexText);
    path->ft->addKey(path, "Index", indexValue, CMPI_chars);
    TRACE(kDetail, "CMSetProperty() Index_str=[%s]", indexText);
    instance->ft->setProperty(instance, "Index", indexValue, CMPI_chars);
}

} // namespace

CMPIStatus tavstrg::indexedGetInstance(const IndexedClass &member, const CInfo *cInfo, const CMPIResult *rslt,
                                       const CMPIObjectPath *cop, const char **properties)
{
    return tracedAnswer(cInfo, [&] { return getByKey(member, cInfo, rslt, cop, properties); });
}

CMPIStatus tavstrg::indexedEnumInstances(const IndexedClass &member, const CInfo *cInfo, const CMPIResult *rslt,
                                         const CMPIObjectPath *cop, const char **properties)
{
    return tracedAnswer(cInfo, [&] { return enumerate(member, cInfo, rslt, cop, properties); });
}

CMPIInstance *tavstrg::indexedSetPropInst(const IndexedClass &member, const CInfo *cInfo, const CMPIObjectPath *cop,
                                          const char **properties, const void *record)
{
    return buildInstance(cInfo, cop, properties, kClasses[member.classId], member.recordParam, record, setKey);
}
