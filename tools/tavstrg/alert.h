// SPDX-License-Identifier: Apache-2.0
// The alerts of the monitoring thread, from the development alert library's lines to words.
#pragma once

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
};

// One line of the library's file; nothing when it is none.
std::optional<Alert> parseAlert(const std::string &line);

// "2026-01-31 23:59:58  warning      SMART predicts failure: ATA MODEL FW (SCSI device 1, controller 1, 0:0:0)" and a
// newline, in local time; broken where a terminal of that width ends, 0 for none. An event or strings that are not
// known are printed as they came.
std::string alertText(const Alert &alert, bool colour, size_t width = 0);

// One JSON object in one line, which ends in a newline.
std::string alertJson(const Alert &alert);

} // namespace tool
