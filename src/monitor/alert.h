// SPDX-License-Identifier: Apache-2.0
// Alerts: the events and their content.
#pragma once

#include <cstddef>
#include <cstdint>

// Event ids of the agent's message catalogue. The severity is in the top two bits.
constexpr uint32_t TAV_ALERTID_CONFIG_CHANGE = 0x400407D0;
constexpr uint32_t TAV_ALERTID_SMART_ERROR = 0x800403E9;
constexpr uint32_t TAV_ALERTID_LIFESPAN_LV1 = 0xC0040450; // least endurance left
constexpr uint32_t TAV_ALERTID_LIFESPAN_LV2 = 0x8004044F;
constexpr uint32_t TAV_ALERTID_LIFESPAN_LV3 = 0x8004044E;
constexpr uint32_t TAV_ALERTID_LIFESPAN_LV4 = 0x4004044D;
constexpr uint32_t TAV_ALERTID_LIFESPAN_LV5 = 0x4004044C;

// Events about single disks, which an administrator switches on.
constexpr uint32_t TAV_ALERTID_DISK_ADDED = 0x40040834;
constexpr uint32_t TAV_ALERTID_DISK_REMOVED = 0x80040835;
constexpr uint32_t TAV_ALERTID_DISK_REPLACED = 0x40040836;
constexpr uint32_t TAV_ALERTID_DISK_FAILING = 0x80040837;
constexpr uint32_t TAV_ALERTID_DISK_UNREADABLE = 0xC0040838;
constexpr uint32_t TAV_ALERTID_DISK_READABLE = 0x40040839;
// Two more that only the monitoring service of the tool sends.
constexpr uint32_t TAV_ALERTID_DISK_WARNING = 0x8004083A;
constexpr uint32_t TAV_ALERTID_DISK_GOOD = 0x4004083B;

namespace tavstrg {

constexpr char kAlertSource[] = "TAV Storage Service";
constexpr size_t kAlertTextSize = 128; // bytes of an insertion string, the terminator included; what is longer is cut

// Event types of the agent.
constexpr int32_t kAlertError = 1;
constexpr int32_t kAlertWarning = 2;
constexpr int32_t kAlertInformation = 4;

// The severity in an id's top two bits as the event type that goes with it.
constexpr int32_t typeOfSeverity(uint32_t id)
{
    constexpr int32_t kTypes[] = {0, kAlertInformation, kAlertWarning, kAlertError};
    return kTypes[id >> 30];
}

} // namespace tavstrg

// One disk as an alert describes it.
struct alertDiskSt {
    uint16_t Index;         // of the disk's SCSI device
    uint16_t InterfaceType; // 0 or 2 SCSI, else IDE
    uint16_t ControllerIndex;
    uint16_t TargetID;
    uint16_t Bus;
    uint16_t LUN;
    char Vendor[64];
    char Model[64];
    char FirmwareRevision[64];
    uint16_t DrivePosition; // IDE: 1 unknown, 2 master, 3 slave
};

// Sends the alert of an event. disk is null for the configuration change; for other events a null disk is refused.
// Returns 0 if the agent accepted the alert; -1 if not, and for an unknown id.
int strgPutAlert(uint32_t eventId, const alertDiskSt *disk);

namespace tavstrg {

// The two insertion strings with which every alert describes a disk: its address, and its index, vendor, model and
// firmware.
struct DiskTexts {
    char address[kAlertTextSize];
    char label[kAlertTextSize];
};
DiskTexts diskTexts(const alertDiskSt &disk);

} // namespace tavstrg
