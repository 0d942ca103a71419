// SPDX-License-Identifier: Apache-2.0
#include "collect/devices/disk_names.h"

#include "collect/devices/serial_number.h"
#include "sim/sim.h"
#include "support/lists_fixture.h"

#include <fcntl.h>
#include <filesystem>
#include <set>

using namespace tavstrg;

namespace {

// With which access a device of the machine is open, O_RDONLY and so on; -1 when it is not.
int accessOf(const std::string &path)
{
    for (int fd = 0; fd < 1024; ++fd) {
        std::error_code none;
        if (std::filesystem::read_symlink("/proc/self/fd/" + std::to_string(fd), none) == path) {
            return ::fcntl(fd, F_GETFL) & O_ACCMODE;
        }
    }
    return -1;
}

// The access at the first ioctl of an act on /dev/sda; -1 when there is none.
template <class Act> int accessDuring(Act act)
{
    int access = -1;
    sim::countCallsOf("");
    sim::atNth(sim::Call::ioctl, 1, [&] { access = accessOf("/dev/sda"); });
    act();
    sim::atNth(sim::Call::ioctl, 0, nullptr);
    return access;
}

TEST(DiskNames, Are128InTheKernelsOrder)
{
    EXPECT_STREQ(diskNameCandidate(0).data(), "/dev/sda");
    EXPECT_STREQ(diskNameCandidate(25).data(), "/dev/sdz");
    EXPECT_STREQ(diskNameCandidate(26).data(), "/dev/sdaa");
    EXPECT_STREQ(diskNameCandidate(51).data(), "/dev/sdaz");
    EXPECT_STREQ(diskNameCandidate(52).data(), "/dev/sdba");
    EXPECT_STREQ(diskNameCandidate(78).data(), "/dev/sdca");
    EXPECT_STREQ(diskNameCandidate(103).data(), "/dev/sdcz");
    EXPECT_STREQ(diskNameCandidate(104).data(), "/dev/sdda");
    EXPECT_STREQ(diskNameCandidate(127).data(), "/dev/sddx");
    std::set<std::string> names;
    for (size_t i = 0; i < kDiskNames; ++i) {
        names.insert(diskNameCandidate(i).data());
    }
    EXPECT_EQ(names.size(), 128U);
}

TEST(AddressWord, PacksHostChannelLunAndId)
{
    SCSIDeviceInfo device = {};
    device.host = 0x12;
    device.channel = 0x34;
    device.lun = 0x56;
    device.id = 0x78;
    EXPECT_EQ(scsiAddressWord(device), 0x12345678U);
    device.host = 0x112;    // above 8 bits: shifted out
    device.channel = 0x134; // masked
    device.lun = 0x156;     // masked after the shift
    device.id = 0x178;      // masked
    EXPECT_EQ(scsiAddressWord(device), 0x12345678U);
}

TEST(DiskNumber, CountsDirectAccessDevicesByPrefix)
{
    HandMadeLists lists;
    EXPECT_EQ(GetSCSIDiskDeviceNumber(nullptr), 0);
    lists.scsi(0, "Direct-Access");
    lists.scsi(6, "Direct-Access-RBC");
    lists.scsi(0, "CD-ROM");
    lists.scsi(0, "Optical Device");
    EXPECT_EQ(GetSCSIDiskDeviceNumber(lists.scsiList()), 2);
}

class DeviceNames : public testing::Test {
protected:
    int32_t build(const std::string &devices)
    {
        machine_ = std::make_unique<sim::Machine>(R"({"hosts": [{"number": 2, "driver": "ahci", "devices": [)" +
                                                  devices + "]}]}");
        trace_.clear();
        return GetSCSIDeviceName_IDArray(lists_.scsiList(), &table_);
    }
    std::string nameOf(const SCSIDeviceInfo &device)
    {
        char name[kDiskNameSize];
        EXPECT_EQ(TAVStorageGetSCSIDeviceName(&table_, &device, name), 0);
        return name;
    }

