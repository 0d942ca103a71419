// SPDX-License-Identifier: Apache-2.0
#include "collect/scsi/scsi_parse.h"

#include "collect/scsi/scsi_records.h"
#include "support/trace_recorder.h"

#include <gtest/gtest.h>

#include <string>

using namespace tavstrg;

namespace {

constexpr char kHost[] = "Host: scsi3 Channel: 02 Id: 05 Lun: 07\n";
constexpr char kIdentity[] = "  Vendor: QEMU     Model: QEMU HARDDISK    Rev: 2.5+\n";
constexpr char kType[] = "  Type:   Direct-Access                    ANSI  SCSI revision: 05\n";

using Step = ScsiRecordReader::Step;

std::string valueOf(std::string_view line, std::string_view key)
{
    std::string_view value = "untouched";
    return namedValue(line, key, value) ? std::string(value) : "not there";
}

} // namespace

TEST(InterfaceOfRelease, UsesFirstThirdAndFourthCharacter)
{
    const std::pair<const char *, int> cases[] = {
        {"2.4.21", kInterfaceProcfs},
        {"2.4.21-4.EL", kInterfaceProcfs},
        {"2.5.99", kInterfaceProcfs},
        {"2.6.9", kInterfaceSysfs},
        {"2.6.32-754.el6", kInterfaceSysfs},
        {"3.0.101", kInterfaceSysfs},
        {"3.10.0", kInterfaceSysfs},
        {"5.10.262-1-ide", kInterfaceSysfs},
        {"6.1.0-56-amd64", kInterfaceSysfs},
        {"2.2", kInterfaceProcfs},
        {"2.6", kInterfaceSysfs},
        {"2", kInterfaceProcfs},
        {"", kInterfaceProcfs},
        {"x.y.z", kInterfaceProcfs},
    };
    for (const auto &[release, choice] : cases) {
        EXPECT_EQ(interfaceOfRelease(release), choice) << release;
    }
}

TEST(ScsiTypeText, EveryDigitHasItsText)
{
    const char *const texts[] = {
        "Direct-Access", "Sequential-Access", "Printer",        "Proccessor",     "WORM",
        "CD-ROM",        "Scanner",           "Optical Device", "Medium Changer", "Commnunications"};
    for (int type = 0; type < 10; ++type) {
        EXPECT_EQ(scsiTypeText(std::to_string(type)), texts[type]);
    }
}

TEST(ScsiTypeText, ATypeOfMoreThanOneCharacterOrNoDigitIsUnknown)
{
    for (const char *type : {"10", "12", "13", "00", "", "a", "/", ":", " ", "-1"}) {
        EXPECT_EQ(scsiTypeText(type), "Unknown") << type;
    }
}

TEST(ParseScsiAddress, ReadsFourNumbers)
{
    ScsiAddress address = {};
    ASSERT_TRUE(parseScsiAddress("13:2:7:255", address));
    EXPECT_EQ(address.host, 13);
    EXPECT_EQ(address.channel, 2);
    EXPECT_EQ(address.id, 7);
    EXPECT_EQ(address.lun, 255);
}

TEST(ParseScsiAddress, RefusesNamesOfHostsTargetsAndOthers)
{
    ScsiAddress address = {};
    for (const char *name : {".", "..", "", "host0", "target0:0:0", "0:0:0", "0:0:0:", "a:0:0:0", "0-0-0-0"}) {
        EXPECT_FALSE(parseScsiAddress(name, address)) << name;
    }
}

TEST(ParseScsiAddress, KeepsTheLowHalfOfALunOfSeveralLevels)
{
    ScsiAddress address = {};
    ASSERT_TRUE(parseScsiAddress("0:0:0:4611404543450677249", address));
    EXPECT_EQ(address.lun, 1);
}

TEST(ParseHostName, ReadsTheNumberOfAHostAdapter)
{
    int32_t host = -1;
    ASSERT_TRUE(parseHostName("host12", host));
    EXPECT_EQ(host, 12);
    for (const char *name : {".", "host", "hostx", "12", "host-1", "host99999999999"}) {
        EXPECT_FALSE(parseHostName(name, host)) << name;
    }
}

TEST(ParseHostNumber, ReadsDigitsAlone)
{
    int32_t host = -1;
    ASSERT_TRUE(parseHostNumber("11", host));
    EXPECT_EQ(host, 11);
    for (const char *name : {".", "..", "", "1a", "a1", "-1", " 1", "99999999999"}) {
        EXPECT_FALSE(parseHostNumber(name, host)) << name;
    }
}

