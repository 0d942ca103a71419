// SPDX-License-Identifier: Apache-2.0
// The lines of options.inf that cure a fault of the base system, in the provider as it ships: the broken case without
// the line, the cured case with it alone and with all of them.
#include "scenarios/monitored.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using scenario::Server;
using testing::ElementsAre;
using testing::IsEmpty;
using Json = nlohmann::json;

constexpr const char *kOptionsFile = "/opt/qlm/tavkit_sa/data/options.inf";

// The same machine, without the file and with one of a given text.
std::string withOptions(Json machine, const std::string &text)
{
    if (!text.empty()) {
        machine["files"]["options.inf"] = text;
    }
    return machine.dump();
}

// A test with one line is run with that line alone and with all lines.
class Cures : public testing::TestWithParam<bool> {
protected:
    static std::string line(const char *name) { return GetParam() ? "all\n" : std::string(name) + "\n"; }
};

INSTANTIATE_TEST_SUITE_P(Lines, Cures, testing::Bool(),
                         [](const auto &testInfo) { return testInfo.param ? "All" : "Alone"; });

// The serial numbers of the SCSI devices, in order; the refusal's code where there is one.
std::vector<std::string> serialNumbers(broker::Broker &broker)
{
    const broker::Reply reply = broker.enumInstances("TAV_StorageSCSIDevice");
    std::vector<std::string> numbers;
    for (const broker::Instance &instance : reply.instances) {
        numbers.push_back(instance.find("SerialNumber")->toString());
    }
    return reply.ok() ? numbers : std::vector{"refused: " + std::to_string(reply.rc)};
}

const std::vector<std::string> kFailed = {"refused: 1"};
const std::vector<std::string> kNothing = {"refused: 6"};

Json oneDisk(const std::string &serial)
{
    return machines::withDevices({machines::ataDisk("MODEL", serial, uint64_t{1} << 30)});
}

TEST_P(Cures, KernelReleaseWithSignsOfADistribution)
{
    for (const char *const release : {"6.12.117+deb12-amd64", "6.9.7_1"}) {
        Json description = oneDisk("SERIAL");
        description["kernel"] = release;
        sim::Machine machine(withOptions(description, ""));
        Server server;
        EXPECT_EQ(serialNumbers(*server), kFailed) << release;
        machine.write(kOptionsFile, line("kernel-release"));
        EXPECT_THAT(serialNumbers(*server), ElementsAre("SERIAL")) << release << ", without a restart";
        machine.remove(kOptionsFile);
        EXPECT_EQ(serialNumbers(*server), kFailed) << release << ", without a restart";
    }
}

TEST_P(Cures, KernelReleaseOfTenIsNotAnEmptyMachine)
{
    Json description = oneDisk("SERIAL");
    description["kernel"] = "10.2.3-1-amd64";
    sim::Machine machine(withOptions(description, ""));
    Server server;
    EXPECT_EQ(serialNumbers(*server), kNothing);
    machine.write(kOptionsFile, line("kernel-release"));
    EXPECT_THAT(serialNumbers(*server), ElementsAre("SERIAL"));
}

struct CleanTextSeen {
    std::vector<std::string> serials;
    std::string savedState;
};

CleanTextSeen seenWith(const std::string &options)
{
    const sim::Machine machine(withOptions(oneDisk("S\u0001ERIAL\u007F"), options));
    Server server;
    CleanTextSeen seen = {serialNumbers(*server), ""};
    server->stop();
    seen.savedState = machine.read(scenario::kStateFile);
    return seen;
}

TEST_P(Cures, CleanTextIsForClientsOnly)
{
    const CleanTextSeen without = seenWith("");
    EXPECT_THAT(without.serials, ElementsAre("S\x01"
                                             "ERIAL\x7F"));
    const CleanTextSeen with = seenWith(line("clean-text"));
    EXPECT_THAT(with.serials, ElementsAre("S?ERIAL?"));
    EXPECT_EQ(with.savedState, without.savedState);
    EXPECT_NE(with.savedState.find("S\x01"
                                   "ERIAL\x7F"),
              std::string::npos);
}

// A disk that predicts its failure, on a machine whose first start saw none.
TEST_P(Cures, FirstDevicesAreTakenOver)
{
    const scenario::Agent agent;
    Json description = oneDisk("SERIAL");
    machines::deviceAt(description, 0)["smart"]["failing"] = true;
    description["agent"] = {{"libraries", true}};
    Json before = machines::withoutDevices();
    before["agent"] = description["agent"];
    sim::Machine machine(before.dump());
    scenario::Steps steps;
    Server server(scenario::inServiceMode());
    ASSERT_TRUE(steps.start(*server));
    machine.change(description.dump());
    for (int pass = 0; pass < 3; ++pass) {
        ASSERT_TRUE(steps.pass());
        EXPECT_THAT(agent.alerts(), IsEmpty()) << "no pass succeeds without the line";
        EXPECT_EQ(serialNumbers(*server), kNothing);
    }
    machine.write(kOptionsFile, line("first-devices"));
    ASSERT_TRUE(steps.pass());
    EXPECT_THAT(agent.alerts(), ElementsAre("0x800403E9", scenario::kConfigurationChange));
    EXPECT_THAT(serialNumbers(*server), ElementsAre("SERIAL"));
    ASSERT_TRUE(steps.pass());
    EXPECT_EQ(agent.alerts().size(), 2U) << "once";
    EXPECT_EQ(scenario::stopThread(*server), 0);
}

} // namespace
