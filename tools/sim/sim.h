// SPDX-License-Identifier: Apache-2.0
// The simulated machine: the process's view of /sys, /proc, /dev, /etc/tavkit and the agent's root, and the devices
// behind its device nodes. It stands below the C library's names, so the product knows nothing of it.
//
// A program that links the interposing library (or is started with it preloaded) sees the real machine until a Machine
// is made; then the paths above lead into a directory of the machine's own, and ioctl and uname are answered by its
// model. A path under those roots that the machine does not have does not exist. An ioctl that the model does not know
// fails with ENOTTY and is counted in unknownIoctls().
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace sim {

// One ioctl or SCSI command that reached a device, for tests of what is on the wire.
struct Command {
    std::string device;         // "/dev/sda"
    unsigned long request;      // ioctl number, SG_IO and the like
    std::vector<uint8_t> bytes; // CDB of SG_IO and SCSI_IOCTL_SEND_COMMAND; the argument block of the HDIO commands
};

class Machine {
public:
    // Lays a machine out from its description (docs/SIMULATOR.md) in a fresh temporary directory.
    // Throws std::runtime_error naming what is wrong with a description.
    // With a state directory, the agent's data and work are kept there: they outlive the machine.
    explicit Machine(const std::string &json, const std::string &stateDirectory = "");
    static std::string readFile(const std::string &path); // text of a description, for the constructor
    ~Machine();                                           // the real machine is seen again; the directory is removed
    Machine(const Machine &) = delete;
    Machine &operator=(const Machine &) = delete;

    // Hot-plug: the machine becomes what the new description says. Files of the agent's root that it does not name
    // stay.
    void change(const std::string &json);

    // Where a path of the machine really lies.
    std::string where(std::string_view path) const;
    void write(std::string_view path, std::string_view content); // with its directories
    std::string read(std::string_view path) const;               // "" when absent
    bool exists(std::string_view path) const;
    void remove(std::string_view path); // also a whole directory
    void makeDirectory(std::string_view path);
    void link(std::string_view path, std::string_view target);

    // What reached the devices since the last forget, in order.
    std::vector<Command> commands() const;
    void forgetCommands();
    unsigned unknownIoctls() const;
    // Whether SMART (ATA) or informational exceptions (SCSI) are switched on in the device behind a node ("/dev/sda"),
    // as commands have left it; false too when there is no such device or it knows neither. Asks without a command.
    bool smartSwitchedOn(std::string_view node) const;
    // Descriptors and streams that are open on paths of the machine.
    int openDescriptors() const;
};

// A path to which another one leads, with everything below it and beside it under the same name and an extension: from
// "/a/b" also "/a/b/c" and "/a/b.tmp".
struct Redirection {
    std::string from; // absolute, as the product spells it
    std::string to;
};

// Replaces the redirections of the process, which apply on the real and on a simulated machine alike; none at first.
// To be called while the process has one thread.
void redirect(std::vector<Redirection> redirections);

// Kinds of call that can be made to fail, counted only when the caller is the product.
enum class Call {
    allocate, // malloc, calloc, realloc, strdup
    open,     // open, fopen
    read,     // read, fread, fgets
    write,    // write, fwrite, fflush, fsync, rename
    list,     // scandir, opendir
    stat,     // stat, lstat, readlink
    ioctl,
    segment, // shmget, shmat, shmdt, shmctl, ftok
    uname,
    cancelPoint, // pthread_testcancel, and the sleeps; cannot fail
    count
};

// Which code is the product: calls from other code (the tests', the broker's) are neither counted nor failed. The
// shared object of that base name, or the program itself by its name; by default "libTAVStorageProvider.so". The empty
// name counts every caller but the C and C++ runtime; operator new then is nobody's (tests use it, the product does
// not).
void countCallsOf(const std::string &sharedObject);

// The nth call of a kind from now (1-based) fails with an error of its own kind (ENOMEM, EIO, ...); 0 disarms.
void failNth(Call kind, unsigned nth);
// False in builds with sanitizers, which keep the allocator: Call::allocate then never strikes and no block is counted.
bool allocationsCanFail();
// Whether the armed failure has struck.
bool failureStruck();
// Calls of a kind since the last reset.
unsigned callsMade(Call kind);
void resetCounts();

// Runs act at the product's nth call of a kind from now (1-based): in the thread that makes it, which cannot be
// cancelled meanwhile, and before the call. One act at a time; 0 disarms.
void atNth(Call kind, unsigned nth, std::function<void()> act);
// Cancellations of threads that the product has asked for; counted when they are pending.
unsigned cancelsRequested();

// Blocks that the product allocated and did not free, and descriptors that it opened and did not close.
int64_t liveBlocks();
int64_t liveDescriptors();
// Shared-memory segments that the product created and that were not removed.
int64_t liveSegments();

// Sleeps of the product (sleep, usleep, nanosleep) take no time while set, and are summed up.
void skipSleeps(bool skip);
double sleptSeconds();
// The product's calls of usleep, by which it waits for locks, last only so manieth a part; 1: as they are.
void shortenSleeps(unsigned times);

// While set, the product's calls of sleep (not usleep and the like) last until they are woken or cancelled, however
// long they were to be: a test steps a thread that works and sleeps in turn.
void holdSleeps(bool hold); // false wakes all; either way sleepsBegun counts from 0
void wakeSleepers();        // those that sleep now
unsigned sleepsBegun();
unsigned sleepers(); // that sleep now
// Waits until so many have begun; false when they have not after so many seconds.
bool awaitSleep(unsigned number, double seconds);

// CPU time in seconds that the calling thread spent inside the simulated machine while it was being measured: to be
// taken off in benchmarks. Measuring costs time itself (some 0.5 us per call) and is off at first.
void measureOwnCpu(bool on);
double ownCpuSeconds();
double ownCpuSecondsOfProcess(); // of all its threads together

} // namespace sim
