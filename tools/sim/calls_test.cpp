// SPDX-License-Identifier: Apache-2.0
// Counting and failing of the product's calls. The test program plays the product.
#include "sim/sim.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <dirent.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <memory>
#include <pthread.h>
#include <string>
#include <sys/ioctl.h>
#include <sys/ipc.h>
#include <sys/shm.h>
#include <sys/stat.h>
#include <sys/utsname.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

using sim::Call;

class Calls : public testing::Test {
protected:
    Calls() : machine(R"({"hosts": [{"devices": [{"ata": true}]}], "files": {"storage.inf": "ahci\nsecond\n"}})")
    {
        sim::countCallsOf("test_sim");
        sim::resetCounts();
    }
    ~Calls() override
    {
        for (int kind = 0; kind < static_cast<int>(Call::count); ++kind) {
            sim::failNth(static_cast<Call>(kind), 0);
        }
        sim::skipSleeps(false);
        sim::countCallsOf("libTAVStorageProvider.so");
    }
    sim::Machine machine;
};

constexpr const char *kDataFile = "/opt/qlm/tavkit_sa/data/storage.inf";

// Keeps the compiler from removing an allocation.
void *volatile kept;

TEST_F(Calls, OtherCodeIsNotCounted)
{
    sim::countCallsOf("libTAVStorageProvider.so");
    sim::failNth(Call::open, 1);
    const int fd = open(kDataFile, O_RDONLY);
    EXPECT_GE(fd, 0);
    close(fd);
    EXPECT_EQ(sim::callsMade(Call::open), 0U);
    EXPECT_FALSE(sim::failureStruck());
}

TEST_F(Calls, OnlyTheNthFails)
{
    sim::failNth(Call::open, 2);
    const int first = open(kDataFile, O_RDONLY);
    EXPECT_GE(first, 0);
    EXPECT_FALSE(sim::failureStruck());
    EXPECT_EQ(fopen(kDataFile, "r"), nullptr);
    EXPECT_EQ(errno, EMFILE);
    EXPECT_TRUE(sim::failureStruck());
    FILE *third = fopen(kDataFile, "r");
    EXPECT_NE(third, nullptr);
    EXPECT_EQ(sim::callsMade(Call::open), 3U);
    fclose(third);
    close(first);
    sim::resetCounts();
    EXPECT_EQ(sim::callsMade(Call::open), 0U);
}

TEST_F(Calls, EmptyNameCountsEveryCaller)
{
    sim::countCallsOf("");
    sim::resetCounts();
    const int fd = open(kDataFile, O_RDONLY);
    close(fd);
    EXPECT_EQ(sim::callsMade(Call::open), 1U);
}

TEST_F(Calls, ZeroDisarms)
{
    sim::failNth(Call::uname, 1);
    sim::failNth(Call::uname, 0);
    struct utsname name {};
    EXPECT_EQ(uname(&name), 0);
}

TEST_F(Calls, FailedReadSetsTheStreamsErrorFlag)
{
    FILE *file = fopen(kDataFile, "r");
    ASSERT_NE(file, nullptr);
    char line[64];
    EXPECT_NE(fgets(line, sizeof line, file), nullptr);
    sim::failNth(Call::read, 1);
    EXPECT_EQ(fgets(line, sizeof line, file), nullptr);
    EXPECT_NE(ferror(file), 0);
    EXPECT_EQ(errno, EIO);
    clearerr(file);
    sim::failNth(Call::read, 1);
    EXPECT_EQ(fread(line, 1, 3, file), 0U);
    EXPECT_NE(ferror(file), 0);
    clearerr(file);
    char *text = nullptr;
    size_t size = 0;
    sim::failNth(Call::read, 1);
    EXPECT_EQ(getline(&text, &size, file), -1);
    free(text);
    fclose(file);
    const int fd = open(kDataFile, O_RDONLY);
    sim::failNth(Call::read, 1);
    EXPECT_EQ(read(fd, line, sizeof line), -1);
    close(fd);
}

