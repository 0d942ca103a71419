// SPDX-License-Identifier: Apache-2.0
#include "support/options_fixture.h"
#include "support/segment_fixture.h"
#include "support/trace_watch.h"

#include <cerrno>
#include <dlfcn.h>
#include <functional>
#include <sys/stat.h>

using namespace tavstrg;

namespace {

// How many segments get the identifier 0, which is rare enough that it must be arranged, and how many of those were
// removed again.
int zeroIds = 0;
int zeroIdsRemoved = 0;

// The error that calls of shmget end with, how many of them, and how many have.
int getError = 0;
int getErrorsLeft = 0;
int getErrorsGiven = 0;

} // namespace

extern "C" int shmget(key_t key, size_t size, int flags) noexcept
{
    if (getErrorsLeft > 0) {
        --getErrorsLeft;
        ++getErrorsGiven;
        errno = getError;
        return -1;
    }
    if (zeroIds > 0) {
        --zeroIds;
        return 0;
    }
    static const auto next = reinterpret_cast<int (*)(key_t, size_t, int)>(::dlsym(RTLD_NEXT, "shmget"));
    return next(key, size, flags);
}

extern "C" int shmctl(int id, int command, struct shmid_ds *buffer) noexcept
{
    if (id == 0 && command == IPC_RMID) {
        ++zeroIdsRemoved; // never the real one, which is somebody else's
        return 0;
    }
    static const auto next = reinterpret_cast<int (*)(int, int, struct shmid_ds *)>(::dlsym(RTLD_NEXT, "shmctl"));
    return next(id, command, buffer);
}

namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::StartsWith;

using ShmCreate = Segments;

TEST_F(ShmCreate, MakesTheKeyFileAndAPrivateSegment)
{
    const int id = shmCreate(&cInfo, &shm, kBase, 3, 704);
    ASSERT_GT(id, 0);
    EXPECT_TRUE(machine.exists(kKeyFile));
    EXPECT_EQ(machine.read(kKeyFile), "");
    struct shmid_ds info = {};
    ASSERT_EQ(::shmctl(id, IPC_STAT, &info), 0);
    EXPECT_EQ(info.shm_segsz, 704U);
    EXPECT_EQ(info.shm_perm.mode & 0777, 0600);
    EXPECT_EQ(::shmget(keyOf(kKeyFile), 0, 0), id) << "the key is that of the key file and 69";
    EXPECT_EQ(shm.shmId, 0) << "the entry is the caller's business";
    char key[16];
    std::snprintf(key, sizeof key, "0x%08x", static_cast<unsigned>(keyOf(kKeyFile)));
    EXPECT_THAT(linesOf("shmCreate"), ElementsAre("0 _IN_", std::string("0 KeyFile NewCreate(") + kKeyFile + ")",
                                                  std::string("0 shmget(") + key + " , 704)",
                                                  "0 shmget[1]=OK. shmId=[" + std::to_string(id) + "]",
                                                  "0 _OUT_ ret=[" + std::to_string(id) + "]"));
    ::shmctl(id, IPC_RMID, nullptr);
}

TEST_F(ShmCreate, UsesAKeyFileThatIsThere)
{
    machine.write(kKeyFile, "");
    const key_t key = keyOf(kKeyFile);
    const int id = shmCreate(&cInfo, &shm, kBase, 3, 8);
    ASSERT_GT(id, 0);
    EXPECT_EQ(::shmget(key, 0, 0), id);
    EXPECT_THAT(trace->textsOf("shmCreate"), testing::Not(Contains(StartsWith("KeyFile NewCreate"))));
    ::shmctl(id, IPC_RMID, nullptr);
}

