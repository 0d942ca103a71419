// SPDX-License-Identifier: Apache-2.0
#include "tavstrg/progress.h"

namespace tool {

Progress::Progress(bool terminal, std::FILE *out, std::chrono::milliseconds quiet) : out_(out), quiet_(quiet)
{
    if (terminal) {
        shower_ = std::jthread([this](const std::stop_token &stop) { show(stop); });
    }
}

Progress::~Progress()
{
    shower_.request_stop();
}

void Progress::show(const std::stop_token &stop)
{
    std::unique_lock lock(mutex_);
    const auto begun = std::chrono::steady_clock::now();
    bool shown = false;
    for (auto wait = quiet_; !ended_.wait_for(lock, stop, wait, [&stop] { return stop.stop_requested(); });
         wait = std::chrono::milliseconds(1000)) {
        const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(std::chrono::steady_clock::now() - begun);
        std::fprintf(out_, "\rAsking the disks, %d s ...", static_cast<int>(seconds.count()));
        std::fflush(out_);
        shown = true;
    }
    if (shown) {
        std::fputs("\r\x1b[K", out_); // erases the line (ECMA-48, EL)
        std::fflush(out_);
    }
}

} // namespace tool
