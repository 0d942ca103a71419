// SPDX-License-Identifier: Apache-2.0
// The tool on every example machine: against the output that is kept in tests/data/expected, and against what the
// machine's own description says, so that a wrong answer that was kept by mistake is found too.
//
// After a change of what is printed: tavstrg --machine FILE show > tests/data/expected/NAME.txt, the same with --json
// and without toolVersion, hostName, time and collection to NAME.json, both with LC_ALL=C, and read the difference.

#include "support/tool_machine.h"
#include "support/tool_process.h"

#include <gmock/gmock.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <cctype>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <ostream>
#include <string>
#include <vector>

namespace {

using nlohmann::json;
using testing::ContainsRegex;
using testing::HasSubstr;
using tool::testing_support::ExpectedController;
using tool::testing_support::expectedControllers;
using tool::testing_support::ExpectedDevice;
using tool::testing_support::Finished;
using tool::testing_support::runProgram;
using tool::testing_support::segmentsOf;

namespace fs = std::filesystem;

struct Example {
    fs::path file;
};

void PrintTo(const Example &example, std::ostream *out)
{
    *out << example.file.stem().string();
}

// A machine of today: without options.inf its kernel is refused.
constexpr const char *kRefused = "today";

std::vector<Example> examples()
{
    std::vector<Example> found;
    for (const auto &entry : fs::directory_iterator(fs::path(TAV_SOURCE_DIR) / "examples/machines")) {
        if (entry.path().extension() == ".json" && entry.path().stem() != kRefused) {
            found.push_back({entry.path()});
        }
    }
    std::sort(found.begin(), found.end(), [](const Example &a, const Example &b) { return a.file < b.file; });
    return found;
}

std::string textOf(const fs::path &path)
{
    std::ifstream file(path);
    EXPECT_TRUE(file) << path;
    return {std::istreambuf_iterator<char>(file), {}};
}

fs::path keptOutput(const Example &example, const char *extension)
{
    return fs::path(TAV_SOURCE_DIR) / "tests/data/expected" / example.file.filename().replace_extension(extension);
}

class ExampleMachine : public testing::TestWithParam<Example> {
protected:
    void SetUp() override { directory_ = tool::testing_support::makeDirectory(); }

    void TearDown() override { fs::remove_all(directory_); }

    std::string show(std::vector<std::string> options = {}) const
    {
        std::vector<std::string> words = {std::string(TAV_BINARY_DIR) + "/bin/tavstrg", "--machine",
                                          GetParam().file.string(), "show"};
        words.insert(words.end(), options.begin(), options.end());
        const Finished finished = runProgram(words, {"LC_ALL=C", "TMPDIR=" + directory_.string()});
        EXPECT_EQ(finished.status, 0);
        EXPECT_EQ(finished.err, "");
        EXPECT_TRUE(fs::is_empty(directory_));
        EXPECT_EQ(segmentsOf(finished.pid), 0);
        return finished.out;
    }

