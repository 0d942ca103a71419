// SPDX-License-Identifier: Apache-2.0
#include "support/process.h"

#include "tavstrg/pointers.h"

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/ioctl.h>
#include <sys/ipc.h>
#include <sys/resource.h>
#include <sys/shm.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <stdexcept>

namespace process {

namespace {

using Clock = std::chrono::steady_clock;

[[noreturn]] void fail(const std::string &what)
{
    throw std::runtime_error(what + ": " + std::strerror(errno));
}

// Both ends of a pipe or of a terminal; -1: closed.
struct Stream {
    int reader = -1;
    int writer = -1;

    Stream() = default;
    ~Stream()
    {
        shut(reader);
        shut(writer);
    }
    Stream(const Stream &) = delete;
    Stream &operator=(const Stream &) = delete;

    static void shut(int &end)
    {
        if (end >= 0) {
            ::close(end);
        }
        end = -1;
    }
    void makePipe()
    {
        int ends[2];
        if (::pipe2(ends, O_CLOEXEC) != 0) {
            fail("pipe");
        }
        reader = ends[0];
        writer = ends[1];
    }
    void makeTerminal(unsigned short columns)
    {
        reader = ::posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
        if (reader < 0 || ::grantpt(reader) != 0 || ::unlockpt(reader) != 0) {
            fail("terminal");
        }
        writer = ::open(::ptsname(reader), O_RDWR | O_NOCTTY | O_CLOEXEC);
        if (writer < 0) {
            fail(::ptsname(reader));
        }
        if (columns != 0) {
            const winsize size = {24, columns, 0, 0};
            ::ioctl(writer, TIOCSWINSZ, &size);
        }
    }
};

// What happens to the descriptors of a program before it starts.
class FileActions {
public:
    FileActions() { ::posix_spawn_file_actions_init(&actions_); }
    ~FileActions() { ::posix_spawn_file_actions_destroy(&actions_); }
    FileActions(const FileActions &) = delete;
    FileActions &operator=(const FileActions &) = delete;

    void open(int descriptor, const char *path, int flags)
    {
        ::posix_spawn_file_actions_addopen(&actions_, descriptor, path, flags, 0);
    }
    void direct(int descriptor, Output output, Stream &stream, unsigned short columns)
    {
        switch (output) {
        case Output::inherited:
            return;
        case Output::discarded:
            return open(descriptor, "/dev/null", O_WRONLY);
        case Output::full:
            return open(descriptor, "/dev/full", O_WRONLY);
        case Output::closed:
            ::posix_spawn_file_actions_addclose(&actions_, descriptor);
            return;
        case Output::terminal:
            stream.makeTerminal(columns);
            break;
        case Output::kept:
        case Output::unread:
            stream.makePipe();
        }
        if (output == Output::unread) {
            Stream::shut(stream.reader);
        }
        ::posix_spawn_file_actions_adddup2(&actions_, stream.writer, descriptor);
    }
    const posix_spawn_file_actions_t *get() const { return &actions_; }

private:
    posix_spawn_file_actions_t actions_;
};

std::vector<std::string> environmentWith(const std::vector<std::string> &entries)
{
    std::vector<std::string> all = entries;
    for (char **entry = environ; *entry != nullptr; ++entry) {
        const std::string own = *entry;
        const std::string name = own.substr(0, own.find('=') + 1);
        if (std::none_of(entries.begin(), entries.end(), [&](const auto &given) { return given.starts_with(name); })) {
            all.push_back(own);
        }
    }
    return all;
}

double seconds(const timeval &time)
{
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) * 1e-6;
}

double secondsSince(Clock::time_point start)
{
    return std::chrono::duration<double>(Clock::now() - start).count();
}

} // namespace

struct Process::Streams {
    Stream out;
    Stream err;
};

// posix_spawn and not fork: the child is not charged for copying the caller's address space.
Process::Process(const Command &command) : streams_(std::make_unique<Streams>()), start_(Clock::now())
{
    FileActions actions;
    actions.open(STDIN_FILENO, "/dev/null", O_RDONLY);
    actions.direct(STDOUT_FILENO, command.out, streams_->out, command.columns);
    actions.direct(STDERR_FILENO, command.err, streams_->err, command.columns);
    const std::vector<std::string> environment = environmentWith(command.environment);
    errno = ::posix_spawnp(&finished_.pid, command.words.at(0).c_str(), actions.get(), nullptr,
                           tool::pointersTo(command.words).data(), tool::pointersTo(environment).data());
    if (errno != 0) {
        fail("cannot run " + command.words[0]);
    }
    Stream::shut(streams_->out.writer);
    Stream::shut(streams_->err.writer);
}

