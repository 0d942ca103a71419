// SPDX-License-Identifier: Apache-2.0
// Every function of the C library that takes a path must lead into the machine.
#include "sim/sim.h"

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <dirent.h>
#include <dlfcn.h>
#include <fcntl.h>
#include <filesystem>
#include <functional>
#include <gtest/gtest.h>
#include <string>
#include <sys/ipc.h>
#include <sys/stat.h>
#include <unistd.h>

// Checked versions that the headers use instead of the common functions.
extern "C" {
int __open_2(const char *path, int flags);
int __open64_2(const char *path, int flags);
int __openat_2(int directory, const char *path, int flags);
int __openat64_2(int directory, const char *path, int flags);
ssize_t __readlink_chk(const char *path, char *to, size_t size, size_t room);
char *__realpath_chk(const char *path, char *to, size_t room);
char *__getcwd_chk(char *to, size_t size, size_t room);
ssize_t __read_chk(int fd, void *to, size_t size, size_t room);
size_t __fread_chk(void *to, size_t room, size_t size, size_t count, FILE *stream);
char *__fgets_chk(char *to, size_t room, int size, FILE *stream);
}

namespace {

constexpr const char *kFileOfNames = "/proc/ide/hda/media";
constexpr const char *kDirectory = "/proc/ide/hda";

class Names : public testing::Test {
protected:
    Names()
    {
        machine.write(kFileOfNames, "disk\n");
        machine.link("/proc/ide/link", "hda/media");
    }
    sim::Machine machine{"{}"};
};

bool isOpen(int descriptor)
{
    return descriptor >= 0 && close(descriptor) == 0;
}

bool isOpen(FILE *stream)
{
    return stream != nullptr && fclose(stream) == 0;
}

int scanned(int count, dirent **list)
{
    for (int i = 0; i < count; ++i) {
        free(list[i]);
    }
    free(list);
    return count;
}

TEST_F(Names, OpenFunctions)
{
    EXPECT_TRUE(isOpen(open(kFileOfNames, O_RDONLY)));
    EXPECT_TRUE(isOpen(open64(kFileOfNames, O_RDONLY)));
    EXPECT_TRUE(isOpen(openat(AT_FDCWD, kFileOfNames, O_RDONLY)));
    EXPECT_TRUE(isOpen(openat64(AT_FDCWD, kFileOfNames, O_RDONLY)));
    EXPECT_TRUE(isOpen(__open_2(kFileOfNames, O_RDONLY)));
    EXPECT_TRUE(isOpen(__open64_2(kFileOfNames, O_RDONLY)));
    EXPECT_TRUE(isOpen(__openat_2(AT_FDCWD, kFileOfNames, O_RDONLY)));
    EXPECT_TRUE(isOpen(__openat64_2(AT_FDCWD, kFileOfNames, O_RDONLY)));
    EXPECT_TRUE(isOpen(creat("/proc/ide/new", 0600)));
    EXPECT_TRUE(isOpen(creat64("/proc/ide/new64", 0600)));
    EXPECT_TRUE(isOpen(open("/proc/ide/made", O_CREAT | O_WRONLY, 0640)));
    EXPECT_TRUE(machine.exists("/proc/ide/new64"));
    struct stat status {};
    ASSERT_EQ(stat("/proc/ide/made", &status), 0);
    EXPECT_EQ(status.st_mode & 0777, 0640U);
    EXPECT_EQ(machine.openDescriptors(), 0);
}

TEST_F(Names, StreamFunctions)
{
    EXPECT_TRUE(isOpen(fopen(kFileOfNames, "r")));
    EXPECT_TRUE(isOpen(fopen64(kFileOfNames, "r")));
    FILE *stream = fopen("/dev/null", "r");
    ASSERT_NE(stream, nullptr);
    stream = freopen(kFileOfNames, "r", stream);
    ASSERT_NE(stream, nullptr);
    EXPECT_EQ(machine.openDescriptors(), 1);
    char line[16];
    EXPECT_STREQ(__fgets_chk(line, sizeof line, sizeof line, stream), "disk\n");
    rewind(stream);
    EXPECT_EQ(__fread_chk(line, sizeof line, 1, 4, stream), 4U);
    EXPECT_TRUE(isOpen(stream));
    const int descriptor = open(kFileOfNames, O_RDONLY);
    EXPECT_EQ(__read_chk(descriptor, line, 4, sizeof line), 4);
    close(descriptor);
}

TEST_F(Names, DirectoryFunctions)
{
    dirent **list = nullptr;
    const int found = scandir(kDirectory, &list, nullptr, alphasort);
    EXPECT_EQ(scanned(found, list), 3);
    dirent64 **list64 = nullptr;
    const int count = scandir64(kDirectory, &list64, nullptr, alphasort64);
    EXPECT_EQ(scanned(count, reinterpret_cast<dirent **>(list64)), 3);
    DIR *directory = opendir(kDirectory);
    ASSERT_NE(directory, nullptr);
    EXPECT_EQ(closedir(directory), 0);
}

TEST_F(Names, WorkingDirectoryFunctions)
{
    const std::string before = std::filesystem::current_path();
    char text[PATH_MAX];
    ASSERT_EQ(chdir(kDirectory), 0);
    EXPECT_STREQ(getcwd(text, sizeof text), kDirectory);
    EXPECT_STREQ(__getcwd_chk(text, sizeof text, sizeof text), kDirectory);
    EXPECT_TRUE(isOpen(open("media", O_RDONLY)));
    ASSERT_EQ(chdir(before.c_str()), 0);
    EXPECT_EQ(getcwd(text, sizeof text), before);
    EXPECT_NE(chdir("/proc/ide/hdz"), 0);
}

TEST_F(Names, StatFunctions)
{
    struct stat status {};
    struct stat64 status64 {};
    struct statx extended {};
    EXPECT_EQ(stat(kFileOfNames, &status), 0);
    EXPECT_EQ(stat64(kFileOfNames, &status64), 0);
    EXPECT_EQ(lstat("/proc/ide/link", &status), 0);
    EXPECT_TRUE(S_ISLNK(status.st_mode));
    EXPECT_EQ(lstat64("/proc/ide/link", &status64), 0);
    EXPECT_EQ(fstatat(AT_FDCWD, kFileOfNames, &status, 0), 0);
    EXPECT_EQ(fstatat64(AT_FDCWD, kFileOfNames, &status64, 0), 0);
    EXPECT_EQ(statx(AT_FDCWD, kFileOfNames, 0, STATX_BASIC_STATS, &extended), 0);
    EXPECT_EQ(extended.stx_size, 5U);
    EXPECT_EQ(access(kFileOfNames, R_OK), 0);
    EXPECT_EQ(faccessat(AT_FDCWD, kFileOfNames, R_OK, 0), 0);
}

TEST_F(Names, StatFunctionsOfOlderPrograms)
{
    // The headers no longer declare them, but old programs call them.
    using Versioned = int(int, const char *, struct stat *);
    for (const char *name : {"__xstat", "__xstat64", "__lxstat", "__lxstat64"}) {
        struct stat status {};
        auto *function = reinterpret_cast<Versioned *>(dlsym(RTLD_DEFAULT, name));
        ASSERT_NE(function, nullptr) << name;
        EXPECT_EQ(function(1, kFileOfNames, &status), 0) << name;
        EXPECT_EQ(status.st_size, 5) << name;
    }
}

TEST_F(Names, LinkFunctions)
{
    char text[PATH_MAX] = {};
    EXPECT_EQ(readlink("/proc/ide/link", text, sizeof text), 9);
    EXPECT_EQ(readlinkat(AT_FDCWD, "/proc/ide/link", text, sizeof text), 9);
    EXPECT_EQ(__readlink_chk("/proc/ide/link", text, 4, sizeof text), 4);
    EXPECT_EQ(std::string(text, 4), "hda/");
    EXPECT_STREQ(realpath("/proc/ide/link", text), kFileOfNames);
    EXPECT_STREQ(__realpath_chk("/proc/ide/link", text, sizeof text), kFileOfNames);
    EXPECT_EQ(readlink("/proc/self/exe", text, 4), 4); // the real one
}

TEST_F(Names, PathChangingFunctions)
{
    const auto fresh = [this](const char *path) { machine.write(path, "x"); };
    fresh("/proc/a");
    EXPECT_EQ(rename("/proc/a", "/proc/b"), 0);
    EXPECT_EQ(renameat(AT_FDCWD, "/proc/b", AT_FDCWD, "/proc/c"), 0);
    EXPECT_EQ(renameat2(AT_FDCWD, "/proc/c", AT_FDCWD, "/proc/d", 0), 0);
    EXPECT_EQ(link("/proc/d", "/proc/e"), 0);
    EXPECT_EQ(symlink("/proc/e", "/proc/f"), 0);
    EXPECT_EQ(access("/proc/f", R_OK), 0);
    EXPECT_EQ(chmod("/proc/e", 0600), 0);
    EXPECT_EQ(truncate("/proc/e", 0), 0);
    EXPECT_EQ(machine.read("/proc/d"), "");
    EXPECT_EQ(utimensat(AT_FDCWD, "/proc/e", nullptr, 0), 0);
    EXPECT_NE(ftok("/proc/e", 69), -1);
    EXPECT_EQ(unlink("/proc/f"), 0);
    EXPECT_EQ(unlinkat(AT_FDCWD, "/proc/e", 0), 0);
    EXPECT_EQ(remove("/proc/d"), 0);
    EXPECT_EQ(mkdir("/proc/g", 0700), 0);
    EXPECT_EQ(mkdirat(AT_FDCWD, "/proc/h", 0700), 0);
    EXPECT_EQ(rmdir("/proc/g"), 0);
    EXPECT_EQ(remove("/proc/h"), 0);
    EXPECT_EQ(mkfifo("/proc/i", 0600), 0);
    EXPECT_FALSE(machine.exists("/proc/g"));
    EXPECT_TRUE(machine.exists("/proc/i"));
}

TEST_F(Names, TemporaryFileFunctions)
{
    const std::function<int(char *)> makers[] = {
        [](char *path) { return mkstemp(path); }, [](char *path) { return mkstemp64(path); },
        [](char *path) { return mkostemp(path, O_CLOEXEC); }, [](char *path) { return mkostemp64(path, O_CLOEXEC); }};
    for (const auto &make : makers) {
        char path[] = "/opt/qlm/tavkit_sa/data/new.XXXXXX";
        EXPECT_TRUE(isOpen(make(path)));
        EXPECT_STRNE(path, "/opt/qlm/tavkit_sa/data/new.XXXXXX");
        EXPECT_TRUE(machine.exists(path)) << path;
    }
    char path[] = "/opt/qlm/tavkit_sa/data/new.XXXXXX.txt";
    EXPECT_TRUE(isOpen(mkstemps(path, 4)));
    EXPECT_TRUE(machine.exists(path)) << path;
}

TEST_F(Names, PathsWithDotsAndDoubleSlashes)
{
    for (const char *path :
         {"/proc//ide/hda/media", "//proc/ide/hda/media", "/proc/./ide/hda/media", "/proc/ide/../ide/hda/media",
          "/tmp/../proc/ide/hda/media", "/sys/../proc/ide/hda/media", "/sys/../../proc/ide/hda/media"}) {
        EXPECT_EQ(access(path, R_OK), 0) << path;
    }
    EXPECT_EQ(access("/proc/ide/../../etc/passwd", R_OK), 0); // the real one
    EXPECT_NE(access("/process", F_OK), 0);
    EXPECT_EQ(access(("/proc/" + std::string(PATH_MAX, 'x')).c_str(), F_OK), -1);
    EXPECT_EQ(errno, ENAMETOOLONG);
    EXPECT_NE(access("", F_OK), 0);
}

TEST_F(Names, DotDotAfterALinkLeadsToItsTargetsParent)
{
    machine.write("/sys/devices/a/b/name", "deep\n");
    machine.write("/sys/devices/a/name", "up\n");
    machine.link("/sys/bus/b", "../devices/a/b");
    FILE *stream = fopen("/sys/bus/b/../name", "r");
    ASSERT_NE(stream, nullptr);
    char line[16];
    EXPECT_STREQ(fgets(line, sizeof line, stream), "up\n");
    fclose(stream);
}

TEST_F(Names, OpenatBelowADirectoryOfTheMachine)
{
    const int directory = open("/proc/ide", O_RDONLY | O_DIRECTORY);
    ASSERT_GE(directory, 0);
    const int file = openat(directory, "hda/media", O_RDONLY);
    EXPECT_GE(file, 0);
    close(file);
    close(directory);
}

} // namespace
