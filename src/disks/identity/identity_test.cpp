// SPDX-License-Identifier: Apache-2.0
#include "disks/identity/identity.h"

#include <gtest/gtest.h>
#include <string>
#include <vector>

using namespace tavstrg;
using namespace tavstrg::disks;

namespace {

Disk diskOf(const char *name)
{
    Disk disk{};
    copyText(disk.name, name);
    copyText(disk.paths[0], name);
    disk.pathCount = 1;
    copyText(disk.queue, "host0");
    copyText(disk.adapter, "0000:00:1f.2");
    copyText(disk.address, (std::string("0:0:0:") + name).c_str());
    return disk;
}

Disk withSerial(const char *name, const char *serial)
{
    Disk disk = diskOf(name);
    copyText(disk.vendor, "ATA");
    copyText(disk.model, "NORDWIND NW1000");
    copyText(disk.serial, serial);
    return disk;
}

Disk withName(const char *name, const char *wwid)
{
    Disk disk = withSerial(name, "");
    copyText(disk.wwid, wwid);
    return disk;
}

std::vector<std::string> idsOf(const std::vector<Disk> &given, std::vector<uint32_t> *paths = nullptr)
{
    Array<Disk> disks;
    for (const Disk &disk : given) {
        *disks.append() = disk;
    }
    EXPECT_TRUE(nameDisks(disks));
    std::vector<std::string> ids;
    for (const Disk &disk : disks) {
        ids.emplace_back(disk.id);
        if (paths != nullptr) {
            paths->push_back(disk.pathCount);
        }
    }
    return ids;
}

using Ids = std::vector<std::string>;

TEST(NameDisk, WorldWideNameBeforeSerialNumberBeforePlace)
{
    Disk disk = withSerial("sda", "NW 1/2");
    copyText(disk.wwid, "naa.5000c500a1b2c3d4");
    nameDisk(disk);
    EXPECT_STREQ(disk.id, "naa.5000c500a1b2c3d4");
    EXPECT_EQ(disk.idSource, IdentitySource::worldWideName);
    copyText(disk.wwid, "t10.ATA     NORDWIND");
    nameDisk(disk);
    EXPECT_STREQ(disk.id, "serial.ATA_NORDWIND_NW1000.NW_1_2");
    EXPECT_EQ(disk.idSource, IdentitySource::serialNumber);
    copyText(disk.serial, "");
    nameDisk(disk);
    EXPECT_STREQ(disk.id, "place.0000:00:1f.2.0:0:0:sda");
    EXPECT_EQ(disk.idSource, IdentitySource::place);
}

TEST(NameDisk, CardIdentityOfAnMmcCard)
{
    Disk disk = withName("mmcblk0", "cid.150100444434354c");
    copyText(disk.serial, "0x12345678");
    nameDisk(disk);
    EXPECT_STREQ(disk.id, "cid.150100444434354c");
    EXPECT_EQ(disk.idSource, IdentitySource::cardIdentity);
}

TEST(NameDisk, WithoutAdapterAndAddressTheKernelNameIsThePlace)
{
    Disk disk{};
    copyText(disk.name, "xvda");
    nameDisk(disk);
    EXPECT_STREQ(disk.id, "place.xvda");
}

TEST(NameDisk, WithoutVendorAndModelTheTransportStandsForThem)
{
    Disk disk{};
    disk.transport = Transport::virtio;
    copyText(disk.serial, "root-1");
    nameDisk(disk);
    EXPECT_STREQ(disk.id, "serial.virtio.root-1");
}

TEST(NameDisks, WhatADiskSaysOfItselfRenamesOnlyThoseWithoutANumber)
{
    Array<Disk> disks;
    *disks.append() = withSerial("sda", "NW-1");
    *disks.append() = withSerial("sdb", "");
    *disks.append() = withSerial("sdc", "BRIDGE-1");
    disks[2].transport = Transport::usb;
    ASSERT_TRUE(nameDisks(disks));
    EXPECT_EQ(disks[1].idSource, IdentitySource::place);
    for (Disk &disk : disks) { // as IDENTIFY has it
        copyText(disk.model, "NORDWIND NW1000 with all its words");
        copyText(disk.serial, (std::string("NW-") + disk.name).c_str());
    }
    ASSERT_TRUE(nameAskedDisks(disks));
    EXPECT_STREQ(disks[0].id, "serial.ATA_NORDWIND_NW1000.NW-1");
    EXPECT_STREQ(disks[1].id, "serial.ATA_NORDWIND_NW1000_with_all_its_words.NW-sdb");
    EXPECT_STREQ(disks[2].id, "serial.ATA_NORDWIND_NW1000_with_all_its_words.NW-sdc");
}

TEST(WorldWideName, PlaceholdersAreNone)
{
    EXPECT_TRUE(isWorldWideName("naa.5000c500a1b2c3d4"));
    EXPECT_TRUE(isWorldWideName("eui.0025385b71b00001"));
    EXPECT_TRUE(isWorldWideName("uuid.5ab1a4e1-1f0b-4c3e-8e69-5e8cf1d2c001"));
    EXPECT_FALSE(isWorldWideName("naa.5000000000000000"));
    EXPECT_FALSE(isWorldWideName("eui.0000000000000000"));
    EXPECT_FALSE(isWorldWideName("naa.ffffffffffffffff"));
    EXPECT_FALSE(isWorldWideName("uuid.00000000-0000-0000-0000-000000000000"));
    EXPECT_FALSE(isWorldWideName("naa.5000"));
    EXPECT_FALSE(isWorldWideName("nvme.1b36-73657231-51454d55-00000001"));
    EXPECT_FALSE(isWorldWideName(""));
}

TEST(NameDisks, TwoPathsOfOneNameAreOneDisk)
{
    std::vector<uint32_t> paths;
    EXPECT_EQ(idsOf({withName("sda", "naa.5000c500a1b2c3d4"), withName("sdb", "naa.5000c500a1b2c3d5"),
                     withName("sdc", "naa.5000c500a1b2c3d4")},
                    &paths),
              (Ids{"naa.5000c500a1b2c3d4", "naa.5000c500a1b2c3d5"}));
    EXPECT_EQ(paths, (std::vector<uint32_t>{2, 1}));
}

TEST(NameDisks, EqualNamesWithOtherSerialNumbersAreTwoDisks)
{
    Disk one = withName("sda", "naa.5000c500a1b2c3d4");
    Disk other = withName("sdb", "naa.5000c500a1b2c3d4");
    copyText(one.serial, "A");
    copyText(other.serial, "B");
    EXPECT_EQ(idsOf({one, other}),
              (Ids{"naa.5000c500a1b2c3d4@0000:00:1f.2.0:0:0:sda", "naa.5000c500a1b2c3d4@0000:00:1f.2.0:0:0:sdb"}));
}

TEST(NameDisks, EqualSerialNumbersStayTwoDisksThatCanBeToldApart)
{
    EXPECT_EQ(idsOf({withSerial("sda", "123456789"), withSerial("sdb", "123456789")}),
              (Ids{"serial.ATA_NORDWIND_NW1000.123456789@0000:00:1f.2.0:0:0:sda",
                   "serial.ATA_NORDWIND_NW1000.123456789@0000:00:1f.2.0:0:0:sdb"}));
}

TEST(NameDisks, HiddenPathGivesItsPlaceToTheNodeThatIsAsked)
{
    Disk path = withSerial("nvme0c0n1", "S1");
    path.protocol = Protocol::nvme;
    path.nvmeNamespace.set(1);
    path.hidden = true;
    copyText(path.address, "0000:01:00.0");
    Disk head{};
    head.protocol = Protocol::nvme;
    head.nvmeNamespace.set(1);
    copyText(head.name, "nvme0n1");
    copyText(head.paths[0], "nvme0n1");
    head.pathCount = 1;
    copyText(head.vendor, "ATA");
    copyText(head.model, "NORDWIND NW1000");
    copyText(head.serial, "S1");
    Array<Disk> disks;
    *disks.append() = path;
    *disks.append() = head;
    ASSERT_TRUE(nameDisks(disks));
    ASSERT_EQ(disks.count(), 1);
    EXPECT_STREQ(disks[0].name, "nvme0n1");
    EXPECT_STREQ(disks[0].address, "0000:01:00.0");
    EXPECT_FALSE(disks[0].hidden);
    EXPECT_EQ(disks[0].pathCount, 2U);
    EXPECT_STREQ(disks[0].paths[0], "nvme0n1");
    EXPECT_STREQ(disks[0].paths[1], "nvme0c0n1");
}

TEST(NameDisks, TwoNamespacesOfOneControllerAreTwoDisks)
{
    Disk one = withSerial("nvme0n1", "S1");
    Disk two = withSerial("nvme0n2", "S1");
    one.protocol = two.protocol = Protocol::nvme;
    one.nvmeNamespace.set(1);
    two.nvmeNamespace.set(2);
    EXPECT_EQ(idsOf({one, two}), (Ids{"serial.ATA_NORDWIND_NW1000.S1.1", "serial.ATA_NORDWIND_NW1000.S1.2"}));
}

TEST(NameDisks, AnEmptyListIsFine)
{
    EXPECT_EQ(idsOf({}), Ids{});
}

// ---- VPD page 83h ----

using Page = std::vector<uint8_t>;

Page designator(uint8_t association, uint8_t type, Page bytes)
{
    Page all{1, static_cast<uint8_t>(association << 4 | type), 0, static_cast<uint8_t>(bytes.size())};
    all.insert(all.end(), bytes.begin(), bytes.end());
    return all;
}

Page page(std::vector<Page> designators)
{
    Page all{0, 0x83, 0, 0};
    for (const Page &one : designators) {
        all.insert(all.end(), one.begin(), one.end());
    }
    all[2] = static_cast<uint8_t>((all.size() - 4) >> 8);
    all[3] = static_cast<uint8_t>(all.size() - 4);
    return all;
}

std::string bestOf(const Page &bytes)
{
    char name[kNameOfDesignator];
    const bool found = designatorOf(bytes, name);
    EXPECT_EQ(found, name[0] != 0);
    return name;
}

const Page kNaa5{0x50, 0x00, 0xC5, 0x00, 0xA1, 0xB2, 0xC3, 0xD4};
const Page kNaa6{0x60, 0x01, 0x40, 0x55, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12};
const Page kEui64{0x00, 0x25, 0x38, 0x5B, 0x71, 0xB0, 0x00, 0x01};

TEST(Designator, NaaBeforeEui)
{
    EXPECT_EQ(bestOf(page({designator(0, 2, kEui64), designator(0, 3, kNaa5)})), "naa.5000c500a1b2c3d4");
    EXPECT_EQ(bestOf(page({designator(0, 3, kNaa5), designator(0, 3, kNaa6)})), "naa.600140550102030405060708090a0b0c");
    EXPECT_EQ(bestOf(page({designator(0, 2, kEui64)})), "eui.0025385b71b00001");
}

TEST(Designator, OfATargetPortIsNotTheDisk)
{
    EXPECT_EQ(bestOf(page({designator(1, 3, kNaa5)})), "");
}

TEST(Designator, LocallyAssignedOnesDoNotCount)
{
    EXPECT_EQ(bestOf(page({designator(0, 3, {0x30, 1, 2, 3, 4, 5, 6, 7})})), "");
}

TEST(Designator, CutPagesAreReadAsFarAsTheyAreThere)
{
    const Page whole = page({designator(0, 1, {'A', 'T', 'A'}), designator(0, 3, kNaa5)});
    for (size_t length = 0; length < whole.size(); ++length) {
        EXPECT_EQ(bestOf(Page(whole.begin(), whole.begin() + static_cast<long>(length))), "") << length;
    }
    EXPECT_EQ(bestOf(whole), "naa.5000c500a1b2c3d4");
}

TEST(Designator, LengthThatLiesEndsTheWalk)
{
    Page lying = page({designator(0, 3, kNaa5)});
    lying[3] = 0xFF;
    EXPECT_EQ(bestOf(lying), "naa.5000c500a1b2c3d4");
    lying[7] = 0xFF;
    EXPECT_EQ(bestOf(lying), "");
}

} // namespace