    TraceRecorder trace_;
    HandMadeLists lists_;
    std::unique_ptr<sim::Machine> machine_;
    SCSIDiskNameTable table_ = {};
};

TEST_F(DeviceNames, ADiskIsFoundByItsAddressWhateverItsName)
{
    const SCSIDeviceInfo &first = lists_.scsi(2, "Direct-Access");  // id 0
    const SCSIDeviceInfo &second = lists_.scsi(2, "Direct-Access"); // id 1
    ASSERT_EQ(build(R"({"id": 0, "ata": true, "node": "sdab"}, {"id": 1, "ata": true, "node": "sdb"})"), 1);
    EXPECT_EQ(table_.count, 2);
    EXPECT_EQ(nameOf(first), "/dev/sdab");
    EXPECT_EQ(nameOf(second), "/dev/sdb");
    EXPECT_EQ(machine_->unknownIoctls(), 0U);
    EXPECT_EQ(machine_->openDescriptors(), 0);
}

TEST_F(DeviceNames, DisksAreOpenedReadOnly)
{
    lists_.scsi(2, "Direct-Access");
    ASSERT_EQ(build(R"({"ata": true})"), 1);
    EXPECT_EQ(accessDuring([&] { GetSCSIDeviceName_IDArray(lists_.scsiList(), &table_); }), O_RDONLY);
    char serial[kSerialNumberSize];
    EXPECT_EQ(accessDuring([&] { TAVStorageGetSCSIDeviceSerialNumber("/dev/sda", serial); }), O_RDONLY);
}

TEST_F(DeviceNames, WithoutAMatchTheNameIsEmptyAndTheLookupSucceeds)
{
    SCSIDeviceInfo device = lists_.scsi(2, "Direct-Access");
    ASSERT_EQ(build(R"({"id": 0, "ata": true})"), 1);
    device.lun = 1;
    EXPECT_EQ(nameOf(device), "");
}

TEST_F(DeviceNames, TheFirstOfTwoEqualAddressesWins)
{
    const SCSIDeviceInfo &device = lists_.scsi(2, "Direct-Access");
    table_.pairs[0] = {scsiAddressWord(device), "/dev/sdc"};
    table_.pairs[1] = {scsiAddressWord(device), "/dev/sdd"};
    table_.count = 2;
    EXPECT_EQ(nameOf(device), "/dev/sdc");
}

TEST_F(DeviceNames, NullArgumentsFailTheLookup)
{
    const SCSIDeviceInfo &device = lists_.scsi(2, "Direct-Access");
    char name[kDiskNameSize];
    EXPECT_EQ(TAVStorageGetSCSIDeviceName(nullptr, &device, name), -1);
    EXPECT_EQ(TAVStorageGetSCSIDeviceName(&table_, nullptr, name), -1);
    EXPECT_EQ(TAVStorageGetSCSIDeviceName(&table_, &device, nullptr), -1);
}

TEST_F(DeviceNames, SearchingStopsWhenAsManyAnsweredAsThereAreDisks)
{
    lists_.scsi(2, "Direct-Access");
    ASSERT_EQ(build(R"({"id": 0, "ata": true}, {"id": 1, "ata": true}, {"id": 2, "ata": true})"), 1);
    EXPECT_EQ(table_.count, 1);
    EXPECT_EQ(machine_->commands().size(), 1U);
}

TEST_F(DeviceNames, OpticalMemoriesUseUpNames)
{
    SCSIDeviceInfo &disk = lists_.scsi(2, "Direct-Access");
    disk.id = 1;
    ASSERT_EQ(build(R"({"id": 0, "type": 7}, {"id": 1, "ata": true})"), 1);
    EXPECT_EQ(table_.count, 1);
    EXPECT_EQ(nameOf(disk), "");
}

TEST_F(DeviceNames, ANodeThatCannotBeOpenedOrDoesNotAnswerIsPassedOver)
{
    for (int i = 0; i < 3; ++i) {
        lists_.scsi(2, "Direct-Access");
    }
    ASSERT_EQ(build(R"({"id": 0, "ata": true, "openError": "EACCES"},
                       {"id": 1, "ata": true, "faults": [{"on": "address", "errno": "EIO"}]},
                       {"id": 2, "ata": true})"),
              1);
    EXPECT_EQ(table_.count, 1);
    EXPECT_STREQ(table_.pairs[0].name, "/dev/sdc");
}

TEST_F(DeviceNames, AnAbsentListFails)
{
    EXPECT_EQ(GetSCSIDeviceName_IDArray(nullptr, &table_), 0);
    EXPECT_TRUE(trace_.has(kFailure, "_OUT_ Parameter(SCSI Device List) is NULL.", "GetSCSIDeviceName_IDArray"));
}

TEST_F(DeviceNames, WithoutDisksTheTableIsEmptyAndNothingIsOpened)
{
    lists_.scsi(2, "CD-ROM");
    ASSERT_EQ(build(R"({"id": 0, "ata": true})"), 1);
    EXPECT_EQ(table_.count, 0);
    EXPECT_TRUE(trace_.has(kDetail, "_OUT_ TotalSCSIDevNum is 0", "GetSCSIDeviceName_IDArray"));
    EXPECT_TRUE(machine_->commands().empty());
}

class SerialNumber : public DeviceNames {
protected:
    int32_t read(const std::string &device)
    {
        machine_ = std::make_unique<sim::Machine>(R"({"hosts": [{"devices": [)" + device + "]}]}");
        return TAVStorageGetSCSIDeviceSerialNumber("/dev/sda", serial_);
    }
    char serial_[kSerialNumberSize] = "before";
};

TEST_F(SerialNumber, IsTrimmed)
{
    // The field is 20 characters; the word after it is 0.
    ASSERT_EQ(read(R"({"ata": true, "serial": "S1AB0001", "identifyWords": {"20": 0}})"), 0);
    EXPECT_STREQ(serial_, "S1AB0001");
    EXPECT_EQ(machine_->openDescriptors(), 0);
}

TEST_F(SerialNumber, RunsOnIntoTheWordsAfterItsField)
{
    ASSERT_EQ(read(R"({"ata": true, "serial": "12345678901234567890", "identifyWords": {"20": 16962, "21": 67}})"), 0);
    EXPECT_STREQ(serial_, "12345678901234567890BBC");
}

TEST_F(SerialNumber, ADiskThatDoesNotAnswerFails)
{
    EXPECT_EQ(read(R"({"vendor": "SEAGATE", "model": "M"})"), -1);
    EXPECT_TRUE(trace_.has(kFailure, "_OUT_ ioctl(HDIO_GET_IDENTITY) failed", "TAVStorageGetSCSIDeviceSerialNumber"));
    EXPECT_STREQ(serial_, "before");
    EXPECT_EQ(machine_->openDescriptors(), 0);
}

TEST_F(SerialNumber, ANodeThatCannotBeOpenedFails)
{
    EXPECT_EQ(read(R"({"ata": true, "openError": "EIO"})"), -1);
    EXPECT_TRUE(trace_.has(kFailure, "_OUT_ open failed. [/dev/sda]", "TAVStorageGetSCSIDeviceSerialNumber"));
}

TEST_F(SerialNumber, AnIdentityBlockWithoutAnEndIsCutToItsField)
{
    std::string words;
    for (int word = 10; word < 256; ++word) {
        words += (words.empty() ? "" : ", ") + ("\"" + std::to_string(word) + "\": 16705"); // "AA"
    }
    ASSERT_EQ(read(R"({"ata": true, "identifyWords": {)" + words + "}}"), 0);
    EXPECT_EQ(std::string(serial_), std::string(255, 'A'));
}

} // namespace
