// SPDX-License-Identifier: Apache-2.0
#include "tavstrg/monitor/state_file.h"

#include "tavstrg/failure.h"

#include "runtime/whole.h"
#include "store/replaced_file.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

namespace tool::monitor {
namespace {

using tavstrg::FileDesc;

constexpr off_t kMostBytes = off_t{64} << 20;
constexpr mode_t kOwnerOnly = 0700;

int openDirectory(const std::string &path)
{
    constexpr int kFlags = O_RDONLY | O_DIRECTORY | O_CLOEXEC;
    const int there = ::open(path.c_str(), kFlags);
    if (there >= 0 || errno != ENOENT) {
        return there;
    }
    return ::mkdir(path.c_str(), kOwnerOnly) == 0 || errno == EEXIST ? ::open(path.c_str(), kFlags) : -1;
}

// Returns 0 or an errno.
int readText(const std::string &path, std::string &text)
{
    const FileDesc file(::open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
    struct stat info = {};
    if (!file || ::fstat(file.get(), &info) != 0) {
        return errno;
    }
    if (!S_ISREG(info.st_mode)) {
        return EINVAL;
    }
    if (info.st_size > kMostBytes) {
        return 0; // none of ours: damaged
    }
    text.resize(static_cast<size_t>(info.st_size));
    const ssize_t got = tavstrg::readWhole(file.get(), text);
    if (got < 0) {
        return errno;
    }
    text.resize(static_cast<size_t>(got));
    return 0;
}

std::string moveAside(const std::string &path, const char *extension, const char *what)
{
    const std::string aside = path + extension;
    if (std::rename(path.c_str(), aside.c_str()) != 0) {
        throw Failure(path + " " + what + ", and cannot be moved aside: " + std::strerror(errno));
    }
    return path + " " + what + "; it is " + aside + " now, and the disks are compared from now on";
}

} // namespace

StateDirectory::StateDirectory(const std::string &path) : lock_(openDirectory(path))
{
    if (!lock_) {
        throw Failure(path + ": " + std::strerror(errno));
    }
    if (::flock(lock_.get(), LOCK_EX | LOCK_NB) != 0) {
        throw Failure(path + ": " +
                      (errno == EWOULDBLOCK ? "another tavstrg monitor uses this directory" : std::strerror(errno)));
    }
}

std::string StateFile::read(State &state)
{
    std::string text;
    const int error = readText(path_, text);
    if (error == ENOENT) {
        return "";
    }
    if (error != 0) {
        throw Failure(path_ + ": " + (error == EINVAL ? "not a regular file" : std::strerror(error)));
    }
    switch (parseState(text, state)) {
    case StateRead::whole:
        return "";
    case StateRead::noMemory:
        throw Failure(path_ + ": not enough memory to read it");
    case StateRead::newer:
        state = State{};
        return moveAside(path_, ".newer", "is of a later version");
    case StateRead::damaged:
        break;
    }
    state = State{};
    return moveAside(path_, ".damaged", "was damaged");
}

int StateFile::save(const State &state)
{
    const StateText composed = composeState(state);
    if (composed.text.empty()) {
        return ENOMEM;
    }
    const std::string temporary = path_ + ".tmp";
    const std::string directory = path_.substr(0, path_.rfind('/') + 1);
    int error = 0;
    FileDesc file(tavstrg::replaceText({path_.c_str(), temporary.c_str(), directory.c_str()}, composed.text, error));
    if (file) {
        places_.clear();
        for (size_t i = 0; i < state.reports.size(); ++i) {
            places_.push_back({state.reports[i].number, composed.lettersAt[i]});
        }
        written_.emplace(file.handOver());
    }
    return error;
}

void StateFile::note(const Report &report) const
{
    for (const Place &place : places_) {
        if (place.number == report.number) {
            const std::string letters = lettersOf(report);
            static_cast<void>(
                ::pwrite(written_->get(), letters.data(), letters.size(), static_cast<off_t>(place.lettersAt)) < 0);
        }
    }
}

} // namespace tool::monitor
