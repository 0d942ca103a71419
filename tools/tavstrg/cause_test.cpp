// SPDX-License-Identifier: Apache-2.0
// What the tool says of a collection that failed: first cause, device, remedy.

#include "tavstrg/cause.h"

#include "support/tool_fixture.h"

#include <gmock/gmock.h>
#include <nlohmann/json.hpp>

#include <unistd.h>

#include <ostream>

namespace {

using namespace tool::testing_support;
using nlohmann::json;
using testing::HasSubstr;

struct FailedCollection {
    const char *name;
    const char *change; // merged into the small machine, RFC 7386
    const char *disk;   // and into its disk
    std::vector<std::string> words;
};

void PrintTo(const FailedCollection &one, std::ostream *out)
{
    *out << one.name;
}

class Cause : public ToolTest, public testing::WithParamInterface<FailedCollection> {
protected:
    std::string machine() const
    {
        json machine = json::parse(kSmallMachine);
        machine.merge_patch(json::parse(GetParam().change));
        machine["hosts"][0]["devices"][0].merge_patch(json::parse(GetParam().disk));
        return write("failed.json", machine.dump());
    }
};

TEST_P(Cause, OfAFailedCollectionIsInItsMessage)
{
    for (const auto &words : {std::vector<std::string>{"show"}, {"metrics", "--classes"}, {"enum", "HardDisk"}}) {
        std::vector<std::string> all = {"--machine", machine()};
        all.insert(all.end(), words.begin(), words.end());
        const Finished finished = run(all);
        EXPECT_EQ(finished.status, 1);
        EXPECT_EQ(finished.out.empty(), words.front() != "metrics") << "a failed collection has metrics too";
        for (const std::string &part : GetParam().words) {
            EXPECT_THAT(finished.err, HasSubstr(part));
        }
        EXPECT_THAT(finished.err, testing::MatchesRegex("tavstrg: TAV_Storage[^\n]+\n"));
        EXPECT_TRUE(leftNothing(finished));
    }
}

INSTANTIATE_TEST_SUITE_P(
    Collections, Cause,
    testing::Values(
        FailedCollection{"KernelRelease",
                         R"({"kernel": "6.12.117+deb12-amd64"})",
                         "{}",
                         {"kernel release 6.12.117+deb12-amd64 is refused", "boot a kernel whose release is"}},
        FailedCollection{"DiskThatIsNoAtaDisk",
                         "{}",
                         R"({"ata": null, "vendor": "ACME"})",
                         {"/dev/sda (ACME SMALL DISK) at host 0, target 0", "HDIO_GET_IDENTITY",
                          "echo 1 > /sys/block/sda/device/delete", "\"Vendor: ACME Model: SMALL DISK\" in noscsi.inf"}},
        FailedCollection{"DiskThatCannotBeOpened",
                         "{}",
                         R"({"openError": "ENXIO"})",
                         {"no device node answers for the disk (ATA SMALL DISK) at host 0, target 0",
                          "if it is dead, remove it from the kernel (echo 1 > /sys/bus/scsi/devices/0:*:0:*/delete); "
                          "otherwise leave out all disks of its model"}},
        FailedCollection{"DeadDisk",
                         "{}",
                         R"({"faults": [{"on": "identity", "errno": "EIO"}]})",
                         {"/dev/sda (ATA SMALL DISK)", "or it is dead"}}),
    [](const auto &test) { return std::string(test.param.name); });

TEST(CauseOf, TheFirstFailureIsNamedWhenNoRuleKnowsIt)
{
    EXPECT_EQ(tool::causeOf({}, "6.1.0"), "");
    EXPECT_EQ(
        tool::causeOf({{0, "f", "_IN_"}, {3, "f", "##start##"}, {3, "strgGetInfFile", "_OUT_ fopen failed. [x]"}}, ""),
        "");
    EXPECT_EQ(tool::causeOf({{3, "InitDevice", "_OUT_ ret=[-1]\x1b"}, {3, "later", "x"}}, ""),
              "first failure traced: InitDevice: _OUT_ ret=[-1]\\x1b (--trace prints all)");
}

TEST(CauseOf, FailuresOfTheAgentsDirectoriesNameTheFileAndTheError)
{
    EXPECT_EQ(
        tool::causeOf({{3, "shmCreate", "_OUT_ fopen Failure!! fnm=[/a/key0] errno=[2]"}}, ""),
        "cannot make the key file /a/key0: No such file or directory; the agent's directory work must exist and be "
        "writable");
    EXPECT_EQ(tool::causeOf({{3, "strgSetInstance", "_OUT_ fopen Failure!! err=[13]"}}, ""),
              "the saved state cannot be written: Permission denied; the agent's directory data must exist and be "
              "writable");
}

// This machine as root, with an agent's directory of the test's own in its place. It is in a mount namespace, so
// nothing of it is seen outside.
class ThisMachine : public ToolTest {
protected:
    Finished runIn(const std::string &script) const
    {
        const std::string begin = "set -e; mount -t tmpfs none /opt; mkdir -p /opt/qlm/tavkit_sa/data "
                                  "/opt/qlm/tavkit_sa/work; echo ahci >/opt/qlm/tavkit_sa/data/storage.inf; "
                                  "tool=" +
                                  kTool + "; ";
        return runProgram({"/usr/bin/unshare", "--mount", "--ipc", "/bin/sh", "-c", begin + script}, environment());
    }
    void SetUp() override
    {
        ToolTest::SetUp();
        if (geteuid() != 0 || runIn("true").status != 0) {
            GTEST_SKIP() << "needs root and a mount namespace";
        }
    }
};

TEST_F(ThisMachine, ReadingLeavesTheAgentsFilesAsTheyAre)
{
    const Finished finished =
        runIn("look() { find /opt -printf '%p %i %T@ %s\\n' | sort; ipcs -m; }; "
              "$tool call Config SetMonitorCycle MonitorCycle=120; look >$TMPDIR/before; "
              "for words in show 'metrics --classes' metrics 'get Config' 'enum Controller' check; do "
              "$tool $words >>$TMPDIR/out 2>&1 || true; done; "
              "look >$TMPDIR/after; cmp $TMPDIR/before $TMPDIR/after; "
              "grep -q tavstrgsave.dat $TMPDIR/before; cat $TMPDIR/out; rm $TMPDIR/*");
    EXPECT_EQ(finished.status, 0) << finished.out << finished.err;
    EXPECT_THAT(finished.out, HasSubstr("Storage of this machine")) << finished.err;
    EXPECT_THAT(finished.out, testing::ContainsRegex("MonitorCycle +120"));
    EXPECT_THAT(finished.out, HasSubstr("libtavlog.so: No such file or directory; nothing is traced"));
    EXPECT_TRUE(std::filesystem::is_empty(directory_ / "tmp"));
}

TEST_F(ThisMachine, IsShownWithoutAnAgentAndACallSaysWhatIsMissing)
{
    const Finished finished = runIn("rm -r /opt/qlm/tavkit_sa/work; $tool show; "
                                    "$tool call Config SetMonitorCycle MonitorCycle=120");
    EXPECT_EQ(finished.status, 1);
    EXPECT_THAT(finished.out, HasSubstr("Storage of this machine"));
    EXPECT_THAT(finished.err,
                HasSubstr("cannot make the key file /opt/qlm/tavkit_sa/work/tavstrgshm.key0: No such file or "
                          "directory; the agent's directory work must exist"));
}

} // namespace
