#include "devcmd/tavStrgGetInfoDevice.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

int openDevice(const char *path, int mode)
{
    struct stat status {};
    if (path == nullptr) {
        errno = EFAULT;
        return -1;
    }
    // O_NONBLOCK would not wait for a FIFO either, but it also opens drives without a medium, which must fail.
    if (::stat(path, &status) == 0 && S_ISFIFO(status.st_mode)) {
        errno = ENODEV;
        return -1;
    }
    return ::open(path, mode | O_NOCTTY | O_CLOEXEC);
}

std::FILE *openProcText(const char *path)
{
    const int fd = ::open(path, O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
    if (fd < 0) {
        return nullptr;
    }
    struct stat status {};
    std::FILE *file = nullptr;
    if (::fstat(fd, &status) == 0) {
        errno = EINVAL;
        file = S_ISREG(status.st_mode) ? ::fdopen(fd, "r") : nullptr;
    }
    if (file == nullptr) {
        const int error = errno;
        ::close(fd);
        errno = error;
    }
    return file;
}

ErrorText::ErrorText(int error) : text_(::strerror_r(error, buffer_, sizeof buffer_)) {}
