// SPDX-License-Identifier: Apache-2.0
// NVMe controllers and namespaces: sysfs, identify, log pages.
#include "support/sim_device.h"

#include <cstring>
#include <fstream>
#include <gmock/gmock.h>
#include <iterator>
#include <linux/fs.h>
#include <linux/hdreg.h>
#include <linux/nvme_ioctl.h>
#include <memory>
#include <stdexcept>
#include <sys/stat.h>
#include <sys/sysmacros.h>

namespace {

using device_test::Node;
using testing::HasSubstr;

const char *const kOne = R"({"nvme": [{"model": "HALDEN N4", "serial": "HN1", "firmware": "H1", "cntlid": 6,
    "address": "0000:41:00.0", "vendorId": 4660,
    "namespaces": [
        {"sectors": 8388608, "sectorSize": 4096, "nguid": "00112233-4455-6677-8899-aabbccddeeff",
         "eui": "0025388b21001a2b"},
        {"nsid": 5, "instance": 2, "sectors": 2048}]}]})";

// Two controllers of one subsystem with one namespace.
const char *const kTwoPaths = R"({"nvme": [
    {"number": 3, "subsystem": 1, "multipath": true, "serial": "M", "namespaces": [{"uuid":
        "00112233445566778899aabbccddeeff"}]},
    {"number": 4, "subsystem": 1, "multipath": true, "serial": "M", "namespaces": [{"uuid":
        "00112233445566778899aabbccddeeff"}]}]})";

std::string health(const std::string &fields)
{
    return R"({"nvme": [{"namespaces": [{}], "health": )" + fields + "}]}";
}

std::string faulty(const std::string &fault)
{
    return R"({"nvme": [{"namespaces": [{}], "faults": [)" + fault + "]}]}";
}

