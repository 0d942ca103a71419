// SPDX-License-Identifier: Apache-2.0
// Every disk of the machine, whatever its bus. Its instances come from the disks engine, not from records of the store.
#include "classes/disk_link.h"
#include "classes/disk_properties.h"
#include "classes/instance.h"
#include "disks/current/current.h"
#include "runtime/clean_text.h"
#include "runtime/request.h"
#include "store/store.h"

#include <cinttypes>
#include <cstring>

using namespace tavstrg;
using disks::CurrentDisks;
using disks::CurrentState;
using disks::Disk;

namespace {

// A copy of the records of one class.
template <class Rec> class RecordsOf {
public:
    // The caller holds g_recordsLock, under which nothing is traced.
    void copy(int classId)
    {
        const std::span<const Rec> records = recordsOf<const Rec>(instSt[classId]);
        records_.reset(std::malloc(records.size_bytes()));
        if (records_ && !records.empty()) {
            std::memcpy(records_.get(), records.data(), records.size_bytes());
            count_ = records.size();
        }
    }
    std::span<const Rec> all() const { return {records_.get(), count_}; }

private:
    HeapBlock<Rec> records_{nullptr};
    size_t count_ = 0;
};

// The hard disks of the inventory as they are in the store: a link is not worth a collection.
class HardDisks {
public:
    HardDisks()
    {
        DatInfo dat = {};
        const RecordsReader reader(TAV_CID_STRG_HDD, dat);
        if (dat.datNum > 0) {
            disks_.copy(TAV_CID_STRG_HDD);
            scsi_.copy(TAV_CID_STRG_SCSI);
            ide_.copy(TAV_CID_STRG_IDE);
        }
    }
    uint16_t indexOf(const Disk &disk) const { return hardDiskIndexOf(disk, {disks_.all(), scsi_.all(), ide_.all()}); }

private:
    RecordsOf<StrgHddRec> disks_;
    RecordsOf<StrgScsiRec> scsi_;
    RecordsOf<StrgIdeRec> ide_;
};

// ---- one disk ----

uint64_t tracedNumber(const DiskProperty &property, const CMPIValue &value)
{
    switch (property.type) {
    case CMPI_boolean:
        return value.boolean;
    case CMPI_uint16:
        return value.uint16;
    case CMPI_uint32:
        return value.uint32;
    case CMPI_sint32:
        return static_cast<uint64_t>(value.sint32);
    default:
        return value.uint64;
    }
}

// A property that the disk does not report stays as the broker made it: NULL.
void setDiskProperty(CMPIInstance *instance, const DiskProperty &property, const PublishedDisk &disk)
{
    DiskValue value = {};
    if (!property.read(disk, value)) {
        return;
    }
    if (property.type == CMPI_chars) {
        char text[kLongestDiskText];
        cleanText(value.text, text);
        TRACE(kDetail, "CMSetProperty() %s=[%s]", property.name, text);
        instance->ft->setProperty(instance, property.name, reinterpret_cast<const CMPIValue *>(text), CMPI_chars);
        return;
    }
    TRACE(kDetail, "CMSetProperty() %s=[%" PRId64 "]", property.name,
          static_cast<int64_t>(tracedNumber(property, value.plain)));
    instance->ft->setProperty(instance, property.name, &value.plain, property.type);
}

void addDiskKey(CMPIObjectPath *path, const Disk &disk)
{
    TRACE(kDetail, "CMAddKey() %s=[%s]", kDiskKey, disk.id);
    path->ft->addKey(path, kDiskKey, reinterpret_cast<const CMPIValue *>(disk.id), CMPI_chars);
}

// The caller releases it. Null on failure.
CMPIInstance *buildDisk(const InstanceRequest &request, const PublishedDisk &disk)
{
    const CmpiHolder<CMPIObjectPath> path(newPath(request, kDiskClass));
    if (!path) {
        return nullptr;
    }
    CmpiHolder<CMPIInstance> instance(newInstance(request.cInfo, path.get()));
    if (!instance || !limitProperties(instance.get(), request.properties)) {
        return nullptr;
    }
    addDiskKey(path.get(), disk.disk);
    for (const DiskProperty &property : diskProperties()) {
        setDiskProperty(instance.get(), property, disk);
    }
    return instance.handOver();
}

Outcome returnDisk(const InstanceRequest &request, const PublishedDisk &disk, Following following)
{
    return returnInstance(request, "buildDisk", buildDisk(request, disk), following);
}

Outcome returnName(const InstanceRequest &request, const Disk &disk)
{
    const CmpiHolder<CMPIObjectPath> path(newPath(request, kDiskClass));
    if (!path) {
        return failedCall("CMNewObjectPath");
    }
    addDiskKey(path.get(), disk);
    TRACE(kDetail, "CMReturnObjectPath()");
    if (request.rslt->ft->returnObjectPath(request.rslt, path.get()).rc != CMPI_RC_OK) {
        TRACE(kFailure, "CMReturnObjectPath() Failure!!");
        return failedCall("CMReturnObjectPath");
    }
    return {};
}

// ---- all disks ----

Outcome refusalOf(CurrentState state)
{
    switch (state) {
    case CurrentState::done:
        return {};
    case CurrentState::notReadable:
        TRACE(kFailure, "/sys/block Failure!!");
        return refusal(CMPI_RC_ERR_FAILED, "/sys/block cannot be read");
    case CurrentState::stopped:
        TRACE(kFailure, "the pass over the disks was stopped");
        return refusal(CMPI_RC_ERR_FAILED, "the provider is stopping");
    case CurrentState::busy:
        TRACE(kFailure, "the disks are still being asked");
        return refusal(CMPI_RC_ERR_FAILED, "the disks are still being asked");
    default:
        TRACE(kFailure, "no memory for the disks Failure!!");
        return refusal(CMPI_RC_ERR_FAILED, "out of memory");
    }
}

// Of each disk in the kernel's order: one(disk), until an outcome is a refusal.
template <class One> Outcome returnEach(const InstanceRequest &request, One one)
{
    const CurrentDisks current;
    if (const Outcome refused = refusalOf(current.state())) {
        return refused;
    }
    if (current.disks().empty()) {
        TRACE(kFailure, "CurrentDisks NoData Failure!!");
        return refusal(CMPI_RC_ERR_NOT_FOUND, "NotFound Data");
    }
    for (const Disk &disk : current.disks()) {
        if (const Outcome refused = one(disk)) {
            return refused; // the result stays open after a failure, as with the other classes
        }
    }
    closeResult(request);
    return {};
}

Outcome enumerateDisks(const InstanceRequest &request)
{
    const HardDisks hardDisks;
    return returnEach(request, [&](const Disk &disk) {
        return returnDisk(request, {disk, hardDisks.indexOf(disk)}, Following::more);
    });
}

Outcome enumerateNames(const InstanceRequest &request)
{
    return returnEach(request, [&](const Disk &disk) { return returnName(request, disk); });
}

Outcome getDisk(const InstanceRequest &request)
{
    char id[sizeof Disk::id + 1]; // a longer one is not that of a disk
    if (!getKeyText(request.cop, kDiskKey, id)) {
        return failedCall("getKeyText");
    }
    const CurrentDisks current;
    if (const Outcome refused = refusalOf(current.state())) {
        return refused;
    }
    for (const Disk &disk : current.disks()) {
        if (std::strcmp(disk.id, id) == 0) {
            return returnDisk(request, {disk, HardDisks().indexOf(disk)}, Following::none);
        }
    }
    TRACE(kDetail, "CMSetStatusWithChars() - CMPI_RC_ERR_NOT_FOUND DiskID");
    return refusal(CMPI_RC_ERR_NOT_FOUND, "NotFound DiskID");
}

} // namespace

CMPIStatus TAV_STRGDiskGetInstance(const CInfo *cInfo, const CMPIResult *rslt, const CMPIObjectPath *cop,
                                   const char **properties)
{
    const TraceScope scope;
    return tracedRequest(cInfo, [&] { return getDisk({cInfo, cop, properties, rslt}); });
}

CMPIStatus TAV_STRGDiskEnumInstances(const CInfo *cInfo, const CMPIResult *rslt, const CMPIObjectPath *cop,
                                     const char **properties)
{
    const TraceScope scope;
    return tracedRequest(cInfo, [&] { return enumerateDisks({cInfo, cop, properties, rslt}); });
}

CMPIStatus TAV_STRGDiskEnumInstanceNames(const CInfo *cInfo, const CMPIResult *rslt, const CMPIObjectPath *cop,
                                         const char **properties)
{
    const TraceScope scope;
    return tracedRequest(cInfo, [&] { return enumerateNames({cInfo, cop, properties, rslt}); });
}
