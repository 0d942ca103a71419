// SPDX-License-Identifier: Apache-2.0
// Try-locks: no caller ever blocks on the store or on a segment for more than about three seconds; with the option
// fair-requests on the store for more than that without progress.
#pragma once

#include "runtime/mode.h"

#include <atomic>
#include <pthread.h>

namespace tavstrg {

// A mutex that a stop or a cleanup destroys and the next initialisation creates again.
struct RenewableMutex {
    pthread_mutex_t mutex;
    std::atomic<bool> live; // between initialisation and destruction; zero-initialised: not live
};

// Initialises the mutex unless it is live, and so perhaps held. Returns 0, or the error of pthread_mutex_init.
int renewMutex(RenewableMutex &lock);
// Destroys the mutex if it is live and not held. Returns 0, EBUSY with the mutex left as it was, or another
// error.
int destroyMutex(RenewableMutex &lock);

// The two ways to take the store's lock, for turnRules(). Each returns 0, or -1 after an error. pollStoreLock also
// after 30 attempts 100 ms apart; queueForStoreLock, which serves the threads in the order in which they arrive, where
// no progress is noted for three seconds.
int pollStoreLock(pthread_mutex_t *mutex);
int queueForStoreLock(pthread_mutex_t *mutex);

} // namespace tavstrg

// Takes the lock as turnRules() say, except in service mode, where nothing is locked. Returns 0; -1 on a null argument,
// an error, or when the lock was not free in time.
int nonsrvMutexLock(const CInfo *cInfo, pthread_mutex_t *mutex);
// Releases a lock, also one that nonsrvMutexLock did not take in service mode: deliberate.
void mutexUnlock(pthread_mutex_t *mutex);

// The same for a segment's mutex, also in service mode. Each returns 0 or -1.
int shmMutexLock(pthread_mutex_t *mutex);
int shmMutexUnlock(pthread_mutex_t *mutex);
