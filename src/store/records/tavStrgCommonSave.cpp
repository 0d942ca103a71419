// Saving so that a crash, a full disk or a power failure leaves either the old file or the new one, never a part of
// one.
#include "provider/runtime/tavCommonHolders.h"
#include "provider/runtime/tavCommonTrace.h"
#include "store/records/tavStrgCommonStore.h"

#include <cerrno>
#include <fcntl.h>
#include <mutex>
#include <string_view>
#include <sys/stat.h>

namespace {

constexpr char kDirectory[] = "/opt/qlm/tavkit_sa/data";
constexpr char kTemporaryFile[] = "/opt/qlm/tavkit_sa/data/tavstrgsave.dat.tmp"; // one left by a crash is overwritten
static_assert(std::string_view(kTemporaryFile).starts_with(kSavedStateFile));
static_assert(std::string_view(kSavedStateFile).starts_with(kDirectory));

constexpr mode_t kOwnerOnly = S_IRUSR | S_IWUSR;

std::mutex saving; // in service mode a request and the monitoring thread may save at the same moment

// What renaming over the path would meet: 0 for nothing, a file, or a symbolic link, which is replaced and not
// followed; else the error that opening it for writing gives.
int replaceError(const char *path)
{
    struct stat info = {};
    if (::lstat(path, &info) != 0) {
        return errno == ENOENT ? 0 : errno;
    }
    if (S_ISREG(info.st_mode) || S_ISLNK(info.st_mode)) {
        return 0;
    }
    return S_ISDIR(info.st_mode) ? EISDIR : ENXIO;
}

// The stream over an open descriptor of a regular file; null with errno otherwise. Takes the descriptor over.
std::FILE *streamOver(FileDesc &file)
{
    struct stat info = {};
    if (!file || ::fstat(file.get(), &info) != 0) {
        return nullptr;
    }
    if (!S_ISREG(info.st_mode)) {
        errno = ENXIO;
        return nullptr;
    }
    std::FILE *const stream = ::fdopen(file.get(), "wb");
    if (stream != nullptr) {
        static_cast<void>(file.handOver());
    }
    return stream;
}

std::FILE *openTemporary(int &error)
{
    error = replaceError(kSavedStateFile);
    if (error != 0) {
        return nullptr;
    }
    // O_NONBLOCK: a FIFO in place of the file is an error, not a wait for its reader.
    FileDesc file(::open(kTemporaryFile, O_WRONLY | O_CREAT | O_TRUNC | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC,
                         kOwnerOnly));
    std::FILE *const stream = streamOver(file);
    error = stream == nullptr ? errno : 0;
    return stream;
}

// The name is on the disk only when its directory is. The new file stands already, so a failure changes nothing.
void syncDirectory()
{
    const FileDesc directory(::open(kDirectory, O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (directory) {
        static_cast<void>(::fsync(directory.get()));
    }
}

} // namespace

SaveResult strgSaveBinFile(DatInfo *records, int &error, const char *function)
{
    const std::lock_guard held(saving);
    TRACE_AS(function, kDetail, "fopen[%s]", kSavedStateFile);
    FilePtr file(openTemporary(error));
    if (!file) {
        return SaveResult::notOpened;
    }
    TRACE_AS(function, kDetail, "strgPutBinFile()");
    const bool written =
        strgPutBinFile(file.get(), records) == 0 && std::fflush(file.get()) == 0 && ::fsync(::fileno(file.get())) == 0;
    TRACE_AS(function, kDetail, "fclose");
    if (file.close() != 0 || !written || ::rename(kTemporaryFile, kSavedStateFile) != 0) {
        ::unlink(kTemporaryFile);
        return SaveResult::notWritten;
    }
    syncDirectory();
    return SaveResult::saved;
}
