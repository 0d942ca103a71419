// SPDX-License-Identifier: Apache-2.0
// Listing of directories, and the working directory. Relative paths are resolved by the kernel: after a chdir into the
// machine they lead there, but a device node opened by a relative path is not a device.
#include "sim/blocks.h"
#include "sim/interpose.h"

#include <cstring>
#include <dirent.h>
#include <unistd.h>

using namespace sim;

namespace {

using Filter = int(const dirent *);
using Compare = int(const dirent **, const dirent **);
using ScanFunction = int(const char *, dirent ***, Filter *, Compare *);

constinit Real<DIR *(const char *)> realOpendir{"opendir"};
constinit Real<int(DIR *)> realClosedir{"closedir"};
constinit Real<int(DIR *)> realDirfd{"dirfd"};
constinit Real<ScanFunction> realScandir{"scandir"};
constinit Real<ScanFunction> realScandir64{"scandir64"};
constinit Real<int(const char *)> realChdir{"chdir"};
constinit Real<char *(char *, size_t)> realGetcwd{"getcwd"};
constinit Real<char *(char *, size_t, size_t)> realGetcwdChk{"__getcwd_chk"};

char *visibleDirectory(char *path)
{
    if (path != nullptr && thisThread.inside == 0) {
        const size_t length = withoutRoot(path, std::strlen(path));
        path[length] = '\0';
        if (length == 0) {
            std::strcpy(path, "/");
        }
    }
    return path;
}

int scanThrough(Real<ScanFunction> &real, bool product, const char *path, dirent ***list, Filter *filter,
                Compare *compare)
{
    followDescription();
    const Translated translated(path);
    const int count = real(translated.c_str(), list, filter, compare);
    if (product && count >= 0) { // allocated by the C library, to be freed by the caller
        noteBlock(*list);
        for (int i = 0; i < count; ++i) {
            noteBlock((*list)[i]);
        }
    }
    return count;
}

} // namespace

SIM_EXPORT DIR *simOpendir(const char *path) __asm__("opendir");
SIM_EXPORT int simClosedir(DIR *directory) __asm__("closedir");
SIM_EXPORT int simScandir(const char *path, dirent ***list, Filter *filter, Compare *compare) __asm__("scandir");
SIM_EXPORT int simScandir64(const char *path, dirent ***list, Filter *filter, Compare *compare) __asm__("scandir64");
SIM_EXPORT int simChdir(const char *path) __asm__("chdir");
SIM_EXPORT char *simGetcwd(char *to, size_t size) __asm__("getcwd");
SIM_EXPORT char *simGetcwdChk(char *to, size_t size, size_t room) __asm__("__getcwd_chk");

extern "C" DIR *simOpendir(const char *path)
{
    if (SIM_FAILS(list, "opendir")) {
        return failedWith<DIR *>(EMFILE, nullptr);
    }
    followDescription();
    const Translated translated(path);
    DIR *directory = realOpendir(translated.c_str());
    if (directory != nullptr) {
        noteOpened(realDirfd(directory), translated, SIM_IS_PRODUCT("opendir"));
    }
    return directory;
}

extern "C" int simClosedir(DIR *directory)
{
    if (directory != nullptr) {
        closed(realDirfd(directory));
    }
    return realClosedir(directory);
}

extern "C" int simScandir(const char *path, dirent ***list, Filter *filter, Compare *compare)
{
    if (SIM_FAILS(list, "scandir")) {
        return failedWith(ENOMEM);
    }
    return scanThrough(realScandir, SIM_IS_PRODUCT("scandir"), path, list, filter, compare);
}

extern "C" int simScandir64(const char *path, dirent ***list, Filter *filter, Compare *compare)
{
    if (SIM_FAILS(list, "scandir64")) {
        return failedWith(ENOMEM);
    }
    return scanThrough(realScandir64, SIM_IS_PRODUCT("scandir64"), path, list, filter, compare);
}

extern "C" int simChdir(const char *path)
{
    followDescription();
    return realChdir(Translated(path).c_str());
}

extern "C" char *simGetcwd(char *to, size_t size)
{
    return visibleDirectory(realGetcwd(to, size));
}

extern "C" char *simGetcwdChk(char *to, size_t size, size_t room)
{
    return visibleDirectory(realGetcwdChk(to, size, room));
}
