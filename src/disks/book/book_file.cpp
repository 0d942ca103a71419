// SPDX-License-Identifier: Apache-2.0
#include "disks/book/book_file.h"

#include "runtime/field_text.h"
#include "runtime/holders.h"
#include "runtime/whole.h"
#include "store/replaced_file.h"

#include <cerrno>
#include <climits>
#include <cstdio>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace tavstrg::disks {
namespace {

constexpr int kOpenSafely = O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC;

int readAll(int fd, size_t size, Array<char> &text)
{
    for (size_t i = 0; i < size; ++i) {
        if (text.append() == nullptr) {
            return ENOMEM;
        }
    }
    const ssize_t got = readWhole(fd, {text.begin(), size});
    if (got < 0) {
        return errno;
    }
    text.shrink(static_cast<int32_t>(got));
    return 0;
}

BookRead moveAside(const char *path, const char *extension, BookRead result, int &error)
{
    char aside[PATH_MAX];
    const int length = std::snprintf(aside, sizeof aside, "%s.%s", path, extension);
    if (length >= static_cast<int>(sizeof aside)) {
        error = ENAMETOOLONG;
        return BookRead::failed;
    }
    if (::rename(path, aside) != 0) {
        error = errno;
        return BookRead::failed;
    }
    return result;
}

// The directory of a file, "." where its path has none. False for one that is too long.
bool directoryOf(std::string_view path, char (&directory)[PATH_MAX])
{
    const size_t slash = path.rfind('/');
    const std::string_view found = slash == std::string_view::npos ? "." : path.substr(0, slash + 1);
    copyText(directory, found);
    return found.size() < sizeof directory;
}

} // namespace

BookRead readBook(const char *path, Book &book, int &error)
{
    const FileDesc file(::open(path, O_RDONLY | kOpenSafely));
    error = file ? 0 : errno;
    if (error != 0) {
        return error == ENOENT ? BookRead::absent : BookRead::failed;
    }
    struct stat info = {};
    if (::fstat(file.get(), &info) != 0 || !S_ISREG(info.st_mode)) {
        error = EINVAL;
        return BookRead::failed;
    }
    Array<char> text;
    const bool tooLarge = static_cast<size_t>(info.st_size) > kMostBookBytes;
    error = tooLarge ? 0 : readAll(file.get(), static_cast<size_t>(info.st_size), text);
    if (error != 0) {
        return BookRead::failed;
    }
    switch (tooLarge ? BookState::damaged : parseBook({text.begin(), static_cast<size_t>(text.count())}, book)) {
    case BookState::whole:
        return BookRead::done;
    case BookState::newer:
        return moveAside(path, "newer", BookRead::movedNewer, error);
    case BookState::noMemory:
        error = ENOMEM;
        return BookRead::failed;
    case BookState::damaged:
        break;
    }
    return moveAside(path, "damaged", BookRead::movedAside, error);
}

int saveBook(const char *path, const Book &book)
{
    char temporary[PATH_MAX];
    if (std::snprintf(temporary, sizeof temporary, "%s.tmp", path) >= static_cast<int>(sizeof temporary)) {
        return ENAMETOOLONG;
    }
    char directory[PATH_MAX];
    if (!directoryOf(path, directory)) {
        return ENAMETOOLONG;
    }
    Array<char> text;
    if (!composeBook(book, text)) {
        return ENOMEM;
    }
    int error = 0;
    const FileDesc file(
        replaceText({path, temporary, directory}, {text.begin(), static_cast<size_t>(text.count())}, error));
    return error;
}

} // namespace tavstrg::disks
