// SPDX-License-Identifier: Apache-2.0
// SCSI host adapters in the controller tables.
#include "collect/base/flat_table.h"
#include "collect/collection/collection.h"
#include "collect/controllers/controller_build.h"
#include "runtime/field_text.h"

#include <algorithm>
#include <limits>

using namespace tavstrg;

namespace {

// Compares as many characters as the stored name has: an adapter whose driver's name only begins with a stored one
// shares its entry. Returns 0 if there is none.
uint32_t findDriver(std::string_view driver)
{
    for (int32_t i = 0; i < collection().driver_cnt; ++i) {
        if (driver.starts_with(fieldText(collection().pDriverTbl[i].name))) {
            return collection().pDriverTbl[i].index;
        }
    }
    return 0;
}

DriverEntry newDriver(int32_t index, std::string_view name)
{
    DriverEntry entry = {};
    entry.index = static_cast<uint32_t>(index);
    copyText(entry.name, name);
    copyText(entry.version, kNotSupported);
    return entry;
}

// The controller of a host, which is in the tables already, gets a driver.
void linkDriver(int32_t host, uint32_t driverIndex)
{
    const uint16_t index = controllerIndexOfHost(collection(), host);
    if (index != kUnknownWord && index <= collection().ctrl_cnt) {
        collection().pCtrlTbl[index - 1].driverIndex = static_cast<uint16_t>(driverIndex);
    }
}

} // namespace

int _CmpControllerTid(const void *left, const void *right)
{
    const TraceScope scope;
    TRACE(kDetail, "_IN_");
    const int64_t difference =
        int64_t{static_cast<const SCSIHostEntry *>(left)->host} - static_cast<const SCSIHostEntry *>(right)->host;
    const auto result = static_cast<int>(
        std::clamp<int64_t>(difference, std::numeric_limits<int>::min(), std::numeric_limits<int>::max()));
    return TRACED(result, kDetail, "_OUT_ ret=[%d]", result);
}

ControllerEntry tavstrg::newUnknownController(int32_t i)
{
    ControllerEntry entry = {};
    entry.Index = static_cast<uint16_t>(i + 1);
    entry.InterfaceType = kInterfaceUnknown;
    entry.controllerNumber = kUnknownWord;
    entry.numberInKind = 0;
    entry.kindWord = kUnknownWord;
    copyText(entry.Model, "Unknown");
    copyText(entry.version, kNotSupported);
    entry.busType = kUnknownWord;
    entry.oneWord = 1;
    entry.interruptWord = entry.InterruptNumber = kUnknownValue;
    entry.values[0] = entry.values[1] = kUnknownValue;
    entry.portCount = 0;
    entry.firstPort = kUnknownWord;
    entry.driverCount = 1;
    entry.driverIndex = kUnknownWord;
    entry.words[0] = entry.words[1] = kUnknownWord;
    entry.value = kUnknownValue;
    return entry;
}

ControllerEntry tavstrg::newSCSIController(int32_t i, int32_t host)
{
    ControllerEntry entry = newUnknownController(i);
    entry.InterfaceType = kInterfaceScsi;
    entry.controllerNumber = static_cast<uint16_t>(host);
    entry.numberInKind = entry.Index;
    copyText(entry.Model, "SCSI Controller");
    return entry;
}

int MakeSCSIController(int32_t i, const SCSIHostEntry &host)
{
    const TraceScope scope;
    TRACE(kDetail, "_IN_ i=[%d]", i);
    const auto index = static_cast<uint16_t>(i + 1);
    if (!appendSCSIController(collection(), {index, index, static_cast<uint16_t>(host.host)}) ||
        MakeSCSIControllerDriver(i, host) < 0) {
        return TRACED(-1, kFailure, "_OUT_ (-1)");
    }
    return TRACED(0, kDetail, "_OUT_ (0)");
}

int MakeSCSIControllerDriver(int32_t i, const SCSIHostEntry &host)
{
    const TraceScope scope;
    TRACE(kDetail, "_IN_ i=[%d] driver=[%s]", i, host.driver);
    const std::string_view driver = fieldText(host.driver);
    uint32_t index = i == 0 ? 0 : findDriver(driver); // the first controller always gets its own entry
    if (index == 0) {
        if (!appendDriver(collection(), newDriver(collection().driver_cnt + 1, driver))) {
            return TRACED(-1, kFailure, "_OUT_ (-1)");
        }
        index = static_cast<uint32_t>(collection().driver_cnt);
    }
    linkDriver(host.host, index);
    return TRACED(0, kDetail, "_OUT_ (0)");
}
