// SPDX-License-Identifier: Apache-2.0
#include "collect/scsi/scsi_hosts.h"

#include "collect/scsi/scsi_variants.h"
#include "runtime/field_text.h"

#include <cstring>

using namespace tavstrg;

namespace {

bool nameIsLess(const char *left, const char *right)
{
    return std::strcmp(left, right) < 0;
}

SCSIControllerTypeDetail *findType(SCSIControllerTypeDetail *types, const char *driver)
{
    while (types != nullptr && _CmpControllerName(types->driver, driver) != 0) {
        types = types->next;
    }
    return types;
}

bool countType(NodeList<SCSIControllerTypeDetail> &types, const SCSIHostEntry &host)
{
    SCSIControllerTypeDetail *type = findType(types.head(), host.driver);
    if (type == nullptr) {
        type = types.append();
        if (type == nullptr) {
            return false;
        }
        copyText(type->driver, host.driver);
    }
    ++type->adapters;
    return true;
}

// Results of a failed or empty list of types; false when an argument is null.
bool beginTypes(const HostTypes &out)
{
    if (out.status != nullptr) {
        *out.status = kSourceNull;
    }
    if (out.list == nullptr) {
        return TRACED(false, kFailure, "_OUT_ param(list) Failure!!");
    }
    *out.list = nullptr;
    if (out.typeCount == nullptr) {
        return TRACED(false, kFailure, "_OUT_ param(typeCount) Failure!!");
    }
    *out.typeCount = 0;
    if (out.controllerCount == nullptr) {
        return TRACED(false, kFailure, "_OUT_ param(controllerCount) Failure!!");
    }
    *out.controllerCount = 0;
    if (out.status == nullptr) {
        return TRACED(false, kFailure, "_OUT_ param(status) Failure!!");
    }
    *out.status = 0;
    return true;
}

} // namespace

ManagedDrivers::~ManagedDrivers()
{
    DestroyStorageInfoTable(&list_);
}

bool ManagedDrivers::load()
{
    int32_t status = 0;
    const bool loaded = CreatStorageInfoTable(&list_, nullptr, &status) == 1;
    return (loaded || status == kInfUnusable || status == kInfTooLarge) && index();
}

bool ManagedDrivers::index()
{
    int32_t count = 0;
    for (const StorageInfo *node = list_; node != nullptr; node = node->next) {
        ++count;
    }
    if (!names_.reserve(count)) {
        return false;
    }
    for (const StorageInfo *node = list_; node != nullptr; node = node->next) {
        names_.add(node->name);
    }
    names_.sort(nameIsLess);
    return true;
}

bool ManagedDrivers::has(const char *driver) const
{
    return names_.find(driver, nameIsLess) >= 0;
}

bool tavstrg::appendHost(HostArray &hosts, int32_t host, const char *driver)
{
    SCSIHostEntry *const entry = hosts.append();
    if (entry == nullptr) {
        return false;
    }
    entry->host = host;
    copyText(entry->driver, driver);
    return true;
}

int _CmpControllerName(const char *left, const char *right)
{
    const TraceScope scope;
    TRACE(kDetail, "_IN_");
    if (left == nullptr || right == nullptr) {
        return TRACED(-1, kFailure, "_OUT_ param is NULL");
    }
    const int order = std::strcmp(left, right);
    return TRACED(order, kDetail, "_OUT_ strcmp(%s,%s)=(%d)", left, right, order);
}

int tavstrg::countHosts(HostReader reader)
{
    HostArray hosts;
    const int32_t status = reader(hosts);
    const int result = status == 0 || status == kSourceAbsent ? hosts.count() : -1;
    hosts.release();
    return TRACED(result, result < 0 ? kFailure : kDetail, "_OUT_ ret=[%d]", result);
}

int tavstrg::listHosts(HostReader reader, SCSIHostEntry **list, int32_t *count)
{
    if (list == nullptr) {
        return TRACED(-1, kFailure, "_OUT_ param(list) Failure!!");
    }
    *list = nullptr;
    if (count == nullptr) {
        return TRACED(-1, kFailure, "_OUT_ param(count) Failure!!");
    }
    *count = 0;
    HostArray hosts;
    const int32_t status = reader(hosts);
    if (status != 0 && status != kSourceAbsent) {
        hosts.release();
        return TRACED(-1, kFailure, "_OUT_ ret=[%d]", -1);
    }
    *count = hosts.count();
    *list = hosts.handOver();
    return TRACED(0, kDetail, "_OUT_ ret=[%d]", 0);
}

int tavstrg::listHostTypes(HostReader reader, const HostTypes &out)
{
    if (!beginTypes(out)) {
        return -1;
    }
    HostArray hosts;
    int32_t &status = *out.status;
    status = reader(hosts);
    NodeList<SCSIControllerTypeDetail> types;
    for (int32_t i = 0; status == 0 && i < hosts.count(); ++i) {
        if (!countType(types, hosts[i])) {
            status = kSourceNoMemory;
        }
    }
    *out.controllerCount = status == 0 ? hosts.count() : 0;
    hosts.release();
    if (status != 0) {
        types.release();
        return TRACED(-1, status == kSourceAbsent ? kDetail : kFailure, "_OUT_ (-1) status=[%d]", status);
    }
    *out.typeCount = types.count();
    *out.list = types.handOver();
    return TRACED(0, kDetail, "_OUT_ ret=[%d]", 0);
}
