// SPDX-License-Identifier: Apache-2.0
// virtio-blk disks, MMC and SD cards of a description.
#include "sim/description_parts.h"
#include "sim/node_names.h"

#include <cstdio>
#include <string>

namespace sim {

namespace {

// The nth letter or letters of a disk.
std::string lettersOf(size_t n)
{
    return diskName(static_cast<unsigned>(n)).substr(2);
}

void readCommon(Fields &fields, CardDescription &card, const std::string &node)
{
    card.device.node = fields.fileName("node", node);
    card.device.serial = fields.text("serial", "");
    card.pciAddress = fields.optionalFileName("pciAddress", "");
    card.path = fields.text("path", "");
    card.path = readPath(fields, card.path.substr(card.path.rfind('/') + 1));
    readSize(fields, card.device, uint64_t{32} << 30);
    readBlock(fields, card.device);
    readFaults(fields, card.device);
}

} // namespace

CardDescription readVirtio(Fields fields, size_t position)
{
    CardDescription card;
    card.device.bus = Bus::virtio;
    readCommon(fields, card, "vd" + lettersOf(position));
    if (card.device.serial.size() > 20) {
        fields.fail("serial", "expected at most 20 characters");
    }
    fields.finish();
    return card;
}

CardDescription readMmc(Fields fields, size_t position)
{
    CardDescription card;
    card.device.bus = Bus::mmc;
    card.device.block.rotationRate = 0;
    readCommon(fields, card, "mmcblk" + std::to_string(position));
    card.type = fields.oneOf("type", {"MMC", "SD"});
    card.name = fields.text("name", "CARD");
    card.cid = fields.text("cid", "");
    card.date = fields.text("date", "01/2024");
    card.firmware = fields.text("firmware", "");
    card.manufacturer = fields.number<uint8_t>("manufacturer", 0);
    card.oem = fields.number<uint16_t>("oem", 0);
    card.lifeTime = fields.text("lifeTime", "");
    card.preEol = fields.text("preEolInfo", "");
    card.bootPartitions = fields.flag("bootPartitions", card.type == "MMC");
    fields.finish();
    return card;
}

} // namespace sim
