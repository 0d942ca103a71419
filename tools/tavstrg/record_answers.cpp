// SPDX-License-Identifier: Apache-2.0
// What the disks answered, as fields of a description.
#include "tavstrg/record_parts.h"

#include <algorithm>
#include <string_view>

namespace tool {
namespace {

using namespace tavstrg::disks;

constexpr uint8_t kPassThrough16 = 0x85;
constexpr uint8_t kIdentifyDevice = 0xEC;

bool isIdentify(const RecordedCommand &command)
{
    return command.cdb.size() == 16 && command.cdb[0] == kPassThrough16 && command.cdb[14] == kIdentifyDevice;
}

// Zeros at the end of a page are its length.
void addData(const ByteVector &data, Json &json)
{
    ByteVector written = data;
    while (!written.empty() && written.back() == 0) {
        written.pop_back();
    }
    if (!written.empty()) {
        json["data"] = sim::hexText(written);
    }
    if (written.size() != data.size()) {
        json["length"] = data.size();
    }
}

Json replyJson(const RecordedCommand &command, Names &names)
{
    Json json = {{"cdb", sim::hexText(command.cdb)}};
    if (command.error != 0) {
        json["errno"] = command.error;
        return json;
    }
    addData(isIdentify(command) ? names.identify(command.data) : names.scrub(command.data), json);
    if (!command.sense.empty()) {
        json["sense"] = sim::hexText(command.sense);
    }
    json["status"] = command.status;
    if (command.hostStatus != 0) {
        json["hostStatus"] = command.hostStatus;
    }
    if (command.driverStatus != 0) {
        json["driverStatus"] = command.driverStatus;
    }
    return json;
}

// What the replies say about SMART, for other commands than those that were sent.
void addSmart(const Disk &disk, Json &json)
{
    Json smart = Json::object();
    if (disk.health.state == HealthState::off) {
        smart["enabled"] = false;
    }
    if (disk.health.state == HealthState::failing) {
        smart["failing"] = true;
    }
    for (uint32_t i = 0; i < disk.readings.attributeCount; ++i) {
        const AtaAttribute &one = disk.readings.attributes[i];
        Json raw = Json::array();
        for (unsigned shift = 0; shift < 48; shift += 8) {
            raw.push_back(one.raw >> shift & 0xFF);
        }
        smart["attributes"].push_back({{"id", one.id},
                                       {"flags", one.flags},
                                       {"current", one.current},
                                       {"worst", one.worst},
                                       {"raw", raw},
                                       {"threshold", one.threshold.orElse(0)}});
    }
    if (!smart.empty()) {
        json["smart"] = smart;
    }
}

void addExceptions(const Disk &disk, Json &json)
{
    if (disk.health.state == HealthState::off) {
        json["exceptions"] = {{"dexcpt", true}};
    } else if (disk.health.state == HealthState::failing) {
        json["exceptions"] = {{"predicting", true}};
    }
}

// A node that cannot be opened, and a disk that has not answered.
void addFaults(const Disk &disk, const NodeCalls &calls, Json &json)
{
    if (calls.openError.value_or(0) != 0) {
        json["openError"] = *calls.openError;
    } else if (std::string_view(disk.health.source) == "deadline") {
        json["faults"].push_back({{"on", calls.openError ? "any" : "open"}, {"hang", true}});
    }
}

} // namespace

void addAnswers(const Recording &recording, const std::string &node, Json &json)
{
    const Disk *const disk = recording.asked(node);
    if (disk == nullptr) {
        return;
    }
    const NodeCalls calls = recording.calls.of(node);
    addFaults(*disk, calls, json);
    if (disk->readings.power == PowerState::standby) {
        json["power"]["state"] = "standby";
    }
    if (disk->protocol == Protocol::ata) {
        addSmart(*disk, json);
    } else {
        addExceptions(*disk, json);
    }
    for (const RecordedCommand &command : calls.commands) {
        json["replies"].push_back(replyJson(command, recording.names));
    }
}

void addHealthLog(const Recording &recording, const std::string &node, Json &json)
{
    const std::vector<Disk> &disks = recording.report.disks;
    const auto disk = std::find_if(disks.begin(), disks.end(), [&node](const Disk &one) {
        return one.protocol == Protocol::nvme && node == one.queue; // its namespaces share the answer
    });
    if (disk == disks.end()) {
        return;
    }
    const NodeCalls calls = recording.calls.of(node);
    addFaults(*disk, calls, json);
    if (!calls.healthLog) {
        return;
    }
    const RecordedHealthLog &log = *calls.healthLog;
    if (log.error != 0) {
        json["faults"].push_back({{"on", "nvme"}, {"errno", log.error}});
    } else if (log.status != 0) {
        json["faults"].push_back({{"on", "nvme"}, {"nvmeStatus", log.status}});
    } else {
        json["health"] = {{"raw", sim::hexText(recording.names.scrub(log.data))}};
    }
}

} // namespace tool
