// SPDX-License-Identifier: Apache-2.0
// The first argument of every store and handler function, and the process's mode: whether the agent runs as a service,
// and whether the monitoring thread runs.
#pragma once

#include <cmpift.h>

#include <atomic>
#include <cstdint>
#include <pthread.h>

// Broker handle and invocation context of the current request or thread.
struct CInfo {
    const CMPIBroker *broker;
    const CMPIContext *context; // null where no call into the broker may be made: a cleanup's context is empty, and a
                                // call made with it crashes the broker
};

extern std::atomic<int32_t> g_srvmod; // cached service mode; -1 while it is not known

// The agent's installed service mode, 0 or 1. The broker is asked once and its answer cached; NULL is cached as 0.
// Returns 0 after any failure, which is not cached.
int getServiceMode(const CInfo *cInfo);

// 1 while the thread runs, else 0; clears *tid when the thread has gone.
//
// Current C libraries still find a thread that ended and was not joined, so the thread sets a mark at its end. The
// first caller that sees the mark joins the thread. *tid is read and written under the same lock, by the functions here
// only.
int getThreadSts(pthread_t *tid);

namespace tavstrg {

// A thread's identifier in traces: its low 32 bits.
inline int tracedId(pthread_t tid)
{
    return static_cast<int>(tid);
}

// The identifier as it is at this moment, 0 for none.
pthread_t threadNow(const pthread_t *tid);
// A thread was started: its identifier.
void threadStarted(pthread_t *tid, pthread_t started);
// Called by the thread itself at its end; it uses nothing of the provider afterwards.
void threadEnds();
// Returns the thread that the caller is going to join, or 0 if there is none or it has gone. From then on, until
// threadJoined, getThreadSts reports that it runs and does not join it.
pthread_t claimThread(const pthread_t *tid);
// The claimed thread was joined: clears *tid.
void threadJoined(pthread_t *tid);

} // namespace tavstrg