std::string attributeOf(const std::string &path)
{
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

std::string placeOf(const std::string &path)
{
    const std::unique_ptr<char, void (*)(void *)> real(realpath(path.c_str(), nullptr), free);
    return real == nullptr ? "" : real.get();
}

struct Reply {
    int status = -1;
    int error = 0;
    std::vector<uint8_t> data;

    uint64_t number(size_t at, size_t length) const
    {
        uint64_t value = 0;
        for (size_t i = 0; i < length; ++i) {
            value |= uint64_t{data[at + i]} << (8 * i);
        }
        return value;
    }
    std::string text(size_t at, size_t length) const
    {
        return {data.begin() + long(at), data.begin() + long(at + length)};
    }
};

Reply admin(const Node &node, uint8_t opcode, unsigned nsid, unsigned cdw10, unsigned length, unsigned timeoutMs = 0)
{
    Reply reply;
    reply.data.resize(length);
    nvme_admin_cmd command{};
    command.opcode = opcode;
    command.nsid = nsid;
    command.cdw10 = cdw10;
    command.addr = reinterpret_cast<uintptr_t>(reply.data.data());
    command.data_len = length;
    command.timeout_ms = timeoutMs;
    reply.status = ioctl(node.fd, NVME_IOCTL_ADMIN_CMD, &command);
    reply.error = errno;
    return reply;
}

Reply identify(const Node &node, unsigned cns, unsigned nsid = 0)
{
    return admin(node, 0x06, nsid, cns, 4096);
}

Reply healthLog(const Node &node, unsigned timeoutMs = 0)
{
    return admin(node, 0x02, 0xFFFFFFFF, 127U << 16 | 0x02, 512, timeoutMs);
}

TEST(Nvme, SysfsShowsControllerAndNamespaces)
{
    const sim::Machine machine(kOne);
    const std::string controller = "/sys/class/nvme/nvme0/";
    EXPECT_EQ(placeOf(controller), "/sys/devices/pci0000:00/0000:41:00.0/nvme/nvme0");
    EXPECT_EQ(attributeOf(controller + "model"), "HALDEN N4" + std::string(31, ' ') + "\n");
    EXPECT_EQ(attributeOf(controller + "serial"), "HN1" + std::string(17, ' ') + "\n");
    EXPECT_EQ(attributeOf(controller + "firmware_rev"), "H1      \n");
    EXPECT_EQ(attributeOf(controller + "transport"), "pcie\n");
    EXPECT_EQ(attributeOf(controller + "address"), "0000:41:00.0\n");
    EXPECT_EQ(attributeOf(controller + "cntlid"), "6\n");
    EXPECT_EQ(attributeOf(controller + "state"), "live\n");
    EXPECT_EQ(placeOf("/sys/block/nvme0n1"), "/sys/devices/pci0000:00/0000:41:00.0/nvme/nvme0/nvme0n1");
    EXPECT_EQ(placeOf("/sys/block/nvme0n1/device"), placeOf(controller));
    EXPECT_EQ(attributeOf("/sys/block/nvme0n1/nguid"), "00112233-4455-6677-8899-aabbccddeeff\n");
    EXPECT_EQ(attributeOf("/sys/block/nvme0n1/eui"), "00 25 38 8b 21 00 1a 2b\n");
    EXPECT_EQ(attributeOf("/sys/block/nvme0n1/wwid"), "eui.00112233445566778899aabbccddeeff\n");
    EXPECT_EQ(attributeOf("/sys/block/nvme0n1/nsid"), "1\n");
    EXPECT_EQ(attributeOf("/sys/block/nvme0n1/hidden"), "0\n");
    EXPECT_EQ(attributeOf("/sys/block/nvme0n1/size"), "8388608\n");
    EXPECT_EQ(attributeOf("/sys/block/nvme0n1/queue/rotational"), "0\n");
    EXPECT_EQ(attributeOf("/sys/block/nvme0n2/wwid"), "nvme.1234-484e31-48414c44454e204e34-00000005\n");
    EXPECT_FALSE(machine.exists("/sys/block/nvme0n2/nguid"));
}

TEST(Nvme, PathsOfASharedNamespaceAreHidden)
{
    const sim::Machine machine(kTwoPaths);
    EXPECT_EQ(placeOf("/sys/block/nvme1n1"), "/sys/devices/virtual/nvme-subsystem/nvme-subsys1/nvme1n1");
    EXPECT_EQ(attributeOf("/sys/block/nvme1n1/hidden"), "0\n");
    EXPECT_EQ(attributeOf("/sys/block/nvme1n1/wwid"), "uuid.00112233-4455-6677-8899-aabbccddeeff\n");
    for (const char *path : {"nvme1c3n1", "nvme1c4n1"}) {
        const std::string block = std::string("/sys/block/") + path;
        EXPECT_EQ(attributeOf(block + "/hidden"), "1\n");
        EXPECT_EQ(attributeOf(block + "/wwid"), attributeOf("/sys/block/nvme1n1/wwid"));
        EXPECT_FALSE(machine.exists(block + "/dev"));
        EXPECT_FALSE(machine.exists(std::string("/dev/") + path));
    }
    EXPECT_EQ(placeOf("/sys/class/nvme-subsystem/nvme-subsys1/nvme4"), placeOf("/sys/class/nvme/nvme4"));
    EXPECT_TRUE(machine.exists("/dev/nvme1n1"));
    EXPECT_FALSE(machine.exists("/dev/nvme3n1"));
}

TEST(Nvme, NodesAreACharacterAndBlockDevices)
{
    const sim::Machine machine(kOne);
    struct stat status {};
    ASSERT_EQ(stat("/dev/nvme0", &status), 0);
    EXPECT_TRUE(S_ISCHR(status.st_mode));
    ASSERT_EQ(stat("/dev/nvme0n1", &status), 0);
    EXPECT_TRUE(S_ISBLK(status.st_mode));
    EXPECT_EQ(std::to_string(major(status.st_rdev)) + ":" + std::to_string(minor(status.st_rdev)) + "\n",
              attributeOf("/sys/block/nvme0n1/dev"));
    const Node controller("/dev/nvme0");
    const Node space("/dev/nvme0n2");
    uint64_t bytes = 0;
    ASSERT_EQ(ioctl(space.fd, BLKGETSIZE64, &bytes), 0);
    EXPECT_EQ(bytes, 1048576U);
    EXPECT_EQ(ioctl(space.fd, NVME_IOCTL_ID, &bytes), 5);
    EXPECT_EQ(ioctl(controller.fd, NVME_IOCTL_ID, &bytes), -1);
    std::array<char, 512> block{};
    for (const unsigned long request :
         {static_cast<unsigned long>(SG_IO), static_cast<unsigned long>(HDIO_GET_IDENTITY)}) {
        EXPECT_EQ(ioctl(space.fd, request, block.data()), -1);
        EXPECT_EQ(errno, ENOTTY);
    }
    EXPECT_EQ(ioctl(controller.fd, BLKGETSIZE64, &bytes), -1);
    EXPECT_EQ(errno, ENOTTY);
    EXPECT_EQ(machine.unknownIoctls(), 0U);
}

TEST(Nvme, IdentifyDescribesControllerAndNamespaces)
{
    sim::Machine machine(kOne);
    const Node node("/dev/nvme0");
    const Reply controller = identify(node, 1);
    EXPECT_EQ(controller.status, 0);
    EXPECT_EQ(controller.number(0, 2), 0x1234U);
    EXPECT_EQ(controller.text(4, 20), "HN1" + std::string(17, ' '));
    EXPECT_EQ(controller.text(24, 10), "HALDEN N4 ");
    EXPECT_EQ(controller.number(78, 2), 6U);
    EXPECT_EQ(controller.number(280, 8), (uint64_t{8388608} + 2048) * 512);
    const Reply space = identify(node, 0, 1);
    EXPECT_EQ(space.number(0, 8), 1048576U); // blocks of 4096 bytes
    EXPECT_EQ(space.data[130], 12);
    EXPECT_EQ(space.data[104 + 15], 0xFF);
    EXPECT_EQ(space.data[120 + 1], 0x25);
    EXPECT_EQ(identify(node, 2).text(0, 12), std::string("\1\0\0\0\5\0\0\0\0\0\0\0", 12));
    EXPECT_EQ(identify(node, 3, 1).text(0, 5), std::string("\1\x08\0\0\0", 5));
    EXPECT_EQ(identify(node, 0, 9).status, 0x400B);
    EXPECT_EQ(identify(node, 0x1C).status, 0x4002);
    EXPECT_EQ(admin(node, 0x80, 0, 0, 0).status, 0x4001); // FORMAT is not there
    EXPECT_EQ(identify(Node("/dev/nvme0n2"), 1).status, 0);
    const std::vector<sim::Command> commands = machine.commands();
    EXPECT_EQ(commands.front().device, "/dev/nvme0");
    EXPECT_EQ(commands.front().request, NVME_IOCTL_ADMIN_CMD);
    EXPECT_EQ(commands.front().bytes.size(), sizeof(nvme_admin_cmd));
    EXPECT_EQ(commands.front().bytes[0], 6);
}

TEST(Nvme, HealthLogIsAsDescribed)
{
    const sim::Machine machine(health(R"({"criticalWarning": 4, "temperature": 41, "availableSpare": 90,
        "spareThreshold": 5, "percentageUsed": 255, "dataUnitsRead": 1000, "dataUnitsWritten": 1234567890123,
        "powerCycles": 12, "powerOnHours": 8765, "unsafeShutdowns": 3, "mediaErrors": 2, "errorLogEntries": 7,
        "warningMinutes": 1, "sensors": [{"temperature": 40}, {"temperature": null}]})"));
    const Node node("/dev/nvme0");
    const Reply log = healthLog(node);
    EXPECT_EQ(log.status, 0);
    EXPECT_EQ(log.number(0, 1), 4U);
    EXPECT_EQ(log.number(1, 2), 314U);
    EXPECT_EQ(log.number(3, 3), 0xFF055AU);
    EXPECT_EQ(log.number(32, 8), 1000U);
    EXPECT_EQ(log.number(48, 8), 1234567890123U);
    EXPECT_EQ(log.number(112, 8), 12U);
    EXPECT_EQ(log.number(128, 8), 8765U);
    EXPECT_EQ(log.number(144, 8), 3U);
    EXPECT_EQ(log.number(160, 8), 2U);
    EXPECT_EQ(log.number(176, 8), 7U);
    EXPECT_EQ(log.number(192, 4), 1U);
    EXPECT_EQ(log.number(200, 4), 313U);
    const Reply part = admin(node, 0x02, 0xFFFFFFFF, 0U << 16 | 0x02, 512);
    EXPECT_EQ(part.number(0, 3), 0x13A04U); // one word
    EXPECT_EQ(part.number(4, 8), 0U);
    EXPECT_EQ(admin(node, 0x02, 0xFFFFFFFF, 127U << 16 | 0xC0, 512).status, 0x4109);
    EXPECT_EQ(admin(node, 0x02, 1, 127U << 16 | 0x02, 512).status, 0x4002); // not of a namespace
}

TEST(Nvme, HealthCanBeUnreportedOrAnyBytes)
{
    {
        const sim::Machine machine(health(R"({"temperature": null})"));
        EXPECT_EQ(healthLog(Node("/dev/nvme0")).number(1, 2), 0U);
    }
    const sim::Machine machine(health(R"({"raw": "FF02"})"));
    const Reply log = healthLog(Node("/dev/nvme0"));
    EXPECT_EQ(log.number(0, 8), 0x02FFU);
}

TEST(Nvme, FaultsAreStatusErrorOrHang)
{
    {
        const sim::Machine machine(faulty(
            R"({"on": "readLog", "nth": 1, "nvmeStatus": 6}, {"on": "readLog", "nth": 2, "errno": "EINTR"},
               {"on": "identify", "errno": "EACCES"}, {"on": "readLog", "nth": 3, "hangSeconds": 60})"));
        const Node node("/dev/nvme0");
        EXPECT_EQ(healthLog(node).status, 6);
        EXPECT_EQ(healthLog(node).error, EINTR);
        EXPECT_EQ(identify(node, 1).error, EACCES);
        EXPECT_EQ(healthLog(node, 10).status, 0x371); // aborted after its timeout
        EXPECT_EQ(healthLog(node).status, 0);
    }
    const sim::Machine machine(R"({"nvme": [{"openError": "EAGAIN", "state": "connecting"}]})");
    EXPECT_EQ(open("/dev/nvme0", O_RDONLY), -1);
    EXPECT_EQ(errno, EAGAIN);
    EXPECT_EQ(attributeOf("/sys/class/nvme/nvme0/state"), "connecting\n");
}

TEST(Nvme, ChangeOfTheDescriptionChangesItsAnswers)
{
    sim::Machine machine(health(R"({"percentageUsed": 1})"));
    const Node node("/dev/nvme0");
    EXPECT_EQ(healthLog(node).data[5], 1);
    machine.change(health(R"({"percentageUsed": 2})"));
    EXPECT_EQ(healthLog(node).data[5], 2);
    machine.change("{}");
    EXPECT_EQ(healthLog(node).error, ENODEV);
}

TEST(Nvme, WrongValuesAreRefused)
{
    const auto refusal = [](const std::string &json) -> std::string {
        try {
            const sim::Machine machine(json);
        } catch (const std::runtime_error &error) {
            return error.what();
        }
        return "accepted";
    };
    EXPECT_THAT(refusal(R"({"nvme": [{"address": "../x"}]})"), HasSubstr("nvme[0].address: expected a file name"));
    EXPECT_THAT(refusal(R"({"nvme": [{"transport": "usb"}]})"), HasSubstr("nvme[0].transport: expected one of"));
    EXPECT_THAT(refusal(R"({"nvme": [{}, {"number": 0}]})"), HasSubstr("duplicate nvme0"));
    EXPECT_THAT(refusal(R"({"nvme": [{"namespaces": [{"nguid": "00"}]}]})"), HasSubstr("nguid: expected 16 bytes"));
    EXPECT_THAT(refusal(R"({"nvme": [{"namespaces": [{}, {"nsid": 1}]}]})"), HasSubstr("nsid: duplicate nvme0n1"));
    EXPECT_THAT(refusal(R"({"nvme": [{"namespaces": [{"sectorSize": 0}]}]})"), HasSubstr("sectorSize: expected"));
    EXPECT_THAT(refusal(health(R"({"percentageUsed": 256})")), HasSubstr("percentageUsed: the number is out of range"));
    EXPECT_THAT(refusal(health(R"({"temperature": -300})")), HasSubstr("temperature: expected degrees"));
    EXPECT_THAT(refusal(health(R"({"wear": 1})")), HasSubstr("health.wear: unknown field"));
}

// ---- virtio-blk, MMC ----

TEST(Cards, VirtioDiskShowsItsSerialNumber)
{
    const sim::Machine machine(R"({"virtio": [{"serial": "VB-1", "sectors": 2048, "pciAddress": "0000:00:05.0"},
        {"node": "vdz"}]})");
    EXPECT_EQ(placeOf("/sys/block/vda"), "/sys/devices/pci0000:00/0000:00:05.0/virtio0/block/vda");
    EXPECT_EQ(attributeOf("/sys/block/vda/serial"), "VB-1"); // the kernel ends it by no line feed
    EXPECT_EQ(attributeOf("/sys/block/vda/size"), "2048\n");
    EXPECT_EQ(attributeOf("/sys/block/vda/device/vendor"), "0x1af4\n");
    const Node node("/dev/vdz");
    uint64_t bytes = 0;
    EXPECT_EQ(ioctl(node.fd, BLKGETSIZE64, &bytes), 0);
    std::array<char, 512> block{};
    EXPECT_EQ(ioctl(node.fd, HDIO_GET_IDENTITY, block.data()), -1);
    EXPECT_EQ(errno, ENOTTY);
}

