// SPDX-License-Identifier: Apache-2.0
#include "devcmd/transport/transport.h"
#include "runtime/field_text.h"
#include "support/ioctl_double.h"
#include "support/trace_recorder.h"

#include <cerrno>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

using namespace tavstrg;

namespace {

using testing::ElementsAre;

HardDiskEntry entryOf(const char *path)
{
    HardDiskEntry disk{};
    copyText(disk.DevPath, path);
    disk.SmartSupport = 1;
    return disk;
}

// Standard INQUIRY data of an emulated AHCI disk, as far as a test wants them.
std::vector<uint8_t> inquiryOf(const std::string &vendor)
{
    std::vector<uint8_t> data = bytesOf("00 00 05 02 5b 00 00 02");
    data.insert(data.end(), vendor.begin(), vendor.end());
    return data;
}

TEST(FetchSataType, ADiskOfVendorAtaThatAnswersIdentifyIsSata)
{
    const NodeFile node;
    HardDiskEntry disk = entryOf(node.path());
    const int before = openDescriptors();
    const TraceRecorder traces;
    ScsiDouble device({SgReply{.data = inquiryOf("ATA     DISKMODEL-100GB A100")}, SgReply{}});
    fetch_sata_type(&disk);
    EXPECT_EQ(disk.DevKind, kDevKindSata);
    ASSERT_EQ(device.sent.size(), 2U);
    EXPECT_THAT(device.sent[0].cdb, ElementsAre(0x12, 0, 0, 0, 0x40, 0));
    EXPECT_EQ(device.sent[0].header.dxfer_direction, -3);
    EXPECT_EQ(device.sent[0].header.dxfer_len, 64U);
    EXPECT_EQ(device.sent[0].header.mx_sb_len, 32);
    EXPECT_NE(device.sent[0].header.sbp, nullptr);
    EXPECT_EQ(device.sent[0].header.timeout, 6000U);
    EXPECT_EQ(device.sent[1].cdb.at(0), 0x85);
    EXPECT_EQ(device.sent[1].cdb.at(14), 0xEC);
    const std::string path = node.path();
    EXPECT_THAT(traces.textsOf("fetch_sata_type"),
                ElementsAre("_IN_", "manufacturer [ATA     ]", "[" + path + "] is SATA.", "_OUT_"));
    EXPECT_EQ(openDescriptors(), before);
    EXPECT_THAT(device.modes(), ElementsAre(O_RDWR, O_RDWR));
}

TEST(FetchSataType, ADiskOfVendorAtaThatFailsTheIdentifyStaysScsi)
{
    const NodeFile node;
    for (const SgReply &failure : {SgReply{.error = EIO}, SgReply{.hostStatus = 3}, SgReply{.driverStatus = 7}}) {
        HardDiskEntry disk = entryOf(node.path());
        ScsiDouble device({SgReply{.data = inquiryOf("ATA     DISK")}, failure});
        fetch_sata_type(&disk);
        EXPECT_EQ(disk.DevKind, kDevKindScsi);
        EXPECT_EQ(device.sent.size(), 2U);
    }
}

TEST(FetchSataType, RejectingTheIdentifyCountsAsAnswering)
{
    const NodeFile node;
    HardDiskEntry disk = entryOf(node.path());
    ScsiDouble device({SgReply{.data = inquiryOf("ATA     FAKEATADISK")},
                       SgReply{.status = 2,
                               .driverStatus = 8,
                               .sense = bytesOf("70 00 05 00 00 00 00 0a 00 00 00 00 20 00 00 00 00 00")}});
    fetch_sata_type(&disk);
    EXPECT_EQ(disk.DevKind, kDevKindSata);
}

TEST(FetchSataType, OtherVendorsAreNotAskedToIdentify)
{
    const NodeFile node;
    for (const std::string vendor : {"QLM     ", "ATA", "ATA    x", "ata     ", " ATA    ", "ATAPI   ", ""}) {
        SCOPED_TRACE(vendor);
        HardDiskEntry disk = entryOf(node.path());
        const TraceRecorder traces;
        ScsiDouble device({SgReply{.data = inquiryOf(vendor)}});
        fetch_sata_type(&disk);
        EXPECT_EQ(disk.DevKind, kDevKindScsi);
        EXPECT_EQ(device.sent.size(), 1U);
        EXPECT_TRUE(traces.has(0, "manufacturer [" + vendor + "]", "fetch_sata_type"));
    }
}

TEST(FetchSataType, ShortAndBinaryInquiryRepliesAreNoAtaDisks)
{
    const NodeFile node;
    const std::vector<uint8_t> replies[] = {{}, {0}, std::vector<uint8_t>(9, 'A'), std::vector<uint8_t>(64, 0xFF)};
    for (const auto &reply : replies) {
        HardDiskEntry disk = entryOf(node.path());
        ScsiDouble device({SgReply{.data = reply}});
        fetch_sata_type(&disk);
        EXPECT_EQ(disk.DevKind, kDevKindScsi);
    }
}

TEST(FetchSataType, AKindThatWasSetStaysWhereNothingIsFound)
{
    const NodeFile node;
    HardDiskEntry disk = entryOf(node.path());
    disk.DevKind = kDevKindAta;
    ScsiDouble device({SgReply{.data = inquiryOf("QLM     ")}});
    fetch_sata_type(&disk);
    EXPECT_EQ(disk.DevKind, kDevKindAta);
}

TEST(FetchSataType, AFailedInquiryIsTraced)
{
    const NodeFile node;
    for (const SgReply &failure : {SgReply{.error = ENOTTY}, SgReply{.hostStatus = 1}}) {
        HardDiskEntry disk = entryOf(node.path());
        const int before = openDescriptors();
        const TraceRecorder traces;
        ScsiDouble device({failure});
        fetch_sata_type(&disk);
        EXPECT_EQ(disk.DevKind, kDevKindScsi);
        EXPECT_EQ(device.sent.size(), 1U);
        EXPECT_TRUE(traces.has(3, std::string("ioctl error failed. [") + node.path() + "]", "fetch_sata_type"));
        EXPECT_EQ(traces.texts().back(), "_OUT_");
        EXPECT_EQ(openDescriptors(), before);
    }
}

TEST(FetchSataType, ANodeThatCannotBeOpenedIsTraced)
{
    for (const char *path : {"", "/nonexistent/sda", "/proc/self"}) {
        HardDiskEntry disk = entryOf(path);
        const TraceRecorder traces;
        ScsiDouble device({SgReply{}});
        fetch_sata_type(&disk);
        EXPECT_TRUE(traces.has(3, std::string("open device failed. [") + path + "]", "fetch_sata_type"));
        EXPECT_EQ(traces.texts().back(), "_OUT_");
        EXPECT_TRUE(device.sent.empty());
    }
}

TEST(FetchSataType, ANullEntryIsTraced)
{
    const TraceRecorder traces;
    fetch_sata_type(nullptr);
    EXPECT_THAT(traces.texts(), ElementsAre("_IN_", "_OUT_ hdt is NULL"));
    EXPECT_EQ(traces.records().back().level, 3);
}

} // namespace
