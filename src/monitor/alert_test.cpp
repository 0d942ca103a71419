// SPDX-License-Identifier: Apache-2.0
#include "monitor/alert.h"

#include "runtime/field_text.h"
#include "support/alert_recorder.h"
#include "support/options_fixture.h"
#include "support/trace_recorder.h"

#include <gmock/gmock.h>

using namespace tavstrg;

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

class PutAlert : public testing::Test {
protected:
    PutAlert()
    {
        disk.Index = 2;
        disk.TargetID = 1;
        copyText(disk.Vendor, "VENDOR");
        copyText(disk.Model, "MODEL");
        copyText(disk.FirmwareRevision, "FW");
    }

    // The strings of one SMART alert.
    std::vector<std::string> stringsOf(const alertDiskSt &described)
    {
        alerts.clear();
        EXPECT_EQ(strgPutAlert(TAV_ALERTID_SMART_ERROR, &described), 0);
        return alerts.records().at(0).strings;
    }

    TraceRecorder trace;
    AlertRecorder alerts;
    alertDiskSt disk = {};
};

TEST_F(PutAlert, TextsOfTheDeviceAreCleanWithTheLineOnly)
{
    sim::Machine machine("{}");
    copyText(disk.Vendor, " VEN\x01"
                          "DOR ");
    copyText(disk.Model, "MOD\xFF"
                         "EL  ");
    copyText(disk.FirmwareRevision, "FW\n");
    const std::string raw = "Hard Disk[2] :  VEN\x01"
                            "DOR  MOD\xFF"
                            "EL   FW\n";
    EXPECT_EQ(stringsOf(disk)[1], raw);
    for (const char *const line : {"clean-text\n", "all\n"}) {
        const OptionsInForce on(machine, line);
        disk.InterfaceType = 0;
        EXPECT_EQ(stringsOf(disk)[1], "Hard Disk[2] : VEN?DOR MOD?EL FW");
        disk.InterfaceType = 1;
        EXPECT_EQ(stringsOf(disk)[1], "Hard Disk[2] : MOD?EL ");
        disk.InterfaceType = 0;
    }
    EXPECT_EQ(stringsOf(disk)[1], raw);
}

TEST_F(PutAlert, EachEventHasItsTypeMethodAndStrings)
{
    const std::vector<std::string> both = {"Address(Controller-Bus-ID-LUN) : 0-0-1-0", "Hard Disk[2] : VENDOR MODEL FW",
                                           "NULL"};
    const std::vector<std::string> none = {"NULL", "NULL", "NULL"};
    const struct {
        const char *name;
        uint32_t id;
        int32_t type;
        uint32_t method;
        int32_t count;
    } cases[] = {
        {"TAV_ALERTID_CONFIG_CHANGE", 0x400407D0, 4, 3, 0}, {"TAV_ALERTID_SMART_ERROR", 0x800403E9, 2, 3, 2},
        {"TAV_ALERTID_LIFESPAN", 0xC0040450, 1, 3, 2},      {"TAV_ALERTID_LIFESPAN", 0x8004044F, 2, 3, 2},
        {"TAV_ALERTID_LIFESPAN", 0x8004044E, 2, 2, 2},      {"TAV_ALERTID_LIFESPAN", 0x4004044D, 4, 2, 2},
        {"TAV_ALERTID_LIFESPAN", 0x4004044C, 4, 2, 2},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.id);
        trace.clear();
        alerts.clear();
        EXPECT_EQ(strgPutAlert(c.id, c.count == 0 ? nullptr : &disk), 0);
        const std::vector<std::string> &strings = c.count == 0 ? none : both;
        EXPECT_THAT(alerts.records(),
                    ElementsAre(AlertRecord{0, c.method, "TAV Storage Service", c.id, c.type, c.count, strings}));
        char id[32];
        std::snprintf(id, sizeof id, "_IN_ evId=[0x%08x]", c.id);
        EXPECT_THAT(trace.textsOf("strgPutAlert"),
                    ElementsAre(id, "evId=[" + std::string(c.name) + "]", "cpParam[0]=[" + strings[0] + "]",
                                "cpParam[1]=[" + strings[1] + "]", "cpParam[2]=[NULL]",
                                "cntParam=[" + std::to_string(c.count) + "]", "evType=[" + std::to_string(c.type) + "]",
                                "method=[" + std::to_string(c.method) + "]", "_OUT_ ret=[0]"));
    }
}

