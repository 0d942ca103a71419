// Monitoring: the thread and the configuration check.
#pragma once

#include "store/records/tavStrgCommonStore.h"

extern pthread_t gst_thid; // the monitoring thread; 0 when there is none. Read it through getThreadSts.
extern CInfo *gst_thcInfo; // the broker handle and context of the thread, from memalloc; null when there is none

// Address of the monitoring thread's identifier; 0 there means that no thread exists.
pthread_t *strgGetThreadID();
// Address of the initialisation state.
std::atomic<int32_t> *strgGetFirstProc();
// Starts the monitoring thread. 0, or -1.
int strgCreateThread(const CInfo *cInfo);
// Stops the thread if it runs, saves and frees the store, and makes the next request initialise again.
void strgExitThread(const CInfo *cInfo);

// One pass: collects afresh, compares with the store, replaces its records, publishes and saves them. 0, or -1.
int strgCheckConfigChange(const CInfo *cInfo);
