// SPDX-License-Identifier: Apache-2.0
// The provider's trace, as the provider writes it in this process: the tool reads from it what no class publishes.
//
// The program takes the place of the agent's trace library: its own dlopen() gives the provider the program itself
// instead of libtavlog.so, whose lines then arrive here and go on to the agent's library, if there is one.
#pragma once

#include <functional>

namespace tool {

using TraceSink = std::function<void(int level, const char *function, const char *text)>;

// While one lives, each line of the trace also goes to the sink, one line at a time, from whichever thread writes it.
// The sink must not call the provider. At most one lives; it begins before the provider is loaded.
class TraceTap {
public:
    explicit TraceTap(TraceSink sink);
    ~TraceTap();
    TraceTap(const TraceTap &) = delete;
    TraceTap &operator=(const TraceTap &) = delete;
};

} // namespace tool
