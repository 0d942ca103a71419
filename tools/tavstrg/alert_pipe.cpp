// SPDX-License-Identifier: Apache-2.0
#include "tavstrg/alert_pipe.h"

#include "tavstrg/failure.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>

namespace tool {

AlertPipe::AlertPipe()
{
    if (pipe2(ends_, O_CLOEXEC | O_NONBLOCK) != 0) {
        throw Failure(std::string("no pipe for the alerts: ") + std::strerror(errno));
    }
    // The process's own view of its descriptors stays real on a simulated machine.
    setenv("TAVALERT_FILE", ("/proc/self/fd/" + std::to_string(ends_[1])).c_str(), 1);
    setenv("TAVALERT_QUIET", "1", 1);
}

AlertPipe::~AlertPipe()
{
    unsetenv("TAVALERT_FILE");
    for (const int end : ends_) {
        close(end);
    }
}

std::vector<std::string> AlertPipe::lines()
{
    char buffer[4096];
    ssize_t count = 0;
    while ((count = read(ends_[0], buffer, sizeof buffer)) > 0 || (count < 0 && errno == EINTR)) {
        begun_.append(buffer, count > 0 ? static_cast<size_t>(count) : 0);
    }
    std::vector<std::string> whole;
    size_t start = 0;
    for (size_t end = begun_.find('\n'); end != std::string::npos; end = begun_.find('\n', start)) {
        whole.push_back(begun_.substr(start, end - start));
        start = end + 1;
    }
    begun_.erase(0, start);
    return whole;
}

} // namespace tool
