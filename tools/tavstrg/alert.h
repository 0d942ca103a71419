// SPDX-License-Identifier: Apache-2.0
// The alerts of the monitoring thread: the development alert library's lines, parsed and worded.
#pragma once

#include "tavstrg/changes.h"
#include "tavstrg/inventory.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace tool {

struct Alert {
    std::string time; // UTC, "2026-01-31T23:59:58.123Z"
    uint32_t eventId = 0;
    int eventType = 0; // 1 error, 2 warning, 4 information
    std::vector<std::string> strings;

    // What the inventory adds; see addDetails().
    std::optional<Device> device = {};               // that it is about
    std::optional<std::vector<Change>> changes = {}; // of a configuration change
};

// One line of the library's file; nothing when it is not an alert.
std::optional<Alert> parseAlert(const std::string &line);

bool isConfigurationChange(const Alert &alert);
// Whether a disk of the inventory is meant; an event about a single disk describes it itself, and it may be gone.
bool isAboutADisk(const Alert &alert);

// Adds the alert's device as the inventory has it: same interface, number and name. False when it has none, as may be
// while a pass that met a new disk has not stored it yet.
bool addDevice(Alert &alert, const Inventory &inventory);

// "2026-01-31 23:59:58 +0100  warning      SMART predicts failure: ATA MODEL FW (sda, 0:0:0:0, serial S1; SCSI device
// 1, controller 1, 0:0:0)" and a newline, in local time; broken where a terminal of that width ends, 0 for none. An
// event or strings that are not known are printed as they came.
std::string alertText(const Alert &alert, bool colour, size_t width = 0);

// One JSON object in one line, which ends in a newline.
std::string alertJson(const Alert &alert);

} // namespace tool
