// SPDX-License-Identifier: Apache-2.0
#include "tavstrg/monitor/report.h"

#include "tavstrg/monitor/agent_event.h"

#include "monitor/alert.h"
#include "runtime/field_text.h"

#include <gmock/gmock.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <set>

namespace {

using namespace tool::monitor;
using tavstrg::copyText;
using tavstrg::disks::EventKind;
using testing::Contains;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

Report reportOf(EventKind kind)
{
    Report report{};
    report.number = 17;
    report.event.kind = kind;
    report.event.time = 1700000000;
    copyText(report.event.id, "naa.5000c500a1b2c3d4");
    copyText(report.event.name, "sda");
    copyText(report.event.serial, "$(reboot)");
    copyText(report.event.reason, "predicts its failure");
    copyText(report.model, "NORDWIND NW1000");
    return report;
}

TEST(MonitorReport, EveryKindHasAMessageOfItsOwn)
{
    std::set<std::string> messages;
    std::set<uint32_t> alerts;
    for (int i = 0; i <= static_cast<int>(EventKind::readable); ++i) {
        const KindEntry &entry = entryOf(static_cast<EventKind>(i));
        EXPECT_EQ(entry.kind, static_cast<EventKind>(i));
        EXPECT_EQ(std::string(entry.messageId).find_first_not_of("0123456789abcdef"), std::string::npos);
        EXPECT_EQ(std::string(entry.messageId).size(), 32U);
        messages.insert(entry.messageId);
        alerts.insert(entry.alertId);
    }
    EXPECT_EQ(messages.size(), 8U);
    EXPECT_EQ(alerts.size(), 8U);
}

TEST(MonitorReport, FieldsAreWithoutEmptyOnes)
{
    std::vector<std::string> names;
    for (const auto &[name, value] : fieldsOf(reportOf(EventKind::failing), false)) {
        EXPECT_NE(value, "") << name;
        names.push_back(name);
    }
    EXPECT_THAT(names, testing::ElementsAre("TAVSTRG_EVENT", "TAVSTRG_KIND", "TAVSTRG_SEVERITY", "TAVSTRG_TIME",
                                            "TAVSTRG_DISK_ID", "TAVSTRG_DISK_NAME", "TAVSTRG_DISK_MODEL",
                                            "TAVSTRG_DISK_SERIAL", "TAVSTRG_REASON"));
    EXPECT_THAT(fieldsOf(reportOf(EventKind::failing), true), Contains(Field("TAVSTRG_REPEATED", "1")));
}

TEST(MonitorReport, EnvironmentHasTheTextsAsTheyAre)
{
    const std::vector<std::string> environment = environmentOf(reportOf(EventKind::failing), false);
    EXPECT_THAT(environment, Contains("TAVSTRG_DISK_SERIAL=$(reboot)"));
    EXPECT_THAT(environment, Contains("TAVSTRG_MESSAGE=sda, serial $(reboot): failing, predicts its failure"));
    EXPECT_THAT(environment, Contains(StartsWith("PATH=/usr/sbin:")));
}

TEST(MonitorReport, JournalEntryHasMessageAndFields)
{
    const std::string entry = journalEntry(reportOf(EventKind::failing), false);
    EXPECT_THAT(entry, StartsWith("MESSAGE=sda, serial $(reboot): failing, predicts its failure\n"
                                  "MESSAGE_ID=eaa245eef48e4ca5af6a57642a8f917c\nPRIORITY=3\n"));
    EXPECT_THAT(entry, HasSubstr("\nTAVSTRG_DISK_ID=naa.5000c500a1b2c3d4\n"));
}

TEST(MonitorReport, JournalValueWithALineEndIsFramedByItsLength)
{
    using namespace std::string_literals;
    std::string entry;
    addJournalField(entry, "A", "x\ny=1");
    addJournalField(entry, "B", "z");
    EXPECT_EQ(entry, "A\n\x05\0\0\0\0\0\0\0x\ny=1\nB=z\n"s);
    entry.clear();
    addJournalField(entry, "C", std::string(0x10203, '\n'));
    EXPECT_EQ(entry.substr(0, 10), "C\n\x03\x02\x01\0\0\0\0\0"s);
}

TEST(MonitorReport, JsonIsOneLine)
{
    Report report = reportOf(EventKind::replaced);
    copyText(report.event.otherSerial, "FORMER\"1");
    const std::string line = jsonLine(report);
    EXPECT_EQ(std::count(line.begin(), line.end(), '\n'), 1);
    const nlohmann::json json = nlohmann::json::parse(line);
    EXPECT_EQ(json["event"], 17);
    EXPECT_EQ(json["kind"], "replaced");
    EXPECT_EQ(json["time"], "2023-11-14T22:13:20.000Z");
    EXPECT_EQ(json["serialNumber"], "$(reboot)");
    EXPECT_EQ(json["formerSerialNumber"], "FORMER\"1");
    EXPECT_FALSE(json.contains("place"));
}

AgentEvent agentEventOf(const Report &report, bool repeated)
{
    const std::vector<Field> fields = fieldsOf(report, repeated);
    return agentEvent([&fields](const char *name) {
        const auto found =
            std::find_if(fields.begin(), fields.end(), [name](const Field &field) { return field.first == name; });
        return found == fields.end() ? "" : found->second;
    });
}

TEST(MonitorReport, AgentGetsTheEventInItsStrings)
{
    const AgentEvent event = agentEventOf(reportOf(EventKind::failing), true);
    EXPECT_EQ(event.id, TAV_ALERTID_DISK_FAILING);
    EXPECT_THAT(event.strings,
                testing::ElementsAre("Place : ", "Hard Disk : NORDWIND NW1000", "Serial Number : $(reboot)",
                                     "Kernel Name : sda", "Event : 17 (repeated)", "Reason : predicts its failure"));
    Report replaced = reportOf(EventKind::replaced);
    copyText(replaced.event.serial, "");
    copyText(replaced.event.otherId, "naa.1");
    const AgentEvent other = agentEventOf(replaced, false);
    EXPECT_THAT(other.strings, Contains("Serial Number : naa.5000c500a1b2c3d4"));
    EXPECT_THAT(other.strings, Contains("Replaced Serial Number : naa.1"));
    EXPECT_EQ(agentEvent([](const char *) { return std::string(); }).id, 0U);
}

} // namespace
