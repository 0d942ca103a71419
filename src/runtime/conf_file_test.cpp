// SPDX-License-Identifier: Apache-2.0
#include "runtime/conf_file.h"

#include "runtime/trace.h"
#include "sim/sim.h"
#include "support/trace_recorder.h"

#include <gtest/gtest.h>

using namespace tavstrg;

namespace {

const char kFile[] = "/etc/tavkit/tavkit.conf";
const char kNoDevices[] = "{}";

std::string search(const char *name, const std::vector<std::string> &pieces)
{
    ConfSearch found(name);
    for (const std::string &piece : pieces) {
        found.feed(piece);
    }
    found.finish();
    return found.found() ? std::string(found.value()) : "(none)";
}

TEST(ConfSearch, FollowsTheTokensNotTheLines)
{
    const struct {
        const char *what;
        const char *text;
        const char *value;
    } cases[] = {
        {"one pair", "TavDir /a\n", "/a"},
        {"no newline at the end", "TavDir /a", "/a"},
        {"any whitespace", "\t TavDir\r\n\v\f /a \n", "/a"},
        {"a key on one line, its value on the next", "TavDir\n/a\n", "/a"},
        {"the case of a key does not count", "tavdir /a\n", "/a"},
        {"the first match wins", "TAVDIR /a\nTavDir /b\n", "/a"},
        {"later pairs", "Other 1\nTavDir /a\n", "/a"},
        {"a single token on a line shifts all later pairs", "Single\nTavDir /a\nx y\n", "(none)"},
        {"two single tokens shift them back", "Single\nOther\nTavDir /a\n", "/a"},
        {"a shifted value can be a key", "Single\nOther TavDir /a\n", "/a"},
        {"a value is no key", "Other TavDir\n/a b\n", "(none)"},
        {"a key without a value", "TavDir", "(none)"},
        {"a prefix is no match", "TavDirectory /a", "(none)"},
        {"an empty file", "", "(none)"},
        {"blanks only", " \n\t\n", "(none)"},
    };
    for (const auto &c : cases) {
        EXPECT_EQ(search("TavDir", {c.text}), c.value) << c.what;
    }
}

TEST(ConfSearch, TakesPiecesOfAnySize)
{
    EXPECT_EQ(search("TavDir", {"Ta", "vD", "ir", "", " ", "/op", "t/a"}), "/opt/a");
}

TEST(ConfSearch, IsOverAtTheFirstMatch)
{
    EXPECT_EQ(search("TavDir", {"TavDir /a ", "more", "TavDir /b"}), "/a");
}

TEST(ConfSearch, FindsNullNowhere)
{
    EXPECT_EQ(search(nullptr, {"a b c d"}), "(none)");
}

TEST(ConfSearch, ATokenBeyondItsLimitGoesOnAsTheNext)
{
    const std::string full(kConfTokenMax, 'v');
    EXPECT_EQ(search("TavDir", {"TavDir " + full + "\n"}), full);
    EXPECT_EQ(search("TavDir", {"TavDir " + full + "rest\n"}), full);
    EXPECT_EQ(search("TavDir", {std::string(kConfTokenMax + 1, 'k') + " TavDir /a"}), "/a")
        << "a key that is too long becomes a key and a value";
}

class Configuration : public testing::Test {
protected:
    std::string env(const char *name, int size = 512)
    {
        char value[600] = "untouched";
        result = get_TavEnv(name, value, size);
        return value;
    }
    std::string root(int size = 512)
    {
        char path[600] = "untouched";
        result = get_TavRootPath(path, size);
        return path;
    }
    sim::Machine machine{kNoDevices};
    TraceRecorder trace;
    int result = 0;
};

TEST_F(Configuration, WithoutAFileEveryKeyHasTheDefaultRoot)
{
    EXPECT_EQ(env("TavDir"), "/opt/qlm/tavkit_sa");
    EXPECT_EQ(result, 18);
    EXPECT_EQ(env("Anything"), "/opt/qlm/tavkit_sa");
    EXPECT_EQ(result, 18);
    EXPECT_EQ(env("TavDir", 18), "/opt/qlm/tavkit_sa");
    EXPECT_EQ(result, 18);
}

TEST_F(Configuration, TheDefaultRootThatDoesNotFitIsItsNegatedLength)
{
    EXPECT_EQ(env("TavDir", 17), "untouched");
    EXPECT_EQ(result, -18);
    EXPECT_TRUE(trace.has(kDetail, "_OUT_ size=[17]", "get_TavEnv"));
    EXPECT_EQ(root(17), "untouched");
    EXPECT_EQ(result, -1) << "to the root's reader it is a value like any other";
    machine.write(kFile, "Other /opt/agent\n");
    EXPECT_EQ(root(17), "untouched");
    EXPECT_EQ(result, -18);
    EXPECT_TRUE(trace.has(kDetail, "_OUT_ size=[17]", "get_TavRootPath"));
}

TEST_F(Configuration, TheKeyMayBeSpeltInLowerCase)
{
    machine.write(kFile, "tavdir /opt/agent\n");
    EXPECT_EQ(env("TavDir"), "/opt/agent");
    EXPECT_EQ(result, 10);
    EXPECT_TRUE(trace.has(kDetail, "_OUT_ EnvString=[/opt/agent]", "get_TavEnv"));
    EXPECT_EQ(root(), "/opt/agent");
    EXPECT_EQ(result, 10);
    EXPECT_TRUE(trace.has(kDetail, "_OUT_ lpPath=[/opt/agent]", "get_TavRootPath"));
}

TEST_F(Configuration, AKeyThatIsNotThereIsNotFound)
{
    machine.write(kFile, "Other /opt/agent\n");
    EXPECT_EQ(env("TavDir"), "untouched");
    EXPECT_EQ(result, 0);
    EXPECT_EQ(root(), "/opt/qlm/tavkit_sa");
    EXPECT_EQ(result, 18);
}

TEST_F(Configuration, ValueThatDoesNotFitIsNegatedLengthOrMinusOne)
{
    machine.write(kFile, "TavDir /opt/agent\n");
    EXPECT_EQ(env("TavDir", 9), "untouched");
    EXPECT_EQ(result, -10);
    EXPECT_TRUE(trace.has(kDetail, "_OUT_ name=[TavDir] value=[/opt/agent] size=[9]", "get_TavEnv"));
    EXPECT_EQ(env("TavDir", -1), "untouched");
    EXPECT_EQ(env("TavDir", 10), "/opt/agent") << "the terminator is not counted";
    EXPECT_EQ(root(9), "untouched");
    EXPECT_EQ(result, -1);
    EXPECT_TRUE(trace.has(kDetail, "_OUT_ rootpath=[/opt/agent]", "get_TavRootPath"));
    EXPECT_EQ(root(10), "/opt/agent");
}

TEST_F(Configuration, MissingBuffersAreRefused)
{
    EXPECT_EQ(get_TavEnv("TavDir", nullptr, 512), 0);
    EXPECT_TRUE(trace.has(kDetail, "_IN_ env=[TavDir] EnvString=[(nil)] size=[512]", "get_TavEnv"));
    EXPECT_TRUE(trace.has(kFailure, "_OUT_ EnvString is NULL", "get_TavEnv"));
    EXPECT_EQ(get_TavRootPath(nullptr, 512), 0);
    EXPECT_TRUE(trace.has(kDetail, "_IN_ lpPath=[(nil)] size=[512]", "get_TavRootPath"));
    EXPECT_TRUE(trace.has(kFailure, "_OUT_ lpPath is NULL", "get_TavRootPath"));
}

TEST_F(Configuration, ANullNameIsTracedAsNullAndNotFound)
{
    machine.write(kFile, "NULL x\n");
    EXPECT_EQ(env(nullptr), "untouched");
    EXPECT_EQ(result, 0);
    EXPECT_NE(trace.texts().front().find("_IN_ env=[NULL] EnvString=["), std::string::npos);
}

TEST_F(Configuration, ADirectoryInPlaceOfTheFileIsAFileThatCannotBeOpened)
{
    machine.makeDirectory(kFile);
    EXPECT_EQ(env("TavDir"), "/opt/qlm/tavkit_sa");
    EXPECT_EQ(result, 18);
    EXPECT_EQ(machine.openDescriptors(), 0);
}

TEST_F(Configuration, ALongFileIsReadToItsEnd)
{
    std::string text;
    for (int i = 0; i < 5000; ++i) {
        text += "Key" + std::to_string(i) + " value\n";
    }
    machine.write(kFile, text + "TavDir /opt/agent");
    EXPECT_EQ(root(), "/opt/agent");
    EXPECT_EQ(machine.openDescriptors(), 0);
}

TEST_F(Configuration, FileIsReadUpToItsBound)
{
    const std::string pair = " TavDir /opt/agent";
    const std::string blanks(kConfBytesMax - pair.size(), ' ');
    machine.write(kFile, blanks + pair);
    EXPECT_EQ(root(), "/opt/agent");

    machine.write(kFile, blanks + pair + "s");
    EXPECT_EQ(root(), "/opt/qlm/tavkit_sa") << "the value that the bound cuts is no value";
    EXPECT_TRUE(trace.has(kFailure, "/etc/tavkit/tavkit.conf is larger than 1048576 bytes, the rest is not read",
                          "get_TavEnv"));
    EXPECT_EQ(machine.openDescriptors(), 0);
}

TEST_F(Configuration, AReadErrorCountsAsTheEnd)
{
    machine.write(kFile, "TavDir /opt/agent\n");
    sim::countCallsOf("");
    sim::failNth(sim::Call::read, 1);
    env("TavDir");
    sim::failNth(sim::Call::read, 0);
    EXPECT_EQ(result, 0);
    EXPECT_EQ(machine.openDescriptors(), 0);
}

} // namespace