TEST_F(Calls, WritingFailsAtEachStep)
{
    const char *path = "/opt/qlm/tavkit_sa/data/new";
    FILE *file = fopen(path, "w");
    ASSERT_NE(file, nullptr);
    sim::failNth(Call::write, 1);
    EXPECT_EQ(fwrite("x", 1, 1, file), 0U);
    EXPECT_NE(ferror(file), 0);
    EXPECT_EQ(errno, ENOSPC);
    sim::failNth(Call::write, 1);
    EXPECT_EQ(fflush(file), EOF);
    sim::failNth(Call::write, 1);
    EXPECT_EQ(fsync(fileno(file)), -1);
    EXPECT_EQ(errno, EIO);
    fclose(file);
    sim::failNth(Call::write, 1);
    EXPECT_EQ(rename(path, "/opt/qlm/tavkit_sa/data/other"), -1);
    EXPECT_TRUE(machine.exists(path));
    const int fd = open(path, O_WRONLY);
    sim::failNth(Call::write, 1);
    EXPECT_EQ(write(fd, "x", 1), -1);
    close(fd);
}

TEST_F(Calls, ListingStatIoctlAndUnameFail)
{
    dirent **list = nullptr;
    sim::failNth(Call::list, 1);
    EXPECT_EQ(scandir("/sys/bus/scsi/devices", &list, nullptr, alphasort), -1);
    sim::failNth(Call::list, 1);
    EXPECT_EQ(opendir("/sys/bus/scsi/devices"), nullptr);
    struct stat status {};
    sim::failNth(Call::stat, 1);
    EXPECT_EQ(stat(kDataFile, &status), -1);
    EXPECT_EQ(errno, EIO);
    char text[64];
    sim::failNth(Call::stat, 1);
    EXPECT_EQ(readlink("/sys/class/scsi_host/host0", text, sizeof text), -1);
    const int fd = open("/dev/sda", O_RDONLY);
    uint32_t words[2];
    sim::failNth(Call::ioctl, 1);
    EXPECT_EQ(ioctl(fd, 0x5382, words), -1);
    EXPECT_EQ(errno, EIO);
    EXPECT_EQ(ioctl(fd, 0x5382, words), 0);
    close(fd);
    struct utsname name {};
    sim::failNth(Call::uname, 1);
    EXPECT_EQ(uname(&name), -1);
}

TEST_F(Calls, SegmentsAreRealCountedAndCanFail)
{
    const key_t key = ftok(kDataFile, 69);
    ASSERT_NE(key, -1);
    const int id = shmget(IPC_PRIVATE, 4096, IPC_CREAT | 0600);
    ASSERT_GE(id, 0);
    void *address = shmat(id, nullptr, 0);
    ASSERT_NE(address, reinterpret_cast<void *>(-1));
    std::memcpy(address, "records", 8);
    EXPECT_EQ(shmdt(address), 0);
    EXPECT_EQ(sim::callsMade(Call::segment), 4U);
    sim::failNth(Call::segment, 1);
    EXPECT_EQ(shmat(id, nullptr, 0), reinterpret_cast<void *>(-1));
    sim::failNth(Call::segment, 1);
    EXPECT_EQ(shmget(IPC_PRIVATE, 1, 0600), -1);
    EXPECT_EQ(shmctl(id, IPC_RMID, nullptr), 0);
}

TEST_F(Calls, LiveSegmentsAreCounted)
{
    const int64_t before = sim::liveSegments();
    const int id = shmget(IPC_PRIVATE, 4096, IPC_CREAT | IPC_EXCL | 0600);
    ASSERT_GE(id, 0);
    EXPECT_EQ(sim::liveSegments(), before + 1);
    sim::failNth(Call::segment, 1);
    EXPECT_EQ(shmctl(id, IPC_RMID, nullptr), -1);
    EXPECT_EQ(sim::liveSegments(), before); // removed, though the call failed
    EXPECT_EQ(shmat(id, nullptr, 0), reinterpret_cast<void *>(-1));
}

