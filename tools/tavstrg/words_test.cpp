// SPDX-License-Identifier: Apache-2.0
#include "tavstrg/words.h"

#include <gtest/gtest.h>

#include <ostream>
#include <set>

namespace {

using namespace tool;

struct CapacityCase {
    uint32_t mebibytes;
    const char *words;
};

void PrintTo(const CapacityCase &size, std::ostream *out)
{
    *out << size.mebibytes << " MiB";
}

class CapacityWords : public testing::TestWithParam<CapacityCase> {};

TEST_P(CapacityWords, AreTheLargestFittingUnitToOneDecimalPlace)
{
    EXPECT_EQ(capacityWords(GetParam().mebibytes), GetParam().words);
}

INSTANTIATE_TEST_SUITE_P(Sizes, CapacityWords,
                         testing::Values(CapacityCase{0, "0 MiB"}, CapacityCase{1, "1 MiB"},
                                         CapacityCase{1023, "1023 MiB"}, CapacityCase{1024, "1.0 GiB"},
                                         CapacityCase{1536, "1.5 GiB"}, CapacityCase{953869, "931.5 GiB"},
                                         CapacityCase{1048524, "1023.9 GiB"},
                                         CapacityCase{1048525, "1.0 TiB"}, // 1023.95 GiB would round to 1024.0 GiB
                                         CapacityCase{1048576, "1.0 TiB"}, CapacityCase{3815447, "3.6 TiB"},
                                         CapacityCase{0xFFFFFFFF, "4.0 PiB"}));

TEST(DeviceTypeWords, ScsiAndIdeCodesAreNotTheSame)
{
    EXPECT_EQ(deviceTypeWords(kScsi, 0), "hard disk");
    EXPECT_EQ(deviceTypeWords(kScsi, 1), "CD-ROM drive");
    EXPECT_EQ(deviceTypeWords(kScsi, 2), "tape drive");
    EXPECT_EQ(deviceTypeWords(kScsi, 3), "optical memory");
    EXPECT_EQ(deviceTypeWords(kScsi, 4), "other device");
    EXPECT_EQ(deviceTypeWords(kIde, 2), "hard disk");
    EXPECT_EQ(deviceTypeWords(kIde, 3), "CD-ROM drive");
    EXPECT_EQ(deviceTypeWords(kIde, 1), "other device");
    EXPECT_EQ(deviceTypeWords(kIde, 0), "device of unknown type (0)");
    EXPECT_EQ(deviceTypeWords(kScsi, 5), "device of unknown type (5)");
}

TEST(SmartWords, DifferForEachState)
{
    EXPECT_EQ(smartWords(Smart::good), "good");
    EXPECT_EQ(smartWords(Smart::failing), "FAILURE PREDICTED");
    EXPECT_EQ(smartWords(Smart::notReadable), "not readable");
    EXPECT_EQ(smartWords(Smart::notAsked), "not asked");
    EXPECT_EQ(smartWords(Smart::notSupported), "not supported");
    EXPECT_EQ(smartWords(Smart::unconfirmed), "no failure reported");
    std::set<std::string> names;
    std::set<std::string> labels;
    for (const Smart state : allSmartStates()) {
        names.insert(smartName(state));
        labels.insert(smartLabel(state));
    }
    EXPECT_EQ(names.size(), allSmartStates().size());
    EXPECT_EQ(labels.size(), allSmartStates().size());
}

TEST(SaysSomething, NotOfPlaceholders)
{
    for (const char *text : {"", "   ", "Unknown", "Not Supported", " Unknown  "}) {
        EXPECT_FALSE(saysSomething(text)) << text;
    }
    EXPECT_TRUE(saysSomething("Unknown 9"));
}

TEST(LifeSpanWords, NameTheLevelAndWhatItMeans)
{
    EXPECT_EQ(lifeSpanWords(1), "level 1 of 5, least endurance left");
    EXPECT_EQ(lifeSpanWords(2), "level 2 of 5, little endurance left");
    EXPECT_EQ(lifeSpanWords(3), "level 3 of 5, medium endurance left");
    EXPECT_EQ(lifeSpanWords(4), "level 4 of 5, much endurance left");
    EXPECT_EQ(lifeSpanWords(5), "level 5 of 5, most endurance left");
    EXPECT_EQ(lifeSpanWords(-1), "not read");
    EXPECT_EQ(lifeSpanWords(0), "no level");
    EXPECT_EQ(lifeSpanWords(6), "unknown level (6)");
}

TEST(DrivePositionWords, AreThoseOfTheAlert)
{
    EXPECT_EQ(drivePositionWords(2), "master");
    EXPECT_EQ(drivePositionWords(3), "slave");
    EXPECT_EQ(drivePositionWords(1), "position unknown");
    EXPECT_EQ(drivePositionWords(9), "unknown position (9)");
}

TEST(InterfaceWords, AreScsiIdeAndUnknown)
{
    EXPECT_EQ(interfaceWords(0), "SCSI");
    EXPECT_EQ(interfaceWords(1), "IDE");
    EXPECT_EQ(interfaceWords(-1), "unknown interface");
    EXPECT_EQ(interfaceWords(4), "unknown interface (4)");
}

TEST(Counted, OneIsSingular)
{
    EXPECT_EQ(counted(0, "device"), "0 devices");
    EXPECT_EQ(counted(1, "device"), "1 device");
    EXPECT_EQ(counted(2, "device"), "2 devices");
}

TEST(Printable, TrimsAndEscapesAllButPrintableAscii)
{
    EXPECT_EQ(printable("  ATA     "), "ATA");
    EXPECT_EQ(printable("   "), "");
    EXPECT_EQ(printable("two words"), "two words");
    EXPECT_EQ(printable("S1AB  \x03"), "S1AB  \\x03");
    EXPECT_EQ(printable("\x1b[2Jgone"), "\\x1b[2Jgone");
    EXPECT_EQ(printable("a\nb"), "a\\x0ab");
    EXPECT_EQ(printable("\xe4"), "\\xe4");
    EXPECT_EQ(printable("\x7f"), "\\x7f");
    EXPECT_EQ(printable("\xc2\x9b"), "\\xc2\\x9b") << "CSI as one character";
    EXPECT_EQ(printable("\xe2\x80\xae"), "\\xe2\\x80\\xae") << "right-to-left override";
}

} // namespace
