// SPDX-License-Identifier: Apache-2.0
#include "runtime/lock.h"

#include "runtime/pause.h"
#include "runtime/progress.h"
#include "runtime/trace.h"
#include "runtime/turns.h"

#include <cerrno>
#include <mutex>
#include <unistd.h>

using namespace tavstrg;

namespace {

constexpr int kLockAttempts = 30;
constexpr useconds_t kPause = 100000; // 100 ms

// Factories renew the store lock from several threads at once, and a stop destroys locks that requests still try: no
// thread may use a mutex while another one initialises or destroys it.
std::mutex renewing;

int tryLock(pthread_mutex_t *mutex)
{
    const std::lock_guard held(renewing);
    return pthread_mutex_trylock(mutex);
}

// Each attempt at the store's lock is traced; for a segment's lock, only failures are.
enum class Attempts { quiet, traced };

int pollLock(pthread_mutex_t *mutex, Attempts attempts)
{
    for (int attempt = 0; attempt < kLockAttempts;) {
        if (attempts == Attempts::traced) {
            TRACE(kDetail, "pthread_mutex_trylock()");
        }
        const int error = tryLock(mutex);
        if (error == 0) {
            if (attempts == Attempts::traced) {
                TRACE(kDetail, "pthread_mutex_trylock() success");
            }
            return TRACED(0, kDetail, "_OUT_");
        }
        if (error != EBUSY) {
            TRACE(kFailure, "pthread_mutex_trylock() Failure!! errno=[%d]", error);
            return TRACED(-1, kDetail, "_OUT_");
        }
        TRACE(kDetail, "pthread_mutex_trylock() EBUSY...");
        pauseFor(kPause);
        ++attempt;
        TRACE(kDetail, "pthread_mutex_trylock() retry(%d)", attempt);
    }
    TRACE(kFailure, "pthread_mutex_trylock() retry(%d) Failre!!", kLockAttempts);
    return TRACED(-1, kDetail, "_OUT_");
}

TurnQueue g_queue; // for the store's lock

} // namespace

int tavstrg::pollStoreLock(pthread_mutex_t *mutex)
{
    return pollLock(mutex, Attempts::traced);
}

int tavstrg::queueForStoreLock(pthread_mutex_t *mutex)
{
    TRACE(kDetail, "pthread_mutex_trylock() in turn");
    const int error = g_queue.wait([mutex] { return tryLock(mutex); });
    if (error == 0) {
        return TRACED(0, kDetail, "_OUT_");
    }
    if (error == ETIMEDOUT) {
        TRACE(kFailure, "pthread_mutex_trylock() Failure!! the store is stuck");
    } else {
        TRACE(kFailure, "pthread_mutex_trylock() Failure!! errno=[%d]", error);
    }
    return TRACED(-1, kDetail, "_OUT_");
}

int tavstrg::renewMutex(RenewableMutex &lock)
{
    const std::lock_guard held(renewing);
    if (lock.live) {
        return 0;
    }
    const int error = pthread_mutex_init(&lock.mutex, nullptr);
    lock.live = error == 0;
    return error;
}

int tavstrg::destroyMutex(RenewableMutex &lock)
{
    const std::lock_guard held(renewing);
    if (!lock.live) {
        return 0;
    }
    if (const int error = pthread_mutex_trylock(&lock.mutex); error != 0) {
        return error; // one that is held at this moment stays as it is
    }
    pthread_mutex_unlock(&lock.mutex);
    const int error = pthread_mutex_destroy(&lock.mutex);
    lock.live = error != 0;
    return error;
}

int nonsrvMutexLock(const CInfo *cInfo, pthread_mutex_t *mutex)
{
    const TraceScope scope;
    TRACE(kDetail, "_IN_");
    if (cInfo == nullptr) {
        return TRACED(-1, kFailure, "_OUT_ param(cInfo) Failure!!");
    }
    if (mutex == nullptr) {
        return TRACED(-1, kFailure, "_OUT_ param(mutex) Failure!!");
    }
    if (getServiceMode(cInfo) == 1) {
        return TRACED(0, kDetail, "_OUT_ now is ServiceMode.");
    }
    return turnRules().takeLock(mutex);
}

void mutexUnlock(pthread_mutex_t *mutex)
{
    const TraceScope scope;
    TRACE(kDetail, "_IN_");
    if (mutex == nullptr) {
        TRACE(kFailure, "_OUT_ param(mutex) Failure!!");
        return;
    }
    TRACE(kDetail, "pthread_mutex_unlock()[%p]", static_cast<void *>(mutex));
    std::unique_lock held(renewing);
    const int error = pthread_mutex_unlock(mutex);
    held.unlock();
    noteProgress();
    g_queue.changed();
    if (error == 0) {
        TRACE(kDetail, "pthread_mutex_unlock success");
    } else {
        TRACE(kFailure, "pthread_mutex_unlock Failure!! errno=[%d]", error);
    }
    TRACE(kDetail, "_OUT_");
}

int shmMutexLock(pthread_mutex_t *mutex)
{
    const TraceScope scope;
    TRACE(kDetail, "_IN_");
    if (mutex == nullptr) {
        return TRACED(-1, kFailure, "_OUT_ param(mutex) Failure!!");
    }
    return pollLock(mutex, Attempts::quiet);
}

int shmMutexUnlock(pthread_mutex_t *mutex)
{
    const TraceScope scope;
    TRACE(kDetail, "_IN_");
    if (mutex == nullptr) {
        return TRACED(-1, kFailure, "_OUT_ param(mutex) Failure!!");
    }
    std::unique_lock held(renewing);
    const int error = pthread_mutex_unlock(mutex);
    held.unlock();
    if (error != 0) {
        TRACE(kFailure, "pthread_mutex_unlock Failure!! errno=[%d]", error);
        return TRACED(-1, kDetail, "_OUT_");
    }
    return TRACED(0, kDetail, "_OUT_");
}