TEST_F(ShmCreate, AKeyThatIsTakenRetiresItsKeyFileAndTriesAFreshOne)
{
    machine.write(kKeyFile, "");
    const key_t taken = keyOf(kKeyFile);
    const int foreign = ::shmget(taken, 16, IPC_CREAT | IPC_EXCL | 0600);
    ASSERT_GT(foreign, 0);
    machine.write("/opt/qlm/tavkit_sa/work/key3.bak.2", "left by a crash");

    const int id = shmCreate(&cInfo, &shm, kBase, 3, 8);
    ASSERT_GT(id, 0);
    EXPECT_NE(id, foreign);
    EXPECT_NE(keyOf(kKeyFile), taken);
    EXPECT_FALSE(machine.exists("/opt/qlm/tavkit_sa/work/key3.bak.1"));
    EXPECT_FALSE(machine.exists("/opt/qlm/tavkit_sa/work/key3.bak.2"));
    EXPECT_TRUE(trace->has(kFailure, "shmget[1]=retry. shmId=[-1] errno=[17]", "shmCreate"));
    EXPECT_THAT(trace->textsOf("shmCreate"), Contains(std::string("unlink[") + kKeyFile + ".bak.1]"));
    EXPECT_THAT(trace->textsOf("shmCreate"), Contains(std::string("unlink[") + kKeyFile + ".bak.2]"));
    EXPECT_TRUE(trace->has(kDetail, "shmget[2]=OK. shmId=[" + std::to_string(id) + "]", "shmCreate"));
    EXPECT_GT(sizeOf(foreign), 0U) << "the other's segment is left alone";
    ::shmctl(id, IPC_RMID, nullptr);
    ::shmctl(foreign, IPC_RMID, nullptr);
}

TEST_F(ShmCreate, ChecksItsArgumentsInOrder)
{
    EXPECT_EQ(shmCreate(nullptr, nullptr, nullptr, -1, -1), -1);
    EXPECT_EQ(shmCreate(&cInfo, nullptr, nullptr, -1, -1), -1);
    EXPECT_EQ(shmCreate(&cInfo, &shm, nullptr, -1, -1), -1);
    EXPECT_EQ(shmCreate(&cInfo, &shm, kBase, -1, -1), -1);
    EXPECT_EQ(shmCreate(&cInfo, &shm, kBase, 3, -1), -1);
    EXPECT_THAT(linesOf("shmCreate"),
                ElementsAre("0 _IN_", "3 _OUT_ param(cInfo) Failure!!", "0 _IN_", "3 _OUT_ param(shmInfo) Failure!!",
                            "0 _IN_", "3 _OUT_ param(fnm) Failure!!", "0 _IN_", "3 _OUT_ param(cid) Failure!!",
                            "0 _IN_", "3 _OUT_ param(size) Failure!!"));
}

TEST_F(ShmCreate, WithoutAPlaceForTheKeyFileItStops)
{
    EXPECT_EQ(shmCreate(&cInfo, &shm, "/opt/qlm/tavkit_sa/nowhere/key", 3, 8), -1);
    EXPECT_TRUE(
        trace->has(kFailure, "_OUT_ fopen Failure!! fnm=[/opt/qlm/tavkit_sa/nowhere/key3] errno=[2]", "shmCreate"));
    EXPECT_TRUE(trace->has(kFailure, "_OUT_ shmget Failure!!*[1]", "shmCreate"));
}

TEST_F(ShmCreate, ANameTooLongForAPathIsAFileThatCannotBeMade)
{
    const std::string base(PATH_MAX, 'k');
    EXPECT_EQ(shmCreate(&cInfo, &shm, base.c_str(), 3, 8), -1);
    EXPECT_TRUE(trace->has(kFailure, "_OUT_ fopen Failure!! fnm=[" + base + "] errno=[36]", "shmCreate"));
}

TEST_F(ShmCreate, AKeyThatCannotBeMadeStopsIt)
{
    sim::failNth(sim::Call::segment, 1); // ftok
    const int id = shmCreate(&cInfo, &shm, kBase, 3, 8);
    const int error = errno;
    EXPECT_EQ(id, -1);
    EXPECT_EQ(error, EIO) << "for the callers to tell, whatever was called and traced since";
    EXPECT_TRUE(
        trace->has(kFailure, std::string("_OUT_ ftok Failure!! fnm=[") + kKeyFile + "] errno=[5]", "shmCreate"));
}

TEST_F(ShmCreate, AFailedAttemptIsFollowedByAnother)
{
    sim::failNth(sim::Call::segment, 2); // shmget
    const int id = shmCreate(&cInfo, &shm, kBase, 3, 8);
    EXPECT_GT(id, 0);
    EXPECT_TRUE(trace->has(kFailure, "shmget[1]=retry. shmId=[-1] errno=[28]", "shmCreate"));
    EXPECT_FALSE(machine.exists("/opt/qlm/tavkit_sa/work/key3.bak.1"));
    ::shmctl(id, IPC_RMID, nullptr);
}

