// SPDX-License-Identifier: Apache-2.0
// The monitoring service, killed again and again while disks change: each transition reaches each route.
#include "support/datagrams.h"
#include "support/tool_fixture.h"

#include <nlohmann/json.hpp>

#include <random>
#include <set>
#include <sys/stat.h>
#include <thread>

namespace {

using tool::testing_support::contentOf;
using tool::testing_support::Datagrams;
using tool::testing_support::kTool;
using tool::testing_support::Running;

constexpr int kKills = 200;
constexpr int kLatestKill = 90; // milliseconds after a start: often after the pass

class MonitorKills : public tool::testing_support::ToolTest {
protected:
    void SetUp() override
    {
        ToolTest::SetUp();
        std::filesystem::create_directory(directory_ / "machine");
        std::filesystem::create_directory(directory_ / "hooks");
        chmod((directory_ / "hooks").c_str(), 0755);
        chmod(write("hooks/a", "#!/bin/sh\necho \"$TAVSTRG_EVENT $TAVSTRG_REPEATED\" >> " + path("hooked") + "\n")
                  .c_str(),
              0755);
        write("monitor.conf", "state = " + path("state") + "\njournal = " + path("journal") +
                                  "\nhooks = " + path("hooks") + "\nlines = " + path("events") + "\nmetrics = no\n");
    }
    std::string path(const std::string &name) const { return (directory_ / name).string(); }
    std::vector<std::string> words() const
    {
        return {kTool, "--machine", path("machine/m.json"), "monitor", "--config", path("monitor.conf")};
    }
    // One disk that fails in every other machine, one that is there in every third.
    void machine(int number) const
    {
        std::string disks = R"({"id": 0, "ata": true, "model": "DISK", "serial": "SER-0", "smart": {"failing": )" +
                            std::string(number % 2 == 0 ? "false" : "true") + "}}";
        if (number % 3 == 0) {
            disks += R"(, {"id": 1, "ata": true, "model": "DISK", "serial": "SER-1"})";
        }
        write("machine/m.json", R"({"hosts": [{"number": 0, "driver": "ahci", "devices": [)" + disks + "]}]}");
    }
    void killOne(std::mt19937 &random)
    {
        Running service(words(), environment());
        std::this_thread::sleep_for(std::chrono::milliseconds(random() % kLatestKill));
        service.send(SIGKILL);
        service.finish();
    }
};

// The entries of the journal: how often each number came without and with the mark of a repetition.
struct Times {
    int first = 0;
    int repeated = 0;
};

void takeJournal(Datagrams &journal, std::map<int, Times> &numbers)
{
    for (const std::string &entry : journal.all()) {
        const int number = std::stoi(entry.substr(entry.find("TAVSTRG_EVENT=") + 14));
        Times &times = numbers[number];
        ++(entry.find("TAVSTRG_REPEATED=1") == std::string::npos ? times.first : times.repeated);
    }
}

void takeHooked(const std::string &text, std::map<int, Times> &numbers)
{
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) {
        Times &times = numbers[std::stoi(line)];
        ++(line.ends_with("1") && line.find(' ') + 1 < line.size() ? times.repeated : times.first);
    }
}

// Every number from 1 on is there; what came more than once said so.
void expectEach(const std::map<int, Times> &numbers, int count, const char *route)
{
    EXPECT_EQ(static_cast<int>(numbers.size()), count) << route;
    for (const auto &[number, times] : numbers) {
        EXPECT_LE(times.first, 1) << route << " " << number;
        EXPECT_GE(times.first + times.repeated, 1) << route << " " << number;
    }
}

// The lines: each number once, and of each disk events that can follow each other.
int expectLines(const std::string &text)
{
    int number = 0;
    std::map<std::string, std::string> last;
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) {
        const nlohmann::json event = nlohmann::json::parse(line);
        EXPECT_EQ(event["event"], ++number);
        const std::string serial = event["serialNumber"];
        EXPECT_NE(last[serial], event["kind"]) << line;
        last[serial] = event["kind"];
    }
    return number;
}

TEST_F(MonitorKills, EachTransitionReachesEachRoute)
{
    constexpr unsigned kSeed = 16;
    std::mt19937 random(kSeed);
    Datagrams journal(path("journal"));
    std::map<int, Times> inJournal;
    for (int i = 0; i < kKills; ++i) {
        machine(i);
        killOne(random);
        takeJournal(journal, inJournal);
    }
    std::vector<std::string> once = words();
    once.emplace_back("--once");
    EXPECT_EQ(tool::testing_support::runProgram(once, environment()).status, 0);
    takeJournal(journal, inJournal);
    const int count = expectLines(contentOf(path("events")));
    EXPECT_GT(count, kKills / 10) << "most were killed before their pass";
    expectEach(inJournal, count, "journal");
    std::map<int, Times> hooked;
    takeHooked(contentOf(path("hooked")), hooked);
    expectEach(hooked, count, "hooks");
    RecordProperty("events", count);
}

} // namespace
