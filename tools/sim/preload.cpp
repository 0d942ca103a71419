// SPDX-License-Identifier: Apache-2.0
// The machine of a process that knows nothing of it: made when this library is loaded with TAVSIM_MACHINE set, and
// following its description file from then on.
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
#include <mutex>
#include <string>
#include <sys/stat.h>
#include <unistd.h>

// A program that links this library may define this name: it then decides itself what TAVSIM_MACHINE means to it, and
// no machine is made for it when the library is loaded.
extern "C" [[gnu::weak, gnu::visibility("default")]] const bool tavsimLeavesEnvironment;

namespace sim {

namespace {

struct Followed {
    std::string path;
    pid_t owner = 0; // the process that removes the directory: a forked child does not
    struct stat seen {};
    bool complained = false;
    std::mutex following;
};

constinit std::atomic<Followed *> followed{nullptr};
constinit std::atomic<int64_t> nextLook{0}; // monotonic time, nanoseconds

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

void complain(const std::string &path, const char *what)
{
    std::fprintf(stderr, "tavsim: %s: %s\n", path.c_str(), what);
}

// A damaged description leaves the machine as it was, and is told once.
void look(Followed &file)
{
    struct stat status {};
    if (stat(file.path.c_str(), &status) != 0 || isUnchanged(status, file.seen)) {
        return;
    }
    file.seen = status;
    MachineState &machine = *currentMachine();
    try {
        rebuild(machine, parseDescription(Machine::readFile(file.path), machine.description.devices));
        file.complained = false;
    } catch (const std::exception &error) {
        if (!file.complained) {
            complain(file.path, error.what());
        }
        file.complained = true;
    }
}

void makeMachine(const char *path)
{
    const char *state = std::getenv("TAVSIM_STATE");
    auto *file = new Followed;
    file->path = path;
    file->owner = getpid();
    stat(path, &file->seen);
    Description description = parseDescription(Machine::readFile(path));
    auto *machine = new MachineState(state != nullptr ? state : "");
    machine->logging = false; // nobody reads it
    rebuild(*machine, std::move(description));
    setCurrentMachine(machine);
    followed = file;
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
        makeMachine(path);
        machineIsReported();
    } catch (const std::exception &error) {
        complain(path, error.what());
        _exit(2); // a program that was to see a machine must not see the real one
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
    constexpr int64_t kBetweenLooks = 50 * 1000000LL;
    const int64_t time = now();
    int64_t next = nextLook.load(std::memory_order_relaxed);
    if (time < next || !nextLook.compare_exchange_strong(next, time + kBetweenLooks)) {
        return;
    }
    const int saved = errno;
    {
        const Inside inside;
        const OwnTime own;
        if (const std::unique_lock held(file->following, std::try_to_lock); held.owns_lock()) {
            look(*file);
        }
    }
    errno = saved;
}

} // namespace sim