TEST_F(PutAlert, TheAddressFormFollowsTheInterfaceType)
{
    disk.ControllerIndex = 7;
    disk.Bus = 1;
    disk.LUN = 65535;
    for (const uint16_t type : std::initializer_list<uint16_t>{0, 2}) {
        disk.InterfaceType = type;
        EXPECT_THAT(stringsOf(disk), ElementsAre("Address(Controller-Bus-ID-LUN) : 7-1-1-65535",
                                                 "Hard Disk[2] : VENDOR MODEL FW", "NULL"));
    }
    const char *const positions[] = {"", "Unknown", "Master", "Slave", "", ""};
    for (const uint16_t type : std::initializer_list<uint16_t>{1, 3, 65535}) {
        disk.InterfaceType = type;
        for (size_t position = 0; position < std::size(positions); ++position) {
            disk.DrivePosition = static_cast<uint16_t>(position);
            EXPECT_THAT(stringsOf(disk),
                        ElementsAre(std::string("Address(Controller-Drive) : 7-") + positions[position],
                                    "Hard Disk[2] : MODEL ", "NULL"))
                << "the second ends in a blank";
        }
    }
}

TEST_F(PutAlert, LifeSpanIsAlwaysOfTheScsiForm)
{
    disk.InterfaceType = 1;
    EXPECT_EQ(strgPutAlert(TAV_ALERTID_LIFESPAN_LV1, &disk), 0);
    EXPECT_EQ(alerts.records().at(0).strings[0], "Address(Controller-Bus-ID-LUN) : 0-0-1-0");
}

TEST_F(PutAlert, TextsAreCutToTheirBuffers)
{
    copyText(disk.Vendor, std::string(63, 'V'));
    copyText(disk.Model, std::string(63, 'M'));
    copyText(disk.FirmwareRevision, std::string(63, 'F'));
    EXPECT_EQ(stringsOf(disk)[1], "Hard Disk[2] : " + std::string(63, 'V') + " " + std::string(48, 'M'));
}

TEST_F(PutAlert, AnEmptyDescriptionIsSentAsItIs)
{
    EXPECT_THAT(stringsOf({}), ElementsAre("Address(Controller-Bus-ID-LUN) : 0-0-0-0", "Hard Disk[0] :   ", "NULL"));
}

TEST_F(PutAlert, AnIdOfNoEventAndADiskThatIsNotNamedSendNothing)
{
    for (const uint32_t id : {0U, 1U, 0x4004044BU, 0x8004044DU, 0xC0040451U, 0xFFFFFFFFU}) {
        trace.clear();
        EXPECT_EQ(strgPutAlert(id, &disk), -1) << id;
        EXPECT_EQ(trace.textsOf("strgPutAlert").size(), 2U);
        EXPECT_EQ(trace.textsOf("strgPutAlert").back(), "_OUT_ ret=[-1]");
    }
    EXPECT_EQ(strgPutAlert(TAV_ALERTID_SMART_ERROR, nullptr), -1);
    EXPECT_EQ(strgPutAlert(TAV_ALERTID_LIFESPAN_LV1, nullptr), -1);
    EXPECT_THAT(trace.textsOf("TAVSendIndication"), IsEmpty());
    EXPECT_THAT(alerts.records(), IsEmpty());
}

TEST_F(PutAlert, WhatTheAgentRefusesIsAFailure)
{
    alerts.answer = 1;
    EXPECT_EQ(strgPutAlert(TAV_ALERTID_CONFIG_CHANGE, nullptr), -1);
    EXPECT_EQ(trace.textsOf("strgPutAlert").back(), "_OUT_ ret=[-1]");
    EXPECT_EQ(alerts.records().size(), 1U);
}

} // namespace
