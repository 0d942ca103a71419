// The simulated machine: the process's view of /sys, /proc, /dev, /etc/tavkit and the agent's root, and the devices
// behind its device nodes. It stands below the C library's names, so the product knows nothing of it.
//
// A program that links the interposing library (or is started with it preloaded) sees the real machine until a Machine
// is made; then the paths above lead into a directory of the machine's own, and ioctl and uname are answered by its
// model. A path under those roots that the machine does not have does not exist. An ioctl that the model does not know
// fails with ENOTTY and is counted in unknownIoctls().
#pragma once

#include <cstdint>
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
    // Lays a machine out from its description (tools/sim/README.md) in a fresh temporary directory.
    // Throws std::runtime_error naming what is wrong with a description.
    explicit Machine(const std::string &json);
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
    // Descriptors and streams that are open on paths of the machine.
    int openDescriptors() const;
};

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

// Blocks that the product allocated and did not free, and descriptors that it opened and did not close.
int64_t liveBlocks();
int64_t liveDescriptors();
// Shared-memory segments that the product created and that were not removed.
int64_t liveSegments();

// Sleeps of the product (sleep, usleep, nanosleep) take no time while set, and are summed up.
void skipSleeps(bool skip);
double sleptSeconds();

// CPU time in seconds that the calling thread spent inside the simulated machine while it was being measured: to be
// taken off in benchmarks. Measuring costs time itself (some 0.5 us per call) and is off at first.
void measureOwnCpu(bool on);
double ownCpuSeconds();

} // namespace sim
