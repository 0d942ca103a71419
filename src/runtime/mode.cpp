// SPDX-License-Identifier: Apache-2.0
#include "runtime/mode.h"

#include "runtime/cmpi_data.h"
#include "runtime/holders.h"
#include "runtime/trace.h"

#include <cerrno>
#include <csignal>
#include <mutex>

using namespace tavstrg;

std::atomic<int32_t> g_srvmod{-1};

namespace {

constexpr char kNameSpace[] = "root/TAVKIT/AS";
constexpr char kClassName[] = "TAV_GeneralInformation";

std::mutex threadGuard;                // held for a check and a change only
std::atomic<pthread_t> endedThread{0}; // the end mark; 0 for none. Set without the lock: its thread may be unwinding.
pthread_t claimedThread = 0;           // being joined by another thread, so perhaps gone; 0 for none

enum class ThreadState {
    none,
    running,
    ended,   // by its mark; the caller joins it
    unknown, // the system reports no such thread; not joined
};

// What has become of the thread; *tid is cleared when it has gone.
ThreadState look(pthread_t *tid, pthread_t &seen)
{
    const std::lock_guard held(threadGuard);
    seen = tid == nullptr ? 0 : *tid;
    if (seen == 0) {
        return ThreadState::none;
    }
    if (seen == claimedThread) {
        return ThreadState::running;
    }
    if (seen == endedThread) {
        endedThread = 0;
        *tid = 0;
        return ThreadState::ended;
    }
    if (pthread_kill(seen, 0) == ESRCH) {
        *tid = 0;
        return ThreadState::unknown;
    }
    return ThreadState::running;
}

} // namespace

int getServiceMode(const CInfo *cInfo)
{
    const TraceScope scope;
    TRACE(kDetail, "_IN_");
    if (cInfo == nullptr) {
        return TRACED(0, kFailure, "_OUT_ Param(cInfo) Failure!!");
    }
    if (const int32_t known = g_srvmod; known != -1) {
        return TRACED(known, kDetail, "_OUT_ srvmod=[%d]", known);
    }
    TRACE(kDetail, "GetInstance(%s)", kClassName);
    if (cInfo->context == nullptr) {
        return TRACED(0, kFailure, "_OUT_ CBGetInstance() Failure!!");
    }
    const CMPIBroker *const broker = cInfo->broker;
    CMPIStatus status{};
    const CmpiHolder<CMPIObjectPath> path(broker->eft->newObjectPath(broker, kNameSpace, kClassName, &status));
    if (status.rc != CMPI_RC_OK || !path) {
        return TRACED(0, kFailure, "_OUT_ CMNewObjectPath() Failure!!");
    }
    const CmpiHolder<CMPIInstance> instance(
        broker->bft->getInstance(broker, cInfo->context, path.get(), nullptr, &status));
    if (status.rc != CMPI_RC_OK || !instance) {
        return TRACED(0, kFailure, "_OUT_ CBGetInstance() Failure!!");
    }
    const CMPIData data = instance.get()->ft->getProperty(instance.get(), "InstalledServiceMode", &status);
    if (status.rc != CMPI_RC_OK) {
        return TRACED(0, kFailure, "_OUT_ CMGetProperty() Failure!!");
    }
    const CmpiHolder<CMPIString> text(ownedText(data)); // empty if the property is a boolean, as expected
    const bool isNull = (data.state & kUnusable) == CMPI_nullValue;
    const int mode = isNull ? 0 : data.value.boolean; // the value member of a NULL means nothing
    if (!isNull && (mode > 1 || !isPlainValue(data))) {
        return TRACED(0, kFailure, "_OUT_ getValue() Failure!! boolean=[%d]", mode);
    }
    g_srvmod = mode;
    return TRACED(mode, kDetail, "_OUT_ InstalledServiceMode=[%d]", mode);
}

int getThreadSts(pthread_t *tid)
{
    const TraceScope scope;
    pthread_t seen = 0;
    const ThreadState state = look(tid, seen);
    TRACE(kDetail, "_IN_ tid=[%d]", tracedId(seen));
    switch (state) {
    case ThreadState::none:
        return TRACED(0, kDetail, "_OUT_ thread is non");
    case ThreadState::running:
        return TRACED(1, kDetail, "_OUT_ thread is Running");
    case ThreadState::ended:
        pthread_join(seen, nullptr); // it is about to return; joining frees what it holds
        break;
    case ThreadState::unknown:
        break;
    }
    return TRACED(0, kDetail, "_OUT_ thread is NotRun");
}

pthread_t tavstrg::threadNow(const pthread_t *tid)
{
    const std::lock_guard held(threadGuard);
    return *tid;
}

void tavstrg::threadStarted(pthread_t *tid, pthread_t started)
{
    const std::lock_guard held(threadGuard);
    *tid = started;
}

void tavstrg::threadEnds()
{
    endedThread = pthread_self();
}

pthread_t tavstrg::claimThread(const pthread_t *tid)
{
    const std::lock_guard held(threadGuard);
    claimedThread = *tid;
    return claimedThread;
}

void tavstrg::threadJoined(pthread_t *tid)
{
    const std::lock_guard held(threadGuard);
    if (endedThread == claimedThread) {
        endedThread = 0; // the next thread may get the same identifier
    }
    *tid = claimedThread = 0;
}
