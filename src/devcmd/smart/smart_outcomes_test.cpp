// SPDX-License-Identifier: Apache-2.0
// What one call of the SMART watch comes to, over disks of every kind.
#include "support/smart_fixture.h"

#include <cstring>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

using namespace tavstrg;

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

// ---- what is on the wire ----

// SCSI commands are listed without the ioctl that carries them.
const std::string kSense6 = "1a 00 1c 00 ff 00";
const std::string kSense10 = "5a 00 1c 00 00 00 00 00 ff 00";
const std::string kSelect6 = "15 10 00 00 18 00";
const std::string kSelectSaved = "15 11 00 00 18 00";
const std::string kSelect10 = "55 10 00 00 00 00 00 00 14 00";
const std::string kLogPages = "4d 00 40 00 00 00 00 00 fc 00";
const std::string kLogExceptions = "4d 00 6f 00 00 00 00 00 fc 00";
const std::string kRequest = "03 00 00 00 ff 00";

const Lines kState{kSense6, kSense6}; // the form of the command is chosen each time
const Lines kOn{kSense6, kSense6, kSelect6, kSense6};
const Lines kOff{kSense6, kSense6, kSelect6};
const Lines kNoAnswer{kSense6, kSense10, kSense6};
const Lines kLog{kLogPages, kLogExceptions};
const Lines kLogAndRequest{kLogPages, kLogExceptions, kRequest};

Lines all(const std::vector<Lines> &parts)
{
    Lines lines;
    for (const Lines &part : parts) {
        lines.insert(lines.end(), part.begin(), part.end());
    }
    return lines;
}

const Lines kAtaChecked{kReadData, kIdentify};
const Lines kAtaPacketChecked{kReadData, kIdentify, kPacket};
const Lines kAtaPacketCheckedAndOff{kReadData, kIdentify, kPacket, kIdeOff};
const Lines kIdeEnabled{kReadData, kIdentify, kIdeOn};
const Lines kIdeRead{kReadData, kIdentify, kIdeOn, kIdeStatus};
const Lines kIdeReadAndOff{kReadData, kIdentify, kIdeOn, kIdeStatus, kIdeOff};
const Lines kSataEnabled{kReadData, kIdentify, kSataOn};
const Lines kSataEnabledAndOff{kReadData, kIdentify, kSataOn, kSataOff};
const Lines kSataRead{kReadData, kIdentify, kSataOn, kSataStatus};
const Lines kSataReadAndOff{kReadData, kIdentify, kSataOn, kSataStatus, kSataOff};
const Lines kTenByteCycle{kSense6,   kSense10,       kSense10,                      //
                          kSense6,   kSense10,       kSense10, kSelect10, kSense10, //
                          kLogPages, kLogExceptions, kRequest,                      //
                          kSense6,   kSense10,       kSense10, kSelect10};
const Lines kOnSaved{kSense6, kSense6, kSelectSaved, kSense6};
const Lines kOffSaved{kSense6, kSense6, kSelectSaved};

// ---- outcomes of one call on a fresh entry ----

enum class Way { sg, older };

struct Outcome {
    const char *name;
    uint16_t kind;
    Way way;
    const char *fields; // of the disk
    uint64_t support;
    int16_t predict;
    uint64_t state;
    Lines sent;
    bool before, after; // SMART is switched on
};

constexpr uint16_t kScsi = kDevKindScsi;
constexpr uint16_t kIde = kDevKindAta;
constexpr uint16_t kSata = kDevKindSata;

