// SPDX-License-Identifier: Apache-2.0
#include "tavstrg/alert.h"

#include <gmock/gmock.h>
#include <nlohmann/json.hpp>

#include <cstdlib>
#include <ctime>
#include <ostream>

namespace {

using namespace tool;
using nlohmann::json;
using testing::ElementsAre;

Alert alert(uint32_t id, int type, std::vector<std::string> strings = {})
{
    return {"2026-01-31T23:59:58.123Z", id, type, std::move(strings)};
}

const std::vector<std::string> kScsiDisk = {"Address(Controller-Bus-ID-LUN) : 1-0-3-2",
                                            "Hard Disk[2] : ATA NORDWIND NW2000 NA03"};

// Times are local: the tests' own place is given.
class AlertText : public testing::Test {
protected:
    void SetUp() override { moveTo("UTC0"); }
    void TearDown() override { moveTo("UTC0"); }
    static void moveTo(const char *zone)
    {
        setenv("TZ", zone, 1);
        tzset();
    }
};

struct WordsCase {
    uint32_t id;
    int type;
    std::vector<std::string> strings;
    const char *line;
};

void PrintTo(const WordsCase &given, std::ostream *out)
{
    *out << given.line;
}

class AlertWords : public AlertText, public testing::WithParamInterface<WordsCase> {};

TEST_P(AlertWords, NameTimeSeverityEventAndDisk)
{
    EXPECT_EQ(alertText(alert(GetParam().id, GetParam().type, GetParam().strings), false),
              "2026-01-31 23:59:58 +0000  " + std::string(GetParam().line) + "\n");
}

INSTANTIATE_TEST_SUITE_P(
    Catalogue, AlertWords,
    testing::Values(
        WordsCase{0x400407D0, 4, {}, "information  storage configuration changed"},
        WordsCase{0x800403E9, 2, kScsiDisk,
                  "warning      SMART predicts failure: ATA NORDWIND NW2000 NA03 (SCSI device 2, controller 1, 0:3:2)"},
        WordsCase{0x800403E9,
                  2,
                  {"Address(Controller-Drive) : 1-Slave", "Hard Disk[4] : OLD DISK "},
                  "warning      SMART predicts failure: OLD DISK (IDE device 4, controller 1, slave)"},
        WordsCase{0x800403E9,
                  2,
                  {"Address(Controller-Drive) : 1-", "Hard Disk[4] : "},
                  "warning      SMART predicts failure: (IDE device 4, controller 1, position unknown)"},
        WordsCase{0xC0040450, 1, {}, "error        life span now level 1 of 5, least endurance left"},
        WordsCase{0x8004044F, 2, {}, "warning      life span now level 2 of 5, little endurance left"},
        WordsCase{0x8004044E, 2, {}, "warning      life span now level 3 of 5, medium endurance left"},
        WordsCase{0x4004044D, 4, {}, "information  life span now level 4 of 5, much endurance left"},
        WordsCase{0x4004044C, 4, {}, "information  life span now level 5 of 5, most endurance left"},
        WordsCase{0x8004044F,
                  2,
                  {"Address(Controller-Bus-ID-LUN) : 2-0-0-0", "Hard Disk[1] : ATA M2 F"},
                  "warning      life span now level 2 of 5, little endurance left: ATA M2 F (SCSI device 1, controller "
                  "2, 0:0:0)"},
        WordsCase{0x40040836,
                  4,
                  {"Address(Controller-Bus-ID-LUN) : 2-0-0-0", "Hard Disk[1] : ATA M F", "Serial Number : NEW",
                   "Kernel Name : sda", "Event : 7", "Replaced Serial Number : OLD"},
                  "information  disk replaced: ATA M F (SCSI device 1, controller 2, 0:0:0); Serial Number : NEW, "
                  "Kernel Name : sda, Event : 7, Replaced Serial Number : OLD"},
        WordsCase{0x40040834, 4, {}, "information  disk added"},
        WordsCase{0x80040835, 2, {}, "warning      disk removed"},
        WordsCase{0x80040837, 2, {}, "warning      disk predicts failure"},
        WordsCase{0xC0040838, 1, {}, "error        disk state unreadable"},
        WordsCase{0x40040839, 4, {}, "information  disk state readable again"},
        WordsCase{0x8004083A, 2, {}, "warning      disk needs attention"},
        WordsCase{0x4004083B, 4, {}, "information  disk good again"},
        WordsCase{0x12345678, 3, {"one", "two\x1b"}, "unknown      event 0x12345678: one, two\\x1b"},
        WordsCase{0x800403E9,
                  2,
                  {"Address(Controller-Bus-ID-LUN) : 1-0-3", "Hard Disk[2] : X"},
                  "warning      SMART predicts failure: Address(Controller-Bus-ID-LUN) : 1-0-3, Hard Disk[2] : X"},
        WordsCase{0x800403E9,
                  2,
                  {"Address(Controller-Bus-ID-LUN) : 1-0-3-99999999999", "Hard Disk[x] : X"},
                  "warning      SMART predicts failure: Address(Controller-Bus-ID-LUN) : 1-0-3-99999999999, "
                  "Hard Disk[x] : X"}));

TEST_F(AlertText, TimesAreThoseOfThePlace)
{
    moveTo("CET-1");
    EXPECT_THAT(alertText(alert(0x400407D0, 4), false), testing::StartsWith("2026-02-01 00:59:58 +0100  "));
}

TEST_F(AlertText, PrintsAnUnknownTimeUnchanged)
{
    Alert odd = alert(0x400407D0, 4);
    odd.time = "yesterday\n";
    EXPECT_THAT(alertText(odd, false), testing::StartsWith("yesterday  information"));
}

TEST_F(AlertText, ColoursTheSeverityAlone)
{
    EXPECT_EQ(
        alertText(alert(0xC0040450, 1), true),
        "2026-01-31 23:59:58 +0000  \x1b[1;31merror\x1b[0m        life span now level 1 of 5, least endurance left\n");
}

TEST_F(AlertText, IsBrokenBelowItsBeginWhereATerminalHasTheRoom)
{
    const Alert failing = alert(0x800403E9, 2, kScsiDisk);
    EXPECT_EQ(alertText(failing, true, 80),
              "2026-01-31 23:59:58 +0000  \x1b[33mwarning\x1b[0m      SMART predicts failure: ATA NORDWIND\n"
              "                                        NW2000 NA03 (SCSI device 2,\n"
              "                                        controller 1, 0:3:2)\n");
    EXPECT_EQ(alertText(failing, false, 50), "2026-01-31 23:59:58 +0000  warning      SMART\n"
                                             "    predicts failure: ATA NORDWIND NW2000 NA03\n"
                                             "    (SCSI device 2, controller 1, 0:3:2)\n");
}

TEST(AlertJson, IsOneObjectInOneLine)
{
    const std::string text = alertJson(alert(0x8004044F, 2, kScsiDisk));
    EXPECT_EQ(text.find('\n'), text.size() - 1);
    json made = json::parse(text);
    made.erase("toolVersion");
    made.erase("hostName");
    EXPECT_EQ(made, json::parse(R"x({
      "formatVersion": 1, "command": "watch", "time": "2026-01-31T23:59:58.123Z", "severity": "warning", "eventId": "0x8004044F",
      "event": "lifeSpan", "level": 2,
      "disk": {"interface": "SCSI", "device": 2, "name": "ATA NORDWIND NW2000 NA03",
               "serialNumber": null, "node": null, "hostNumber": null, "controller": 1,
               "address": {"bus": 0, "target": 3, "lun": 2}, "position": null},
      "changes": null,
      "text": "life span now level 2 of 5, little endurance left: ATA NORDWIND NW2000 NA03 (SCSI device 2, controller 1, 0:3:2)",
      "strings": ["Address(Controller-Bus-ID-LUN) : 1-0-3-2", "Hard Disk[2] : ATA NORDWIND NW2000 NA03"]
})x"));
}

TEST(AlertJson, NamesEachEventAndHasNullForAbsentParts)
{
    const json change = json::parse(alertJson(alert(0x400407D0, 4)));
    EXPECT_EQ(change["event"], "configurationChange");
    EXPECT_TRUE(change.at("disk").is_null() && change.at("level").is_null());
    EXPECT_EQ(json::parse(alertJson(alert(0x800403E9, 2)))["event"], "smartError");
    EXPECT_EQ(json::parse(alertJson(alert(7, 7)))["event"], "unknown");
    const json ide =
        json::parse(alertJson(alert(0x800403E9, 2, {"Address(Controller-Drive) : 3-Master", "Hard Disk[1] : OLD "})));
    EXPECT_EQ(ide["disk"]["position"], "master");
    EXPECT_TRUE(ide["disk"].at("address").is_null());
}

Inventory machineWithTheDisk()
{
    Inventory inventory;
    inventory.controllers.resize(1);
    Device device;
    device.index = 2;
    device.targetId = 3;
    device.lun = 2;
    device.vendor = "ATA     ";
    device.model = "NORDWIND NW2000 ";
    device.serialNumber = "NW-1";
    device.node = "sdc";
    device.host = 4;
    inventory.controllers[0].devices = {device};
    return inventory;
}

TEST_F(AlertText, NamesNodeAddressAndSerialNumberOfTheDisk)
{
    Alert failing = alert(0x800403E9, 2, kScsiDisk);
    EXPECT_TRUE(addDevice(failing, machineWithTheDisk()));
    EXPECT_EQ(alertText(failing, false), "2026-01-31 23:59:58 +0000  warning      SMART predicts failure: ATA NORDWIND "
                                         "NW2000 NA03 (sdc, 4:0:3:2, serial NW-1; SCSI device 2, controller 1, "
                                         "0:3:2)\n");
    const json disk = json::parse(alertJson(failing))["disk"];
    EXPECT_EQ(disk["serialNumber"], "NW-1");
    EXPECT_EQ(disk["node"], "/dev/sdc");
    EXPECT_EQ(disk["hostNumber"], 4);
}

// A disk that took the number of the alert's disk meanwhile.
TEST(AddDevice, NotOfAnotherName)
{
    Inventory inventory = machineWithTheDisk();
    inventory.controllers[0].devices[0].model = "OTHER";
    Alert failing = alert(0x800403E9, 2, kScsiDisk);
    EXPECT_FALSE(addDevice(failing, inventory));
    EXPECT_FALSE(failing.device);
    EXPECT_FALSE(addDevice(failing, Inventory()));
}

TEST_F(AlertText, SaysWhatAConfigurationChangeChanged)
{
    Alert change = alert(0x400407D0, 4);
    change.changes = changesBetween(Inventory(), machineWithTheDisk());
    EXPECT_THAT(alertText(change, false),
                testing::EndsWith("storage configuration changed: added controller; added hard disk sdc (4:0:3:2, ATA "
                                  "NORDWIND NW2000, serial NW-1)\n"));
    const json changes = json::parse(alertJson(change))["changes"];
    ASSERT_EQ(changes.size(), 2U);
    EXPECT_EQ(changes[1]["change"], "added");
    EXPECT_EQ(changes[1]["serialNumber"], "NW-1");
}

TEST(ParseAlert, ReadsTheLibrarysLine)
{
    const auto read =
        parseAlert(R"({"time":"2026-01-31T23:59:58.123Z","version":0,"method":3,"source":"TAV Storage Service",)"
                   R"("eventId":"0x800403E9","eventType":2,"strings":["a",null,"\u00e4"]})");
    ASSERT_TRUE(read);
    EXPECT_EQ(read->time, "2026-01-31T23:59:58.123Z");
    EXPECT_EQ(read->eventId, 0x800403E9U);
    EXPECT_EQ(read->eventType, 2);
    EXPECT_THAT(read->strings, ElementsAre("a", "", "\xc3\xa4"));
}

TEST(ParseAlert, AnythingElseIsNone)
{
    for (const char *line : {"", "text", "[]", "7", "{}", R"({"time":"t","eventId":"0x1","eventType":2})",
                             R"({"time":"t","eventId":1,"eventType":2,"strings":[]})",
                             R"({"time":"t","eventId":"0xg","eventType":2,"strings":[]})",
                             R"({"time":"t","eventId":"0x1FFFFFFFF","eventType":2,"strings":[]})",
                             R"({"time":"t","eventId":"0x1","eventType":"x","strings":[]})",
                             R"({"time":"t","eventId":"0x1","eventType":2,"strings":[3]})"}) {
        EXPECT_FALSE(parseAlert(line)) << line;
    }
}

} // namespace
