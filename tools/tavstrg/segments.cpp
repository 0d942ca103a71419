// SPDX-License-Identifier: Apache-2.0
#include "tavstrg/segments.h"

#include "tavstrg/words.h"

#include "records/records.h"
#include "store/store.h"

#include <sys/ipc.h>
#include <sys/shm.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string_view>

using namespace tavstrg;

namespace tool {
namespace {

constexpr int kProjectId = 69;  // of the provider's keys, ftok(3)
constexpr time_t kRounding = 2; // seconds by which the kernel's times of a start and of a segment may differ

std::string firstLineOf(const std::string &path)
{
    std::ifstream file(path);
    std::string line;
    std::getline(file, line);
    return line;
}

time_t bootTime()
{
    std::ifstream statistics("/proc/stat");
    time_t boot = 0;
    for (std::string word; boot == 0 && statistics >> word;) {
        if (word == "btime") {
            statistics >> boot;
        }
    }
    return boot;
}

// Whether the process that made a segment still runs, rather than another one that got its identifier since. A process
// whose data cannot be read counts as running.
bool creatorRuns(const Segment &segment)
{
    if (segment.creator <= 0 || (kill(segment.creator, 0) != 0 && errno == ESRCH)) {
        return false;
    }
    const std::string line = firstLineOf("/proc/" + std::to_string(segment.creator) + "/stat");
    std::istringstream fields(line.substr(std::min(line.size(), line.rfind(')') + 1))); // the name may contain blanks
    std::string state;
    std::string field;
    if (!(fields >> state)) {
        return true;
    }
    constexpr int kStartTime = 22 - 3; // proc(5): field 22, in clock ticks since the boot
    for (int i = 0; i < kStartTime; ++i) {
        fields >> field;
    }
    const auto begin =
        bootTime() + static_cast<time_t>(std::strtoull(field.c_str(), nullptr, 10)) / sysconf(_SC_CLK_TCK);
    return state != "Z" && state != "X" && begin <= segment.made + kRounding; // zombies run no more
}

// ftok(3) puts the low byte of the device number into the key's third byte.
bool onSameDevice(int key, int other)
{
    return ((static_cast<unsigned>(key) ^ static_cast<unsigned>(other)) & 0xffff0000U) == 0;
}

} // namespace

std::vector<Segment> segments()
{
    std::ifstream table("/proc/sysvipc/shm");
    std::vector<Segment> all;
    std::string line;
    std::getline(table, line); // key shmid perms size cpid lpid nattch uid gid cuid cgid atime dtime ctime ...
    while (std::getline(table, line)) {
        std::istringstream fields(line);
        Segment segment;
        std::string skipped;
        fields >> segment.key >> segment.id >> skipped >> segment.size >> segment.creator;
        for (int i = 0; i < 8; ++i) {
            fields >> skipped;
        }
        if (fields >> segment.made) {
            all.push_back(segment);
        }
    }
    return all;
}

void removeSegmentsOf(pid_t creator, time_t since)
{
    for (const Segment &segment : segments()) {
        if (segment.creator == creator && segment.made >= since) {
            shmctl(segment.id, IPC_RMID, nullptr);
        }
    }
}

std::optional<Monitor> runningMonitor(const std::string &workDirectory, bool anyKeyFile)
{
    const std::string base = std::filesystem::path(kShmKeyFileBase).filename().string();
    const int key = ftok((workDirectory + "/" + base + std::to_string(TAV_CID_STRG_CONF)).c_str(), kProjectId);
    if (key == -1) {
        return std::nullopt;
    }
    for (const Segment &segment : segments()) {
        const bool its = segment.key == key || (anyKeyFile && onSameDevice(segment.key, key));
        if (its && segment.size == sizeof(StrgConfRec) && creatorRuns(segment)) {
            return Monitor{segment.creator,
                           printable(firstLineOf("/proc/" + std::to_string(segment.creator) + "/comm"))};
        }
    }
    return std::nullopt;
}

} // namespace tool