Process::Process(const std::function<int()> &work) : streams_(std::make_unique<Streams>()), start_(Clock::now())
{
    std::fflush(nullptr); // or the child would write it a second time
    finished_.pid = ::fork();
    if (finished_.pid < 0) {
        fail("fork");
    }
    if (finished_.pid == 0) {
        const int status = work();
        std::fflush(nullptr);
        ::_exit(status);
    }
}

Process::~Process()
{
    if (!waited_) {
        send(SIGKILL);
        reap(true);
    }
}

void Process::send(int signal) const
{
    ::kill(finished_.pid, signal);
}

void Process::stopReading()
{
    Stream::shut(streams_->out.reader);
}

// Appends what has come to the two texts. Both are read in turn, so that neither pipe fills up and stops the program.
// Returns false when both have ended.
bool Process::readSome(int milliseconds)
{
    Stream *const streams[] = {&streams_->out, &streams_->err};
    std::string *const texts[] = {&finished_.out, &finished_.err};
    pollfd open[] = {{streams[0]->reader, POLLIN, 0}, {streams[1]->reader, POLLIN, 0}};
    if (open[0].fd < 0 && open[1].fd < 0) {
        return false;
    }
    if (::poll(open, 2, milliseconds) < 0) {
        return errno == EINTR;
    }
    for (int i = 0; i < 2; ++i) {
        if (open[i].fd < 0 || open[i].revents == 0) {
            continue;
        }
        char buffer[65536];
        const ssize_t count = ::read(open[i].fd, buffer, sizeof buffer);
        if (count > 0) {
            texts[i]->append(buffer, static_cast<size_t>(count));
        } else if (count == 0 || errno != EINTR) { // a terminal without a writer gives an error
            Stream::shut(streams[i]->reader);
        }
    }
    return streams[0]->reader >= 0 || streams[1]->reader >= 0;
}

bool Process::says(const std::string &text, std::chrono::milliseconds deadline)
{
    const auto said = [&] {
        return finished_.out.find(text) != std::string::npos || finished_.err.find(text) != std::string::npos;
    };
    const auto end = Clock::now() + deadline;
    while (!said() && Clock::now() < end) {
        if (!readSome(100)) {
            return said();
        }
    }
    return said();
}

bool Process::reap(bool block)
{
    int state = 0;
    rusage used{};
    pid_t ended = 0;
    do {
        ended = ::wait4(finished_.pid, &state, block ? 0 : WNOHANG, &used);
    } while (ended < 0 && errno == EINTR);
    if (ended == 0) {
        return false;
    }
    finished_.wallSeconds = secondsSince(start_);
    finished_.cpuSeconds = seconds(used.ru_utime) + seconds(used.ru_stime);
    finished_.peakKb = used.ru_maxrss;
    if (WIFEXITED(state)) {
        finished_.status = WEXITSTATUS(state);
    } else {
        finished_.signal = WTERMSIG(state);
    }
    waited_ = true;
    return true;
}

Finished Process::wait(std::chrono::milliseconds deadline)
{
    if (waited_) {
        return finished_;
    }
    const bool bounded = deadline != kNoDeadline;
    const auto end = Clock::now() + deadline;
    const auto passed = [&] { return bounded && Clock::now() >= end; };
    while (!passed() && readSome(bounded ? 100 : -1)) {
    }
    while (!reap(!bounded)) {
        if (passed()) {
            finished_.late = true;
            send(SIGKILL);
            reap(true);
            break;
        }
        ::poll(nullptr, 0, 1); // ms
    }
    return finished_;
}

Finished run(const Command &command, int signal)
{
    Process process(command);
    if (signal != 0) {
        process.send(signal);
    }
    return process.wait();
}

const std::time_t begun = std::time(nullptr);

std::vector<Segment> segmentsOf(pid_t creator, std::time_t since)
{
    struct shm_info info = {};
    const int last = ::shmctl(0, SHM_INFO, reinterpret_cast<struct shmid_ds *>(&info));
    std::vector<Segment> found;
    for (int i = 0; i <= last; ++i) {
        struct shmid_ds segment = {};
        const int id = ::shmctl(i, SHM_STAT, &segment);
        if (id >= 0 && segment.shm_cpid == creator && segment.shm_ctime >= since &&
            (segment.shm_perm.mode & SHM_DEST) == 0) {
            found.push_back({id, static_cast<unsigned>(segment.shm_perm.__key), segment.shm_segsz});
        }
    }
    return found;
}

void removeSegmentsOf(pid_t creator, std::time_t since)
{
    for (const Segment &segment : segmentsOf(creator, since)) {
        ::shmctl(segment.id, IPC_RMID, nullptr);
    }
}

} // namespace process
