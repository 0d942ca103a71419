// SPDX-License-Identifier: Apache-2.0
// Monitoring: the thread and the configuration check.
#pragma once

#include "store/store.h"

#include <mutex>

extern pthread_t gst_thid; // the monitoring thread; 0 when there is none. Read it through getThreadSts or threadNow.
extern CInfo *gst_thcInfo; // the broker handle and context of the thread, from memalloc; null when there is none. Used
                           // only where the thread is started and stopped.

namespace tavstrg {

// Held while the thread is started or stopped, and wherever an action depends on whether it runs: requests and cleanups
// come at the same moment. Taken before every other lock of the store.
extern std::recursive_mutex g_threadControl;

} // namespace tavstrg

// Address of the monitoring thread's identifier; 0 there means that no thread exists.
pthread_t *strgGetThreadID();
// Address of the initialisation state.
std::atomic<int32_t> *strgGetFirstProc();

namespace tavstrg {

// Frees the context of a thread that died; nothing while one runs.
void forgetDeadThread();

} // namespace tavstrg

// Starts the monitoring thread, which must not run. The broker prepares a context for the thread, and keeps it if the
// thread cannot be created. Returns 0, or -1 with no thread and no context.
int strgCreateThread(const CInfo *cInfo);
// The thread itself, with its CInfo: a pass, a sleep of gst_SleepSec seconds, for ever. It runs with cancellation
// disabled except in the sleep and at points between the devices of a collection, so a stop takes at most as long as
// the commands to one device. What the thread holds there is released as it unwinds.
[[noreturn]] void *strgWatchThread(void *thcInfo);
// Stops the thread if it runs, saves and frees the store, and makes the next request initialise again.
void strgExitThread(const CInfo *cInfo);

// One pass: collects, compares with the store, replaces its records, publishes and saves them. Returns 0 or -1.
int strgCheckConfigChange(const CInfo *cInfo);
