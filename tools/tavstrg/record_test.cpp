// SPDX-License-Identifier: Apache-2.0
// "tavstrg record" over simulated machines: what is recorded shows the same disks.
#include "tavstrg/record.h"

#include "tavstrg/record_parts.h"

#include "runtime/field_text.h"
#include "support/tool_fixture.h"

#include <gmock/gmock.h>
#include <nlohmann/json.hpp>
#include <sys/stat.h>

#include <map>

namespace {

using nlohmann::json;
using testing::HasSubstr;
using testing::Not;
using tool::testing_support::contentOf;
using tool::testing_support::Finished;

// Equal originals must have equal replacements, and different ones different.
class Replacements {
public:
    void take(const json &original, const json &replaced)
    {
        const auto there = to_.emplace(original, replaced).first;
        const auto back = from_.emplace(replaced, original).first;
        EXPECT_EQ(there->second, replaced);
        EXPECT_EQ(back->second, original);
    }

private:
    std::map<json, json> to_, from_;
};

class Record : public tool::testing_support::ToolTest {
protected:
    json disksOf(const std::string &machine) const
    {
        const Finished finished = run({"--machine", machine, "--json", "disks"});
        EXPECT_EQ(finished.status, 0) << finished.err;
        json disks = json::parse(finished.out);
        for (const char *ofTheRun : {"time", "machine"}) {
            disks.erase(ofTheRun);
        }
        for (json &disk : disks["disks"]) {
            disk.erase("lastAsked");
        }
        return disks;
    }
    Finished record(const std::string &machine, const std::string &file, const std::string &option = "") const
    {
        std::vector<std::string> words{"--machine", machine, "record", file};
        if (!option.empty()) {
            words.push_back(option);
        }
        return run(words);
    }
    std::string recorded() const { return (directory_ / "recorded.json").string(); }

    // The recorded machine shows the same disks, whether names are replaced or not.
    void roundTrip(const std::string &machine) const
    {
        const json disks = disksOf(machine);
        ASSERT_EQ(record(machine, recorded(), "--keep-names").status, 0);
        EXPECT_EQ(disksOf(recorded()), disks);
        ASSERT_EQ(record(machine, recorded()).status, 0);
        json replaced = disksOf(recorded());
        ASSERT_EQ(replaced["disks"].size(), disks["disks"].size());
        std::map<std::string, Replacements> replacements;
        const std::string description = contentOf(recorded());
        for (size_t i = 0; i < disks["disks"].size(); ++i) {
            for (const char *name : {"id", "serialNumber", "wwid"}) {
                const json &original = disks["disks"][i][name];
                replacements[name].take(original, replaced["disks"][i][name]);
                const bool longEnough = original.is_string() && original.get<std::string>().size() >= 6;
                EXPECT_TRUE(!longEnough || std::string(name) != "serialNumber" ||
                            description.find(original.get<std::string>()) == std::string::npos)
                    << original;
                replaced["disks"][i][name] = original;
            }
        }
        EXPECT_EQ(replaced, disks);
    }
};

class RecordOfExample : public Record, public testing::WithParamInterface<const char *> {};

TEST_P(RecordOfExample, ShowsTheSameDisks)
{
    roundTrip(std::string(TAV_SOURCE_DIR "/examples/machines/") + GetParam() + ".json");
}

INSTANTIATE_TEST_SUITE_P(Machines, RecordOfExample,
                         testing::Values("empty", "failing", "ide", "large", "mixed", "server", "today", "usb",
                                         "workstation"),
                         [](const auto &example) { return std::string(example.param); });

TEST_F(Record, DisksThatCannotBeAskedAndPathsOfOneDisk)
{
    const std::string machine = write("machine.json", R"({"kernel": "6.12.0", "hosts": [
      {"driver": "mpt3sas", "transport": "sas", "devices": [
        {"id": 0, "serial": "SAS-000001", "wwn": "5000c500b0a10000"},
        {"id": 1, "serial": "SAS-000002", "wwn": "5000c500b0a10004", "openError": "EACCES"},
        {"id": 2, "serial": "SAS-000003", "wwn": "5000c500b0a10008", "faults": [{"on": "logSense", "hostStatus": 7}]},
        {"id": 3, "serial": "SAS-000004", "power": {"runtimeStatus": "suspended"}}]},
      {"driver": "mpt3sas", "transport": "sas", "devices": [
        {"id": 0, "serial": "SAS-000001", "wwn": "5000c500b0a10000"},
        {"id": 1, "node": null, "serial": "SAS-000005"}]}],
      "nvme": [
        {"number": 0, "subsystem": 0, "multipath": true, "serial": "NVME-00001", "faults": [{"nvmeStatus": 262}],
         "namespaces": [{"nguid": "00000000000000018ce38e0500a1b2c3"}]},
        {"number": 1, "subsystem": 0, "multipath": true, "serial": "NVME-00001",
         "namespaces": [{"nguid": "00000000000000018ce38e0500a1b2c3"}]},
        {"number": 2, "serial": "NVME-00003", "transport": "tcp", "health": {"percentageUsed": 100},
         "namespaces": [{}, {}]}],
      "mmc": [{"name": "DG4064", "cid": "4501004447343036340155a3c2f1d500", "serial": "0x55a3c2f1",
               "lifeTime": "0x01 0x0b", "preEolInfo": "0x02", "firmware": "0x0400000000000000"}],
      "files": {"/sys/bus/pci/slots/7/address": "0000:01:00"}})");
    roundTrip(machine);
    const Finished finished = record(machine, "-");
    EXPECT_EQ(finished.status, 0);
    EXPECT_EQ(finished.err, "tavstrg: 1 disk could not be asked: that needs root.\n");
    EXPECT_THAT(json::parse(finished.out)["comment"].get<std::string>(), HasSubstr("that needs root"));
    EXPECT_THAT(finished.out, Not(HasSubstr("192.0.2"))) << "an address in a network";
}

