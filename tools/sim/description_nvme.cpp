// SPDX-License-Identifier: Apache-2.0
// NVMe controllers and namespaces of a description, and their names: drivers/nvme/host/core.c, multipath.c.
#include "sim/description_parts.h"

#include <algorithm>
#include <set>
#include <string>
#include <utility>

namespace sim {

namespace {

std::optional<int> temperature(Fields &fields, const char *name, std::optional<int> otherwise)
{
    if (fields.isNull(name)) {
        fields.text(name, "");
        return std::nullopt;
    }
    const int celsius = fields.number<int>(name, otherwise.value_or(0));
    if (celsius < -273 || celsius > 65535 - 273) {
        fields.fail(name, "expected degrees Celsius, from -273");
    }
    return fields.has(name) ? celsius : otherwise;
}

void readHealth(Fields fields, NvmeHealth &health)
{
    health.criticalWarning = fields.number<uint8_t>("criticalWarning", 0);
    health.temperature = temperature(fields, "temperature", health.temperature);
    health.availableSpare = fields.number<uint8_t>("availableSpare", 100);
    health.spareThreshold = fields.number<uint8_t>("spareThreshold", 10);
    health.percentageUsed = fields.number<uint8_t>("percentageUsed", 0);
    health.dataUnitsRead = fields.number<uint64_t>("dataUnitsRead", 0);
    health.dataUnitsWritten = fields.number<uint64_t>("dataUnitsWritten", 0);
    health.hostReads = fields.number<uint64_t>("hostReads", 0);
    health.hostWrites = fields.number<uint64_t>("hostWrites", 0);
    health.busyMinutes = fields.number<uint64_t>("busyMinutes", 0);
    health.powerCycles = fields.number<uint64_t>("powerCycles", 0);
    health.powerOnHours = fields.number<uint64_t>("powerOnHours", 0);
    health.unsafeShutdowns = fields.number<uint64_t>("unsafeShutdowns", 0);
    health.mediaErrors = fields.number<uint64_t>("mediaErrors", 0);
    health.errorLogEntries = fields.number<uint64_t>("errorLogEntries", 0);
    health.warningMinutes = fields.number<unsigned>("warningMinutes", 0);
    health.criticalMinutes = fields.number<unsigned>("criticalMinutes", 0);
    for (Fields &sensor : fields.objects("sensors")) {
        health.sensors.push_back(temperature(sensor, "temperature", std::nullopt));
        sensor.finish();
    }
    if (health.sensors.size() > 8) {
        fields.fail("sensors", "expected at most 8");
    }
    health.raw = fields.bytes("raw");
    fields.finish();
}

NvmeNamespace readNamespace(Fields fields, const NvmeController &controller)
{
    NvmeNamespace space;
    space.nsid = fields.number<unsigned>("nsid", static_cast<unsigned>(controller.namespaces.size()) + 1);
    const unsigned instance = fields.number<unsigned>("instance", space.nsid);
    const std::string suffix = "n" + std::to_string(instance);
    const std::string number = std::to_string(controller.number);
    const std::string subsystem = std::to_string(controller.subsystem);
    space.node = "nvme" + (controller.multipath ? subsystem : number) + suffix;
    space.path = controller.multipath ? "nvme" + subsystem + "c" + number + suffix : "";
    space.nguid = readBytes(fields, "nguid", 16);
    space.eui = readBytes(fields, "eui", 8);
    space.uuid = readBytes(fields, "uuid", 16);
    if (fields.has("wwid")) {
        space.wwid = fields.text("wwid", "");
    }
    DeviceDescription &device = space.device;
    device.bus = Bus::nvmeNamespace;
    device.node = space.node;
    device.nsid = space.nsid;
    device.serial = controller.serial;
    device.block.rotationRate = 0;
    readSize(fields, device, uint64_t{1} << 40);
    if (device.sectorSize < 512 || (device.sectorSize & (device.sectorSize - 1)) != 0) {
        fields.fail("sectorSize", "expected a power of 2 from 512");
    }
    readBlock(fields, device);
    readFaults(fields, device);
    fields.finish();
    return space;
}

void readNames(Fields &fields, NvmeController &controller)
{
    controller.model = fields.text("model", "NVME DISK");
    controller.serial = fields.text("serial", "");
    controller.firmware = fields.text("firmware", "1.0");
    controller.transport = fields.oneOf("transport", {"pcie", "tcp", "rdma", "fc", "loop"});
    char place[32];
    std::snprintf(place, sizeof place, "0000:%02x:00.0", controller.number % 256 + 1);
    const bool card = controller.transport == "pcie";
    controller.address =
        card ? fields.fileName("address", place) : fields.text("address", "traddr=192.0.2.1,trsvcid=4420");
    controller.nqn = fields.text("nqn", "nqn.2014.08.org.nvmexpress:" + std::to_string(controller.subsystem));
    controller.vendorId = fields.number<uint16_t>("vendorId", 0x1B36);
    controller.state = fields.text("state", "live");
}

} // namespace

std::vector<uint8_t> readBytes(Fields &fields, const char *name, size_t number)
{
    if (!fields.has(name) || fields.isNull(name)) {
        fields.text(name, "");
        return {};
    }
    std::vector<uint8_t> bytes = fields.bytes(name);
    if (bytes.size() != number) {
        fields.fail(name, "expected " + std::to_string(number) + " bytes");
    }
    return bytes;
}

void readNvme(Fields fields, Description &description)
{
    auto controller = std::make_shared<NvmeController>();
    const auto position = static_cast<unsigned>(description.nvme.size());
    controller->number = fields.number<unsigned>("number", position);
    controller->subsystem = fields.number<unsigned>("subsystem", controller->number);
    controller->cntlid = fields.number<uint16_t>("cntlid", static_cast<uint16_t>(controller->number));
    controller->multipath = fields.flag("multipath", false);
    readNames(fields, *controller);
    controller->path = readPath(fields, "nvme" + std::to_string(controller->number));
    if (const std::optional<Fields> health = fields.object("health")) {
        readHealth(*health, controller->health);
    }
    DeviceDescription &device = controller->device;
    device.bus = Bus::nvmeController;
    device.node = "nvme" + std::to_string(controller->number);
    device.serial = controller->serial;
    readFaults(fields, device);
    std::set<std::string> nodes;
    for (const Fields &space : fields.objects("namespaces")) {
        controller->namespaces.push_back(readNamespace(space, *controller));
        if (!nodes.insert(controller->namespaces.back().node).second) {
            space.fail("nsid", "duplicate " + controller->namespaces.back().node);
        }
    }
    fields.finish();
    description.nvme.push_back(std::move(controller));
}

} // namespace sim