const Outcome kScsiOutcomes[] = {
    {"OnAndHealthy", kScsi, Way::sg, "", 2, 0, 2, all({kState, kOn, kLogAndRequest}), true, true},
    {"OnAndPredicting", kScsi, Way::sg, R"("exceptions": {"predicting": true})", 2, 1, 2, all({kState, kOn, kLog}),
     true, true},
    {"OnAndPredictingWithoutLog", kScsi, Way::sg, R"("exceptions": {"predicting": true, "logPage": false})", 2, 1, 2,
     all({kState, kOn, {kLogPages, kRequest}}), true, true},
    {"OnAndPredictingInDescriptorSense", kScsi, Way::sg,
     R"("exceptions": {"predicting": true, "logPage": false}, "descriptorSense": true)", 2, 1, 2,
     all({kState, kOn, {kLogPages, kRequest}}), true, true},
    {"OffAndHealthy", kScsi, Way::sg, R"("exceptions": {"dexcpt": true})", 2, 0, 3,
     all({kState, kOn, kLogAndRequest, kOff}), false, false},
    // predicting although it was off: SMART was on during the request
    {"OffAndPredicting", kScsi, Way::sg, R"("exceptions": {"dexcpt": true, "predicting": true})", 2, 1, 3,
     all({kState, kOn, kLog, kOff}), false, false},
    {"OffAndSavable", kScsi, Way::sg, R"("exceptions": {"dexcpt": true, "savable": true})", 2, 0, 3,
     all({kState, kOnSaved, kLogAndRequest, kOffSaved}), false, false},
    // through SG_IO a refusal looks like an empty reply: support unknown, no further command
    {"WithoutThePage", kScsi, Way::sg, R"("exceptions": {"supported": false})", 1, 0, 0, all({kState, kState}), false,
     false},
    {"OnAndKeepingItsMethod", kScsi, Way::sg, R"("exceptions": {"fixedMrie": 4})", 1, 0, 2, all({kState, kOn}), true,
     true},
    {"OffAndKeepingItsMethod", kScsi, Way::sg, R"("exceptions": {"fixedMrie": 4, "dexcpt": true})", 1, 0, 3,
     all({kState, kOn, kOff}), false, false},
    {"OffAndRefusingTheSelect", kScsi, Way::sg, R"("exceptions": {"canSelect": false, "dexcpt": true})", 1, 0, 3,
     all({kState, kOn, kOff}), false, false},
    {"OffAndLosingTheSelect", kScsi, Way::sg,
     R"("exceptions": {"dexcpt": true}, "faults": [{"on": "modeSelect", "nth": 1, "hostStatus": 3}])", 1, 0, 3,
     all({kState, kOff, kOff}), false, false},
    {"OffAndLosingTheSenseAfterTheSelect", kScsi, Way::sg,
     R"("exceptions": {"dexcpt": true}, "faults": [{"on": "modeSense", "nth": 5, "errno": "EIO"}])", 1, 0, 3,
     all({kState, kOn, kOff}), false, false},
    {"OffWithAUnitAttention", kScsi, Way::sg, R"("exceptions": {"dexcpt": true, "unitAttention": true})", 1, 0, 3,
     all({kState, kOn, kOff}), false, false},
    {"OffAndStatusUnreadable", kScsi, Way::sg,
     R"("exceptions": {"dexcpt": true}, "faults": [{"on": "requestSense", "hostStatus": 7}])", 1, 0, 3,
     all({kState, kOn, kLogAndRequest, kOff}), false, false},
    {"OffAndLogUnreadable", kScsi, Way::sg,
     R"("exceptions": {"dexcpt": true}, "faults": [{"on": "logSense", "nth": 2, "sense": "70 00 03 00"}])", 1, 0, 3,
     all({kState, kOn, kLog, kOff}), false, false},
    {"Silent", kScsi, Way::sg, R"("faults": [{"on": "any", "hostStatus": 3}])", 1, 0, 0, all({kNoAnswer, kNoAnswer}),
     true, true},
    {"NotToBeOpened", kScsi, Way::sg, R"("openError": "EBUSY")", 1, 0, 0, {}, true, true},
    // the state could not be read: the disk was off and stays on
    {"OffAndLosingTheState", kScsi, Way::sg,
     R"("exceptions": {"dexcpt": true}, "faults": [{"on": "modeSense", "nth": 2, "errno": "EIO"}])", 2, 0, 0,
     all({kState, kOn, kLogAndRequest}), false, true},
    {"OffAndNotSwitchedOffAgain", kScsi, Way::sg,
     R"("exceptions": {"dexcpt": true}, "faults": [{"on": "modeSelect", "nth": 2, "errno": "EIO"}])", 2, 0, 3,
     all({kState, kOn, kLogAndRequest, kOff}), false, true},

    {"OlderWayOnAndHealthy", kScsi, Way::older, "", 2, 0, 2, all({kState, kOn, kLogAndRequest}), true, true},
    {"OlderWayOffAndPredicting", kScsi, Way::older, R"("exceptions": {"dexcpt": true, "predicting": true})", 2, 1, 3,
     all({kState, kOn, kLog, kOff}), false, false},
    {"OlderWayTenBytes", kScsi, Way::older,
     R"("exceptions": {"dexcpt": true, "modeSense6": false, "blockDescriptor": false})", 2, 0, 3, kTenByteCycle, false,
     false},
    // its sense data are read as a page that is on
    {"OlderWayWithoutThePage", kScsi, Way::older, R"("exceptions": {"supported": false})", 3, 0, 2,
     all({kNoAnswer, kNoAnswer}), false, false},
    // here they are read as a page that is off; the disk is still not switched off
    {"OlderWayWithoutThePageAndFoundOff", kScsi, Way::older,
     R"("faults": [{"on": "modeSense", "sense": "70 00 05 00 00 00 08 0a 00 00 00 00 24 00 00 00 00 00"}])", 3, 0, 3,
     all({kNoAnswer, kNoAnswer}), true, true},
    {"OlderWayNotReady", kScsi, Way::older,
     R"("faults": [{"on": "modeSense", "nth": 4, "sense": "70 00 02 00 00 00 00 0a 00 00 00 00 04 00 00 00"}])", 1, 0,
     2, all({kState, kState}), true, true},
};