TEST_F(ShmCreate, SegmentWithIdentifierZeroIsReplaced)
{
    machine.write(kKeyFile, "");
    const key_t first = keyOf(kKeyFile);
    zeroIds = 2;
    zeroIdsRemoved = 0;
    const int id = shmCreate(&cInfo, &shm, kBase, 3, 8);
    EXPECT_GT(id, 0);
    EXPECT_EQ(zeroIdsRemoved, 2);
    EXPECT_NE(keyOf(kKeyFile), first);
    EXPECT_TRUE(trace->has(kDetail, "shmget[1]=NG. shmId=[0] errno=[0] shmctl-destroy.", "shmCreate"));
    EXPECT_TRUE(trace->has(kDetail, "shmget[2]=NG. shmId=[0] errno=[0] shmctl-destroy.", "shmCreate"));
    EXPECT_FALSE(machine.exists("/opt/qlm/tavkit_sa/work/key3.bak.1"));
    EXPECT_FALSE(machine.exists("/opt/qlm/tavkit_sa/work/key3.bak.2"));
    ::shmctl(id, IPC_RMID, nullptr);
}

TEST_F(ShmCreate, GivesUpAfter65535KeysAndRemovesTheirFiles)
{
    trace.reset(); // hundreds of thousands of lines
    {
        const TraceWatch givenUp(kFailure, "_OUT_ shmget Failure!!*[65535]");
        zeroIds = INT_MAX;
        zeroIdsRemoved = 0;
        EXPECT_EQ(shmCreate(&cInfo, &shm, kBase, 3, 8), -1);
        zeroIds = 0;
        EXPECT_EQ(givenUp.seen(), 1);
    }
    EXPECT_EQ(zeroIdsRemoved, 65535);
    EXPECT_FALSE(machine.exists("/opt/qlm/tavkit_sa/work/key3.bak.1"));
    EXPECT_FALSE(machine.exists("/opt/qlm/tavkit_sa/work/key3.bak.65535"));
    trace.emplace();
}

TEST_F(ShmCreate, ErrorThatNoKeyCuresEndsTheAttemptsWithTheLineOnly)
{
    for (const int error : {ENOSPC, ENOMEM, EINVAL, ENFILE, EPERM}) {
        getError = error;
        getErrorsGiven = 0;
        for (const char *const line : {"stale-segments\n", "all\n"}) {
            const OptionsInForce on(machine, line);
            getErrorsLeft = 5;
            EXPECT_EQ(shmCreate(&cInfo, &shm, kBase, 3, 8), -1);
            EXPECT_EQ(errno, error) << "callers trace it";
            EXPECT_TRUE(trace->has(kFailure, "_OUT_ shmget Failure!!*[1]", "shmCreate"));
        }
        EXPECT_EQ(getErrorsGiven, 2) << "one attempt each, error " << error;
        getErrorsLeft = 5;
        const int id = shmCreate(&cInfo, &shm, kBase, 3, 8);
        EXPECT_GT(id, 0) << "without the line further keys are tried";
        EXPECT_EQ(getErrorsLeft, 0);
        ::shmctl(id, IPC_RMID, nullptr);
    }
}

TEST_F(ShmCreate, KeyThatIsTakenIsTriedAgainWithTheLineToo)
{
    const OptionsInForce on(machine, "stale-segments\n");
    for (const int error : {EEXIST, EACCES}) {
        getError = error;
        getErrorsLeft = 5;
        const int id = shmCreate(&cInfo, &shm, kBase, 3, 8);
        EXPECT_GT(id, 0) << error;
        EXPECT_EQ(getErrorsLeft, 0);
        EXPECT_TRUE(trace->has(kDetail, "shmget[6]=OK. shmId=[" + std::to_string(id) + "]", "shmCreate"));
        ::shmctl(id, IPC_RMID, nullptr);
        trace->clear();
    }
}

TEST_F(ShmCreate, ALinkInPlaceOfTheKeyFileIsSetAsideAndNotFollowed)
{
    constexpr char kVictim[] = "/opt/qlm/tavkit_sa/data/victim";
    for (const bool leadsSomewhere : {false, true}) {
        if (leadsSomewhere) {
            machine.write(kVictim, "precious");
        }
        machine.remove(kKeyFile);
        machine.link(kKeyFile, kVictim);
        trace->clear();
        const int id = shmCreate(&cInfo, &shm, kBase, 3, 8);
        ASSERT_GT(id, 0);
        EXPECT_EQ(machine.exists(kVictim), leadsSomewhere);
        EXPECT_EQ(machine.read(kVictim), leadsSomewhere ? "precious" : "");
        struct stat info = {};
        ASSERT_EQ(::lstat(machine.where(kKeyFile).c_str(), &info), 0);
        EXPECT_TRUE(S_ISREG(info.st_mode));
        EXPECT_EQ(::shmget(keyOf(kKeyFile), 0, 0), id) << "the key is the fresh file's";
        EXPECT_TRUE(trace->has(kFailure, "shmget[1]=retry. shmId=[-1] errno=[40]", "shmCreate"));
        EXPECT_THAT(trace->textsOf("shmCreate"), Contains(std::string("unlink[") + kKeyFile + ".bak.1]"));
        ::shmctl(id, IPC_RMID, nullptr);
    }
}

