// SPDX-License-Identifier: Apache-2.0
// The simulated machine: the process's view of /sys, /proc, /dev, /etc/tavkit and the agent's root, and the devices of
// its device nodes. It interposes functions of the C library; the product does not know of it.
//
// A program that links this library (or is started with it preloaded) sees the real machine until a Machine is made.
// Then these paths lead into the machine's own directory, and its model answers ioctl and uname. A path under these
// roots that the machine does not have does not exist. An unknown ioctl fails with ENOTTY and is counted in
// unknownIoctls().
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace sim {

// One ioctl or SCSI command that reached a device, for tests of the commands on the wire.
struct Command {
    std::string device;         // "/dev/sda"
    unsigned long request;      // ioctl number, such as SG_IO
    std::vector<uint8_t> bytes; // CDB of SG_IO and SCSI_IOCTL_SEND_COMMAND; the argument block of the HDIO commands
};

// An attempt to open a device node.
struct Opening {
    std::string node; // "/dev/sda"
    int flags;        // of open(); a stream's mode is given as O_RDONLY, O_WRONLY or O_RDWR
    int error;        // with which the description makes it fail, or 0
};

struct DiskPower {
    std::string condition; // "active", "idle", "standby", "sleep"
    unsigned spinUps = 0;  // how often it was woken from standby, sleep or runtime suspension
    unsigned resumes = 0;  // how often the kernel ended its runtime suspension
    bool suspended = false;
};

class Machine {
public:
    // Makes a machine from its description (docs/SIMULATOR.md) in a new temporary directory. Throws std::runtime_error
    // with the reason if the description is refused or cannot be written, leaving nothing behind.
    // With a state directory, the agent's data and work are kept there: they outlive the machine.
    explicit Machine(const std::string &json, const std::string &stateDirectory = "");
    // The text of a description file. Throws std::runtime_error if it cannot be read or checkDescription refuses it.
    static std::string readFile(const std::string &path);
    // Throws std::runtime_error if the text of a description is too long or nested too deeply. For callers that parse
    // it themselves before they hand it over: the bounds keep a JSON library from using up the stack.
    static void checkDescription(const std::string &text);
    static constexpr size_t kLongestDescription = size_t{32} << 20; // bytes; one of 10,000 devices has some 4 MB
    ~Machine(); // the process sees the real machine again; the directory is removed
    Machine(const Machine &) = delete;
    Machine &operator=(const Machine &) = delete;

    // Hot-plug: changes the machine to a new description. Files of the agent's root that it does not name stay. Throws
    // like the constructor; the machine is then unchanged.
    void change(const std::string &json);

    // The real path of a path of the machine.
    std::string where(std::string_view path) const;
    void write(std::string_view path, std::string_view content); // makes missing directories
    std::string read(std::string_view path) const;               // "" if absent
    bool exists(std::string_view path) const;
    void remove(std::string_view path); // a file or a whole directory
    void makeDirectory(std::string_view path);
    void link(std::string_view path, std::string_view target);

    // Requests that reached the devices since the last forgetCommands, in order.
    std::vector<Command> commands() const;
    void forgetCommands();
    // Attempts to open device nodes since the last forgetOpenings, in order.
    std::vector<Opening> openings() const;
    void forgetOpenings();
    unsigned unknownIoctls() const;
    // Whether SMART (ATA) or informational exceptions (SCSI) are enabled in the device of a node ("/dev/sda"). False
    // also if there is no such device or it supports neither. Sends no command.
    bool smartSwitchedOn(std::string_view node) const;
    // Of the disk of a node; all fields are empty if there is none. Sends no command.
    DiskPower power(std::string_view node) const;
    // The machine has a clock of its own, which only this advances (and "clock" of a description): timers of disks run
    // by it.
    void advanceClock(double seconds);
    // Programs of the machine read and write a disk, which wakes it: counted in its "stat".
    void useDisk(std::string_view node, unsigned reads, unsigned writes);

    // From now on every request to a device, and opening its nodes, hangs until it is released or removed, whatever the
    // command's own timeout.
    void hold(std::string_view node);
    // Ends what hangs on a device, also by a fault with "hang"; later requests meet that fault again.
    void release(std::string_view node);
    unsigned waiting(std::string_view node) const; // requests and openings that hang
    // Waits until at least that many hang. Returns false if they do not after the given seconds.
    bool awaitWaiting(std::string_view node, unsigned number, double seconds) const;

    // The kernel reports about the block device of a node ("sda"): "add", "remove", "change". See also sendUevent. A
    // change of the description reports the devices that it removes and adds.
    void uevent(const std::string &action, const std::string &node, unsigned times = 1);
    unsigned ueventListeners() const; // sockets that receive the kernel's events

    // Number of descriptors and streams open on paths of the machine.
    int openDescriptors() const;
};

struct UeventSender {
    uint32_t port = 0; // 0: the kernel; else a process
    uint32_t groups = 1;
    uint32_t user = 0;
};
// Sends a message to the netlink sockets for device events that listen to one of these groups. The text may have any
// bytes; the kernel's have "add@/devices/...", then "ACTION=add" and so on, each ended by a zero.
void sendUevent(std::string_view text, UeventSender sender = {});

// A path to which another one leads, with everything below it and beside it under the same name and an extension: from
// "/a/b" also "/a/b/c" and "/a/b.tmp".
struct Redirection {
    std::string from; // absolute, as the product spells it
    std::string to;
};

// Replaces the redirections of the process, which apply on the real and on a simulated machine alike; none at first.
// To be called while the process has one thread.
void redirect(std::vector<Redirection> redirections);

// Hears what the process does with device nodes, of a simulated machine and of the real one alike: each call after it
// has returned, in the thread that made it. error: errno value of a call that failed, else 0.
class DeviceListener {
public:
    virtual ~DeviceListener() = default;
    virtual void opened(const char *path, int descriptor, int error) = 0; // a path below /dev
    virtual void answered(int descriptor, unsigned long request, const void *argument, int result, int error) = 0;
};

// Sets the listener of the process; null: none, as at first. It must live on while another thread may be in a call.
void listen(DeviceListener *listener);

// Kinds of call of the product that are counted and can be made to fail.
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
    socket,      // socket, bind, setsockopt, recv, recvfrom, recvmsg
    thread,      // pthread_create
    cancelPoint, // pthread_testcancel, the sleeps, and poll; cannot fail
    count
};

