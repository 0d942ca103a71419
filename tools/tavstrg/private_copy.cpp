// SPDX-License-Identifier: Apache-2.0
#include "tavstrg/private_copy.h"

#include "tavstrg/failure.h"
#include "tavstrg/saved_state.h"

#include "records/records.h"
#include "store/state_file_layout.h"
#include "store/store.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <system_error>

using namespace tavstrg;

namespace tool {
namespace {

namespace fs = std::filesystem;

constexpr const char *kNamePrefix = "tavstrg.";
constexpr time_t kOldEnough = 60; // seconds; a directory is locked within its first moments
constexpr size_t kLargestRead = size_t{64} << 20;

std::string parentDirectory()
{
    const char *chosen = std::getenv("TMPDIR");
    if (chosen != nullptr && *chosen != '\0') {
        return chosen;
    }
    return access("/dev/shm", W_OK | X_OK) == 0 ? "/dev/shm" : "/tmp";
}

// Only a directory of this user's is opened, so nothing waits and no link is followed.
bool isAbandoned(const std::string &path, int &descriptor)
{
    struct stat status {};
    if (lstat(path.c_str(), &status) != 0 || !S_ISDIR(status.st_mode) || status.st_uid != geteuid() ||
        status.st_mtime + kOldEnough > std::time(nullptr)) {
        return false;
    }
    descriptor = open(path.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
    return descriptor >= 0 && flock(descriptor, LOCK_EX | LOCK_NB) == 0;
}

// What tools that were killed left.
void removeAbandoned(const std::string &parent)
{
    std::error_code error;
    for (const auto &entry : fs::directory_iterator(parent, error)) {
        int descriptor = -1;
        if (entry.path().filename().string().starts_with(kNamePrefix) && isAbandoned(entry.path(), descriptor)) {
            fs::remove_all(entry.path(), error);
        }
        if (descriptor >= 0) {
            close(descriptor);
        }
    }
}

// As the provider opens it: a symbolic link counts as absent, and so does what is no regular file.
std::string savedState()
{
    const int descriptor = open(kSavedStateFile, O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
    if (descriptor < 0) {
        return "";
    }
    struct stat status {};
    std::string state;
    if (fstat(descriptor, &status) == 0 && S_ISREG(status.st_mode)) {
        char buffer[16384];
        for (ssize_t count = 0; state.size() < kLargestRead && (count = read(descriptor, buffer, sizeof buffer)) > 0;) {
            state.append(buffer, static_cast<size_t>(count));
        }
    }
    close(descriptor);
    return state;
}

} // namespace

std::string stateWithoutDevices(const std::string &state)
{
    StrgConfRec configuration = {60, 10, 3600, 60, 1, 0};
    const SavedState parsed = parseSavedState(state);
    if (parsed.damage.empty()) {
        std::memcpy(&configuration, state.data() + kVersionLineSize, sizeof configuration);
    }
    std::string fresh(TAV_DAT_STRG_VERNAME);
    fresh.append(reinterpret_cast<const char *>(&configuration), sizeof configuration);
    fresh.append(sizeof(StrgTnumRec), '\0');
    return fresh;
}

PrivateCopy::PrivateCopy() : directory_(parentDirectory())
{
    const std::string state = stateWithoutDevices(savedState());
    removeAbandoned(directory_);
    directory_ += std::string("/") + kNamePrefix + "XXXXXX";
    if (mkdtemp(directory_.data()) == nullptr) {
        throw Failure("cannot make " + directory_ + ": " + std::strerror(errno));
    }
    lock_ = open(directory_.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    flock(lock_, LOCK_EX | LOCK_NB);
    std::ofstream file(stateFile(), std::ios::binary);
    file << state;
    file.close();
    std::error_code error;
    if (!file || !fs::create_directory(workDirectory(), error)) {
        const std::string why = std::strerror(error ? error.value() : errno);
        fs::remove_all(directory_, error);
        throw Failure("cannot write in " + directory_ + ": " + why);
    }
}

PrivateCopy::~PrivateCopy()
{
    std::error_code ignored;
    fs::remove_all(directory_, ignored);
    if (lock_ >= 0) {
        close(lock_);
    }
}

std::string PrivateCopy::stateFile() const
{
    return directory_ + "/state";
}

std::string PrivateCopy::workDirectory() const
{
    return directory_ + "/work";
}

} // namespace tool