const Outcome kIdeOutcomes[] = {
    {"OnAndHealthy", kIde, Way::sg, "", 2, 0, 2, kIdeRead, true, true},
    {"OnAndPredicting", kIde, Way::sg, R"("smart": {"failing": true})", 2, 1, 2, kIdeRead, true, true},
    {"OffAndHealthy", kIde, Way::sg, R"("smart": {"enabled": false})", 2, 0, 3, kIdeReadAndOff, false, false},
    {"OffAndPredicting", kIde, Way::sg, R"("smart": {"enabled": false, "failing": true})", 2, 1, 3, kIdeReadAndOff,
     false, false},
    {"WithoutSmart", kIde, Way::sg, R"("smart": {"supported": false})", 3, 0, 3, kAtaChecked, false, false},
    {"OnWithoutSmartByItsWords", kIde, Way::sg, R"("identifyWords": {"82": 0, "83": 16384})", 3, 0, 2, kAtaChecked,
     true, true},
    {"PacketWithoutSmart", kIde, Way::sg, R"("identifyBy": "packet", "smart": {"supported": false})", 3, 0, 3,
     kAtaPacketChecked, false, false},
    {"UnknownByItsWords", kIde, Way::sg, R"("identifyWords": {"83": 0})", 2, 0, 2, kIdeRead, true, true},
    {"UnknownByItsWordsAndRefusing", kIde, Way::sg, R"("identifyWords": {"83": 0}, "smart": {"canEnable": false})", 1,
     0, 2, kIdeEnabled, true, true},
    {"OffAndRefusing", kIde, Way::sg, R"("smart": {"canEnable": false, "enabled": false})", 1, 0, 3, kIdeReadAndOff,
     false, false},
    // identified as supported, and it is on
    {"OnAndRefusing", kIde, Way::sg, R"("smart": {"canEnable": false})", 2, 0, 2, kIdeRead, true, true},
    {"OffAndStatusUnreadable", kIde, Way::sg,
     R"("smart": {"enabled": false}, "faults": [{"on": "smartStatus", "errno": "EIO"}])", 1, 0, 3, kIdeReadAndOff,
     false, false},
    {"OffAndNotIdentifying", kIde, Way::sg, R"("identifyBy": "none", "smart": {"enabled": false})", 1, 0, 3,
     kAtaPacketCheckedAndOff, false, false},
    {"Silent", kIde, Way::sg, R"("faults": [{"on": "ata", "errno": "ETIMEDOUT"}])", 1, 0, 3, kAtaPacketCheckedAndOff,
     true, true},
    {"NotToBeOpened", kIde, Way::sg, R"("openError": "EBUSY")", 1, 0, 0, {}, true, true},
    // a failed READ DATA counts as off: the disk, which was on, is switched off
    {"OnAndLosingReadData", kIde, Way::sg, R"("faults": [{"on": "smartData", "errno": "ETIMEDOUT"}])", 2, 0, 3,
     kIdeReadAndOff, true, false},
};

