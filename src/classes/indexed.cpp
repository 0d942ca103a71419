// SPDX-License-Identifier: Apache-2.0
// The nine classes that are keyed by Index.
#include "classes/instance.h"
#include "lifecycle/access.h"
#include "runtime/request.h"
#include "store/arrays.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdio>
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

void traceIndex(const RecordClass &member, int i, int index)
{
    TRACE(kDetail, "%s[%d]->Index=[%d]", member.recordName, i, index);
}

// A search for the first record with one index: a copy of it and of the indices up to it, all of one moment. A class
// may have thousands of records, which a request for one of them does not copy.
class Search {
public:
    Search(int classId, int key)
    {
        DatInfo dat = {};
        const RecordsReader reader(classId, dat);
        emptyIsKnown_ = strgEmptyIsKnown();
        count_ = std::max(dat.datNum, 0);
        if (count_ > 0 && dat.datAdr != nullptr) {
            // Not memalloc, which traces: the records lock is held.
            indices_.reset(std::malloc(static_cast<size_t>(count_) * sizeof(uint16_t)));
            if (indices_) {
                find(dat, key);
            }
        }
    }
    // Refuses when there was nothing to search: the class became empty, the store was freed, or memory is short.
    Outcome check(const RecordClass &member) const
    {
        return checkRecords(member, {count_, static_cast<bool>(indices_), emptyIsKnown_});
    }
    // Indices met, the one that was found last.
    int count() const { return count_; }
    int index(int i) const { return indices_[static_cast<size_t>(i)]; }
    // The record, or null if none has the index.
    const void *found() const { return found_ ? record_.data() : nullptr; }

private:
    void find(const DatInfo &dat, int key)
    {
        const auto *const records = static_cast<const uint8_t *>(dat.datAdr);
        for (int i = 0; i < count_; ++i) {
            const uint8_t *const record = records + static_cast<size_t>(i) * dat.datSize;
            indices_[static_cast<size_t>(i)] = static_cast<uint16_t>(indexOf(record));
            if (indexOf(record) == key) {
                std::memcpy(record_.data(), record, std::min<size_t>(dat.datSize, record_.size()));
                found_ = true;
                count_ = i + 1;
                return;
            }
        }
    }

    int count_ = 0;
    bool emptyIsKnown_ = false;
    bool found_ = false;
    HeapBlock<uint16_t> indices_{nullptr};
    std::array<uint8_t, kMaxRecordSize> record_ = {};
};

Outcome returnByKey(const RecordClass &member, const InstanceRequest &request, int key)
{
    const Search search(member.classId, key);
    if (const Outcome refused = search.check(member)) {
        return refused;
    }
    for (int i = 0; traceIsReceived() && i < search.count(); ++i) { // thousands, for nothing where nobody reads them
        traceIndex(member, i, search.index(i));
    }
    if (search.found() != nullptr) {
        return returnRecord(member, request, search.found(), Following::none);
    }
    TRACE(kDetail, "CMSetStatusWithChars() - CMPI_RC_ERR_INVALID_PARAMETER Index");
    // Deliberate: an unknown key is an invalid parameter, not a missing object.
    return refusal(CMPI_RC_ERR_INVALID_PARAMETER, "NotFound Index");
}

Outcome getByKey(const RecordClass &member, const InstanceRequest &request)
{
    const int key = getKeyIndex(request.cop);
    if (key <= 0) {
        TRACE(kFailure, "getKeyIndex() Failure!!");
        return failedCall("getKeyIndex");
    }
    if (const Outcome refused = refreshClass(member, member.classIdName, request.cInfo)) {
        return refused;
    }
    return returnByKey(member, request, key);
}

Outcome enumerate(const RecordClass &member, const InstanceRequest &request)
{
    if (const Outcome refused = refreshClass(member, member.enumClassIdName, request.cInfo)) {
        return refused;
    }
    const RecordsCopy copy(member.classId);
    if (const Outcome refused = copy.check(member)) {
        return refused;
    }
    for (int i = 0; i < copy.count(); ++i) {
        traceIndex(member, i, indexOf(copy.record(i)));
        if (const Outcome refused = returnRecord(member, request, copy.record(i), Following::more)) {
            return refused; // deliberate: the result stays open after a failure
        }
    }
    closeResult(request);
    return {};
}

// After the instance was made from the path: whether the key reaches the instance's own path depends on the broker, so
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

CMPIStatus tavstrg::indexedGetInstance(const RecordClass &member, const InstanceRequest &request)
{
    return tracedRequest(request.cInfo, [&] { return getByKey(member, request); });
}

CMPIStatus tavstrg::indexedEnumInstances(const RecordClass &member, const InstanceRequest &request)
{
    return tracedRequest(request.cInfo, [&] { return enumerate(member, request); });
}

CMPIInstance *tavstrg::indexedSetPropInst(const RecordClass &member, const InstanceRequest &request, const void *record)
{
    return buildInstance(member, request, record, setKey);
}
