// SPDX-License-Identifier: Apache-2.0
// Alerts: the events and their content.
#pragma once

#include <cstdint>

// Event ids of the agent's message catalogue. The severity is in the top two bits.
constexpr uint32_t TAV_ALERTID_CONFIG_CHANGE = 0x400407D0;
constexpr uint32_t TAV_ALERTID_SMART_ERROR = 0x800403E9;
constexpr uint32_t TAV_ALERTID_LIFESPAN_LV1 = 0xC0040450; // least endurance left
constexpr uint32_t TAV_ALERTID_LIFESPAN_LV2 = 0x8004044F;
constexpr uint32_t TAV_ALERTID_LIFESPAN_LV3 = 0x8004044E;
constexpr uint32_t TAV_ALERTID_LIFESPAN_LV4 = 0x4004044D;
constexpr uint32_t TAV_ALERTID_LIFESPAN_LV5 = 0x4004044C;

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