TEST(RecordAnswers, DiskThatHasNotAnsweredHangs)
{
    tool::DiskReport report;
    report.disks.emplace_back();
    tavstrg::copyText(report.disks[0].name, "sda");
    tavstrg::disks::setHealth(report.disks[0].health, tool::HealthState::unreadable, "deadline", "");
    tool::Calls calls;
    tool::Names names(false);
    tool::Json inOpening;
    tool::addAnswers({report, calls, names}, "sda", inOpening);
    EXPECT_EQ(inOpening["faults"][0]["on"], "open");
    calls.opened("/dev/sda", 3, 0);
    tool::Json inCommand;
    tool::addAnswers({report, calls, names}, "sda", inCommand);
    EXPECT_EQ(inCommand["faults"][0]["on"], "any");
    EXPECT_EQ(inCommand["faults"][0]["hang"], true);
}

TEST_F(Record, FileIsTheOwnersAndNoLinkIsFollowed)
{
    const std::string machine = write("machine.json", tool::testing_support::kSmallMachine);
    ASSERT_EQ(record(machine, recorded()).status, 0);
    struct stat status {};
    ASSERT_EQ(stat(recorded().c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777, 0600U);
    const std::string victim = write("victim", "untouched");
    const std::string link = (directory_ / "link").string();
    std::filesystem::create_symlink(victim, link);
    EXPECT_EQ(record(machine, link).status, 1);
    EXPECT_EQ(contentOf(victim), "untouched");
    EXPECT_EQ(record(machine, (directory_ / "none/file").string()).status, 1);
}

TEST_F(Record, IsAlsoAMachineForTheProvider)
{
    const std::string machine = std::string(TAV_SOURCE_DIR "/examples/machines/server.json");
    ASSERT_EQ(record(machine, recorded(), "--keep-names").status, 0);
    json description = json::parse(contentOf(recorded()));
    description["files"]["storage.inf"] = json::parse(contentOf(machine))["files"]["storage.inf"];
    const std::string both = write("both.json", description.dump());
    const auto seen = [this](const std::string &file) {
        std::vector<std::string> disks;
        const json shown = json::parse(run({"--machine", file, "--json", "show"}).out);
        for (const json &controller : shown["controllers"]) {
            for (const json &device : controller["devices"]) {
                disks.push_back(device["node"].dump() + device["serialNumber"].dump() + device["model"].dump());
            }
        }
        return disks;
    };
    EXPECT_EQ(seen(both), seen(machine));
    EXPECT_FALSE(seen(both).empty());
}

} // namespace
