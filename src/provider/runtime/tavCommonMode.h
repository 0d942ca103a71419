// What every store and handler function is handed first, and the two questions about the process's mode.
#pragma once

#include <cmpift.h>

#include <atomic>
#include <cstdint>
#include <pthread.h>

// Broker handle and invocation context of the current request or thread.
struct CInfo {
    const CMPIBroker *broker;
    const CMPIContext *context; // null where no call into the broker may be made: a cleanup's context is empty, and a
                                // call made with it takes the broker down
};

extern std::atomic<int32_t> g_srvmod; // cached service mode; -1 while it is not known

// The agent's installed service mode, 0 or 1, asked of the broker once and cached; any failure is 0 and not cached.
int getServiceMode(const CInfo *cInfo);

// 1 while the thread runs, else 0; clears *tid when the thread has gone. *tid is read and cleared atomically.
int getThreadSts(pthread_t *tid);