TEST(IsNeverHostAdapter, ComparesTheSixNamesAsPrefixes)
{
    for (const char *name : {"scsi", "scsi_debug", "iscsi", "iscsi_tcp", "sg", "sgx", "usb", "usb-storage", "ovfx2",
                             "ovfx2x", "hub", "hubble"}) {
        EXPECT_TRUE(isNeverHostAdapter(name)) << name;
    }
    for (const char *name : {"", "s", "scs", "iscs", "us", "ovfx", "hu", "ahci", "megaraid_sas", "xscsi", "Sg"}) {
        EXPECT_FALSE(isNeverHostAdapter(name)) << name;
    }
}

TEST(IsUsbDriver, ComparesThreeNamesAsPrefixes)
{
    for (const char *name : {"usb", "usb-storage", "ovfx2", "hub"}) {
        EXPECT_TRUE(isUsbDriver(name)) << name;
    }
    for (const char *name : {"", "uas", "(null)", "scsi", "iscsi", "sg", "xusb"}) {
        EXPECT_FALSE(isUsbDriver(name)) << name;
    }
}

TEST(NamedValue, EndsBeforeTheNextKey)
{
    EXPECT_EQ(valueOf(kIdentity, "Vendor"), "QEMU");
    EXPECT_EQ(valueOf(kIdentity, "Model"), "QEMU HARDDISK");
}

TEST(NamedValue, TheLastValueEndsAtTheNewlineOrTheText)
{
    EXPECT_EQ(valueOf(kIdentity, "Rev"), "2.5+");
    EXPECT_EQ(valueOf("  Vendor: A Rev: 2   \n", "Rev"), "2   ");
    EXPECT_EQ(valueOf("Rev:\t2.5", "Rev"), "2.5");
}

TEST(NamedValue, TheTypeRunsUpToTheWordBeforeTheNextColon)
{
    EXPECT_EQ(valueOf(kType, "Type"), "Direct-Access                    ANSI  SCSI");
    EXPECT_EQ(valueOf(kType, "revision"), "05");
}

TEST(NamedValue, AKeyIsTheBeginningOfAWord)
{
    EXPECT_EQ(valueOf("Vendors: X Y: z", "Vendor"), "X");
    EXPECT_EQ(valueOf("MyVendor: X", "Vendor"), "not there");
}

TEST(NamedValue, AValueThatLooksLikeAKeyIsPassedOverToTheColon)
{
    EXPECT_EQ(valueOf("  Vendor: ModelCo  Model: Revo 1  Rev: 3", "Model"), "Revo 1");
    EXPECT_EQ(valueOf("  Vendor: ModelCo  Model: Revo 1  Rev: 3", "Rev"), "3");
}

TEST(NamedValue, AnEmptyValueIsEmpty)
{
    EXPECT_EQ(valueOf("  Vendor:          Model: X  Rev: 1", "Vendor"), "");
    EXPECT_EQ(valueOf("  Vendor: A Model: B Rev:", "Rev"), "");
    EXPECT_EQ(valueOf("  Vendor: A Model: B Rev:   \n", "Rev"), "");
    EXPECT_EQ(valueOf("Vendor: : B", "Vendor"), "");
}

TEST(NamedValue, IsNotThereWithoutKeyOrColon)
{
    EXPECT_EQ(valueOf(kIdentity, "Serial"), "not there");
    EXPECT_EQ(valueOf("Vendor QEMU", "Vendor"), "not there");
    EXPECT_EQ(valueOf("", "Vendor"), "not there");
    EXPECT_EQ(valueOf(" : : ", "Vendor"), "not there");
    EXPECT_EQ(valueOf(kIdentity, ""), "not there");
}

TEST(FindName, GivesTheValueAndTracesIt)
{
    TraceRecorder trace;
    char value[64];
    ASSERT_EQ(FindName(kIdentity, "Model", value), 0);
    EXPECT_STREQ(value, "QEMU HARDDISK");
    EXPECT_EQ(trace.textsOf("FindName"), (std::vector<std::string>{"_IN_", "_OUT_ (0) result=[QEMU HARDDISK]"}));
}

TEST(FindName, AValueHasAtMost63Characters)
{
    char value[64];
    ASSERT_EQ(FindName(("Model: " + std::string(70, 'm')).c_str(), "Model", value), 0);
    EXPECT_STREQ(value, std::string(63, 'm').c_str());
}