    fs::path directory_;
};

// Null for a text that says nothing.
json said(const std::string &text)
{
    const std::string inner = text.substr(0, text.find_last_not_of(' ') + 1);
    return inner.empty() || inner == "Unknown" || inner == "Not Supported" ? json(nullptr) : json(inner);
}

void compareDevice(const json &shown, const ExpectedDevice &expected)
{
    SCOPED_TRACE(expected.place);
    EXPECT_EQ(shown["type"]["text"], expected.type);
    EXPECT_EQ(shown["model"], said(expected.model));
    EXPECT_EQ(shown["firmwareRevision"], said(expected.firmwareRevision));
    EXPECT_EQ(shown["serialNumber"], said(expected.serialNumber));
    EXPECT_EQ(shown["node"], expected.node.empty() ? json(nullptr) : json("/dev/" + expected.node));
    if (shown["interface"] == "IDE") {
        EXPECT_EQ(shown["position"], expected.address);
    } else {
        const json &address = shown["address"];
        EXPECT_EQ(address["bus"].dump() + ":" + address["target"].dump() + ":" + address["lun"].dump(),
                  expected.address);
        EXPECT_EQ(shown["vendor"], said(expected.vendor));
        EXPECT_EQ(shown["hostNumber"].dump() + ":" + expected.address, expected.place);
    }
    ASSERT_EQ(!shown.at("hardDisk").is_null(), expected.capacity.has_value());
    if (expected.capacity) {
        EXPECT_EQ(shown["hardDisk"]["capacityMiB"], *expected.capacity);
        EXPECT_EQ(shown["hardDisk"]["index"], shown["typeIndex"]);
        EXPECT_EQ(shown["hardDisk"]["smart"]["code"], expected.smartStatus);
        EXPECT_EQ(shown["hardDisk"]["smart"]["state"], expected.smartState);
        const json &lifeSpan = shown["hardDisk"].at("lifeSpan");
        EXPECT_EQ(lifeSpan.is_null() ? json(nullptr) : lifeSpan["level"],
                  expected.lifeSpan ? json(*expected.lifeSpan) : json(nullptr));
    }
}

template <class Predicate> size_t countIf(const std::vector<ExpectedController> &controllers, Predicate holds)
{
    size_t count = 0;
    for (const ExpectedController &controller : controllers) {
        for (const ExpectedDevice &device : controller.devices) {
            count += holds(device) ? 1 : 0;
        }
    }
    return count;
}

size_t countOf(const std::vector<ExpectedController> &controllers, const std::string &type)
{
    return countIf(controllers, [&type](const ExpectedDevice &device) { return device.type == type; });
}

void compareHealth(const json &shown, const std::vector<ExpectedController> &expected)
{
    const auto smart = [&expected](const std::string &state) {
        return countIf(expected, [&state](const ExpectedDevice &device) { return device.smartState == state; });
    };
    const auto level = [&expected](int wanted) {
        return countIf(expected, [wanted](const ExpectedDevice &device) { return device.lifeSpan == wanted; });
    };
    EXPECT_EQ(shown["disks"], countOf(expected, "hard disk"));
    EXPECT_EQ(shown["failurePredicted"], smart("failing"));
    EXPECT_EQ(shown["statusNotReadable"], smart("notReadable"));
    EXPECT_EQ(shown["notSupported"], smart("notSupported"));
    EXPECT_EQ(shown["notAsked"], smart("notAsked"));
    EXPECT_EQ(shown["good"], smart("good"));
    EXPECT_EQ(shown["leastEndurance"], level(1));
    EXPECT_EQ(shown["littleEndurance"], level(2));
    EXPECT_EQ(shown["lifeSpanNotRead"], level(-1));
}

TEST_P(ExampleMachine, IsShownAsItsDescriptionSays)
{
    const std::vector<ExpectedController> expected = expectedControllers(textOf(GetParam().file));
    const json shown = json::parse(show({"--json"}));
    EXPECT_EQ(shown["formatVersion"], 1);
    EXPECT_EQ(shown["machine"], GetParam().file.filename().string());
    EXPECT_EQ(shown["devicesWithoutController"], json::array());
    EXPECT_EQ(shown["disksWithoutDevice"], json::array());
    ASSERT_EQ(shown["controllers"].size(), expected.size());
    for (size_t i = 0; i < expected.size(); ++i) {
        SCOPED_TRACE("controller " + std::to_string(i + 1));
        const json &controller = shown["controllers"][i];
        EXPECT_EQ(controller["index"], i + 1);
        EXPECT_EQ(controller["model"], said(expected[i].model));
        EXPECT_EQ(controller["driver"], said(expected[i].driver));
        EXPECT_EQ(controller["interrupt"], expected[i].interrupt ? json(*expected[i].interrupt) : json(nullptr));
        ASSERT_EQ(controller["devices"].size(), expected[i].devices.size());
        for (size_t j = 0; j < expected[i].devices.size(); ++j) {
            compareDevice(controller["devices"][j], expected[i].devices[j]);
        }
    }
    const json &totals = shown["totals"];
    EXPECT_EQ(totals["controllers"], expected.size());
    EXPECT_EQ(totals["hardDisks"], countOf(expected, "hard disk"));
    EXPECT_EQ(totals["cdromDrives"], countOf(expected, "CD-ROM drive"));
    EXPECT_EQ(totals["tapeDrives"], countOf(expected, "tape drive"));
    EXPECT_EQ(totals["opticalMemories"], countOf(expected, "optical memory"));
    EXPECT_EQ(totals["otherDevices"], countOf(expected, "other device"));
    compareHealth(shown["health"], expected);
}

TEST_P(ExampleMachine, TextNamesEveryDeviceOfItsDescription)
{
    const std::string text = show();
    for (const ExpectedController &controller : expectedControllers(textOf(GetParam().file))) {
        for (const ExpectedDevice &device : controller.devices) {
            EXPECT_THAT(text, ContainsRegex("-- [!]* *[0-9]*:?" + device.address + "  +" + device.node + " *" +
                                            device.type + " [0-9]+"));
            EXPECT_THAT(text, HasSubstr(device.model));
            if (device.capacity && device.serialNumber != "Unknown") {
                EXPECT_THAT(text, HasSubstr("serial " + device.serialNumber));
            }
        }
    }
}

TEST_P(ExampleMachine, JsonIsTheKeptOne)
{
    json shown = json::parse(show({"--json"}));
    for (const char *field : {"toolVersion", "hostName", "time", "collection"}) { // other in each run
        EXPECT_EQ(shown.erase(field), 1U) << field;
    }
    EXPECT_EQ(shown, json::parse(textOf(keptOutput(GetParam(), ".json"))));
}

TEST_P(ExampleMachine, TextIsTheKeptOne)
{
    EXPECT_EQ(show(), textOf(keptOutput(GetParam(), ".txt")));
}

std::string testName(const testing::TestParamInfo<Example> &machine)
{
    std::string name = machine.param.file.stem().string();
    std::replace_if(
        name.begin(), name.end(), [](unsigned char c) { return std::isalnum(c) == 0; }, '_');
    return name;
}

INSTANTIATE_TEST_SUITE_P(Machines, ExampleMachine, testing::ValuesIn(examples()), testName);

TEST(ExampleMachines, TodaysKernelIsRefusedWithItsCure)
{
    const Finished finished =
        runProgram({std::string(TAV_BINARY_DIR) + "/bin/tavstrg", "--machine",
                    std::string(TAV_SOURCE_DIR) + "/examples/machines/" + kRefused + ".json", "show"},
                   {"LC_ALL=C"});
    EXPECT_EQ(finished.status, 1);
    EXPECT_EQ(finished.out, "");
    EXPECT_THAT(finished.err, HasSubstr("6.12.48+deb13-amd64 is refused; switch on kernel-release in options.inf"));
}

// Output of a machine that is no longer there would never be looked at.
TEST(ExampleMachines, EveryKeptOutputHasItsMachine)
{
    ASSERT_FALSE(examples().empty());
    for (const auto &entry : fs::directory_iterator(fs::path(TAV_SOURCE_DIR) / "tests/data/expected")) {
        const fs::path machine =
            fs::path(TAV_SOURCE_DIR) / "examples/machines" / entry.path().filename().replace_extension(".json");
        EXPECT_TRUE(fs::exists(machine)) << entry.path();
    }
}

} // namespace
