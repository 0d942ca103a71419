// SPDX-License-Identifier: Apache-2.0
// The nine classes that are keyed by Index.
#include "classes/instance.h"
#include "runtime/request.h"

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

void traceIndex(const RecordClass &member, int i, const void *record)
{
    TRACE(kDetail, "%s[%d]->Index=[%d]", member.recordName, i, indexOf(record));
}

Outcome returnByKey(const RecordClass &member, const InstanceRequest &request, int key)
{
    const RecordsCopy copy(member.classId);
    if (const Outcome refused = copy.check(member)) {
        return refused;
    }
    for (int i = 0; i < copy.count(); ++i) {
        traceIndex(member, i, copy.record(i));
        if (indexOf(copy.record(i)) == key) {
            return returnRecord(member, request, copy.record(i), Following::none);
        }
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
        traceIndex(member, i, copy.record(i));
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
