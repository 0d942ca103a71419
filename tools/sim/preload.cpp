// SPDX-License-Identifier: Apache-2.0
// The machine of a preloaded process: made when this library is loaded with TAVSIM_MACHINE set. It follows changes of
// its description file.
#include "sim/paths.h"
#include "sim/report.h"
#include "sim/state.h"
#include "sim/thread.h"

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <exception>
#include <memory>
#include <mutex>
#include <string>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <unistd.h>

// A program that links this library may define this name: it then decides itself what TAVSIM_MACHINE means to it, and
// no machine is made for it when the library is loaded.
extern "C" [[gnu::weak, gnu::visibility("default")]] const bool tavsimLeavesEnvironment;

namespace sim {

namespace {

struct Followed {
    std::string path;
    pid_t owner = 0; // the process that removes the directory; a forked child does not
    struct stat seen {};
    bool reported = false;
    int watch = -1; // inotify of its directory; -1: none yet
    std::mutex following;
};

constinit std::atomic<Followed *> followed{nullptr};
constinit std::atomic<int64_t> nextCheck{0}; // monotonic time, nanoseconds

int64_t now()
{
    timespec time{};
    clock_gettime(CLOCK_MONOTONIC_COARSE, &time);
    return time.tv_sec * 1000000000LL + time.tv_nsec;
}

bool isUnchanged(const struct stat &a, const struct stat &b)
{
    return a.st_mtim.tv_sec == b.st_mtim.tv_sec && a.st_mtim.tv_nsec == b.st_mtim.tv_nsec && a.st_size == b.st_size &&
           a.st_ino == b.st_ino;
}

void printError(const std::string &path, const char *what)
{
    std::fprintf(stderr, "tavsim: %s: %s\n", path.c_str(), what);
}

// A description with a mistake leaves the machine as it was, and is reported once.
void followFile(Followed &file)
{
    struct stat status {};
    if (stat(file.path.c_str(), &status) != 0 || isUnchanged(status, file.seen)) {
        return;
    }
    file.seen = status;
    MachineState &machine = *currentMachine();
    try {
        rebuild(machine, parseDescription(Machine::readFile(file.path), machine.description.devices));
        file.reported = false;
    } catch (const std::exception &error) {
        if (!file.reported) {
            printError(file.path, error.what());
        }
        file.reported = true;
    }
}

void startMachine(const char *path)
{
    const char *state = std::getenv("TAVSIM_STATE");
    auto file = std::make_unique<Followed>();
    file->path = path;
    file->owner = getpid();
    stat(path, &file->seen);
    std::unique_ptr<MachineState> machine =
        makeMachine(parseDescription(Machine::readFile(path)), state != nullptr ? state : "");
    machine->logging = false;
    setCurrentMachine(std::move(machine));
    followed = file.release(); // followed until the process ends
}

[[gnu::constructor(200)]] void beginPreloaded()
{
    const char *path = std::getenv("TAVSIM_MACHINE");
    if (path == nullptr || *path == '\0' || &tavsimLeavesEnvironment != nullptr) {
        return;
    }
    const Inside inside;
    beginReport();
    const OwnTime own;
    try {
        startMachine(path);
        machineIsReported();
    } catch (const std::exception &error) {
        printError(path, error.what());
        _exit(2); // the program must not see the real machine instead
    }
}

[[gnu::destructor(200)]] void endPreloaded()
{
    const Followed *file = followed;
    if (file != nullptr && file->owner == getpid()) {
        const Inside inside;
        {
            const OwnTime own;
            currentMachine()->directory.remove();
        }
        endReport();
    }
}

} // namespace

void followDescription()
{
    Followed *file = followed.load(std::memory_order_acquire);
    if (file == nullptr || thisThread.inside != 0) {
        return;
    }
    constexpr int64_t kBetweenChecks = 50 * 1000000LL;
    const int64_t time = now();
    int64_t next = nextCheck.load(std::memory_order_relaxed);
    if (time < next || !nextCheck.compare_exchange_strong(next, time + kBetweenChecks)) {
        return;
    }
    const int saved = errno;
    {
        const Inside inside;
        const OwnTime own;
        if (const std::unique_lock held(file->following, std::try_to_lock); held.owns_lock()) {
            followFile(*file);
        }
    }
    errno = saved;
}

int descriptionWatch()
{
    Followed *file = followed.load(std::memory_order_acquire);
    if (file == nullptr || file->owner != getpid()) {
        return -1;
    }
    const Inside inside;
    const std::lock_guard held(file->following);
    if (file->watch < 0) {
        const size_t slash = file->path.rfind('/');
        const std::string directory = slash == std::string::npos ? "." : file->path.substr(0, slash + 1);
        file->watch = inotify_init1(IN_CLOEXEC | IN_NONBLOCK);
        inotify_add_watch(file->watch, directory.c_str(), IN_CLOSE_WRITE | IN_MOVED_TO);
        followFile(*file); // what has changed before the watch began
    }
    return file->watch;
}

void descriptionChanged()
{
    Followed *file = followed.load(std::memory_order_acquire);
    const Inside inside;
    const OwnTime own;
    const std::lock_guard held(file->following);
    char events[4096];
    while (read(file->watch, events, sizeof events) > 0) {
    }
    followFile(*file);
}

} // namespace sim
