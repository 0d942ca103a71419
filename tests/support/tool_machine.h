// SPDX-License-Identifier: Apache-2.0
// What the tool must print of a simulated machine, worked out from its description alone: a second way to the answer,
// by which the files of expected output are checked.
#pragma once

#include <optional>
#include <string>
#include <vector>

namespace tool::testing_support {

struct ExpectedDevice {
    std::string driver;  // of its controller; empty on IDE
    std::string place;   // "host:bus:target:lun" or the IDE drive's name
    std::string address; // as the tree shows it: "bus:target:lun", "master", "slave"
    std::string node;    // "sda"; empty on kernels without sysfs
    std::string type;    // in words
    std::string vendor, model, firmwareRevision, serialNumber;
    std::optional<unsigned> capacity; // MiB; of a hard disk
    int smartStatus = 0;              // of a hard disk
    std::string smartState;           // of a hard disk, as JSON has it
    std::optional<int> lifeSpan;      // level of a hard disk that the endurance table knows
};

struct ExpectedController {
    std::string model;
    std::string driver;
    std::optional<unsigned> interrupt;   // looked up for IDE only
    std::vector<ExpectedDevice> devices; // by address
};

// Controllers in their order. Throws std::exception when the description is not JSON or not of the expected shape.
std::vector<ExpectedController> expectedControllers(const std::string &description);

} // namespace tool::testing_support