TEST_F(Calls, AllocationsCanFailAndLiveBlocksAreCounted)
{
    if (!sim::allocationsCanFail()) {
        GTEST_SKIP() << "a sanitizer replaces the allocator";
    }
    const int64_t before = sim::liveBlocks();
    sim::failNth(Call::allocate, 1);
    kept = malloc(10);
    EXPECT_EQ(kept, nullptr);
    EXPECT_EQ(errno, ENOMEM);
    kept = malloc(10);
    EXPECT_EQ(sim::liveBlocks(), before + 1);
    kept = realloc(kept, 1000);
    EXPECT_EQ(sim::liveBlocks(), before + 1);
    sim::failNth(Call::allocate, 1);
    EXPECT_EQ(realloc(kept, 2000), nullptr);
    EXPECT_EQ(sim::liveBlocks(), before + 1); // the old block is still allocated
    free(kept);
    EXPECT_EQ(sim::liveBlocks(), before);
    sim::failNth(Call::allocate, 1);
    kept = calloc(2, 8);
    EXPECT_EQ(kept, nullptr);
    sim::failNth(Call::allocate, 1);
    kept = strdup("text");
    EXPECT_EQ(kept, nullptr);
    kept = strdup("text");
    EXPECT_STREQ(static_cast<char *>(kept), "text");
    EXPECT_EQ(sim::liveBlocks(), before + 1);
    free(kept);
    EXPECT_EQ(sim::liveBlocks(), before);
}

TEST_F(Calls, ScandirCountsAsTheCallersBlocks)
{
    if (!sim::allocationsCanFail()) {
        GTEST_SKIP() << "a sanitizer replaces the allocator";
    }
    const int64_t before = sim::liveBlocks();
    dirent **list = nullptr;
    const int count = scandir("/opt/qlm/tavkit_sa", &list, nullptr, alphasort);
    ASSERT_EQ(count, 5); // data, lib, work
    EXPECT_EQ(sim::liveBlocks(), before + 6);
    for (int i = 0; i < count; ++i) {
        free(list[i]);
    }
    free(list);
    EXPECT_EQ(sim::liveBlocks(), before);
}

TEST_F(Calls, ManyBlocksAreCounted)
{
    if (!sim::allocationsCanFail()) {
        GTEST_SKIP() << "a sanitizer replaces the allocator";
    }
    const int64_t before = sim::liveBlocks();
    constexpr size_t kMany = 20000;
    static void *blocks[kMany];
    for (int round = 0; round < 3; ++round) {
        for (void *&block : blocks) {
            block = malloc(24);
        }
        EXPECT_EQ(sim::liveBlocks(), before + static_cast<int64_t>(kMany));
        for (void *block : blocks) {
            free(block);
        }
        EXPECT_EQ(sim::liveBlocks(), before);
    }
}

TEST_F(Calls, LiveDescriptorsAreCounted)
{
    const int64_t before = sim::liveDescriptors();
    const int fd = open(kDataFile, O_RDONLY);
    FILE *file = fopen("/etc/passwd", "r");
    DIR *directory = opendir("/tmp");
    EXPECT_EQ(sim::liveDescriptors(), before + 3);
    closedir(directory);
    fclose(file);
    close(fd);
    EXPECT_EQ(sim::liveDescriptors(), before);
}

TEST_F(Calls, SkippedSleepsAreSummedUp)
{
    sim::skipSleeps(true);
    EXPECT_EQ(sleep(3600), 0U);
    EXPECT_EQ(usleep(500000), 0);
    const timespec time{2, 250000000};
    EXPECT_EQ(nanosleep(&time, nullptr), 0);
    EXPECT_EQ(clock_nanosleep(CLOCK_MONOTONIC, 0, &time, nullptr), 0);
    EXPECT_DOUBLE_EQ(sim::sleptSeconds(), 3605.0);
    sim::skipSleeps(false);
    timespec start{};
    timespec end{};
    clock_gettime(CLOCK_MONOTONIC, &start);
    usleep(2000);
    clock_gettime(CLOCK_MONOTONIC, &end);
    EXPECT_GE((end.tv_sec - start.tv_sec) * 1000000000L + end.tv_nsec - start.tv_nsec, 2000000L);
}

