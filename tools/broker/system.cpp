// SPDX-License-Identifier: Apache-2.0
// The function table for threads and locks.

#include "broker/objects.h"

#include <cstring>
#include <ctime>
#include <pthread.h>

namespace broker {

namespace {

char *resolveFileName(const char *name)
{
    const std::string file = std::string("lib") + name + ".so";
    return strdup(file.c_str()); // the caller frees it
}

pthread_t threadOf(void *handle)
{
    return reinterpret_cast<pthread_t>(handle);
}

void *newThread(void *(*function)(void *), void *argument, int detached)
{
    pthread_t thread{};
    if (pthread_create(&thread, nullptr, function, argument) != 0) {
        return nullptr;
    }
    if (detached != 0) {
        pthread_detach(thread);
    }
    return reinterpret_cast<void *>(thread);
}

int joinThread(void *thread, void **result)
{
    return pthread_join(threadOf(thread), result);
}

int exitThread(void *result)
{
    pthread_exit(result);
}

int cancelThread(void *thread)
{
    return pthread_cancel(threadOf(thread));
}

int threadSleep(CMPIUint32 milliseconds)
{
    const timespec time{static_cast<time_t>(milliseconds / 1000), static_cast<long>(milliseconds % 1000) * 1000000};
    return nanosleep(&time, nullptr);
}

int threadOnce(int *control, void (*function)())
{
    return pthread_once(control, function);
}

// CMPI headers differ in the type of keys.
template <class Key> int createThreadKey(Key *key, void (*destructor)(void *))
{
    pthread_key_t made{};
    const int result = pthread_key_create(&made, destructor);
    *key = made;
    return result;
}

template <class Key> int destroyThreadKey(Key key)
{
    return pthread_key_delete(static_cast<pthread_key_t>(key));
}

template <class Key> void *getThreadSpecific(Key key)
{
    return pthread_getspecific(static_cast<pthread_key_t>(key));
}

template <class Key> int setThreadSpecific(Key key, void *value)
{
    return pthread_setspecific(static_cast<pthread_key_t>(key), value);
}

void *newMutex(int)
{
    return new pthread_mutex_t(PTHREAD_MUTEX_INITIALIZER);
}

void destroyMutex(void *mutex)
{
    auto *const destroyed = static_cast<pthread_mutex_t *>(mutex);
    pthread_mutex_destroy(destroyed);
    delete destroyed;
}

void lockMutex(void *mutex)
{
    pthread_mutex_lock(static_cast<pthread_mutex_t *>(mutex));
}

void unlockMutex(void *mutex)
{
    pthread_mutex_unlock(static_cast<pthread_mutex_t *>(mutex));
}

void *newCondition(int)
{
    return new pthread_cond_t(PTHREAD_COND_INITIALIZER);
}

void destroyCondition(void *condition)
{
    auto *const destroyed = static_cast<pthread_cond_t *>(condition);
    pthread_cond_destroy(destroyed);
    delete destroyed;
}

int condWait(void *condition, void *mutex)
{
    return pthread_cond_wait(static_cast<pthread_cond_t *>(condition), static_cast<pthread_mutex_t *>(mutex));
}

int timedCondWait(void *condition, void *mutex, timespec *until)
{
    return pthread_cond_timedwait(static_cast<pthread_cond_t *>(condition), static_cast<pthread_mutex_t *>(mutex),
                                  until);
}

int signalCondition(void *condition)
{
    return pthread_cond_signal(static_cast<pthread_cond_t *>(condition));
}

} // namespace

CMPIBrokerExtFT extendedTable(int version)
{
    CMPIBrokerExtFT table{};
    table.ftVersion = version;
    table.resolveFileName = resolveFileName;
    table.newThread = newThread;
    table.joinThread = joinThread;
    table.exitThread = exitThread;
    table.cancelThread = cancelThread;
    table.threadSleep = threadSleep;
    table.threadOnce = threadOnce;
    table.createThreadKey = createThreadKey;
    table.destroyThreadKey = destroyThreadKey;
    table.getThreadSpecific = getThreadSpecific;
    table.setThreadSpecific = setThreadSpecific;
    table.newMutex = newMutex;
    table.destroyMutex = destroyMutex;
    table.lockMutex = lockMutex;
    table.unlockMutex = unlockMutex;
    table.newCondition = newCondition;
    table.destroyCondition = destroyCondition;
    table.condWait = condWait;
    table.timedCondWait = timedCondWait;
    table.signalCondition = signalCondition;
    return table;
}

} // namespace broker