TEST(Cards, MmcShowsCardAndBootPartitions)
{
    const sim::Machine machine(R"({"mmc": [{"name": "DG4064", "serial": "0x1234abcd", "manufacturer": 69, "oem": 256,
        "lifeTime": "0x02 0x01", "preEolInfo": "0x01", "sizeBytes": 62537072640}, {"type": "SD"}]})");
    EXPECT_EQ(placeOf("/sys/block/mmcblk0/device"), "/sys/devices/pci0000:00/0000:00:1a.0/mmc_host/mmc0/mmc0:0001");
    const std::string card = "/sys/block/mmcblk0/device/";
    EXPECT_EQ(attributeOf(card + "type") + attributeOf(card + "name") + attributeOf(card + "serial"),
              "MMC\nDG4064\n0x1234abcd\n");
    EXPECT_EQ(attributeOf(card + "manfid") + attributeOf(card + "oemid"), "0x000045\n0x0100\n");
    EXPECT_EQ(attributeOf(card + "life_time"), "0x02 0x01\n");
    EXPECT_TRUE(machine.exists("/sys/block/mmcblk0boot1"));
    EXPECT_FALSE(machine.exists("/sys/block/mmcblk1boot0"));
    EXPECT_FALSE(machine.exists("/sys/block/mmcblk1/device/life_time"));
    EXPECT_EQ(attributeOf("/sys/block/mmcblk1/device/type"), "SD\n");
}

TEST(Cards, WrongValuesAreRefused)
{
    EXPECT_THROW(sim::Machine(R"({"virtio": [{"node": "a/b"}]})"), std::runtime_error);
    EXPECT_THROW(sim::Machine(R"({"virtio": [{"node": "vda"}, {"node": "vda"}]})"), std::runtime_error);
    EXPECT_THROW(sim::Machine(R"({"virtio": [{"serial": "123456789012345678901"}]})"), std::runtime_error);
    EXPECT_THROW(sim::Machine(R"({"mmc": [{"type": "CF"}]})"), std::runtime_error);
    EXPECT_THROW(sim::Machine(R"({"mmc": [{"node": "shm"}]})"), std::runtime_error);
}

} // namespace