struct Holder {
    bool *released;
    ~Holder() { *released = true; }
};

// Sleeps until it is cancelled.
void *sleepForEver(void *argument)
{
    const Holder holder{static_cast<bool *>(argument)};
    for (;;) {
        sleep(1000);
    }
}

TEST_F(Calls, SleepCanBeCancelledSkippedOrNot)
{
    for (const bool skip : {true, false}) {
        sim::skipSleeps(skip);
        bool released = false;
        pthread_t thread{};
        ASSERT_EQ(pthread_create(&thread, nullptr, sleepForEver, &released), 0);
        usleep(1000);
        ASSERT_EQ(pthread_cancel(thread), 0);
        void *result = nullptr;
        ASSERT_EQ(pthread_join(thread, &result), 0);
        EXPECT_EQ(result, PTHREAD_CANCELED);
        EXPECT_TRUE(released);
    }
}

// Opens and reads until it is cancelled: every wrapper must let a cancelled thread unwind.
void *readForEver(void *argument)
{
    const Holder holder{static_cast<bool *>(argument)};
    for (;;) {
        const int fd = open("/sys/bus/scsi/devices/0:0:0:0/vendor", O_RDONLY);
        char text[16];
        if (fd >= 0 && read(fd, text, sizeof text) > 0) {
            close(fd);
        }
    }
}

TEST_F(Calls, CancelledThreadUnwindsThroughTheWrappers)
{
    for (int round = 0; round < 20; ++round) {
        bool released = false;
        pthread_t thread{};
        ASSERT_EQ(pthread_create(&thread, nullptr, readForEver, &released), 0);
        usleep(500);
        ASSERT_EQ(pthread_cancel(thread), 0);
        ASSERT_EQ(pthread_join(thread, nullptr), 0);
        EXPECT_TRUE(released);
    }
}

TEST_F(Calls, OwnTimeIsMeasuredOnDemand)
{
    const double before = sim::ownCpuSeconds();
    const int fd = open("/dev/sda", O_RDONLY);
    uint32_t words[2];
    for (int i = 0; i < 1000; ++i) {
        ioctl(fd, 0x5382, words);
    }
    EXPECT_EQ(sim::ownCpuSeconds(), before);
    sim::measureOwnCpu(true);
    for (int i = 0; i < 1000; ++i) {
        ioctl(fd, 0x5382, words);
    }
    sim::measureOwnCpu(false);
    EXPECT_GT(sim::ownCpuSeconds(), before);
    close(fd);
}

double threadSeconds()
{
    timespec now{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) * 1e-9;
}

// The part of the time of short calls that counts as the machine's: nearly all of it, because it does all the work.
TEST_F(Calls, OwnTimeHasTheTimeOfMeasuring)
{
    if (!sim::allocationsCanFail()) {
        GTEST_SKIP() << "a sanitizer's own work is in each call";
    }
    const int fd = open("/dev/sda", O_RDONLY);
    uint32_t words[2];
    double best = 0;
    sim::measureOwnCpu(true);
    for (int round = 0; round < 20; ++round) {
        const double own = sim::ownCpuSeconds();
        const double start = threadSeconds();
        for (int i = 0; i < 500; ++i) {
            ioctl(fd, 0x5382, words);
        }
        best = std::max(best, (sim::ownCpuSeconds() - own) / (threadSeconds() - start));
    }
    sim::measureOwnCpu(false);
    EXPECT_GT(best, 0.85);
    close(fd);
}

TEST(Fork, ChildCanUseTheMachine)
{
    const sim::Machine machine(R"({"hosts": [{"devices": [{"ata": true}]}]})");
    const pid_t child = fork();
    if (child == 0) {
        const int fd = open("/dev/sda", O_RDONLY);
        uint32_t words[2];
        _exit(fd >= 0 && ioctl(fd, 0x5382, words) == 0 ? 0 : 1);
    }
    int status = -1;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
    EXPECT_TRUE(machine.exists("/dev/sda"));
}

} // namespace
