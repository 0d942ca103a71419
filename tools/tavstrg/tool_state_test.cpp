// SPDX-License-Identifier: Apache-2.0
// dump-state, run as a user runs it on what a disk or a person may have made of a saved state.

#include "support/tool_fixture.h"
#include "support/tool_state.h"

#include <gmock/gmock.h>
#include <nlohmann/json.hpp>

#include <ostream>

namespace {

using namespace tool::testing_support;
using nlohmann::json;
using testing::HasSubstr;

std::string flipped(size_t at, int bit)
{
    std::string bytes = wholeState();
    bytes[at] = static_cast<char>(bytes[at] ^ (1 << bit));
    return bytes;
}

constexpr size_t kVersionDigit = 10; // "# Version=1"
constexpr size_t kControllerTotal = 30;
constexpr size_t kModelText = 54;

struct StateCase {
    const char *name;
    std::string bytes;
    const char *shown;  // a line of standard output
    const char *damage; // what is told on standard error, empty for nothing
};

void PrintTo(const StateCase &given, std::ostream *out)
{
    *out << given.name;
}

class DumpState : public ToolTest, public testing::WithParamInterface<StateCase> {};

TEST_P(DumpState, ShowsWhatThereIsAndTellsWhatIsWrong)
{
    const std::string path = write("state.dat", GetParam().bytes);
    const std::string damage = GetParam().damage;
    const Finished text = run({"dump-state", path});
    EXPECT_EQ(text.status, damage.empty() ? 0 : 1);
    EXPECT_THAT(text.out, HasSubstr(GetParam().shown));
    EXPECT_EQ(text.err, damage.empty() ? "" : "tavstrg: " + path + ": " + damage + "\n");

    const Finished document = run({"--json", "dump-state", path});
    EXPECT_EQ(document.status, text.status);
    EXPECT_EQ(json::parse(document.out).at("damage"), damage.empty() ? json(nullptr) : json(damage));
    EXPECT_EQ(document.err.empty(), damage.empty());
    EXPECT_EQ(contentOf(path), GetParam().bytes) << "it is only read";
}

INSTANTIATE_TEST_SUITE_P(
    States, DumpState,
    testing::Values(StateCase{"Good", wholeState(), "\n2 of 2 TAV_StorageController at byte 50\n", ""},
                    StateCase{"OldVersion", oldState(), "Saved state, version 1.0.0.0\n", ""},
                    StateCase{"OtherVersion", "# Version=2.0.0.0\n" + wholeState().substr(18),
                              "Saved state, version unknown\n\n1 of 1 TAV_StorageConfig at byte 18\n",
                              "the version line at byte 0 is none that is known"},
                    StateCase{"Empty", "", "Saved state, version unknown\n", "the version line is cut off at byte 0"},
                    StateCase{"Truncated", wholeState().substr(0, 175), "\n1 of 2 TAV_StorageController at byte 50\n",
                              "TAV_StorageController: record 2 of 2 is cut off at byte 170, 5 of its 120 bytes are "
                              "there"},
                    StateCase{"BitOfTheVersionFlipped", flipped(kVersionDigit, 1), "Saved state, version unknown\n",
                              "the version line at byte 0 is none that is known"},
                    StateCase{"BitOfACountFlipped", flipped(kControllerTotal, 6),
                              "\n2 of 66 TAV_StorageController at byte 50\n",
                              "TAV_StorageController: record 3 of 66 is cut off at byte 290, 8 of its 120 bytes are "
                              "there"},
                    StateCase{"BitOfATextFlipped", flipped(kModelText, 7), "  Model            \\xcdMMM", ""}),
    [](const auto &test) { return std::string(test.param.name); });

using DumpStateFile = ToolTest;

TEST_F(DumpStateFile, ThatIsNotThereOrIsNoFileIsAFailureOfOneLine)
{
    for (const auto &[name, why] : {std::pair{"none.dat", "No such file or directory"}, {"tmp", "Is a directory"}}) {
        const std::string path = (directory_ / name).string();
        const Finished finished = run({"dump-state", path});
        EXPECT_EQ(finished.status, 1);
        EXPECT_EQ(finished.out, "");
        EXPECT_EQ(finished.err, "tavstrg: " + path + ": " + why + "\n");
    }
}

} // namespace