const Outcome kSataOutcomes[] = {
    {"OnAndHealthy", kSata, Way::sg, "", 2, 0, 2, kSataRead, true, true},
    {"OnAndPredicting", kSata, Way::sg, R"("smart": {"failing": true})", 2, 1, 2, kSataRead, true, true},
    {"OffAndHealthy", kSata, Way::sg, R"("smart": {"enabled": false})", 2, 0, 3, kSataReadAndOff, false, false},
    {"OffAndPredicting", kSata, Way::sg, R"("smart": {"enabled": false, "failing": true})", 2, 1, 3, kSataReadAndOff,
     false, false},
    {"WithoutSmart", kSata, Way::sg, R"("smart": {"supported": false})", 3, 0, 3, kAtaChecked, false, false},
    {"PacketWithoutSmart", kSata, Way::sg, R"("identifyBy": "packet", "smart": {"supported": false})", 3, 0, 3,
     kAtaPacketChecked, false, false},
    {"UnknownByItsWords", kSata, Way::sg, R"("identifyWords": {"83": 0})", 1, 0, 2, kSataEnabled, true, true},
    {"OffAndUnknownByItsWords", kSata, Way::sg, R"("identifyWords": {"83": 0}, "smart": {"enabled": false})", 1, 0, 3,
     kSataEnabledAndOff, false, false},
    {"OnAndLosingTheEnable", kSata, Way::sg, R"("faults": [{"on": "smartEnable", "hostStatus": 3}])", 1, 0, 2,
     kSataEnabled, true, true},
    {"OffAndLosingTheEnable", kSata, Way::sg,
     R"("smart": {"enabled": false}, "faults": [{"on": "smartEnable", "hostStatus": 7}])", 1, 0, 3, kSataEnabledAndOff,
     false, false},
    // a refusal without registers counts as success, as for the status
    {"OffAndRefusing", kSata, Way::sg, R"("smart": {"canEnable": false, "enabled": false})", 2, 0, 3, kSataReadAndOff,
     false, false},
    {"OnAndStatusUnreadable", kSata, Way::sg, R"("smart": {"status": [18, 52]})", 1, -1, 2, kSataRead, true, true},
    {"OffAndStatusUnreadable", kSata, Way::sg, R"("smart": {"enabled": false, "status": [18, 52]})", 1, -1, 3,
     kSataReadAndOff, false, false},
    {"OffAndLosingTheStatus", kSata, Way::sg,
     R"("smart": {"enabled": false}, "faults": [{"on": "smartStatus", "hostStatus": 3}])", 1, -1, 3, kSataReadAndOff,
     false, false},
    {"NotIdentifying", kSata, Way::sg, R"("identifyBy": "none")", 1, 0, 2, kAtaPacketChecked, true, true},
    {"NotToBeOpened", kSata, Way::sg, R"("openError": "EBUSY")", 1, 0, 0, {}, true, true},
    {"OnAndLosingReadData", kSata, Way::sg, R"("faults": [{"on": "smartData", "errno": "ETIMEDOUT"}])", 2, 0, 3,
     kSataReadAndOff, true, false},
};

class SmartWatchOutcome : public testing::TestWithParam<Outcome> {
protected:
    const SmartMode mode{1};
    const SgIo way{GetParam().way == Way::sg};
    const sim::Machine machine{oneDisk(GetParam().kind, GetParam().fields)};
    const char *const node = nodeOf(GetParam().kind);
    HardDiskEntry disk = freshDisk(node, GetParam().kind);

    // The expected lines of an outcome.
    Lines sent() const
    {
        Lines lines = GetParam().sent;
        for (std::string &line : lines) {
            if (GetParam().kind == kScsi) {
                line = (GetParam().way == Way::sg ? "sg " : "legacy ") + line;
            }
        }
        return lines;
    }
};

std::string nameOf(const testing::TestParamInfo<Outcome> &info)
{
    return info.param.name;
}

INSTANTIATE_TEST_SUITE_P(Scsi, SmartWatchOutcome, testing::ValuesIn(kScsiOutcomes), nameOf);
INSTANTIATE_TEST_SUITE_P(Ide, SmartWatchOutcome, testing::ValuesIn(kIdeOutcomes), nameOf);
INSTANTIATE_TEST_SUITE_P(Sata, SmartWatchOutcome, testing::ValuesIn(kSataOutcomes), nameOf);

TEST_P(SmartWatchOutcome, IsInTheEntryAndOnTheWireAndLeavesTheSetting)
{
    ASSERT_EQ(machine.smartSwitchedOn(node), GetParam().before);
    const TraceRecorder traces;
    TAVStorageSmartWatch(&disk);
    EXPECT_EQ(disk.SmartSupport, GetParam().support);
    EXPECT_EQ(disk.SmartPredict, GetParam().predict);
    EXPECT_EQ(disk.SmartEnableState, GetParam().state);
    EXPECT_EQ(wire(machine), sent());
    EXPECT_EQ(machine.smartSwitchedOn(node), GetParam().after);
    EXPECT_EQ(machine.openDescriptors(), 0);
    EXPECT_EQ(machine.unknownIoctls(), 0U);
    EXPECT_THAT(leveled(traces, "TAVStorageSmartWatch"), ElementsAre("_IN_", "_OUT_"));
    EXPECT_EQ(traces.texts().back(), "_OUT_");
}

TEST_P(SmartWatchOutcome, NothingIsSentInAnyOtherMode)
{
    HardDiskEntry before{};
    std::memcpy(&before, &disk, sizeof disk);
    for (const int32_t other : {0, 2, -1, 3}) {
        const SmartMode off(other);
        const TraceRecorder traces;
        TAVStorageSmartWatch(&disk);
        EXPECT_THAT(traces.texts(), ElementsAre("_IN_", "_OUT_"));
    }
    EXPECT_THAT(machine.commands(), IsEmpty());
    EXPECT_EQ(std::memcmp(&before, &disk, sizeof disk), 0);
    EXPECT_EQ(machine.smartSwitchedOn(node), GetParam().before);
}

} // namespace
