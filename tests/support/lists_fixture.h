// SPDX-License-Identifier: Apache-2.0
// Discovery lists made by hand, and machines, for the tests of the tables.
#pragma once

#include "collect/base/flat_table.h"
#include "collect/collection/collection.h"
#include "collect/collector.h"
#include "collect/devices/device_filter.h"
#include "collect/inf/noscsi_inf.h"
#include "runtime/field_text.h"
#include "support/trace_recorder.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <deque>
#include <string>
#include <vector>

using namespace tavstrg;

// A collection whose lists are made by hand.
class HandMadeLists {
public:
    HandMadeLists() = default;
    ~HandMadeLists() { clear(); }
    HandMadeLists(const HandMadeLists &) = delete;
    HandMadeLists &operator=(const HandMadeLists &) = delete;

    SCSIDeviceInfo &scsi(int host, const char *type, const char *vendor = "VENDOR", const char *model = "MODEL")
    {
        SCSIDeviceInfo &device = scsi_.emplace_back();
        device.sequence = static_cast<int32_t>(scsi_.size() - 1);
        device.host = host;
        device.id = device.sequence;
        copyText(device.type, type);
        copyText(device.vendor, vendor);
        copyText(device.model, model);
        copyText(device.scsiRev, "REV");
        copyText(device.ansiRev, "5");
        relink();
        return device;
    }
    IDEControllerInfo &channel(const char *name, const char *bus = "pci")
    {
        IDEControllerInfo &info = channels_.emplace_back();
        copyText(info.name, name);
        copyText(info.model, bus);
        relink();
        return info;
    }
    IDEDeviceInfo &ide(const char *name, const char *media, const char *controller = "ide0")
    {
        IDEDeviceInfo &device = ide_.emplace_back();
        copyText(device.name, name);
        copyText(device.media, media);
        copyText(device.controllerName, controller);
        copyText(device.model, "IDE MODEL");
        copyText(device.driver, "ide-driver");
        relink();
        return device;
    }
    // Uses the lists that the test built as the result of discovery.
    void use()
    {
        all.g_SCSIDeviceInfo = scsi_.empty() ? nullptr : &scsi_.front();
        all.g_SCSIDeviceTotalNumber = static_cast<int32_t>(scsi_.size());
        all.g_IDEGeneralInfo = {static_cast<int32_t>(channels_.size()), static_cast<int32_t>(ide_.size()),
                                channels_.empty() ? nullptr : &channels_.front(),
                                ide_.empty() ? nullptr : &ide_.front()};
    }
    Collection all;
    const SCSIDeviceInfo *scsiList() const { return scsi_.empty() ? nullptr : &scsi_.front(); }

private:
    void clear()
    {
        all.g_SCSIDeviceInfo = nullptr;
        all.g_SCSIDeviceTotalNumber = 0;
        all.g_SCSIControllerTypeDetail = nullptr;
        all.g_SCSIControllerTypeTotalNumber = all.g_SCSIControllerTotalNumber = 0;
        all.g_IDEGeneralInfo = {};
    }
    template <class Node> static void link(std::deque<Node> &nodes)
    {
        for (size_t i = 0; i < nodes.size(); ++i) {
            nodes[i].next = i + 1 < nodes.size() ? &nodes[i + 1] : nullptr;
        }
    }
    void relink()
    {
        link(scsi_);
        link(channels_);
        link(ide_);
    }

    std::deque<SCSIDeviceInfo> scsi_;
    std::deque<IDEControllerInfo> channels_;
    std::deque<IDEDeviceInfo> ide_;
};

// A block of entries as the discovery functions hand them out.
template <class Entry> Entry *handOut(const std::vector<Entry> &entries)
{
    auto *const block = static_cast<Entry *>(memalloc(static_cast<int32_t>(sizeof(Entry) * entries.size())));
    std::copy(entries.begin(), entries.end(), block);
    return block;
}

inline SCSIHostEntry hostEntry(int32_t number, const char *driver)
{
    SCSIHostEntry host = {};
    host.host = number;
    copyText(host.driver, driver);
    return host;
}

inline USBHostEntry usbEntry(int32_t number)
{
    USBHostEntry host = {};
    host.host = number;
    copyText(host.name, "usb-storage");
    return host;
}

// Puts an entry at the head of an unmanaged-device list.
inline void addUnmanaged(NoSCSIInfo *&list, const char *vendor, const char *model)
{
    auto *const node = static_cast<NoSCSIInfo *>(memalloc(sizeof(NoSCSIInfo)));
    copyText(node->vendor, vendor);
    copyText(node->model, model);
    node->next = list;
    list = node;
}

// Gives a filter its adapters.
inline void setAdapters(DeviceFilter &filter, const std::vector<SCSIHostEntry> &hosts,
                        const std::vector<USBHostEntry> &usb)
{
    filter.hosts.entries = handOut(hosts);
    filter.hosts.count = static_cast<int32_t>(hosts.size());
    filter.usb.entries = handOut(usb);
    filter.usb.count = static_cast<int32_t>(usb.size());
    EXPECT_TRUE(filter.index());
}

// What freeing a block traces.
inline std::string freedText(const void *block)
{
    char text[64];
    std::snprintf(text, sizeof text, "memfree(%p)", block);
    return text;
}

// Position of the first line of this text among all lines; -1 when there is none.
inline int positionOf(const TraceRecorder &trace, const std::string &text)
{
    const std::vector<std::string> texts = trace.texts();
    const auto at = std::find(texts.begin(), texts.end(), text);
    return at == texts.end() ? -1 : static_cast<int>(at - texts.begin());
}