// Sets which code is the product: calls from other code (tests, the broker) are neither counted nor made to fail. It is
// the shared object of that base name, or the program itself by its name; by default "libTAVStorageProvider.so". With
// the empty name all callers count but the C and C++ runtime; operator new then does not count (tests use it, the
// product does not).
void countCallsOf(const std::string &sharedObject);

// Makes the nth call of a kind from now on (1-based) fail with a suitable error (ENOMEM, EIO, ...); 0 disarms.
void failNth(Call kind, unsigned nth);
// False in builds with sanitizers, which have an allocator of their own: Call::allocate then never fails and no block
// is counted.
bool allocationsCanFail();
// Whether the call that failNth chose has been made.
bool failureStruck();
// Calls of a kind since the last reset.
unsigned callsMade(Call kind);
void resetCounts();

// Runs act before the product's nth call of a kind from now on (1-based), in the calling thread, with cancellation
// disabled. Only one act is armed at a time; 0 disarms.
void atNth(Call kind, unsigned nth, std::function<void()> act);
// Number of thread cancellations that the product has requested; counted once they are pending.
unsigned cancelsRequested();

// Blocks that the product allocated and has not freed, and descriptors that it opened and has not closed.
int64_t liveBlocks();
int64_t liveDescriptors();
// Shared-memory segments that the product created and that have not been removed.
int64_t liveSegments();

// While set, sleeps of the product (sleep, usleep, nanosleep, poll with a timeout) take no time and are summed up.
void skipSleeps(bool skip);
double sleptSeconds();
// Divides the duration of the product's calls of usleep, with which it waits for locks; 1: unchanged.
void shortenSleeps(unsigned times);

// While set, the product's calls of sleep (not usleep and nanosleep) last until they are woken or cancelled, whatever
// their argument, and so do its calls of poll and ppoll, unless a descriptor is ready or their timeout is 0. A test can
// so step a thread that works and sleeps in turn.
void holdSleeps(bool hold); // false wakes all; both reset sleepsBegun
void wakeSleepers();        // wakes the present sleepers
unsigned sleepsBegun();
unsigned sleepers(); // present sleepers
// Waits until that number of sleeps has begun. Returns false if it has not after the given seconds.
bool awaitSleep(unsigned number, double seconds);

// CPU time in seconds that the calling thread spent inside the simulated machine while it was measured, and for the
// measuring, for benchmarks to subtract. Measuring costs some 0.5 us per call, which is found out when it is switched
// on, and is off by default.
void measureOwnCpu(bool on);
double ownCpuSeconds();
double ownCpuSecondsOfProcess(); // of all threads

} // namespace sim
