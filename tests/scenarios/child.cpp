// SPDX-License-Identifier: Apache-2.0
#include "scenarios/child.h"

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <ctime>
#include <gtest/gtest.h>
#include <stdexcept>
#include <sys/ipc.h>
#include <sys/shm.h>
#include <sys/wait.h>
#include <unistd.h>

namespace scenario {

Child::Child(const std::function<void()> &work)
{
    std::fflush(nullptr);
    pid_ = ::fork();
    if (pid_ < 0) {
        throw std::runtime_error("no process can be made");
    }
    if (pid_ == 0) {
        work();
        std::fflush(nullptr);
        ::_exit(testing::Test::HasFailure() ? 1 : 0);
    }
}

Child::~Child()
{
    if (!ended_) {
        kill();
        wait();
    }
}

void Child::kill() const
{
    ::kill(pid_, SIGKILL);
}

int Child::wait()
{
    int status = 0;
    while (::waitpid(pid_, &status, 0) < 0 && errno == EINTR) {
    }
    ended_ = true;
    return WIFSIGNALED(status) ? 128 + WTERMSIG(status) : WEXITSTATUS(status);
}

namespace {

// Segments that are older belong to a killed process that had the same identifier once.
const std::time_t begun = std::time(nullptr);

} // namespace

std::vector<SegmentOf> segmentsOf(pid_t pid)
{
    struct shm_info info = {};
    const int last = ::shmctl(0, SHM_INFO, reinterpret_cast<struct shmid_ds *>(&info));
    std::vector<SegmentOf> found;
    for (int i = 0; i <= last; ++i) {
        struct shmid_ds segment = {};
        const int id = ::shmctl(i, SHM_STAT, &segment);
        if (id >= 0 && segment.shm_cpid == pid && segment.shm_ctime >= begun &&
            (segment.shm_perm.mode & SHM_DEST) == 0) {
            found.push_back({id, static_cast<unsigned>(segment.shm_perm.__key), segment.shm_segsz});
        }
    }
    return found;
}

void removeSegmentsOf(pid_t pid)
{
    for (const SegmentOf &segment : segmentsOf(pid)) {
        ::shmctl(segment.id, IPC_RMID, nullptr);
    }
}

} // namespace scenario
