// SPDX-License-Identifier: Apache-2.0
#include "tavstrg/monitor/pass_process.h"

#include "disks/identity/identity.h"
#include "runtime/field_text.h"
#include "runtime/whole.h"

#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <utility>

namespace tool::monitor {
namespace {

using tavstrg::disks::Array;
using tavstrg::disks::Disk;
using tavstrg::disks::FindResult;
using tavstrg::disks::HealthState;
using tavstrg::disks::Pass;
using tavstrg::disks::PassLimits;

constexpr char kDeadlineSource[] = "deadline"; // as the pass has it

// What the process sends, before the disks.
struct Head {
    FindResult result;
    int32_t count;
};

bool isOneOf(const std::vector<std::string> &names, const Disk &disk)
{
    return std::find(names.begin(), names.end(), disk.name) != names.end();
}

bool append(Array<Disk> &disks, const Disk &disk)
{
    Disk *const to = disks.append();
    if (to != nullptr) {
        *to = disk;
    }
    return to != nullptr;
}

// Asks all disks but those that are left alone, which stay in their places.
bool askAllBut(const std::vector<std::string> &leftAlone, PassProcess::LimitsOf limitsOf, Array<Disk> &disks)
{
    Array<Disk> asked;
    for (const Disk &disk : disks) {
        if (!isOneOf(leftAlone, disk) && !append(asked, disk)) {
            return false;
        }
    }
    if (!Pass().run(asked, limitsOf(asked.count()))) {
        return false;
    }
    const Disk *next = asked.begin();
    for (Disk &disk : disks) {
        if (isOneOf(leftAlone, disk)) {
            setHealth(disk.health, HealthState::unreadable, kDeadlineSource, "its last command has not returned");
        } else {
            disk = *next++;
        }
    }
    return nameAskedDisks(disks);
}

[[noreturn]] void passAndExit(const std::vector<std::string> &leftAlone, PassProcess::LimitsOf limitsOf, int pipe)
{
    Array<Disk> disks;
    Head head{findDisks(disks), 0};
    if (!askAllBut(leftAlone, limitsOf, disks)) {
        head.result = FindResult::noMemory;
        disks.clear();
    }
    head.count = disks.count();
    const int error = tavstrg::writeWhole(pipe, {reinterpret_cast<const char *>(&head), sizeof head});
    const size_t size = static_cast<size_t>(head.count) * sizeof(Disk);
    if (error == 0 && size != 0) {
        static_cast<void>(tavstrg::writeWhole(pipe, {reinterpret_cast<const char *>(disks.begin()), size}));
    }
    _exit(0); // as it is: nothing of the service's is to be done twice
}

bool hasHung(const Disk &disk)
{
    return disk.health.state == HealthState::unreadable && std::strcmp(disk.health.source, kDeadlineSource) == 0;
}

} // namespace

PassLimits passLimits(int32_t disks)
{
    constexpr int64_t kLeastMs = 45000; // three disks that hang
    constexpr int64_t kPerDiskMs = 1000;
    constexpr int64_t kMostMs = 300000;
    return {.wholeMs = static_cast<uint32_t>(std::min(kLeastMs + kPerDiskMs * disks, kMostMs))};
}

PassProcess::~PassProcess()
{
    abandon();
    for (const Lingering &one : lingering_) {
        kill(one.process, SIGKILL);
        waitpid(one.process, nullptr, WNOHANG);
    }
}

int PassProcess::start(int lock)
{
    reap();
    if (lingering_.size() >= mostLingering_) {
        return EBUSY;
    }
    std::vector<std::string> leftAlone;
    for (const Lingering &one : lingering_) {
        leftAlone.insert(leftAlone.end(), one.names.begin(), one.names.end());
    }
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) {
        return errno;
    }
    const pid_t parent = getpid();
    process_ = fork();
    const int error = process_ < 0 ? errno : 0;
    if (process_ == 0) {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        close(ends[0]);
        close(lock);
        if (getppid() != parent) {
            _exit(1);
        }
        passAndExit(leftAlone, limitsOf_, ends[1]);
    }
    close(ends[1]);
    if (error != 0) {
        close(ends[0]);
        return error;
    }
    pipe_ = ends[0];
    fcntl(pipe_, F_SETFL, O_NONBLOCK);
    bytes_.assign(sizeof(Head), 0);
    taken_ = 0;
    disks_.clear();
    return 0;
}

PassProcess::Progress PassProcess::finish(Progress progress)
{
    Lingering lingering{std::exchange(process_, -1), {}};
    for (const Disk &disk : disks_) {
        if (hasHung(disk)) {
            lingering.names.emplace_back(disk.name);
        }
    }
    lingering_.push_back(std::move(lingering));
    close(std::exchange(pipe_, -1));
    std::vector<char>().swap(bytes_);
    reap();
    return progress;
}

// Deliberate: the number of bytes and not the end of the pipe says that all is there. A thread that hangs in the kernel
// keeps the pipe open though its process was killed.
PassProcess::Progress PassProcess::take()
{
    for (;;) {
        const ssize_t got = read(pipe_, bytes_.data() + taken_, bytes_.size() - taken_);
        if (got < 0 && errno == EINTR) {
            continue;
        }
        if (got < 0 && errno == EAGAIN) {
            return Progress::running;
        }
        if (got <= 0) {
            return finish(Progress::failed);
        }
        taken_ += static_cast<size_t>(got);
        if (taken_ < bytes_.size()) {
            continue;
        }
        Head head{};
        std::memcpy(&head, bytes_.data(), sizeof head);
        bytes_.resize(sizeof head + static_cast<size_t>(head.count) * sizeof(Disk));
        if (taken_ < bytes_.size()) {
            continue;
        }
        result_ = head.result;
        for (int32_t i = 0; i < head.count; ++i) {
            Disk *const disk = disks_.append();
            if (disk == nullptr) {
                return finish(Progress::failed);
            }
            std::memcpy(disk, bytes_.data() + sizeof head + static_cast<size_t>(i) * sizeof(Disk), sizeof(Disk));
        }
        const bool usable = result_ == FindResult::done || result_ == FindResult::tooMany;
        return finish(usable ? Progress::done : Progress::failed);
    }
}

void PassProcess::abandon()
{
    if (pipe_ >= 0) {
        kill(process_, SIGKILL);
        disks_.clear();
        static_cast<void>(finish(Progress::failed));
    }
}

void PassProcess::reap()
{
    std::erase_if(lingering_, [](const Lingering &one) { return waitpid(one.process, nullptr, WNOHANG) != 0; });
}

} // namespace tool::monitor
