// SPDX-License-Identifier: Apache-2.0
// Shows on a terminal that the disks are still being asked, if that takes long.
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <mutex>
#include <thread>

namespace tool {

// While it lives, one line that counts the seconds, after a first quiet time; erased at its end. Nothing is written if
// "terminal" is false.
class Progress {
public:
    static constexpr std::chrono::milliseconds kQuiet{1000};

    explicit Progress(bool terminal, std::FILE *out = stderr, std::chrono::milliseconds quiet = kQuiet);
    ~Progress();
    Progress(const Progress &) = delete;
    Progress &operator=(const Progress &) = delete;

private:
    void show(const std::stop_token &stop);

    std::FILE *out_;
    std::chrono::milliseconds quiet_;
    std::mutex mutex_;
    std::condition_variable_any ended_;
    std::jthread shower_; // the last member: it uses the others
};

} // namespace tool