TEST(FindName, LeavesTheOutputAloneWhenTheKeyIsNotThere)
{
    char value[64] = "before";
    EXPECT_EQ(FindName(kIdentity, "Serial", value), -1);
    EXPECT_STREQ(value, "before");
}

TEST(FindName, NullArgumentsAreFailures)
{
    TraceRecorder trace;
    char value[64];
    EXPECT_EQ(FindName(nullptr, "Model", value), -1);
    EXPECT_EQ(FindName(kIdentity, nullptr, value), -1);
    EXPECT_EQ(FindName(kIdentity, "Model", nullptr), -1);
    EXPECT_TRUE(trace.has(3, "_OUT_ param(line) Failure!!", "FindName"));
    EXPECT_TRUE(trace.has(3, "_OUT_ param(key) Failure!!", "FindName"));
    EXPECT_TRUE(trace.has(3, "_OUT_ param(out) Failure!!", "FindName"));
}

TEST(ScsiRecordReader, ThreeLinesMakeARecord)
{
    ScsiRecordReader reader;
    EXPECT_EQ(reader.take("Attached devices:\n"), Step::more);
    EXPECT_FALSE(reader.insideRecord());
    EXPECT_EQ(reader.take(kHost), Step::more);
    EXPECT_TRUE(reader.insideRecord());
    EXPECT_EQ(reader.take(kIdentity), Step::more);
    EXPECT_TRUE(reader.insideRecord());
    ASSERT_EQ(reader.take(kType), Step::complete);
    EXPECT_FALSE(reader.insideRecord());
    const SCSIDeviceInfo &record = reader.record();
    EXPECT_EQ(record.host, 3);
    EXPECT_EQ(record.channel, 2);
    EXPECT_EQ(record.id, 5);
    EXPECT_EQ(record.lun, 7);
    EXPECT_STREQ(record.vendor, "QEMU");
    EXPECT_STREQ(record.model, "QEMU HARDDISK");
    EXPECT_STREQ(record.scsiRev, "2.5+");
    EXPECT_STREQ(record.type, "Direct-Access                    ANSI  SCSI");
    EXPECT_STREQ(record.ansiRev, "05");
}

TEST(ScsiRecordReader, NothingOfARecordIsLeftInTheNext)
{
    ScsiRecordReader reader;
    for (const char *line : {kHost, kIdentity, kType, kHost, "no key here\n"}) {
        reader.take(line);
    }
    ASSERT_EQ(reader.take("nor here\n"), Step::complete);
    EXPECT_STREQ(reader.record().vendor, "");
    EXPECT_STREQ(reader.record().ansiRev, "");
}

TEST(ScsiRecordReader, NoneAttachedIsTheEnd)
{
    ScsiRecordReader reader;
    EXPECT_EQ(reader.take("Attached devices: none\n"), Step::end);
}

TEST(ScsiRecordReader, AHostLineCountsOnlyWhole)
{
    for (const char *line : {"Host: scsi Channel: 00 Id: 00 Lun: 00\n", "Host: sc1 Channel: 00 Id: 00 Lun: 00\n",
                             "Host: scsi0 Channel: 00 Id: 00 Lun:\n", "Host: scsi0 Channel: 00 Id: 00\n", "Host:\n",
                             "Host\n", "host: scsi0 Channel: 00 Id: 00 Lun: 00\n",
                             "Host: scsi0 Channel: x Id: 00 Lun: 00\n", "Host: scsix Channel: 00 Id: 00 Lun: 00\n"}) {
        ScsiRecordReader reader;
        EXPECT_EQ(reader.take(line), Step::more) << line;
        EXPECT_FALSE(reader.insideRecord()) << line;
    }
}

TEST(ScsiRecordReader, TheLabelsOfAHostLineAreAnyWords)
{
    ScsiRecordReader reader;
    reader.take("TheHost ada_12 c 1 i 2 l 3 and more");
    EXPECT_TRUE(reader.insideRecord());
    reader.take("");
    reader.take("");
    EXPECT_EQ(reader.record().host, 12);
    EXPECT_EQ(reader.record().lun, 3);
}

TEST(ScsiRecordReader, BinaryLinesAndHugeOnesAreHarmless)
{
    ScsiRecordReader reader;
    const std::string binary("\0Host\xff:\x01", 8);
    EXPECT_EQ(reader.take(binary), Step::more);
    reader.take(kHost);
    EXPECT_EQ(reader.take("Vendor: " + std::string(100000, 'v')), Step::more);
    EXPECT_EQ(reader.take(binary), Step::complete);
    EXPECT_STREQ(reader.record().vendor, std::string(63, 'v').c_str());
}