TEST_F(ShmCreate, TheKeyFileIsItsOwnersWhateverTheUmask)
{
    for (const mode_t mask : {mode_t(0), mode_t(077)}) {
        machine.remove(kKeyFile);
        const mode_t before = ::umask(mask);
        const int id = shmCreate(&cInfo, &shm, kBase, 3, 8);
        ::umask(before);
        struct stat info = {};
        ASSERT_EQ(::lstat(machine.where(kKeyFile).c_str(), &info), 0);
        EXPECT_EQ(info.st_mode & 07777, 0600U) << mask;
        EXPECT_EQ(info.st_uid, ::geteuid());
        struct shmid_ds segment = {};
        ASSERT_EQ(::shmctl(id, IPC_STAT, &segment), 0);
        EXPECT_EQ(segment.shm_perm.mode & 0777, 0600) << mask;
        EXPECT_EQ(segment.shm_perm.uid, ::geteuid());
        ::shmctl(id, IPC_RMID, nullptr);
    }
}

// Nothing of what is there is opened: only the number of its inode counts.
TEST_F(ShmCreate, OtherKindOfKeyFileGivesAKeyAndStaysUnchanged)
{
    const std::string path = machine.where(kKeyFile);
    machine.write("/opt/qlm/tavkit_sa/work/victim", "precious");
    const std::function<void()> others[] = {
        [&] { machine.makeDirectory(kKeyFile); },
        [&] { ASSERT_EQ(::mkfifo(path.c_str(), 0666), 0); },
        [&] { ASSERT_EQ(::link(machine.where("/opt/qlm/tavkit_sa/work/victim").c_str(), path.c_str()), 0); },
    };
    for (const auto &place : others) {
        machine.remove(kKeyFile);
        place();
        struct stat before = {};
        struct stat after = {};
        ASSERT_EQ(::lstat(path.c_str(), &before), 0);
        const int id = shmCreate(&cInfo, &shm, kBase, 3, 8);
        EXPECT_GT(id, 0);
        ASSERT_EQ(::lstat(path.c_str(), &after), 0);
        EXPECT_EQ(after.st_ino, before.st_ino);
        EXPECT_EQ(after.st_mode, before.st_mode);
        ::shmctl(id, IPC_RMID, nullptr);
    }
    EXPECT_EQ(machine.read("/opt/qlm/tavkit_sa/work/victim"), "precious");
}

TEST_F(ShmCreate, InServiceModeAHeldLockFailsAfterThreeSeconds)
{
    g_srvmod = 1;
    sim::skipSleeps(true);
    const Holder held(shm.mutex.mutex);
    EXPECT_EQ(shmCreate(&cInfo, &shm, kBase, 3, 8), -1);
    EXPECT_NEAR(sim::sleptSeconds(), 3.0, 0.01);
    EXPECT_TRUE(trace->has(kFailure, "_OUT_ thmutex_lock Failure!!", "shmCreate"));
    EXPECT_FALSE(machine.exists(kKeyFile));
}

TEST_F(ShmCreate, ALockThatCannotBeGivenBackFailsItAndNoSegmentIsLeft)
{
    loseTheLock();
    EXPECT_EQ(shmCreate(&cInfo, &shm, kBase, 3, 8), -1);
    EXPECT_EQ(linesOf("shmCreate").back(), "3 _OUT_ thmutex_unlock Failure!!");
    EXPECT_EQ(segments(), 0);
}

TEST_F(ShmCreate, InServiceModeTheLockIsTakenAndGivenBack)
{
    g_srvmod = 1;
    const int id = shmCreate(&cInfo, &shm, kBase, 3, 8);
    EXPECT_GT(id, 0);
    EXPECT_EQ(trace->textsOf("shmMutexLock").size(), 2U);
    EXPECT_EQ(trace->textsOf("shmMutexUnlock").size(), 2U);
    EXPECT_EQ(pthread_mutex_trylock(&shm.mutex.mutex), 0);
    pthread_mutex_unlock(&shm.mutex.mutex);
    ::shmctl(id, IPC_RMID, nullptr);
}

} // namespace
