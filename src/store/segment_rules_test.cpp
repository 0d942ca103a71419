// SPDX-License-Identifier: Apache-2.0
// Which segments a start removes with the option stale-segments, and which it never touches.
#include "store/segment_rules.h"

#include "store/key_files.h"
#include "support/options_fixture.h"
#include "support/segment_fixture.h"

#include <memory>
#include <set>

using namespace tavstrg;

namespace {

constexpr int kRecord = sizeof(StrgScsiRec); // of the class of kKeyFile
constexpr char kRetiredFile[] = "/opt/qlm/tavkit_sa/work/key3.bak.7";

class StaleSegments : public Segments {
protected:
    ~StaleSegments() override
    {
        for (const int id : made_) {
            ::shmctl(id, IPC_RMID, nullptr);
        }
    }

    // A segment that this process makes for a key file.
    int make(const char *path, int size = kRecord, int mode = 0600)
    {
        machine.write(path, "");
        return remember(::shmget(keyOf(path), static_cast<size_t>(size), IPC_CREAT | IPC_EXCL | mode));
    }
    // The same made by a process that has gone.
    int makeByDeadProcess(const char *path, int size = kRecord, int mode = 0600)
    {
        machine.write(path, "");
        const key_t key = keyOf(path);
        process::Process maker(
            [=] { return ::shmget(key, static_cast<size_t>(size), IPC_CREAT | IPC_EXCL | mode) > 0 ? 0 : 1; });
        EXPECT_EQ(maker.wait().status, 0);
        return remember(::shmget(key, 0, 0));
    }
    static bool lives(int id)
    {
        struct shmid_ds info = {};
        return ::shmctl(id, IPC_STAT, &info) == 0;
    }

private:
    int remember(int id)
    {
        EXPECT_GT(id, 0);
        made_.push_back(id);
        return id;
    }
    std::vector<int> made_;
};

TEST_F(StaleSegments, OfADeadProcessAreRemovedWithTheLineOnly)
{
    for (const char *const line : {"stale-segments\n", "all\n"}) {
        const int id = makeByDeadProcess(kKeyFile);
        segmentRules().clearWork(kBase);
        EXPECT_TRUE(lives(id));
        const OptionsInForce on(machine, line);
        segmentRules().clearWork(kBase);
        EXPECT_FALSE(lives(id));
        EXPECT_TRUE(machine.exists(kKeyFile));
    }
}

TEST_F(StaleSegments, OfARetiredKeyFileAreRemoved)
{
    const int id = makeByDeadProcess(kRetiredFile);
    const OptionsInForce on(machine, "stale-segments\n");
    segmentRules().clearWork(kBase);
    EXPECT_FALSE(lives(id));
    EXPECT_FALSE(machine.exists(kRetiredFile));
}

TEST_F(StaleSegments, OfALivingProcessStay)
{
    const int own = make(kKeyFile);
    removeStaleSegments(kBase);
    EXPECT_TRUE(lives(own)) << "made by this process";

    ::shmctl(own, IPC_RMID, nullptr);
    const key_t key = keyOf(kKeyFile);
    process::Process holder([=] {
        ::shmget(key, kRecord, IPC_CREAT | IPC_EXCL | 0600);
        ::pause();
        return 0;
    });
    int id = -1;
    while ((id = ::shmget(key, 0, 0)) < 0) {
        ::usleep(1000);
    }
    removeStaleSegments(kBase);
    EXPECT_TRUE(lives(id));
    holder.send(SIGKILL);
    holder.wait();
    removeStaleSegments(kBase);
    EXPECT_FALSE(lives(id)) << "its creator is gone now";
}

TEST_F(StaleSegments, ToWhichAProcessIsAttachedStay)
{
    const int id = makeByDeadProcess(kKeyFile);
    const void *const adr = ::shmat(id, nullptr, 0);
    removeStaleSegments(kBase);
    EXPECT_TRUE(lives(id));
    ::shmdt(adr);
    removeStaleSegments(kBase);
    EXPECT_FALSE(lives(id));
}

TEST_F(StaleSegments, ThatAreNotLikeOursStay)
{
    const struct {
        const char *path;
        int size;
        int mode;
        const char *what;
    } cases[] = {
        {"/opt/qlm/tavkit_sa/work/key1", sizeof(StrgTnumRec), 0644, "others may read it"},
        {"/opt/qlm/tavkit_sa/work/key2", sizeof(StrgCtrlRec) + 1, 0600, "not whole records"},
        {"/opt/qlm/tavkit_sa/work/key4", sizeof(StrgScsiRec), 0600, "records of another class"},
        {"/opt/qlm/tavkit_sa/work/key11", sizeof(StrgScsiRec), 0600, "no class"},
        {"/opt/qlm/tavkit_sa/work/key3x", kRecord, 0600, "no key file"},
        {"/opt/qlm/tavkit_sa/work/key3.bak.", kRecord, 0600, "no number"},
        {"/opt/qlm/tavkit_sa/work/other", kRecord, 0600, "another file"},
    };
    for (const auto &c : cases) {
        const int id = makeByDeadProcess(c.path, c.size, c.mode);
        removeStaleSegments(kBase);
        EXPECT_TRUE(lives(id)) << c.what;
    }
}

TEST_F(StaleSegments, OfTheTargetOfALinkStay)
{
    constexpr char kTarget[] = "/opt/qlm/tavkit_sa/data/foreign";
    const int id = makeByDeadProcess(kTarget);
    machine.link(kKeyFile, kTarget);
    removeStaleSegments(kBase);
    EXPECT_TRUE(lives(id));
}

TEST_F(StaleSegments, FailingCallsLeaveAtMostTheSegment)
{
    sim::countCallsOf("");
    unsigned failures = 0;
    for (const sim::Call kind : {sim::Call::segment, sim::Call::list, sim::Call::stat}) {
        bool struck = true;
        for (unsigned nth = 1; struck; ++nth) {
            const int id = makeByDeadProcess(kKeyFile);
            sim::failNth(kind, nth);
            removeStaleSegments(kBase);
            struck = sim::failureStruck();
            sim::failNth(kind, 0);
            failures += struck ? 1 : 0;
            removeStaleSegments(kBase);
            EXPECT_FALSE(lives(id)) << "removed by the next start at the latest";
            EXPECT_EQ(machine.openDescriptors(), 0);
        }
    }
    EXPECT_GE(failures, 5U);
}

TEST_F(StaleSegments, WithoutTheDirectoryNothingHappens)
{
    removeStaleSegments("/opt/qlm/tavkit_sa/absent/key");
    removeStaleSegments("key");
    removeStaleSegments((std::string(PATH_MAX, 'x') + "/key").c_str());
}

TEST_F(Segments, KeyFilesAreListedWithTheirClass)
{
    for (const char *const name : {"key0", "key10", "key3.bak.12", "key3.bak.99999999999", "key99999999999", "key",
                                   "keyx", "key1x", "key1.bak.", "key1.bak.x", "key-1", "ke1"}) {
        machine.write(std::string("/opt/qlm/tavkit_sa/work/") + name, "");
    }
    std::set<std::string> found;
    KeyFiles files(kBase);
    while (files.next()) {
        const std::string path = files.path();
        found.insert(path.substr(path.rfind('/') + 1) + " " + std::to_string(files.classId()) +
                     (files.retired() ? " retired" : ""));
    }
    EXPECT_THAT(found, testing::UnorderedElementsAre("key0 0", "key10 10", "key3.bak.12 3 retired",
                                                     "key3.bak.99999999999 3 retired", "key99999999999 -1"));
}

} // namespace
